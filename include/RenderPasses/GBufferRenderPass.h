// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QList>
#include <QtCore/QSize>
#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class ShaderProgram;
class TargetFramebuffer;

/// Draws plain geometry into a geometry buffer, which DeferredRenderPass shades: normal, texture coordinate, depth and
/// identity.
///
/// | Input | Name                           | Type        | Default | Null means                                          |
/// |-------|--------------------------------|-------------|---------|-----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport             | QRect       | invalid | 0 by 0 pixels                                       |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix| QMatrix4x4  | invalid | the identity                                        |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix    | QMatrix4x4  | invalid | the identity; it takes world space to camera space  |
/// | 3     | Kvz_KvzDrawBuffers*_Geometry   | DrawBuffers*, or a QVariantList of them | invalid | nothing is drawn, as with one that has no vertex array: connect geometry before the pass runs |
///
/// | Output | Name                    | Value                                                                          |
/// |--------|-------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Normal  | GL_RGB32F, the normals as the geometry has them: world space, interpolated, not normalised |
/// | 1      | Kvz_KvzTexture*_TexCoord| GL_RG32F, the texture coordinates                                              |
/// | 2      | Kvz_KvzTexture*_Depth   | GL_DEPTH_COMPONENT32F, window depth from 0 to 1                                |
/// | 3      | Kvz_KvzTexture*_Id      | GL_R32F, the number of the triangle within its drawable from 1 up, 0 for none  |
///
/// The outputs are the pass's own textures of the viewport's size, overwritten by the next frame and deleted by a change of
/// size. They are null until a viewport gives them one. Colours are cleared to the clear colour that is set, which must be
/// zeros for an Id of 0 to mean no geometry. Geometry is in world space and goes by the attributes `va_Vertex`, `va_Normal`
/// and `va_TexCoord`; the depth test sorts it. Blending and culling stay as they are.
class KVZ_RENDERPASSES_EXPORT GBufferRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Normal, TexCoord, Depth, Id };

    /// A colour target: the fragment output that writes it, and its internal format. Its place in the list of targets is
    /// its colour attachment.
    struct FBOConfig
    {
        FBOConfig(const QString &fragmentOutput, int format)
            : outputName(fragmentOutput),
              internalFormat(format)
        { }

        QString outputName;
        int internalFormat;
    };

    GBufferRenderPass();
    ~GBufferRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Draws with this linked program instead of the pass's own; null goes back to the pass's own, built again. It writes
    /// "out_Normal", "out_TexCoord" and "out_Id" at colours 0, 1 and 2, and gets `u_ProjectionMatrix` and `u_CameraMatrix`.
    /// The pass takes ownership; a program that it held before is not deleted.
    void setShaderProgram(ShaderProgram *program);

private:
    void resizeTargets(const QSize &size);

    QList<FBOConfig> m_configs;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
