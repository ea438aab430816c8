// SPDX-License-Identifier: MIT
#pragma once

#include <Host/ChainDescription.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Names of the ready chains that this library carries.
KVZ_HOST_EXPORT QStringList readyChainNames();

/// Loads a ready chain by name, or a chain file by path: what has a directory or ends in ".json" is a path. False, with one
/// line in `error`, for an unknown name (the nearest ones are offered), a file that cannot be read, and a file that is no
/// chain.
KVZ_HOST_EXPORT bool loadChain(const QString &nameOrFile, ChainDescription *chain, QString *error);

/// Writes a chain file, all of it or nothing. False, with one line in `error`, when it cannot.
KVZ_HOST_EXPORT bool saveChain(const ChainDescription &chain, const QString &file, QString *error);

} // namespace Velmora::Kvz
