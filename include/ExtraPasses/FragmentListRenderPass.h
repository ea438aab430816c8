// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class FragmentCounter;
class GPUModel;
class ShaderProgram;
class TargetFramebuffer;
class Texture;

/// Records the transparent fragments of a model that opaque surfaces do not hide, a list for each pixel, in the format of
/// VisibilityBufferRenderPass, so that the passes of both kinds can be mixed. Per-pixel linked lists: J. C. Yang, J. Hensley,
/// H. Grün, N. Thibieroz, "Real-Time Concurrent Linked List Construction on the GPU", Computer Graphics Forum 29(4), 2010.
///
/// | Input | Name                            | Type       | Default | Null means                                         |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | no lists                                           |
/// | 4     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | nothing is hidden                                  |
///
/// | Output | Name                         | Value                                                  |
/// |--------|------------------------------|--------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_HeadPointers | GL_R32UI of the viewport's size, a pointer a pixel     |
/// | 1      | Kvz_KvzTexture*_NodeBuffer   | nodes, four integers of 32 bits each                   |
/// | 2      | Kvz_int_NodeBufferWidth      | int, nodes in a row of that texture                    |
///
/// Items with GPUModel::Transparent are recorded, those of their fragments whose window depth is below the texel of the depth
/// image: one of the viewport's size, of the same camera, with one sample a texel. For a model without any such item the pass
/// rests: its outputs are null textures and 0, the next passes of the lists have nothing to do, and no GL call is made.
///
/// **Room.** There are two nodes for each pixel at first. The fragments of each frame are counted, behind a fence, and the nodes
/// grow before a fifth of the room is all that is left; they never shrink while the viewport's size stays. The first frame of a
/// size waits for its count, and is recorded again if it had more fragments than nodes. Should a later frame have more, then those
/// without a node are missing from its lists; a warning tells so when the count has arrived, in the next frame or a few frames
/// later, and from then on there is room. A change of size and the end of the pass wait for counts that are under way. 2^25 nodes,
/// 512 MiB, are the most, or as many rows of 2048 as the driver's textures can have.
///
/// On drivers without ARB_shader_atomic_counters, ARB_shader_image_load_store or ARB_shading_language_420pack each pixel has its
/// nearest fragment alone, as in that other pass, but the node says the draw, so that models of several items are shaded right.
///
/// The textures are the pass's own, overwritten by the next frame. The depth test, blending and the scissor test are off
/// afterwards, all channels are written, and image units 0 and 1 are empty.
class KVZ_EXTRAPASSES_EXPORT FragmentListRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry, Depth };
    enum Output { HeadPointers, NodeBuffer, NodeBufferWidth };

    FragmentListRenderPass();
    ~FragmentListRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void rest();
    void prepare();
    void settleCounts();
    void learn(qint64 fragments, qint64 room);
    void ensureRoom();
    qint64 room() const;
    void recordAgainIfShort(GPUModel &model, Texture *depth);
    void recordLists(GPUModel &model, Texture *depth);
    void recordNearest(GPUModel &model, Texture *depth);
    void draw(GPUModel &model, Texture *depth);

    QSize m_size;
    int m_nodeRows = 0;
    int m_mostRows = 0;
    qint64 m_counted = -1; ///< Fragments of the last frame that was counted; -1 before the first of a size.
    bool m_isShort = false; ///< That frame had more fragments than nodes.
    bool m_hasLists = false;
    std::unique_ptr<FragmentCounter> m_counter;
    std::unique_ptr<TargetFramebuffer> m_nodes; ///< With the nodes as its target.
    std::unique_ptr<TargetFramebuffer> m_heads; ///< With the head pointers as its target; those of single nodes too.
    std::unique_ptr<TargetFramebuffer> m_framebuffer; ///< What lists are drawn to, which is not written.
    std::unique_ptr<ShaderProgram> m_program;
};

} // namespace Velmora::Kvz
