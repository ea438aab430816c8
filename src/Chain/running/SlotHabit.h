// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>

namespace Velmora::Kvz {

class PassObjects;

/// What the chain does around a pass for a peculiarity of its class, so that the runner needs to know none of them. A slot
/// has those that its class asks for.
class SlotHabit
{
public:
    virtual ~SlotHabit() = default;

    /// Whether prepare() decides which object runs, so that no object begins the frame before.
    virtual bool choosesObject() const { return false; }
    /// Before the inputs are set. May exchange the active object of the slot.
    virtual void prepare(PassObjects *, quint64 /*frame*/) { }
    /// The value that an input gets instead of the one that came.
    virtual QVariant adjusted(int /*input*/, const QVariant &value) const { return value; }
    /// Around start(); not around skip().
    virtual void beforeStart() { }
    virtual void afterStart() { }
    /// The context that the slot's objects belong to is left; it is current unless it is gone.
    virtual void leaveContext(bool /*isCurrent*/) { }
};

} // namespace Velmora::Kvz
