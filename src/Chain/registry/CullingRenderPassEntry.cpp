// SPDX-License-Identifier: MIT
#include <Chain/registry/PassEntries.h>
#include <RenderPasses/CullingRenderPass.h>

namespace Velmora::Kvz {

PassInfo PassEntries::cullingRenderPass()
{
    PassInfo pass;
    pass.className = QStringLiteral("CullingRenderPass");
    pass.summary = QStringLiteral("Marks items of a model that are out of view or hidden, so that they are not drawn.");
    pass.inputs = {
        input("Kvz_bool_FrustumCullingEnabledIn", ValueType::Bool, QVariant(),
            "Leaves out items outside the camera's view.", "false"),
        input("Kvz_bool_VisibilityCullingEnabledIn", ValueType::Bool, QVariant(),
            "Leaves out items that were hidden in the previous frame.", "false"),
        cameraInput(),
        projectionInput(),
        input("Kvz_KvzGPUModel*_Geometry", ValueType::Model, QVariant(), "The model.", "nothing is marked"),
    };
    OutputInfo geometry = output("Kvz_KvzGPUModel*_Geometry", ValueType::Model, "The model, marked.");
    geometry.passesOn = QStringLiteral("Kvz_KvzGPUModel*_Geometry");
    pass.outputs = {geometry};
    pass.traits = PassTrait::NeverReleasesInputs | PassTrait::Culls;

    UseRule idle;
    idle.port = QStringLiteral("Kvz_bool_FrustumCullingEnabledIn");
    idle.expected = QStringLiteral("frustum or visibility culling on");
    idle.actual = QStringLiteral("both off: the pass changes no mark, and marks from earlier frames stay");
    idle.remedy = QStringLiteral("set one of the two to true, or take the pass out");
    idle.broken = [](const PassUse &use) {
        const auto isOff = [&use](const QString &name) {
            const QVariant value = use.value(name);
            // One that is fed during the frame may be turned on at any time.
            return value.isValid() ? !value.toBool() : !use.isFed(name);
        };
        return isOff(QStringLiteral("Kvz_bool_FrustumCullingEnabledIn"))
            && isOff(QStringLiteral("Kvz_bool_VisibilityCullingEnabledIn"));
    };
    pass.rules = {idle};
    pass.create = construct<CullingRenderPass>;
    return pass;
}

} // namespace Velmora::Kvz
