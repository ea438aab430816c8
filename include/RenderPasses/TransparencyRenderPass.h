// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class GPUModel;
class ShaderProgram;
class TargetFramebuffer;
class Texture;

/// Draws a model with transparency in one pass, without sorting: opaque surfaces first, then all that lies in front of them
/// as a weighted mean, in two targets that blending fills in any order. After M. McGuire and L. Bavoil, "Weighted Blended
/// Order-Independent Transparency", Journal of Computer Graphics Techniques 2(2), 2013.
///
/// | Input | Name                           | Type       | Default | Null means                                         |
/// |-------|--------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport             | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix| QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix    | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry      | GPUModel*  | invalid | a cleared frame                                    |
/// | 4     | Kvz_KvzTexture*_Texture        | Texture*   | invalid | no difference: it is not read                      |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | GL_RGBA32F, opaque and transparent surfaces over the clear colour              |
/// | 1      | Kvz_KvzTexture*_Depth  | GL_DEPTH_COMPONENT32F, window depth from 0 to 1 of the opaque surfaces         |
///
/// A material with an opacity of 1 or more is opaque. With c the light, a the opacity and z the window depth of each fragment
/// that passes the depth test, and r the product of all 1 - a, a pixel becomes
/// (1 - r) sum(c z^-5) / clamp(sum(a z^-5), 1e-4, 5e4) + r B over the colour B behind. The sum of the colours is not weighted by
/// opacity, while the divisor is: a surface alone shows as its light at any opacity, brighter than the c a that blending in
/// order gives. The alpha of the frame is (1 - r) r + r A over an alpha of A.
///
/// The depth function must be GL_LESS: with GL_LEQUAL opaque surfaces would count as transparent too. The pass clears with the
/// clear colour that it finds, draws with the GL viewport that it finds, and leaves a clear colour of transparent black and
/// the blend function (GL_ONE_MINUS_SRC_ALPHA, GL_SRC_ALPHA); blending and depth test come back as they were.
///
/// The outputs are the pass's own textures of the viewport's size, overwritten by the next frame and deleted by a change of
/// size. They are null until a viewport gives them one.
class KVZ_RENDERPASSES_EXPORT TransparencyRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry, SourceTexture };
    enum Output { Frame, Depth };

    TransparencyRenderPass();
    ~TransparencyRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void resizeTargets(const QSize &size);
    void makeWhatIsMissing();
    void drawModel(ShaderProgram &program, GPUModel *model, const QMatrix4x4 &projection, const QMatrix4x4 &camera);
    void resolve();

    // Deleted from the last to the first.
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<Texture> m_whiteTexture;
    std::unique_ptr<ShaderProgram> m_resolveProgram;
    std::unique_ptr<ShaderProgram> m_accumProgram;
    std::unique_ptr<ShaderProgram> m_opaqueProgram;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    std::unique_ptr<TargetFramebuffer> m_accumFramebuffer; ///< Shares the depth target of the other.
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
