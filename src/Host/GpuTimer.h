// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <array>
#include <functional>
#include <vector>

namespace Velmora::Kvz {

/// Measures spans of GPU work by timestamps and reads them back some frames later, so that nothing waits.
///
/// All operations need the context current that the first one saw.
class GpuTimer
{
public:
    /// Takes the number of a span and its nanoseconds.
    using Sink = std::function<void(int span, quint64 nanoseconds)>;

    /// Begins a frame of `spans` spans. A frame is left out when the results of the oldest one have not come yet.
    void beginFrame(int spans);
    void beginSpan(int span);
    void endSpan(int span);
    void endFrame();

    /// Hands over the results that have come.
    void poll(const Sink &sink) { collect(sink, false); }
    /// Waits for all results and hands them over.
    void finish(const Sink &sink) { collect(sink, true); }
    /// Forgets what is under way.
    void discard();
    /// Deletes the queries; or forgets their names, when their context is gone.
    void release(bool contextIsCurrent);

private:
    struct Frame
    {
        std::vector<unsigned int> queries; ///< Two for each span.
        int spans = 0; ///< 0: nothing under way.
    };

    static bool isSupported();
    void collect(const Sink &sink, bool waits);

    std::array<Frame, 4> m_frames;
    int m_next = 0;
    int m_oldest = 0;
    Frame *m_current = nullptr;
};

} // namespace Velmora::Kvz
