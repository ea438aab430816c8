// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportOptions.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QString>

namespace Velmora::Kvz {

/// What is left of an import's limits, and where its progress is reported. Each question that the limits answer with no notes which
/// limit it was.
class ImportBudget
{
public:
    /// Starts the clock.
    ImportBudget(const ImportOptions &options, qint64 fileSize);

    bool takeBytes(qint64 count);
    bool takeVertices(qint64 count);
    bool isTimeLeft();
    int imageSide() const { return m_limits.imageSide; }
    void report(ImportProgress::Step step, int done, int total) const;
    /// The limit that was passed first, in one line; empty while none was.
    QString problem() const { return m_problem; }

private:
    bool refuse(const QString &problem);

    ImportLimits m_limits;
    std::function<void(const ImportProgress &)> m_progress;
    QElapsedTimer m_clock;
    qint64 m_bytes = 0;
    qint64 m_vertices = 0;
    QString m_problem;
};

/// Why the header of a file declares what the file cannot hold, in one line; empty when it does not. Loaders make room
/// for what a header declares before they read on: a file of 300 bytes may ask for all memory. Knows OFF and PLY.
QString exaggeratedHeader(const QByteArray &start, qint64 fileSize);

} // namespace Velmora::Kvz
