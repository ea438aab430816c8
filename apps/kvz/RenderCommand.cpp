// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"
#include "FileWatch.h"
#include "ProgressBar.h"
#include "RenderTarget.h"
#include "TimingTable.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/LightDescription.h>
#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <GL/GLErrors.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ImageWriter.h>
#include <Import/ModelImporter.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Velmora::Kvz {

namespace {

struct RenderOptions
{
    QString model;
    QString chain;
    QString output;
    QString captureFolder; // empty: no captures
    QSize size;
    int frames = 1;
    CameraView view;
    float orbit = 0; // degrees from frame to frame
    std::vector<LightDescription> lights; // empty: those of the chain
    bool floor = false;
    bool timings = false;
    bool watch = false;
};

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

/// Reads the command line; a value says that the command is done.
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

/// Why a chain cannot run, in one line; what does not keep it from running is told as warnings. `check` is the command that
/// lists all findings.
QString chainProblem(const QVector<ChainFinding> &findings, const QString &name, const QString &check)
{
    QVector<ChainFinding> errors;
    for (const ChainFinding &finding : findings) {
        if (finding.severity == ChainFinding::Severity::Error)
            errors.append(finding);
    }
    if (errors.isEmpty()) {
        for (const ChainFinding &finding : findings)
            warn(QStringLiteral("%1: %2").arg(name, finding.description()));
        return {};
    }
    const QString more = errors.size() > 1
        ? QStringLiteral(" (and %1 more, see %2 %3)").arg(QString::number(errors.size() - 1), check, name)
        : QString();
    return QStringLiteral("%1: %2%3").arg(name, errors.constFirst().toString(), more);
}

/// Whether a directory is there or can be made. Looks only, so that a failure leaves no empty directory.
bool canMakeFolder(const QString &folder)
{
    QFileInfo nearest(QDir(folder).absolutePath());
    while (!nearest.exists() && !nearest.isRoot())
        nearest.setFile(nearest.path());
    return nearest.isDir() && nearest.isWritable();
}

QString noFolder(const QString &folder)
{
    return QStringLiteral("%1: the directory cannot be made").arg(folder);
}

QString noMemory(const QSize &size)
{
    return QStringLiteral("--size %1x%2: there is no memory for the picture").arg(size.width()).arg(size.height());
}

/// All that pictures are rendered with.
struct Rendering
{
    RenderChain *chain;
    RenderTarget *target;
    const HeadlessContext &context;
    const RenderOptions &options;
    QVector<Camera> cameras; ///< Of each frame, or of all where it does not move.
};

/// The cameras of all frames, framed together; one where it does not move.
QVector<Camera> camerasOf(const QVector<QVector3D> &points, const RenderOptions &options)
{
    if (options.orbit == 0)
        return {framePoints(points, options.view, options.size)};
    QVector<float> turns;
    for (int frame = 0; frame < options.frames; ++frame)
        turns.append(options.orbit * float(frame + 1 - options.frames));
    return frameTurntable(points, options.view, turns, options.size);
}

/// Puts the camera where it is in a frame.
void setCamera(const Rendering &rendering, int frame)
{
    const Camera &camera = rendering.cameras[std::min(frame, rendering.cameras.size() - 1)];
    rendering.chain->setCamera(camera.cameraMatrix, camera.projectionMatrix);
    rendering.chain->setFrameValue(FrameValues::nearPlane, camera.nearPlane);
    rendering.chain->setFrameValue(FrameValues::farPlane, camera.farPlane);
}

/// Renders all frames; on failure the reason.
QString renderFrames(const Rendering &rendering, TimingTable *table)
{
    RenderChain *const chain = rendering.chain;
    const RenderOptions &options = rendering.options;
    ProgressBar progress(options.frames);
    for (int frame = 0; frame < options.frames; ++frame) {
        setCamera(rendering, frame);
        if (!options.captureFolder.isEmpty() && frame == options.frames - 1)
            chain->requestAllCaptures();
        if (!chain->renderFrame())
            return QStringLiteral("%1: %2").arg(options.chain, chain->errorString());
        const bool isPending = takeGLErrors() == GL_OUT_OF_MEMORY;
        if (ranOutOfGraphicsMemory() || isPending)
            return QStringLiteral("%1: out of graphics memory at --size %2x%3; try a smaller one")
                .arg(options.chain, QString::number(options.size.width()), QString::number(options.size.height()));
        if (options.timings)
            table->addFrame(chain);
        progress.show(frame + 1);
    }
    return {};
}

/// Such as "02-geometry-Normal.png": place in the chain, pass, role of the port.
QString captureFile(const RenderChain &chain, const RenderChain::Capture &capture)
{
    QString name =
        QStringLiteral("%1-%2-%3.png")
            .arg(QString::number(chain.description().findPass(capture.pass) + 1).rightJustified(2, QLatin1Char('0')),
                capture.pass, capture.port.section(QLatin1Char('_'), -1));
    return name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")), QStringLiteral("_"));
}

int writeResults(const Rendering &rendering)
{
    RenderChain *const chain = rendering.chain;
    const RenderOptions &options = rendering.options;
    QString error;
    const QImage picture = rendering.target->picture();
    if (picture.isNull())
        return fail(noMemory(options.size));
    if (!options.captureFolder.isEmpty() && !QDir().mkpath(options.captureFolder))
        return fail(noFolder(options.captureFolder));
    for (const RenderChain::Capture &capture : chain->takeCaptures()) {
        const QString file = QDir(options.captureFolder).filePath(captureFile(*chain, capture));
        if (!capture.image.isNull() && !writeImage(capture.image, file, &error))
            return fail(error);
    }
    if (!writeImage(picture, options.output, &error))
        return fail(error);
    return Success;
}

/// Renders the picture and writes all that was asked for.
int renderPicture(const Rendering &rendering)
{
    const RenderOptions &options = rendering.options;
    TimingTable table;
    const QString problem = renderFrames(rendering, &table);
    if (!problem.isEmpty())
        return fail(problem);
    const int status = writeResults(rendering);
    if (status == Success && options.timings)
        print(QStringLiteral("%1, %2x%3, %4\n%5")
                  .arg(options.chain, QString::number(options.size.width()), QString::number(options.size.height()),
                      rendering.context.renderer(), table.toString()));
    return status;
}

/// The shader files of a chain that can change: not those within the program.
QStringList filesToWatch(const RenderChain &chain)
{
    QStringList files = chain.shaderFiles();
    files.erase(std::remove_if(
                    files.begin(), files.end(), [](const QString &file) { return file.startsWith(QLatin1Char(':')); }),
        files.end());
    return files;
}

/// Renders now and after each change of a shader file, until a signal ends it.
int renderAndWatch(const Rendering &rendering)
{
    RenderChain *const chain = rendering.chain;
    const RenderOptions &options = rendering.options;
    const QStringList files = filesToWatch(*chain);
    if (files.isEmpty())
        return fail(QStringLiteral("--watch: the chain %1 has no shader files").arg(options.chain));
    FileWatch watch(files);
    if (const int status = renderPicture(rendering))
        return status;
    print(QStringLiteral("%1: rendered; watching %2").arg(options.output, files.join(QStringLiteral(", "))));
    std::fflush(stdout);
    while (watch.waitForChange()) {
        // Before they are read, so that a change meanwhile is seen as one.
        watch.setFiles(filesToWatch(*chain));
        if (!chain->reloadShaders()) {
            fail(QStringLiteral("%1: %2").arg(options.chain, chain->errorString()));
        } else {
            chain->resetTimings();
            rendering.target->clear();
            if (renderPicture(rendering) == Success)
                print(QStringLiteral("%1: rendered").arg(options.output));
        }
        std::fflush(stdout);
    }
    return Success;
}

int render(const ImportedScene &scene, const ResolvedChain &resolved, const RenderOptions &options)
{
    QString error;
    HeadlessContext::Options contextOptions;
    contextOptions.debug = false;
    const auto context = HeadlessContext::create(contextOptions, &error);
    if (!context)
        return fail(QStringLiteral("no usable OpenGL driver: %1").arg(error));
    const QSize largest = RenderTarget::largestSize();
    if (options.size.boundedTo(largest) != options.size)
        return fail(QStringLiteral("--size %1x%2: the limit of this driver is %3x%4")
                        .arg(options.size.width())
                        .arg(options.size.height())
                        .arg(largest.width())
                        .arg(largest.height()));
    const QString lack =
        chainProblem(validateChainOnDriver(resolved), options.chain, QStringLiteral("kvz check --driver"));
    if (!lack.isEmpty())
        return fail(lack);
    RenderTarget target(options.size);
    if (!target.isComplete())
        return fail(noMemory(options.size));
    SceneBuildOptions building;
    building.forBasicPasses = true;
    const QSharedPointer<GPUModel> model = scene.build(building);
    if (!model)
        return fail(QStringLiteral("%1: the driver cannot hold it").arg(options.model));

    RenderChain chain;
    const Rendering rendering{&chain, &target, *context, options, camerasOf(scene.points(), options)};
    chain.setViewport(QRect(QPoint(0, 0), options.size));
    setCamera(rendering, 0);
    chain.setModel(model.data());
    chain.setFramebuffer(target.framebuffer());
    chain.setTimingEnabled(options.timings);
    if (!chain.setDescription(resolved.description()))
        return fail(QStringLiteral("%1: %2").arg(options.chain, chain.errorString()));

    return options.watch ? renderAndWatch(rendering) : renderPicture(rendering);
}

} // namespace

