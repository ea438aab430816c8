// SPDX-License-Identifier: MIT
#include "RenderCameras.h"

#include <Chain/NearestNames.h>

#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// The turns of an orbit in degrees; 0 alone where there is none.
QVector<float> turnsOf(const RenderOptions &options)
{
    if (options.orbit == 0)
        return {0};
    QVector<float> turns;
    if (options.turnsFromPictureToPicture) {
        for (int picture = 0; picture < options.frames; ++picture)
            turns.append(options.orbit * float(picture));
    } else {
        for (int sample = 0; sample < options.samples; ++sample)
            turns.append(options.orbit * float(sample + 1 - options.samples));
    }
    return turns;
}

QVector3D centreOf(const QVector<QVector3D> &points)
{
    if (points.isEmpty())
        return {};
    QVector3D low = points.first();
    QVector3D high = low;
    for (const QVector3D &point : points) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], point[axis]);
            high[axis] = std::max(high[axis], point[axis]);
        }
    }
    return low / 2 + high / 2;
}

/// World to camera, without the scale that nodes above a camera may have, such as that of a file's unit.
QMatrix4x4 viewMatrix(const QMatrix4x4 &cameraToWorld)
{
    const QVector3D back = cameraToWorld.column(2).toVector3D().normalized();
    const QVector3D up = cameraToWorld.column(1).toVector3D();
    const QVector3D right = QVector3D::crossProduct(up, back).normalized();
    const QVector3D straightUp = QVector3D::crossProduct(back, right);
    QMatrix4x4 matrix(right.x(), right.y(), right.z(), 0, straightUp.x(), straightUp.y(), straightUp.z(), 0, back.x(),
        back.y(), back.z(), 0, 0, 0, 0, 1);
    matrix.translate(-cameraToWorld.column(3).toVector3D());
    return matrix;
}

/// A camera of the file, turned around the vertical axis through a point. All that it frames is in the picture; its planes are
/// those of the file, drawn close to the points for the sake of depth's precision. Lengths count in the space of its node.
Camera cameraOf(const ImportedCamera &source, const QVector<QVector3D> &points, const QVector3D &axis, float turn,
    const QSize &size)
{
    Camera camera;
    camera.cameraMatrix = viewMatrix(source.worldMatrix);
    if (turn != 0) {
        camera.cameraMatrix.translate(axis);
        camera.cameraMatrix.rotate(-turn, 0, 1, 0);
        camera.cameraMatrix.translate(-axis);
    }
    float nearest = std::numeric_limits<float>::max();
    float farthest = 0;
    for (const QVector3D &point : points) {
        const float depth = -camera.cameraMatrix.map(point).z();
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
    }
    const auto scale = [&](int column) { return source.worldMatrix.column(column).toVector3D().length(); };
    camera.farPlane = farthest > 0 ? farthest * 1.01f : 1;
    if (source.farPlane > 0)
        camera.farPlane = std::min(camera.farPlane, source.farPlane * scale(2));
    camera.nearPlane = std::max({nearest * 0.99f, camera.farPlane / 1000, source.nearPlane * scale(2)});
    camera.farPlane = std::max(camera.farPlane, camera.nearPlane * 1.01f);

    const float aspect = float(size.width()) / float(size.height());
    if (source.isOrthographic) {
        const float halfHeight = std::max(source.halfExtent.y() * scale(1), source.halfExtent.x() * scale(0) / aspect);
        camera.projectionMatrix.ortho(
            -halfHeight * aspect, halfHeight * aspect, -halfHeight, halfHeight, camera.nearPlane, camera.farPlane);
    } else {
        const float widening = std::max(1.0f, source.aspect / aspect);
        const float half = std::atan(std::tan(source.verticalFieldOfView / 2) * widening);
        camera.projectionMatrix.perspective(2 * qRadiansToDegrees(half), aspect, camera.nearPlane, camera.farPlane);
    }
    return camera;
}

/// The number of a camera of the file; -1, with the reason, where it has none of this name or number.
int findCamera(const CameraChoice &choice, const QVector<ImportedCamera> &cameras, QString *error)
{
    const QString &name = choice.fileCamera;
    QStringList names;
    for (int i = 0; i < cameras.size(); ++i) {
        if (cameras[i].name == name)
            return i;
        names.append(QStringLiteral("\"%1\"").arg(cameras[i].name));
    }
    bool isNumber = false;
    const int number = name.toInt(&isNumber);
    if (isNumber && number >= 0 && number < cameras.size())
        return number;
    static const QStringList directions{QStringLiteral("front"), QStringLiteral("back"), QStringLiteral("left"),
        QStringLiteral("right"), QStringLiteral("top"), QStringLiteral("bottom"), QStringLiteral("iso"),
        QStringLiteral("ortho")};
    const QStringList near = nearestNames(name, directions);
    const QString there = cameras.isEmpty()
        ? QStringLiteral("the file has no cameras")
        : QStringLiteral("the file has %1 (numbers from 0)").arg(names.join(QStringLiteral(", ")));
    name.toFloat(&isNumber);
    const QString hint = isNumber && choice.text == name
        ? QStringLiteral(" (AZIMUTH,ELEVATION are two numbers, such as %1,20)").arg(name)
        : near.isEmpty() ? QString()
                         : QStringLiteral(" (%1)").arg(nearestNamesAdvice(name, directions));
    *error = QStringLiteral("--camera \"%1\": no such view%2, and %3").arg(name, hint, there);
    return -1;
}

/// Whether all points lie beyond one of the planes that bound what a camera sees.
bool isPast(const Camera &camera, const QVector<QVector3D> &points)
{
    const QMatrix4x4 toClip = camera.projectionMatrix * camera.cameraMatrix;
    unsigned beyondAll = 63;
    for (const QVector3D &point : points) {
        const QVector4D p = toClip.map(QVector4D(point, 1));
        unsigned beyond = 0;
        for (int axis = 0; axis < 3; ++axis)
            beyond |= unsigned(p[axis] > p.w()) << axis | unsigned(p[axis] < -p.w()) << (axis + 3);
        beyondAll &= beyond;
        if (!beyondAll)
            return false;
    }
    return true;
}

} // namespace

bool CameraPath::make(const QVector<QVector3D> &points, const QVector<ImportedCamera> &fileCameras,
    const RenderOptions &options, QVector<CameraPath> *paths, QString *error)
{
    const QVector<float> turns = turnsOf(options);
    paths->clear();
    for (const CameraChoice &choice : options.cameras) {
        CameraPath path;
        path.m_turnsFromPictureToPicture = options.turnsFromPictureToPicture;
        if (!choice.fileCamera.isEmpty()) {
            const int number = findCamera(choice, fileCameras, error);
            if (number < 0)
                return false;
            const QVector3D axis = centreOf(points);
            for (const float turn : turns)
                path.m_cameras.append(cameraOf(fileCameras[number], points, axis, turn, options.size));
        } else if (options.orbit == 0) {
            path.m_cameras.append(framePoints(points, choice.view, options.size));
        } else {
            path.m_cameras = frameTurntable(points, choice.view, turns, options.size);
        }
        paths->append(path);
    }
    return true;
}

const Camera &CameraPath::at(int picture, int sample) const
{
    return m_cameras[std::min(m_turnsFromPictureToPicture ? picture : sample, m_cameras.size() - 1)];
}

bool CameraPath::looksPast(const QVector<QVector3D> &points) const
{
    return std::any_of(
        m_cameras.begin(), m_cameras.end(), [&](const Camera &camera) { return isPast(camera, points); });
}

} // namespace Velmora::Kvz
