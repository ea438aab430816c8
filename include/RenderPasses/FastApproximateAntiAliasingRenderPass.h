// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;

/// Smooths the edges of a frame in one draw, from the frame alone. The algorithm is FXAA 3.11 in its quality form for PCs
/// (T. Lottes, 2011), which looks for steps in luma, finds the ends of each edge and shifts pixels across it.
///
/// | Input | Name                               | Type     | Default | Null means                           |
/// |-------|------------------------------------|----------|---------|--------------------------------------|
/// | 0     | Kvz_QRect_Viewport                 | QRect    | invalid | 0 by 0 pixels                        |
/// | 1     | Kvz_KvzTexture*_Frame              | Texture* | invalid | no result: the output is empty       |
/// | 2     | Kvz_float_SubPixelQuality          | float    | 1.0     | 0.75                                 |
/// | 3     | Kvz_float_RcpFrameQuality          | float    | 1.1     | 1.0                                  |
/// | 4     | Kvz_float_EdgeThresholdQuality     | float    | 0.125   | 0.166                                |
/// | 5     | Kvz_float_EdgeThresholdMinQuality  | float    | 0.0625  | 0.0                                  |
/// | 6     | Kvz_bool_RenderInHDR               | bool     | true    | false                                |
///
/// | Output | Name                  | Value                                                                       |
/// |--------|-----------------------|-----------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | A pooled texture of the viewport's size: GL_RGBA16F in HDR, else GL_RGBA8.  |
///
/// Sub-pixel quality removes details of less than a pixel, from 0 (none) to 1 (soft). The edge threshold is the least
/// contrast that counts, in parts of the brightest neighbour; the other threshold is its floor. The reciprocal frame factor
/// widens the horizontal steps alone. Green stands for luma, so the frame should be as bright to the eye as its numbers
/// say: tone-mapped, encoded for the screen. HDR changes the output's format and nothing else.
///
/// The output's alpha is that of the filtered pixel, but never below the input's. The frame needs one sample for each
/// texel; its filters are linear while the pass draws and as before afterwards. The depth test is off afterwards.
class KVZ_RENDERPASSES_EXPORT FastApproximateAntiAliasingRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        Frame,
        SubPixelQuality,
        RcpFrameQuality,
        EdgeThresholdQuality,
        EdgeThresholdMinQuality,
        RenderInHDR
    };
    enum Output { FrameOut };

    FastApproximateAntiAliasingRenderPass();
    ~FastApproximateAntiAliasingRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    int m_width = 0;
    int m_height = 0;
};

} // namespace Velmora::Kvz
