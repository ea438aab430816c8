// SPDX-License-Identifier: MIT
#include <ExtraPasses/PhysicalListRenderPass.h>

#include "ListShading.h"
#include "PhysicalLight.h"
#include "steps/InputRead.h"

#include <GL/Texture.h>
#include <Scene/GPUModel.h>

namespace Velmora::Kvz {

PhysicalListRenderPass::PhysicalListRenderPass()
    : m_shading(std::make_unique<ListShading>(SurfaceKind::Physical))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"), QVariant());
    addInput(QStringLiteral("Kvz_int_NodeBufferWidth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    PhysicalLight::addInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

PhysicalListRenderPass::~PhysicalListRenderPass() = default;

void PhysicalListRenderPass::start(RenderCallbacks *)
{
    const ListShading::Lists lists{inputValue<QRect>(m_inputs[Viewport]).size(),
        inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]), inputValue<QMatrix4x4>(m_inputs[CameraMatrix]),
        getInputPointer<Texture>(HeadPointers), getInputPointer<Texture>(NodeBuffer),
        inputValue<int>(m_inputs[NodeBufferWidth]), inputValue<GPUModel *>(m_inputs[Geometry])};
    if (!m_light)
        m_light = std::make_unique<PhysicalLight>(LightRows::InBlock);
    m_shading->draw(
        lists, m_outputs[Frame], m_numOutputUsers[Frame],
        [&](ShaderProgram &program) {
            m_light->read(m_inputs, Environment, lists.camera);
            m_light->bind(program);
        },
        [this] { m_light->unbind(); });
    PhysicalLight::release(m_inputs, Environment);
}

} // namespace Velmora::Kvz
