// SPDX-License-Identifier: MIT
// The filters beside the same draws in raw GL, and the blur's time against its radius and against the pixels.
#include "Comparison.h"

#include <RenderPasses/BlurAndCombineRenderPass.h>
#include <RenderPasses/GaussianBlurRenderPass.h>
#include <RenderPasses/GradientRenderPass.h>
#include <RenderPasses/LuminanceAverageRenderPass.h>
#include <RenderPasses/StencilBlurAndBlendRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// A frame to filter: the first two arguments of a benchmark are width and height.
class Frame
{
public:
    explicit Frame(const benchmark::State &state)
        : viewport(viewportOf(state))
    {
        m_gradient.setInput(GradientRenderPass::Viewport, viewport);
        m_gradient.start(nullptr);
    }
    QVariant texture() const { return m_gradient.output(GradientRenderPass::Frame); }

    const QRect viewport;

private:
    GradientRenderPass m_gradient;
};

/// `reads` of texels per pixel, and the time of one. The more constant that is from row to row, the more the time depends only
/// on the reads.
void countReads(benchmark::State &state, int radius)
{
    // Per draw as many as lie on one side, since linear filtering reads two taps at a time.
    const int samples = (3 * radius) | 1;
    const double reads = 2.0 * samples;
    const double pixels = double(state.range(0)) * double(state.range(1));
    state.counters["reads"] = reads;
    state.counters["ns_per_read"] = state.counters["ms"] * 1e6 / (pixels * reads);
}

void gaussianBlur(benchmark::State &state)
{
    const Frame frame(state);
    const int radius = int(state.range(2));
    GaussianBlurRenderPass pass(0.0f);
    pass.setInput(GaussianBlurRenderPass::Viewport, frame.viewport);
    pass.setInput(GaussianBlurRenderPass::Source, frame.texture());
    pass.setInput(GaussianBlurRenderPass::BlurRadius, float(radius));
    compareWithFloor(state, pass);
    countReads(state, radius);
}

void glow(benchmark::State &state)
{
    const Frame frame(state);
    BlurAndCombineRenderPass pass;
    pass.setInput(BlurAndCombineRenderPass::Viewport, frame.viewport);
    pass.setInput(BlurAndCombineRenderPass::NormalFrame, frame.texture());
    pass.setInput(BlurAndCombineRenderPass::BlurFrame, frame.texture());
    pass.setInput(BlurAndCombineRenderPass::GlowAmount, 1.0f);
    pass.setInput(BlurAndCombineRenderPass::GlowThreshold, 0.25f);
    compareWithFloor(state, pass);
}

void maskedBlur(benchmark::State &state)
{
    const Frame frame(state);
    StencilBlurAndBlendRenderPass pass;
    pass.setInput(StencilBlurAndBlendRenderPass::Viewport, frame.viewport);
    pass.setInput(StencilBlurAndBlendRenderPass::NormalFrame, frame.texture());
    pass.setInput(StencilBlurAndBlendRenderPass::BlurFrame, frame.texture());
    compareWithFloor(state, pass);
}

/// The floor neither builds mip levels nor reads the pixel back.
void luminance(benchmark::State &state)
{
    const Frame frame(state);
    LuminanceAverageRenderPass pass;
    pass.setInput(LuminanceAverageRenderPass::Viewport, frame.viewport);
    pass.setInput(LuminanceAverageRenderPass::SourceTexture, frame.texture());
    compareWithFloor(state, pass);
}

void radii(benchmark::internal::Benchmark *benchmark)
{
    for (int radius : {2, 4, 8, 16, 32, 64})
        benchmark->Args({320, 180, radius});
    benchmark->Apply(timing);
}

void pixels(benchmark::internal::Benchmark *benchmark)
{
    for (int scale : {1, 5, 10, 20, 40, 80})
        benchmark->Args({16 * scale, 9 * scale, 4});
    benchmark->Apply(timing);
}

} // namespace

BENCHMARK(gaussianBlur)->Name("gaussianBlurAgainstRadius")->Apply(radii);
BENCHMARK(gaussianBlur)->Name("gaussianBlurAgainstPixels")->Apply(pixels);
BENCHMARK(glow)->Apply(largeAndTiny);
BENCHMARK(maskedBlur)->Apply(largeAndTiny);
BENCHMARK(luminance)->Apply(largeAndTiny);

} // namespace Velmora::Kvz
