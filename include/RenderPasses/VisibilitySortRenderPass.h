// SPDX-License-Identifier: MIT
#pragma once

#include <Core/RenderPassHelper.h>
#include <RenderPasses/Export.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;

/// Sorts the lists of VisibilityBufferRenderPass, the nearest fragment first, for VisibilityDeferredRenderPass.
///
/// | Input | Name                         | Type     | Default | Null means    |
/// |-------|------------------------------|----------|---------|---------------|
/// | 0     | Kvz_QRect_Viewport           | QRect    | invalid | 0 by 0 pixels |
/// | 1     | Kvz_KvzTexture*_HeadPointers | Texture* | invalid | no sort       |
/// | 2     | Kvz_KvzTexture*_NodeBuffer   | Texture* | invalid | no sort       |
/// | 3     | Kvz_int_NodeBufferWidth      | int      | invalid | 0: no sort    |
///
/// | Output | Name                         | Value        |
/// |--------|------------------------------|--------------|
/// | 0      | Kvz_KvzTexture*_HeadPointers | that of input 1 |
/// | 1      | Kvz_KvzTexture*_NodeBuffer   | that of input 2 |
/// | 2      | Kvz_int_NodeBufferWidth      | that of input 3 |
///
/// The sort is in place: heads and the chains of nodes stay as they are, and the content of nodes moves along them. The
/// first 50 nodes of a list are sorted, those that were written last; the rest follow in their old order. Fragments of
/// equal depth come out in the order that the quicksort gives them, which is not draw order.
///
/// Where the driver lacks what lists of several nodes need, the inputs are passed through and no GL call is made.
///
/// The depth test is on afterwards, and the GL viewport is (0, 0, width, height). skip() makes the outputs invalid and gives
/// nothing back.
class KVZ_RENDERPASSES_EXPORT VisibilitySortRenderPass : public RenderPassHelper
{
public:
    enum Input { Viewport, HeadPointersIn, NodeBufferIn, NodeBufferWidthIn };
    enum Output { HeadPointers, NodeBuffer, NodeBufferWidth };

    /// A fragment output and the internal format of its target. The pass has no use for it.
    struct FBOConfig
    {
        FBOConfig(const QString &fragmentOutput, int format)
            : outputName(fragmentOutput),
              internalFormat(format)
        { }

        QString outputName;
        int internalFormat;
    };

    VisibilitySortRenderPass();
    ~VisibilitySortRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Sorts with this linked program instead of the pass's own; null goes back to the pass's own, built again. It gets
    /// `u_SamplerHeadPointer`, `u_NodeBufferImage` (image unit 1) and `u_NodeBufferImageWidth`, and draws one quad. The pass
    /// takes ownership; a program that it held before is not deleted. The quad's arrays are enabled for the program of the
    /// first sort alone.
    void setShaderProgram(ShaderProgram *program);

private:
    bool m_modeChosen = false;
    bool m_useGL4 = false;
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<ShaderProgram> m_program;
};

} // namespace Velmora::Kvz
