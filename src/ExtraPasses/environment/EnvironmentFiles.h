// SPDX-License-Identifier: MIT
#pragma once

#include "FilteredEnvironment.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// The environments that are built in, by name.
QStringList builtInEnvironments();

/// A built-in environment, or that of an image file. Null, with one line in `problem`, for what cannot be read.
///
/// What is filtered from a file is kept in the user's cache folder, in a file named after the content, and read from there the next
/// time. A file there that is damaged is replaced; a folder that cannot be written costs the time again and nothing else.
FilteredEnvironment loadEnvironment(const QString &nameOrFile, QString *problem);

/// The image of an environment itself, for what shows it sharply. Null for built-in ones and for what cannot be read.
RadianceImage loadEnvironmentImage(const QString &nameOrFile);

} // namespace Velmora::Kvz
