// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

class QFile;

namespace Velmora::Kvz {

class ImportBudget;

/// Metres in a unit that AMF and 3MF files name; 0 for one that neither knows.
float metresOf(const QString &unit);

/// Reads a file of the additive manufacturing format, packed or not: objects of several volumes, colours of all levels, of which the
/// innermost counts, and constellations. What no constellation places stands as it is. Formulas and textures of materials are left
/// out with a warning. False with a problem.
bool readAmf(QFile *file, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene, QString *problem);

} // namespace Velmora::Kvz
