// SPDX-License-Identifier: MIT
#include <ExtraPasses/PhysicalWeightedRenderPass.h>

#include "PhysicalLight.h"
#include "WeightedLayers.h"

#include <GL/Texture.h>

namespace Velmora::Kvz {

PhysicalWeightedRenderPass::PhysicalWeightedRenderPass()
    : m_layers(std::make_unique<WeightedLayers>(SurfaceKind::Physical))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    PhysicalLight::addInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

PhysicalWeightedRenderPass::~PhysicalWeightedRenderPass() = default;

void PhysicalWeightedRenderPass::start(RenderCallbacks *)
{
    const SurfaceScene scene = SurfaceScene::read(m_inputs);
    if (!m_light)
        m_light = std::make_unique<PhysicalLight>();
    m_layers->draw(
        scene, getInputPointer<Texture>(Depth), m_outputs[Frame], m_numOutputUsers[Frame],
        [&](ShaderProgram &program) {
            m_light->read(m_inputs, Environment, scene.camera);
            m_light->bind(program);
        },
        [this] { m_light->unbind(); });
    PhysicalLight::release(m_inputs, Environment);
}

} // namespace Velmora::Kvz
