// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/RenderChain.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Collects the times of a chain's passes frame by frame and reports medians. The first of several frames does not count,
/// because programs are built in it.
class TimingTable
{
public:
    /// Adds the times of the frame that the chain has just rendered; waits for the GPU.
    void addFrame(RenderChain *chain);

    /// One row per pass and one for their sum: GPU and CPU milliseconds, "-" where the driver has no timer.
    QString toString() const;

private:
    struct Row
    {
        QString pass;
        QVector<double> gpu;
        QVector<double> cpu;
    };

    QVector<Row> m_rows;
    int m_frames = 0;
};

} // namespace Velmora::Kvz
