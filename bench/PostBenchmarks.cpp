// SPDX-License-Identifier: MIT
// The passes between light and picture, beside the same draws in raw GL.
#include "Comparison.h"
#include "Scenery.h"

#include <ExtraPasses/AccumulationRenderPass.h>
#include <ExtraPasses/CutoutAntiAliasingRenderPass.h>
#include <ExtraPasses/GroundShadowRenderPass.h>
#include <ExtraPasses/ToneMapRenderPass.h>
#include <GL/AutoBinder.h>
#include <GL/Texture.h>
#include <RenderPasses/ShadowMapRenderPass.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/ShadowMapManager.h>

#include <epoxy/gl.h>

#include <cmath>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// Linear light from dark to bright, with coverage that fades to a side.
std::unique_ptr<Texture> makeLight(const QRect &viewport)
{
    std::vector<float> texels;
    texels.reserve(size_t(viewport.width()) * size_t(viewport.height()) * 4);
    for (int y = 0; y < viewport.height(); ++y) {
        for (int x = 0; x < viewport.width(); ++x) {
            const float alpha = float(x) / float(viewport.width());
            const float light = alpha * std::exp2(8 * float(y) / float(viewport.height()) - 4);
            texels.insert(texels.end(), {light, 0.7f * light, 0.4f * light, alpha});
        }
    }
    auto texture =
        std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA16F, viewport.width(), viewport.height(), 0, nullptr);
    AutoBinder binder(texture.get());
    glTexImage2D(
        GL_TEXTURE_2D, 0, GL_RGBA16F, viewport.width(), viewport.height(), 0, GL_RGBA, GL_FLOAT, texels.data());
    filterLinearly(texture.get());
    return texture;
}

void toneMap(benchmark::State &state, ToneMapRenderPass::Operator toneMapping, bool isAutomatic)
{
    const QRect viewport = viewportOf(state);
    const std::unique_ptr<Texture> light = makeLight(viewport);
    ToneMapRenderPass pass;
    pass.setOperator(toneMapping);
    pass.setInput(ToneMapRenderPass::Viewport, viewport);
    pass.setInput(ToneMapRenderPass::FrameIn, QVariant::fromValue(light.get()));
    pass.setInput(ToneMapRenderPass::AutoExposure, isAutomatic);
    compareWithFloor(state, pass);
}

/// Stripes of display values with alpha, whose edges lie at all angles.
std::unique_ptr<Texture> makeStripes(const QRect &viewport)
{
    std::vector<float> texels;
    texels.reserve(size_t(viewport.width()) * size_t(viewport.height()) * 4);
    for (int y = 0; y < viewport.height(); ++y) {
        for (int x = 0; x < viewport.width(); ++x) {
            const float angle =
                std::atan2(float(y) - 0.45f * float(viewport.height()), float(x) - 0.4f * float(viewport.width()));
            const float value = std::sin(23 * angle) > 0.2f ? 1.0f : 0.0f;
            texels.insert(texels.end(), {0.8f * value, 0.6f * value, 0.1f * value, value});
        }
    }
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA8, viewport.width(), viewport.height(), 0, nullptr);
    AutoBinder binder(texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, viewport.width(), viewport.height(), 0, GL_RGBA, GL_FLOAT, texels.data());
    filterLinearly(texture.get());
    return texture;
}

void cutoutAntiAliasing(benchmark::State &state, CutoutAntiAliasingRenderPass::Mode mode)
{
    using Pass = CutoutAntiAliasingRenderPass;
    const QRect viewport = viewportOf(state);
    const std::unique_ptr<Texture> frame = makeStripes(viewport);
    Pass pass;
    pass.setMode(mode);
    pass.setInput(Pass::Viewport, viewport);
    pass.setInput(Pass::FrameIn, QVariant::fromValue(frame.get()));
    pass.setInput(Pass::SecondFrame, QVariant::fromValue(frame.get()));
    compareWithFloor(state, pass);
}

void accumulation(benchmark::State &state)
{
    using Pass = AccumulationRenderPass;
    const QRect viewport = viewportOf(state);
    const std::unique_ptr<Texture> light = makeLight(viewport);
    Pass pass;
    pass.setInput(Pass::Viewport, viewport);
    pass.setInput(Pass::FrameIn, QVariant::fromValue(light.get()));
    pass.setInput(Pass::AccumulatedFrames, 1 << 30);
    compareWithFloor(state, pass);
}

/// The ground under a plate, in the light of one lamp, which fills most of the frame.
void groundShadow(benchmark::State &state)
{
    using Pass = GroundShadowRenderPass;
    const QRect viewport = viewportOf(state);
    const QMatrix4x4 projection = perspective(viewport, 45, 0.1f, 100);
    QMatrix4x4 camera;
    camera.lookAt(QVector3D(0, 3, 4), QVector3D(0, 0, 0.5f), QVector3D(0, 1, 0));
    QMatrix4x4 lying;
    lying.translate(0, 1, 0);
    lying.rotate(-90, 1, 0, 0);
    GPUModelBuilder builder;
    builder.addItem(builder.addMesh(quadMesh()), builder.addMaterial({}), lying, GPUModel::DoubleSided);
    const QSharedPointer<GPUModel> model = builder.build();
    ShadowMapManager::Light lamp;
    lamp.direction = QVector3D(0.4f, -1, -0.2f);
    const QVariantList lights = {QVariant::fromValue(&lamp)};
    ShadowMapRenderPass maps;
    maps.setInput(ShadowMapRenderPass::Geometry, QVariant::fromValue(model.data()));
    maps.setInput(ShadowMapRenderPass::Lights, lights);
    maps.setInput(ShadowMapRenderPass::SceneBoundsMin, QVector3D(-3, -0.1f, -3));
    maps.setInput(ShadowMapRenderPass::SceneBoundsMax, QVector3D(3, 1.1f, 3));
    maps.start(nullptr);
    Pass pass;
    pass.setInput(Pass::Viewport, viewport);
    pass.setInput(Pass::ProjectionMatrix, projection);
    pass.setInput(Pass::CameraMatrix, camera);
    pass.setInput(Pass::Geometry, QVariant::fromValue(model.data()));
    pass.setInput(Pass::SceneBoundsMin, QVector3D(-1, -0.01f, -1));
    pass.setInput(Pass::SceneBoundsMax, QVector3D(1, 1, 1));
    pass.setInput(Pass::Lights, lights);
    pass.setInput(Pass::ShadowMapData, maps.output(ShadowMapRenderPass::ShadowMapData));
    compareWithFloor(state, pass);
}

} // namespace

BENCHMARK(groundShadow)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(cutoutAntiAliasing, fxaa, CutoutAntiAliasingRenderPass::Mode::Fxaa)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(cutoutAntiAliasing, smaa1x, CutoutAntiAliasingRenderPass::Mode::Smaa1x)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(cutoutAntiAliasing, smaaS2x, CutoutAntiAliasingRenderPass::Mode::SmaaS2x)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(cutoutAntiAliasing, smaaT2x, CutoutAntiAliasingRenderPass::Mode::SmaaT2x)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(cutoutAntiAliasing, smaa4x, CutoutAntiAliasingRenderPass::Mode::Smaa4x)->Apply(largeAndTiny);
BENCHMARK(accumulation)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(toneMap, neutral, ToneMapRenderPass::Operator::Neutral, false)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(toneMap, filmic, ToneMapRenderPass::Operator::Filmic, false)->Apply(largeAndTiny);
BENCHMARK_CAPTURE(toneMap, automatic, ToneMapRenderPass::Operator::Neutral, true)->Apply(largeAndTiny);

} // namespace Velmora::Kvz
