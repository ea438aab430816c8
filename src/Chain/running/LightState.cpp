// SPDX-License-Identifier: MIT
#include <Chain/running/LightState.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

using LightValues = ShadowMapManager::LightValues;

bool areEqual(const LightValues &a, const LightValues &b)
{
    return a.type == b.type && a.position == b.position && a.direction == b.direction && a.coneAngle == b.coneAngle
        && a.range == b.range && a.cascades == b.cascades && a.depthBias == b.depthBias && a.intensity == b.intensity
        && a.colour == b.colour;
}

} // namespace

void LightState::add(const QVariant &lights)
{
    for (const ShadowMapManager::Light *light : ShadowMapManager::lightsIn(lights))
        m_lights.push_back(ShadowMapManager::valuesOf(*light));
}

bool LightState::operator==(const LightState &other) const
{
    return std::equal(m_lights.begin(), m_lights.end(), other.m_lights.begin(), other.m_lights.end(), areEqual);
}

} // namespace Velmora::Kvz
