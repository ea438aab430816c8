// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/SkyboxRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QString cubemap = QStringLiteral("Kvz_KvzTexture*_Cubemap");
const QString latLongMap = QStringLiteral("Kvz_KvzTexture*_LatLongMap");
const QString background = QStringLiteral("Kvz_KvzTexture*_Background");

/// How many of the three kinds of surroundings are fed.
int sources(const PassUse &use)
{
    return int(use.isFed(cubemap)) + int(use.isFed(latLongMap)) + int(use.isFed(background));
}

} // namespace

PassInfo PassEntries::skyboxRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("SkyboxRenderPass");
    pass.summary = QStringLiteral("Fills what no geometry covers with a cube map, a panorama or a flat image.");

    InputInfo frame =
        textureInput("Kvz_KvzTexture*_Frame", TextureKind::Colour, "Frame to draw into.", "a new frame, opaque black");
    frame.drawnInto = true;
    InputInfo depth = textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth,
        "Depth image whose stencil is 0 where the surroundings go.", "the frame's alpha says where");
    depth.needsStencil = true;
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        cameraInput(),
        textureInput("Kvz_KvzTexture*_Cubemap", TextureKind::Environment, "Surroundings as a cube map.", "none"),
        textureInput("Kvz_KvzTexture*_LatLongMap", TextureKind::Colour,
            "Surroundings as a latitude-longitude panorama; a cube map takes precedence.", "none"),
        textureInput("Kvz_KvzTexture*_Background", TextureKind::Colour,
            "Flat image, top row first, gamma-encoded; it takes precedence over both.", "none"),
        frame,
        depth,
        input("Kvz_bool_RenderInHDR", ValueType::Bool, true, "Whether a new frame holds GL_RGBA16F, else GL_RGBA8.",
            "GL_RGBA8"),
    };
    OutputInfo output =
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA16F, "The frame, drawn into, or a new one.");
    output.passesOn = frame.name;
    pass.outputs = {output};
    pass.rules = {
        {cubemap, QStringLiteral("a cube map, a panorama or a flat image"), QStringLiteral("none: nothing is drawn"),
            QStringLiteral("connect one of the three"), [](const PassUse &use) { return sources(use) == 0; }},
        {latLongMap, QStringLiteral("one source of surroundings"),
            QStringLiteral("several: the flat image takes precedence over the cube map, and that over the panorama"),
            QStringLiteral("connect \"none\" to the others"), [](const PassUse &use) { return sources(use) > 1; }},
    };
    pass.traits = PassTrait::Background;
    pass.reach = [](const PassUse &use) {
        PassReach reach;
        if (use.isFed(background))
            reach.obstacle = QStringLiteral("it stretches its image over what it draws");
        return reach;
    };
    pass.create = construct<SkyboxRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
