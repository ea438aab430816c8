// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QPair>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// From where to look at a scene: in a direction that frames it whole, or from a point.
struct KVZ_HOST_EXPORT CameraView
{
    float azimuth = 30; ///< Degrees around the Y axis: 0 looks at the scene from +Z, 90 from +X.
    float elevation = 20; ///< Degrees above the horizon, -90 to 90.
    float distance = 1; ///< 1 where the scene just fits the picture, 2 twice as far.

    bool hasEye = false; ///< Look from `eye` in the place of the three above.
    QVector3D eye; ///< World space.
    bool hasTarget = false;
    QVector3D target; ///< World space; the centre of the scene without hasTarget.

    /// Degrees around the vertical axis through the target by which the camera stands further on than all of this says, at the
    /// same distance and height. Adding to it from frame to frame goes around the scene, where adding to the azimuth would
    /// frame the scene anew each time.
    float turn = 0;

    float fieldOfView = 35; ///< Vertical, degrees, above 0 and below 180.

    /// Reads parts joined by ":", each of them
    /// - `AZIMUTH,ELEVATION` or `AZIMUTH,ELEVATION,DISTANCE`,
    /// - `eye=X,Y,Z`, `target=X,Y,Z` or `fov=DEGREES`,
    ///
    /// such as "30,20", "-45,10,0.5:fov=60" and "eye=4,3,5:target=0,1,0". False, with `view` untouched and one line in
    /// `error`, for text that is none of these and for values out of range.
    static bool fromString(const QString &text, CameraView *view, QString *error);
};

/// A camera as the frame values take it.
struct Camera
{
    QMatrix4x4 cameraMatrix; ///< World to camera; the camera looks along -Z with Y up.
    QMatrix4x4 projectionMatrix; ///< Perspective.
    float nearPlane = 0; ///< Distance above 0.
    float farPlane = 0; ///< Distance beyond the near plane.
};

/// The camera of a view on a scene with these bounds (minimum, then maximum corner, world space) for a picture of this
/// size in pixels. Near and far plane close around the bounds, the near one at a thousandth of the far one or beyond. For
/// bounds without extent a scene one unit across is taken.
KVZ_HOST_EXPORT Camera frameScene(const QPair<QVector3D, QVector3D> &bounds, const CameraView &view, const QSize &size);

} // namespace Velmora::Kvz
