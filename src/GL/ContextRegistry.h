// SPDX-License-Identifier: MIT
#pragma once

#include "ContextResources.h"

#include <QtCore/QSharedPointer>

#include <functional>

namespace Velmora::Kvz {

/// One OpenGL context, or one group of contexts that share objects. GL objects hold a weak pointer to the one that knows
/// their name: it is gone once the context is.
class ContextIdentity
{ };

/// Contexts that share objects, and what is theirs together.
struct ShareGroup
{
    QSharedPointer<ContextIdentity> identity = QSharedPointer<ContextIdentity>::create();
    ContextResources resources;

    ~ShareGroup();
};

/// One context, and what is its own.
struct ContextRecord
{
    QSharedPointer<ContextIdentity> identity = QSharedPointer<ContextIdentity>::create();
    QSharedPointer<ShareGroup> group;
    ContextResources resources;
    /// Called by ContextRegistry::endCurrent() before it deletes anything.
    std::function<void()> onEnd;

    ~ContextRecord();
};

/// All contexts that this library has met.
class ContextRegistry
{
public:
    /// The record of the current context, made when it is met first; null when none is current.
    static QSharedPointer<ContextRecord> current();
    /// Forgets the current context: its objects drop their names from now on. What the record keeps, and with the last
    /// context of a share group what the group keeps, is deleted first, while the context still knows the names.
    static void endCurrent();
    /// Makes the current context, which must be new here, a member of another's share group.
    static void shareCurrentWith(void *other);
};

} // namespace Velmora::Kvz
