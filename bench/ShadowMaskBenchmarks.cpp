// SPDX-License-Identifier: MIT
// Shading with shadow maps, beside the same draw in raw GL, against the kind and the number of lights.
#include "Comparison.h"
#include "Scenery.h"

#include <Chain/LightDescription.h>
#include <ExtraPasses/ShadowMaskRenderPass.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ModelRenderPass.h>
#include <RenderPasses/ShadowMapRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

/// A floor that fills the picture and a wall on it.
QSharedPointer<GPUModel> createStage()
{
    GPUModelBuilder builder;
    MeshData square;
    square.positions = {{-1, 0, 1}, {1, 0, 1}, {1, 0, -1}, {-1, 0, -1}};
    square.normals.fill({0, 1, 0}, 4);
    square.texCoords.fill({}, 4);
    square.indices = {0, 1, 2, 0, 2, 3};
    const int mesh = builder.addMesh(square);
    const int material = builder.addMaterial({});
    QMatrix4x4 floor;
    floor.scale(10);
    builder.addItem(mesh, material, floor);
    QMatrix4x4 wall;
    wall.translate(0, 0.5f, 0);
    wall.rotate(90, 1, 0, 0);
    wall.scale(0.5f);
    builder.addItem(mesh, material, wall, GPUModel::DoubleSided);
    return builder.build();
}

/// The third argument of a benchmark is the number of lights.
void shadowMask(benchmark::State &state, Light::Type type)
{
    const QRect viewport = viewportOf(state);
    const QMatrix4x4 projection = perspective(viewport, 45, 0.1f, 30);
    QMatrix4x4 camera;
    camera.lookAt({2, 3, 3}, {}, {0, 1, 0});
    const QSharedPointer<GPUModel> model = createStage();

    std::vector<std::unique_ptr<Light>> lights;
    QVariantList list;
    for (int i = 0; i < int(state.range(2)); ++i) {
        LightDescription description;
        description.type = type;
        description.azimuth = float(37 * i);
        description.hasTarget = true;
        description.distance = 0.3f;
        lights.push_back(std::make_unique<Light>());
        description.place(model->sceneBounds(), lights.back().get());
        list.append(QVariant::fromValue(lights.back().get()));
    }

    glViewport(0, 0, viewport.width(), viewport.height());
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    ModelRenderPass geometry;
    geometry.setInput(ModelRenderPass::Viewport, viewport);
    geometry.setInput(ModelRenderPass::ProjectionMatrix, projection);
    geometry.setInput(ModelRenderPass::CameraMatrix, camera);
    geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
    geometry.start(nullptr);
    ShadowMapRenderPass maps;
    maps.setInput(ShadowMapRenderPass::Geometry, QVariant::fromValue(model.data()));
    maps.setInput(ShadowMapRenderPass::Lights, list);
    maps.setInput(ShadowMapRenderPass::ProjectionMatrix, projection);
    maps.setInput(ShadowMapRenderPass::CameraMatrix, camera);
    maps.start(nullptr);

    ShadowMaskRenderPass pass;
    pass.setInput(ShadowMaskRenderPass::Viewport, viewport);
    pass.setInput(ShadowMaskRenderPass::ProjectionMatrix, projection);
    pass.setInput(ShadowMaskRenderPass::CameraMatrix, camera);
    pass.setInput(ShadowMaskRenderPass::Depth, geometry.output(ModelRenderPass::Depth));
    pass.setInput(ShadowMaskRenderPass::Normal, geometry.output(ModelRenderPass::Normal));
    pass.setInput(ShadowMaskRenderPass::Lights, list);
    pass.setInput(ShadowMaskRenderPass::ShadowMapData, maps.output(ShadowMapRenderPass::ShadowMapData));
    compareWithFloor(state, pass);
    const double pixels = double(viewport.width()) * double(viewport.height());
    state.counters["ns_per_pixel_and_light"] = state.counters["ms"] * 1e6 / (pixels * double(state.range(2)));
}

void directional(benchmark::State &state)
{
    shadowMask(state, Light::Directional);
}

void spot(benchmark::State &state)
{
    shadowMask(state, Light::Spot);
}

void point(benchmark::State &state)
{
    shadowMask(state, Light::Point);
}

void lightCounts(benchmark::internal::Benchmark *benchmark)
{
    for (int lights : {1, 2, 4, 8, 16, 32})
        benchmark->Args({640, 360, lights});
    benchmark->Args({16, 16, 1})->Apply(timing);
}

} // namespace

BENCHMARK(directional)->Name("shadowMask/directional")->Apply(lightCounts);
BENCHMARK(spot)->Name("shadowMask/spot")->Apply(lightCounts);
BENCHMARK(point)->Name("shadowMask/point")->Apply(lightCounts);

} // namespace Velmora::Kvz
