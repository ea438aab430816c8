// SPDX-License-Identifier: MIT
#pragma once

#include "CommandLine.h"

#include <Host/PictureFile.h>

#include <QtCore/QSize>

namespace Velmora::Kvz {

/// How the pictures of a call are kept, and how much of one is drawn at a time.
struct OutputOptions
{
    PictureFormat format; ///< Not of files of light.
    bool isLight = false; ///< OpenEXR.
    bool layers = false; ///< All images of a frame go into the file.
    int tile = 0; ///< The longest side of what is drawn at a time; 0: the whole picture, where the driver can.

    /// Whether colours are read as floats.
    bool needsFloats() const { return isLight || format.depth == 16; }
};

/// The options that say it.
QVector<OptionSpec> outputOptionSpecs();

/// Reads them for pictures of this name; `hasAlpha`: they are to have a transparent background. A value is an exit status, after an error was
/// printed.
std::optional<int> readOutputOptions(
    const QCommandLineParser &parser, const QString &output, const QSize &size, bool hasAlpha, OutputOptions *options);

} // namespace Velmora::Kvz
