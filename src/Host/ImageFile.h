// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSize>
#include <QtCore/QString>

namespace Velmora::Kvz {

/// What an image file holds.
struct ImageFileInfo
{
    QString problem; ///< Why it cannot be read, such as "which is not there"; empty when it can.
    QSize size; ///< In pixels.
    QString format; ///< In words, such as "16 bits a channel".
    bool has32Bits = false; ///< Its memory layout is GL_BGRA with 8 bits per channel.
    bool isCmyk = false; ///< CMYK, which is converted to RGB without a colour profile.
};

/// Reads an image file completely, as the loading passes do. Results for a few files are cached until a file changes.
ImageFileInfo inspectImageFile(const QString &path);

} // namespace Velmora::Kvz
