// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QPair>
#include <QtCore/QtMath>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

inline bool allFinite(const QVector2D &vector)
{
    return std::isfinite(vector.x()) && std::isfinite(vector.y());
}

inline bool allFinite(const QVector3D &vector)
{
    return std::isfinite(vector.x()) && std::isfinite(vector.y()) && std::isfinite(vector.z());
}

inline bool allFinite(const QVector4D &vector)
{
    return std::isfinite(vector.x()) && std::isfinite(vector.y()) && std::isfinite(vector.z())
        && std::isfinite(vector.w());
}

inline bool allFinite(const QMatrix4x4 &matrix)
{
    const float *const values = matrix.constData();
    return std::all_of(values, values + 16, [](float value) { return std::isfinite(value); });
}

/// The matrix for normals: the inverse transposed. Where a matrix flattens space, or comes closer to it than floats tell, its
/// cofactors, which are the inverse transposed but for a factor: what normals point to on the flattened surface.
inline QMatrix4x4 normalMatrixOf(const QMatrix4x4 &model)
{
    constexpr float flat = 1e-7f; // of the shortest stretch to the longest
    QVector3D columns[3];
    for (int i = 0; i < 3; ++i)
        columns[i] = model.column(i).toVector3D();
    const float longest = std::max({columns[0].length(), columns[1].length(), columns[2].length()});
    QVector3D cofactors[3];
    float largest = 0;
    for (int i = 0; i < 3 && longest > 0; ++i) {
        cofactors[i] = QVector3D::crossProduct(columns[(i + 1) % 3] / longest, columns[(i + 2) % 3] / longest);
        largest = std::max(largest, cofactors[i].length());
    }
    const float determinant = longest > 0 ? QVector3D::dotProduct(columns[0] / longest, cofactors[0]) : 0;
    bool isInvertible = false;
    const QMatrix4x4 inverse = model.inverted(&isInvertible);
    if ((isInvertible && allFinite(inverse) && std::abs(determinant) > flat * largest) || !(largest > 0))
        return inverse.transposed();
    QMatrix4x4 result;
    for (int i = 0; i < 3; ++i)
        result.setColumn(i, QVector4D(cofactors[i] / largest, 0));
    return result;
}

/// An axis-aligned box: minimum x, y, z, then maximum x, y, z. Empty by default.
struct Bounds
{
    std::array<float, 6> corners = {
        std::numeric_limits<float>::max(),
        std::numeric_limits<float>::max(),
        std::numeric_limits<float>::max(),
        std::numeric_limits<float>::lowest(),
        std::numeric_limits<float>::lowest(),
        std::numeric_limits<float>::lowest(),
    };

    QVector3D minimum() const { return {corners[0], corners[1], corners[2]}; }
    QVector3D maximum() const { return {corners[3], corners[4], corners[5]}; }
    QPair<QVector3D, QVector3D> toPair() const { return {minimum(), maximum()}; }

    void include(const QVector3D &point)
    {
        for (size_t axis = 0; axis < 3; ++axis) {
            corners[axis] = std::min(corners[axis], point[int(axis)]);
            corners[axis + 3] = std::max(corners[axis + 3], point[int(axis)]);
        }
    }

    void include(const Bounds &other)
    {
        include(other.minimum());
        include(other.maximum());
    }

    /// Corner 0 to 7; bits 0, 1, 2 choose the maximum of x, y, z.
    QVector3D corner(int number) const
    {
        return {corners[number & 1 ? 3 : 0], corners[number & 2 ? 4 : 1], corners[number & 4 ? 5 : 2]};
    }

    /// The axis-aligned box around this one under a matrix.
    Bounds mapped(const QMatrix4x4 &matrix) const
    {
        Bounds result;
        for (int number = 0; number < 8; ++number)
            result.include(matrix * corner(number));
        return result;
    }

    /// The box with each side moved outwards.
    Bounds grown(float margin) const
    {
        Bounds result = *this;
        for (size_t axis = 0; axis < 3; ++axis) {
            result.corners[axis] -= margin;
            result.corners[axis + 3] += margin;
        }
        return result;
    }
};

/// The six planes of a clip space, in world space. A plane of zeros, as a degenerate matrix gives, has nothing outside.
class Frustum
{
public:
    enum Side { Left, Right, Bottom, Top, Front, Back, SideCount };

    explicit Frustum(const QMatrix4x4 &viewProjection)
    {
        const QVector4D w = viewProjection.row(3);
        for (int axis = 0; axis < 3; ++axis) {
            const QVector4D row = viewProjection.row(axis);
            m_planes[size_t(2 * axis)] = Plane(w + row);
            m_planes[size_t(2 * axis + 1)] = Plane(w - row);
        }
    }

    /// Whether the box lies wholly beyond one of the planes.
    bool isOutside(const Bounds &bounds) const
    {
        for (const Plane &plane : m_planes) {
            if (plane.distance(bounds, plane.innermost) < 0)
                return true;
        }
        return false;
    }

    /// Whether any corner of the box lies beyond a plane.
    bool isCutBy(Side side, const Bounds &bounds) const
    {
        const Plane &plane = m_planes[side];
        return !(plane.distance(bounds, plane.outermost) >= 0);
    }

private:
    /// A plane, and the indices into Bounds::corners of the corners furthest inside and furthest outside.
    struct Plane
    {
        std::array<float, 4> factors{};
        std::array<size_t, 3> innermost{};
        std::array<size_t, 3> outermost{};

        Plane() = default;
        explicit Plane(const QVector4D &plane)
            : factors{plane.x(), plane.y(), plane.z(), plane.w()}
        {
            for (size_t axis = 0; axis < 3; ++axis) {
                innermost[axis] = factors[axis] < 0 ? axis : axis + 3;
                outermost[axis] = factors[axis] < 0 ? axis + 3 : axis;
            }
        }

        float distance(const Bounds &bounds, const std::array<size_t, 3> &corner) const
        {
            return factors[0] * bounds.corners[corner[0]] + factors[1] * bounds.corners[corner[1]]
                + factors[2] * bounds.corners[corner[2]] + factors[3];
        }
    };

    std::array<Plane, SideCount> m_planes;
};

} // namespace Velmora::Kvz
