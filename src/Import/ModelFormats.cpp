// SPDX-License-Identifier: MIT
#include <Import/ModelFormats.h>

#include "FormatNames.h"

#include <assimp/cimport.h>
#include <assimp/importerdesc.h>
#include <assimp/version.h>

#include <QtCore/QRegularExpression>
#include <QtGui/QImageReader>

#include <algorithm>

namespace Velmora::Kvz {

QString formatNameOf(const char *importer)
{
    static const QRegularExpression address(QStringLiteral("\\(https?:[^)]*\\)"));
    static const QRegularExpression bracket(QStringLiteral("(\\w)\\("));
    QString name = QString::fromUtf8(importer).remove(address);
    name.remove(QStringLiteral("Importer")).remove(QStringLiteral("Reader")).remove(QStringLiteral("(MoCap)"));
    name = name.replace(bracket, QStringLiteral("\\1 (")).simplified();
    // Two importers have this name but for the version.
    if (name == QLatin1String("glTF"))
        return QStringLiteral("glTF 1");
    return name == QLatin1String("glTF2") ? gltf2Name() : name;
}

QVector<FileFormat> modelFormats()
{
    const QString assimp =
        QStringLiteral("assimp %1.%2.%3").arg(aiGetVersionMajor()).arg(aiGetVersionMinor()).arg(aiGetVersionPatch());
    QVector<FileFormat> formats;
    for (size_t i = 0; i < aiGetImportFormatCount(); ++i) {
        const aiImporterDesc *description = aiGetImportFormatDescription(i);
        const QString name = formatNameOf(description->mName);
        QStringList suffixes = QString::fromLatin1(description->mFileExtensions).toLower().split(QLatin1Char(' '));
        suffixes.removeAll(QString());
        formats.append({name, suffixes, name == gltf2Name() ? QStringLiteral("tinygltf") : assimp});
    }
    std::sort(formats.begin(), formats.end(), [](const FileFormat &a, const FileFormat &b) {
        return QString::compare(a.name, b.name, Qt::CaseInsensitive) < 0;
    });
    return formats;
}

QVector<FileFormat> textureFormats()
{
    QVector<FileFormat> formats;
    for (const QByteArray &suffix : QImageReader::supportedImageFormats())
        formats.append(
            {QString(), {QString::fromLatin1(suffix)}, QStringLiteral("Qt %1").arg(QLatin1String(qVersion()))});
    std::sort(formats.begin(), formats.end(),
        [](const FileFormat &a, const FileFormat &b) { return a.suffixes < b.suffixes; });
    return formats;
}

} // namespace Velmora::Kvz
