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
    for (const QString &suffix : writableImageSuffixes()) {
        const QString library = suffix == QLatin1String("png") ? QStringLiteral("libpng")
            : suffix == QLatin1String("exr")                   ? QStringLiteral("OpenEXR")
                                                               : QStringLiteral("Qt %1").arg(QLatin1String(qVersion()));
        formats.append({QString(), {suffix}, library});
    }
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

CommandSpec formatsCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("formats");
    command.summary = QStringLiteral("Lists the types of files that are read and written.");
    command.detail =
        QStringLiteral("Types of model files, of images that textures are read from, and of pictures that are "
                       "written, by their suffixes, with the library that does it.");
    command.examples = {
        {QStringLiteral("kvz formats"), QString()},
        {QStringLiteral("kvz formats --json | jq -r '.models[].suffixes[]'"), QStringLiteral("all suffixes of models")},
    };
    OptionSpec json;
    json.names = QStringList{QStringLiteral("json")};
    json.help = QStringLiteral("Prints one line of JSON.");
    command.options = {json};
    return command;
}

int runFormats(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(formatsCommand(), arguments, &parser))
        return *status;

    if (parser.isSet(QStringLiteral("json"))) {
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
