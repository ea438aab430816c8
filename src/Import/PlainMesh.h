// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

class QFile;

namespace Velmora::Kvz {

class ImportBudget;

/// Reads a binary STL or PLY file that holds a mesh of triangles and nothing else, as assimp would, several times as fast. False,
/// and the scene is untouched, where a file or the options ask for more, or something is wrong: that is assimp's to read or
/// to refuse.
bool readPlainMesh(QFile *file, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene);

} // namespace Velmora::Kvz
