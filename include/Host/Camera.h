// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QPair>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// Where to look at a scene from: from a direction that frames all of it, or from a point.
struct KVZ_HOST_EXPORT CameraView
{
    float azimuth = 30; ///< Degrees around the Y axis: 0 looks at the scene from +Z, 90 from +X.
    float elevation = 20; ///< Degrees above the horizon, -90 to 90.
    float distance = 1; ///< At 1 the scene just fits the picture, 2 is twice as far, or half as large if orthographic.

    bool hasEye = false; ///< Look from `eye`; of the three above only the distance of orthographic views applies.
    QVector3D eye; ///< World space.
    bool hasTarget = false;
    QVector3D target; ///< World space; the centre of the scene without hasTarget.

    /// Degrees by which the camera is then turned around the vertical axis through the target, at the same distance and
    /// height. frameTurntable() frames all pictures of such an orbit together; a change of azimuth would frame each again.
    float turn = 0;

    bool isOrthographic = false; ///< Parallel rays: the same size at every depth.
    float fieldOfView = 35; ///< Vertical, degrees, above 0 and below 180. Not of orthographic views.

    /// Reads parts joined by ":", each of them
    /// - `AZIMUTH,ELEVATION` or `AZIMUTH,ELEVATION,DISTANCE`,
    /// - `front`, `back`, `left`, `right`, `top`, `bottom` or `iso`: front looks from +Z, right from +X, iso along the
    ///   diagonal of a cube from the front, right and above,
    /// - `ortho` for parallel rays,
    /// - `eye=X,Y,Z`, `target=X,Y,Z` or `fov=DEGREES`,
    ///
    /// such as "30,20", "iso:ortho", "-45,10,0.5:fov=60" and "eye=4,3,5:target=0,1,0". For any other text and for values out of
    /// range it returns false, with one line in `error` and `view` unchanged.
    static bool fromString(const QString &text, CameraView *view, QString *error);
};

/// A camera in the form of frame values.
struct Camera
{
    QMatrix4x4 cameraMatrix; ///< World to camera; the camera looks along -Z with Y up.
    QMatrix4x4 projectionMatrix; ///< Perspective or orthographic.
    float nearPlane = 0; ///< Distance above 0.
    float farPlane = 0; ///< Distance beyond the near plane.
};

/// The camera of a view on a scene, given by points of its surface (world space; all corners of what is drawn, or any points
/// with the same convex hull), for a picture of this size in pixels. Without an eye or a target the projected scene
/// is centred in both directions and fills 95 % of the picture in the tighter one; less only where
/// the eye would come closer to the nearest point than 1/200 of the depth of the scene. The near and far planes fit closely around
/// the points; the near one is no closer than a thousandth of the far one. No points, and points that all coincide, count as
/// a scene one unit across.
KVZ_HOST_EXPORT Camera framePoints(const QVector<QVector3D> &points, const CameraView &view, const QSize &size);

/// The same for a scene of which only the bounds are known: minimum, then maximum corner, world space.
KVZ_HOST_EXPORT Camera frameScene(const QPair<QVector3D, QVector3D> &bounds, const CameraView &view, const QSize &size);

/// The cameras of pictures that go around a scene, one for each turn (degrees, as CameraView::turn, which is not read). They
/// share one vertical axis, through the target or the centre of the bounds, and one distance: the closest at which every one
/// of the pictures has the whole scene, centred in height over all of them. So a point on the axis keeps its place. A view
/// with an eye stays at its distance and height.
KVZ_HOST_EXPORT QVector<Camera> frameTurntable(
    const QVector<QVector3D> &points, const CameraView &view, const QVector<float> &turns, const QSize &size);

} // namespace Velmora::Kvz
