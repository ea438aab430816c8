// SPDX-License-Identifier: MIT
#include "TimingTable.h"

#include "Console.h"

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// The median of the values after the first, or the first if it is the only one; below 0 for none.
double settledMedian(QVector<double> values)
{
    if (values.isEmpty())
        return -1;
    if (values.size() > 1)
        values.removeFirst();
    std::sort(values.begin(), values.end());
    const int middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

QString milliseconds(double value)
{
    return value < 0 ? QStringLiteral("-") : QString::number(value, 'f', 3);
}

} // namespace

void TimingTable::addFrame(RenderChain *chain)
{
    chain->finishTimings();
    const QVector<RenderChain::PassTiming> timings = chain->timings();
    m_rows.resize(timings.size());
    for (int i = 0; i < timings.size(); ++i) {
        m_rows[i].pass = timings[i].pass;
        if (timings[i].frames > m_frames)
            m_rows[i].cpu.append(timings[i].cpuLast);
        if (timings[i].gpuFrames > m_frames)
            m_rows[i].gpu.append(timings[i].gpuLast);
    }
    ++m_frames;
}

QString TimingTable::toString() const
{
    QVector<QStringList> rows{{QStringLiteral("pass"), QStringLiteral("GPU ms"), QStringLiteral("CPU ms")}};
    double gpuSum = -1;
    double cpuSum = 0;
    for (const Row &row : m_rows) {
        const double gpu = settledMedian(row.gpu);
        const double cpu = settledMedian(row.cpu);
        if (gpu >= 0)
            gpuSum = std::max(gpuSum, 0.0) + gpu;
        cpuSum += std::max(cpu, 0.0);
        rows.append({row.pass, milliseconds(gpu), milliseconds(cpu)});
    }
    rows.append({QStringLiteral("sum"), milliseconds(gpuSum), milliseconds(cpuSum)});
    const QString heading = m_frames > 1
        ? QStringLiteral("median of %1 frames, after one in which programs were built").arg(m_frames - 1)
        : QStringLiteral("one frame, in which programs were built; --frames gives a median");
    return heading + QLatin1Char('\n') + formatTable(rows, {1, 2});
}

} // namespace Velmora::Kvz
