// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/ShadowMapRenderPass.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<RenderPass> create(const PassOptions &options)
{
    auto pass = std::make_unique<ShadowMapRenderPass>();
    pass->setInstanceDataPlanName(options[QStringLiteral("instanceDataPlan")].toString());
    return pass;
}

} // namespace

PassInfo PassEntries::shadowMapRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("ShadowMapRenderPass");
    pass.summary = QStringLiteral("Renders variance shadow maps of all lights, one layer at a time, and filters them.");
    pass.inputs = {
        shadowModelInput(),
        instanceDataInput(),
        lightsInput(),
        shadowProjectionInput(),
        shadowCameraInput(),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMin", "Minimum corner of the scene in world space."),
        sceneBoundsInput("Kvz_QVector3D_SceneBoundsMax", "Maximum corner of the scene in world space."),
        input("Kvz_int_FilterType", ValueType::Int, int(ShadowMapRenderPass::FilterGaussian),
            "0 none, 1 Gaussian, 2 Gaussian within silhouettes, 3 mean of 3 by 3 texels within silhouettes.", "0"),
        mapSizeInput(),
    };
    pass.outputs = {shadowMapDataOutput()};
    pass.options = {instanceDataPlanOption()};
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::ResetsCulling | PassTrait::RestsUnchanged;
    pass.create = create;
    return pass;
}

} // namespace Velmora::Kvz
