// SPDX-License-Identifier: MIT
#include <Host/Camera.h>

#include "NumberList.h"

#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtCore/QtMath>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

constexpr float margin = 1.06f; // The picture relative to what the scene fills.

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
    const QVector<float> n = numbers(part);
    if (n.size() != 2 && n.size() != 3)
        return QStringLiteral("expected AZIMUTH,ELEVATION[,DISTANCE], eye=X,Y,Z, target=X,Y,Z or fov=DEGREES");
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

using Corners = std::array<QVector3D, 8>;

Corners cornersOf(const QVector3D &low, const QVector3D &high)
{
    Corners corners;
    for (int i = 0; i < 8; ++i)
        corners[size_t(i)] =
            QVector3D(i & 1 ? high.x() : low.x(), i & 2 ? high.y() : low.y(), i & 4 ? high.z() : low.z());
    return corners;
}

/// World space to a camera at the target, rotated as the view says.
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

/// Where along one axis of the picture, and how far back, a camera must be to have all corners between two planes that open
/// by `tangent` to either side.
struct Stand
{
    float aside;
    float back;
};

Stand standFor(const Corners &corners, const QMatrix4x4 &turned, int axis, float tangent)
{
    float low = -std::numeric_limits<float>::max();
    float high = low;
    for (const QVector3D &corner : corners) {
        const QVector3D p = turned.map(corner);
        high = std::max(high, p.z() * tangent + p[axis]);
        low = std::max(low, p.z() * tangent - p[axis]);
    }
    return {(high - low) / 2, (high + low) / (2 * tangent)};
}

/// Steps back from a target until all corners are in the picture. Without an explicit target it also steps aside, so that
/// the scene is centred although perspective enlarges its near parts.
QMatrix4x4 stepBack(
    const CameraView &view, const Corners &corners, const QMatrix4x4 &turned, float tangentX, float tangentY)
{
    const Stand x = standFor(corners, turned, 0, tangentX);
    const Stand y = standFor(corners, turned, 1, tangentY);
    QMatrix4x4 matrix;
    if (view.hasTarget) {
        const float back = std::max(x.back + std::abs(x.aside) / tangentX, y.back + std::abs(y.aside) / tangentY);
        matrix.translate(0, 0, -view.distance * back);
    } else {
        matrix.translate(-x.aside, -y.aside, -view.distance * std::max(x.back, y.back));
    }
    return matrix;
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

Camera frameScene(const QPair<QVector3D, QVector3D> &bounds, const CameraView &view, const QSize &size)
{
    const QVector3D centre = bounds.first / 2 + bounds.second / 2;
    const QVector3D half = bounds.first == bounds.second ? QVector3D(0.5f, 0.5f, 0.5f) : bounds.second - centre;
    const Corners corners = cornersOf(centre - half, centre + half);
    const QVector3D target = view.hasTarget ? view.target : centre;
    const float aspect = float(size.width()) / float(size.height());
    const float tangent = std::tan(qDegreesToRadians(view.fieldOfView) / 2) / margin;

    Camera camera;
    if (view.hasEye) {
        const QVector3D line = (target - view.eye).normalized();
        const QVector3D forward = line.isNull() ? QVector3D(0, 0, -1) : line; // Null for an eye at its target.
        const bool vertical = std::abs(forward.y()) > 0.999999f;
        const QVector3D up = vertical ? QVector3D(0, 0, forward.y()) : QVector3D(0, 1, 0);
        camera.cameraMatrix.lookAt(view.eye, view.eye + forward, up);
    } else {
        const QMatrix4x4 turned = orbit(view, target);
        camera.cameraMatrix = stepBack(view, corners, turned, tangent * aspect, tangent) * turned;
    }
    if (view.turn != 0)
        camera.cameraMatrix *= turnedBack(view.turn, target);

    float nearest = std::numeric_limits<float>::max();
    float farthest = 0;
    for (const QVector3D &corner : corners) {
        const float depth = -camera.cameraMatrix.map(corner).z();
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
    }
    camera.farPlane = farthest > 0 ? farthest * 1.01f : half.length(); // With all behind the eye any range will do.
    camera.nearPlane = std::max(nearest * 0.99f, camera.farPlane / 1000);
    camera.projectionMatrix.perspective(view.fieldOfView, aspect, camera.nearPlane, camera.farPlane);
    return camera;
}

} // namespace Velmora::Kvz
