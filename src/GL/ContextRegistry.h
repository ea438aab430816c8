// SPDX-License-Identifier: MIT
#pragma once

#include "ContextResources.h"

#include <QtCore/QSharedPointer>
#include <QtCore/QVector>

#include <array>
#include <functional>
#include <mutex>

namespace Velmora::Kvz {

/// One OpenGL context, or one group of contexts that share objects. GL objects hold a weak pointer to the one that knows
/// their name: it is gone once the context is.
class ContextIdentity
{
public:
    /// Names of objects that died while another context was current. Contexts of one group may be current in several threads.
    void leave(size_t kind, unsigned int name)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_left[kind].append(name);
    }
    QVector<unsigned int> takeLeft(size_t kind)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        QVector<unsigned int> taken;
        taken.swap(m_left[kind]);
        return taken;
    }

private:
    std::mutex m_mutex;
    std::array<QVector<unsigned int>, 2> m_left; ///< By GLObject::Kind.
};

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
