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

PictureRenderer::PictureRenderer(const RenderOptions &options, const ResolvedChain &resolved)
    : m_options(options),
      m_resolved(resolved)
{ }

PictureRenderer::~PictureRenderer() = default;

QString PictureRenderer::start()
{
    if (m_target)
        return {};
    QString error;
    HeadlessContext::Options contextOptions;
    contextOptions.debug = false;
    m_context = HeadlessContext::create(contextOptions, &error);
    if (!m_context)
        return QStringLiteral("no usable OpenGL driver: %1").arg(error);
    const QSize size = m_options.size;
    const QSize largest = RenderTarget::largestSize();
    if (size.boundedTo(largest) != size)
        return QStringLiteral("--size %1x%2: the limit of this driver is %3x%4")
            .arg(size.width())
            .arg(size.height())
            .arg(largest.width())
            .arg(largest.height());
    QVector<ChainFinding> findings = validateChainOnDriver(m_resolved);
    // Of shaders that do not compile the chain has all of the driver's lines.
    findings.erase(std::remove_if(findings.begin(), findings.end(),
                       [](const ChainFinding &finding) {
                           return finding.code == ChainFinding::Code::UnusableConfiguration
                               && finding.severity == ChainFinding::Severity::Error;
                       }),
        findings.end());
    const QString lack = chainProblem(findings, m_options.chain, QStringLiteral("kvz check --driver"));
    if (!lack.isEmpty())
        return lack;
    m_target = std::make_unique<RenderTarget>(size);
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
    m_target->clear();
    if (m_chain)
        return {};
    m_isFresh = true;
    m_chain = std::make_unique<RenderChain>();
    m_chain->setViewport(QRect(QPoint(0, 0), m_options.size));
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

QString PictureRenderer::draw(
    int picture, const CameraPath &path, bool captures, ProgressBar *progress, TimingTable *times, TimingTable *all)
{
    const QString problem = prepareChain();
    if (!problem.isEmpty())
        return problem;
    for (int sample = 0; sample < m_options.samples; ++sample) {
        setCamera(path.at(picture, sample));
        if (captures && sample == m_options.samples - 1)
            m_chain->requestAllCaptures();
        if (!m_chain->renderFrame())
            return QStringLiteral("%1: %2").arg(m_options.chain, m_chain->errorString());
        const bool isPending = takeGLErrors() == GL_OUT_OF_MEMORY;
        if (ranOutOfGraphicsMemory() || isPending)
            return QStringLiteral("%1: out of graphics memory at --size %2x%3; try a smaller one")
                .arg(
                    m_options.chain, QString::number(m_options.size.width()), QString::number(m_options.size.height()));
        if (m_options.timings) {
            m_chain->finishTimings();
            for (TimingTable *table : {times, all})
                table->addFrame(m_chain->timings(), m_isFresh && sample == 0);
            m_chain->resetTimings();
        }
        progress->step();
    }
    m_isFresh = false;
    return {};
}

} // namespace Velmora::Kvz
