// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"
#include "Manual.h"

#include <Chain/NearestNames.h>

#include <QtCore/QCoreApplication>

namespace Velmora::Kvz {

namespace {

QVector<CommandSpec> specs()
{
    QVector<CommandSpec> list;
    for (const Command &command : allCommands())
        list.append(command.spec);
    return list;
}

} // namespace

CommandSpec manualCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("manual");
    command.summary = QStringLiteral("Prints the manual page, for man to show.");
    command.examples = {{QStringLiteral("kvz manual | man -l -"), QStringLiteral("where it is not installed")}};
    return command;
}

int runManual(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(manualCommand(), arguments, &parser))
        return *status;
    print(manualPage(specs(), QCoreApplication::applicationVersion()).trimmed());
    return Success;
}

CommandSpec completionCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("completion");
    command.summary = QStringLiteral("Prints what a shell needs to complete command lines.");
    command.argument.name = QStringLiteral("SHELL");
    command.argument.help = QStringLiteral("bash, zsh or fish.");
    command.argument.least = 1;
    command.argument.most = 1;
    command.argument.completion = Completion::Words;
    command.argument.words = completionShells();
    command.examples = {{QStringLiteral("eval \"$(kvz completion bash)\""), QStringLiteral("in ~/.bashrc")}};
    return command;
}

int runCompletion(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(completionCommand(), arguments, &parser))
        return *status;
    const QString shell = parser.positionalArguments().constFirst();
    const QString script = completionScript(shell, specs());
    if (script.isEmpty())
        return fail(
            QStringLiteral("no completion for \"%1\"%2").arg(shell, nearestNamesHint(shell, completionShells())));
    print(script.trimmed());
    return Success;
}

} // namespace Velmora::Kvz
