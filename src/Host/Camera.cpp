// SPDX-License-Identifier: MIT
#include <Host/Camera.h>

#include "NumberList.h"

#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// How close an eye that frames a scene comes to its nearest point, in parts of the scene's depth: a tip that points at the
/// eye fits the picture at every distance.
constexpr float leastDepth = 0.005f;

/// Of the picture's sides, that the scene fills.
constexpr float filled = 0.95f;

/// The elevation of a cube's diagonal, whose tangent is 1 / sqrt(2).
constexpr float diagonalElevation = 35.2643897f;

struct NamedDirection
{
    const char *name;
    float azimuth;
    float elevation;
};

constexpr NamedDirection namedDirections[] = {{"front", 0, 0}, {"back", 180, 0}, {"left", -90, 0}, {"right", 90, 0},
    {"top", 0, 90}, {"bottom", 0, -90}, {"iso", 45, diagonalElevation}};

bool readDirection(const QString &name, CameraView *view)
{
    for (const NamedDirection &direction : namedDirections) {
        if (name == QLatin1String(direction.name)) {
            view->azimuth = direction.azimuth;
            view->elevation = direction.elevation;
            return true;
        }
    }
    return false;
}

bool readPoint(const QString &text, QVector3D *point)
{
    const QVector<float> n = numbers(text);
    if (n.size() != 3)
        return false;
    *point = QVector3D(n[0], n[1], n[2]);
    return true;
}

/// Reads one part of a view's text. Returns what is wrong with it, or nothing.
QString readPart(const QString &part, CameraView *view)
{
    const QString key = part.section(QLatin1Char('='), 0, 0);
    const QString value = part.section(QLatin1Char('='), 1);
    if (key == QLatin1String("eye")) {
        view->hasEye = true;
        return readPoint(value, &view->eye) ? QString() : QStringLiteral("eye must be X,Y,Z");
    }
    if (key == QLatin1String("target")) {
        view->hasTarget = true;
        return readPoint(value, &view->target) ? QString() : QStringLiteral("target must be X,Y,Z");
    }
    if (key == QLatin1String("fov")) {
        const QVector<float> n = numbers(value);
        if (n.size() != 1 || n[0] <= 0 || n[0] >= 180)
            return QStringLiteral("fov must be above 0 and below 180 degrees");
        view->fieldOfView = n[0];
        return {};
    }
    if (part == QLatin1String("ortho")) {
        view->isOrthographic = true;
        return {};
    }
    if (readDirection(part, view))
        return {};
    const QVector<float> n = numbers(part);
    if (n.size() != 2 && n.size() != 3)
        return QStringLiteral(
            "expected AZIMUTH,ELEVATION[,DISTANCE], front, back, left, right, top, bottom, iso, ortho, "
            "eye=X,Y,Z, target=X,Y,Z or fov=DEGREES");
    if (n[1] < -90 || n[1] > 90)
        return QStringLiteral("elevation must be from -90 to 90 degrees");
    if (n.size() == 3 && n[2] <= 0)
        return QStringLiteral("distance must be above 0");
    view->azimuth = n[0];
    view->elevation = n[1];
    if (n.size() == 3)
        view->distance = n[2];
    return {};
}

struct Box
{
    QVector3D low;
    QVector3D high;

    QVector3D centre() const { return low / 2 + high / 2; }
};

Box boundsOf(const QVector<QVector3D> &points)
{
    Box box{points.first(), points.first()};
    for (const QVector3D &point : points) {
        for (int axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min(box.low[axis], point[axis]);
            box.high[axis] = std::max(box.high[axis], point[axis]);
        }
    }
    return box;
}

QVector<QVector3D> cornersOf(const QVector3D &low, const QVector3D &high)
{
    QVector<QVector3D> corners;
    for (int i = 0; i < 8; ++i)
        corners.append(QVector3D(i & 1 ? high.x() : low.x(), i & 2 ? high.y() : low.y(), i & 4 ? high.z() : low.z()));
    return corners;
}

