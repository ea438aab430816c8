// SPDX-License-Identifier: MIT
// Runs the program as a user does.
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtGui/QImage>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

struct Result
{
    int status = -1; ///< -1 for a program that crashed or did not end.
    QString output;
    QStringList errors; ///< Lines of standard error but the next ones.
    QStringList shadowRemarks; ///< What chains with shadows say of glass, which most models of the tests have.
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
    QString input; ///< A file that standard input comes from; empty: none.
    QString outputFile; ///< Where standard output goes instead of into Result::output.
    QString folder; ///< Where it runs; empty: here.

    Result run(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment);
        if (!terminal.isEmpty())
            process.setStandardErrorFile(terminal);
        process.setStandardInputFile(input.isEmpty() ? QProcess::nullDevice() : input);
        if (!outputFile.isEmpty())
            process.setStandardOutputFile(outputFile);
        if (!folder.isEmpty())
            process.setWorkingDirectory(folder);
        process.start(QStringLiteral(KVZ_PROGRAM), arguments);
        Result result;
        if (process.waitForFinished(100000) && process.exitStatus() == QProcess::NormalExit)
            result.status = process.exitCode();
        result.output = QString::fromUtf8(process.readAllStandardOutput());
        for (const QString &line : linesOf(QString::fromUtf8(process.readAllStandardError()))) {
            const bool isRemark = line.endsWith(": transparent surfaces cast shadows as if they were opaque");
            (isRemark ? result.shadowRemarks : result.errors).append(line);
        }
        return result;
    }
};

inline Result run(const QStringList &arguments)
{
    return Kvz().run(arguments);
}

/// Expects the program to refuse these arguments in one line that begins with "kvz: " and `start` and contains `part`
/// after that.
inline void expectRefused(
    const QStringList &arguments, int status, const QString &start, const QString &part, const Kvz &program = Kvz())
{
    const Result result = program.run(arguments);
    const std::string command = arguments.join(' ').toStdString();
    EXPECT_EQ(result.status, status) << command;
    EXPECT_EQ(result.output, QString()) << command;
    ASSERT_EQ(result.errors.size(), 1) << command << "\n" << result.errors.join('\n').toStdString();
    EXPECT_TRUE(result.errors[0].startsWith("kvz: " + start)) << command << "\n" << result.errors[0].toStdString();
    EXPECT_TRUE(result.errors[0].contains(part)) << command << "\n" << result.errors[0].toStdString();
}

/// Expects the program to refuse these arguments with only this line, after "kvz: ".
inline void expectLine(const QStringList &arguments, int status, const QString &line, const Kvz &program = Kvz())
{
    const Result result = program.run(arguments);
    const std::string command = arguments.join(' ').toStdString();
    EXPECT_EQ(result.status, status) << command;
    EXPECT_EQ(result.output, QString()) << command;
    EXPECT_EQ(result.errors, QStringList("kvz: " + line)) << command;
}

/// Expects an opaque picture of this size and returns it.
inline QImage expectPicture(const QString &file, const QSize &size)
{
    const QImage image(file);
    EXPECT_EQ(image.size(), size) << file.toStdString();
    EXPECT_FALSE(image.hasAlphaChannel());
    return image.convertToFormat(QImage::Format_RGB32);
}

} // namespace Velmora::Kvz
