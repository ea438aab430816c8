// SPDX-License-Identifier: MIT
#include <Chain/running/PassSlot.h>

#include <Chain/ChainValue.h>
#include <Core/RenderPass.h>

#include <algorithm>

namespace Velmora::Kvz {

QVariant PassSlot::inputValue(int index) const
{
    const SlotInput &input = inputs[size_t(index)];
    if (input.producer)
        return input.producer->active->output(input.output);
    const QVariant value = input.value ? *input.value : active->defaultValue(index);
    if (value.userType() != qMetaTypeId<SceneRelative>())
        return value;
    const auto relative = value.value<SceneRelative>();
    const float unit = sceneSize > 0 ? sceneSize : 1;
    return relative.power == 1 ? relative.value * unit : relative.value / unit;
}

LightState PassSlot::producedLights() const
{
    LightState state;
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i].producer && inputs[i].info->type == ValueType::Lights)
            state.add(inputValue(int(i)));
    }
    return state;
}

bool PassSlot::choosesObject() const
{
    return std::any_of(
        habits.begin(), habits.end(), [](const std::unique_ptr<SlotHabit> &habit) { return habit->choosesObject(); });
}

bool PassSlot::keepsPast() const
{
    return bool(traits & (PassTrait::AccumulatesFrames | PassTrait::ComparesFrames | PassTrait::CountsFrames));
}

} // namespace Velmora::Kvz
