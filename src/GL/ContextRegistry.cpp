// SPDX-License-Identifier: MIT
#include "ContextRegistry.h"

#include "TessellationPrograms.h"

#include <Core/Log.h>

#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtGui/QOpenGLContext>

#include <dlfcn.h>

namespace Velmora::Kvz {

namespace {

/// The current context of a window system library, asked only when that library is loaded in this process already.
class NativeLookup
{
public:
    NativeLookup(const char *library, const char *function)
        : m_library(library),
          m_function(function)
    { }

    void *currentContext()
    {
        if (!m_lookup) {
            void *handle = dlopen(m_library, RTLD_LAZY | RTLD_NOLOAD);
            if (!handle)
                return nullptr;
            m_lookup = reinterpret_cast<Lookup>(dlsym(handle, m_function));
            if (!m_lookup)
                return nullptr;
        }
        return m_lookup();
    }

private:
    using Lookup = void *(*)();
    const char *m_library;
    const char *m_function;
    Lookup m_lookup = nullptr;
};

void *currentNativeContext()
{
    static NativeLookup egl("libEGL.so.1", "eglGetCurrentContext");
    static NativeLookup glx("libGL.so.1", "glXGetCurrentContext");
    static NativeLookup glvndGlx("libGLX.so.0", "glXGetCurrentContext");
    if (void *context = egl.currentContext())
        return context;
    if (void *context = glx.currentContext())
        return context;
    return glvndGlx.currentContext();
}

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

QSharedPointer<ContextRecord> addRecord(void *handle, QSharedPointer<ShareGroup> group)
{
    const auto record = QSharedPointer<ContextRecord>::create();
    record->device = QSharedPointer<OpenGLDeviceContext>::create();
    if (!group) {
        group = QSharedPointer<ShareGroup>::create();
        group->textureManager = std::make_unique<TextureManager>();
    }
    record->group = group;
    QMutexLocker lock(&registry().mutex);
    registry().records.insert(handle, record);
    return record;
}

} // namespace

ShareGroup::~ShareGroup()
{
    // While the identity lives, the manager's textures know whether the current context is theirs.
    textureManager.reset();
}

ContextRecord::~ContextRecord()
{
    device.clear();
}

QSet<unsigned int> &TessellationPrograms::current()
{
    return ContextRegistry::current()->group->tessellationPrograms;
}

void *ContextRegistry::currentHandle()
{
    if (QOpenGLContext *context = QOpenGLContext::currentContext())
        return context;
    return currentNativeContext();
}

QSharedPointer<ContextRecord> ContextRegistry::current()
{
    QOpenGLContext *const qtContext = QOpenGLContext::currentContext();
    void *const handle = qtContext ? qtContext : currentNativeContext();
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
    // Releasing the record while the context is current lets the device and, with the last context of its group, the
    // texture manager delete what they hold.
    QSharedPointer<ContextRecord> record = find(currentHandle());
    if (!record)
        return;
    record->device->notifyEnd();
    record->device->releaseResources();
    if (record->group->textureManager) {
        QMutexLocker lock(&registry().mutex);
        int members = 0;
        for (const QSharedPointer<ContextRecord> &other : qAsConst(registry().records))
            members += other->group == record->group;
        lock.unlock();
        if (members == 1)
            record->group->textureManager.reset();
    }
    forget(currentHandle());
}

void ContextRegistry::shareCurrentWith(void *other)
{
    void *const handle = currentHandle();
    const QSharedPointer<ContextRecord> otherRecord = find(other);
    if (handle && otherRecord && !find(handle))
        addRecord(handle, otherRecord->group);
    else
        KVZ_WARNING(
            QStringLiteral("Contexts cannot share objects: the other one must have been current before, and this "
                           "one be new"));
}

} // namespace Velmora::Kvz
