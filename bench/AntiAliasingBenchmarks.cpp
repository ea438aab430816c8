// SPDX-License-Identifier: MIT
// Anti-aliasing, and the extra passes that it needs, beside the same draws in raw GL.
#include "Comparison.h"
#include "Scenery.h"

#include <ExtraPasses/MultisampleForwardRenderPass.h>
#include <ExtraPasses/VelocityRenderPass.h>
#include <GL/Texture.h>
#include <RenderPasses/CameraJitterRenderPass.h>
#include <RenderPasses/FastApproximateAntiAliasingRenderPass.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <RenderPasses/ModelRenderPass.h>
#include <RenderPasses/TemporalAARenderPass.h>
#include <Scene/GPUModel.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

QMatrix4x4 camera()
{
    QMatrix4x4 matrix;
    matrix.lookAt(QVector3D(0.5f, 1, 4), QVector3D(), QVector3D(0, 1, 0));
    return matrix;
}

/// Slanted bars, for many edge pixels. Their number is the third argument of a benchmark, 0 for none.
QSharedPointer<GPUModel> bars(int count)
{
    GPUModelBuilder builder;
    const int quad = builder.addMesh(quadMesh());
    const int material = builder.addMaterial({});
    for (int i = 0; i < count; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(-2 + 4 * (float(i) + 0.5f) / float(count), 0, 0);
        matrix.rotate(17, 0, 0, 1);
        matrix.scale(1.0f / float(count), 3, 1);
        builder.addItem(quad, material, matrix);
    }
    return builder.build();
}

class Scene
{
public:
    explicit Scene(const benchmark::State &state, int barCount)
        : viewport(viewportOf(state)),
          model(bars(barCount))
    {
        set(&forward, ForwardRenderPass::Viewport);
        glViewport(0, 0, viewport.width(), viewport.height());
        forward.start(nullptr);
        filterLinearly(
            frame().value<Texture *>()); // As FXAA does for its draw, so that the floor reads it the same way.
    }
    /// Sets the viewport, and the camera and model ports, which have the same names in every pass that draws a model.
    void set(RenderPass *pass, int viewportPort) const
    {
        pass->setInput(viewportPort, viewport);
        pass->setInput(
            pass->findInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix")), perspective(viewport, 45, 0.5f, 30));
        pass->setInput(pass->findInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix")), camera());
        pass->setInput(pass->findInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry")), QVariant::fromValue(model.data()));
    }
    QVariant frame() const { return forward.output(ForwardRenderPass::Frame); }

    const QRect viewport;
    const QSharedPointer<GPUModel> model;
    ForwardRenderPass forward;
};

/// FXAA skips flat areas, so its time depends on the share of edges.
void fxaa(benchmark::State &state)
{
    const Scene scene(state, int(state.range(2)));
    FastApproximateAntiAliasingRenderPass pass;
    pass.setInput(FastApproximateAntiAliasingRenderPass::Viewport, scene.viewport);
    pass.setInput(FastApproximateAntiAliasingRenderPass::Frame, scene.frame());
    compareWithFloor(state, pass);
}

void accumulation(benchmark::State &state)
{
    const Scene scene(state, 20);
    TemporalAARenderPass pass;
    pass.setInput(TemporalAARenderPass::Viewport, scene.viewport);
    pass.setInput(TemporalAARenderPass::Frame, scene.frame());
    pass.setInput(TemporalAARenderPass::ResetTemporal, false);
    pass.start(nullptr);
    compareWithFloor(state, pass);
}

/// The third argument: whether an item moves.
void velocity(benchmark::State &state)
{
    const Scene scene(state, 20);
    ModelRenderPass geometry;
    scene.set(&geometry, ModelRenderPass::Viewport);
    geometry.start(nullptr);
    VelocityRenderPass pass;
    scene.set(&pass, VelocityRenderPass::Viewport);
    pass.setInput(VelocityRenderPass::Depth, geometry.output(ModelRenderPass::Depth));
    if (state.range(2)) {
        QMatrix4x4 matrix = scene.model->modelMatrix(3);
        matrix.translate(0.1f, 0, 0);
        scene.model->setModelMatrix(3, matrix); // No frame ever ends, so it moves in each.
    }
    compareWithFloor(state, pass);
}

/// Two samples, each with a draw of its own.
void twoSamples(benchmark::State &state)
{
    const Scene scene(state, 20);
    MultisampleForwardRenderPass pass;
    scene.set(&pass, MultisampleForwardRenderPass::Viewport);
    compareWithFloor(state, pass);
}

/// It draws nothing, so there is no floor, only CPU time.
void cameraJitter(benchmark::State &state)
{
    CameraJitterPass pass;
    pass.setInput(CameraJitterPass::Viewport, QRect(0, 0, 1280, 720));
    pass.setInput(CameraJitterPass::ProjectionMatrix, perspective(QRect(0, 0, 1280, 720), 45, 0.5f, 30));
    pass.setInput(CameraJitterPass::CameraMatrix, camera());
    pass.setInput(CameraJitterPass::ResetTemporal, false);
    pass.setInput(CameraJitterPass::Mode, int(JitterRandom));
    for (auto _ : state)
        pass.start(nullptr);
}

void sizesAndEdges(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({1280, 720, 0})->Args({1280, 720, 20})->Args({1280, 720, 100})->Args({16, 16, 2})->Apply(timing);
}

void sizesAndMotion(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({1280, 720, 0})->Args({1280, 720, 1})->Args({16, 16, 0})->Apply(timing);
}

} // namespace

BENCHMARK(fxaa)->Apply(sizesAndEdges);
BENCHMARK(accumulation)->Apply(largeAndTiny);
BENCHMARK(velocity)->Apply(sizesAndMotion);
BENCHMARK(twoSamples)->Apply(largeAndTiny);
BENCHMARK(cameraJitter)->Unit(benchmark::kMicrosecond);

} // namespace Velmora::Kvz
