// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"
#include "FileWatch.h"
#include "ProgressBar.h"
#include "RenderCameras.h"
#include "RenderOptions.h"
#include "RenderOutputs.h"
#include "RenderTarget.h"
#include "TimingTable.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <GL/GLErrors.h>
#include <Host/HeadlessContext.h>
#include <Import/ModelImporter.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <cstdio>

namespace Velmora::Kvz {

namespace {

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

/// All that pictures are rendered with.
struct Rendering
{
    RenderChain *chain;
    RenderTarget *target;
    const HeadlessContext &context;
    const RenderOptions &options;
    QVector<Camera> cameras; ///< Of each frame, or of all where it does not move.
};

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

/// Renders the picture and writes all that was asked for.
int renderPicture(const Rendering &rendering)
{
    const RenderOptions &options = rendering.options;
    TimingTable table;
    const QString problem = renderFrames(rendering, &table);
    if (!problem.isEmpty())
        return fail(problem);
    const int status = writeResults(rendering.target->picture(), rendering.chain, options);
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
    const QSharedPointer<GPUModel> model = scene.build();
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
    const QString noPlace = outputProblem(options);
    if (!noPlace.isEmpty())
        return fail(noPlace);
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
