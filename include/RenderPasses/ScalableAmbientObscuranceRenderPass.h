// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// The text of the main fragment shader of ScalableAmbientObscuranceRenderPass, for hosts that read or reuse it. It chooses
/// its variant by the macros CS_POS_CALCULATE, MULTISAMPLE_ZBUFFER_TEXTURE, NORMAL_CALCULATE, MULTISAMPLE_NORMAL_TEXTURE,
/// NORMAL_TRANSPOSE_INVERT and NORMAL_SCREENSPACE. Filled before main() begins.
extern KVZ_RENDERPASSES_EXPORT const QString gSaoFragmentShaderSource;

/// Measures how far the surroundings of each pixel shut it off from ambient light, as a grey image: 1 in the open, towards 0
/// in corners and crevices. Scalable Ambient Obscurance by McGuire, Mara and Luebke (High-Performance Graphics 2012), one
/// full-screen draw without its blur; what blurs the image and multiplies it into the frame are later passes.
///
/// | Input | Name                                | Type       | Default | Null means                                         |
/// |-------|-------------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport                  | QRect      | invalid | 0 by 0 pixels; only width and height count         |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix     | QMatrix4x4 | invalid | the identity; a perspective one                    |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix         | QMatrix4x4 | invalid | the identity; world to camera space                |
/// | 3     | Kvz_float_NearPlane                 | float      | 0.1     | 0; distance of the near plane, above 0             |
/// | 4     | Kvz_float_FarPlane                  | float      | 100.0   | 0; distance of the far plane                       |
/// | 5     | Kvz_KvzTexture*_Depth               | Texture*   | invalid | nothing is drawn: the image holds what it held     |
/// | 6     | Kvz_float_SAORadius                 | float      | 0.09    | 0; how far to look, in units of the scene          |
/// | 7     | Kvz_float_SAOBias                   | float      | 0.02    | 0; heights up to it do not obscure, in units of the scene; 0 turns the pass off |
/// | 8     | Kvz_float_SAOIntensity              | float      | 100.0   | 0; factor on the obscurance                        |
/// | 9     | Kvz_KvzTexture*_CameraSpacePosition | Texture*   | invalid | positions come from the depth                      |
/// | 10    | Kvz_KvzTexture*_Normal              | Texture*   | invalid | normals come from the positions                    |
/// | 11    | Kvz_float_SaoNumSamples             | float      | 7.0     | 0, and an undefined image; taps, truncated         |
/// | 12    | Kvz_float_SaoNumLogMaxOffset        | float      | 3.0     | 0; logarithm of the distance from which taps read coarser levels |
/// | 13    | Kvz_float_SaoNumSpiralTurns         | float      | 3.0     | 0; turns of the spiral of taps, truncated          |
/// | 14    | Kvz_float_ResolutionDivider         | float      | 1.0     | 1, as for all below that; divides the image's size |
/// | 15    | Kvz_int_NumberMultisamples          | int        | invalid | 0; samples of the image, which is plain up to 1    |
///
/// | Output | Name                  | Value                                                                                |
/// |--------|-----------------------|--------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | A pooled GL_RGBA8 texture of the viewport's size by the divider, truncated: the obscurance in red, green and blue, 1 in alpha. With a bias of 0 the integer 0, which reads as no image. |
///
/// White stays where the depth of the pixel or of one of its taps is exactly 1 and positions come from the depth, and
/// where a point is more than 50 units away. Which of the image inputs are connected and which of them are multisampled,
/// the first frame decides for good. Multisampled images are read at sample 0.
///
/// The depth image is also attached as depth, so it must have as many samples as the result. When positions come from the
/// depth, a pixel of the result reads the texel of its own number: with a divider above 1 that is the lower left part of
/// the scene, and positions of CameraSpaceZBufferRenderPass are what to use. Those are read with the filter and wrap that
/// the texture has.
///
/// The depth test is left as it was; depth and stencil writes and the stencil test are off afterwards, the stencil
/// function is GL_EQUAL with 1, and the clear colour is transparent black.
class KVZ_RENDERPASSES_EXPORT ScalableAmbientObscuranceRenderPass : public RenderPassProxy
{
public:
    /// What the normal image holds.
    enum NormalProcessing : int {
        NormalTransposeInvert, ///< Normals in world space, which the camera matrix brings to camera space.
        NormalScreenSpace ///< Normals in camera space; those that point away from the camera are turned. Not multisampled.
    };
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        NearPlane,
        FarPlane,
        Depth,
        SaoRadius,
        SaoBias,
        SaoIntensity,
        CameraSpacePosition,
        Normal,
        SaoNumSamples,
        SaoNumLogMaxOffset,
        SaoNumSpiralTurns,
        ResolutionDivider,
        NumberMultisamples
    };
    enum Output { Frame };

    ScalableAmbientObscuranceRenderPass();
    ~ScalableAmbientObscuranceRenderPass() override;

    /// What the normal image holds; NormalTransposeInvert unless set. Call it before the first start(): later it is an
    /// error in the log and has no effect.
    void setNormalProcessing(NormalProcessing processing);

    void start(RenderCallbacks *callbacks) override;

private:
    struct Settings;
    Settings readSettings() const;
    void buildProgram(const Texture *depth, const Texture *positions, const Texture *normals);
    unsigned int attachDepth(Texture *depth);
    void draw(const Settings &settings, Texture *depth, Texture *positions, Texture *normals);
    void setUniforms(const Settings &settings);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_shaderProgram; ///< For the images of the first frame.
    std::unique_ptr<FramebufferObject> m_framebuffer;
    int m_width = 0; ///< Of the latest image.
    int m_height = 0;
    NormalProcessing m_normalProcessing = NormalTransposeInvert;
    float m_resolutionDivider = 1.0f; ///< Of the latest frame.
};

} // namespace Velmora::Kvz
