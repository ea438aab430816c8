// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QCommandLineParser>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <optional>

namespace Velmora::Kvz {

enum ExitStatus {
    Success = 0,
    BadInput = 1, ///< A file, value or driver that does not serve.
    BadUsage = 2 ///< A command line that makes no sense.
};

/// What help texts say of them.
QString exitStatusHelp();

/// Prints "kvz: reason" to standard error and returns BadInput.
int fail(const QString &reason);
/// Prints "kvz: reason" and where help is to be had to standard error and returns BadUsage.
int failUsage(const QString &reason);
/// Prints "kvz: warning: text" to standard error, the same text once only.
void warn(const QString &text);
/// Prints lines to standard output.
void print(const QString &text);

/// Has warnings of the libraries printed as this program's own, and keeps their debug lines and the driver's messages off
/// the terminal: what a driver cannot do is said as a reason to fail. So are warnings that graphics memory ran out.
void installMessageHandler();
/// Whether a library warned that graphics memory ran out since this was asked last.
bool ranOutOfGraphicsMemory();

/// Reads a command line that takes from `least` to `most` arguments besides its options, and adds --help to the options.
/// A value says that the command is done and with what exit status: help was printed, or what is wrong.
std::optional<int> parseCommandLine(QCommandLineParser *parser, const QStringList &arguments, int least, int most);

/// Rows in aligned columns, two blanks apart. Columns named in `numeric` are flush right; the last column is not padded.
QString formatTable(const QVector<QStringList> &rows, const QVector<int> &numeric = {});

} // namespace Velmora::Kvz
