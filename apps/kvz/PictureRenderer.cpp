// SPDX-License-Identifier: MIT
#include "PictureRenderer.h"

#include "ChainSettings.h"
#include "Console.h"
#include "RenderOutputs.h"

#include <Chain/ChainValidation.h>
#include <GL/GLErrors.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <cstdlib>

namespace Velmora::Kvz {

namespace {

QString inPixels(const QSize &size)
{
    return QStringLiteral("%1x%2").arg(size.width()).arg(size.height());
}

} // namespace

PictureRenderer::PictureRenderer(const RenderOptions &options, const ResolvedChain &resolved)
    : m_options(options),
      m_resolved(resolved),
      m_tiling(resolved, options.size),
      m_drawnSize(options.size)
{ }

PictureRenderer::~PictureRenderer() = default;

QString PictureRenderer::start()
{
    if (m_context)
        return {};
    QString error;
    HeadlessContext::Options contextOptions;
    contextOptions.debug = false;
    m_context = HeadlessContext::create(contextOptions, &error);
    if (!m_context)
        return QStringLiteral("no usable OpenGL driver: %1").arg(error);
    error = chooseTiles();
    if (!error.isEmpty())
        return error;
    QVector<ChainFinding> findings = validateChainOnDriver(m_resolved);
    // Of shaders that do not compile the chain has all of the driver's lines.
    findings.erase(std::remove_if(findings.begin(), findings.end(),
                       [](const ChainFinding &finding) {
                           return finding.code == ChainFinding::Code::UnusableConfiguration
                               && finding.severity == ChainFinding::Severity::Error;
                       }),
        findings.end());
    const QString lack = chainProblem(findings, m_options.chain, QStringLiteral("kvz check --driver"));
    return lack.isEmpty() && !m_tileSide ? ensureTarget() : lack;
}

/// Decides how large a part of a picture is drawn at a time.
QString PictureRenderer::chooseTiles()
{
    constexpr int usualSide = 2048;
    const QSize size = m_options.size;
    const QSize largest = RenderTarget::largestSize();
    const bool isBeyond = size.boundedTo(largest) != size;
    const int asked = m_options.written.tile;
    if (!isBeyond && (!asked || (size.width() <= asked && size.height() <= asked)))
        return {};
    const QString beyond =
        QStringLiteral("--size %1: the limit of this driver is %2").arg(inPixels(size), inPixels(largest));
    const QString problem = m_tiling.problem();
    if (!problem.isEmpty())
        return asked
            ? QStringLiteral("--tile %1: %2: %3").arg(QString::number(asked), m_options.chain, problem)
            : QStringLiteral("%1, and it cannot be drawn in tiles: %2: %3").arg(beyond, m_options.chain, problem);
    if (!m_options.captureFolder.isEmpty())
        return QStringLiteral("%1, and --capture wants whole images; leave it out to draw in tiles").arg(beyond);
    m_tileSide = asked ? asked : usualSide;
    m_drawnSize = size.boundedTo(QSize(m_tileSide, m_tileSide));
    if (!asked)
        warn(QStringLiteral("%1; drawn in tiles of up to %2").arg(beyond, inPixels(QSize(usualSide, usualSide))));
    return {};
}

/// The tiles of a picture; without tiling it is one of its own.
QString PictureRenderer::listTiles(int picture, const CameraPath &path, QVector<PictureTile> *tiles) const
{
    const QRect whole(QPoint(0, 0), m_options.size);
    *tiles = {{whole, whole}};
    if (!m_tileSide)
        return {};
    QVector<Camera> cameras;
    for (int sample = 0; sample < m_options.samples; ++sample)
        cameras.append(path.at(picture, sample));
    const auto bounds = m_model->sceneBounds();
    const QVector3D extent = bounds.second - bounds.first;
    *tiles = m_tiling.tiles(m_tileSide, cameras, std::max({extent.x(), extent.y(), extent.z()}));
    const QSize largest = RenderTarget::largestSize();
    for (const PictureTile &tile : qAsConst(*tiles)) {
        if (tile.drawn.size().boundedTo(largest) != tile.drawn.size())
            return QStringLiteral(
                "--tile %1: with what filters read around it a tile takes %2, and the limit of this driver is "
                "%3; give a smaller one")
                .arg(QString::number(m_tileSide), inPixels(tile.drawn.size()), inPixels(largest));
    }
    return {};
}

QString PictureRenderer::ensureTarget()
{
    if (m_target && m_drawnSize.boundedTo(m_target->size()) == m_drawnSize)
        return {};
    const QSize size = m_target ? m_drawnSize.expandedTo(m_target->size()) : m_drawnSize;
    m_target.reset(); // Before the new one takes memory.
    m_target = std::make_unique<RenderTarget>(size, m_options.written.needsFloats());
    if (m_chain)
        m_chain->setFramebuffer(m_target->framebuffer());
    return m_target->isComplete() ? QString() : noMemory(size);
}

QString PictureRenderer::setModel(const ImportedScene &scene, const QString &name, int floorMaterial)
{
    SceneBuildOptions building;
    building.imageBudget = m_options.imageBudget;
    building.forBasicPasses = m_resolved.has(PassTrait::BasicSurfaces);
    building.forPhysicalPasses = m_resolved.has(PassTrait::PhysicalSurfaces);
    const bool hasColours = std::any_of(
        scene.meshes.begin(), scene.meshes.end(), [](const ImportedMesh &mesh) { return !mesh.colours.isEmpty(); });
    if (building.forBasicPasses && hasColours)
        warn(QStringLiteral("%1: the chain %2 shows no vertex colours").arg(name, m_resolved.description().name));
    if (scene.hasMasks() && m_resolved.takesLights())
        warn(QStringLiteral("%1: masked surfaces cast shadows without their holes").arg(name));
    const bool isSeenThrough = std::any_of(scene.items.begin(), scene.items.end(),
        [](const ImportedItem &item) { return (item.featureFlags & ImportedScene::Transparent) != 0; });
    if (isSeenThrough && m_resolved.takesLights())
        warn(QStringLiteral("%1: transparent surfaces cast shadows as if they were opaque").arg(name));
    const QSharedPointer<GPUModel> model = scene.build(building);
    if (!model)
        return QStringLiteral("%1: the driver cannot hold it").arg(name);
    // The chain lets go of the old one first.
    const QSharedPointer<GPUModel> old = m_model;
    m_model = model;
    m_floorMaterial = floorMaterial;
    if (m_chain)
        giveModel();
    return {};
}

/// Tells the chain about the model, and passes that know a floor, where the chain names none, about the one that was added.
void PictureRenderer::giveModel()
{
    m_chain->setModel(m_model.data());
    m_chain->setFrameValue(
        QStringLiteral("Kvz_int_FloorMaterialId"), m_floorMaterial < 0 ? QVariant() : QVariant(m_floorMaterial));
}

QString PictureRenderer::prepareChain()
{
    if (m_chain && !m_isFresh && m_resolved.keepsPast())
        m_chain.reset();
    const QString lack = ensureTarget();
    if (!lack.isEmpty())
        return lack;
    m_target->clear();
    if (m_chain)
        return {};
    m_isFresh = true;
    m_chain = std::make_unique<RenderChain>();
    m_chain->setViewport(QRect(QPoint(0, 0), m_drawnSize));
    if (m_options.written.needsFloats())
        m_chain->setFrameValue(QStringLiteral("Kvz_bool_RenderInHDR"), true);
    giveModel();
    m_chain->setFramebuffer(m_target->framebuffer());
    m_chain->setTimingEnabled(m_options.timings);
    if (!m_chain->setDescription(m_resolved.description()))
        return QStringLiteral("%1: %2").arg(m_options.chain, m_chain->errorString());
    return {};
}

void PictureRenderer::setCamera(const Camera &camera)
{
    m_chain->setCamera(camera.cameraMatrix, camera.projectionMatrix);
    m_chain->setFrameValue(FrameValues::nearPlane, camera.nearPlane);
    m_chain->setFrameValue(FrameValues::farPlane, camera.farPlane);
}

QString PictureRenderer::draw(const Picture &picture, const CameraPath &path, PictureOutput *output,
    ProgressBar *progress, TimingTable *times, TimingTable *all)
{
    QVector<PictureTile> tiles;
    QString problem = listTiles(picture.frame, path, &tiles);
    for (int i = 0; i < tiles.size() && problem.isEmpty(); ++i) {
        if (tiles.size() > 1 && canShowProgress())
            showProgress(QStringLiteral("tile %1 of %2").arg(i + 1).arg(tiles.size()));
        m_drawnSize = tiles[i].drawn.size();
        problem = prepareChain();
        if (problem.isEmpty())
            problem = drawFrames(picture, path, tiles[i], i + 1 == tiles.size() ? progress : nullptr, times, all);
        if (problem.isEmpty()) {
            const bool hasLayers = m_options.written.layers;
            problem =
                output->add(tiles[i], *m_target, hasLayers ? m_chain->takeCaptures() : QVector<RenderChain::Capture>());
        }
    }
    if (tiles.size() > 1 && canShowProgress())
        showProgress(QString());
    m_isFresh = false;
    return problem;
}

QString PictureRenderer::drawFrames(const Picture &picture, const CameraPath &path, const PictureTile &tile,
    ProgressBar *progress, TimingTable *times, TimingTable *all)
{
    for (int sample = 0; sample < m_options.samples; ++sample) {
        const Camera &whole = path.at(picture.frame, sample);
        if (m_tileSide && sample == 0)
            m_tiling.begin(m_chain.get(), tile);
        if (m_tileSide)
            m_tiling.setWholeCamera(m_chain.get(), whole);
        setCamera(m_tileSide ? m_tiling.cameraOf(whole, tile) : whole);
        if (sample == m_options.samples - 1 && m_options.written.layers)
            m_chain->requestAllTexels();
        else if (sample == m_options.samples - 1 && !picture.captureFolder.isEmpty())
            m_chain->requestAllCaptures();
        if (!m_chain->renderFrame())
            return QStringLiteral("%1: %2").arg(m_options.chain, m_chain->errorString());
        const bool isPending = takeGLErrors() == GL_OUT_OF_MEMORY;
        if (ranOutOfGraphicsMemory() || isPending)
            return QStringLiteral("%1: out of graphics memory at --size %2; try a smaller one%3")
                .arg(m_options.chain, inPixels(m_options.size),
                    m_tileSide || !m_options.captureFolder.isEmpty() ? QString() : QStringLiteral(", or --tile 1024"));
        if (m_options.timings) {
            m_chain->finishTimings();
            for (TimingTable *table : {times, all})
                table->addFrame(m_chain->timings(), m_isFresh && sample == 0);
            m_chain->resetTimings();
        }
        if (progress)
            progress->step();
    }
    return {};
}

} // namespace Velmora::Kvz
