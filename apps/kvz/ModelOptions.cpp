// SPDX-License-Identifier: MIT
#include "ModelOptions.h"

#include "Console.h"

#include <QtCore/QRegularExpression>

#include <cmath>

namespace Velmora::Kvz {

const QString ModelOptions::standardStream = QStringLiteral("-");

QVector<OptionSpec> modelOptionSpecs()
{
    QVector<OptionSpec> list;
    list += optionSpec("up", "AXIS", "What points up in the file: y, z, -y, ...",
        "Instead of what the file says of itself, or y where it says nothing: x, y, z, -x, -y or "
        "-z.");
    list.last().completion = Completion::Words;
    list.last().words = wordList("x y z -x -y -z");
    list += optionSpec("animation", "NAME|N", "Poses the nodes by an animation of the file.",
        "By its name, or by its number from 0. Skins and morph targets stay as they are at rest.");
    list += optionSpec("time", "SECONDS", "The moment of the animation. Default: 0.",
        "Before its start and after its end the first or last pose stays. Without --animation it "
        "is the first one of the file.");
    list += optionSpec("variant", "NAME", "Chooses a variant of the file's materials.",
        "Of glTF files that offer several sets of materials; without it those of none are drawn. kvz info lists them.");
    list += optionSpec("format", "SUFFIX", "Type of a model from standard input, such as glb.",
        "Needed where MODEL is -. Such a model is one file: what it names beside itself is not "
        "found.");
    list.last().completion = Completion::Words;
    list.last().words = wordList("glb gltf obj ply stl off 3ds fbx dae");
    return list;
}

std::optional<int> readModelOptions(const QCommandLineParser &parser, ModelOptions *options)
{
    const auto value = [&](const char *option) { return parser.value(QLatin1String(option)); };
    const auto isSet = [&](const char *option) { return parser.isSet(QLatin1String(option)); };
    options->format = value("format");
    const int fromInput = parser.positionalArguments().count(ModelOptions::standardStream);
    if (fromInput > 1)
        return failUsage(QStringLiteral("standard input holds one model, not %1").arg(fromInput));
    if (fromInput == 0 && isSet("format"))
        return failUsage(QStringLiteral("--format is for a model from standard input, -"));
    if (fromInput == 1 && options->format.isEmpty())
        return failUsage(QStringLiteral("standard input has no name that tells its type; add --format SUFFIX"));
    if (options->format.startsWith(QLatin1Char('.')))
        options->format.remove(0, 1);

    static const QRegularExpression axis(QStringLiteral("^-?[xyz]$"));
    options->import.up = value("up").toLower();
    if (isSet("up") && !axis.match(options->import.up).hasMatch())
        return fail(QStringLiteral("--up %1: expected x, y, z, -x, -y or -z").arg(value("up")));
    options->import.animation = value("animation");
    if (isSet("animation") && options->import.animation.isEmpty())
        return fail(QStringLiteral("--animation: expected its name or number"));
    options->import.variant = value("variant");
    if (isSet("variant") && options->import.variant.isEmpty())
        return fail(QStringLiteral("--variant: expected the name of a variant; kvz info lists them"));
    if (isSet("time")) {
        bool isNumber = false;
        options->import.time = value("time").toDouble(&isNumber);
        if (!isNumber || !std::isfinite(options->import.time) || options->import.time < 0)
            return fail(QStringLiteral("--time %1: expected seconds, 0 or more").arg(value("time")));
    }
    return std::nullopt;
}

} // namespace Velmora::Kvz
