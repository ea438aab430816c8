// SPDX-License-Identifier: MIT
#include "PhysicalLight.h"

#include "EnvironmentUniforms.h"
#include "environment/EnvironmentTexture.h"
#include "environment/FilteredEnvironment.h"
#include "steps/InputRead.h"
#include "steps/TempTexture.h"

#include <Core/RenderPassHelper.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/ShadowMapManager.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

PhysicalLight::PhysicalLight(LightRows::Storage storage)
    : m_lamps(storage)
{ }

PhysicalLight::~PhysicalLight() = default;

void PhysicalLight::addInputs(RenderPassHelper &pass)
{
    pass.addInput(QStringLiteral("Kvz_KvzTexture*_Environment"), QVariant());
    pass.addInput(QStringLiteral("Kvz_QVariant_Irradiance"), QVariant());
    pass.addInput(QStringLiteral("Kvz_float_EnvironmentRotation"), 0.0f);
    pass.addInput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant());
    pass.addInput(QStringLiteral("Kvz_QVariant_ShadowMapData"), QVariant());
    pass.addInput(QStringLiteral("Kvz_float_LightBleedingReduction"), 0.2f);
}

void PhysicalLight::read(const QVector<NamedValue<QVariant>> &inputs, int first, const QMatrix4x4 &camera)
{
    m_environment = inputs[first].value.value<Texture *>();
    m_hasSurroundings = m_environment != nullptr;
    m_irradiance = inputs[first + 1].value;
    m_rotation = inputValue<float>(inputs[first + 2]);
    const QVector<ShadowMapLight *> lamps = ShadowMapManager::lightsIn(inputs[first + 3].value);
    const auto *const data = qobject_cast<ShadowMapRenderData *>(inputs[first + 4].value.value<QObject *>());
    const auto reduction = inputValue<float>(inputs[first + 5]);
    m_lightBleedingReduction = std::isfinite(reduction) ? std::clamp(reduction, 0.0f, 0.99f) : 0;
    m_camera = camera;
    m_shadows = data ? data->projectionTexture() : nullptr;
    m_lamps.upload(lamps, m_shadows ? data : nullptr, camera, LightRows::Absolute);
    if (!m_environment) {
        if (!m_table)
            m_table = makeReflectanceTexture();
        m_environment = m_table.get();
    }
}

void PhysicalLight::bind(ShaderProgram &program)
{
    m_environment->bind();
    m_lamps.bind(program);
    if (m_shadows)
        m_shadows->bind();
    const EnvironmentUniforms uniforms{m_hasSurroundings ? FilteredEnvironment::levels : 0, m_rotation, m_irradiance};
    uniforms.set(program, m_camera);
    program.setUniform(QStringLiteral("u_EnvironmentSampler"), m_environment->unit());
    // Samplers of one type may share a unit, and unit 0 stays empty.
    program.setUniform(QStringLiteral("u_ShadowSampler"), m_shadows ? m_shadows->unit() : m_environment->unit());
    program.setUniform(QStringLiteral("u_LightBleedingReduction"), m_lightBleedingReduction);
}

void PhysicalLight::unbind()
{
    if (m_shadows)
        m_shadows->unbind();
    m_lamps.unbind();
    m_environment->unbind();
}

void PhysicalLight::release(const QVector<NamedValue<QVariant>> &inputs, int first)
{
    giveBack(inputs[first].value.value<Texture *>());
}

} // namespace Velmora::Kvz
