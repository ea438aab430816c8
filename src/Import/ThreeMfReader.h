// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

class QFile;

namespace Velmora::Kvz {

class ImportBudget;

/// Reads a 3MF archive: objects of meshes and components as its build list places them, base materials, colours and textures of
/// triangles. Assimp 5.2 knows one material an object, and objects of the root part alone. What else triangles refer to is left out
/// with a warning. False with a problem.
bool read3mf(QFile *file, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene, QString *problem);

} // namespace Velmora::Kvz
