// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// A group of channels of an OpenEXR file.
struct LightLayer
{
    enum class Type {
        Half, ///< From floats, rounded; what is beyond 65504 becomes that.
        Float,
        UInt ///< Of 32 bits.
    };
    QString name; ///< Comes before the names of its channels, with a dot: "surface.Normal"; empty: the picture itself.
    QStringList channels; ///< Such as R, G, B, A; in the order in which a pixel has them in memory.
    Type type = Type::Half;
};

/// An OpenEXR file that is written from the top row down, a few rows at a time, and is there completely or not at all: until finish() has
/// returned true, an existing file stays as it was. Nothing of it is kept in memory but the rows that are handed over.
///
/// Colours are linear light with the primaries of sRGB, multiplied by their alpha, as the format has it. Rows are compressed without loss.
class KVZ_HOST_EXPORT LightFile
{
public:
    /// Null, with one line in `error` that names the file, for a name that imageFileProblem() refuses, an empty size, two channels of one
    /// name, and when it cannot be written.
    static std::unique_ptr<LightFile> create(
        const QString &file, const QSize &size, const QVector<LightLayer> &layers, QString *error);
    ~LightFile();

    /// The next rows, the top one first: for each layer its pixels, with one float, or one number of 32 bits, for each channel. False, with
    /// one line in `error` without the file's name, for more rows than the file has, another number of layers, and when it cannot be
    /// written; nothing more can be appended then.
    bool append(int rows, const QVector<const void *> &layers, QString *error);
    /// False, with one line in `error` without the file's name, when rows are missing or it cannot be written.
    bool finish(QString *error);

private:
    struct Private;
    explicit LightFile(std::unique_ptr<Private> data);
    Q_DISABLE_COPY(LightFile)

    std::unique_ptr<Private> d;
};

/// Turns display values into light, by the exact transfer function of sRGB: colours as floats, four a pixel, before and after multiplied by
/// their alpha. Values beyond 0 to 1 are cut off, and what is no number is 0.
KVZ_HOST_EXPORT void decodeDisplayColours(float *rgba, size_t pixels);

} // namespace Velmora::Kvz
