// SPDX-License-Identifier: MIT
#include "ChainSettings.h"
#include "Commands.h"
#include "Console.h"
#include "FileWatch.h"
#include "ModelInput.h"
#include "PictureList.h"
#include "PictureOutput.h"
#include "PictureRenderer.h"
#include "RenderOutputs.h"

#include <Chain/LinearLight.h>

#include <QtCore/QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Velmora::Kvz {

namespace {

/// Milliseconds since the last question.
class Stopwatch
{
public:
    Stopwatch() { m_timer.start(); }
    double lap()
    {
        const double milliseconds = double(m_timer.nsecsElapsed()) * 1e-6;
        return milliseconds - std::exchange(m_last, milliseconds);
    }

private:
    QElapsedTimer m_timer;
    double m_last = 0;
};

/// Whether a camera frames the model with some of the background beside it.
bool isFramed(const CameraChoice &camera)
{
    return camera.fileCamera.isEmpty() && !camera.view.hasEye && !camera.view.hasTarget && camera.view.distance >= 1;
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

/// A call of the command: its models one after another, each with all its pictures.
class RenderCall
{
public:
    RenderCall(const RenderOptions &options, const ResolvedChain &resolved, const QVector<Picture> &pictures)
        : m_options(options),
          m_pictures(pictures),
          m_scales((resolved.has(PassTrait::Obscures) || resolved.takesLights()) && !options.hasPlaces()),
          m_shades(resolved.has(PassTrait::Shades) && resolved.has(PassTrait::Presents)),
          m_endsInLight(endsInLight(resolved)),
          m_renderer(options, resolved),
          m_progress(pictures.size(), options.samples)
    { }

    int run();

private:
    bool beginModel(int model, int *status);
    QString drawAndWrite(const Picture &picture);
    void warnOf(const PictureOutput &output, const Picture &picture) const;
    int watch();
    void printTimings() const;

    const RenderOptions &m_options;
    const QVector<Picture> &m_pictures;
    const bool
        m_scales; ///< Models come to one size, for passes whose constants are lengths: obscurance, cascades of shadows.
    const bool m_shades; ///< The chain shows a shaded model.
    const bool m_endsInLight; ///< It gives light in place of display values.
    PictureRenderer m_renderer;
    ProgressBar m_progress;
    TimingTable m_times;
    Stopwatch m_clock;
    PhaseTimes m_phases; ///< Of the next picture.
    QVector<CameraPath> m_paths; ///< Of the present model.
};

/// Reads a model and makes it the present one. False when that fails: the status says whether the others may still be drawn.
bool RenderCall::beginModel(int model, int *status)
{
    const QString name = displayName(m_options.models[model]);
    QString error;
    ImportedScene scene;
    m_clock.lap();
    *status = Success;
    if (!readModel(m_options.models[model], m_options.reading, &scene, &error)) {
        fail(error);
        return false;
    }
    for (const QString &warning : qAsConst(scene.warnings))
        warn(warning);
    const int materials = scene.materials.size();
    if (m_options.floor)
        addFloor(&scene);
    const int floorMaterial = scene.materials.size() > materials ? materials : -1;
    if (m_scales)
        scaleInto(&scene, 4);
    const QVector<QVector3D> points = scene.points();
    if (!CameraPath::make(points, scene.cameras, m_options, &m_paths, &error)) {
        fail(QStringLiteral("%1: %2").arg(name, error));
        return false;
    }
    for (int i = 0; i < m_paths.size(); ++i) {
        if (m_paths[i].looksPast(points))
            warn(QStringLiteral("%1: --camera %2 looks past it").arg(name, m_options.cameras[i].text));
    }
    m_phases.load = m_clock.lap();
    error = m_renderer.start();
    if (!error.isEmpty()) {
        *status = fail(error);
        return false;
    }
    error = m_renderer.setModel(scene, name, floorMaterial);
    scene.releaseImages(); // The model has copies.
    if (!error.isEmpty()) {
        fail(error);
        return false;
    }
    m_phases.upload = m_clock.lap();
    return true;
}

/// What a picture does not hold although it may be expected.
void RenderCall::warnOf(const PictureOutput &output, const Picture &picture) const
{
    const QString name = m_options.writesToStandardOutput() ? QStringLiteral("the picture") : picture.file;
    if (m_shades && isFramed(m_options.cameras[picture.camera]) && output.isPlain())
        warn(QStringLiteral("%1: nothing of it stands out from the background of %2")
                 .arg(displayName(m_options.models[picture.model]), name));
    if (m_options.written.format.depth == 16 && output.holdsBytesAlone())
        warn(QStringLiteral("%1: the chain %2 ends in 8 bits a channel, and so the 16 of the picture hold no more")
                 .arg(name, m_options.chain));
    if (!output.missingLayers().isEmpty())
        warn(QStringLiteral("%1: no layers for what is no image of the picture's size: %2")
                 .arg(name, output.missingLayers().join(QStringLiteral(", "))));
}

/// Returns why it cannot.
QString RenderCall::drawAndWrite(const Picture &picture)
{
    TimingTable times;
    PictureOutput output(picture, m_options, m_endsInLight);
    QString error = m_renderer.draw(picture, m_paths[picture.camera], &output, &m_progress, &times, &m_times);
    if (!error.isEmpty())
        return error;
    m_phases.draw = m_clock.lap() - output.writingMilliseconds();
    warnOf(output, picture);
    if (!writeCaptures(picture, m_renderer.chain(), &error))
        return error;
    error = output.finish();
    if (!error.isEmpty())
        return error;
    m_phases.write = m_clock.lap() + output.writingMilliseconds();
    if (m_options.json) {
        print(describePicture(picture, m_options, m_phases, times, m_renderer.renderer()));
        std::fflush(stdout); // Whoever reads the lines wants each when its picture is there.
    }
    m_phases = PhaseTimes();
    return {};
}

int RenderCall::run()
{
    const int warningsOfAll = warnings().size();
    int result = Success;
    int next = 0;
    while (next < m_pictures.size()) {
        const int model = m_pictures[next].model;
        const auto end = std::find_if(m_pictures.begin() + next, m_pictures.end(),
            [model](const Picture &picture) { return picture.model != model; });
        const int last = int(end - m_pictures.begin());
        int status = Success;
        keepWarnings(warningsOfAll);
        if (!beginModel(model, &status)) {
            if (status != Success)
                return status;
            result = BadInput;
            m_progress.skip((last - next) * m_options.samples);
            next = last;
            continue;
        }
        if (m_options.watch)
            return watch();
        for (; next < last; ++next) {
            const QString error = drawAndWrite(m_pictures[next]);
            if (!error.isEmpty())
                return fail(error);
        }
    }
    printTimings();
    return result;
}

void RenderCall::printTimings() const
{
    if (!m_options.timings || m_options.json || m_times.isEmpty())
        return;
    print(QStringLiteral("%1, %2x%3, %4\n%5")
              .arg(m_options.chain, QString::number(m_options.size.width()), QString::number(m_options.size.height()),
                  m_renderer.renderer(), m_times.toString()));
}

/// Renders the only picture now and after each change of a shader file, until a signal ends it.
int RenderCall::watch()
{
    const Picture &picture = m_pictures.first();
    QString error = m_renderer.prepareChain();
    if (!error.isEmpty())
        return fail(error);
    const QStringList files = filesToWatch(*m_renderer.chain());
    if (files.isEmpty())
        return fail(QStringLiteral("--watch: the chain %1 has no shader files").arg(m_options.chain));
    FileWatch watch(files);
    error = drawAndWrite(picture);
    if (!error.isEmpty())
        return fail(error);
    printTimings();
    print(QStringLiteral("%1: rendered; watching %2").arg(picture.file, files.join(QStringLiteral(", "))));
    std::fflush(stdout);
    while (watch.waitForChange()) {
        RenderChain *const chain = m_renderer.chain();
        // Before they are read, so that a change meanwhile is seen as one.
        watch.setFiles(filesToWatch(*chain));
        m_times = TimingTable();
        error = chain->reloadShaders() ? drawAndWrite(picture)
                                       : QStringLiteral("%1: %2").arg(m_options.chain, chain->errorString());
        if (error.isEmpty()) {
            printTimings();
            print(QStringLiteral("%1: rendered").arg(picture.file));
        } else {
            fail(error);
        }
        std::fflush(stdout);
    }
    return Success;
}

} // namespace

int runRender(const QStringList &arguments)
{
    RenderOptions options;
    if (const auto status = readOptions(arguments, &options))
        return *status;

    // What can be known without a driver is said first.
    QString error;
    const std::unique_ptr<ResolvedChain> resolved = resolveChain(options, &error);
    if (!resolved)
        return fail(error);
    QVector<Picture> pictures;
    if (!listPictures(options, &pictures, &error))
        return fail(error);
    return RenderCall(options, *resolved, pictures).run();
}

} // namespace Velmora::Kvz
