// SPDX-License-Identifier: MIT
#pragma once

#include "OcclusionQueries.h"

#include <Scene/ModelPast.h>

#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

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
          queries(itemCount),
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

    std::vector<CullingMark> marks; ///< By item.
    OcclusionQueries queries;

private:
    std::vector<int> m_places; ///< By item: its place in the lists below; -1 where it has not moved.
    QVector<int> m_moved;
    std::vector<QMatrix4x4> m_before; ///< Parallel to m_moved.
};

} // namespace Velmora::Kvz
