// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class ShaderProgram;
class TargetFramebuffer;
class Texture;

/// Measures the average colour and luminance of a frame, and waits for the GPU to finish them.
///
/// | Input | Name                     | Type     | Default | Null means                                                     |
/// |-------|--------------------------|----------|---------|----------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport       | QRect    | invalid | 0 by 0 pixels, and an undefined average                        |
/// | 1     | Kvz_KvzTexture*_Texture  | Texture* | invalid | black: luminance 0                                             |
///
/// | Output | Name                       | Value                                                                           |
/// |--------|----------------------------|---------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame      | The pass's own 1 by 1 GL_RGBA32F texture with the average colour, overwritten by the next frame. |
/// | 1      | Kvz_float_averageLuminance | float, 0.2126 red + 0.7152 green + 0.0722 blue of it (ITU-R BT.709), not clamped. |
///
/// Two draws with box filters: the frame into a square with an eighth of the viewport's width as side, and that into one
/// pixel. The frame is read over its whole area whatever the viewport, which only gives the square's side. A box takes all
/// texels that it begins on and divides by its area, so the average is right where the frame's width and height are
/// multiples of the square's side, and elsewhere too large by up to the ratio of the two counts: a white frame of 1920 by
/// 1080 gives 5 / 4.5. One float sums the square, which costs up to a thousandth at that size.
///
/// The average is undefined for a viewport that is less than 8 wide, lower than an eighth of its width, or away from
/// (0, 0).
///
/// The pass neither adds nor gives back references of pooled textures.
class KVZ_RENDERPASSES_EXPORT LuminanceAverageRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, SourceTexture };
    enum Output { Frame, AverageLuminance };

    LuminanceAverageRenderPass();
    ~LuminanceAverageRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void remakeReducedTarget();
    void makeAverageTarget();
    void drawReduced(Texture *source, const QSize &size);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<TargetFramebuffer> m_averageFramebuffer; ///< With the target of the second draw.
    std::unique_ptr<TargetFramebuffer> m_reduceFramebuffer; ///< With the target of the first draw.
    std::unique_ptr<Texture> m_blackTexture;
    std::unique_ptr<ShaderProgram> m_shaderProgram;
    int m_reducedWidth = 0; ///< Both sides of the first target.
    int m_reducedHeight = 0;
    int m_averageWidth = 0;
    int m_averageHeight = 0;
};

} // namespace Velmora::Kvz
