// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportedScene.h>

class QFile;

namespace Velmora::Kvz {

class ImportBudget;

/// The mesh of a binary PLY file, of either byte order, with its normals, texture coordinates and colours as they are. -0 counts as
/// 0. False where the file has anything but vertices and triangles, or something in them that is not taken here:
/// polygons, other elements, an image, colours of other kinds than bytes and floats, an index past the end, a position that is
/// not finite. Assimp, which makes an object of each face, is for these.
bool readBinaryPly(QFile *file, ImportBudget *budget, ImportedMesh *mesh);

} // namespace Velmora::Kvz
