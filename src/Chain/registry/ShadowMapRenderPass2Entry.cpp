// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/ShadowMapRenderPass2.h>

namespace Velmora::Kvz {

namespace {

// Needs a current context, as the constructor asks the driver what it can do.
std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<ShadowMapRenderPass2>();
    pass->setInstanceDataPlanName(options[QStringLiteral("instanceDataPlan")].toString());
    return pass;
}

} // namespace

PassInfo PassEntries::shadowMapRenderPass2()
{
    PassInfo pass;
    pass.className = QStringLiteral("ShadowMapRenderPass2");
    pass.summary = QStringLiteral("Renders variance shadow maps of all lights, several layers per draw where the "
                                  "driver can, and only when dirty.");
    InputInfo lights = lightsInput();
    // Of no layers it would make a program with an array of no elements.
    lights.idleWithoutLights = true;
    pass.inputs = {
        shadowModelInput(),
        instanceDataInput(),
        lights,
        input("Kvz_bool_Dirty", ValueType::Bool, QVariant(),
            "Whether lights, camera, bounds or model have changed since the last frame.", "true"),
        shadowProjectionInput(),
        shadowCameraInput(),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMin", "Minimum corner of the scene in world space."),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMax", "Maximum corner of the scene in world space."),
        input(
            "Kvz_int_FilterType", ValueType::Int, 3, "0 none, else the mean of 3 by 3 texels within silhouettes.", "0"),
        mapSizeInput(),
    };
    pass.outputs = {shadowMapDataOutput()};
    pass.options = {instanceDataPlanOption()};
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::ResetsCulling | PassTrait::RestsUnchanged;

    UseRule neverDirty;
    neverDirty.port = QStringLiteral("Kvz_bool_Dirty");
    neverDirty.expected = QStringLiteral("a first frame that is dirty");
    neverDirty.actual = QStringLiteral("always false: the pass never looks at the lights");
    neverDirty.remedy = QStringLiteral("leave it out, and have the host set it to false between changes");
    neverDirty.broken = [](const PassUse &use) {
        const QVariant dirty = use.value(QStringLiteral("Kvz_bool_Dirty"));
        return dirty.isValid() && !dirty.toBool();
    };
    pass.rules = {neverDirty};
    pass.driverNeeds = {{{QStringLiteral("GL_ARB_shader_viewport_layer_array")},
        QStringLiteral("each layer is attached separately, unless the driver is AMD's: more calls per frame"), false}};
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
