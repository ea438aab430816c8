// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <array>
#include <functional>
#include <vector>

namespace Velmora::Kvz {

/// Measures spans of GPU work by timestamps and reads them back some frames later, so that nothing waits.
///
/// All functions need the same context current as the first call.
class GpuTimer
{
public:
    /// Takes the number of a span and its nanoseconds.
    using Sink = std::function<void(int span, quint64 nanoseconds)>;

    /// Begins a frame of `spans` spans. A frame is not measured when the results of the oldest one are still missing.
    void beginFrame(int spans);
    void beginSpan(int span);
    void endSpan(int span);
    void endFrame();

    /// Hands over the results that have arrived.
    void poll(const Sink &sink) { collect(sink, false); }
    /// Waits for all results and hands them over.
    void finish(const Sink &sink) { collect(sink, true); }
    /// Forgets results that have not arrived yet.
    void discard();
    /// Deletes the queries, or only forgets their names when their context is gone.
    void release(bool contextIsCurrent);

private:
    struct Frame
    {
        std::vector<unsigned int> queries; ///< Two per span.
        int spans = 0; ///< 0: nothing pending.
    };

    static bool isSupported();
    void collect(const Sink &sink, bool waits);

    std::array<Frame, 4> m_frames;
    int m_next = 0;
    int m_oldest = 0;
    Frame *m_current = nullptr;
};

} // namespace Velmora::Kvz
