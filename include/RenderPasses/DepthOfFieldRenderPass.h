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

/// Blurs a frame by the circle of confusion that a lens gives each depth, in one draw of 18 taps on three rings, with coloured
/// fringes and bright highlights. The focal distance comes from a port or from the depth under a point of the picture.
///
/// | Input | Name                   | Type      | Default | Null means                                                     |
/// |-------|------------------------|-----------|---------|----------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport     | QRect     | invalid | 0 by 0 pixels; only the size counts                            |
/// | 1     | Kvz_KvzTexture*_Frame  | Texture*  | invalid | the output is null                                             |
/// | 2     | Kvz_KvzTexture*_Depth  | Texture*  | invalid | depth 0, the near plane everywhere; window depth from 0 to 1   |
/// | 3     | Kvz_float_FocalDepth   | float     | invalid | 0; the distance that is sharp, in metres; unused with AutoFocus|
/// | 4     | Kvz_float_FocalLength  | float     | invalid | 0, which leaves all sharp; of the lens, in millimetres         |
/// | 5     | Kvz_float_FStop        | float     | invalid | 0, which blurs as far as it goes; focal length over aperture   |
/// | 6     | Kvz_bool_AutoFocus     | bool      | invalid | false                                                          |
/// | 7     | Kvz_QVector2D_Focus    | QVector2D | invalid | the lower left corner; (1, 1) is the upper right one           |
///
/// | Output | Name                   | Value                                                                          |
/// |--------|------------------------|--------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame  | GL_RGBA32F, the blurred frame; its alpha is undefined                          |
///
/// For a depth D, the focal distance F, both in millimetres, a focal length f and a stop N, the blur is
/// |D f / (D - f) - F f / (F - f)| (F - f) / (F N 0.03), kept between 0 and 1. Under 0.05 a pixel is copied as it is. From
/// there on ring i of three has 3 i taps, i blurred pixels from the centre; red, green and blue are read 0.7 blurred pixels
/// apart, and what is brighter than a luminance of 0.5 counts more. The largest blur reaches 3.7 pixels, whatever the size
/// of the picture.
///
/// Depths are turned to distances as if the camera's near plane were at 0.1 and its far plane at 100. With other planes the
/// distances are off: at near plane n and far plane f, a distance of d comes out as
/// 1 / (10 - 9.99 (1 / n - 1 / d) / (1 / n - 1 / f)). Autofocus measures depths the same way, so it still hits its point.
///
/// The output is the pass's own texture of the viewport's size, overwritten by the next frame and deleted by a change of
/// size. The pass counts no references: it gives back neither of its inputs. Both must have one sample for each texel. The
/// depth test is off afterwards; the clear colour is used as it is found.
class KVZ_RENDERPASSES_EXPORT DepthOfFieldRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, FrameIn, Depth, FocalDepth, FocalLength, FStop, AutoFocus, Focus };
    enum Output { Frame };

    DepthOfFieldRenderPass();
    ~DepthOfFieldRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void resizeTarget(const QSize &size);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
