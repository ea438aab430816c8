// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ModelData.h>

#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// Splits a matrix into one that only stretches, along some axes, and one that only moves, turns and mirrors:
/// matrix = rest * stretch. Of one that flattens space all but the move is stretch. False where there is nothing to split: the
/// matrix does not stretch, or leaves no more than a line.
bool splitStretch(const QMatrix4x4 &matrix, QMatrix4x4 *stretch);

/// What is left of a matrix without a stretch before it.
QMatrix4x4 withoutStretch(const QMatrix4x4 &matrix, const QMatrix4x4 &stretch);

/// The size of a mesh along the axes.
QVector3D extentOf(const MeshData &mesh);

/// Whether a matrix makes a body of this extent so flat that its front and its back are at one depth.
bool flattens(const QMatrix4x4 &matrix, const QVector3D &extent);

/// The mesh, stretched: normals and tangents stay of unit length.
MeshData stretched(const MeshData &mesh, const QMatrix4x4 &stretch);

/// Whether a texture asks for other coordinates than the first set as it is.
bool hasOwnCoordinates(const ImageSampling &texture);

/// The mesh with what `texture` asks for as its first set of texture coordinates, and the set that it leaves out as the second.
MeshData withCoordinates(const MeshData &mesh, const ImageSampling &texture);

/// How an image is read from such a mesh: `sampling` as it was before, `texture` what the coordinates were made for.
ImageSampling fromCoordinatesOf(const ImageSampling &texture, const ImageSampling &sampling);

} // namespace Velmora::Kvz
