// SPDX-License-Identifier: MIT
#include <Host/ImageWriter.h>

#include <QtCore/QBuffer>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtGui/QImageWriter>

namespace Velmora::Kvz {

QStringList writableImageSuffixes()
{
    QStringList suffixes;
    for (const QByteArray &suffix : QImageWriter::supportedImageFormats())
        suffixes.append(QString::fromLatin1(suffix));
    return suffixes;
}

QString imageFileProblem(const QString &file)
{
    const QFileInfo info(file);
    const QString suffix = info.suffix().toLower();
    const QFileInfo folder(info.absolutePath());
    if (info.isDir())
        return QStringLiteral("is a directory, not a picture file");
    if (suffix.isEmpty())
        return QStringLiteral("the name needs a suffix that gives the format, such as .png");
    if (!writableImageSuffixes().contains(suffix))
        return QStringLiteral("pictures of type .%1 cannot be written; use .png").arg(suffix);
    if (!folder.isDir())
        return QStringLiteral("the directory %1 does not exist").arg(folder.filePath());
    if (!folder.isWritable())
        return QStringLiteral("the directory %1 cannot be written to").arg(folder.filePath());
    if (info.exists() && !info.isWritable())
        return QStringLiteral("the file exists and cannot be overwritten");
    return {};
}

QByteArray encodeImage(const QImage &image, const QByteArray &format, QString *error)
{
    constexpr int quickPng = 60; // zlib's level 3
    QBuffer encoded;
    encoded.open(QIODevice::WriteOnly);
    QImageWriter writer(&encoded, format);
    if (format == "png")
        writer.setQuality(quickPng);
    if (writer.write(image))
        return encoded.data();
    *error = image.isNull() ? QStringLiteral("there is no picture to write") : writer.errorString();
    return {};
}

bool writeImage(const QImage &image, const QString &file, QString *error)
{
    const auto refuse = [&](const QString &reason) {
        *error = QStringLiteral("%1: %2").arg(file, reason);
        return false;
    };
    const QString problem = imageFileProblem(file);
    if (!problem.isEmpty())
        return refuse(problem);
    // Encoded in memory first: on a full disk libpng would print errors of its own.
    QString reason;
    const QByteArray encoded = encodeImage(image, QFileInfo(file).suffix().toLower().toLatin1(), &reason);
    if (encoded.isEmpty())
        return refuse(reason);
    QSaveFile output(file);
    if (!output.open(QIODevice::WriteOnly) || output.write(encoded) != encoded.size())
        return refuse(output.errorString());
    if (!output.commit())
        return refuse(output.errorString());
    return true;
}

} // namespace Velmora::Kvz
