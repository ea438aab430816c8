// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/running/PassSlot.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// The logs of the programs that the driver refused since the last call.
QStringList takeRefusals();

/// Creates the pass objects of slots, and keeps retired ones until their context is current and they can be deleted.
class PassObjects
{
public:
    /// A pass of a slot's class and options, before its setup. Null, with the reason, after a failure. Needs a current
    /// context.
    std::unique_ptr<RenderPass> make(const PassSlot &slot, QString *error) const;
    /// Sets a pass up and gives it to a slot.
    void add(PassSlot *slot, std::unique_ptr<RenderPass> pass, double key) const;

    /// Takes objects out of the chain.
    void retire(std::vector<PassObject> *objects);
    void retire(PassObject object);
    /// Deletes what was retired; with the context current, its GL objects too.
    void deleteRetired(bool isCurrent);
    int retiredCount() const { return int(m_retired.size()); }

private:
    std::vector<PassObject> m_retired;
};

} // namespace Velmora::Kvz
