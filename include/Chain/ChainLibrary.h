// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// The names of the ready chains in this library.
KVZ_HOST_EXPORT QStringList readyChainNames();

/// Loads a ready chain by name, or a chain file by path: a name with a directory or ending in ".json" is a path. False, with one
/// line in `error`, for an unknown name (the nearest ones are offered), a file that cannot be read, and a file that is not a
/// chain. Files that its options and values name are looked for from its own folder.
KVZ_HOST_EXPORT bool loadChain(const QString &nameOrFile, ChainDescription *chain, QString *error);

/// The chain as it must be written in another folder: its relative file names in options and values are changed so that
/// they lead to the same files from there.
KVZ_HOST_EXPORT ChainDescription movedToFolder(
    ChainDescription chain, const QString &folder, const PassRegistry &registry = PassRegistry::standard());

/// Writes a chain file, all of it or nothing, moved to the folder of the file. False, with one line in `error`, when it
/// cannot.
KVZ_HOST_EXPORT bool saveChain(const ChainDescription &chain, const QString &file, QString *error,
    const PassRegistry &registry = PassRegistry::standard());

} // namespace Velmora::Kvz
