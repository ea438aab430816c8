// SPDX-License-Identifier: MIT
#include <Chain/running/PassObjects.h>

#include <Core/RenderPass.h>
#include <GL/ProgramFailures.h>

namespace Velmora::Kvz {

QStringList takeRefusals()
{
    QStringList logs;
    if (!hasProgramFailures())
        return logs;
    for (const ProgramFailure &failure : takeProgramFailures())
        logs.append(failure.log);
    return logs;
}

std::unique_ptr<RenderPass> PassObjects::make(const PassSlot &slot, QString *error) const
{
    const PassInfo &info = *slot.info;
    QString reason = QStringLiteral("%1 could not be made").arg(info.className);
    std::unique_ptr<RenderPass> pass =
        info.createChecked ? info.createChecked(slot.options, &reason) : info.create(slot.options);
    if (!pass) {
        takeRefusals(); // They are the reason.
        *error = QStringLiteral("pass \"%1\": %2").arg(slot.name, reason);
        return nullptr;
    }

    QStringList inputs, outputs;
    for (int i = 0; i < pass->numInputs(); ++i)
        inputs.append(pass->inputName(i));
    for (int i = 0; i < pass->numOutputs(); ++i)
        outputs.append(pass->outputName(i));
    if (inputs != info.inputNames() || outputs != info.outputNames()) {
        *error = QStringLiteral("pass \"%1\": %2 has other ports than its registry entry says")
                     .arg(slot.name, info.className);
        return nullptr;
    }
    return pass;
}

void PassObjects::add(PassSlot *slot, std::unique_ptr<RenderPass> pass, double key) const
{
    pass->setup(nullptr);
    slot->refusals += takeRefusals();
    slot->active = pass.get();
    slot->objects.push_back({std::move(pass), key, 0});
}

void PassObjects::retire(std::vector<PassObject> *objects)
{
    for (PassObject &object : *objects)
        retire(std::move(object));
    objects->clear();
}

void PassObjects::retire(PassObject object)
{
    m_retired.push_back(std::move(object));
}

void PassObjects::deleteRetired(bool isCurrent)
{
    if (isCurrent) {
        for (const PassObject &object : m_retired)
            object.pass->teardown(nullptr);
    }
    m_retired.clear();
}

} // namespace Velmora::Kvz
