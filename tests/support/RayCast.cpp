// SPDX-License-Identifier: MIT
#include "RayCast.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

namespace Velmora::Kvz {

namespace {

constexpr double edgeMargin = 0.05; // In pixels.

Vector3d divided(const Vector4d &v)
{
    return xyz(v) * (1 / v[3]);
}

bool isGeometry(const RayHit &hit)
{
    return hit.isGeometry();
}

bool isGeometry(const QVector<RayHit> &hits)
{
    return !hits.isEmpty();
}

} // namespace

RayCaster::RayCaster(
    const QVector<RayCastItem> &items, const QMatrix4x4 &projection, const QMatrix4x4 &camera, const QSize &size)
    : m_viewProjection(DoubleMatrix(projection) * DoubleMatrix(camera)),
      m_inverse(m_viewProjection.inverted()),
      m_size(size)
{
    for (int item = 0; item < items.size(); ++item) {
        const MeshData &mesh = items[item].mesh;
        const int corners = mesh.indices.isEmpty() ? mesh.positions.size() : mesh.indices.size();
        for (int number = 0; number < corners / 3; ++number)
            addTriangle(items[item], item, number);
    }
}

void RayCaster::addTriangle(const RayCastItem &item, int itemNumber, int number)
{
    const DoubleMatrix model(item.modelMatrix);
    Triangle triangle;
    triangle.item = itemNumber;
    triangle.number = number;
    for (size_t i = 0; i < 3; ++i) {
        const int corner = 3 * number + int(i);
        const int vertex = item.mesh.indices.isEmpty() ? corner : int(item.mesh.indices[corner]);
        triangle.corners[i] = divided(model * withW(toDouble(item.mesh.positions[vertex]), 1));
        triangle.normals[i] = toDouble(item.mesh.normals[vertex]);
        const QVector2D texCoord = item.mesh.texCoords[vertex];
        triangle.texCoords[i] = {double(texCoord.x()), double(texCoord.y())};
    }
    boundOnImage(triangle);
    m_triangles.append(triangle);
}

void RayCaster::boundOnImage(Triangle &triangle) const
{
    std::array<double, 3> x;
    std::array<double, 3> y;
    for (size_t i = 0; i < 3; ++i) {
        const Vector4d clip = m_viewProjection * withW(triangle.corners[i], 1);
        if (clip[3] <= 0)
            return;
        x[i] = (clip[0] / clip[3] + 1) / 2 * m_size.width();
        y[i] = (clip[1] / clip[3] + 1) / 2 * m_size.height();
    }
    const auto [left, right] = std::minmax_element(x.begin(), x.end());
    const auto [bottom, top] = std::minmax_element(y.begin(), y.end());
    triangle.left = *left - 1;
    triangle.right = *right + 1;
    triangle.bottom = *bottom - 1;
    triangle.top = *top + 1;
}

RayCaster::Ray RayCaster::rayThrough(double x, double y) const
{
    const double deviceX = 2 * x / m_size.width() - 1;
    const double deviceY = 2 * y / m_size.height() - 1;
    const Vector3d origin = divided(m_inverse * Vector4d{deviceX, deviceY, -1, 1});
    return {x, y, origin, divided(m_inverse * Vector4d{deviceX, deviceY, 1, 1}) - origin};
}

bool RayCaster::meets(const Ray &ray, const Triangle &triangle, RayHit *hit) const
{
    if (ray.x < triangle.left || ray.x > triangle.right || ray.y < triangle.bottom || ray.y > triangle.top)
        return false;
    // The point of the ray that is also corner 0 + u * edge 1 + v * edge 2.
    const Vector3d edge1 = triangle.corners[1] - triangle.corners[0];
    const Vector3d edge2 = triangle.corners[2] - triangle.corners[0];
    const Vector3d p = cross(ray.direction, edge2);
    const double determinant = dot(edge1, p);
    if (determinant == 0)
        return false;
    const Vector3d fromCorner = ray.origin - triangle.corners[0];
    const double u = dot(fromCorner, p) / determinant;
    const Vector3d q = cross(fromCorner, edge1);
    const double v = dot(ray.direction, q) / determinant;
    const double t = dot(edge2, q) / determinant;
    // The ray runs from the near plane, at 0, to the far plane, at 1.
    if (u < 0 || v < 0 || u + v > 1 || t < 0 || t > 1)
        return false;
    const double depth = (divided(m_viewProjection * withW(ray.origin + ray.direction * t, 1))[2] + 1) / 2;
    if (depth >= hit->depth)
        return false;
    const std::array<double, 3> weights = {1 - u - v, u, v};
    *hit = RayHit();
    hit->item = triangle.item;
    hit->triangle = triangle.number;
    hit->depth = depth;
    for (size_t i = 0; i < 3; ++i) {
        hit->normal = hit->normal + triangle.normals[i] * weights[i];
        hit->texCoord[0] += triangle.texCoords[i][0] * weights[i];
        hit->texCoord[1] += triangle.texCoords[i][1] * weights[i];
    }
    return true;
}

RayHit RayCaster::cast(double x, double y) const
{
    const Ray ray = rayThrough(x, y);
    RayHit hit;
    hit.depth = std::numeric_limits<double>::infinity();
    for (const Triangle &triangle : m_triangles)
        meets(ray, triangle, &hit);
    return hit.isGeometry() ? hit : RayHit();
}

QVector<RayHit> RayCaster::castAll(double x, double y) const
{
    const Ray ray = rayThrough(x, y);
    QVector<RayHit> hits;
    for (const Triangle &triangle : m_triangles) {
        RayHit hit;
        hit.depth = std::numeric_limits<double>::infinity();
        if (meets(ray, triangle, &hit))
            hits.append(hit);
    }
    return hits;
}

Vector3d RayCaster::pointOf(double x, double y, const RayHit &hit) const
{
    return divided(m_inverse * Vector4d{2 * x / m_size.width() - 1, 2 * y / m_size.height() - 1, 2 * hit.depth - 1, 1});
}

bool RayCaster::isBlocked(const Vector3d &from, const Vector3d &to) const
{
    const Vector3d direction = to - from;
    return std::any_of(m_triangles.begin(), m_triangles.end(), [&](const Triangle &triangle) {
        const Vector3d edge1 = triangle.corners[1] - triangle.corners[0];
        const Vector3d edge2 = triangle.corners[2] - triangle.corners[0];
        const Vector3d p = cross(direction, edge2);
        const double determinant = dot(edge1, p);
        if (determinant == 0)
            return false;
        const Vector3d fromCorner = from - triangle.corners[0];
        const double u = dot(fromCorner, p) / determinant;
        if (u < 0 || u > 1)
            return false;
        const Vector3d q = cross(fromCorner, edge1);
        const double v = dot(direction, q) / determinant;
        const double t = dot(edge2, q) / determinant;
        return v >= 0 && u + v <= 1 && t > 1e-6 && t < 1 - 1e-6;
    });
}

template <typename Met, typename Cast, typename AreSame>
RayCastCoverage RayCaster::compareClear(double leastShare, int leastGeometry, const Cast &castAt,
    const AreSame &areSame, const std::function<void(int x, int y, const Met &met)> &compare) const
{
    RayCastCoverage coverage;
    coverage.pixels = m_size.width() * m_size.height();
    for (int y = 0; y < m_size.height(); ++y) {
        for (int x = 0; x < m_size.width(); ++x) {
            const Met met = castAt(x + 0.5, y + 0.5);
            bool isClear = true;
            for (const double dx : {-edgeMargin, edgeMargin}) {
                for (const double dy : {-edgeMargin, edgeMargin})
                    isClear = isClear && areSame(met, castAt(x + 0.5 + dx, y + 0.5 + dy));
            }
            if (!isClear)
                continue;
            ++coverage.compared;
            coverage.geometry += isGeometry(met) ? 1 : 0;
            compare(x, y, met);
        }
    }
    std::printf("[ COMPARED ] %d of %d pixels, %d of them with geometry\n", coverage.compared, coverage.pixels,
        coverage.geometry);
    EXPECT_GE(coverage.compared, leastShare * coverage.pixels) << "too few pixels are clear of edges";
    EXPECT_GE(coverage.geometry, leastGeometry) << "too few of the compared pixels show geometry";
    return coverage;
}

RayCastCoverage RayCaster::compareClearPixels(
    double leastShare, int leastGeometry, const std::function<void(int x, int y, const RayHit &hit)> &compare) const
{
    return compareClear<RayHit>(
        leastShare, leastGeometry, [this](double x, double y) { return cast(x, y); },
        [](const RayHit &a, const RayHit &b) { return a.isOnSameTriangle(b); }, compare);
}

RayCastCoverage RayCaster::compareClearLists(double leastShare, int leastGeometry,
    const std::function<void(int x, int y, const QVector<RayHit> &hits)> &compare) const
{
    const auto areSame = [](const QVector<RayHit> &a, const QVector<RayHit> &b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
            [](const RayHit &hit, const RayHit &other) { return hit.isOnSameTriangle(other); });
    };
    return compareClear<QVector<RayHit>>(
        leastShare, leastGeometry, [this](double x, double y) { return castAll(x, y); }, areSame, compare);
}

double RayCaster::texelsPerPixel(double x, double y, const QSize &imageSize) const
{
    // So close that it stays on the triangle at all pixels clear of edges.
    const double step = edgeMargin / 2;
    const RayHit here = cast(x, y);
    if (!here.isGeometry())
        return 0;
    const auto texelsTo = [&](double dx, double dy) {
        const RayHit there = cast(x + dx, y + dy);
        return std::hypot((there.texCoord[0] - here.texCoord[0]) * imageSize.width(),
                   (there.texCoord[1] - here.texCoord[1]) * imageSize.height())
            / step;
    };
    return std::max(texelsTo(step, 0), texelsTo(0, step));
}

} // namespace Velmora::Kvz
