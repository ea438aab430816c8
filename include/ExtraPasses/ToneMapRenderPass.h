// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class TexelReadback;
class Texture;

/// Turns linear radiance into display values: exposure, a tone mapping operator, the transfer function of sRGB, and dither
/// against bands. Colours are multiplied by their alpha before and after.
///
/// | Input | Name                       | Type      | Default | Null means                                              |
/// |-------|----------------------------|-----------|---------|---------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport         | QRect     | invalid | 0 by 0 pixels                                           |
/// | 1     | Kvz_KvzTexture*_Frame      | Texture*  | invalid | no output; linear radiance with coverage in alpha       |
/// | 2     | Kvz_KvzTexture*_Indirect   | Texture*  | invalid | nothing is added to the frame                           |
/// | 3     | Kvz_KvzTexture*_Visibility | Texture*  | invalid | 1: the indirect image is added as it is                 |
/// | 4     | Kvz_float_Exposure         | float     | 0.0     | 0; in stops, each of which doubles the light            |
/// | 5     | Kvz_bool_AutoExposure      | bool      | false   | false                                                   |
/// | 6     | Kvz_bool_RenderInHDR       | bool      | false   | false; true: half floats, without dither                |
/// | 7     | Kvz_Vector2D_PatternOrigin | QVector2D | invalid | (0, 0); in pixels                                       |
/// | 8     | Kvz_KvzTexture*_Layers     | Texture*  | invalid | no layers before the frame                              |
/// | 9     | Kvz_KvzTexture*_Background | Texture*  | invalid | nothing behind the frame                                |
///
/// | Output | Name                   | Value                                                                                   |
/// |--------|------------------------|-----------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | A pooled texture of the viewport's size, display values: GL_RGBA8, or GL_RGBA16F in HDR.  |
/// | 1      | Kvz_KvzTexture*_Linear | Pooled, GL_RGBA16F: the exposed frame before the operator. Null where nobody uses it.     |
/// | 2      | Kvz_float_Exposure     | The stops that were applied.                                                              |
///
/// What is mapped is frame + indirect * visibility, channel by channel, in the frame's alpha. It is divided by its alpha,
/// multiplied by 2^exposure, mapped, encoded and multiplied by its alpha again; alpha is kept. So light without any coverage does
/// not show. Negative values and those that are no number count as 0. Images of another size than the viewport's are stretched to it.
///
/// Layers and background are linear radiance, too, and take part before anything is mapped, as in CompositeRenderPass: the alpha of
/// layers is the share T of what lies behind that comes through, rgb = layers.rgb + T behind.rgb, alpha = 1 - T (1 - behind.a); the
/// background, multiplied by its alpha, lies under the frame. Surroundings are a background; colours and pictures that are display
/// values already belong under the result.
///
/// **Operators.** `Neutral` keeps colours as they are up to 0.8, less the 4 % that a dielectric mirrors, and compresses what is
/// brighter towards white: the one for products, whose base colours are seen as stated. `Filmic` is a curve with a toe and a
/// shoulder. `Clamp` cuts at 1, for data and comparisons, and is not dithered.
///
/// **Dither** adds less than half a step of 8 bits, so values that 8 bits can hold stay what they are, black and white among them.
/// Its pattern follows the picture's pixels: `PatternOrigin` says where the lower left pixel of a tile lies in the whole.
///
/// **Automatic exposure** brings the logarithmic mean of the luminance to 0.18, each pixel weighted by its alpha: what nothing
/// covers does not count, nor does the background. `Exposure` is added to it. The mean is taken of the same frame, on the GPU, where it is used; so pictures
/// depend on no earlier frame, and nothing waits. Without coverage it is 0 stops. Only the number on port 2 has to come back: it is
/// that of the frame before, read through a buffer behind a fence; the first frame's is its own, for which the pass waits once. It is
/// read where the port has users, and otherwise invalid. Without automatic exposure it is the value of the input.
///
/// Sources: Khronos Group, "Khronos PBR Neutral Tone Mapper" (2024); K. Narkowicz, "ACES Filmic Tone Mapping Curve" (2016); IEC
/// 61966-2-1 (sRGB); E. Reinhard et al., "Photographic Tone Reproduction for Digital Images" (SIGGRAPH 2002), for the logarithmic
/// mean; J. Jimenez, "Next Generation Post Processing in Call of Duty: Advanced Warfare" (SIGGRAPH 2014), for the dither's noise.
class KVZ_EXTRAPASSES_EXPORT ToneMapRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        FrameIn,
        Indirect,
        Visibility,
        Exposure,
        AutoExposure,
        RenderInHDR,
        PatternOrigin,
        Layers,
        Background
    };
    enum Output { Frame, Linear, AppliedExposure };
    enum class Operator : int { Neutral, Filmic, Clamp };

    ToneMapRenderPass();
    ~ToneMapRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    /// `Operator::Neutral` until then.
    void setOperator(Operator toneMapping);
    /// Whether 8-bit results are dithered, except with `Operator::Clamp`; true until then.
    void setDither(bool isOn);
    /// Forgets the measurement of the last frame: the next one's number on port 2 is its own, as in the first frame.
    void forgetMeasurement();

private:
    /// What the texts of the programs depend on.
    struct Variant
    {
        bool hasIndirect = false;
        bool hasVisibility = false;
        bool hasLayers = false;
        bool hasBackground = false;
        bool isMeasured = false;
        bool isDithered = false;
        bool hasLinear = false;
        Operator toneMapping = Operator::Neutral;
        bool operator==(const Variant &other) const;
    };
    void buildPrograms(const Variant &variant);
    void bindImages(ShaderProgram &program) const;
    Texture *measure();
    Texture *sumBlocks(ShaderProgram &program, const QSize &sourceSize, Texture *source);
    void readMeasurement(Texture *mean);
    void map(Texture *mean);

    Operator m_operator = Operator::Neutral;
    bool m_dither = true;
    Variant m_variant; ///< Of the programs, where there are any.
    std::unique_ptr<ShaderProgram> m_mapProgram;
    std::unique_ptr<ShaderProgram> m_luminanceProgram;
    std::unique_ptr<ShaderProgram> m_sumProgram;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<TexelReadback> m_readback;
};

} // namespace Velmora::Kvz
