// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// The world-to-camera matrix of a camera at `eye` that looks at `center`, with +y up.
inline QMatrix4x4 lookAt(const QVector3D &eye, const QVector3D &center)
{
    QMatrix4x4 camera;
    camera.lookAt(eye, center, QVector3D(0, 1, 0));
    return camera;
}

/// A perspective projection with a vertical field of view of 50 degrees.
inline QMatrix4x4 perspective(const QSize &size, float nearPlane, float farPlane)
{
    QMatrix4x4 projection;
    projection.perspective(50, float(size.width()) / float(size.height()), nearPlane, farPlane);
    return projection;
}

/// The projection shifted by this many pixels, to the right and up, in a picture of this size.
inline QMatrix4x4 movedByPixels(const QMatrix4x4 &projection, const QSize &size, double x, double y)
{
    QMatrix4x4 shift;
    shift.translate(float(2 * x / size.width()), float(2 * y / size.height()));
    return shift * projection;
}

} // namespace Velmora::Kvz
