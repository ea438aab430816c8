// SPDX-License-Identifier: MIT
#include "Console.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include <unistd.h>

namespace Velmora::Kvz {

namespace {

constexpr const char *wipe = "\r\033[K";

bool noGraphicsMemory = false;
bool isQuiet = false;
QStringList allWarnings;
std::mutex terminal;
bool isProgressShown = false;

/// What is shown in passing makes room for what stays. With `terminal` locked.
void wipeProgress()
{
    if (isProgressShown)
        std::fputs(wipe, stderr);
    isProgressShown = false;
}

void printError(const QString &text)
{
    const std::lock_guard<std::mutex> lock(terminal);
    wipeProgress();
    std::fprintf(stderr, "kvz: %s\n", qPrintable(text));
}

/// A message without the place in our source that it comes from.
QString withoutPlace(const QString &text)
{
    static const QRegularExpression place(QStringLiteral("^\\[\\w+:\\d+\\] "));
    return QString(text).remove(place);
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
        warn(withoutPlace(text));
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
    allWarnings.append(text);
    if (isQuiet || told.contains(text))
        return;
    told.insert(text);
    printError(QStringLiteral("warning: %1").arg(text));
}

void setQuiet(bool quiet)
{
    isQuiet = quiet;
}

bool canShowProgress()
{
    return !isQuiet && isatty(STDERR_FILENO) && qgetenv("TERM") != "dumb";
}

void showProgress(const QString &line)
{
    const std::lock_guard<std::mutex> lock(terminal);
    wipeProgress();
    isProgressShown = !line.isEmpty();
    std::fputs(qPrintable(line), stderr);
}

QStringList warnings()
{
    return allWarnings;
}

void keepWarnings(int count)
{
    allWarnings = allWarnings.mid(0, count);
}

void print(const QString &text)
{
    const std::lock_guard<std::mutex> lock(terminal);
    wipeProgress();
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
