// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ShadowMapManager.h>

#include <QtCore/QVariant>

#include <vector>

namespace Velmora::Kvz {

/// What lights were at one time: they are kept by the host or by passes, which may change them in place.
class LightState
{
public:
    /// Adds the lights of a list; a null value has none.
    void add(const QVariant &lights);
    bool operator==(const LightState &other) const;
    bool operator!=(const LightState &other) const { return !(*this == other); }

private:
    std::vector<ShadowMapManager::LightValues> m_lights;
};

} // namespace Velmora::Kvz
