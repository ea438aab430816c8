// SPDX-License-Identifier: MIT
#pragma once

#include "RadianceImage.h"

#include <QtCore/QByteArray>
#include <QtGui/QVector3D>

#include <array>
#include <vector>

namespace Velmora::Kvz {

/// Surroundings as shaders read them.
///
/// Level 0 is the surroundings as they are; level i is what a surface of roughness i / (levels - 1) mirrors of them, as the mean of
/// GGX about each direction with the eye above the surface (Karis, "Real Shading in Unreal Engine 4", 2013). Each level is a square
/// that an octahedron is unfolded onto, +y in the middle (Cigolle et al., "A Survey of Efficient Representations for Independent Unit
/// Vectors", JCGT 2014), with a border of one texel that continues it.
struct FilteredEnvironment
{
    static constexpr int levels = 6;
    static constexpr int side = 512; ///< Of level 0, border included. Each level has half the side of the one before.
    static constexpr int sideOf(int level) { return side >> level; }

    std::array<std::vector<float>, levels> rgb; ///< Rows upwards.
    std::array<QVector3D, 9>
        irradiance; ///< By real spherical harmonics of bands 0 to 2, divided by pi. Without the key light.
    /// The key light: a bright spot that is missing from the irradiance and from all levels but 0. Zeros where there is none.
    QVector3D keyDirection; ///< Towards the light, of length 1.
    QVector3D keyIlluminance; ///< On a surface that faces it.

    bool isNull() const { return rgb[0].empty(); }
};

/// Filters an image, which takes about half a second.
FilteredEnvironment filtered(const RadianceImage &image);
/// Radiance 1 from everywhere, without a key light.
FilteredEnvironment whiteEnvironment();

/// The direction of a place on the unfolded octahedron, from 0 to 1 in both directions; places up to 1 outside are continued.
QVector3D octahedronDirection(float u, float v);

/// The content of an OpenEXR file that holds all of it, and what is in such a file: null for any other.
QByteArray written(const FilteredEnvironment &environment);
FilteredEnvironment readFiltered(const QByteArray &content);

} // namespace Velmora::Kvz
