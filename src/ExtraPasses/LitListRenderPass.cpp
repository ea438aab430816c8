// SPDX-License-Identifier: MIT
#include <ExtraPasses/LitListRenderPass.h>

#include "ListShading.h"
#include "PlainLights.h"
#include "steps/InputRead.h"

#include <GL/Texture.h>
#include <Scene/GPUModel.h>

namespace Velmora::Kvz {

LitListRenderPass::LitListRenderPass()
    : m_shading(std::make_unique<ListShading>(SurfaceKind::Plain))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_HeadPointers"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_NodeBuffer"), QVariant());
    addInput(QStringLiteral("Kvz_int_NodeBufferWidth"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addLightInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

LitListRenderPass::~LitListRenderPass() = default;

void LitListRenderPass::start(RenderCallbacks *)
{
    const ListShading::Lists lists{inputValue<QRect>(m_inputs[Viewport]).size(),
        inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]), inputValue<QMatrix4x4>(m_inputs[CameraMatrix]),
        getInputPointer<Texture>(HeadPointers), getInputPointer<Texture>(NodeBuffer),
        inputValue<int>(m_inputs[NodeBufferWidth]), inputValue<GPUModel *>(m_inputs[Geometry])};
    m_shading->draw(lists, m_outputs[Frame], m_numOutputUsers[Frame],
        [this](ShaderProgram &program) { PlainLights::read(m_inputs, HeadlightIntensity).set(program); });
}

} // namespace Velmora::Kvz