/// The points, or the corners of a scene one unit across where they have no extent.
QVector<QVector3D> withExtent(const QVector<QVector3D> &points)
{
    const QVector3D first = points.value(0);
    const QVector3D half(0.5f, 0.5f, 0.5f);
    const bool coincide = std::all_of(points.begin(), points.end(), [&](const QVector3D &p) { return p == first; });
    return coincide ? cornersOf(first - half, first + half) : points;
}

/// World to a camera at the target, turned as the view says.
QMatrix4x4 orbit(const CameraView &view, const QVector3D &target)
{
    QMatrix4x4 matrix;
    matrix.rotate(view.elevation, 1, 0, 0);
    matrix.rotate(-view.azimuth, 0, 1, 0);
    matrix.translate(-target);
    return matrix;
}

/// Turns world space back around the vertical axis through a point; to be applied before a camera's matrix.
QMatrix4x4 turnedBack(float degrees, const QVector3D &point)
{
    QMatrix4x4 matrix;
    matrix.translate(point);
    matrix.rotate(-degrees, 0, 1, 0);
    matrix.translate(-point);
    return matrix;
}

/// What a picture shows: how far it reaches to either side at depth 1, or at every depth where it is orthographic.
struct Lens
{
    bool isOrthographic;
    float tangent
        [2]; ///< Of half the horizontal and half the vertical field of view; orthographic: the ratio of the sides.

    Lens(const CameraView &view, const QSize &size)
        : isOrthographic(view.isOrthographic)
    {
        tangent[1] = isOrthographic ? 1 : std::tan(qDegreesToRadians(view.fieldOfView) / 2);
        tangent[0] = tangent[1] * float(size.width()) / float(size.height());
    }
};

/// The scene as one or several pictures have it: its points turned into the camera's axes, the target at the origin.
using Turned = QVector<QMatrix4x4>;

template <typename Visit> void forEachPoint(const QVector<QVector3D> &points, const Turned &turned, const Visit &visit)
{
    for (const QMatrix4x4 &matrix : turned) {
        for (const QVector3D &point : points)
            visit(matrix.map(point));
    }
}

/// Where along one axis of the picture, and how far back, a camera must stand to have all points between two planes that open
/// by `tangent` to either side.
struct Stand
{
    float aside;
    float back;
};

Stand standFor(const QVector<QVector3D> &points, const Turned &turned, int axis, float tangent)
{
    float low = -std::numeric_limits<float>::max();
    float high = low;
    forEachPoint(points, turned, [&](const QVector3D &p) {
        high = std::max(high, p.z() * tangent + p[axis]);
        low = std::max(low, p.z() * tangent - p[axis]);
    });
    return {(high - low) / 2, (high + low) / (2 * tangent)};
}

/// Where along one axis of the picture a camera so far back must stand for the projected points to reach equally far to both
/// sides. The two points that reach farthest say where; from there others may reach farther, until no new ones do.
float centreFor(const QVector<QVector3D> &points, const Turned &turned, int axis, float back, float aside)
{
    constexpr int mostExchanges = 32;
    for (int i = 0; i < mostExchanges; ++i) {
        float highest = -std::numeric_limits<float>::max();
        float lowest = std::numeric_limits<float>::max();
        QVector3D high, low;
        forEachPoint(points, turned, [&](const QVector3D &p) {
            const float place = (p[axis] - aside) / (back - p.z());
            if (place > highest) {
                highest = place;
                high = p;
            }
            if (place < lowest) {
                lowest = place;
                low = p;
            }
        });
        const float highDepth = back - high.z();
        const float lowDepth = back - low.z();
        const float next = (high[axis] * lowDepth + low[axis] * highDepth) / (highDepth + lowDepth);
        if (std::abs(next - aside) <= 1e-6f * (highDepth + lowDepth))
            return next;
        aside = next;
    }
    return aside;
}

/// How a camera with the target before it has all points in the picture.
struct Placement
{
    float aside[2] = {0, 0};
    float back = 0;
    float halfHeight = 0; ///< Of orthographic pictures.
};

