// SPDX-License-Identifier: MIT
#include "RenderOptions.h"

#include "Commands.h"
#include "Console.h"

#include <Chain/ChainValue.h>
#include <ExtraPasses/EnvironmentLightRenderPass.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>
#include <QtGui/QImageReader>

#include <algorithm>
#include <cmath>
#include <limits>

#include <unistd.h>

namespace Velmora::Kvz {

namespace {

/// What --size says; its error says why it will not do.
QString readSize(const QString &text, QSize *size)
{
    const QRegularExpression form(QStringLiteral("^(-?\\d+)x(-?\\d+)$"));
    const QRegularExpressionMatch match = form.match(text);
    bool widthFits = false;
    bool heightFits = false;
    *size = QSize(match.captured(1).toInt(&widthFits), match.captured(2).toInt(&heightFits));
    if (!match.hasMatch())
        return QStringLiteral("expected WIDTHxHEIGHT in pixels, such as 1280x720");
    if (!widthFits || !heightFits)
        return QStringLiteral("too large");
    if (size->isEmpty())
        return QStringLiteral("width and height must be 1 or more");
    return {};
}

/// A view, or what may be a camera of the file: nothing but the file tells which names those have.
bool readCamera(const QString &text, CameraChoice *camera, QString *problem)
{
    static const QRegularExpression mayBeName(QStringLiteral("^[^,=:]+$"));
    static const QString ofFile = QStringLiteral("file=");
    camera->text = text;
    if (text.startsWith(ofFile) && text != ofFile)
        camera->fileCamera = text.mid(ofFile.size());
    else if (!CameraView::fromString(text, &camera->view, problem)) {
        if (!mayBeName.match(text).hasMatch())
            return false;
        camera->fileCamera = text;
    }
    return true;
}

/// Exposures beyond this leave nothing of any picture.
constexpr float mostStops = 64;

/// Why a text that is no colour is no picture to lay behind a model either; empty where it is one.
QString imageProblem(const QString &text)
{
    const QFileInfo file(text);
    if (!file.exists())
        return QStringLiteral("expected a colour, such as white or #ff8800, none, environment, or an image file");
    QImageReader reader(text);
    reader.setDecideFormatFromContent(true);
    return file.isFile() && reader.canRead() ? QString() : QStringLiteral("no image can be read from this file");
}

/// The command line as it is read, with the first problem in it.
class OptionReader
{
public:
    OptionReader(const QCommandLineParser &parser, RenderOptions *options)
        : m_parser(parser),
          m_options(*options)
    { }

    /// A value is an exit status, after an error was printed.
    std::optional<int> read();

private:
    QString value(const char *option) const { return m_parser.value(QLatin1String(option)); }
    QStringList values(const char *option) const { return m_parser.values(QLatin1String(option)); }
    bool isSet(const char *option) const { return m_parser.isSet(QLatin1String(option)); }

    std::optional<int> readModels();
    std::optional<int> readPictures();
    std::optional<int> readFrames();
    std::optional<int> readOutputs();
    std::optional<int> readLights();
    std::optional<int> readBackground();
    std::optional<int> readLook();
    std::optional<int> readWritten();
    std::optional<int> readCount(const char *option, const char *what, int *count);

