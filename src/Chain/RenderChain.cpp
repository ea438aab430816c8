// SPDX-License-Identifier: MIT
#include <Chain/RenderChain.h>

#include <Chain/NearestNames.h>
#include <Chain/ResolvedPasses.h>
#include <Chain/running/ChainEditor.h>
#include <Chain/running/ContextClaim.h>
#include <Chain/running/FramePasts.h>
#include <Chain/running/FrameResults.h>
#include <Chain/running/FrameRunner.h>
#include <Chain/running/FrameTimes.h>
#include <Chain/running/FrameValueTable.h>
#include <Chain/running/HeldPicture.h>
#include <Chain/running/ObjectIn.h>
#include <Chain/running/Refinement.h>
#include <Chain/running/SlotList.h>
#include <Core/RenderPass.h>
#include <GL/CurrentContext.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderPreprocessor.h>
#include <GL/Texture.h>
#include <Host/GLState.h>
#include <Scene/GPUModel.h>

#include <QtCore/QFile>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

/// What a running chain consists of: the values of the frame, the chain as data and its edits, the slots of its passes, the runner of a
/// frame, and what comes out of it.
struct RenderChain::Private
{
    explicit Private(const PassRegistry &registry)
        : state(registry, values)
    { }

    FrameValueTable values;
    ChainState state;
    ChainEditor editor{&state};
    SlotList slots;
    FramePasts pasts{&slots, &values};
    quint64 followedRevision = 0; ///< The revision of the state that the slots reflect.
    quint64 followedNames = 0; ///< The revision of the values' names that the slots reflect.
    FrameResults results;
    FrameTimes times;
    FrameRunner runner{&slots, &results, &times};
    Refinement refinement;
    HeldPicture held;
    bool holdsPicture = false;
    bool restoresState = false;
    bool advancesModels = true;
    ContextClaim context; ///< The one that the passes belong to.
    int largestSide = 0; ///< Of a viewport in it.
    bool hasForeignPasses = false; ///< Has had passes of classes that are not this library's own.
    QString error;

    bool fail(const QString &text)
    {
        error = text;
        return false;
    }
    bool tell(bool done) { return done || fail(editor.error()); }

    /// As tell(), for a change of the chain after which nothing of the last frame is true.
    bool tellReplaced(bool done)
    {
        if (done)
            pasts.note(PastLoss::Everything);
        return tell(done);
    }
    QVector<QVariant> valueOf(const QString &pass, const QString &port) const;

    bool followChain();
    void enterContext();
    void leaveContext();
    bool checkViewports(QSize *size);
    bool checkViewport(const QString &owner, const QSize &size);
    QRect viewport() const { return values.value(FrameValues::viewport).toRect(); }
    bool hasChanged(FramePasts::HostRows rows) const;
    int remainingFrames();
    bool presentHeld(bool isSameChain);
    bool render();
    bool reloadShaders();
};

/// Brings the slots up to date with the chain. False for a chain with errors.
bool RenderChain::Private::followChain()
{
    const ResolvedChain &chain = state.resolved();
    if (hasErrors(chain.findings()))
        return fail(chain.errors().first());
    if (followedRevision == state.revision() && followedNames == values.namesRevision())
        return true;
    if (!slots.follow(chain, values, context.isCurrent()))
        times.discard();
    followedRevision = state.revision();
    followedNames = values.namesRevision();
    return true;
}

/// The value that the chain sets for an input, which may be an invalid one; empty where it sets none.
QVector<QVariant> RenderChain::Private::valueOf(const QString &pass, const QString &port) const
{
    const ChainDescription &chain = state.description();
    const int index = chain.findPass(pass);
    if (index < 0 || !chain.passes[index].values.contains(port))
        return {};
    return {chain.passes[index].values.value(port)};
}

void RenderChain::Private::enterContext()
{
    if (context.isCurrent())
        return;
    leaveContext();
    context.claim([this] { leaveContext(); });
    runner.enterContext();
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largestSide);
}

/// Deletes all passes. GL objects of a context that is not current only forget their names.
void RenderChain::Private::leaveContext()
{
    context.stopListening();
    const bool isCurrent = context.isCurrent();
    results.releaseExports(); // In a context that shares textures they are still there.
    times.leaveContext(isCurrent);
    held.leaveContext();
    refinement.forget();
    pasts.leaveContext();
    slots.leaveContext(isCurrent);
    runner.leaveContext();
    context.release();
}

