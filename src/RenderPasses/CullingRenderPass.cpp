// SPDX-License-Identifier: MIT
#include <RenderPasses/CullingRenderPass.h>

#include "steps/InputRead.h"

#include <Scene/GPUModel.h>

namespace Velmora::Kvz {

CullingRenderPass::CullingRenderPass()
{
    addInput(QStringLiteral("Kvz_bool_FrustumCullingEnabledIn"), QVariant());
    addInput(QStringLiteral("Kvz_bool_VisibilityCullingEnabledIn"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"));
}

CullingRenderPass::~CullingRenderPass() = default;

void CullingRenderPass::start(RenderCallbacks *)
{
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    const bool cullsByFrustum = inputValue<bool>(m_inputs[FrustumCullingEnabled]);
    const bool cullsByVisibility = inputValue<bool>(m_inputs[VisibilityCullingEnabled]);

    // Intentional: with both flags off nothing is reset, and the last frame's marks stay in force.
    if (model && (cullsByFrustum || cullsByVisibility)) {
        model->resetCulling();
        if (cullsByVisibility)
            model->visibilityCull();
        if (cullsByFrustum) {
            const auto camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
            const auto projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
            model->frustumCull(projection * camera);
        }
    }

    m_outputs[GeometryOut].value = QVariant::fromValue(model);
}

} // namespace Velmora::Kvz
