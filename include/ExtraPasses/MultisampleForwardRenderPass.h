// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QPointF>
#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class GPUModel;
class ShaderProgram;
class SurfaceProgramVariants;
class Texture;

/// Draws and shades a model as LitForwardRenderPass does, over a picture, into a frame of two samples for each texel, for the
/// modes S2x and 4x of SMAARenderPass.
///
/// Drivers choose where samples lie, and some give four for two. So the pass places them itself: it draws the model
/// once for each sample, with a mask of that one sample and a projection shifted so that the sample lands where the table of
/// the subsamples wants it. Shading is evaluated at the samples.
///
/// | Input | Name                            | Type       | Default | Null means                                        |
/// |-------|---------------------------------|------------|---------|---------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                     |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the projection without jitter       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity                                      |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | the background alone                              |
/// | 4     | Kvz_KvzTexture*_Frame           | Texture*   | invalid | transparent black behind the model                |
/// | 5     | Kvz_int_JitterIndex             | int        | invalid | the samples of S2x; else those of this frame of 4x |
/// | 6     | Kvz_bool_RenderInHDR            | bool       | true    | false                                             |
/// | 7     | Kvz_float_HeadlightIntensity    | float      | 0.85    | the default; of the lamp at the eye, 1 is full    |
/// | 8     | Kvz_float_AmbientIntensity      | float      | 0.15    | the default; of the light from everywhere         |
/// | 9     | Kvz_bool_FixedLight             | bool       | false   | the default; true: one fixed light instead of both |
///
/// | Output | Name                            | Value                                                                  |
/// |--------|---------------------------------|------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame           | Pooled, several samples: GL_RGBA16F in HDR, else GL_RGBA8.              |
/// | 1      | Kvz_KvzTexture*_Depth           | Pooled, several samples, GL_DEPTH24_STENCIL8.                           |
/// | 2      | Kvz_QMatrix4x4_ProjectionMatrix | The projection, shifted to the middle of the frame's two samples.      |
/// | 3      | Kvz_Vector2D_JitterAmount       | That shift in normalised device units.                                 |
///
/// Items with GPUModel::Transparent are blended over what is drawn, in the order of the model, and leave no depth.
/// Translucent items without it are mixed with the background, not with what lies between: the nearest surface wins.
/// What a mask cuts out is not drawn. Where a driver has more than two samples, the others repeat these two, slightly
/// out of place. The depth test, blending and the sample mask are off afterwards, multisampling is on, the clear colour
/// is transparent black, and the constant values of va_Color and va_TexCoord1 are changed.
class KVZ_EXTRAPASSES_EXPORT MultisampleForwardRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Geometry,
        Background,
        JitterIndex,
        RenderInHDR,
        HeadlightIntensity,
        AmbientIntensity,
        FixedLight
    };
    enum Output { Frame, Depth, ProjectionMatrixOut, JitterAmount };

    MultisampleForwardRenderPass();
    ~MultisampleForwardRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void drawBackground(Texture *background);
    void drawModel(GPUModel *model, Texture *background, const QMatrix4x4 &projection, const QMatrix4x4 &camera,
        const QSize &size, int frame);
    void blendTransparentItems(GPUModel &model, ShaderProgram &program);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<SurfaceProgramVariants> m_modelPrograms;
    std::unique_ptr<ShaderProgram> m_backgroundProgram;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    QVector<QPointF> m_samplePositions; ///< The driver's, in a texel.
    Texture *m_noBackground = nullptr; ///< The texture manager's.
};

} // namespace Velmora::Kvz
