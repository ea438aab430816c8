// SPDX-License-Identifier: MIT
#include <ExtraPasses/LitWeightedRenderPass.h>

#include "PlainLights.h"
#include "WeightedLayers.h"

#include <GL/Texture.h>

namespace Velmora::Kvz {

LitWeightedRenderPass::LitWeightedRenderPass()
    : m_layers(std::make_unique<WeightedLayers>(SurfaceKind::Plain))
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addLightInputs(*this);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

LitWeightedRenderPass::~LitWeightedRenderPass() = default;

void LitWeightedRenderPass::start(RenderCallbacks *)
{
    m_layers->draw(SurfaceScene::read(m_inputs), getInputPointer<Texture>(Depth), m_outputs[Frame],
        m_numOutputUsers[Frame],
        [this](ShaderProgram &program) { PlainLights::read(m_inputs, HeadlightIntensity).set(program); });
}

} // namespace Velmora::Kvz
