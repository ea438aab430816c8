// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ModelData.h>

#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// Splits a matrix into one that only stretches, along some axes, and one that only moves, turns and mirrors:
/// matrix = rest * stretch. False where there is nothing to split: the matrix does not stretch, or flattens space.
bool splitStretch(const QMatrix4x4 &matrix, QMatrix4x4 *stretch);

/// The mesh, stretched: normals and tangents stay of unit length.
MeshData stretched(const MeshData &mesh, const QMatrix4x4 &stretch);

/// Whether a texture asks for other coordinates than the first set as it is.
bool hasOwnCoordinates(const ImageSampling &texture);

/// The mesh with what `texture` asks for as its first set of texture coordinates, and the set that it leaves out as the second.
MeshData withCoordinates(const MeshData &mesh, const ImageSampling &texture);

/// How an image is read from such a mesh: `sampling` as it was before, `texture` what the coordinates were made for.
ImageSampling fromCoordinatesOf(const ImageSampling &texture, const ImageSampling &sampling);

} // namespace Velmora::Kvz
