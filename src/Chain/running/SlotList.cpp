// SPDX-License-Identifier: MIT
#include <Chain/running/SlotList.h>

#include <Chain/FrameValues.h>
#include <Chain/ResolvedChain.h>
#include <Chain/ResolvedPasses.h>
#include <Chain/running/FrameValueTable.h>
#include <Chain/running/SlotHabits.h>
#include <Core/RenderPass.h>

#include <algorithm>
#include <utility>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<PassSlot> makeSlot(const QString &name, const ResolvedPass &pass)
{
    auto slot = std::make_unique<PassSlot>();
    slot->name = name;
    slot->label = name.toUtf8();
    slot->info = pass.info;
    slot->options = pass.options;
    slot->timing.pass = name;
    slot->habits = habitsOf(slot.get());
    return slot;
}

} // namespace

SlotList::~SlotList() = default;

PassSlot *SlotList::find(const QString &name) const
{
    const auto found = std::find_if(
        m_slots.begin(), m_slots.end(), [&](const std::unique_ptr<PassSlot> &slot) { return slot->name == name; });
    return found == m_slots.end() ? nullptr : found->get();
}

int SlotList::objectCount() const
{
    int count = m_objects.retiredCount();
    for (const auto &slot : m_slots)
        count += int(slot->objects.size());
    return count;
}

bool SlotList::follow(const ResolvedChain &chain, const FrameValueTable &values, bool isCurrent)
{
    const bool isInOrder = match(chain.passes(), isCurrent);
    wire(chain.passes(), values);
    return isInOrder;
}

/// Takes the objects out of a slot that leaves the chain.
void SlotList::retire(PassSlot *slot, bool isCurrent)
{
    for (const auto &habit : slot->habits)
        habit->leaveContext(isCurrent);
    m_objects.retire(&slot->objects);
}

bool SlotList::match(const ResolvedPasses &passes, bool isCurrent)
{
    std::vector<std::unique_ptr<PassSlot>> matched;
    bool isInOrder = size() == passes.size();
    for (int i = 0; i < passes.size(); ++i) {
        const ResolvedPass &pass = passes[i];
        const QString &name = passes.chain().passes[i].name;
        const auto same = std::find_if(m_slots.begin(), m_slots.end(), [&](const std::unique_ptr<PassSlot> &slot) {
            return slot && slot->name == name && slot->info->className == pass.info->className
                && slot->options == pass.options;
        });
        isInOrder = isInOrder && same - m_slots.begin() == i;
        matched.push_back(same == m_slots.end() ? makeSlot(name, pass) : std::move(*same));
        matched.back()->info = pass.info;
        matched.back()->traits = pass.traits;
        if (pass.traits.testFlag(PassTrait::RestsUnchanged) && passes.mayBeDrawnInto(i))
            matched.back()->traits &= ~PassTraits(PassTrait::RestsUnchanged);
        matched.back()->enabled = pass.enabled;
    }
    for (const auto &left : m_slots) {
        if (left)
            retire(left.get(), isCurrent);
    }
    m_slots = std::move(matched);
    return isInOrder;
}

void SlotList::wire(const ResolvedPasses &passes, const FrameValueTable &values)
{
    m_usesBounds = false;
    for (const auto &slot : m_slots) {
        slot->outputs.resize(size_t(slot->info->outputs.size()));
        for (SlotOutput &output : slot->outputs) {
            output.users = 0;
            output.isKept = false;
        }
        slot->viewportInput = slot->info->findInput(FrameValues::viewport);
        slot->projectionInput = slot->info->findInput(FrameValues::projectionMatrix);
    }
    for (int i = 0; i < passes.size(); ++i) {
        const std::vector<ResolvedInput> &sources = passes[i].inputs;
        PassSlot &slot = *m_slots[size_t(i)];
        slot.inputs.assign(sources.size(), SlotInput());
        for (size_t j = 0; j < sources.size(); ++j) {
            const ResolvedInput &source = sources[j];
            SlotInput &input = slot.inputs[j];
            input.info = &slot.info->inputs[int(j)];
            switch (source.source) {
            case ResolvedInput::Source::Default:
                break;
            case ResolvedInput::Source::Value:
                input.value = &source.set.value;
                break;
            case ResolvedInput::Source::Output:
                input.producer = m_slots[size_t(source.pass)].get();
                input.output = source.output;
                ++m_slots[size_t(source.pass)]->outputs[size_t(source.output)].users;
                break;
            case ResolvedInput::Source::Previous: {
                SlotOutput &output = m_slots[size_t(source.pass)]->outputs[size_t(source.output)];
                output.isKept = true;
                input.value = &output.previous;
                break;
            }
            case ResolvedInput::Source::FrameValue:
                // A name that is assumed to be set may have no value: the default, then.
                input.value = values.find(source.frameValue);
                m_usesBounds = m_usesBounds || source.frameValue == FrameValues::sceneBoundsMin
                    || source.frameValue == FrameValues::sceneBoundsMax;
                break;
            }
        }
    }
    for (const ChainOutput &output : passes.chain().exports) {
        PassSlot *producer = find(output.pass);
        ++producer->outputs[size_t(producer->info->findOutput(output.port))].users;
    }
}

bool SlotList::makePasses(QString *error)
{
    for (const auto &slot : m_slots) {
        if (slot->objects.empty()) {
            std::unique_ptr<RenderPass> pass = m_objects.make(*slot, error);
            if (!pass)
                return false;
            m_objects.add(slot.get(), std::move(pass), 0);
        }
        if (!slot->active)
            slot->active = slot->objects.front().pass.get();
    }
    return true;
}

bool SlotList::remakeShaderPasses(QString *error)
{
    // The old passes are retired only once all new ones exist.
    std::vector<std::pair<PassSlot *, std::unique_ptr<RenderPass>>> remade;
    for (const auto &slot : m_slots) {
        if (slot->objects.empty() || shaderFilesOf(*slot->info, slot->options).isEmpty())
            continue;
        std::unique_ptr<RenderPass> pass = m_objects.make(*slot, error);
        if (!pass)
            return false;
        remade.emplace_back(slot.get(), std::move(pass));
    }
    for (auto &[slot, pass] : remade) {
        m_objects.retire(&slot->objects);
        m_objects.add(slot, std::move(pass), 0);
        slot->isCurrent = false;
    }
    m_objects.deleteRetired(true);
    return true;
}

void SlotList::retireObjects(PassSlot *slot)
{
    m_objects.retire(&slot->objects);
    slot->active = nullptr;
    slot->isCurrent = false;
    for (const auto &habit : slot->habits)
        habit->restart();
}

void SlotList::leaveContext(bool isCurrent)
{
    for (const auto &slot : m_slots) {
        if (isCurrent) {
            for (const PassObject &object : slot->objects) {
                object.pass->teardown(nullptr);
                object.pass->teardownContextData(nullptr);
            }
        }
        for (const auto &habit : slot->habits)
            habit->leaveContext(isCurrent);
        slot->objects.clear();
        slot->active = nullptr;
        slot->hasPast = false;
        slot->isCurrent = false;
        slot->mustRestart = false;
        for (SlotOutput &output : slot->outputs)
            output.previous = QVariant();
    }
    m_objects.deleteRetired(isCurrent);
}

void SlotList::retireAll(bool isCurrent)
{
    for (const auto &slot : m_slots)
        retire(slot.get(), isCurrent);
    m_objects.deleteRetired(isCurrent);
}

} // namespace Velmora::Kvz
