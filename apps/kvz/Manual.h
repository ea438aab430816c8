// SPDX-License-Identifier: MIT
#pragma once

#include "CommandLine.h"

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// The manual page kvz(1), as roff with the man macros.
QString manualPage(const QVector<CommandSpec> &commands, const QString &version);

/// The shells that there are completions for.
QStringList completionShells();
/// What a shell reads to complete the command lines of the program. Names of chains and passes it asks the program for. Empty for
/// another shell.
QString completionScript(const QString &shell, const QVector<CommandSpec> &commands);

} // namespace Velmora::Kvz
