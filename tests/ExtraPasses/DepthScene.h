// SPDX-License-Identifier: MIT
#pragma once

#include "support/Image.h"

#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

#include <optional>
#include <vector>

namespace Velmora::Kvz {

/// Where a ray meets a surface.
struct SceneHit
{
    double distance; ///< In lengths of the ray's direction.
    QVector3D normal; ///< Of length 1, towards the ray's origin.
};

/// Balls and rectangles, seen by rays: depth images, normals, and how much of its surroundings a point sees.
class DepthScene
{
public:
    void addBall(const QVector3D &centre, float radius);
    /// `right` and `up` lead from the centre to the middles of two sides, and are perpendicular.
    void addRectangle(const QVector3D &centre, const QVector3D &right, const QVector3D &up);

    std::optional<SceneHit> trace(const QVector3D &origin, const QVector3D &direction) const;
    /// Window depth in one channel, 1 where nothing is, from a camera at the origin.
    Image depth(const QSize &size, const QMatrix4x4 &projection) const;
    /// Normals, zeros where nothing is.
    Image normals(const QSize &size, const QMatrix4x4 &projection) const;
    /// The part of the hemisphere, weighted by the cosine, that is seen from what a pixel shows, where surfaces fade from 0.6 radii to
    /// one; nothing where the pixel shows nothing. By `rays` squared rays.
    std::optional<double> visibility(
        const QSize &size, const QMatrix4x4 &projection, int x, int y, double radius, int rays = 24) const;

private:
    struct Ball
    {
        QVector3D centre;
        float radius;
    };
    struct Rectangle
    {
        QVector3D centre;
        QVector3D right;
        QVector3D up;
    };
    struct Seen
    {
        QVector3D position;
        QVector3D normal;
    };
    std::optional<Seen> seenAt(const QSize &size, const QMatrix4x4 &projection, int x, int y) const;

    std::vector<Ball> m_balls;
    std::vector<Rectangle> m_rectangles;
};

} // namespace Velmora::Kvz
