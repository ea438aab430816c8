// SPDX-License-Identifier: MIT
#include "ContextRegistry.h"

#include "CurrentContext.h"
#include "FrameState.h"

#include <Core/Log.h>

#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtGui/QOpenGLContext>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

struct Registry
{
    QMutex mutex;
    QHash<void *, QSharedPointer<ContextRecord>> records;
};

Registry &registry()
{
    // Never destroyed: objects with static storage in other libraries may still ask at exit.
    static Registry *const instance = new Registry;
    return *instance;
}

QSharedPointer<ContextRecord> find(void *handle)
{
    QMutexLocker lock(&registry().mutex);
    return registry().records.value(handle);
}

QSharedPointer<ContextRecord> forget(void *handle)
{
    QMutexLocker lock(&registry().mutex);
    return registry().records.take(handle);
}

/// The group of another context of Qt's share group, if one has been met.
QSharedPointer<ShareGroup> groupOfSharers(QOpenGLContext *context)
{
    const QList<QOpenGLContext *> sharers = context->shareGroup()->shares();
    for (QOpenGLContext *sharer : sharers) {
        if (const QSharedPointer<ContextRecord> record = find(sharer))
            return record->group;
    }
    return {};
}

QSharedPointer<ContextRecord> addRecord(void *handle, const QSharedPointer<ShareGroup> &group)
{
    const auto record = QSharedPointer<ContextRecord>::create();
    record->group = group ? group : QSharedPointer<ShareGroup>::create();
    QMutexLocker lock(&registry().mutex);
    registry().records.insert(handle, record);
    return record;
}

bool isAloneInGroup(const QSharedPointer<ContextRecord> &record)
{
    QMutexLocker lock(&registry().mutex);
    return std::none_of(registry().records.cbegin(), registry().records.cend(),
        [&](const QSharedPointer<ContextRecord> &other) { return other != record && other->group == record->group; });
}

} // namespace

ShareGroup::~ShareGroup()
{
    // While the identity lives, objects know whether the current context is theirs.
    resources.clear();
}

ContextRecord::~ContextRecord()
{
    resources.clear();
}

QSharedPointer<ContextRecord> ContextRegistry::current()
{
    if (const FrameState *frame = FrameState::active())
        return frame->record();
    QOpenGLContext *const qtContext = QOpenGLContext::currentContext();
    void *const handle = currentContextHandle();
    if (!handle)
        return {};
    if (QSharedPointer<ContextRecord> record = find(handle))
        return record;
    if (!qtContext)
        return addRecord(handle, {});
    QObject::connect(
        qtContext, &QOpenGLContext::aboutToBeDestroyed, qtContext,
        [qtContext] {
            if (QOpenGLContext::currentContext() == qtContext)
                ContextRegistry::endCurrent();
            else
                forget(qtContext);
        },
        Qt::DirectConnection);
    return addRecord(handle, groupOfSharers(qtContext));
}

void ContextRegistry::endCurrent()
{
    void *const handle = currentContextHandle();
    const QSharedPointer<ContextRecord> record = find(handle);
    if (!record)
        return;
    if (record->onEnd)
        record->onEnd();
    // The record is still found while these go, so what they hold is deleted and not dropped.
    record->resources.clear();
    if (isAloneInGroup(record))
        record->group->resources.clear();
    forget(handle);
}

void ContextRegistry::shareCurrentWith(void *other)
{
    void *const handle = currentContextHandle();
    const QSharedPointer<ContextRecord> otherRecord = find(other);
    if (handle && otherRecord && !find(handle))
        addRecord(handle, otherRecord->group);
    else
        KVZ_WARNING(
            QStringLiteral("Contexts cannot share objects: the other one must have been current before, and this "
                           "one be new"));
}

} // namespace Velmora::Kvz
