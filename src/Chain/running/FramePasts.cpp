// SPDX-License-Identifier: MIT
#include <Chain/running/FramePasts.h>

#include <Chain/FrameValues.h>
#include <Chain/running/FrameValueTable.h>
#include <Chain/running/SlotList.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/ModelPast.h>
#include <Scene/ShadowMapManager.h>

#include <algorithm>
#include <utility>

namespace Velmora::Kvz {

namespace {

GPUModel *modelIn(const QVariant &value)
{
    return value.userType() == qMetaTypeId<GPUModel *>() ? value.value<GPUModel *>() : nullptr;
}

/// Whether a pass keeps a picture that a velocity leads on.
bool reprojects(const PassSlot &slot)
{
    return slot.traits.testFlag(PassTrait::AccumulatesFrames) && slot.traits.testFlag(PassTrait::Reprojects);
}

/// Whether a pass keeps a mean of frames, or a picture that nothing leads on.
bool averages(const PassSlot &slot)
{
    return slot.traits.testFlag(PassTrait::AccumulatesFrames) && !slot.traits.testFlag(PassTrait::Reprojects);
}

/// Whether earlier frames matter to what a pass does. Marks of culling stay when a pass stops setting them.
bool dependsOnPast(const PassSlot &slot)
{
    return slot.keepsPast() || slot.traits.testFlag(PassTrait::Culls);
}

/// Whether an input takes its value from the frame's value of this name.
bool takes(const SlotInput &input, const QVariant *value, const QString &name)
{
    return (value && input.value == value) || (!input.producer && input.info->name == name);
}

bool isView(const QString &name)
{
    return name == FrameValues::cameraMatrix || name == FrameValues::projectionMatrix;
}

/// Whether another value of this name says nothing: the size, models and lights are looked at for themselves, and where the picture
/// goes does not matter.
bool isFollowedApart(const QString &name)
{
    return name == FrameValues::viewport || name == FrameValues::framebuffer || name == FrameValues::model
        || name == FrameValues::lights;
}

/// Whether what a pass makes of its lights may depend on the view: the layers of directional ones divide it.
bool followsView(const PassSlot &slot)
{
    return std::any_of(slot.inputs.begin(), slot.inputs.end(), [](const SlotInput &input) {
        if (input.info->type != ValueType::Lights)
            return false;
        // Those of another pass may be gone until it runs again.
        if (input.producer)
            return true;
        const QVector<ShadowMapManager::Light *> lights =
            input.value ? ShadowMapManager::lightsIn(*input.value) : QVector<ShadowMapManager::Light *>();
        return std::any_of(lights.begin(), lights.end(), [](const ShadowMapManager::Light *light) {
            return ShadowMapManager::valuesOf(*light).type == ShadowMapManager::Light::Directional;
        });
    });
}

/// Whether all that a pass takes is looked at for changes: of what other passes make only lights, and no rows of the host.
bool isFollowed(const PassSlot &slot)
{
    return std::all_of(slot.inputs.begin(), slot.inputs.end(), [](const SlotInput &input) {
        const bool hasRows =
            input.info->type == ValueType::InstanceData && input.value && !input.value->toList().isEmpty();
        return (!input.producer || input.info->type == ValueType::Lights) && !hasRows;
    });
}

/// Whether a pass takes the frame's own view, all of it, and so starts over by itself when that changes.
bool seesView(const PassSlot &slot, const FrameValueTable &values)
{
    const auto ofView = [&](const SlotInput &input) {
        const QString &name = input.info->name;
        return (isView(name) || name == FrameValues::viewport) && input.value && input.value == values.find(name);
    };
    return std::count_if(slot.inputs.begin(), slot.inputs.end(), ofView) == 3;
}

} // namespace

FramePasts::~FramePasts() = default;

void FramePasts::note(PastLoss loss)
{
    m_noted = std::max(m_noted, loss);
}

void FramePasts::noteValue(const QString &pass, const QString &port)
{
    const PassSlot *const slot = m_slots.find(pass);
    const int input = slot ? slot->info->findInput(port) : -1;
    // Another mode, size or image of a pass that has a past: its past is of another kind.
    const bool isOfPast = input >= 0 && dependsOnPast(*slot) && !slot->info->inputs[input].restartsPast;
    note(isOfPast ? PastLoss::Everything : PastLoss::Means);
}

bool FramePasts::haveChanged(const QSize &size, HostRows rows) const
{
    const QSet<QString> &values = m_values.changes();
    return m_noted != PastLoss::None || m_size != size
        || std::any_of(values.begin(), values.end(), [](const QString &name) { return !isFollowedApart(name); })
        || lossSince(look(), rows) != PastLoss::None;
}

bool FramePasts::beginFrame(const QSize &size)
{
    const Changes changes = findChanges(size);
    wake(changes);
    forgetWhere(changes.loss);
    m_areModelsNew = m_areModelsNew || changes.loss == PastLoss::Everything;
    return changes.loss != PastLoss::None;
}

FramePasts::Changes FramePasts::findChanges(const QSize &size)
{
    Changes changes;
    changes.loss = std::exchange(m_noted, PastLoss::None);
    m_hasViewChanged = false;
    m_changedValues.clear();
    changes.inScene = changes.loss != PastLoss::None;
    if (std::exchange(m_size, size) != size) {
        m_hasViewChanged = true;
        m_changedValues.append(FrameValues::viewport);
        changes.loss = PastLoss::Everything;
    }
    // Each of these also keeps what the next frame is compared with.
    changes.loss = std::max(changes.loss, lossOfValues());
    Seen seen = look();
    const PastLoss found = lossSince(seen, HostRows::Bound);
    changes.inScene = changes.inScene || found != PastLoss::None;
    changes.loss = std::max(changes.loss, found);
    for (Model &model : seen.models) {
        const auto known = std::find_if(m_seen.models.begin(), m_seen.models.end(),
            [&](const Model &other) { return other.serialNumber == model.serialNumber; });
        if (known != m_seen.models.end())
            model.past = known->past;
    }
    m_seen = std::move(seen);
    changes.inView = m_hasViewChanged;
    return changes;
}

/// Has the passes run again whose outputs a change makes untrue.
void FramePasts::wake(const Changes &changes)
{
    const auto takesChanged = [this](const PassSlot &slot) {
        return std::any_of(m_changedValues.begin(), m_changedValues.end(), [&](const QString &name) {
            const QVariant *const value = m_values.find(name);
            return std::any_of(slot.inputs.begin(), slot.inputs.end(),
                [&](const SlotInput &input) { return takes(input, value, name); });
        });
    };
    for (const auto &slot : m_slots) {
        if (slot->isCurrent
            && (changes.inScene || (changes.inView && followsView(*slot)) || takesChanged(*slot) || !isFollowed(*slot)))
            slot->isCurrent = false;
    }
}

PastLoss FramePasts::lossOfValues()
{
    static const QStringList standardNames = FrameValues::standardNames();
    PastLoss loss = PastLoss::None;
    for (const QString &name : m_values.takeChanges()) {
        if (isFollowedApart(name))
            continue;
        if (isView(name))
            m_hasViewChanged = true;
        else
            m_changedValues.append(name);
        loss = std::max(loss, PastLoss::Means);
        if (standardNames.contains(name))
            continue;
        const QVariant *const value = m_values.find(name);
        const bool isOfPast = std::any_of(m_slots.begin(), m_slots.end(), [&](const std::unique_ptr<PassSlot> &slot) {
            return dependsOnPast(*slot)
                && std::any_of(slot->inputs.begin(), slot->inputs.end(),
                    [&](const SlotInput &input) { return takes(input, value, name) && !input.info->restartsPast; });
        });
        if (isOfPast)
            loss = PastLoss::Everything;
    }
    return loss;
}

FramePasts::Seen FramePasts::look() const
{
    Seen seen;
    const auto addModel = [&seen](const QVariant &value) {
        GPUModel *const model = modelIn(value);
        if (model && std::none_of(seen.models.begin(), seen.models.end(), [&](const Model &known) {
                return known.model == model;
            }))
            seen.models.push_back({model, model->serialNumber(), model->matrixRevision(), nullptr});
    };
    for (const auto &value : m_values.all())
        addModel(value.second);
    for (const auto &slot : m_slots) {
        for (const SlotInput &input : slot->inputs) {
            if (input.value)
                addModel(*input.value);
        }
    }

    static const QString plans[] = {QStringLiteral("InstanceInfo"), QStringLiteral("TavoInstance"),
        QStringLiteral("OBJMaterial"), QStringLiteral("SurfaceMaterial")};
    for (size_t i = 0; i < 2; ++i) {
        seen.rows.matrices[i] = InstanceDataCollection::boundRevision(plans[i]);
        seen.rows.materials[i] = InstanceDataCollection::boundRevision(plans[2 + i]);
    }

    // Only where they are taken: a host may have deleted others.
    std::vector<const QVariant *> taken;
    for (const auto &slot : m_slots) {
        if (!slot->enabled)
            continue;
        for (const SlotInput &input : slot->inputs) {
            if (input.info->type == ValueType::Lights && input.value
                && std::find(taken.begin(), taken.end(), input.value) == taken.end())
                taken.push_back(input.value);
        }
    }
    for (const QVariant *lights : taken)
        seen.lights.add(*lights);
    return seen;
}

/// What is lost of what the last frame has seen.
PastLoss FramePasts::lossSince(const Seen &seen, HostRows rows) const
{
    const auto isSame = [](const Model &a, const Model &b) { return a.serialNumber == b.serialNumber; };
    const auto isWhereItWas = [](const Model &a, const Model &b) { return a.matrixRevision == b.matrixRevision; };
    const std::vector<Model> &known = m_seen.models;
    const bool areRowsBound = rows == HostRows::Bound;
    if (!std::equal(seen.models.begin(), seen.models.end(), known.begin(), known.end(), isSame)
        || (areRowsBound && seen.rows.materials != m_seen.rows.materials))
        return PastLoss::Everything;
    const bool isStill = std::equal(seen.models.begin(), seen.models.end(), known.begin(), isWhereItWas)
        && (!areRowsBound || seen.rows.matrices == m_seen.rows.matrices) && seen.lights == m_seen.lights;
    return isStill ? PastLoss::None : PastLoss::Means;
}

void FramePasts::forgetWhere(PastLoss loss)
{
    bool reprojectingRun = false;
    bool reprojectingKeep = false;
    bool averagingRun = false;
    bool averagingKeep = false;
    for (const auto &slot : m_slots) {
        slot->seesLoss = m_hasViewChanged && averages(*slot) && seesView(*slot, m_values);
        // One that was passed over has a past from before the last frame.
        const bool wasPassedOver = slot->hasPast && !slot->wasStarted;
        slot->wasStarted = false;
        if (loss == PastLoss::Everything || wasPassedOver || (loss == PastLoss::Means && averages(*slot)))
            forget(slot.get());
        if (!slot->enabled)
            continue;
        reprojectingRun = reprojectingRun || reprojects(*slot);
        reprojectingKeep = reprojectingKeep || (reprojects(*slot) && slot->hasPast);
        averagingRun = averagingRun || averages(*slot);
        averagingKeep = averagingKeep || (averages(*slot) && slot->hasPast);
    }
    // A picture that a velocity leads on needs the jitter to go on, whatever becomes of a mean behind it.
    m_isStill = reprojectingRun ? !reprojectingKeep : averagingRun && !averagingKeep;
    if (!m_isStill)
        return;
    for (const auto &slot : m_slots) {
        if (slot->traits & (PassTrait::CountsFrames | PassTrait::ComparesFrames))
            forget(slot.get());
    }
}

void FramePasts::forget(PassSlot *slot)
{
    if (!std::exchange(slot->hasPast, false))
        return;
    const QVector<InputInfo> &inputs = slot->info->inputs;
    const bool hasPort =
        std::any_of(inputs.begin(), inputs.end(), [](const InputInfo &input) { return input.restartsPast; });
    if (slot->traits.testFlag(PassTrait::CountsFrames))
        m_slots.retireObjects(slot);
    else if (hasPort)
        slot->mustRestart = true;
    else if (slot->info->forgetPast)
        std::for_each(slot->objects.begin(), slot->objects.end(),
            [slot](const PassObject &object) { slot->info->forgetPast(object.pass.get()); });
    else
        m_slots.retireObjects(slot);
}

void FramePasts::usePasts()
{
    for (Model &model : m_seen.models) {
        if (m_areModelsNew || !model.past)
            model.past = model.model->makePast();
        model.model->usePast(model.past);
    }
    m_areModelsNew = false;
}

void FramePasts::endFrame(bool advancesModels)
{
    for (const Model &model : m_seen.models) {
        model.model->usePast(nullptr);
        model.model->advancePast(model.past);
        if (advancesModels)
            model.model->advanceFrame();
    }
}

void FramePasts::leaveContext()
{
    m_seen.models.clear();
    m_seen.lights = LightState();
    m_size = QSize();
}

} // namespace Velmora::Kvz