int runRender(const QStringList &arguments)
{
    RenderOptions options;
    if (const auto status = readOptions(arguments, &options))
        return *status;

    // What can be known without a driver is said first.
    QString error;
    ChainDescription description;
    if (!loadChain(options.chain, &description, &error))
        return fail(error);
    if (!options.lights.empty())
        description.lights = options.lights;
    const ResolvedChain resolved(description);
    const QString problem = chainProblem(resolved.findings(), options.chain, QStringLiteral("kvz check"));
    if (!problem.isEmpty())
        return fail(problem);
    if (!resolved.presents()) {
        warn(QStringLiteral("%1: no enabled pass presents, so the picture is empty; add a TextureToScreenRenderPass")
                 .arg(options.chain));
    }
    if (description.lights.empty() && resolved.takesLights())
        warn(QStringLiteral("%1: it has no lights, so nothing casts a shadow; add --light").arg(options.chain));
    const QString outputProblem = imageFileProblem(options.output);
    if (!outputProblem.isEmpty())
        return fail(QStringLiteral("%1: %2").arg(options.output, outputProblem));
    if (!options.captureFolder.isEmpty() && !canMakeFolder(options.captureFolder))
        return fail(noFolder(options.captureFolder));
    ImportedScene scene;
    if (!importModel(options.model, &scene, &error))
        return fail(error);
    for (const QString &warning : qAsConst(scene.warnings))
        warn(warning);
    if (options.floor)
        addFloor(&scene);
    return render(scene, resolved, options);
}

} // namespace Velmora::Kvz
