// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QVector3D>

#include <cstring>
#include <vector>

namespace Velmora::Kvz {

/// Numbers positions: those of the same bits get the same number, new ones the next. A hash table with open addresses that
/// holds no more than the numbers, so that large models cost little beyond their positions.
class PositionTable
{
public:
    /// `expected` is a guess at how many different positions there will be.
    explicit PositionTable(size_t expected)
    {
        size_t size = 64;
        while (size < 2 * expected + expected / 8)
            size *= 2;
        m_slots.assign(size, unused);
        m_positions.reserve(expected);
    }

    quint32 numberOf(const QVector3D &position)
    {
        if (2 * m_positions.size() >= m_slots.size())
            grow();
        const Bits bits = bitsOf(position);
        const size_t mask = m_slots.size() - 1;
        size_t slot = hash(bits) & mask;
        for (; m_slots[slot] != unused; slot = (slot + 1) & mask) {
            if (bitsOf(m_positions[m_slots[slot]]) == bits)
                return m_slots[slot];
        }
        m_slots[slot] = quint32(m_positions.size());
        m_positions.push_back(position);
        return m_slots[slot];
    }

    /// Fetches what numberOf() will look at first, while there is something else to do: it waits for memory most of its time.
    void prefetch([[maybe_unused]] const QVector3D &position) const
    {
#ifdef __GNUC__
        __builtin_prefetch(&m_slots[hash(bitsOf(position)) & (m_slots.size() - 1)]);
#endif
    }

    /// By number.
    const std::vector<QVector3D> &positions() const
    {
        return m_positions;
    }

private:
    static constexpr quint32 unused = ~0u;

    struct Bits
    {
        quint64 xy;
        quint32 z;

        bool operator==(const Bits &other) const { return ((xy ^ other.xy) | (z ^ other.z)) == 0; }
    };

    static Bits bitsOf(const QVector3D &position)
    {
        Bits bits;
        const char *const from = reinterpret_cast<const char *>(&position);
        std::memcpy(&bits.xy, from, sizeof(bits.xy));
        std::memcpy(&bits.z, from + sizeof(bits.xy), sizeof(bits.z));
        return bits;
    }

    static size_t hash(const Bits &bits)
    {
        const quint64 mixed = bits.xy * Q_UINT64_C(0x9e3779b97f4a7c15);
        const quint64 all = ((mixed ^ mixed >> 32) + bits.z) * Q_UINT64_C(0xd6e8feb86659fd93);
        return size_t(all ^ all >> 32);
    }

    void grow()
    {
        m_slots.assign(2 * m_slots.size(), unused);
        const size_t mask = m_slots.size() - 1;
        for (size_t number = 0; number < m_positions.size(); ++number) {
            size_t slot = hash(bitsOf(m_positions[number])) & mask;
            while (m_slots[slot] != unused)
                slot = (slot + 1) & mask;
            m_slots[slot] = quint32(number);
        }
    }

    std::vector<quint32> m_slots;
    std::vector<QVector3D> m_positions;
};

} // namespace Velmora::Kvz
