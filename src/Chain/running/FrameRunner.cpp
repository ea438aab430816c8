// SPDX-License-Identifier: MIT
#include <Chain/running/FrameRunner.h>

#include <Chain/DecisiveLine.h>
#include <Chain/running/FrameResults.h>
#include <Chain/running/FrameTimes.h>
#include <Chain/running/ObjectIn.h>
#include <Chain/running/SlotList.h>
#include <Chain/running/TextureReferences.h>
#include <Core/Log.h>
#include <Core/RenderPass.h>
#include <GL/DrawBuffers.h>
#include <GL/FrameBounds.h>
#include <GL/GLErrors.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <Host/GLState.h>
#include <Scene/GPUModel.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QRect>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// A debug group for a scope, where the driver has them.
class DebugGroup
{
public:
    DebugGroup(bool isSupported, const QByteArray &label)
        : m_isSupported(isSupported)
    {
        if (m_isSupported)
            glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, 0, label.size(), label.constData());
    }
    ~DebugGroup()
    {
        if (m_isSupported)
            glPopDebugGroup();
    }

private:
    Q_DISABLE_COPY(DebugGroup)

    bool m_isSupported;
};

bool isMissing(const QVariant &value, ValueType type)
{
    switch (type) {
    case ValueType::Texture:
        return !objectIn<Texture>(value);
    case ValueType::Model:
        return !value.value<GPUModel *>();
    case ValueType::DrawBuffers: {
        if (value.userType() != QMetaType::QVariantList)
            return !objectIn<DrawBuffers>(value);
        const QVariantList list = value.toList();
        return std::any_of(
            list.begin(), list.end(), [](const QVariant &element) { return !objectIn<DrawBuffers>(element); });
    }
    default:
        return !value.isValid();
    }
}

/// Whether a pass presents to the default framebuffer.
bool presentsToScreen(const PassSlot &slot)
{
    if (!slot.info->traits.testFlag(PassTrait::Presents))
        return false;
    for (int i = 0; i < int(slot.inputs.size()); ++i) {
        const InputInfo &input = *slot.inputs[size_t(i)].info;
        const bool isDestination = input.type == ValueType::Framebuffer || input.drawnInto;
        if (isDestination && !isMissing(slot.inputValue(i), input.type))
            return false;
    }
    return true;
}

/// Does what a pass with that trait does to its models when it runs.
void resetCulling(const PassSlot &slot)
{
    if (!slot.traits.testFlag(PassTrait::ResetsCulling))
        return;
    for (int i = 0; i < int(slot.inputs.size()); ++i) {
        const auto model = slot.inputValue(i).value<GPUModel *>();
        if (model && slot.info->inputs[i].type == ValueType::Model)
            model->resetCulling();
    }
}

/// Whether a pass has nothing to do for want of lights.
bool isIdle(const PassSlot &slot)
{
    for (int i = 0; i < int(slot.inputs.size()); ++i) {
        if (slot.inputs[size_t(i)].info->idleWithoutLights && ShadowMapManager::lightsIn(slot.inputValue(i)).isEmpty())
            return true;
    }
    return false;
}

} // namespace

void FrameRunner::enterContext()
{
    m_state = std::make_unique<FrameState>();
    m_hasDebugGroups = epoxy_gl_version() >= 43 || epoxy_has_gl_extension("GL_KHR_debug");
}

void FrameRunner::beginFrame(const QSize &size, float sceneSize, bool isStill)
{
    m_manager = TextureManager::Instance();
    m_results->beginFrame();
    if (size != m_lastSize)
        m_manager->deleteUnusedTempTextures();
    m_lastSize = size;
    m_size = size;
    m_sceneSize = sceneSize;
    m_isStill = isStill;
    m_refusal.clear();
    ++m_frame;
}

void FrameRunner::beginPasses() const
{
    for (const auto &slot : *m_slots) {
        if (!slot->choosesObject())
            slot->active->beginFrame(nullptr);
    }
}

void FrameRunner::runPasses(bool keepsBindings)
{
    const bool isAllKnown = std::all_of(m_slots->begin(), m_slots->end(),
        [](const std::unique_ptr<PassSlot> &slot) { return slot->info->keepsStateKnown; });
    enterFrame(
        m_state.get(), isAllKnown && !keepsBindings ? FrameState::Bindings::Empty : FrameState::Bindings::Unknown);
    for (int i = 0; i < m_slots->size(); ++i) {
        PassSlot *const slot = &(*m_slots)[i];
        const FrameState::Suspension suspension(slot->info->keepsStateKnown ? nullptr : m_state.get());
        run(slot, i);
    }
    leaveFrame(m_state.get());
    m_manager->setHolderLabel(QString());
}

void FrameRunner::run(PassSlot *slot, int index)
{
    m_times->beginPass();
    slot->sceneSize = m_sceneSize;
    m_results->markCaptures(slot);
    for (const auto &habit : slot->habits)
        habit->prepare(&m_slots->objects(), m_frame);

    applyBaselineState(viewportOf(*slot), slot->info->clearColor.isValid() ? slot->info->clearColor : m_clearColor);
    m_manager->setHolderLabel(slot->name);
    TextureReferences references(m_manager);
    const InputInfo *missing = setInputs(slot, &references);
    const bool isNowhere = slot->enabled && !missing && presentsToScreen(*slot) && !hasScreen();
    if (slot->enabled && (missing || isNowhere) && !slot->saidMissing) {
        slot->saidMissing = true;
        KVZ_WARNING(
            QStringLiteral("pass \"%1\" is skipped: %2")
                .arg(slot->name,
                    isNowhere ? QStringLiteral("the context has no surface to present to; set a framebuffer, or "
                                               "disable the pass")
                              : QStringLiteral("%1 is null").arg(missing->name)));
    }
    if (slot->isCurrent && slot->enabled && !missing && slot->producedLights() == slot->lights)
        rest(slot, index);
    else
        startOrSkip(slot, index, slot->enabled && !missing && !isNowhere);
    const bool isRefused = reportRefusals(slot);
    if (isRefused)
        slot->isCurrent = false;
    reportFailure(slot, isRefused);
    references.balance(*slot);
    m_times->endPass(slot);
    m_results->capture(slot);
}

