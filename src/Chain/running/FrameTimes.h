// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainResults.h>
#include <Host/GpuTimer.h>

#include <QtCore/QVector>

#include <chrono>

namespace Velmora::Kvz {

struct PassSlot;
class SlotList;

/// Times the passes of frames, while that is enabled.
class FrameTimes
{
public:
    void setEnabled(bool enabled) { m_isEnabled = enabled; }
    bool isEnabled() const { return m_isEnabled; }

    void beginFrame(const SlotList &slots);
    void endFrame(const SlotList &slots);
    /// Around all that the chain does for a pass, on the CPU.
    void beginPass();
    void endPass(PassSlot *slot) const;
    /// Around the pass itself, on the GPU; `index` is that of its slot.
    void beginSpan(int index) { m_gpu.beginSpan(index); }
    void endSpan(int index) { m_gpu.endSpan(index); }

    QVector<PassTiming> timings(const SlotList &slots) const;
    /// Waits for the GPU times of all frames; needs the context current.
    void finish(const SlotList &slots) { collect(slots, true); }
    void reset(const SlotList &slots);
    /// Discards pending GPU times, for slots that have been renumbered.
    void discard() { m_gpu.discard(); }
    void leaveContext(bool isCurrent) { m_gpu.release(isCurrent); }

private:
    void collect(const SlotList &slots, bool waits);

    bool m_isEnabled = false;
    GpuTimer m_gpu;
    std::chrono::steady_clock::time_point m_began;
};

} // namespace Velmora::Kvz
