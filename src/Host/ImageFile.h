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
    bool has32Bits = false; ///< Its bits are those of GL_BGRA bytes.
    bool isCmyk = false; ///< Its inks are turned into red, green and blue without a colour profile.
};

/// Reads an image file, all of it, as the loading passes do. What was found is kept, a few files of it, until a file changes.
ImageFileInfo inspectImageFile(const QString &path);

} // namespace Velmora::Kvz
