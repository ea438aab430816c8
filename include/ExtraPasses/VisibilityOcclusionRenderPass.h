// SPDX-License-Identifier: MIT
#pragma once

#include <Core/RenderPassHelper.h>
#include <ExtraPasses/Export.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class ShaderProgram;
class TargetFramebuffer;

/// Removes what lies behind opaque surfaces from the lists of VisibilityBufferRenderPass, which are recorded without a depth
/// test. It stands between that pass and VisibilitySortRenderPass, whose 50 sorted places then go to what is visible.
///
/// | Input | Name                         | Type     | Default | Null means                  |
/// |-------|------------------------------|----------|---------|-----------------------------|
/// | 0     | Kvz_QRect_Viewport           | QRect    | invalid | 0 by 0 pixels               |
/// | 1     | Kvz_KvzTexture*_HeadPointers | Texture* | invalid | the inputs go through       |
/// | 2     | Kvz_KvzTexture*_NodeBuffer   | Texture* | invalid | the inputs go through       |
/// | 3     | Kvz_int_NodeBufferWidth      | int      | invalid | 0: the inputs go through    |
/// | 4     | Kvz_KvzTexture*_Depth        | Texture* | invalid | the inputs go through       |
///
/// | Output | Name                         | Value                                                                     |
/// |--------|------------------------------|---------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_HeadPointers | GL_R32UI of the viewport's size: the heads of the shorter lists           |
/// | 1      | Kvz_KvzTexture*_NodeBuffer   | that of input 2, whose pointers lead past what is hidden                  |
/// | 2      | Kvz_int_NodeBufferWidth      | that of input 3                                                           |
///
/// The depth image is one of the same camera, with one sample for each texel and the viewport's size. A fragment is hidden when
/// it is as deep as the texel or deeper. The order of the others stays.
///
/// The heads are the pass's own, and those that came in stay as they are. Where the driver has no lists of several nodes, each
/// pixel's one fragment stays or goes. The depth test is off afterwards.
class KVZ_EXTRAPASSES_EXPORT VisibilityOcclusionRenderPass : public RenderPassHelper
{
public:
    enum Input { Viewport, HeadPointersIn, NodeBufferIn, NodeBufferWidthIn, Depth };
    enum Output { HeadPointers, NodeBuffer, NodeBufferWidth };

    VisibilityOcclusionRenderPass();
    ~VisibilityOcclusionRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
