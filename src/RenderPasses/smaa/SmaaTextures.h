// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Texture.h>

#include <memory>

namespace Velmora::Kvz {

/// The lookup tables as textures, with linear filters and clamped to their edges.
std::unique_ptr<Texture> makeSmaaAreaTexture();
std::unique_ptr<Texture> makeSmaaSearchTexture();

/// Slices of the area table for vertical edges, horizontal edges and the two diagonals, as published: four numbers, for sample
/// `index` of one, two or four samples in a pixel. An index outside of them means the nearest one.
const float *smaaSubsampleRow(int samples, int index);

} // namespace Velmora::Kvz
