// SPDX-License-Identifier: MIT
// Weighted blending beside the same draws in raw GL: its time against the layers of a pixel and against the pixels covered.
#include "Comparison.h"
#include "Scenery.h"

#include <RenderPasses/TransparencyRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QSize size(640, 360);
constexpr double bytesOfPixel = 16 + 4 + 16 + 4; // frame, depth, colours, weights

/// Parallel walls, one item each, that cover a percentage of the picture from its left edge.
QSharedPointer<GPUModel> walls(int layers, int coveredPercent)
{
    GPUModelBuilder builder;
    MaterialData glass;
    glass.d = 0.2f;
    const int wall = builder.addMesh(quadMesh(-1 + 2 * float(coveredPercent) / 100));
    const int material = builder.addMaterial(glass);
    for (int i = 0; i < layers; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, 0.8f - 1.6f * float(i) / 64);
        builder.addItem(wall, material, matrix);
    }
    return builder.build();
}

void measure(benchmark::State &state, int layers, int coveredPercent)
{
    const QSharedPointer<GPUModel> model = walls(layers, coveredPercent);
    QMatrix4x4 projection;
    projection.ortho(-1, 1, -1, 1, -1, 1);
    TransparencyRenderPass pass;
    pass.setInput(TransparencyRenderPass::Viewport, QRect(QPoint(), size));
    pass.setInput(TransparencyRenderPass::ProjectionMatrix, projection);
    pass.setInput(TransparencyRenderPass::Geometry, QVariant::fromValue(model.data()));
    glViewport(0, 0, size.width(), size.height());
    glDepthFunc(GL_LESS);
    compareWithFloor(state, pass);
    const double pixels = double(size.width()) * size.height();
    if (layers > 0 && coveredPercent > 0)
        state.counters["ns_per_fragment"] = state.counters["ms"] * 1e6 / (pixels * layers * coveredPercent / 100);
    state.counters["MiB"] = pixels * bytesOfPixel / (1 << 20);
}

void weightedBlendingAgainstLayers(benchmark::State &state)
{
    measure(state, int(state.range(0)), 100);
}

void weightedBlendingAgainstPixels(benchmark::State &state)
{
    measure(state, 16, int(state.range(0)));
}

} // namespace

BENCHMARK(weightedBlendingAgainstLayers)->RangeMultiplier(2)->Range(1, 64)->ArgName("layers")->Apply(timing);
BENCHMARK(weightedBlendingAgainstPixels)->Arg(1)->Arg(25)->Arg(50)->Arg(100)->ArgName("covered_percent")->Apply(timing);

} // namespace Velmora::Kvz
