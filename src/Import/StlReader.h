// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportedScene.h>

class QFile;

namespace Velmora::Kvz {

class ImportBudget;

/// The triangles of a binary STL file, with one vertex for each position; -0 counts as 0. Where facets have colours, three vertices
/// for each of them. Facet normals are left out. False where the file is anything else: text, of another length than it says, or
/// with positions that are not finite.
/// Assimp, which makes three vertices and a list for each facet, is for these.
bool readBinaryStl(QFile *file, ImportBudget *budget, ImportedMesh *mesh);

} // namespace Velmora::Kvz
