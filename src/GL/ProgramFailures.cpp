// SPDX-License-Identifier: MIT
#include <GL/ProgramFailures.h>

#include "ContextRegistry.h"
#include "ProgramFailuresPrivate.h"

#include <QtCore/QMutex>

#include <atomic>

namespace Velmora::Kvz {

namespace {

constexpr int mostKept = 16;

/// Failures of all share groups that have not been taken.
std::atomic<int> pending{0};

/// Those of one share group. Its contexts may be current in several threads.
class FailureList
{
public:
    FailureList() = default;
    ~FailureList() { take(); }

    void add(const QString &log)
    {
        QMutexLocker lock(&m_mutex);
        if (m_failures.size() >= mostKept)
            return;
        m_failures.append({log});
        ++pending;
    }

    QVector<ProgramFailure> take()
    {
        QMutexLocker lock(&m_mutex);
        QVector<ProgramFailure> failures;
        failures.swap(m_failures);
        pending -= failures.size();
        return failures;
    }

    bool isEmpty() const
    {
        QMutexLocker lock(&m_mutex);
        return m_failures.isEmpty();
    }

private:
    Q_DISABLE_COPY(FailureList)

    mutable QMutex m_mutex;
    QVector<ProgramFailure> m_failures;
};

} // namespace

void addProgramFailure(const QString &log)
{
    if (const QSharedPointer<ContextRecord> record = ContextRegistry::current())
        record->group->resources.get<FailureList>().add(log);
}

QVector<ProgramFailure> takeProgramFailures()
{
    if (pending == 0)
        return {};
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    FailureList *const list = record ? record->group->resources.find<FailureList>() : nullptr;
    return list ? list->take() : QVector<ProgramFailure>();
}

bool hasProgramFailures()
{
    if (pending == 0)
        return false;
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    const FailureList *const list = record ? record->group->resources.find<FailureList>() : nullptr;
    return list && !list->isEmpty();
}

} // namespace Velmora::Kvz
