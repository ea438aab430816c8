// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/ChainLibrary.h>
#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>

#include <QtCore/QDir>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// The number of passes that run, and of the images that they give.
QStringList costOf(const ChainDescription &chain)
{
    int passes = 0;
    int images = 0;
    for (const ChainPass &pass : chain.passes) {
        const auto info = PassRegistry::standard().describe(pass.className, pass.options);
        if (!pass.enabled || !info)
            continue;
        ++passes;
        images += int(std::count_if(info->outputs.begin(), info->outputs.end(),
            [](const OutputInfo &output) { return output.type == ValueType::Texture && output.passesOn.isEmpty(); }));
    }
    return {QString::number(passes), QString::number(images)};
}

} // namespace

CommandSpec chainsCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("chains");
    command.summary = QStringLiteral("Lists the ready chains, or prints one as a file to start from.");
    command.detail = QStringLiteral(
        "The list says what each chain is for and what it costs: the passes that run in a frame, and the images of the "
        "picture's size that they give one another. Passes may hold further ones, such as histories and shadow maps.");
    command.argument.name = QStringLiteral("CHAIN");
    command.argument.help = QStringLiteral("Name of a ready chain, or a chain file.");
    command.argument.most = 1;
    command.argument.completion = Completion::Chain;
    command.examples = {
        {QStringLiteral("kvz chains"), QStringLiteral("all of them")},
        {QStringLiteral("kvz chains deferred > my-chain.json"), QStringLiteral("a chain of your own")},
    };
    return command;
}

int runChains(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(chainsCommand(), arguments, &parser))
        return *status;

    QString error;
    ChainDescription chain;
    if (!parser.positionalArguments().isEmpty()) {
        if (!loadChain(parser.positionalArguments().constFirst(), &chain, &error))
            return fail(error);
        // Relative file names are to work from a chain file in the current folder.
        print(QString::fromUtf8(movedToFolder(chain, QDir::currentPath()).toJson()).trimmed());
        return Success;
    }
    QVector<QStringList> rows{{QStringLiteral("chain"), QStringLiteral("passes"), QStringLiteral("images"), QString()}};
    for (const QString &name : readyChainNames()) {
        if (!loadChain(name, &chain, &error))
            return fail(error);
        rows.append(costOf(chain));
        rows.last().prepend(name);
        rows.last().append(chain.description);
    }
    print(formatTable(rows, {1, 2}));
    return Success;
}

} // namespace Velmora::Kvz
