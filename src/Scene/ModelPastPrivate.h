// SPDX-License-Identifier: MIT
#pragma once

#include "OcclusionQueries.h"

#include <Scene/ModelPast.h>

#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <algorithm>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// Whether culling lets an item be drawn.
enum class CullingMark : quint8 {
    Drawn,
    Undecided, ///< Drawn on condition of its occlusion query.
    Culled
};

struct ModelPast::Private
{
    explicit Private(int itemCount)
        : marks(size_t(itemCount), CullingMark::Drawn),
          m_places(size_t(itemCount), -1)
    { }

    bool hasMoved(int item) const { return m_places[size_t(item)] >= 0; }
    /// The items that moved since forgetMoves(), each once, in the order of their first move.
    const QVector<int> &moved() const { return m_moved; }
    /// Where an item that has moved was before.
    const QMatrix4x4 &before(int item) const { return m_before[size_t(m_places[size_t(item)])]; }
    /// Notes a move away from a matrix. Of several moves the first counts.
    void noteMove(int item, const QMatrix4x4 &from)
    {
        if (hasMoved(item))
            return;
        m_places[size_t(item)] = m_moved.size();
        m_moved.append(item);
        m_before.push_back(from);
    }
    void forgetMoves()
    {
        for (const int item : qAsConst(m_moved))
            m_places[size_t(item)] = -1;
        m_moved.clear();
        m_before.clear();
    }

    /// The queries of the current context: contexts do not share them.
    OcclusionQueries &queries() const
    {
        for (const std::unique_ptr<OcclusionQueries> &each : m_queries) {
            if (each->isUsableHere())
                return *each;
        }
        m_queries.erase(std::remove_if(m_queries.begin(), m_queries.end(),
                            [](const std::unique_ptr<OcclusionQueries> &each) { return each->isLost(); }),
            m_queries.end());
        m_queries.push_back(std::make_unique<OcclusionQueries>(int(marks.size())));
        return *m_queries.back();
    }

    void stopQueries() const
    {
        for (const std::unique_ptr<OcclusionQueries> &each : m_queries)
            each->stop();
    }

    std::vector<CullingMark> marks; ///< By item.

private:
    mutable std::vector<std::unique_ptr<OcclusionQueries>> m_queries; ///< One for each context.
    std::vector<int> m_places; ///< By item: its place in the lists below; -1 where it has not moved.
    QVector<int> m_moved;
    std::vector<QMatrix4x4> m_before; ///< Parallel to m_moved.
};

} // namespace Velmora::Kvz