bool RenderChain::Private::checkViewport(const QString &owner, const QSize &size)
{
    const int limit = largestSide;
    if (!size.isEmpty() && size.width() <= limit && size.height() <= limit)
        return true;
    return fail(QStringLiteral("%1viewport of %2 by %3 pixels: each side must be from 1 to %4")
                    .arg(owner, QString::number(size.width()), QString::number(size.height()), QString::number(limit)));
}

/// Checks the viewport of the frame, whose size it gives, and those that enabled passes have of their own.
bool RenderChain::Private::checkViewports(QSize *size)
{
    const QVariant *const viewport = values.find(FrameValues::viewport);
    if (!viewport)
        return fail(QStringLiteral("no viewport: set %1").arg(FrameValues::viewport));
    *size = viewport->toRect().size();
    if (!checkViewport({}, *size))
        return false;
    return std::all_of(slots.begin(), slots.end(), [&](const std::unique_ptr<PassSlot> &slot) {
        if (!slot->enabled || slot->viewportInput < 0)
            return true;
        const QVariant *own = slot->inputs[size_t(slot->viewportInput)].value;
        return !own || !own->isValid()
            || checkViewport(QStringLiteral("pass \"%1\": ").arg(slot->name), own->toRect().size());
    });
}

/// Whether anything has changed since the last frame that a frame would show.
bool RenderChain::Private::hasChanged(FramePasts::HostRows rows) const
{
    return !refinement.hasFrame() || pasts.haveChanged(viewport().size(), rows);
}

/// How many more frames refine the picture, as things are now; -1 without an end.
int RenderChain::Private::remainingFrames()
{
    if (hasErrors(state.resolved().findings()) || !followChain())
        return 0;
    return hasChanged(FramePasts::HostRows::Unknown) ? framesToSettle(slots) : refinement.remaining();
}

/// Presents the held picture in place of a frame. False where a frame has to be rendered.
bool RenderChain::Private::presentHeld(bool isSameChain)
{
    if (!held.isHeld())
        return false;
    const bool isStillTrue = isSameChain && holdsPicture && !hasChanged(FramePasts::HostRows::Bound)
        && !results.wantsCaptures(slots) && results.hasExports(state.description().exports);
    if (isStillTrue && held.present(slots, viewport()))
        return true;
    held.drop();
    return false;
}

bool RenderChain::Private::render()
{
    QSize size;
    // One question for the frame; passes of others may make contexts current for a while.
    CurrentContextScope scope;
    if (!currentContextHandle())
        return fail(QStringLiteral("no current OpenGL context"));
    if (hasForeignPasses || !context.isCurrent())
        scope.end();
    enterContext();
    const quint64 shownRevision = followedRevision;
    if (!followChain() || !checkViewports(&size))
        return false;
    hasForeignPasses = hasForeignPasses
        || std::any_of(slots.begin(), slots.end(),
            [](const std::unique_ptr<PassSlot> &slot) { return !slot->info->keepsStateKnown; });
    if (hasForeignPasses)
        scope.end();
    if (slots.usesBounds())
        values.updateBounds();
    if (presentHeld(shownRevision == followedRevision))
        return true;
    const bool isChange = pasts.beginFrame(size);
    slots.objects().deleteRetired(true);
    takeRefusals(); // Earlier failures do not belong to this frame.
    if (!slots.makePasses(&error))
        return false;

    runner.beginFrame(size, values.sceneSize(), pasts.isStill());
    pasts.usePasts();
    std::unique_ptr<SavedGLState> found;
    if (restoresState)
        found = std::make_unique<SavedGLState>();

    times.beginFrame(slots);
    runner.beginPasses();
    runner.runPasses(restoresState);
    runner.endPasses();
    results.endFrame(slots, state.description().exports);
    times.endFrame(slots);
    pasts.endFrame(advancesModels);

    refinement.noteFrame(isChange, framesToSettle(slots));
    if (!runner.refusal().isEmpty())
        refinement.noteFailure();
    else if (holdsPicture && refinement.remaining() == 0)
        held.take(slots, viewport());
    if (found)
        found->restore();
    return runner.refusal().isEmpty() || fail(runner.refusal());
}

bool RenderChain::Private::reloadShaders()
{
    enterContext();
    if (hasErrors(state.resolved().findings()))
        state.resolveAgain(); // A file that was missing may be there now.
    if (!followChain() || !slots.remakeShaderPasses(&error))
        return false;
    pasts.note(PastLoss::Everything);
    return true;
}

RenderChain::RenderChain(const PassRegistry &registry)
    : d(new Private(registry))
{ }

