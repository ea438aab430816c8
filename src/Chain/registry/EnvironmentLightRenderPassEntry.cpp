// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <ExtraPasses/EnvironmentLightRenderPass.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

PassInfo PassEntries::environmentLightRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("EnvironmentLightRenderPass");
    pass.summary = QStringLiteral("Prepares the light of surroundings from a latitude-longitude image.");
    InputInfo lights = lightsInput();
    lights.description = QStringLiteral("Lights that take the place of the environment's key light.");
    lights.whenNull = QStringLiteral("the environment's own key light");
    InputInfo viewport = viewportInput();
    viewport.whenNull = QStringLiteral("no background");
    InputInfo environment = imageFileInput("Kvz_QString_Environment", ImageFileUse::Light,
        "The name of a built-in environment (daylight, studio, white), or the path of an image.", "no surroundings");
    environment.defaultValue = QStringLiteral("studio");
    environment.builtInNames = EnvironmentLightRenderPass::builtInNames();
    environment.problemWith = &EnvironmentLightRenderPass::problemWith;
    pass.inputs = {
        viewport,
        projectionInput(),
        cameraInput(),
        environment,
        input("Kvz_float_EnvironmentRotation", ValueType::Float, 0.0f, "Turns the surroundings about +y, in degrees.",
            "0"),
        lights,
        input("Kvz_bool_ShowsEnvironment", ValueType::Bool, false, "Whether the background is drawn.", "false"),
    };
    pass.outputs = {
        textureOutput("Kvz_KvzTexture*_Environment", TextureKind::Environment, GL_RGBA16F,
            "An array: the filtered surroundings, and the table of what surfaces reflect."),
        output("Kvz_QVariant_Irradiance", ValueType::Variant, "Nine vectors, by spherical harmonics."),
        output("Kvz_QList_KvzShadowMapManagerLight*_Lights", ValueType::Lights,
            "The lights given, else the key light in a list."),
        output("Kvz_float_EnvironmentRotation", ValueType::Float, "The rotation, as given."),
        textureOutput("Kvz_KvzTexture*_Background", TextureKind::Colour, GL_RGBA16F,
            "The surroundings behind the model, opaque; null unless they are shown."),
    };
    pass.traits = PassTrait::BringsLights;
    pass.create = construct<EnvironmentLightRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
