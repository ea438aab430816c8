// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportedScene.h>

namespace Velmora::Kvz {

/// What stands in for the material of a mesh without one: light grey with a soft highlight.
ImportedMaterial standInMaterial();

/// Sets kd, ks and ns of a material from its base colour, metallic and roughness. The maps, which may be null, count by the mean
/// of blue and of green.
void setPhongFromMetallic(ImportedMaterial *material, const QImage &metallicMap, const QImage &roughnessMap);

/// Whether any pixel has an alpha below 1: many images have the channel and make no use of it.
bool isSeeThrough(const QImage &image);

/// A colour image with the opacity of another in its alpha: that one's alpha or, without such a channel, its grey. A null
/// colour image is white.
QImage withOpacity(const QImage &colour, const QImage &opacity);

/// The feature bits of items with this material.
quint64 featureFlagsOf(const ImportedMaterial &material, const ImportedMesh &mesh);

} // namespace Velmora::Kvz
