// SPDX-License-Identifier: MIT
#include "ImageFile.h"

#include <QtCore/QCache>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtGui/QImageReader>

// The images that come with this library, also for chains that were not loaded by name.
static void registerEnvironments()
{
    Q_INIT_RESOURCE(Environments);
}

namespace Velmora::Kvz {

namespace {

QString describe(const QImage &image)
{
    switch (image.format()) {
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
        return QStringLiteral("black and white");
    case QImage::Format_Indexed8:
        return QStringLiteral("a palette");
    case QImage::Format_Grayscale8:
    case QImage::Format_Alpha8:
        return QStringLiteral("shades of grey");
    default:
        break;
    }
    return image.depth() > 32 ? QStringLiteral("16 bits a channel")
                              : QStringLiteral("%1 bits per pixel in another order").arg(image.depth());
}

/// Whether a JPEG file is CMYK. Image readers convert it to RGB without saying so.
bool isCmykJpeg(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.read(2) != QByteArray("\xff\xd8"))
        return false;
    // Walks the segments, each with a marker and its length, to the start of the frame.
    for (QByteArray head = file.read(4); head.size() == 4 && head[0] == '\xff'; head = file.read(4)) {
        const auto marker = uchar(head[1]);
        const int length = uchar(head[2]) << 8 | uchar(head[3]);
        const bool isFrame = marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
        const QByteArray segment = file.read(length - 2);
        if (isFrame)
            return segment.size() > 5 && segment[5] == 4;
    }
    return false;
}

ImageFileInfo inspect(const QString &path)
{
    ImageFileInfo info;
    registerEnvironments();
    const QFileInfo file(path);
    info.problem = !file.exists() ? QStringLiteral("which is not there")
        : !file.isFile()          ? QStringLiteral("which is not a file")
        : !file.isReadable()      ? QStringLiteral("which cannot be read")
                                  : QString();
    if (!info.problem.isEmpty())
        return info;
    QImageReader reader(path);
    // As QImage::load() does.
    const QImage image = reader.read();
    if (image.isNull()) {
        QString reason = reader.errorString();
        if (!reason.isEmpty())
            reason[0] = reason[0].toLower();
        info.problem = reader.error() == QImageReader::InvalidDataError
            ? QStringLiteral("which is damaged or truncated: %1").arg(reason)
            : QStringLiteral("which is no image: %1").arg(reason);
        return info;
    }
    info.size = image.size();
    info.has32Bits = image.format() == QImage::Format_RGB32 || image.format() == QImage::Format_ARGB32
        || image.format() == QImage::Format_ARGB32_Premultiplied;
    info.format = info.has32Bits ? QStringLiteral("32 bits per pixel") : describe(image);
    info.isCmyk = isCmykJpeg(path);
    return info;
}

} // namespace

ImageFileInfo inspectImageFile(const QString &path)
{
    struct Entry
    {
        QDateTime modified;
        qint64 size;
        ImageFileInfo info;
    };
    static QMutex mutex;
    static QCache<QString, Entry> known(64);

    const QFileInfo file(path);
    const QMutexLocker lock(&mutex);
    const Entry *const entry = known[path];
    if (entry && file.isFile() && entry->modified == file.lastModified() && entry->size == file.size())
        return entry->info;
    const ImageFileInfo info = inspect(path);
    if (file.isFile())
        known.insert(path, new Entry{file.lastModified(), file.size(), info});
    return info;
}

} // namespace Velmora::Kvz
