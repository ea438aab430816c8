// SPDX-License-Identifier: MIT
#pragma once

#include "ModelOptions.h"

#include <Import/ImportedScene.h>

namespace Velmora::Kvz {

/// How a model is called in what the program says.
QString displayName(const QString &model);

/// Reads a model from its file or from standard input, and says on a terminal that it does. False, with one line in `error`, when that
/// fails.
bool readModel(const QString &model, const ModelOptions &options, ImportedScene *scene, QString *error);

} // namespace Velmora::Kvz
