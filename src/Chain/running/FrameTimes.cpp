// SPDX-License-Identifier: MIT
#include <Chain/running/FrameTimes.h>

#include <Chain/running/SlotList.h>

namespace Velmora::Kvz {

namespace {

/// Adds a sample to a running mean.
void addSample(double sample, int *count, double *last, double *mean)
{
    ++*count;
    *last = sample;
    *mean += (sample - *mean) / *count;
}

} // namespace

void FrameTimes::beginFrame(const SlotList &slots)
{
    if (m_isEnabled)
        m_gpu.beginFrame(slots.size());
}

void FrameTimes::endFrame(const SlotList &slots)
{
    m_gpu.endFrame();
    if (m_isEnabled)
        collect(slots, false);
}

void FrameTimes::beginPass()
{
    m_began = std::chrono::steady_clock::now();
}

void FrameTimes::endPass(PassSlot *slot) const
{
    if (!m_isEnabled)
        return;
    const std::chrono::duration<double, std::milli> span = std::chrono::steady_clock::now() - m_began;
    addSample(span.count(), &slot->timing.frames, &slot->timing.cpuLast, &slot->timing.cpuMean);
}

void FrameTimes::collect(const SlotList &slots, bool waits)
{
    const GpuTimer::Sink sink = [&slots](int span, quint64 nanoseconds) {
        PassTiming &times = slots[span].timing;
        addSample(double(nanoseconds) * 1e-6, &times.gpuFrames, &times.gpuLast, &times.gpuMean);
    };
    if (waits)
        m_gpu.finish(sink);
    else
        m_gpu.poll(sink);
}

QVector<PassTiming> FrameTimes::timings(const SlotList &slots) const
{
    QVector<PassTiming> timings;
    for (const auto &slot : slots)
        timings.append(slot->timing);
    return timings;
}

void FrameTimes::reset(const SlotList &slots)
{
    m_gpu.discard();
    for (const auto &slot : slots) {
        slot->timing = PassTiming();
        slot->timing.pass = slot->name;
    }
}

} // namespace Velmora::Kvz
