// SPDX-License-Identifier: MIT
#pragma once

#include "CommandLine.h"

#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// The commands of the program: what is known of each, and what runs it. The latter take the command line, the program's name
/// first, and return an exit status.
CommandSpec renderCommand();
int runRender(const QStringList &arguments);
CommandSpec checkCommand();
int runCheck(const QStringList &arguments);
CommandSpec passesCommand();
int runPasses(const QStringList &arguments);
CommandSpec chainsCommand();
int runChains(const QStringList &arguments);
CommandSpec infoCommand();
int runInfo(const QStringList &arguments);
CommandSpec formatsCommand();
int runFormats(const QStringList &arguments);
CommandSpec manualCommand();
int runManual(const QStringList &arguments);
CommandSpec completionCommand();
int runCompletion(const QStringList &arguments);

struct Command
{
    CommandSpec spec;
    int (*run)(const QStringList &arguments);
};

/// All of them, in the order in which help lists them.
QVector<Command> allCommands();

} // namespace Velmora::Kvz
