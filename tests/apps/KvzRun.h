// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

struct Result
{
    int status = -1; ///< -1 for a program that crashed or did not end.
    QString output;
    QStringList errors; ///< Lines of standard error.
};

inline QStringList linesOf(const QString &text)
{
    QStringList lines = text.split('\n');
    lines.removeAll(QString());
    return lines;
}

/// Runs the program to its end.
class Kvz
{
public:
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QString terminal; ///< Where standard error goes instead of into Result::errors.

    Result run(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment);
        if (!terminal.isEmpty())
            process.setStandardErrorFile(terminal);
        process.start(QStringLiteral(KVZ_PROGRAM), arguments);
        Result result;
        if (process.waitForFinished(100000) && process.exitStatus() == QProcess::NormalExit)
            result.status = process.exitCode();
        result.output = QString::fromUtf8(process.readAllStandardOutput());
        result.errors = linesOf(QString::fromUtf8(process.readAllStandardError()));
        return result;
    }
};

inline Result run(const QStringList &arguments)
{
    return Kvz().run(arguments);
}

} // namespace Velmora::Kvz
