// SPDX-License-Identifier: MIT
// Surroundings and backdrops beside the same draws in raw GL. The floor of the skybox does without its two clears.
#include "Comparison.h"

#include <Chain/ChainLibrary.h>
#include <ExtraPasses/MaterialIdRenderPass.h>
#include <RenderPasses/BackgroundImageRenderPass.h>
#include <RenderPasses/CubemapLoaderRenderPass.h>
#include <RenderPasses/GradientRenderPass.h>
#include <RenderPasses/SkyboxRenderPass.h>
#include <RenderPasses/TextureLoaderRenderPass.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

namespace {

QString environment(const char *name)
{
    readyChainNames(); // Brings the resources of the host kit to life.
    return QStringLiteral(":/Media/Environments/%1.png").arg(QLatin1String(name));
}

QRect viewportOf(const benchmark::State &state)
{
    return QRect(0, 0, int(state.range(0)), int(state.range(1)));
}

void setUp(SkyboxRenderPass &pass, const QRect &viewport)
{
    QMatrix4x4 projection;
    projection.perspective(60, float(viewport.width()) / float(viewport.height()), 0.1f, 100);
    QMatrix4x4 camera;
    camera.lookAt(QVector3D(), QVector3D(1, 0.2f, -2), QVector3D(0, 1, 0));
    pass.setup(nullptr);
    pass.setInput(SkyboxRenderPass::Viewport, viewport);
    pass.setInput(SkyboxRenderPass::ProjectionMatrix, projection);
    pass.setInput(SkyboxRenderPass::CameraMatrix, camera);
}

void skyboxCubemap(benchmark::State &state)
{
    CubemapLoaderRenderPass loader;
    const char *const faces[] = {"sky-pos-x", "sky-neg-x", "sky-pos-y", "sky-neg-y", "sky-pos-z", "sky-neg-z"};
    for (int face = 0; face < 6; ++face)
        loader.setInput(face, environment(faces[face]));
    loader.start(nullptr);
    SkyboxRenderPass pass;
    setUp(pass, viewportOf(state));
    pass.setInput(SkyboxRenderPass::Cubemap, loader.output(CubemapLoaderRenderPass::Cubemap));
    compareWithFloor(state, [&pass] { pass.start(nullptr); });
}

void skyboxPanorama(benchmark::State &state)
{
    TextureLoaderRenderPass loader;
    loader.setInput(TextureLoaderRenderPass::TexturePath, environment("sky"));
    loader.start(nullptr);
    SkyboxRenderPass pass;
    setUp(pass, viewportOf(state));
    pass.setInput(SkyboxRenderPass::LatLongMap, loader.output(TextureLoaderRenderPass::LoadedTexture));
    compareWithFloor(state, [&pass] { pass.start(nullptr); });
}

/// Without a model all pixels are background, and each reads both images.
void backgroundImage(benchmark::State &state)
{
    const QRect viewport = viewportOf(state);
    GradientRenderPass gradient;
    gradient.setInput(GradientRenderPass::Viewport, viewport);
    gradient.start(nullptr);
    MaterialIdRenderPass ids;
    ids.setInput(MaterialIdRenderPass::Viewport, viewport);
    ids.start(nullptr);
    BackgroundImageRenderPass pass;
    pass.setInput(BackgroundImageRenderPass::Viewport, viewport);
    pass.setInput(BackgroundImageRenderPass::SourceFrame, gradient.output(GradientRenderPass::Frame));
    pass.setInput(BackgroundImageRenderPass::Normal, ids.output(MaterialIdRenderPass::Normal));
    pass.setInput(BackgroundImageRenderPass::FadeImageUrl1, environment("daylight"));
    pass.setInput(BackgroundImageRenderPass::FadeImageUrl2, environment("evening"));
    pass.setInput(BackgroundImageRenderPass::FadeRatio, 0.5f);
    pass.setInput(BackgroundImageRenderPass::FadeRatio2, 0.5f);
    compareWithFloor(state, [&pass] { pass.start(nullptr); });
}

/// Large, where the draws themselves must count, and tiny, where what stands around them does.
void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({1280, 720})->Args({16, 16})->Apply(timing);
}

} // namespace

BENCHMARK(skyboxCubemap)->Apply(sizes);
BENCHMARK(skyboxPanorama)->Apply(sizes);
BENCHMARK(backgroundImage)->Apply(sizes);

} // namespace Velmora::Kvz
