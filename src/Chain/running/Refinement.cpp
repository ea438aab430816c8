// SPDX-License-Identifier: MIT
#include <Chain/running/Refinement.h>

#include <Chain/running/SlotList.h>

#include <algorithm>
#include <set>

namespace Velmora::Kvz {

namespace {

constexpr int framesOfMean = 64;
constexpr int framesOfReprojection = 3; ///< The first is drawn without jitter, the next two have one place of it each.
constexpr int framesOfComparison = 2;
constexpr int framesOfCulling = 2; ///< A hidden item comes back one frame after it becomes visible.

/// The value of an input as the last frame left it.
QVariant knownValue(const PassSlot &slot, int index)
{
    const SlotInput &input = slot.inputs[size_t(index)];
    if (input.producer)
        return input.producer->active ? input.producer->active->output(input.output) : input.info->defaultValue;
    return input.value ? *input.value : input.info->defaultValue;
}

int framesOf(const PassSlot &slot)
{
    if (slot.info->framesToSettle != 0)
        return slot.info->framesToSettle;
    if (slot.traits.testFlag(PassTrait::AccumulatesFrames)) {
        const QVector<InputInfo> &inputs = slot.info->inputs;
        const auto count =
            std::find_if(inputs.begin(), inputs.end(), [](const InputInfo &input) { return input.countsMean; });
        if (count != inputs.end()) {
            const QVariant value = knownValue(slot, int(count - inputs.begin()));
            return std::max(1, (value.isValid() ? value : count->defaultValue).toInt());
        }
        return slot.traits.testFlag(PassTrait::Reprojects) ? framesOfReprojection : framesOfMean;
    }
    if (slot.traits.testFlag(PassTrait::ComparesFrames))
        return framesOfComparison;
    return slot.traits.testFlag(PassTrait::Culls) ? framesOfCulling : 1;
}

/// The pass whose value of the previous frame an input takes, or null.
const PassSlot *previousProducer(const SlotList &slots, const SlotInput &input)
{
    for (const auto &slot : slots) {
        const bool isOfSlot = std::any_of(slot->outputs.begin(), slot->outputs.end(),
            [&](const SlotOutput &output) { return input.value == &output.previous; });
        if (isOfSlot)
            return slot.get();
    }
    return nullptr;
}

/// Whether what a pass makes reaches another one, in this frame or by later ones.
bool dependsOn(const SlotList &slots, const PassSlot *slot, const PassSlot *cause, std::set<const PassSlot *> *seen)
{
    if (slot == cause)
        return true;
    if (!seen->insert(slot).second)
        return false;
    return std::any_of(slot->inputs.begin(), slot->inputs.end(), [&](const SlotInput &input) {
        const PassSlot *const producer = input.producer ? input.producer : previousProducer(slots, input);
        return producer && dependsOn(slots, producer, cause, seen);
    });
}

} // namespace

int framesToSettle(const SlotList &slots)
{
    int frames = 1;
    for (const auto &slot : slots) {
        if (!slot->enabled)
            continue;
        const int own = framesOf(*slot);
        if (own < 0)
            return -1;
        frames += own - 1;
        for (const SlotInput &input : slot->inputs) {
            const PassSlot *const producer = input.producer ? nullptr : previousProducer(slots, input);
            if (!producer)
                continue;
            std::set<const PassSlot *> seen;
            frames += dependsOn(slots, producer, slot.get(), &seen) ? feedbackFrames : 1;
        }
    }
    return frames;
}

void Refinement::noteFrame(bool hasChanged, int needed)
{
    m_frames = hasChanged ? 1 : m_frames + 1;
    m_needed = needed;
}

int Refinement::remaining() const
{
    if (m_needed < 0)
        return -1;
    return m_frames < m_needed ? m_needed - m_frames : 0;
}

} // namespace Velmora::Kvz
