// SPDX-License-Identifier: MIT
#include "RenderOptions.h"

#include "Console.h"

#include <QtCore/QRegularExpression>

#include <cmath>

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

} // namespace

std::optional<int> readOptions(const QStringList &arguments, RenderOptions *options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Renders a model through a chain of passes into a picture, without a window and\n"
                       "on any OpenGL 3.2 driver, software included. The picture is what a screen would\n"
                       "show: opaque. An existing file is replaced only when the new picture is complete,\n"
                       "and stays as it was when anything goes wrong."));
    parser.addPositionalArgument(
        QStringLiteral("MODEL"), QStringLiteral("Model file: OBJ, glTF, GLB, PLY, STL, 3DS and others. Y is up."));
    const QCommandLineOption output({QStringLiteral("o"), QStringLiteral("output")},
        QStringLiteral("The picture to write, such as out.png. Required."), QStringLiteral("FILE"));
    const QCommandLineOption chain(QStringLiteral("chain"),
        QStringLiteral("Name of a ready chain, or a chain file. Default: deferred."), QStringLiteral("NAME|FILE"),
        QStringLiteral("deferred"));
    const QCommandLineOption size(QStringLiteral("size"),
        QStringLiteral("Size of the picture in pixels. Default: 1280x720."), QStringLiteral("WxH"),
        QStringLiteral("1280x720"));
    const QCommandLineOption frames(QStringLiteral("frames"),
        QStringLiteral("Frames to render; the last one is the picture. Default: 1."), QStringLiteral("N"),
        QStringLiteral("1"));
    const QCommandLineOption camera(QStringLiteral("camera"),
        QStringLiteral(
            "Where to look from: AZIMUTH,ELEVATION[,DISTANCE] in degrees, where the model just fits at distance "
            "1; front, back, left, right, top, bottom or iso; or eye=X,Y,Z, optionally with target=X,Y,Z. ortho "
            "gives parallel rays, fov=DEGREES sets the vertical field of view. Parts are joined by \":\", as in "
            "30,20:fov=50. Default: 30,20,1:fov=35."),
        QStringLiteral("VIEW"), QStringLiteral("30,20"));
    const QCommandLineOption orbit(QStringLiteral("orbit"),
        QStringLiteral(
            "Turns the camera around the model by this angle between frames, at one distance at which it fits "
            "in all of them; the last frame has VIEW. Needs --frames 2 or more. Default: 0."),
        QStringLiteral("DEGREES"), QStringLiteral("0"));
    const QCommandLineOption light(QStringLiteral("light"),
        QStringLiteral("A light that casts shadows; repeat it for several. They replace the chain's lights. "
                       "directional, spot or point, then AZIMUTH,ELEVATION[,DISTANCE] in degrees and scene radii, or "
                       "position=X,Y,Z; target=X,Y,Z, cone=DEGREES, range=LENGTH, intensity=NUMBER, cascades=N and "
                       "bias=NUMBER as needed, joined by \":\", as in spot:-60,40,1.5:cone=30."),
        QStringLiteral("LIGHT"));
    const QCommandLineOption floor(QStringLiteral("floor"),
        QStringLiteral("Puts a grey floor under the model for shadows to fall on, as a part of the scene."));
    const QCommandLineOption capture(QStringLiteral("capture"),
        QStringLiteral("Also writes each image output of each pass of the last frame into this directory."),
        QStringLiteral("DIR"));
    const QCommandLineOption timings(
        QStringLiteral("timings"), QStringLiteral("Prints a table of GPU and CPU milliseconds for each pass."));
    const QCommandLineOption watch(QStringLiteral("watch"),
        QStringLiteral("Runs until Ctrl+C and renders again whenever a shader file of the chain changes. A change that "
                       "does not compile is reported, and the last picture stays."));
    parser.addOptions({output, chain, size, frames, camera, orbit, light, floor, capture, timings, watch});
    if (const auto status = parseCommandLine(&parser, arguments, 1, 1))
        return status;
    if (!parser.isSet(output))
        return failUsage(QStringLiteral("no picture is named: -o FILE is missing"));

    options->model = parser.positionalArguments().constFirst();
    options->chain = parser.value(chain);
    options->output = parser.value(output);
    options->captureFolder = parser.value(capture);
    options->timings = parser.isSet(timings);
    options->watch = parser.isSet(watch);
    options->floor = parser.isSet(floor);
    const QString sizeProblem = readSize(parser.value(size), &options->size);
    if (!sizeProblem.isEmpty())
        return fail(QStringLiteral("--size %1: %2").arg(parser.value(size), sizeProblem));
    options->frames = parser.value(frames).toInt();
    if (options->frames < 1)
        return fail(QStringLiteral("--frames %1: expected a number of frames, 1 or more").arg(parser.value(frames)));
    QString cameraProblem;
    if (!CameraView::fromString(parser.value(camera), &options->view, &cameraProblem))
        return fail(QStringLiteral("--camera %1").arg(cameraProblem));
    bool orbitFits = false;
    options->orbit = parser.value(orbit).toFloat(&orbitFits);
    if (!orbitFits || !std::isfinite(options->orbit))
        return fail(QStringLiteral("--orbit %1: expected degrees, such as 2.5").arg(parser.value(orbit)));
    if (options->orbit != 0 && options->frames == 1)
        return fail(QStringLiteral("--orbit %1: the camera turns between frames; add --frames with 2 or more")
                        .arg(parser.value(orbit)));
    for (const QString &text : parser.values(light)) {
        LightDescription described;
        QString problem;
        if (!LightDescription::fromString(text, &described, &problem))
            return fail(QStringLiteral("--light %1").arg(problem));
        options->lights.push_back(described);
    }
    return std::nullopt;
}

} // namespace Velmora::Kvz
