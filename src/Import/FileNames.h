// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// The name of a file without its directory, written with either slash.
inline QString bareName(const QString &path)
{
    return QString(path).replace(QLatin1Char('\\'), QLatin1Char('/')).section(QLatin1Char('/'), -1).simplified();
}

} // namespace Velmora::Kvz