RenderChain::~RenderChain()
{
    d->context.stopListening();
    const bool isCurrent = d->context.isCurrent();
    d->results.releaseExports();
    d->times.leaveContext(isCurrent);
    d->held.leaveContext();
    d->pasts.leaveContext();
    d->slots.retireAll(isCurrent);
}

// --- the chain -----------------------------------------------------------------------------------------------------

bool RenderChain::setDescription(const ChainDescription &description)
{
    d->values.setChainLights(description.lights);
    d->pasts.note(PastLoss::Everything);
    d->error.clear();
    d->state.replace(description);
    const QStringList errors = d->state.resolved().errors();
    return errors.isEmpty() || d->fail(errors.first());
}

const ChainDescription &RenderChain::description() const
{
    return d->state.description();
}

QVector<ChainFinding> RenderChain::findings() const
{
    return d->state.findings();
}

QString RenderChain::errorString() const
{
    return d->error;
}

bool RenderChain::setValue(const QString &pass, const QString &port, const QVariant &value)
{
    const QVector<QVariant> before = d->valueOf(pass, port);
    if (!d->tell(d->editor.setValue(pass, port, value)))
        return false;
    if (before != d->valueOf(pass, port))
        d->pasts.noteValue(pass, port);
    return true;
}

bool RenderChain::clearValue(const QString &pass, const QString &port)
{
    const bool wasSet = !d->valueOf(pass, port).isEmpty();
    if (!d->tell(d->editor.clearValue(pass, port)))
        return false;
    if (wasSet)
        d->pasts.noteValue(pass, port);
    return true;
}

bool RenderChain::setEnabled(const QString &pass, bool enabled)
{
    const int index = description().findPass(pass);
    const bool isChange = index >= 0 && description().passes[index].enabled != enabled;
    const bool done = d->editor.setEnabled(pass, enabled);
    return isChange ? d->tellReplaced(done) : d->tell(done);
}

bool RenderChain::connect(const QString &pass, const QString &port, const ChainSource &source)
{
    return d->tellReplaced(d->editor.connect(pass, port, source));
}

bool RenderChain::disconnect(const QString &pass, const QString &port)
{
    return d->tellReplaced(d->editor.disconnect(pass, port));
}

bool RenderChain::setOption(const QString &pass, const QString &option, const QVariant &value)
{
    return d->tellReplaced(d->editor.setOption(pass, option, value));
}

bool RenderChain::addExport(const QString &name, const ChainOutput &output)
{
    return d->tell(d->editor.addExport(name, output));
}

bool RenderChain::removeExport(const QString &name)
{
    return d->tell(d->editor.removeExport(name));
}

RenderChain::InputSource RenderChain::inputSource(const QString &pass, const QString &port) const
{
    InputSource found;
    int index, number;
    if (!d->tell(d->editor.findInput(pass, port, &index, &number)))
        return found;
    const ResolvedPasses &passes = d->state.resolved().passes();
    const ResolvedInput &input = passes[index].inputs[size_t(number)];
    found.isExplicit = input.isExplicit;
    switch (input.source) {
    case ResolvedInput::Source::Default:
        break;
    case ResolvedInput::Source::Value:
        found.kind = InputSource::Kind::Value;
        break;
    case ResolvedInput::Source::Output:
    case ResolvedInput::Source::Previous:
        found.kind =
            input.source == ResolvedInput::Source::Output ? InputSource::Kind::Output : InputSource::Kind::Previous;
        found.pass = description().passes[input.pass].name;
        found.port = passes.outputOf(input).name;
        break;
    case ResolvedInput::Source::FrameValue:
        if (!d->values.find(input.frameValue))
            break;
        found.kind = InputSource::Kind::FrameValue;
        found.port = input.frameValue;
        break;
    }
    return found;
}

// --- values of the frame -------------------------------------------------------------------------------------------

void RenderChain::setFrameValue(const QString &port, const QVariant &value)
{
    d->values.set(port, value);
}

QVariant RenderChain::frameValue(const QString &port) const
{
    return d->values.value(port);
}

QStringList RenderChain::frameValueNames() const
{
    return d->values.names();
}

void RenderChain::setViewport(const QRect &viewport)
{
    setFrameValue(FrameValues::viewport, viewport);
}

void RenderChain::setCamera(const QMatrix4x4 &camera, const QMatrix4x4 &projection)
{
    setFrameValue(FrameValues::cameraMatrix, camera);
    setFrameValue(FrameValues::projectionMatrix, projection);
}

void RenderChain::setModel(GPUModel *model)
{
    setFrameValue(FrameValues::model, model ? QVariant::fromValue(model) : QVariant());
}

