// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Camera.h>
#include <Host/Export.h>

#include <QtCore/QPair>
#include <QtCore/QPointF>
#include <QtCore/QSizeF>
#include <QtGui/QQuaternion>
#include <QtGui/QVector3D>

#include <optional>

namespace Velmora::Kvz {

/// A view as a person moves it: around a point, at a distance.
struct CameraPose
{
    QVector3D pivot; ///< World space; in the middle of the picture.
    QQuaternion rotation; ///< Camera to world: the camera looks along its -Z, with Y up.
    float distance = 1; ///< From the pivot to the eye, above 0.
    float fieldOfView = 35; ///< Vertical, degrees, above 0 and below 180.
    /// Parallel rays. What lies at the pivot's depth is as large as in perspective from that distance.
    bool isOrthographic = false;

    QVector3D eye() const { return pivot + rotation.rotatedVector(QVector3D(0, 0, distance)); }
};

/// A camera that is moved by hand: turned, panned and zoomed, fitted to a scene, and led from view to view. It knows neither a window nor
/// OpenGL.
///
/// Positions are in the unit of the viewport's size, from the upper left, as events of a widget have them. All motions keep to the
/// pointer: what was under it when a pan or a zoom began stays under it.
class KVZ_HOST_EXPORT CameraController
{
public:
    enum class Mode {
        Turntable, ///< Around the up axis, and up and down to the poles: the horizon stays level.
        Trackball ///< Around any axis, as a ball under the pointer.
    };
    enum class NamedView { Front, Back, Left, Right, Top, Bottom, Iso };

    CameraController();

    Mode mode() const { return m_mode; }
    /// A turntable levels the horizon with the next turn.
    void setMode(Mode mode) { m_mode = mode; }
    /// The axis that a turntable turns around, and that named views have upwards; +Y unless set. A zero vector is ignored.
    void setUpAxis(const QVector3D &up);
    QVector3D upAxis() const { return m_upRotation.rotatedVector(QVector3D(0, 1, 0)); }

    /// Size of the picture, above 0 in both directions; another is ignored.
    void setViewport(const QSizeF &size);
    QSizeF viewport() const { return m_size; }
    /// What is looked at: minimum, then maximum corner in world space. The near and far planes and fit() follow it. Bounds that are not
    /// finite are ignored.
    void setScene(const QPair<QVector3D, QVector3D> &bounds);
    QPair<QVector3D, QVector3D> scene() const { return m_scene; }

    const CameraPose &pose() const { return m_pose; }
    /// Ends a transition. Values out of range are ignored, each by itself.
    void setPose(const CameraPose &pose);
    /// Grows with each change of the camera.
    quint64 revision() const { return m_revision; }
    /// Matrices and planes for the present pose. The planes fit around the scene; the near one is no closer than a thousandth of the
    /// far one.
    Camera camera() const;

    /// \name Motions
    /// They end a transition.
    /// @{
    /// Turns by a drag between two positions.
    void turn(const QPointF &from, const QPointF &to);
    /// Moves the camera sideways, so that the point under `from` comes under `to`. The point is `grabbed`, in world space, or else the one at
    /// the depth of the pivot.
    void pan(const QPointF &from, const QPointF &to, const std::optional<QVector3D> &grabbed = std::nullopt);
    /// Comes closer by a factor above 0, below 1 farther; what is at `at` stays there: the point `grabbed`, in world space, or else the one
    /// at the depth of the pivot. The pivot moves towards it.
    void zoom(float factor, const QPointF &at, const std::optional<QVector3D> &grabbed = std::nullopt);
    /// Rolls around the line of sight, in degrees counter-clockwise of the picture. A turntable stays level and ignores it.
    void roll(float degrees);
    void setOrthographic(bool isOrthographic);
    void setFieldOfView(float degrees);
    /// @}

    /// \name Views
    /// Each takes `seconds` to get there; 0: at once.
    /// @{
    /// Shows the whole scene from where one looks now, filling 95 % of the picture in the tighter direction.
    void fit(double seconds = 0);
    /// The same for a part of it.
    void fit(const QPair<QVector3D, QVector3D> &bounds, double seconds = 0);
    /// Looks at the whole scene from a side. Front looks from +Z, right from +X, iso along the diagonal from the front, right and above,
    /// of the axes that setUpAxis() has turned.
    void show(NamedView view, double seconds = 0);
    /// The same from azimuth and elevation in degrees, as CameraView has them.
    void show(float azimuth, float elevation, double seconds = 0);
    /// Leads from the present pose to another, slow at both ends. Whether it is orthographic changes at once.
    void moveTo(const CameraPose &pose, double seconds);
    /// Goes on with a transition; call it before each frame with the time since the last call. Whether one is still under way.
    bool advance(double seconds);
    bool isMoving() const { return m_transition.has_value(); }
    /// @}

    /// The world-space point at the pivot's depth that a position shows.
    QVector3D pointAt(const QPointF &position) const;
    /// Where a point in world space is seen.
    QPointF positionOf(const QVector3D &point) const;

private:
    struct Transition
    {
        CameraPose from;
        CameraPose to;
        double seconds;
        double passed;
    };

    float halfHeight() const;
    QVector3D offsetAt(const QPointF &position, float depth) const;
    float depthOf(const QVector3D &point) const;
    QVector3D toCamera(const QVector3D &point) const;
    QVector3D onBall(const QPointF &position) const;
    CameraPose fitted(const QPair<QVector3D, QVector3D> &bounds, const QQuaternion &rotation) const;
    QQuaternion turned(float azimuth, float elevation) const;
    void touch() { ++m_revision; }

    Mode m_mode = Mode::Turntable;
    QQuaternion m_upRotation; ///< Turns +Y to the up axis.
    QSizeF m_size{1, 1};
    QPair<QVector3D, QVector3D> m_scene{QVector3D(-0.5f, -0.5f, -0.5f), QVector3D(0.5f, 0.5f, 0.5f)};
    CameraPose m_pose;
    std::optional<Transition> m_transition;
    quint64 m_revision = 1;
};

} // namespace Velmora::Kvz
