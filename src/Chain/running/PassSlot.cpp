// SPDX-License-Identifier: MIT
#include <Chain/running/PassSlot.h>

#include <Core/RenderPass.h>

#include <algorithm>

namespace Velmora::Kvz {

QVariant PassSlot::inputValue(int index) const
{
    const SlotInput &input = inputs[size_t(index)];
    if (input.producer)
        return input.producer->active->output(input.output);
    return input.value ? *input.value : active->defaultValue(index);
}

bool PassSlot::choosesObject() const
{
    return std::any_of(
        habits.begin(), habits.end(), [](const std::unique_ptr<SlotHabit> &habit) { return habit->choosesObject(); });
}

} // namespace Velmora::Kvz
