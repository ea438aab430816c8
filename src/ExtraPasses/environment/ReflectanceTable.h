// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace Velmora::Kvz {

/// What surfaces reflect of light from everywhere alike: red is to be multiplied with the reflectance at normal incidence, green with
/// that at grazing incidence (Karis, "Real Shading in Unreal Engine 4", 2013), and blue is what sheen reflects.
struct ReflectanceTable
{
    static constexpr int width = 64; ///< By the cosine to the normal, from 0 to 1.
    static constexpr int height = 32; ///< By roughness, from 0 to 1.

    std::vector<float> rgb;
};

/// Worked out when it is asked for first.
const ReflectanceTable &reflectanceTable();

} // namespace Velmora::Kvz
