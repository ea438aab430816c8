// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>

namespace Velmora::Kvz {

class PassObjects;

/// What the chain does around a pass to serve a peculiarity of its class, which the runner then need not know about. A slot
/// has the habits that its class asks for.
class SlotHabit
{
public:
    virtual ~SlotHabit() = default;

    /// Whether prepare() decides which object runs, so that no object begins the frame before.
    virtual bool choosesObject() const { return false; }
    /// Before the inputs are set. May exchange the active object of the slot.
    virtual void prepare(PassObjects *, quint64 /*frame*/) { }
    /// The value that an input gets in place of its own.
    virtual QVariant adjusted(int /*input*/, const QVariant &value) const { return value; }
    /// Around start(); not around skip().
    virtual void beforeStart() { }
    virtual void afterStart() { }
    /// The slot's objects are gone, and new ones begin from the beginning.
    virtual void restart() { }
    /// The context that the slot's objects belong to is left; it is current unless it is gone.
    virtual void leaveContext(bool /*isCurrent*/) { }
};

} // namespace Velmora::Kvz
