// SPDX-License-Identifier: MIT
#pragma once

#include <Core/RenderPassHelper.h>
#include <RenderPasses/Export.h>

#include <QtCore/QList>
#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QString>

#include <limits>
#include <memory>

namespace Velmora::Kvz {

class BufferObject;
class ShaderProgram;
class TargetFramebuffer;

/// Records, for each pixel, all triangles of a model that cover it and how deep they lie: the first of three passes for
/// transparency that is independent of draw order. VisibilitySortRenderPass sorts the lists and
/// VisibilityDeferredRenderPass shades them. The method is that of per-pixel linked lists: J. C. Yang, J. Hensley,
/// H. Grün, N. Thibieroz, "Real-Time Concurrent Linked List Construction on the GPU", Computer Graphics Forum 29(4), 2010.
///
/// | Input | Name                            | Type       | Default | Null means                                         |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | empty lists                                        |
///
/// | Output | Name                         | Value                                                                     |
/// |--------|------------------------------|---------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_HeadPointers | GL_R32UI of the viewport's size, a pointer for each pixel                 |
/// | 1      | Kvz_KvzTexture*_NodeBuffer   | nodes, four integers of 32 bits each                                      |
/// | 2      | Kvz_int_NodeBufferWidth      | int, nodes in a row of that texture                                       |
/// | 3      | Kvz_KvzTexture*_Depth        | never written                                                             |
///
/// **Lists.** A pointer is 0 for none, else the number of a node plus 1. With W the value of output 2, node n is the texel in
/// column n % W of row n / W. Its channels:
///
/// | Channel | Content                                                                     |
/// |---------|-----------------------------------------------------------------------------|
/// | r       | pointer to the pixel's next node; 0 ends the list                           |
/// | g       | number of the triangle within its draw, plus 1                              |
/// | b       | window depth from 0 to 1, the bits of a float                               |
/// | a       | number of the draw, which is the item's in its model                        |
///
/// **Modes.** The first start() chooses one for good, and says which in a debug line.
///
/// - GL4 mode, where the driver has ARB_shader_atomic_counters, ARB_shader_image_load_store and
///   ARB_shading_language_420pack: lists of any length, the latest fragment first. The nodes are GL_RGBA32UI, 4096 by 4096:
///   16,777,216 of them in 256 MiB. There is no depth test, so hidden surfaces are recorded too. Fragments past the last
///   node are lost, and so is what lies behind them in their lists; nothing is logged.
/// - Otherwise each pixel has the nearest fragment alone. The nodes are GL_RGBA32I of the viewport's size, node n is that of
///   pixel n, and a is 0 whatever the draw: only models of one item can be shaded from these lists.
///
/// The textures are the pass's own, overwritten by the next frame. The pass draws with the GL viewport that it finds, so set
/// that to the size of the port's rectangle. The depth test is on afterwards when there is a model, and the clear colour is
/// transparent black. skip() makes the outputs invalid and gives nothing back.
class KVZ_RENDERPASSES_EXPORT VisibilityBufferRenderPass : public RenderPassHelper
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { HeadPointers, NodeBuffer, NodeBufferWidth, Depth };

    /// A colour target of the mode without lists: the fragment output that writes it, and its internal format.
    struct FBOConfig
    {
        FBOConfig(const QString &fragmentOutput, int format)
            : outputName(fragmentOutput),
              internalFormat(format)
        { }

        QString outputName;
        int internalFormat;
    };

    /// Items are drawn whose 64-bit feature flags, masked with `drawFlagsMask`, equal `drawFlagsValue`: (0, 0) selects
    /// all.
    VisibilityBufferRenderPass(unsigned long long drawFlagsValue, unsigned long long drawFlagsMask);
    ~VisibilityBufferRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void chooseMode();
    void remakeSizedTextures(const QSize &size);
    void clearLists();
    void bindLists();
    void unbindLists();
    std::unique_ptr<ShaderProgram> buildListProgram() const;

    bool m_modeChosen = false;
    bool m_useGL4 = false;
    QSize m_size{std::numeric_limits<int>::min(), std::numeric_limits<int>::min()}; ///< No viewport has this one.
    unsigned long long m_drawFlagsMask;
    unsigned long long m_drawFlagsValue;
    // Deleted from the last to the first.
    QSharedPointer<BufferObject> m_counterBuffer;
    QList<FBOConfig> m_fboConfigs;
    std::unique_ptr<TargetFramebuffer> m_nodeFramebuffer; ///< With the nodes as its target.
    std::unique_ptr<TargetFramebuffer> m_headFramebuffer; ///< With the head pointers as its target.
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
};

} // namespace Velmora::Kvz
