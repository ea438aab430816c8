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
    BadInput = 1, ///< An unusable file, value or driver.
    BadUsage = 2 ///< A wrong command line.
};

/// The paragraph of help texts on exit statuses.
QString exitStatusHelp();

/// Prints "kvz: reason" to standard error and returns BadInput.
int fail(const QString &reason);
/// Prints "kvz: reason" and where to find help to standard error and returns BadUsage.
int failUsage(const QString &reason);
/// Prints "kvz: warning: text" to standard error, the same text only once.
void warn(const QString &text);
/// Prints lines to standard output.
void print(const QString &text);

/// Prints the libraries' warnings as this program's own. Their debug lines and the driver's messages stay off the terminal:
/// what a driver cannot do is reported as the reason of a failure. Warnings that graphics memory ran out are only noted.
void installMessageHandler();
/// Whether a library has warned that graphics memory ran out since the last call.
bool ranOutOfGraphicsMemory();

/// Reads a command line that takes from `least` to `most` arguments besides its options, and adds --help to the options.
/// A value is the exit status of a command that is already done, because help or an error was printed.
std::optional<int> parseCommandLine(QCommandLineParser *parser, const QStringList &arguments, int least, int most);

/// Rows in aligned columns, two spaces apart. Columns listed in `numeric` are right-aligned; lines have no trailing spaces.
QString formatTable(const QVector<QStringList> &rows, const QVector<int> &numeric = {});

} // namespace Velmora::Kvz
