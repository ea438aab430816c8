// SPDX-License-Identifier: MIT
// Depth of field beside the same draw in raw GL, and its time against the taps and against their distance.
#include "Comparison.h"
#include "Scenery.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>
#include <RenderPasses/DepthOfFieldRenderPass.h>
#include <RenderPasses/GradientRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr double focalDepth = 1; // metres
constexpr double focalLength = 10; // millimetres
constexpr double stop = 1;
constexpr int tapsOfBlurredPixel = 18;

/// The window depth that gets this blur, from 0 to 1.
float depthOfBlur(double blur)
{
    double low = focalDepth;
    double high = 99;
    for (int i = 0; i < 60; ++i) {
        const double middle = (low + high) / 2;
        const double f = focalLength / 1000;
        const double a = middle * f / (middle - f) - focalDepth * f / (focalDepth - f);
        const double reached = -a * 1000 * (focalDepth - f) / (focalDepth * stop * 0.03);
        (reached < blur ? low : high) = middle;
    }
    return float((100 - 10 / low) / 99.9);
}

/// A frame with its depth. It is sharp except for a percentage of its rows, at the bottom, which all have the same blur.
class Lens
{
public:
    Lens(const QSize &size, int blurredPercent, double blur)
        : m_depth(GL_TEXTURE_2D, GL_DEPTH_COMPONENT32F, size.width(), size.height(), 0, nullptr)
    {
        const QRect viewport(QPoint(), size);
        m_gradient.setInput(GradientRenderPass::Viewport, viewport);
        m_gradient.start(nullptr);
        const QVariant frame = m_gradient.output(GradientRenderPass::Frame);
        filterLinearly(
            frame.value<Texture *>()); // As the pass does for its draw, so that the floor reads it the same way.
        const int blurredRows = size.height() * blurredPercent / 100;
        std::vector<float> depths(size_t(size.width()) * size_t(size.height()), depthOfBlur(0));
        std::fill(depths.begin(), depths.begin() + long(size.width()) * blurredRows, depthOfBlur(blur));
        {
            AutoBinder binder(&m_depth);
            glTexImage2D(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT32F, size.width(), size.height(), 0, GL_DEPTH_COMPONENT,
                GL_FLOAT, depths.data());
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        }
        m_pass.setInput(DepthOfFieldRenderPass::Viewport, viewport);
        m_pass.setInput(DepthOfFieldRenderPass::FrameIn, frame);
        m_pass.setInput(DepthOfFieldRenderPass::Depth, QVariant::fromValue(&m_depth));
        m_pass.setInput(DepthOfFieldRenderPass::FocalDepth, float(focalDepth));
        m_pass.setInput(DepthOfFieldRenderPass::FocalLength, float(focalLength));
        m_pass.setInput(DepthOfFieldRenderPass::FStop, float(stop));
    }
    void start() { m_pass.start(nullptr); }

private:
    GradientRenderPass m_gradient;
    Texture m_depth;
    DepthOfFieldRenderPass m_pass;
};

void depthOfField(benchmark::State &state)
{
    Lens lens(viewportOf(state).size(), 100, 1);
    compareWithFloor(state, [&lens] { lens.start(); });
}

/// A blurred pixel has a fixed number of taps, so their total depends on how many pixels are blurred.
void depthOfFieldAgainstTaps(benchmark::State &state)
{
    const QSize size(640, 360);
    const int percent = int(state.range(0));
    Lens lens(size, percent, 1);
    compareWithFloor(state, [&lens] { lens.start(); });
    state.counters["taps"] = tapsOfBlurredPixel * percent / 100.0;
    state.counters["ns_per_pixel"] = state.counters["ms"] * 1e6 / (size.width() * size.height());
}

void depthOfFieldAgainstRadius(benchmark::State &state)
{
    const double blur = double(state.range(0)) / 100;
    Lens lens(QSize(640, 360), 100, blur);
    compareWithFloor(state, [&lens] { lens.start(); });
    state.counters["pixels_reached"] = 3.7 * blur;
}

} // namespace

BENCHMARK(depthOfField)->Apply(largeAndTiny);
BENCHMARK(depthOfFieldAgainstTaps)
    ->Arg(0)
    ->Arg(25)
    ->Arg(50)
    ->Arg(75)
    ->Arg(100)
    ->ArgName("blurred_percent")
    ->Apply(timing);
BENCHMARK(depthOfFieldAgainstRadius)
    ->Arg(3)
    ->Arg(6)
    ->Arg(25)
    ->Arg(50)
    ->Arg(100)
    ->ArgName("blur_percent")
    ->Apply(timing);

} // namespace Velmora::Kvz
