// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Host/ImageWriter.h>
#include <Import/ModelFormats.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace Velmora::Kvz {

namespace {

QVector<FileFormat> pictureFormats()
{
    QVector<FileFormat> formats;
    for (const QString &suffix : writableImageSuffixes())
        formats.append({QString(), {suffix}, QStringLiteral("Qt %1").arg(QLatin1String(qVersion()))});
    return formats;
}

QJsonArray jsonOf(const QVector<FileFormat> &formats)
{
    QJsonArray array;
    for (const FileFormat &format : formats) {
        QJsonObject object{{QStringLiteral("suffixes"), QJsonArray::fromStringList(format.suffixes)},
            {QStringLiteral("library"), format.library}};
        if (!format.name.isEmpty())
            object.insert(QStringLiteral("name"), format.name);
        array.append(object);
    }
    return array;
}

QString describe(const QString &title, const QVector<FileFormat> &formats)
{
    QVector<QStringList> rows;
    for (const FileFormat &format : formats) {
        QStringList row{QStringLiteral(" "), format.suffixes.join(QLatin1Char(' ')), format.library};
        if (!format.name.isEmpty())
            row.insert(2, format.name);
        rows.append(row);
    }
    return QStringLiteral("%1:\n%2").arg(title, formatTable(rows));
}

} // namespace

int runFormats(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the types of files that are read and written, by their suffixes, and the library\n"
                       "that does it."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Prints one line of JSON."));
    parser.addOption(json);
    if (const auto status = parseCommandLine(&parser, arguments, 0, 0))
        return *status;

    if (parser.isSet(json)) {
        const QJsonObject object{{QStringLiteral("models"), jsonOf(modelFormats())},
            {QStringLiteral("imagesRead"), jsonOf(textureFormats())},
            {QStringLiteral("imagesWritten"), jsonOf(pictureFormats())}};
        print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
        return Success;
    }
    print(QStringList{describe(QStringLiteral("Models"), modelFormats()),
        describe(QStringLiteral("Images that are read"), textureFormats()),
        describe(QStringLiteral("Images that are written"), pictureFormats())}
              .join(QStringLiteral("\n\n")));
    return Success;
}

} // namespace Velmora::Kvz
