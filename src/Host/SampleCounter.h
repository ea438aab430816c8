// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <array>
#include <functional>
#include <optional>

namespace Velmora::Kvz {

/// Counts the samples that draws write, by queries that are read back some frames later, so that nothing waits.
///
/// All functions need the same context current as the first call.
class SampleCounter
{
public:
    /// Takes the number of samples of a span.
    using Sink = std::function<void(quint64 samples)>;

    /// Begins a span, unless samples are already being counted or the oldest span has no result yet.
    void begin();
    void end();

    /// Hands over the results that have arrived.
    void poll(const Sink &sink) { collect(sink, false); }
    /// Waits for all results and hands them over.
    void finish(const Sink &sink) { collect(sink, true); }
    /// Deletes the queries, or only forgets their names when their context is gone.
    void release(bool contextIsCurrent);

private:
    struct Span
    {
        unsigned int query = 0;
        bool isPending = false;
    };

    bool isCounted();
    void collect(const Sink &sink, bool waits);

    std::array<Span, 4> m_spans;
    size_t m_next = 0;
    size_t m_oldest = 0;
    bool m_isCounting = false;
    std::optional<bool> m_hasAnySamples; ///< The context has GL_ANY_SAMPLES_PASSED.
};

} // namespace Velmora::Kvz
