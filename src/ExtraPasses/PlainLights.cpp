// SPDX-License-Identifier: MIT
#include "PlainLights.h"

#include "steps/InputRead.h"

#include <Core/RenderPassHelper.h>
#include <GL/ShaderProgram.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

float intensity(const NamedValue<QVariant> &port, float usual)
{
    const float value = inputValue<float>(port, usual);
    return std::isfinite(value) ? qMax(0.0f, value) : usual;
}

} // namespace

PlainLights PlainLights::read(const QVector<NamedValue<QVariant>> &inputs, int first)
{
    const PlainLights usual;
    return {intensity(inputs[first], usual.headlight), intensity(inputs[first + 1], usual.ambient),
        inputValue<bool>(inputs[first + 2], usual.isFixed)};
}

void PlainLights::set(ShaderProgram &program) const
{
    program.setUniform(QStringLiteral("u_HeadlightIntensity"), headlight);
    program.setUniform(QStringLiteral("u_AmbientIntensity"), ambient);
    program.setUniform(QStringLiteral("u_FixedLight"), isFixed);
}

void addLightInputs(RenderPassHelper &pass)
{
    const PlainLights usual;
    pass.addInput(QStringLiteral("Kvz_float_HeadlightIntensity"), usual.headlight);
    pass.addInput(QStringLiteral("Kvz_float_AmbientIntensity"), usual.ambient);
    pass.addInput(QStringLiteral("Kvz_bool_FixedLight"), usual.isFixed);
}

} // namespace Velmora::Kvz
