// SPDX-License-Identifier: MIT
#pragma once

#include "CommandLine.h"

#include <Import/ImportOptions.h>

#include <QtCore/QString>
#include <QtCore/QVector>

#include <optional>

namespace Velmora::Kvz {

/// How models are read, as the commands that read some are asked to.
struct ModelOptions
{
    /// "-" for standard input and standard output.
    static const QString standardStream;

    QString format; ///< Suffix of what comes from standard input.
    ImportOptions import;
};

/// The options behind them.
QVector<OptionSpec> modelOptionSpecs();

/// Reads the options, and what the arguments say of standard input. A value is an exit status, after an error was printed.
std::optional<int> readModelOptions(const QCommandLineParser &parser, ModelOptions *options);

} // namespace Velmora::Kvz
