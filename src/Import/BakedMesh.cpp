// SPDX-License-Identifier: MIT
#include "BakedMesh.h"

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr double flatShare = 1e-7; // below, the directions of a matrix of floats are noise

/// The upper left of a matrix, in double precision: scales of a thousandth and of a thousand meet.
struct Linear
{
    double m[3][3];

    double size() const
    {
        double sum = 0;
        for (const auto &row : m) {
            for (const double value : row)
                sum += value * value;
        }
        return std::sqrt(sum);
    }

    Linear cofactors() const
    {
        Linear result;
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c) {
                const int r1 = (r + 1) % 3, r2 = (r + 2) % 3, c1 = (c + 1) % 3, c2 = (c + 2) % 3;
                result.m[r][c] = m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
            }
        }
        return result;
    }

    double determinant(const Linear &cofactors) const
    {
        return m[0][0] * cofactors.m[0][0] + m[0][1] * cofactors.m[0][1] + m[0][2] * cofactors.m[0][2];
    }
};

Linear linearOf(const QMatrix4x4 &matrix)
{
    Linear result;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            result.m[r][c] = double(matrix(r, c));
    }
    return result;
}

/// Whether the thinnest that a matrix makes of anything is at most `share` of the widest.
bool isFlat(const Linear &matrix, double share)
{
    const Linear cofactors = matrix.cofactors();
    return !(std::abs(matrix.determinant(cofactors)) > share * cofactors.size() * matrix.size());
}

/// The orthogonal matrix that is closest, by Newton's iteration with scaling (Higham 1986); false for a singular one.
bool orthogonalPart(Linear *matrix)
{
    constexpr int mostSteps = 50;
    for (int step = 0; step < mostSteps; ++step) {
        const Linear cofactors = matrix->cofactors();
        const double determinant = matrix->determinant(cofactors);
        const double size = matrix->size();
        if (!(std::abs(determinant) > 1e-18 * size * size * size))
            return false;
        const double scale = std::sqrt(cofactors.size() / std::abs(determinant) / size);
        double change = 0;
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c) {
                const double next = (scale * matrix->m[r][c] + cofactors.m[r][c] / determinant / scale) / 2;
                change = std::max(change, std::abs(next - matrix->m[r][c]));
                matrix->m[r][c] = next;
            }
        }
        if (change < 1e-14)
            break;
    }
    return true;
}

} // namespace

bool splitStretch(const QMatrix4x4 &matrix, QMatrix4x4 *stretch)
{
    const Linear whole = linearOf(matrix);
    Linear turn = whole;
    *stretch = QMatrix4x4();
    if (isFlat(whole, flatShare)) {
        for (int c = 0; c < 3; ++c)
            stretch->setColumn(c, QVector4D(matrix.column(c).toVector3D(), 0));
        return whole.cofactors().size() > 1e-12 * whole.size() * whole.size();
    }
    if (!orthogonalPart(&turn))
        return false;
    double change = 0;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            double value = 0;
            for (int k = 0; k < 3; ++k)
                value += turn.m[k][r] * whole.m[k][c];
            (*stretch)(r, c) = float(value);
            change = std::max(change, std::abs(value - (r == c ? 1 : 0)));
        }
    }
    return change > 1e-5;
}

QMatrix4x4 withoutStretch(const QMatrix4x4 &matrix, const QMatrix4x4 &stretch)
{
    if (!isFlat(linearOf(stretch), flatShare))
        return matrix * stretch.inverted();
    QMatrix4x4 move;
    move.setColumn(3, matrix.column(3));
    return move;
}

QVector3D extentOf(const MeshData &mesh)
{
    if (mesh.positions.isEmpty())
        return {};
    QVector3D low = mesh.positions[0];
    QVector3D high = low;
    for (const QVector3D &position : mesh.positions) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], position[axis]);
            high[axis] = std::max(high[axis], position[axis]);
        }
    }
    return high - low;
}

bool flattens(const QMatrix4x4 &matrix, const QVector3D &extent)
{
    constexpr double atOneDepth = 1e-5; // less than what depth buffers tell apart
    constexpr float hasThickness = 1e-4f;
    const float longest = std::max({extent.x(), extent.y(), extent.z()});
    if (!(std::min({extent.x(), extent.y(), extent.z()}) > hasThickness * longest))
        return false;
    Linear box = linearOf(matrix);
    for (auto &row : box.m) {
        for (int c = 0; c < 3; ++c)
            row[c] *= double(extent[c]);
    }
    return isFlat(box, atOneDepth);
}

MeshData stretched(const MeshData &mesh, const QMatrix4x4 &stretch)
{
    MeshData result = mesh;
    for (QVector3D &position : result.positions)
        position = stretch.map(position);
    // The inverse transposed; its size does not matter, and may be out of a float's range.
    const Linear linear = linearOf(stretch);
    const Linear cofactors = linear.cofactors();
    const double size = cofactors.size();
    for (QVector3D &normal : result.normals) {
        double turned[3];
        double square = 0;
        for (int r = 0; r < 3; ++r) {
            turned[r] = 0;
            for (int c = 0; c < 3; ++c)
                turned[r] += cofactors.m[r][c] / size * double(normal[c]);
            square += turned[r] * turned[r];
        }
        const double length = square > 0 ? std::sqrt(square) : 1;
        normal = QVector3D(float(turned[0] / length), float(turned[1] / length), float(turned[2] / length));
    }
    for (QVector4D &tangent : result.tangents) {
        const QVector3D along = stretch.mapVector(tangent.toVector3D()) / float(linear.size());
        tangent = QVector4D(along.normalized(), tangent.w());
    }
    return result;
}

bool hasOwnCoordinates(const ImageSampling &texture)
{
    return texture.uvSet != 0 || !texture.transform.isIdentity();
}

MeshData withCoordinates(const MeshData &mesh, const ImageSampling &texture)
{
    MeshData result = mesh;
    if (texture.uvSet == 1 && !mesh.texCoords1.isEmpty())
        std::swap(result.texCoords, result.texCoords1);
    if (texture.transform.isIdentity())
        return result;
    for (QVector2D &texCoord : result.texCoords)
        texCoord = QVector2D(texture.transform.map(texCoord.toPointF()));
    return result;
}

ImageSampling fromCoordinatesOf(const ImageSampling &texture, const ImageSampling &sampling)
{
    ImageSampling result = sampling;
    result.uvSet = sampling.uvSet == texture.uvSet ? 0 : 1;
    if (result.uvSet == 0)
        result.transform = texture.transform.inverted() * sampling.transform;
    if (result.transform.isIdentity() || (result.uvSet == 0 && texture.transform == sampling.transform))
        result.transform = QTransform();
    return result;
}

} // namespace Velmora::Kvz
