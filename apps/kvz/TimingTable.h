// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainResults.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Collects the times of a chain's passes frame by frame and reports medians. Frames in which programs are built do not count
/// where there are others.
class TimingTable
{
public:
    /// Adds the times of one frame.
    void addFrame(const QVector<PassTiming> &timings, bool buildsPrograms);
    bool isEmpty() const { return m_rows.isEmpty(); }

    struct Medians
    {
        QString pass;
        double gpu; ///< In milliseconds; below 0 where the driver has no timer.
        double cpu;
        bool rests; ///< In the last frame; both are 0 then.
    };
    /// One for each pass.
    QVector<Medians> medians() const;

    /// One row per pass and one for their sum: GPU and CPU milliseconds, "-" where the driver has no timer, "rests" for a pass that the
    /// last frame did not start, since nothing had changed for it.
    QString toString() const;

private:
    struct Times
    {
        QVector<double> gpu;
        QVector<double> cpu;
    };
    struct Row
    {
        QString pass;
        Times building;
        Times settled;
        bool rests = false;
    };

    QVector<Row> m_rows;
    int m_buildingFrames = 0;
    int m_settledFrames = 0;
};

} // namespace Velmora::Kvz
