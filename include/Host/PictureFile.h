// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QByteArray>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtGui/QImage>

#include <memory>

class QIODevice;

namespace Velmora::Kvz {

/// How a picture of display values is kept in a file.
struct PictureFormat
{
    QByteArray type =
        "png"; ///< The suffix of such files, in lower case: "png", or another that the installed Qt can write.
    int depth = 8; ///< Bits a channel: 8, or of PNG 16.
    int quality = -1; ///< Of JPEG and WebP: 0 to 100, where 100 is the largest file; below 0 the format's own choice.
    bool hasAlpha = false; ///< Straight alpha; JPEG, BMP and some others have none.
};

/// Why no picture of this format and size, in pixels, can be written, in one line; empty when it can. Needs no file.
KVZ_HOST_EXPORT QString pictureFormatProblem(const PictureFormat &format, const QSize &size);

/// A picture file that is written from the top row down, a few rows at a time, and is there completely or not at all: until finish()
/// has returned true, an existing file stays as it was. PNG goes to disk row by row; of all other formats the whole picture is kept
/// in memory, once, until it is finished.
///
/// PNG says that its values are sRGB, with gamma and primaries for readers that do not know that mark.
class KVZ_HOST_EXPORT PictureFile
{
public:
    /// Null, with one line in `error` that names the file, for what pictureFormatProblem() and imageFileProblem() refuse, and when it
    /// cannot be written.
    static std::unique_ptr<PictureFile> create(
        const QString &file, const QSize &size, const PictureFormat &format, QString *error);
    /// Writes to an open device, such as a buffer, which must live as long as this. What has arrived there when something fails is
    /// no picture.
    static std::unique_ptr<PictureFile> create(
        QIODevice *device, const QSize &size, const PictureFormat &format, QString *error);
    ~PictureFile();

    /// The next rows, of the picture's width and straight alpha. Those of other depth than the format's are converted. False,
    /// with one line in `error` without the file's name, for a null image, one of another width, more rows than the picture has, and when it
    /// cannot be written; nothing more can be appended then.
    bool append(const QImage &rows, QString *error);
    /// False, with one line in `error` without the file's name, when rows are missing or it cannot be written.
    bool finish(QString *error);

private:
    struct Private;
    explicit PictureFile(std::unique_ptr<Private> data);
    Q_DISABLE_COPY(PictureFile)

    std::unique_ptr<Private> d;
};

/// Rows of a picture from colours as floats, four a pixel and multiplied by their alpha, in 16 bits a channel: straight alpha, or opaque
/// as on a black screen. Values beyond 0 to 1 are cut off, and what is no number is 0. Null for an empty size and when there is no memory.
KVZ_HOST_EXPORT QImage wordsFromColours(const float *rgba, const QSize &size, bool hasAlpha);

} // namespace Velmora::Kvz
