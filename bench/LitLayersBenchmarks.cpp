// SPDX-License-Identifier: MIT
// Lit transparent layers, weighted and by lists, beside the same draws in raw GL, against the layers of a pixel.
#include "Comparison.h"
#include "Scenery.h"

#include <ExtraPasses/LitListRenderPass.h>
#include <ExtraPasses/LitWeightedRenderPass.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>
#include <RenderPasses/VisibilitySortRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QRect viewport(0, 0, 640, 360);

/// Parallel squares that fill the picture, each an item, as many as the first argument of a benchmark says.
QSharedPointer<GPUModel> createLayers(const benchmark::State &state)
{
    GPUModelBuilder builder;
    MeshData square = quadMesh();
    for (const QVector3D &position : qAsConst(square.positions))
        square.colours.append(QVector4D(1, 0.5f + 0.4f * position.x(), 1, 0.8f));
    const int mesh = builder.addMesh(square);
    MaterialData glass;
    glass.d = 0.1f;
    const int material = builder.addMaterial(glass);
    for (int i = 0; i < int(state.range(0)); ++i) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, 0.9f - 1.8f * float(i) / 64);
        builder.addItem(mesh, material, matrix, GPUModel::Transparent);
    }
    return builder.build();
}

template <typename Pass> void feed(Pass &pass, const QSharedPointer<GPUModel> &model)
{
    pass.setInput(Pass::Viewport, viewport);
    pass.setInput(Pass::Geometry, QVariant::fromValue(model.data()));
}

void report(benchmark::State &state)
{
    const double fragments = double(viewport.width()) * viewport.height() * double(state.range(0));
    state.counters["ns_per_fragment"] = state.counters["ms"] * 1e6 / fragments;
}

void litWeighted(benchmark::State &state)
{
    const QSharedPointer<GPUModel> model = createLayers(state);
    LitWeightedRenderPass pass;
    feed(pass, model);
    compareWithFloor(state, pass);
    report(state);
}

void litLists(benchmark::State &state)
{
    const QSharedPointer<GPUModel> model = createLayers(state);
    VisibilityBufferRenderPass buffer(GPUModel::Transparent, GPUModel::Transparent);
    feed(buffer, model);
    glViewport(0, 0, viewport.width(), viewport.height());
    buffer.start(nullptr);
    VisibilitySortRenderPass sort;
    sort.setInput(VisibilitySortRenderPass::Viewport, viewport);
    for (int i = 0; i < 3; ++i)
        sort.setInput(VisibilitySortRenderPass::HeadPointersIn + i, buffer.output(i));
    sort.start(nullptr);
    LitListRenderPass pass;
    feed(pass, model);
    for (int i = 0; i < 3; ++i)
        pass.setInput(LitListRenderPass::HeadPointers + i, sort.output(i));
    compareWithFloor(state, pass);
    report(state);
}

void layers(benchmark::internal::Benchmark *benchmark)
{
    for (const int count : {1, 8, 32})
        benchmark->Arg(count);
    benchmark->ArgName("layers")->Apply(timing);
}

} // namespace

BENCHMARK(litWeighted)->Apply(layers);
BENCHMARK(litLists)->Apply(layers);

} // namespace Velmora::Kvz