void RenderChain::setFramebuffer(FramebufferObject *framebuffer)
{
    setFrameValue(FrameValues::framebuffer, framebuffer ? QVariant::fromValue(framebuffer) : QVariant());
}

// --- the frame -----------------------------------------------------------------------------------------------------

bool RenderChain::renderFrame()
{
    d->error.clear();
    return d->render();
}

void RenderChain::forgetPast()
{
    d->pasts.note(PastLoss::Everything);
}

bool RenderChain::needsFrame() const
{
    if (hasErrors(d->state.resolved().findings()))
        return false;
    const bool isChange = d->hasChanged(FramePasts::HostRows::Unknown) || d->results.wantsCaptures(d->slots)
        || d->followedRevision != d->state.revision();
    return isChange || (!d->refinement.isFailure() && d->refinement.remaining() != 0);
}

bool RenderChain::converged() const
{
    return !d->refinement.isFailure() && d->refinement.hasFrame() && framesToConvergence() == 0;
}

int RenderChain::framesToConvergence() const
{
    return d->remainingFrames();
}

void RenderChain::setHoldsPicture(bool holds)
{
    d->holdsPicture = holds;
    if (!holds)
        d->held.drop();
}

bool RenderChain::holdsPicture() const
{
    return d->holdsPicture;
}

QStringList RenderChain::shaderFiles() const
{
    QStringList files = d->state.resolved().shaderFiles();
    for (const QString &name : QStringList(files)) {
        QFile file(name);
        if (file.open(QIODevice::ReadOnly)) {
            const QString source = QString::fromUtf8(file.readAll());
            files += ShaderPreprocessor(GL_FRAGMENT_SHADER, source, name, nullptr).includedFiles();
        }
    }
    files.removeDuplicates();
    return files;
}

bool RenderChain::reloadShaders()
{
    d->error.clear();
    if (!OpenGLDeviceContext::currentHandle())
        return d->fail(QStringLiteral("no current OpenGL context"));
    return d->reloadShaders();
}

void RenderChain::releaseContext()
{
    d->leaveContext();
}

void RenderChain::setClearColor(const QColor &color)
{
    if (color != d->runner.clearColor())
        d->pasts.note(PastLoss::Means);
    d->runner.setClearColor(color);
}

void RenderChain::setRestoresState(bool restores)
{
    d->restoresState = restores;
}

void RenderChain::setAdvancesModels(bool advances)
{
    d->advancesModels = advances;
}

// --- results -------------------------------------------------------------------------------------------------------

QVariant RenderChain::exportedValue(const QString &name) const
{
    return d->results.exportedValue(d->slots, description().exports, name);
}

Texture *RenderChain::exportedTexture(const QString &name) const
{
    return objectIn<Texture>(exportedValue(name));
}

void RenderChain::releaseExports()
{
    d->results.releaseExports();
}

bool RenderChain::requestCapture(const ChainOutput &output)
{
    const int index = description().findPass(output.pass);
    const PassInfo *info = index < 0 ? nullptr : d->state.resolved().passes()[index].info.get();
    const int port = info ? info->findOutput(output.port) : -1;
    if (port < 0 || !FrameResults::holdsImage(info->outputs[port]))
        return d->fail(QStringLiteral("no image \"%1\" in this chain").arg(output.toString()));
    if (!d->followChain())
        return false;
    d->slots[index].outputs[size_t(port)].isCaptured = true;
    return true;
}

void RenderChain::requestAllTexels()
{
    d->results.requestAllTexels();
}

void RenderChain::requestAllCaptures()
{
    d->results.requestAllCaptures();
}

QVector<RenderChain::Capture> RenderChain::takeCaptures()
{
    return d->results.takeCaptures();
}

void RenderChain::setTimingEnabled(bool enabled)
{
    d->times.setEnabled(enabled);
}

bool RenderChain::isTimingEnabled() const
{
    return d->times.isEnabled();
}

QVector<RenderChain::PassTiming> RenderChain::timings() const
{
    return d->times.timings(d->slots);
}

void RenderChain::finishTimings()
{
    if (d->context.isCurrent())
        d->times.finish(d->slots);
}

void RenderChain::resetTimings()
{
    d->times.reset(d->slots);
}

RenderPass *RenderChain::pass(const QString &name) const
{
    const PassSlot *slot = d->slots.find(name);
    return slot ? slot->active : nullptr;
}

int RenderChain::passObjectCount() const
{
    return d->slots.objectCount();
}

} // namespace Velmora::Kvz
