// SPDX-License-Identifier: MIT
#include "TimingTable.h"

#include "Console.h"

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// Below 0 for none.
double medianOf(QVector<double> values)
{
    if (values.isEmpty())
        return -1;
    std::sort(values.begin(), values.end());
    const int middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

QString timeText(double value)
{
    return value < 0 ? QStringLiteral("-") : QString::number(value, 'f', 3);
}

} // namespace

void TimingTable::addFrame(const QVector<PassTiming> &timings, bool buildsPrograms)
{
    m_rows.resize(timings.size());
    for (int i = 0; i < timings.size(); ++i) {
        Times *const times = buildsPrograms ? &m_rows[i].building : &m_rows[i].settled;
        m_rows[i].pass = timings[i].pass;
        m_rows[i].rests = timings[i].rests;
        if (timings[i].rests)
            continue;
        if (timings[i].frames > 0)
            times->cpu.append(timings[i].cpuLast);
        if (timings[i].gpuFrames > 0)
            times->gpu.append(timings[i].gpuLast);
    }
    ++(buildsPrograms ? m_buildingFrames : m_settledFrames);
}

QVector<TimingTable::Medians> TimingTable::medians() const
{
    QVector<Medians> list;
    for (const Row &row : m_rows) {
        const Times &times = m_settledFrames > 0 ? row.settled : row.building;
        list.append({row.pass, row.rests ? 0 : medianOf(times.gpu), row.rests ? 0 : medianOf(times.cpu), row.rests});
    }
    return list;
}

QString TimingTable::toString() const
{
    QVector<QStringList> rows{{QStringLiteral("pass"), QStringLiteral("GPU ms"), QStringLiteral("CPU ms")}};
    double gpuSum = -1;
    double cpuSum = 0;
    for (const Medians &row : medians()) {
        if (row.gpu >= 0)
            gpuSum = std::max(gpuSum, 0.0) + row.gpu;
        cpuSum += std::max(row.cpu, 0.0);
        const QString rests = QStringLiteral("rests");
        rows.append({row.pass, row.rests ? rests : timeText(row.gpu), row.rests ? rests : timeText(row.cpu)});
    }
    rows.append({QStringLiteral("sum"), timeText(gpuSum), timeText(cpuSum)});
    const auto frames = [](int count, const QString &one) {
        return count == 1 ? one : QStringLiteral("%1 frames").arg(count);
    };
    const QString heading = m_settledFrames == 0
        ? QStringLiteral("%1, in which programs were built; --samples gives a median")
              .arg(frames(m_buildingFrames, QStringLiteral("one frame")))
        : m_buildingFrames == 0
        ? QStringLiteral("median of %1").arg(frames(m_settledFrames, QStringLiteral("1 frame")))
        : QStringLiteral("median of %1, after %2 in which programs were built")
              .arg(frames(m_settledFrames, QStringLiteral("1 frame")), frames(m_buildingFrames, QStringLiteral("one")));
    return heading + QLatin1Char('\n') + formatTable(rows, {1, 2});
}

} // namespace Velmora::Kvz
