// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QPair>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// Where to look at a scene from: from a direction that frames all of it, or from a point.
struct KVZ_HOST_EXPORT CameraView
{
    float azimuth = 30; ///< Degrees around the Y axis: 0 looks at the scene from +Z, 90 from +X.
    float elevation = 20; ///< Degrees above the horizon, -90 to 90.
    float distance = 1; ///< At 1 the scene just fits the picture, 2 is twice as far.

    bool hasEye = false; ///< Look from `eye`; the three above do not apply.
    QVector3D eye; ///< World space.
    bool hasTarget = false;
    QVector3D target; ///< World space; the centre of the scene without hasTarget.

    /// Degrees by which the camera is then turned around the vertical axis through the target, at the same distance and
    /// height. Increase it from frame to frame to go around the scene; a change of azimuth would frame the scene again.
    float turn = 0;

    float fieldOfView = 35; ///< Vertical, degrees, above 0 and below 180.

    /// Reads parts joined by ":", each of them
    /// - `AZIMUTH,ELEVATION` or `AZIMUTH,ELEVATION,DISTANCE`,
    /// - `eye=X,Y,Z`, `target=X,Y,Z` or `fov=DEGREES`,
    ///
    /// such as "30,20", "-45,10,0.5:fov=60" and "eye=4,3,5:target=0,1,0". For any other text and for values out of range it
    /// returns false, with one line in `error` and `view` unchanged.
    static bool fromString(const QString &text, CameraView *view, QString *error);
};

/// A camera in the form of frame values.
struct Camera
{
    QMatrix4x4 cameraMatrix; ///< World to camera; the camera looks along -Z with Y up.
    QMatrix4x4 projectionMatrix; ///< Perspective.
    float nearPlane = 0; ///< Distance above 0.
    float farPlane = 0; ///< Distance beyond the near plane.
};

/// The camera of a view of a scene with these bounds (minimum, then maximum corner, world space) for a picture of this
/// size in pixels. The near and far planes fit closely around the bounds; the near one is no closer than a thousandth of the
/// far one. Bounds without extent count as a scene one unit across.
KVZ_HOST_EXPORT Camera frameScene(const QPair<QVector3D, QVector3D> &bounds, const CameraView &view, const QSize &size);

} // namespace Velmora::Kvz
