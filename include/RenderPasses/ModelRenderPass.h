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

/// Draws a model with its materials into a geometry buffer, which ModelDeferredPass shades: diffuse, specular, normal, depth
/// and identity.
///
/// | Input | Name                           | Type       | Default | Null means                                         |
/// |-------|--------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport             | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix| QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix    | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry      | GPUModel*  | invalid | cleared images                                     |
///
/// | Output | Name                    | Value                                                                          |
/// |--------|-------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Diffuse | GL_RGBA32F, diffuse colour times its image; the material's opacity in alpha    |
/// | 1      | Kvz_KvzTexture*_Specular| GL_RGBA32F, specular colour times its image; the specular exponent in alpha    |
/// | 2      | Kvz_KvzTexture*_Normal  | GL_RGB32F, unit normals in camera space                                        |
/// | 3      | Kvz_KvzTexture*_Depth   | GL_DEPTH_COMPONENT32F, window depth from 0 to 1                                |
/// | 4      | Kvz_KvzTexture*_Id      | GL_R32F, the number of the triangle within its item from 1 up, 0 for none      |
///
/// The outputs are the pass's own textures of the viewport's size, overwritten by the next frame and deleted by a change of
/// size. They are null until a viewport gives them one. Where there is no model, colours are 0 and depth is 1.
///
/// The pass draws with the GL viewport that it finds, so set that to the size of the port's rectangle. The depth test is on
/// afterwards and the clear colour is transparent black; blending and culling stay as they are.
class KVZ_RENDERPASSES_EXPORT ModelRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Diffuse, Specular, Normal, Depth, Id };

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

    ModelRenderPass();
    ~ModelRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Draws with this linked program instead of the pass's own; null goes back to the pass's own, built again. It writes
    /// "out_Kd", "out_Ks", "out_Normal" and "out_Id" at colours 0 to 3, and gets `u_ProjectionMatrix`, `u_CameraMatrix` and
    /// `u_NormalMatrix`. The pass takes ownership; a program that it held before is not deleted.
    void setShaderProgram(ShaderProgram *program);
    /// Whether fragments are left out where the alpha of the diffuse image is 0.01 or less; off by default. It has no effect
    /// once the program is built, by the first start().
    void setDiscardOnDiffuseAlpha(bool discard);

private:
    void resizeTargets(const QSize &size);

    QList<FBOConfig> m_configs;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
    bool m_discardOnDiffuseAlpha = false;
};

} // namespace Velmora::Kvz
