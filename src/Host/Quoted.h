// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// A name as messages show it.
inline QString quoted(const QString &name)
{
    return QStringLiteral("\"%1\"").arg(name);
}

} // namespace Velmora::Kvz
