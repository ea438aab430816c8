// SPDX-License-Identifier: MIT
#include "Console.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QSet>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Velmora::Kvz {

namespace {

bool noGraphicsMemory = false;

void printError(const QString &text)
{
    std::fprintf(stderr, "kvz: %s\n", qPrintable(text));
}

void handleMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const bool fromDriver = context.category && std::strcmp(context.category, "kvz.gl") == 0;
    const bool fromChain = context.category && std::strcmp(context.category, "kvz.chain") == 0;
    if (type == QtDebugMsg && fromChain) // Off unless the user asks for it.
        printError(QStringLiteral("debug: %1").arg(text));
    if (type == QtDebugMsg || type == QtInfoMsg || fromDriver)
        return;
    if (text.startsWith(
            QLatin1String("libpng warning: iCCP: "))) // Colour profiles are not used; it names no file either.
        return;
    if (text.contains(QLatin1String("out of graphics memory")))
        noGraphicsMemory = true;
    else if (!text.contains(QLatin1String(": the driver refuses a program: "))) // The frame fails, which says it too.
        warn(text);
}

} // namespace

QString exitStatusHelp()
{
    return QStringLiteral("Exit status: 0 done; 1 an input, a value or the driver is unusable, explained in\n"
                          "one line; 2 the command line is wrong.");
}

int fail(const QString &reason)
{
    printError(reason);
    return BadInput;
}

int failUsage(const QString &reason)
{
    printError(QStringLiteral("%1 (see %2 --help)").arg(reason, QCoreApplication::arguments().constFirst()));
    return BadUsage;
}

void warn(const QString &text)
{
    static QSet<QString> told;
    if (told.contains(text))
        return;
    told.insert(text);
    printError(QStringLiteral("warning: %1").arg(text));
}

void print(const QString &text)
{
    std::fprintf(stdout, "%s\n", qPrintable(text));
}

void installMessageHandler()
{
    qInstallMessageHandler(handleMessage);
}

bool ranOutOfGraphicsMemory()
{
    return std::exchange(noGraphicsMemory, false);
}

std::optional<int> parseCommandLine(QCommandLineParser *parser, const QStringList &arguments, int least, int most)
{
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Prints this help."));
    parser->addOption(help);
    parser->setApplicationDescription(
        QStringLiteral("%1\n\n%2").arg(parser->applicationDescription(), exitStatusHelp()));
    if (!parser->parse(arguments)) {
        const QString error = parser->errorText();
        return failUsage(error.endsWith(QLatin1Char('.')) ? error.chopped(1) : error);
    }
    if (parser->isSet(help)) {
        print(parser->helpText().trimmed());
        return Success;
    }
    const QStringList given = parser->positionalArguments();
    if (given.size() < least)
        return failUsage(QStringLiteral("an argument is missing"));
    if (given.size() > most)
        return failUsage(QStringLiteral("unexpected argument \"%1\"").arg(given[most]));
    return std::nullopt;
}

QString formatTable(const QVector<QStringList> &rows, const QVector<int> &numeric)
{
    QVector<int> widths;
    for (const QStringList &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (int column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    QStringList lines;
    for (const QStringList &row : rows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            if (column > 0)
                line += QLatin1String("  ");
            line += numeric.contains(column) ? row[column].rightJustified(widths[column])
                                             : row[column].leftJustified(widths[column]);
        }
        while (line.endsWith(QLatin1Char(' ')))
            line.chop(1);
        lines.append(line);
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace Velmora::Kvz