/// Whether the context has a default framebuffer; one without a surface has none. The driver is asked until it has one, so that
/// frames that are seen do not ask.
bool FrameRunner::hasScreen()
{
    if (m_hasScreen)
        return true;
    GLint bound = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &bound);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
    m_hasScreen = glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_UNDEFINED;
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(bound));
    return m_hasScreen;
}

/// Gives a pass its inputs and the numbers of its users. Returns a required input that is missing.
const InputInfo *FrameRunner::setInputs(PassSlot *slot, TextureReferences *references) const
{
    const InputInfo *missing = nullptr;
    for (int i = 0; i < int(slot->inputs.size()); ++i) {
        const SlotInput &input = slot->inputs[size_t(i)];
        QVariant value = slot->inputValue(i);
        for (const auto &habit : slot->habits)
            value = habit->adjusted(i, value);
        if (m_isStill && input.info->stillValue)
            value = *input.info->stillValue;
        if (input.info->restartsPast && slot->mustRestart && !slot->seesLoss)
            value = true;
        if (input.info->required && isMissing(value, input.info->type))
            missing = input.info;
        if (input.info->type == ValueType::Texture) {
            if (Texture *texture = objectIn<Texture>(value))
                references->hold(texture, input.producer);
        }
        slot->active->setInput(i, value);
    }
    for (size_t i = 0; i < slot->outputs.size(); ++i)
        slot->active->setNumOutputUsers(int(i), slot->outputs[i].references());
    return missing;
}

/// Starts a pass, or skips one that does not run or has nothing to do.
void FrameRunner::startOrSkip(PassSlot *slot, int index, bool runs) const
{
    const bool hasWork = runs && !isIdle(*slot);
    start(slot, index, hasWork);
    if (runs && !hasWork)
        resetCulling(*slot);
}

/// Starts or skips a pass.
void FrameRunner::start(PassSlot *slot, int index, bool runs) const
{
    slot->wasStarted = runs;
    slot->isCurrent = runs && slot->traits.testFlag(PassTrait::RestsUnchanged);
    if (slot->isCurrent)
        slot->lights = slot->producedLights();
    slot->timing.rests = false;
    if (runs) {
        slot->hasPast = slot->keepsPast();
        slot->mustRestart = false;
    }
    m_times->beginSpan(index);
    {
        const DebugGroup group(m_hasDebugGroups, slot->label);
        if (runs) {
            for (const auto &habit : slot->habits)
                habit->beforeStart();
            slot->active->start(nullptr);
            for (const auto &habit : slot->habits)
                habit->afterStart();
        } else {
            slot->active->skip(nullptr);
        }
    }
    m_times->endSpan(index);
}

/// Leaves the outputs of a pass as they are. What it does to models besides has to be done all the same.
void FrameRunner::rest(PassSlot *slot, int index) const
{
    slot->timing.rests = true;
    // An empty one: the timer reads the spans of all passes.
    m_times->beginSpan(index);
    m_times->endSpan(index);
    resetCulling(*slot);
}

QSize FrameRunner::viewportOf(const PassSlot &slot) const
{
    if (slot.viewportInput < 0)
        return m_size;
    const QRect viewport = slot.inputValue(slot.viewportInput).toRect();
    return viewport.isValid() ? viewport.size() : m_size;
}

/// Logs that a pass reports a failure, once per pass, and clears it for the next frame. Logs nothing when the reason
/// `isKnown`.
void FrameRunner::reportFailure(PassSlot *slot, bool isKnown)
{
    const unsigned int code = slot->active->errorCode();
    if (code == 0)
        return;
    slot->active->clearErrorCode();
    if (isKnown || slot->saidFailed)
        return;
    slot->saidFailed = true;
    // Where memory ran out, that is the reason.
    const bool noMemory = takeGLErrors() == GL_OUT_OF_MEMORY;
    const QString reason =
        noMemory ? QStringLiteral("out of graphics memory") : QStringLiteral("error code 0x%1").arg(code, 0, 16);
    KVZ_WARNING(QStringLiteral("pass \"%1\" failed: %2").arg(slot->name, reason));
}

/// Logs that the driver refused programs that a pass built or used in this frame, once for each message. Returns whether it
/// refused any.
bool FrameRunner::reportRefusals(PassSlot *slot)
{
    slot->refusals += takeRefusals();
    if (slot->refusals.isEmpty())
        return false;
    const QString log = slot->refusals.first().trimmed();
    slot->refusals.clear();
    const QString line =
        QStringLiteral("pass \"%1\": the driver refuses a program: %2").arg(slot->name, decisiveLine(log));
    if (m_refusal.isEmpty())
        m_refusal = line;
    if (slot->saidRefusal != line) {
        slot->saidRefusal = line;
        KVZ_WARNING(line);
    }
    return true;
}

void FrameRunner::endPasses() const
{
    for (const auto &slot : *m_slots) {
        for (size_t i = 0; i < slot->outputs.size(); ++i) {
            if (slot->outputs[i].isKept)
                slot->outputs[i].previous = slot->active->output(int(i));
        }
        slot->active->endFrame(nullptr);
    }
}

} // namespace Velmora::Kvz
