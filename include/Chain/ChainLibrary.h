// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Names of the ready chains that this library carries.
KVZ_HOST_EXPORT QStringList readyChainNames();

/// Loads a ready chain by name, or a chain file by path: what has a directory or ends in ".json" is a path. False, with one
/// line in `error`, for an unknown name (the nearest ones are offered), a file that cannot be read, and a file that is no
/// chain. Files that its options and values name are looked for from its own folder.
KVZ_HOST_EXPORT bool loadChain(const QString &nameOrFile, ChainDescription *chain, QString *error);

/// The chain as it is to be written in another folder: relative names of files in its options and values lead from there
/// to where they led.
KVZ_HOST_EXPORT ChainDescription movedToFolder(
    ChainDescription chain, const QString &folder, const PassRegistry &registry = PassRegistry::standard());

/// Writes a chain file, all of it or nothing, moved to the folder of the file. False, with one line in `error`, when it
/// cannot.
KVZ_HOST_EXPORT bool saveChain(const ChainDescription &chain, const QString &file, QString *error,
    const PassRegistry &registry = PassRegistry::standard());

} // namespace Velmora::Kvz
