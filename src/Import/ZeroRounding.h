// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QVector3D>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

/// Takes coordinates that are zero but for rounding errors as zero. Programs that turn a profile around an axis end where they began
/// at sin(2 pi), which is -2e-16 in double precision and 2e-7 in single: the seam has two rows of vertices where one is meant,
/// and nobody would see the difference but by the edge in the shading. Each axis counts by its own largest coordinate.
class ZeroRounding
{
public:
    /// Of `count` positions, three floats each.
    ZeroRounding(const float *positions, size_t count)
    {
        for (size_t i = 0; i < count; ++i, positions += 3) {
            for (int axis = 0; axis < 3; ++axis)
                m_limits[axis] = std::max(m_limits[axis], std::abs(positions[axis]));
        }
        constexpr float errors = 2.5e-7f; // those of sin() in single precision are 1.75e-7
        for (float &limit : m_limits)
            limit = std::isfinite(limit) ? limit * errors : 0;
    }

    /// Zero has two signs; the result is the positive one.
    QVector3D operator()(const QVector3D &position) const
    {
        return {rounded(position.x(), 0), rounded(position.y(), 1), rounded(position.z(), 2)};
    }

    /// Rounds positions in place; returns whether one has changed by more than its sign.
    bool apply(float *positions, size_t count) const
    {
        bool hasChanged = false;
        for (size_t i = 0; i < count; ++i, positions += 3) {
            for (int axis = 0; axis < 3; ++axis) {
                const float value = rounded(positions[axis], axis);
                hasChanged |= value != positions[axis];
                positions[axis] = value;
            }
        }
        return hasChanged;
    }

private:
    float rounded(float value, int axis) const { return std::abs(value) < m_limits[axis] ? 0 : value + 0.0f; }

    float m_limits[3] = {0, 0, 0};
};

} // namespace Velmora::Kvz
