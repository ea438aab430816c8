// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// Counts the GL calls of this process while it lives: which questions the driver is asked, and which calls set state that is
/// set already. GLCallRecorders must not live at the same time.
class GLTrace
{
public:
    GLTrace();
    ~GLTrace();
    GLTrace(const GLTrace &) = delete;
    GLTrace &operator=(const GLTrace &) = delete;

    /// Forgets what was counted and what is set.
    void clear();

    int calls() const { return m_calls; }
    /// Of state and bindings.
    int setters() const { return m_setters; }
    /// What the driver is asked and how often, such as "glGetIntegerv 0x8ca6".
    QMap<QString, int> queries() const { return m_queries; }
    int queryCount() const;
    /// The setters that changed nothing, as far as the trace has seen the state before.
    QMap<QString, int> repeats() const { return m_repeats; }

private:
    template <auto Entry> class Recorder;
    struct Part
    {
        virtual ~Part() = default;
    };
    void query(const QString &name);
    /// Notes that a piece of state is set.
    void set(const QString &name, const QString &value);

    template <auto Entry> void traceQuery(const char *name);
    template <auto Entry> void traceSetter(const char *name, int keys);
    template <auto Entry> void traceIndexed(const QString &whole);
    template <auto Entry> void traceCall();

    std::vector<std::unique_ptr<Part>> m_parts;
    QMap<QString, int> m_queries;
    QMap<QString, int> m_repeats;
    QMap<QString, QString> m_state;
    QString m_activeUnit;
    int m_calls = 0;
    int m_setters = 0;
};

} // namespace Velmora::Kvz
