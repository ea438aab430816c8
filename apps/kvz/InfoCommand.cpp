// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"
#include "ModelInput.h"

#include <Import/SceneFacts.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QLocale>
#include <QtCore/QtMath>

namespace Velmora::Kvz {

namespace {

QStringList usesOf(const ImportedImage &image)
{
    QStringList uses;
    if (image.uses & ImportedImage::Colour)
        uses.append(QStringLiteral("colour"));
    if (image.uses & ImportedImage::Data)
        uses.append(QStringLiteral("data"));
    return uses;
}

QString nameOf(ImportedMaterial::AlphaMode mode)
{
    return mode == ImportedMaterial::Blend ? QStringLiteral("blend")
        : mode == ImportedMaterial::Mask   ? QStringLiteral("mask")
                                           : QStringLiteral("opaque");
}

QString nameOf(ImportedLight::Type type)
{
    return type == ImportedLight::Directional ? QStringLiteral("directional")
        : type == ImportedLight::Spot         ? QStringLiteral("spot")
        : type == ImportedLight::Ambient      ? QStringLiteral("ambient")
                                              : QStringLiteral("point");
}

QString nameOf(const ImportedCamera &camera)
{
    return camera.isOrthographic ? QStringLiteral("orthographic") : QStringLiteral("perspective");
}

/// As many digits as a float has.
double plain(float value)
{
    return QString::number(double(value), 'g', 7).toDouble();
}

QJsonArray jsonOf(const QVector3D &vector)
{
    return {plain(vector.x()), plain(vector.y()), plain(vector.z())};
}

QJsonObject jsonOf(const QString &model, const ImportedScene &scene)
{
    const SceneFacts facts = factsOf(scene);
    QJsonArray materials;
    for (const ImportedMaterial &material : scene.materials)
        materials.append(
            QJsonObject{{QStringLiteral("name"), material.name}, {QStringLiteral("alpha"), nameOf(material.alphaMode)},
                {QStringLiteral("doubleSided"),
                    material.saysSides ? QJsonValue(material.isDoubleSided) : QJsonValue(QJsonValue::Null)},
                {QStringLiteral("unlit"), material.isUnlit}});
    QJsonArray images;
    for (const ImportedImage &image : scene.images)
        images.append(QJsonObject{{QStringLiteral("name"), image.name}, {QStringLiteral("width"), image.image.width()},
            {QStringLiteral("height"), image.image.height()}, {QStringLiteral("isRead"), !image.image.isNull()},
            {QStringLiteral("uses"), QJsonArray::fromStringList(usesOf(image))}});
    QJsonArray animations;
    for (const ImportedAnimation &animation : scene.animations)
        animations.append(QJsonObject{{QStringLiteral("name"), animation.name},
            {QStringLiteral("seconds"), plain(animation.duration)},
            {QStringLiteral("channels"), animation.channels.size()}});
    QJsonArray cameras;
    for (const ImportedCamera &camera : scene.cameras) {
        QJsonObject object{{QStringLiteral("name"), camera.name}, {QStringLiteral("type"), nameOf(camera)}};
        if (camera.isOrthographic)
            object.insert(QStringLiteral("height"), plain(2 * camera.halfExtent.y()));
        else
            object.insert(QStringLiteral("verticalFieldOfView"), plain(qRadiansToDegrees(camera.verticalFieldOfView)));
        cameras.append(object);
    }
    QJsonArray lights;
    for (const ImportedLight &light : scene.lights)
        lights.append(QJsonObject{{QStringLiteral("name"), light.name}, {QStringLiteral("type"), nameOf(light.type)},
            {QStringLiteral("colour"), jsonOf(light.colour)}, {QStringLiteral("intensity"), plain(light.intensity)}});

    QJsonObject object{{QStringLiteral("file"), model}, {QStringLiteral("format"), scene.format},
        {QStringLiteral("unitInMetres"), scene.unit > 0 ? QJsonValue(plain(scene.unit)) : QJsonValue(QJsonValue::Null)},
        {QStringLiteral("up"), scene.upAxis.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(scene.upAxis)},
        {QStringLiteral("bounds"), QJsonValue(QJsonValue::Null)}, {QStringLiteral("items"), scene.items.size()},
        {QStringLiteral("triangles"), facts.triangles}, {QStringLiteral("vertices"), facts.vertices},
        {QStringLiteral("points"), facts.points}, {QStringLiteral("lines"), facts.lines},
        {QStringLiteral("materials"), materials}, {QStringLiteral("images"), images},
        {QStringLiteral("animations"), animations}, {QStringLiteral("cameras"), cameras},
        {QStringLiteral("lights"), lights}, {QStringLiteral("variants"), QJsonArray::fromStringList(scene.variants)},
        {QStringLiteral("extensionsUsed"), QJsonArray::fromStringList(scene.extensionsUsed)},
        {QStringLiteral("extensionsRequired"), QJsonArray::fromStringList(scene.extensionsRequired)},
        {QStringLiteral("gpuBytes"), facts.gpuBytes},
        {QStringLiteral("warnings"), QJsonArray::fromStringList(scene.warnings)}};
    if (facts.hasBounds)
        object.insert(QStringLiteral("bounds"),
            QJsonObject{{QStringLiteral("low"), jsonOf(facts.low)}, {QStringLiteral("high"), jsonOf(facts.high)}});
    return object;
}

QString textOf(float value)
{
    return QString::number(double(value), 'g', 6);
}

QString textOf(const QVector3D &vector)
{
    return QStringLiteral("%1 %2 %3").arg(textOf(vector.x()), textOf(vector.y()), textOf(vector.z()));
}

QString textOf(qint64 count)
{
    return QLocale(QLocale::English).toString(count);
}

QString textOfBytes(qint64 bytes)
{
    const QLocale english(QLocale::English);
    return bytes < 1024 ? QStringLiteral("about %1 bytes").arg(bytes)
                        : QStringLiteral("about %1").arg(english.formattedDataSize(bytes, 1));
}

/// A name, or its number where the file gives none.
QString called(const QString &name, int number)
{
    return name.isEmpty() ? QStringLiteral("number %1").arg(number) : QStringLiteral("\"%1\"").arg(name);
}

/// Rows of a list under its count: the first is that of the list itself.
class Rows
{
public:
    void add(const QString &name, const QString &value) { m_rows.append({name, value}); }
    void addList(const QString &name, const QStringList &entries)
    {
        m_rows.append({name, textOf(qint64(entries.size()))});
        for (const QString &entry : entries)
            m_rows.append({QString(), entry});
    }
    QString toString() const { return formatTable(m_rows); }

private:
    QVector<QStringList> m_rows;
};

QString unitOf(const ImportedScene &scene)
{
    if (!(scene.unit > 0))
        return QStringLiteral("not said");
    return scene.unit == 1 ? QStringLiteral("metre") : QStringLiteral("%1 metres").arg(textOf(scene.unit));
}

QString describe(const ImportedScene &scene)
{
    const SceneFacts facts = factsOf(scene);
    Rows rows;
    rows.add(QStringLiteral("Format"), scene.format);
    rows.add(QStringLiteral("Unit"), unitOf(scene));
    rows.add(QStringLiteral("Up axis"), scene.upAxis.isEmpty() ? QStringLiteral("not said; y is taken") : scene.upAxis);
    rows.add(QStringLiteral("Bounds"),
        facts.hasBounds ? QStringLiteral("%1 to %2").arg(textOf(facts.low), textOf(facts.high))
                        : QStringLiteral("none"));
    if (facts.hasBounds)
        rows.add(QStringLiteral("Size"), textOf(facts.high - facts.low));
    rows.add(QStringLiteral("Items"), textOf(qint64(scene.items.size())));
    rows.add(QStringLiteral("Triangles"), textOf(facts.triangles));
    rows.add(QStringLiteral("Vertices"), textOf(facts.vertices));
    rows.add(QStringLiteral("Points"), textOf(facts.points));
    rows.add(QStringLiteral("Lines"), textOf(facts.lines));

    QStringList entries;
    for (int i = 0; i < scene.materials.size(); ++i) {
        const ImportedMaterial &material = scene.materials[i];
        QStringList parts{called(material.name, i), nameOf(material.alphaMode)};
        if (material.saysSides)
            parts.append(material.isDoubleSided ? QStringLiteral("double-sided") : QStringLiteral("single-sided"));
        if (material.isUnlit)
            parts.append(QStringLiteral("unlit"));
        entries.append(parts.join(QStringLiteral(", ")));
    }
    rows.addList(QStringLiteral("Materials"), entries);
    entries.clear();
    for (const ImportedImage &image : scene.images) {
        QStringList parts{QStringLiteral("\"%1\"").arg(image.name),
            image.image.isNull() ? QStringLiteral("not read")
                                 : QStringLiteral("%1x%2").arg(image.image.width()).arg(image.image.height())};
        entries.append((parts + usesOf(image)).join(QStringLiteral(", ")));
    }
    rows.addList(QStringLiteral("Images"), entries);
    entries.clear();
    for (int i = 0; i < scene.animations.size(); ++i)
        entries.append(
            QStringLiteral("%1, %2 s").arg(called(scene.animations[i].name, i), textOf(scene.animations[i].duration)));
    rows.addList(QStringLiteral("Animations"), entries);
    entries.clear();
    for (int i = 0; i < scene.cameras.size(); ++i) {
        const ImportedCamera &camera = scene.cameras[i];
        entries.append(
            QStringLiteral("%1, %2, %3")
                .arg(called(camera.name, i), nameOf(camera),
                    camera.isOrthographic ? QStringLiteral("%1 high").arg(textOf(2 * camera.halfExtent.y()))
                                          : QStringLiteral("%1 degrees high")
                                                .arg(textOf(qRadiansToDegrees(camera.verticalFieldOfView)))));
    }
    rows.addList(QStringLiteral("Cameras"), entries);
    entries.clear();
    for (int i = 0; i < scene.lights.size(); ++i)
        entries.append(QStringLiteral("%1, %2").arg(called(scene.lights[i].name, i), nameOf(scene.lights[i].type)));
    rows.addList(QStringLiteral("Lights"), entries);
    rows.addList(QStringLiteral("Variants"), scene.variants);
    QStringList extensions = scene.extensionsUsed;
    for (QString &extension : extensions) {
        if (scene.extensionsRequired.contains(extension))
            extension += QStringLiteral(", required");
    }
    rows.addList(QStringLiteral("Extensions"), extensions);
    rows.add(QStringLiteral("GPU memory"), textOfBytes(facts.gpuBytes));
    return rows.toString();
}

} // namespace

CommandSpec infoCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("info");
    command.summary = QStringLiteral("Says what a model file holds.");
    command.detail = QStringLiteral(
        "Reads a model as kvz render does and says what it holds, without drawing it and without a driver: counts, "
        "bounds "
        "as placed and turned upright, materials, images, and the GPU memory that it takes. Warnings go to standard "
        "error. Files of points or lines alone are read too. With --up, --animation and --time the bounds are those of "
        "the picture that kvz render draws with them.");
    command.argument.name = QStringLiteral("MODEL");
    command.argument.help = QStringLiteral("Model file, see kvz formats; - is standard input.");
    command.argument.least = 1;
    command.argument.most = 1;
    command.argument.completion = Completion::File;
    command.examples = {
        {QStringLiteral("kvz info chair.glb"), QString()},
        {QStringLiteral("kvz info --json chair.glb | jq .triangles"), QStringLiteral("for scripts")},
    };
    command.options = modelOptionSpecs();
    command.options += optionSpec("json", "", "Prints one line of JSON, the warnings in it.");
    command.options += optionSpec("quiet", "", "Prints no warnings and no progress.");
    return command;
}

int runInfo(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(infoCommand(), arguments, &parser))
        return *status;

    setQuiet(parser.isSet(QStringLiteral("quiet")));
    ModelOptions options;
    if (const auto status = readModelOptions(parser, &options))
        return *status;
    options.import.needsTriangles = false;
    const QString model = parser.positionalArguments().constFirst();
    ImportedScene scene;
    QString error;
    if (!readModel(model, options, &scene, &error))
        return fail(error);
    if (parser.isSet(QStringLiteral("json"))) {
        print(QString::fromUtf8(QJsonDocument(jsonOf(model, scene)).toJson(QJsonDocument::Compact)));
        return Success;
    }
    for (const QString &warning : qAsConst(scene.warnings))
        warn(warning);
    print(describe(scene));
    return Success;
}

} // namespace Velmora::Kvz