/// The closest placement. An axis that `mayShift` is centred, so that what perspective enlarges takes no more room than the
/// rest; the others keep the target in the middle.
Placement placeInPerspective(
    const QVector<QVector3D> &points, const Turned &turned, const Lens &lens, float distance, const bool (&mayShift)[2])
{
    Placement placement;
    for (int axis : {0, 1}) {
        const float tangent = lens.tangent[axis] * filled;
        const Stand stand = standFor(points, turned, axis, tangent);
        placement.aside[axis] = mayShift[axis] ? stand.aside : 0;
        placement.back = std::max(placement.back, stand.back + (mayShift[axis] ? 0 : std::abs(stand.aside) / tangent));
    }
    float nearest = -std::numeric_limits<float>::max();
    float farthest = std::numeric_limits<float>::max();
    forEachPoint(points, turned, [&](const QVector3D &p) {
        nearest = std::max(nearest, p.z());
        farthest = std::min(farthest, p.z());
    });
    placement.back = std::max(placement.back, nearest + leastDepth * (nearest - farthest));

    // Closer than where all fits, points may lie behind the eye.
    const float centredAt = placement.back * std::max(1.0f, distance);
    for (int axis : {0, 1}) {
        if (mayShift[axis])
            placement.aside[axis] = centreFor(points, turned, axis, centredAt, placement.aside[axis]);
    }
    placement.back *= distance;
    return placement;
}

Placement placeInParallel(
    const QVector<QVector3D> &points, const Turned &turned, const Lens &lens, float distance, const bool (&mayShift)[2])
{
    QVector3D low, high;
    low.setX(std::numeric_limits<float>::max());
    low = QVector3D(low.x(), low.x(), low.x());
    high = -low;
    forEachPoint(points, turned, [&](const QVector3D &p) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], p[axis]);
            high[axis] = std::max(high[axis], p[axis]);
        }
    });
    Placement placement;
    for (int axis : {0, 1}) {
        placement.aside[axis] = mayShift[axis] ? (low[axis] + high[axis]) / 2 : 0;
        const float reach = std::max(high[axis] - placement.aside[axis], placement.aside[axis] - low[axis]);
        placement.halfHeight = std::max(placement.halfHeight, distance * reach / (filled * lens.tangent[axis]));
    }
    // Any place before the scene shows the same; this one leaves the near plane room.
    placement.back = high.z() + std::max(high.z() - low.z(), placement.halfHeight);
    return placement;
}

Placement place(
    const QVector<QVector3D> &points, const Turned &turned, const Lens &lens, float distance, const bool (&mayShift)[2])
{
    return lens.isOrthographic ? placeInParallel(points, turned, lens, distance, mayShift)
                               : placeInPerspective(points, turned, lens, distance, mayShift);
}

QMatrix4x4 matrixOf(const Placement &placement)
{
    QMatrix4x4 matrix;
    matrix.translate(-placement.aside[0], -placement.aside[1], -placement.back);
    return matrix;
}

/// World to a camera at an eye that looks at a target, Y up.
QMatrix4x4 lookFrom(const QVector3D &eye, const QVector3D &target)
{
    const QVector3D line = (target - eye).normalized();
    const QVector3D forward = line.isNull() ? QVector3D(0, 0, -1) : line; // an eye at its target
    const bool vertical = std::abs(forward.y()) > 0.999999f;
    const QVector3D up = vertical ? QVector3D(0, 0, forward.y()) : QVector3D(0, 1, 0);
    QMatrix4x4 matrix;
    matrix.lookAt(eye, eye + forward, up);
    return matrix;
}