    const QCommandLineParser &m_parser;
    RenderOptions &m_options;
};

std::optional<int> OptionReader::read()
{
    if (!isSet("output"))
        return failUsage(QStringLiteral("no picture is named: -o FILE is missing"));
    m_options.chain = value("chain");
    m_options.settings = values("set");
    m_options.floor = isSet("floor");
    m_options.timings = isSet("timings");
    m_options.watch = isSet("watch");
    m_options.quiet = isSet("quiet");
    m_options.json = isSet("json");
    for (const auto step : {&OptionReader::readModels, &OptionReader::readPictures, &OptionReader::readFrames,
             &OptionReader::readOutputs, &OptionReader::readLights, &OptionReader::readBackground,
             &OptionReader::readLook, &OptionReader::readWritten}) {
        if (const auto status = (this->*step)())
            return status;
    }
    return std::nullopt;
}

std::optional<int> OptionReader::readModels()
{
    m_options.models = m_parser.positionalArguments();
    if (const auto status = readModelOptions(m_parser, &m_options.reading))
        return status;
    bool isNumber = false;
    constexpr qint64 mebibyte = 1 << 20;
    const qint64 budget = value("image-budget").toLongLong(&isNumber);
    if (!isNumber || budget < 1 || budget > std::numeric_limits<qint64>::max() / mebibyte)
        return fail(
            QStringLiteral("--image-budget %1: expected a number of MiB, 1 or more").arg(value("image-budget")));
    m_options.imageBudget = budget * mebibyte;
    return std::nullopt;
}

std::optional<int> OptionReader::readPictures()
{
    const QString sizeProblem = readSize(value("size"), &m_options.size);
    if (!sizeProblem.isEmpty())
        return fail(QStringLiteral("--size %1: %2").arg(value("size"), sizeProblem));
    for (const QString &text : values("camera")) {
        CameraChoice camera;
        QString problem;
        if (!readCamera(text, &camera, &problem))
            return fail(QStringLiteral("--camera %1").arg(problem));
        m_options.cameras.append(camera);
    }
    return std::nullopt;
}

std::optional<int> OptionReader::readCount(const char *option, const char *what, int *count)
{
    *count = value(option).toInt();
    if (*count >= 1)
        return std::nullopt;
    return fail(QStringLiteral("--%1 %2: expected a number of %3, 1 or more")
                    .arg(QLatin1String(option), value(option), QLatin1String(what)));
}

std::optional<int> OptionReader::readFrames()
{
    m_options.output = value("output");
    m_options.captureFolder = value("capture");
    QString problem;
    if (!NameTemplate::fromString(m_options.output, &m_options.outputName, &problem))
        return fail(QStringLiteral("-o %1").arg(problem));
    if (!NameTemplate::fromString(m_options.captureFolder, &m_options.captureName, &problem))
        return fail(QStringLiteral("--capture %1").arg(problem));

    const bool countsPictures = m_options.outputName.has(QStringLiteral("frame"));
    if (!countsPictures && isSet("frames") && isSet("samples"))
        return failUsage(
            QStringLiteral("--frames and --samples mean the same where -o has no {frame}; give one of them"));
    if (const auto status = readCount("samples", "frames", &m_options.samples))
        return status;
    if (const auto status = readCount("frames", "frames", &m_options.frames))
        return status;
    if (!countsPictures && isSet("frames"))
        m_options.samples = m_options.frames;
    if (!countsPictures)
        m_options.frames = 1;

    bool orbitFits = false;
    m_options.orbit = value("orbit").toFloat(&orbitFits);
    m_options.turnsFromPictureToPicture = countsPictures;
    if (!orbitFits || !std::isfinite(m_options.orbit))
        return fail(QStringLiteral("--orbit %1: expected degrees, such as 2.5").arg(value("orbit")));
    if (m_options.orbit != 0 && countsPictures && m_options.frames == 1)
        return fail(QStringLiteral("--orbit %1: the camera turns from picture to picture; add --frames with 2 or more")
                        .arg(value("orbit")));
    if (m_options.orbit != 0 && !countsPictures && m_options.samples == 1)
        return fail(
            QStringLiteral("--orbit %1: the camera turns between frames; put {frame} into -o and add --frames with "
                           "2 or more")
                .arg(value("orbit")));
    return std::nullopt;
}

std::optional<int> OptionReader::readOutputs()
{
    if (m_options.writesToStandardOutput()) {
        for (const char *other : {"json", "timings", "watch"}) {
            if (isSet(other))
                return failUsage(QStringLiteral("-o - and --%1 both want standard output").arg(QLatin1String(other)));
        }
        if (isatty(STDOUT_FILENO))
            return failUsage(QStringLiteral("-o -: standard output is a terminal; send it into a file or a program"));
    }
    constexpr qint64 most = 1000000;
    if (qint64(m_options.models.size()) * m_options.cameras.size() * m_options.frames > most)
        return fail(QStringLiteral("--frames %1: one call draws at most %2 pictures").arg(value("frames")).arg(most));
    if (m_options.watch && m_options.pictureCount() > 1)
        return failUsage(QStringLiteral("--watch renders one picture, not %1").arg(m_options.pictureCount()));
    if (m_options.watch && m_options.json)
        return failUsage(QStringLiteral("--watch and --json do not go together"));
    if (m_options.frames > 1 && m_options.orbit == 0)
        warn(QStringLiteral("--frames %1: nothing moves from picture to picture; add --orbit").arg(value("frames")));
    return std::nullopt;
}

std::optional<int> OptionReader::readLights()
{
    for (const QString &text : values("light")) {
        LightDescription described;
        QString problem;
        if (!LightDescription::fromString(text, &described, &problem))
            return fail(QStringLiteral("--light %1").arg(problem));
        m_options.lights.push_back(described);
    }
    const auto has = [this](LightDescription::Kind kind) {
        return std::any_of(m_options.lights.begin(), m_options.lights.end(),
            [kind](const LightDescription &light) { return light.kind == kind; });
    };
    using Kind = LightDescription::Kind;
    if (has(Kind::None) && (has(Kind::Headlight) || has(Kind::Ambient)))
        return fail(QStringLiteral("--light none: it takes the place of headlight and ambient light; leave them out"));
    return std::nullopt;
}

std::optional<int> OptionReader::readBackground()
{
    if (!isSet("background"))
        return std::nullopt;
    const QString text = value("background");
    if (text == QLatin1String("environment")) {
        m_options.look.environmentAsBackground = true;
        return std::nullopt;
    }
    QVariant colour = QColor(0, 0, 0, 0);
    if (text != QLatin1String("none") && !convertValue(text, ValueType::Color, &colour)) {
        const QString problem = imageProblem(text);
        if (!problem.isEmpty())
            return fail(QStringLiteral("--background %1: %2").arg(text, problem));
        m_options.look.backgroundImage = QDir::current().absoluteFilePath(text);
        return std::nullopt;
    }
    m_options.background = colour.value<QColor>();
    static const QStringList withoutAlpha{QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("bmp"),
        QStringLiteral("ppm"), QStringLiteral("pbm"), QStringLiteral("pgm"), QStringLiteral("xbm")};
    const QString suffix = QFileInfo(m_options.output).suffix().toLower();
    if (m_options.hasTransparentBackground() && withoutAlpha.contains(suffix)) {
        return fail(
            QStringLiteral("-o %1: pictures of this type have no alpha, which --background %2 needs; write a PNG")
                .arg(m_options.output, text));
    }
    return std::nullopt;
}

std::optional<int> OptionReader::readLook()
{
    ChainLook &look = m_options.look;
    if (isSet("environment")) {
        const QString text = value("environment");
        const QString problem = EnvironmentLightRenderPass::problemWith(text);
        if (!problem.isEmpty())
            return fail(QStringLiteral("--environment %1: %2").arg(text, problem));
        const bool isBuiltIn = EnvironmentLightRenderPass::builtInNames().contains(text);
        look.environment = isBuiltIn ? text : QDir::current().absoluteFilePath(text);
    }
    if (isSet("environment-rotation")) {
        bool isNumber = false;
        look.environmentRotation = value("environment-rotation").toFloat(&isNumber);
        if (!isNumber || !std::isfinite(*look.environmentRotation))
            return fail(QStringLiteral("--environment-rotation %1: expected degrees, such as 90")
                            .arg(value("environment-rotation")));
    }
    if (isSet("exposure")) {
        const QString text = value("exposure");
        bool isNumber = true;
        look.automaticExposure = text == QLatin1String("auto");
        look.exposure = *look.automaticExposure ? 0.0f : text.toFloat(&isNumber);
        if (!isNumber || !(std::abs(*look.exposure) <= mostStops))
            return fail(QStringLiteral("--exposure %1: expected stops from -%2 to %2, such as -0.5, or auto")
                            .arg(text)
                            .arg(double(mostStops)));
    }
    if (isSet("tone-map")) {
        static const QStringList names{QStringLiteral("neutral"), QStringLiteral("filmic"), QStringLiteral("none")};
        const int index = names.indexOf(value("tone-map"));
        if (index < 0)
            return fail(QStringLiteral("--tone-map %1: expected %2")
                            .arg(value("tone-map"), names.join(QStringLiteral(" or "))));
        look.toneMapping = ChainLook::ToneMapping(index);
    }
    if (isSet("transparency")) {
        const QString text = value("transparency");
        look.sortsTransparency = text == QLatin1String("sorted");
        if (!*look.sortsTransparency && text != QLatin1String("weighted"))
            return fail(QStringLiteral("--transparency %1: expected sorted or weighted").arg(text));
    }
    if (isSet("no-ground"))
        look.ground = false;
    return std::nullopt;
}

std::optional<int> OptionReader::readWritten()
{
    return readOutputOptions(
        m_parser, m_options.output, m_options.size, m_options.hasTransparentBackground(), &m_options.written);
}

} // namespace

bool RenderOptions::hasPlaces() const
{
    return std::any_of(cameras.begin(), cameras.end(),
               [](const CameraChoice &camera) { return camera.view.hasEye || camera.view.hasTarget; })
        || std::any_of(lights.begin(), lights.end(),
            [](const LightDescription &light) { return light.hasPosition || light.hasTarget || light.range > 0; });
}

std::optional<int> readOptions(const QStringList &arguments, RenderOptions *options)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(renderCommand(), arguments, &parser))
        return status;
    setQuiet(parser.isSet(QStringLiteral("quiet")));
    return OptionReader(parser, options).read();
}

} // namespace Velmora::Kvz
