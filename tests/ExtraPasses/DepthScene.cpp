// SPDX-License-Identifier: MIT
#include "DepthScene.h"

#include <QtGui/QVector4D>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Nearer ones are the surface itself.
constexpr double leastDistance = 1e-4;

double dot(const QVector3D &a, const QVector3D &b)
{
    return double(a.x()) * double(b.x()) + double(a.y()) * double(b.y()) + double(a.z()) * double(b.z());
}

QVector3D unprojected(const QMatrix4x4 &inverse, const QSize &size, int x, int y, float device)
{
    return inverse.map(QVector3D(
        2 * (float(x) + 0.5f) / float(size.width()) - 1, 2 * (float(y) + 0.5f) / float(size.height()) - 1, device));
}

} // namespace

void DepthScene::addBall(const QVector3D &centre, float radius)
{
    m_balls.push_back({centre, radius});
}

void DepthScene::addRectangle(const QVector3D &centre, const QVector3D &right, const QVector3D &up)
{
    m_rectangles.push_back({centre, right, up});
}

std::optional<SceneHit> DepthScene::trace(const QVector3D &origin, const QVector3D &direction) const
{
    std::optional<SceneHit> nearest;
    const auto meet = [&](double distance, const QVector3D &normal) {
        if (distance > leastDistance && (!nearest || distance < nearest->distance))
            nearest = SceneHit{distance, dot(normal, direction) > 0 ? -normal : normal};
    };
    for (const Ball &ball : m_balls) {
        const QVector3D way = origin - ball.centre;
        const double a = dot(direction, direction);
        const double b = dot(way, direction);
        const double c = dot(way, way) - double(ball.radius) * double(ball.radius);
        const double root = b * b - a * c;
        if (root < 0)
            continue;
        for (const double side : {-1.0, 1.0}) {
            const double distance = (-b + side * std::sqrt(root)) / a;
            meet(distance, ((origin + float(distance) * direction) - ball.centre) / ball.radius);
        }
    }
    for (const Rectangle &rectangle : m_rectangles) {
        const QVector3D normal = QVector3D::crossProduct(rectangle.right, rectangle.up).normalized();
        const double along = dot(normal, direction);
        if (along == 0)
            continue;
        const double distance = dot(normal, rectangle.centre - origin) / along;
        const QVector3D place = origin + float(distance) * direction - rectangle.centre;
        if (std::abs(dot(place, rectangle.right)) <= dot(rectangle.right, rectangle.right)
            && std::abs(dot(place, rectangle.up)) <= dot(rectangle.up, rectangle.up))
            meet(distance, normal);
    }
    return nearest;
}

std::optional<DepthScene::Seen> DepthScene::seenAt(const QSize &size, const QMatrix4x4 &projection, int x, int y) const
{
    const QMatrix4x4 inverse = projection.inverted();
    const QVector3D near = unprojected(inverse, size, x, y, -1);
    const QVector3D way = unprojected(inverse, size, x, y, 1) - near;
    const auto hit = trace(near, way);
    if (!hit || hit->distance >= 1)
        return std::nullopt;
    return Seen{near + float(hit->distance) * way, hit->normal};
}

Image DepthScene::depth(const QSize &size, const QMatrix4x4 &projection) const
{
    Image image(size.width(), size.height(), 1);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const auto seen = seenAt(size, projection, x, y);
            *image.at(x, y) = seen ? 0.5f + 0.5f * projection.map(seen->position).z() : 1;
        }
    }
    return image;
}

Image DepthScene::normals(const QSize &size, const QMatrix4x4 &projection) const
{
    Image image(size.width(), size.height());
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            if (const auto seen = seenAt(size, projection, x, y))
                image.setPixel(x, y, QVector4D(seen->normal, 1));
        }
    }
    return image;
}

std::optional<double> DepthScene::visibility(
    const QSize &size, const QMatrix4x4 &projection, int x, int y, double radius, int rays) const
{
    const auto seen = seenAt(size, projection, x, y);
    if (!seen)
        return std::nullopt;
    const QVector3D &normal = seen->normal;
    const QVector3D other = std::abs(normal.x()) < 0.5f ? QVector3D(1, 0, 0) : QVector3D(0, 1, 0);
    const QVector3D right = QVector3D::crossProduct(other, normal).normalized();
    const QVector3D up = QVector3D::crossProduct(normal, right);
    double sum = 0;
    for (int i = 0; i < rays * rays; ++i) {
        // Even on the disc below the hemisphere: weighted by the cosine.
        const double reach = std::sqrt((i % rays + 0.5) / rays);
        const double angle = 2 * std::acos(-1.0) * (i / rays + 0.5 * (i % 2) + 0.25) / rays;
        const QVector3D direction = float(reach * std::cos(angle)) * right + float(reach * std::sin(angle)) * up
            + float(std::sqrt(1 - reach * reach)) * normal;
        const auto hit = trace(seen->position + 1e-4f * normal, direction);
        sum += hit ? 1 - std::clamp((1 - hit->distance / radius) / 0.4, 0.0, 1.0) : 1;
    }
    return sum / (rays * rays);
}

} // namespace Velmora::Kvz
