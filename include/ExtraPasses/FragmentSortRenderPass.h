// SPDX-License-Identifier: MIT
#pragma once

#include <Core/RenderPassHelper.h>
#include <ExtraPasses/Export.h>

#include <QtCore/QSharedPointer>

#include <memory>
#include <optional>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;

/// Sorts lists of fragments by depth, the nearest first; of equal depths the item that the model has earlier comes first, then its
/// earlier triangle, so that the order in which a GPU recorded them does not show.
///
/// | Input | Name                            | Type     | Default | Null means                |
/// |-------|---------------------------------|----------|---------|---------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect    | invalid | 0 by 0 pixels: no sort    |
/// | 1     | Kvz_KvzTexture*_HeadPointers    | Texture* | invalid | no sort                   |
/// | 2     | Kvz_KvzTexture*_NodeBuffer      | Texture* | invalid | no sort                   |
/// | 3     | Kvz_int_NodeBufferWidth         | int      | invalid | no sort, as for 0         |
///
/// | Output | Name                         | Value                                        |
/// |--------|------------------------------|----------------------------------------------|
/// | 0      | Kvz_KvzTexture*_HeadPointers | input 1                                      |
/// | 1      | Kvz_KvzTexture*_NodeBuffer   | input 2, whose nodes are in order afterwards |
/// | 2      | Kvz_int_NodeBufferWidth      | input 3                                      |
///
/// The lists are those of VisibilityBufferRenderPass or FragmentListRenderPass, in its format. Lists of any length are sorted
/// whole: up to 64 fragments by insertion while they are read, longer ones within their image, which takes far longer. (Mesa's
/// software driver ends loops after 65,535 turns, which can leave lists of more than about 500 fragments partly out of order.)
/// Pointers stay; the payloads move, and lists that are in order already are not written. A list that leads out of the image, for
/// want of room, ends there.
///
/// Where the driver has no lists, see FragmentListRenderPass, the pass does nothing. Otherwise the depth test and blending are off
/// afterwards, all channels are written, and image unit 1 is empty. Inputs are not given back. skip() makes the outputs invalid.
class KVZ_EXTRAPASSES_EXPORT FragmentSortRenderPass : public RenderPassHelper
{
public:
    enum Input { Viewport, HeadPointersIn, NodeBufferIn, NodeBufferWidthIn };
    enum Output { HeadPointers, NodeBuffer, NodeBufferWidth };

    FragmentSortRenderPass();
    ~FragmentSortRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::optional<bool> m_hasLists; ///< Whether the driver has them; not asked before the first lists.
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
