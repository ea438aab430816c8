// SPDX-License-Identifier: MIT
#include "OutputOptions.h"

#include "Console.h"
#include "ModelOptions.h"

#include <Host/ImageWriter.h>

#include <QtCore/QFileInfo>

namespace Velmora::Kvz {

namespace {

constexpr int leastTile = 64;

} // namespace

QVector<OptionSpec> outputOptionSpecs()
{
    QVector<OptionSpec> list;
    list += optionSpec("depth", "BITS", "Bits a channel of a PNG: 8 or 16. Default: 8.",
        "With 16 the chain ends in floats, where its passes can; a line says where they end in 8 bits anyway.");
    list.last().standard = QStringLiteral("8");
    list.last().completion = Completion::Words;
    list.last().words = wordList("8 16");
    list += optionSpec("quality", "N", "Of JPEG and WebP, from 0 to 100.",
        "100 is the largest file, and of WebP one without loss. Without it the format's own choice holds.");
    list += optionSpec("layers", "", "All images of the last frame, as layers of an EXR.",
        "Each image output of each pass, named by pass and port, such as geometry.Normal.X. Depth is the distance from "
        "the "
        "camera's plane. Images of another size than the picture's are named in a line and left out.");
    list += optionSpec("tile", "N", "Draws the picture in tiles of at most N pixels a side.",
        "For pictures that would take too much graphics memory; those beyond the driver's limit are drawn in tiles "
        "without "
        "being asked. What filters read around a tile is drawn with it, and noise follows the whole picture. A chain "
        "that "
        "measures its whole picture, or stretches something over it, is refused in a line that names the pass.");
    return list;
}

std::optional<int> readOutputOptions(
    const QCommandLineParser &parser, const QString &output, const QSize &size, bool hasAlpha, OutputOptions *options)
{
    const auto value = [&](const char *option) { return parser.value(QLatin1String(option)); };
    const auto isSet = [&](const char *option) { return parser.isSet(QLatin1String(option)); };
    const bool isStream = output == ModelOptions::standardStream;
    const QString suffix = isStream ? QStringLiteral("png") : QFileInfo(output).suffix().toLower();
    options->isLight = suffix == QLatin1String("exr");
    options->layers = isSet("layers");
    options->format.type = suffix.toLatin1();
    options->format.hasAlpha = hasAlpha;

    bool isNumber = false;
    options->format.depth = value("depth").toInt(&isNumber);
    if (!isNumber || (options->format.depth != 8 && options->format.depth != 16))
        return fail(QStringLiteral("--depth %1: expected 8 or 16").arg(value("depth")));
    if (isSet("quality")) {
        options->format.quality = value("quality").toInt(&isNumber);
        if (!isNumber || options->format.quality < 0 || options->format.quality > 100)
            return fail(QStringLiteral("--quality %1: expected a number from 0 to 100").arg(value("quality")));
    }
    if (isSet("tile")) {
        options->tile = value("tile").toInt(&isNumber);
        if (!isNumber || options->tile < leastTile)
            return fail(QStringLiteral("--tile %1: expected the side of a tile in pixels, %2 or more, such as 1024")
                            .arg(value("tile"))
                            .arg(leastTile));
        if (isSet("capture"))
            return failUsage(QStringLiteral("--tile and --capture do not go together: no pass has a whole image then"));
    }
    if (options->layers && isSet("capture"))
        return failUsage(
            QStringLiteral("--layers and --capture do not go together: each takes the images of the frame"));
    if (options->layers && !options->isLight)
        return fail(QStringLiteral("-o %1: pictures of this type have no layers, which --layers needs; write an .exr")
                        .arg(output));
    // Suffixes that cannot be written at all are told with the file's name.
    if (!writableImageSuffixes().contains(suffix))
        return std::nullopt;
    if (options->isLight) {
        for (const char *other : {"depth", "quality"}) {
            if (isSet(other))
                return fail(QStringLiteral("-o %1: files of light are half floats without loss; leave --%2 out")
                                .arg(output, QLatin1String(other)));
        }
        return std::nullopt;
    }
    const QString problem = pictureFormatProblem(options->format, size);
    return problem.isEmpty() ? std::nullopt
                             : std::optional<int>(fail(QStringLiteral("-o %1: %2").arg(output, problem)));
}

} // namespace Velmora::Kvz