/// A camera with its planes around the points.
Camera closeAround(const QVector<QVector3D> &points, const QMatrix4x4 &cameraMatrix, const CameraView &view,
    const Lens &lens, float halfHeight, const QSize &size)
{
    Camera camera;
    camera.cameraMatrix = cameraMatrix;
    float nearest = std::numeric_limits<float>::max();
    float farthest = 0;
    for (const QVector3D &point : points) {
        const float depth = -cameraMatrix.map(point).z();
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
    }
    const Box box = boundsOf(points);
    camera.farPlane =
        farthest > 0 ? farthest * 1.01f : (box.high - box.centre()).length(); // all behind: any range will do
    camera.nearPlane = std::max(nearest * 0.99f, camera.farPlane / 1000);
    if (lens.isOrthographic) {
        const float halfWidth = halfHeight * lens.tangent[0];
        camera.projectionMatrix.ortho(
            -halfWidth, halfWidth, -halfHeight, halfHeight, camera.nearPlane, camera.farPlane);
    } else {
        camera.projectionMatrix.perspective(
            view.fieldOfView, float(size.width()) / float(size.height()), camera.nearPlane, camera.farPlane);
    }
    return camera;
}

/// Half the height of an orthographic picture from an eye, with all points in it; 0 of others.
float halfHeightFrom(const QVector<QVector3D> &points, const Turned &turned, const Lens &lens, float distance)
{
    return lens.isOrthographic ? place(points, turned, lens, distance, {false, false}).halfHeight : 0;
}

} // namespace

bool CameraView::fromString(const QString &text, CameraView *view, QString *error)
{
    CameraView result;
    for (const QString &part : text.split(QLatin1Char(':'))) {
        const QString problem = readPart(part, &result);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("\"%1\": %2").arg(part, problem);
            return false;
        }
    }
    if (result.hasEye && result.hasTarget && result.eye == result.target) {
        *error = QStringLiteral("\"%1\": eye and target are the same point").arg(text);
        return false;
    }
    *view = result;
    return true;
}

Camera framePoints(const QVector<QVector3D> &points, const CameraView &view, const QSize &size)
{
    const QVector<QVector3D> scene = withExtent(points);
    const QVector3D target = view.hasTarget ? view.target : boundsOf(scene).centre();
    const Lens lens(view, size);
    QMatrix4x4 matrix;
    float halfHeight = 0;
    if (view.hasEye) {
        matrix = lookFrom(view.eye, target);
        halfHeight = halfHeightFrom(scene, {matrix}, lens, view.distance);
    } else {
        const QMatrix4x4 turned = orbit(view, target);
        const Placement placement = place(scene, {turned}, lens, view.distance, {!view.hasTarget, !view.hasTarget});
        matrix = matrixOf(placement) * turned;
        halfHeight = placement.halfHeight;
    }
    if (view.turn != 0)
        matrix *= turnedBack(view.turn, target);
    return closeAround(scene, matrix, view, lens, halfHeight, size);
}

Camera frameScene(const QPair<QVector3D, QVector3D> &bounds, const CameraView &view, const QSize &size)
{
    return framePoints(cornersOf(bounds.first, bounds.second), view, size);
}

QVector<Camera> frameTurntable(
    const QVector<QVector3D> &points, const CameraView &view, const QVector<float> &turns, const QSize &size)
{
    const QVector<QVector3D> scene = withExtent(points);
    const QVector3D target = view.hasTarget ? view.target : boundsOf(scene).centre();
    const Lens lens(view, size);
    Turned turned;
    for (float turn : turns)
        turned.append((view.hasEye ? lookFrom(view.eye, target) : orbit(view, target)) * turnedBack(turn, target));
    // A shift to the side would move the axis; one in height moves no point of it to the side.
    QMatrix4x4 stepBack;
    float halfHeight = 0;
    if (view.hasEye) {
        halfHeight = halfHeightFrom(scene, turned, lens, view.distance);
    } else if (!turns.isEmpty()) {
        const Placement placement = place(scene, turned, lens, view.distance, {false, !view.hasTarget});
        stepBack = matrixOf(placement);
        halfHeight = placement.halfHeight;
    }
    QVector<Camera> cameras;
    for (const QMatrix4x4 &matrix : qAsConst(turned))
        cameras.append(closeAround(scene, stepBack * matrix, view, lens, halfHeight, size));
    return cameras;
}

} // namespace Velmora::Kvz
