// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/ChainLibrary.h>

#include <QtCore/QDir>

namespace Velmora::Kvz {

int runChains(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the ready chains, or prints one as a chain file to start from."));
    parser.addPositionalArgument(
        QStringLiteral("CHAIN"), QStringLiteral("Name of a ready chain, or a chain file."), QStringLiteral("[CHAIN]"));
    if (const auto status = parseCommandLine(&parser, arguments, 0, 1))
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
    QVector<QStringList> rows;
    for (const QString &name : readyChainNames()) {
        if (!loadChain(name, &chain, &error))
            return fail(error);
        rows.append({name, chain.description});
    }
    print(formatTable(rows));
    return Success;
}

} // namespace Velmora::Kvz
