// SPDX-License-Identifier: MIT
#include <Host/PictureNames.h>

#include <QtCore/QFileInfo>
#include <QtGui/QImageWriter>

namespace Velmora::Kvz {

namespace {

const QString lightSuffix = QStringLiteral("exr");

} // namespace

QStringList writableImageSuffixes()
{
    QStringList suffixes;
    for (const QByteArray &suffix : QImageWriter::supportedImageFormats())
        suffixes.append(QString::fromLatin1(suffix));
    if (!suffixes.contains(lightSuffix))
        suffixes.append(lightSuffix);
    suffixes.sort();
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

} // namespace Velmora::Kvz
