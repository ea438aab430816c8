// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

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
/// Prints "kvz: warning: text" to standard error, the same text only once, and not at all when quiet.
void warn(const QString &text);
/// Whether warnings stay unprinted, and progress unshown.
void setQuiet(bool quiet);
/// Whether progress may be shown: standard error is a terminal that can wipe a line, and the program is not quiet.
bool canShowProgress();
/// Shows a line on the terminal in place of the one shown before; the next line printed, or an empty one, wipes it. For
/// canShowProgress() alone. May be called from any thread.
void showProgress(const QString &line);

/// The warnings of the program so far, also those that were not printed: each as often as it came up.
QStringList warnings();
/// Forgets those after the first `count`.
void keepWarnings(int count);

/// Prints lines to standard output.
void print(const QString &text);

/// Prints the libraries' warnings as this program's own. Their debug lines and the driver's messages stay off the terminal:
/// what a driver cannot do is reported as the reason of a failure. Warnings that graphics memory ran out are only noted.
void installMessageHandler();
/// Whether a library has warned that graphics memory ran out since the last call.
bool ranOutOfGraphicsMemory();

/// Rows in aligned columns, two spaces apart. Columns listed in `numeric` are right-aligned; lines have no trailing spaces.
QString formatTable(const QVector<QStringList> &rows, const QVector<int> &numeric = {});

} // namespace Velmora::Kvz
