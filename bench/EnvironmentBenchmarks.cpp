// SPDX-License-Identifier: MIT
// Surroundings and backdrops beside the same draws in raw GL. The floor of the skybox lacks its two clears.
#include "Comparison.h"
#include "Scenery.h"

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
    readyChainNames(); // Registers the resources of libKvzHost.
    return QStringLiteral(":/Media/Environments/%1.png").arg(QLatin1String(name));
}

void setUp(SkyboxRenderPass &pass, const QRect &viewport)
{
    QMatrix4x4 camera;
    camera.lookAt(QVector3D(), QVector3D(1, 0.2f, -2), QVector3D(0, 1, 0));
    pass.setup(nullptr);
    pass.setInput(SkyboxRenderPass::Viewport, viewport);
    pass.setInput(SkyboxRenderPass::ProjectionMatrix, perspective(viewport, 60, 0.1f, 100));
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
    compareWithFloor(state, pass);
}

void skyboxPanorama(benchmark::State &state)
{
    TextureLoaderRenderPass loader;
    loader.setInput(TextureLoaderRenderPass::TexturePath, environment("sky"));
    loader.start(nullptr);
    SkyboxRenderPass pass;
    setUp(pass, viewportOf(state));
    pass.setInput(SkyboxRenderPass::LatLongMap, loader.output(TextureLoaderRenderPass::LoadedTexture));
    compareWithFloor(state, pass);
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
    compareWithFloor(state, pass);
}

} // namespace

BENCHMARK(skyboxCubemap)->Apply(largeAndTiny);
BENCHMARK(skyboxPanorama)->Apply(largeAndTiny);
BENCHMARK(backgroundImage)->Apply(largeAndTiny);

} // namespace Velmora::Kvz
