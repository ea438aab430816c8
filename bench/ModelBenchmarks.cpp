// SPDX-License-Identifier: MIT
// What an item of a model costs the host's thread.
#include "Comparison.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>
#include <RenderPasses/CullingRenderPass.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <RenderPasses/ModelRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <benchmark/benchmark.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <vector>

namespace Velmora::Kvz {

namespace {

QSharedPointer<GPUModel> createTriangles(int count)
{
    GPUModelBuilder builder;
    MeshData mesh;
    mesh.positions = {QVector3D(-1, -1, 0), QVector3D(1, -1, 0), QVector3D(0, 1, 0)};
    mesh.normals = {QVector3D(0, 0, 1), QVector3D(0, 0, 1), QVector3D(0, 0, 1)};
    mesh.indices = {0, 1, 2};
    const int triangle = builder.addMesh(mesh);
    const int material = builder.addMaterial({});
    for (int i = 0; i < count; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(float(i % 331) / 165.0f - 1.0f, float(i / 331) / 165.0f - 1.0f, 0);
        matrix.scale(0.002f);
        builder.addItem(triangle, material, matrix);
    }
    return builder.build();
}

void drawItems(benchmark::State &state)
{
    const int items = int(state.range(0));
    const QSharedPointer<GPUModel> model = createTriangles(items);
    ModelRenderPass pass;
    pass.setInput(0, QRect(0, 0, 64, 64));
    pass.setInput(3, QVariant::fromValue(model.data()));
    pass.start(nullptr);
    glFinish();
    double total = 0;
    for (auto _ : state) {
        const double frame = secondsOf([&pass] { pass.start(nullptr); });
        glFinish();
        state.SetIterationTime(frame);
        total += frame;
    }
    state.counters["us_per_item"] = total * 1e6 / double(state.iterations()) / items;
}

/// The colours of a frame, 8 bits a channel.
std::vector<unsigned char> readFrame(const RenderPass &pass, const QSize &size)
{
    std::vector<unsigned char> texels(size_t(size.width()) * size_t(size.height()) * 4);
    AutoBinder binder(pass.output(ForwardRenderPass::Frame).value<Texture *>());
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
    return texels;
}

/// A frame of many items, of which the camera sees a quarter: marked and drawn, alternating with all of them drawn.
void forwardWithFrustumCulling(benchmark::State &state)
{
    const int items = int(state.range(0));
    const QSize size(512, 512);
    const QSharedPointer<GPUModel> model = createTriangles(items);
    QMatrix4x4 projection;
    projection.ortho(0, 1, 0, 1, -1, 1);
    CullingRenderPass culling;
    culling.setInput(CullingRenderPass::FrustumCullingEnabled, true);
    culling.setInput(CullingRenderPass::ProjectionMatrix, projection);
    culling.setInput(CullingRenderPass::Geometry, QVariant::fromValue(model.data()));
    ForwardRenderPass forward;
    forward.setInput(ForwardRenderPass::Viewport, QRect(QPoint(0, 0), size));
    forward.setInput(ForwardRenderPass::ProjectionMatrix, projection);
    forward.setInput(ForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    glViewport(0, 0, size.width(), size.height());
    const auto drawAll = [&] {
        model->resetCulling();
        forward.start(nullptr);
        glFinish();
    };
    const auto drawCulled = [&] {
        culling.start(nullptr);
        forward.start(nullptr);
        glFinish();
    };
    drawAll();
    const std::vector<unsigned char> whole = readFrame(forward, size);
    drawCulled();
    if (readFrame(forward, size) != whole || std::count(whole.begin(), whole.end(), 0) == long(whole.size())) {
        state.SkipWithError("culling changed the picture, or there is none");
        return;
    }
    double withCulling = 0;
    double without = 0;
    for (auto _ : state) {
        without += secondsOf(drawAll);
        const double frame = secondsOf(drawCulled);
        state.SetIterationTime(frame);
        withCulling += frame;
    }
    state.counters["culled"] = double(model->culledCount()) / items;
    state.counters["without_ms"] = without * 1e3 / double(state.iterations());
    state.counters["ratio"] = withCulling / without;
}

void frustumCull(benchmark::State &state)
{
    const int items = int(state.range(0));
    const QSharedPointer<GPUModel> model = createTriangles(items);
    QMatrix4x4 viewProjection;
    viewProjection.ortho(0, 1, 0, 1, -1, 1);
    for (auto _ : state) {
        model->resetCulling();
        model->frustumCull(viewProjection);
    }
    state.counters["culled"] = double(model->culledCount()) / items;
    state.counters["ns_per_item"] = benchmark::Counter(
        double(items) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

} // namespace

BENCHMARK(drawItems)->Arg(1000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.5);
BENCHMARK(forwardWithFrustumCulling)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(frustumCull)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace Velmora::Kvz
