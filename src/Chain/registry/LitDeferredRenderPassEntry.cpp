// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/LitDeferredRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::litDeferredRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("LitDeferredRenderPass");
    pass.summary = QStringLiteral("Lights the images of SurfaceRenderPass from the camera.");
    InputInfo camera = cameraInput();
    camera.description = QStringLiteral("Not read: the lights stand with the camera.");
    camera.whenNull = QStringLiteral("no difference");
    pass.inputs = {
        viewportInput(),
        projectionInput(),
        camera,
        textureInput(
            "Kvz_KvzTexture*_Diffuse", TextureKind::Diffuse, "Base colour, opacity in alpha.", "the output is empty"),
        textureInput(
            "Kvz_KvzTexture*_Specular", TextureKind::Specular, "Specular colour, exponent in alpha.", "no highlights"),
        textureInput("Kvz_KvzTexture*_Normal", TextureKind::Normal, "Normals in camera space, zeros where nothing is.",
            "the output is empty"),
        textureInput("Kvz_KvzTexture*_Emission", TextureKind::Emission,
            "Light of surfaces' own; 1 in alpha where they are unlit.", "no emission, nothing is unlit"),
        textureInput("Kvz_KvzTexture*_Depth", TextureKind::Depth, "Depth from 0 to 1.",
            "no difference: lit surfaces know their normals"),
    };
    pass.inputs += lightInputs();
    pass.inputs.append(textureInput("Kvz_KvzTexture*_ShadowMask", TextureKind::Colour,
        "Share of the headlight that arrives, in red.", "it reaches every surface"));
    pass.inputs.append(textureInput("Kvz_KvzTexture*_Obscurance", TextureKind::Obscurance,
        "Share of ambient and diffuse light that corners leave, in red.", "no corner is darker"));
    pass.inputs.append(input(
        "Kvz_float_ObscuranceStrength", ValueType::Float, 1.0f, "How much the obscurance counts, from 0 to 1.", "1"));
    pass.inputs.append(textureInput("Kvz_KvzTexture*_Background", TextureKind::Colour,
        "What the frame is laid over, colour multiplied by alpha.", "transparent black"));
    pass.outputs = {
        pooledOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour, GL_RGBA8,
            "The lit frame, colour multiplied by opacity; the background where there is nothing."),
    };
    pass.traits = PassTrait::Shades;
    pass.rules = {
        warnWhenOpen(
            "Kvz_KvzTexture*_Diffuse", "base colours", "none: there is no frame", "put a SurfaceRenderPass before it"),
        warnWhenOpen(
            "Kvz_KvzTexture*_Normal", "normals", "none: there is no frame", "put a SurfaceRenderPass before it"),
    };
    pass.create = construct<LitDeferredRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
