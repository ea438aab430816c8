// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

#include <array>
#include <cmath>
#include <utility>

namespace Velmora::Kvz {

/// Vectors and matrices of doubles, for references more precise than what they are compared with.
using Vector4d = std::array<double, 4>;
using Vector3d = std::array<double, 3>;

inline Vector3d toDouble(const QVector3D &v)
{
    return {v.x(), v.y(), v.z()};
}

inline Vector4d withW(const Vector3d &v, double w)
{
    return {v[0], v[1], v[2], w};
}

inline Vector3d xyz(const Vector4d &v)
{
    return {v[0], v[1], v[2]};
}

inline Vector3d operator-(const Vector3d &a, const Vector3d &b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

inline Vector3d operator+(const Vector3d &a, const Vector3d &b)
{
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

inline Vector3d operator*(const Vector3d &v, double factor)
{
    return {v[0] * factor, v[1] * factor, v[2] * factor};
}

inline double dot(const Vector3d &a, const Vector3d &b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline Vector3d cross(const Vector3d &a, const Vector3d &b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline Vector3d normalized(const Vector3d &v)
{
    return v * (1.0 / std::sqrt(dot(v, v)));
}

class DoubleMatrix
{
public:
    /// Zeros.
    DoubleMatrix() = default;
    explicit DoubleMatrix(const QMatrix4x4 &matrix)
    {
        for (int row = 0; row < 4; ++row) {
            for (int column = 0; column < 4; ++column)
                at(row, column) = double(matrix(row, column));
        }
    }

    double &at(int row, int column) { return m_rows[size_t(row)][size_t(column)]; }
    double at(int row, int column) const { return m_rows[size_t(row)][size_t(column)]; }

    DoubleMatrix transposed() const
    {
        DoubleMatrix result;
        for (int row = 0; row < 4; ++row) {
            for (int column = 0; column < 4; ++column)
                result.at(row, column) = at(column, row);
        }
        return result;
    }

    /// By Gaussian elimination with row pivoting. The matrix must be regular.
    DoubleMatrix inverted() const
    {
        DoubleMatrix left = *this;
        DoubleMatrix right;
        for (int i = 0; i < 4; ++i)
            right.at(i, i) = 1;
        for (int column = 0; column < 4; ++column) {
            int pivot = column;
            for (int row = column + 1; row < 4; ++row) {
                if (std::abs(left.at(row, column)) > std::abs(left.at(pivot, column)))
                    pivot = row;
            }
            std::swap(left.m_rows[size_t(column)], left.m_rows[size_t(pivot)]);
            std::swap(right.m_rows[size_t(column)], right.m_rows[size_t(pivot)]);
            const double scale = 1 / left.at(column, column);
            for (int k = 0; k < 4; ++k) {
                left.at(column, k) *= scale;
                right.at(column, k) *= scale;
            }
            for (int row = 0; row < 4; ++row) {
                const double factor = row == column ? 0 : left.at(row, column);
                for (int k = 0; k < 4; ++k) {
                    left.at(row, k) -= factor * left.at(column, k);
                    right.at(row, k) -= factor * right.at(column, k);
                }
            }
        }
        return right;
    }

    Vector4d operator*(const Vector4d &v) const
    {
        Vector4d result = {};
        for (int row = 0; row < 4; ++row) {
            for (int column = 0; column < 4; ++column)
                result[size_t(row)] += at(row, column) * v[size_t(column)];
        }
        return result;
    }

    DoubleMatrix operator*(const DoubleMatrix &other) const
    {
        DoubleMatrix result;
        for (int row = 0; row < 4; ++row) {
            for (int column = 0; column < 4; ++column) {
                for (int k = 0; k < 4; ++k)
                    result.at(row, column) += at(row, k) * other.at(k, column);
            }
        }
        return result;
    }

private:
    std::array<std::array<double, 4>, 4> m_rows = {};
};

} // namespace Velmora::Kvz
