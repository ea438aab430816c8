// SPDX-License-Identifier: MIT
#include <Host/CameraController.h>

#include <QtCore/QtMath>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

constexpr float degreesPerSide = 180; ///< A drag over the shorter side of the viewport turns by so much.
constexpr float filledShare = 0.95f; ///< Of the picture, by a scene that fits it.
constexpr float nearestShare = 0.001f; ///< Of the far plane's distance, for the near one.

bool isFinite(const QVector3D &vector)
{
    return std::isfinite(vector.x()) && std::isfinite(vector.y()) && std::isfinite(vector.z());
}

bool isFieldOfView(float degrees)
{
    return degrees > 0 && degrees < 180;
}

std::array<QVector3D, 8> cornersOf(const QPair<QVector3D, QVector3D> &bounds)
{
    std::array<QVector3D, 8> corners;
    for (int i = 0; i < 8; ++i) {
        const auto pick = [i](int bit, float low, float high) { return (i >> bit) & 1 ? high : low; };
        corners[size_t(i)] = QVector3D(pick(0, bounds.first.x(), bounds.second.x()),
            pick(1, bounds.first.y(), bounds.second.y()), pick(2, bounds.first.z(), bounds.second.z()));
    }
    return corners;
}

/// The place of an eye along an axis from which points in camera space reach equally far to both sides; 0 for a distance that is endless.
float middleOf(const std::array<QVector3D, 8> &points, int axis, float distance)
{
    const auto reach = [&](float eye, float side) {
        float farthest = std::numeric_limits<float>::lowest();
        for (const QVector3D &point : points)
            farthest = std::max(farthest, side * (point[axis] - eye) / (distance > 0 ? distance - point.z() : 1));
        return farthest;
    };
    float low = std::numeric_limits<float>::max();
    float high = std::numeric_limits<float>::lowest();
    for (const QVector3D &point : points) {
        low = std::min(low, point[axis]);
        high = std::max(high, point[axis]);
    }
    for (int i = 0; i < 40; ++i) {
        const float eye = (low + high) / 2;
        (reach(eye, 1) > reach(eye, -1) ? low : high) = eye;
    }
    return (low + high) / 2;
}

QVector3D mixed(const QVector3D &a, const QVector3D &b, float share)
{
    return a + share * (b - a);
}

} // namespace

CameraController::CameraController()
{
    m_pose = fitted(m_scene, turned(30, 20));
}

void CameraController::setUpAxis(const QVector3D &up)
{
    if (!isFinite(up) || up.isNull())
        return;
    m_upRotation = QQuaternion::rotationTo(QVector3D(0, 1, 0), up.normalized());
}

void CameraController::setViewport(const QSizeF &size)
{
    if (size.isEmpty() || size == m_size)
        return;
    m_size = size;
    touch();
}

void CameraController::setScene(const QPair<QVector3D, QVector3D> &bounds)
{
    if (!isFinite(bounds.first) || !isFinite(bounds.second) || bounds == m_scene)
        return;
    m_scene = bounds;
    touch();
}

void CameraController::setPose(const CameraPose &pose)
{
    m_transition.reset();
    if (isFinite(pose.pivot))
        m_pose.pivot = pose.pivot;
    if (!pose.rotation.isNull())
        m_pose.rotation = pose.rotation.normalized();
    if (pose.distance > 0 && std::isfinite(pose.distance))
        m_pose.distance = pose.distance;
    if (isFieldOfView(pose.fieldOfView))
        m_pose.fieldOfView = pose.fieldOfView;
    m_pose.isOrthographic = pose.isOrthographic;
    touch();
}

/// Of the picture at the pivot's depth, in world units.
float CameraController::halfHeight() const
{
    return m_pose.distance * float(std::tan(qDegreesToRadians(double(m_pose.fieldOfView)) / 2));
}

QVector3D CameraController::toCamera(const QVector3D &point) const
{
    return m_pose.rotation.conjugated().rotatedVector(point - m_pose.eye());
}

float CameraController::depthOf(const QVector3D &point) const
{
    return -toCamera(point).z();
}

/// From the line of sight to what a position shows at a depth, in camera space.
QVector3D CameraController::offsetAt(const QPointF &position, float depth) const
{
    const float scale = halfHeight() * (m_pose.isOrthographic ? 1 : depth / m_pose.distance);
    const double half = m_size.height() / 2;
    return scale
        * QVector3D(
            float((position.x() - m_size.width() / 2) / half), float((m_size.height() / 2 - position.y()) / half), 0);
}

QVector3D CameraController::pointAt(const QPointF &position) const
{
    return m_pose.pivot + m_pose.rotation.rotatedVector(offsetAt(position, m_pose.distance));
}

QPointF CameraController::positionOf(const QVector3D &point) const
{
    const QVector3D seen = toCamera(point);
    const float scale = halfHeight() * (m_pose.isOrthographic ? 1 : -seen.z() / m_pose.distance);
    const double half = m_size.height() / 2;
    return {
        m_size.width() / 2 + double(seen.x() / scale) * half, m_size.height() / 2 - double(seen.y() / scale) * half};
}

Camera CameraController::camera() const
{
    float nearest = std::numeric_limits<float>::max();
    float farthest = std::numeric_limits<float>::lowest();
    for (const QVector3D &corner : cornersOf(m_scene)) {
        const float depth = depthOf(corner);
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
    }
    const float margin = 0.01f * (farthest - nearest) + 1e-4f * m_pose.distance;
    nearest -= margin;
    farthest += margin;
    // Where rays are parallel the eye may stand anywhere on its line: before all of the scene.
    float back = 0;
    if (m_pose.isOrthographic && nearest < m_pose.distance * nearestShare)
        back = m_pose.distance * nearestShare - nearest;
    farthest += back;
    Camera camera;
    camera.farPlane = farthest > 0 ? farthest : m_pose.distance;
    camera.nearPlane = std::max(nearest + back, camera.farPlane * nearestShare);

    const QQuaternion toCameraRotation = m_pose.rotation.conjugated();
    camera.cameraMatrix.translate(0, 0, -back - m_pose.distance);
    camera.cameraMatrix.rotate(toCameraRotation);
    camera.cameraMatrix.translate(-m_pose.pivot);
    const float aspect = float(m_size.width() / m_size.height());
    if (m_pose.isOrthographic) {
        const float height = halfHeight();
        camera.projectionMatrix.ortho(
            -height * aspect, height * aspect, -height, height, camera.nearPlane, camera.farPlane);
    } else {
        camera.projectionMatrix.perspective(m_pose.fieldOfView, aspect, camera.nearPlane, camera.farPlane);
    }
    return camera;
}

/// Where the eye looks from, turned from +Z around the up axis and then upwards.
QQuaternion CameraController::turned(float azimuth, float elevation) const
{
    return m_upRotation * QQuaternion::fromAxisAndAngle(0, 1, 0, azimuth)
        * QQuaternion::fromAxisAndAngle(1, 0, 0, -elevation);
}

/// A place on the ball under the pointer, in camera space: a sphere that runs out into a hyperbola, so that there is no edge.
/// G. Bell's trackball.
QVector3D CameraController::onBall(const QPointF &position) const
{
    const double half = std::min(m_size.width(), m_size.height()) / 2;
    const auto x = float((position.x() - m_size.width() / 2) / half);
    const auto y = float((m_size.height() / 2 - position.y()) / half);
    const float squared = x * x + y * y;
    const float z = squared < 0.5f ? std::sqrt(1 - squared) : 0.5f / std::sqrt(squared);
    return QVector3D(x, y, z).normalized();
}

void CameraController::turn(const QPointF &from, const QPointF &to)
{
    m_transition.reset();
    if (m_mode == Mode::Trackball) {
        const QQuaternion ball = QQuaternion::rotationTo(onBall(from), onBall(to));
        m_pose.rotation = (m_pose.rotation * ball.conjugated()).normalized();
        touch();
        return;
    }
    const QQuaternion level = m_upRotation.conjugated() * m_pose.rotation;
    const QVector3D right = level.rotatedVector(QVector3D(1, 0, 0));
    const QVector3D back = level.rotatedVector(QVector3D(0, 0, 1));
    const double horizontal = std::hypot(double(back.x()), double(back.z()));
    // The right hand is level, unless a trackball has rolled: then the line of sight tells, unless it is upright.
    const bool isRolled = std::abs(right.y()) > 1e-3f && horizontal > 1e-3;
    const double azimuth =
        isRolled ? std::atan2(double(back.x()), double(back.z())) : std::atan2(-double(right.z()), double(right.x()));
    const double elevation = std::atan2(double(back.y()), horizontal);
    const QPointF degrees = (to - from) * double(degreesPerSide) / std::min(m_size.width(), m_size.height());
    m_pose.rotation = turned(float(qRadiansToDegrees(azimuth) - degrees.x()),
        float(qBound(-90.0, qRadiansToDegrees(elevation) + degrees.y(), 90.0)));
    touch();
}

void CameraController::pan(const QPointF &from, const QPointF &to, const std::optional<QVector3D> &grabbed)
{
    m_transition.reset();
    const float depth = grabbed && depthOf(*grabbed) > 0 ? depthOf(*grabbed) : m_pose.distance;
    m_pose.pivot -= m_pose.rotation.rotatedVector(offsetAt(to, depth) - offsetAt(from, depth));
    touch();
}

void CameraController::zoom(float factor, const QPointF &at, const std::optional<QVector3D> &grabbed)
{
    if (!(factor > 0) || !std::isfinite(factor))
        return;
    m_transition.reset();
    // Scaled around the point, the eye stays on the ray through it, and the directions stay as they are.
    const float depth = grabbed && depthOf(*grabbed) > 0 ? depthOf(*grabbed) : m_pose.distance;
    const QVector3D fixed = m_pose.eye() + m_pose.rotation.rotatedVector(offsetAt(at, depth) - QVector3D(0, 0, depth));
    const QVector3D size = m_scene.second - m_scene.first;
    const float extent = std::max({size.x(), size.y(), size.z(), 1e-6f});
    const float wanted = m_pose.distance / factor;
    const float distance = qBound(extent * 1e-4f, wanted, extent * 1e4f);
    m_pose.pivot = mixed(fixed, m_pose.pivot, distance / m_pose.distance);
    m_pose.distance = distance;
    touch();
}

void CameraController::roll(float degrees)
{
    if (m_mode == Mode::Turntable || !std::isfinite(degrees))
        return;
    m_transition.reset();
    m_pose.rotation = (m_pose.rotation * QQuaternion::fromAxisAndAngle(0, 0, 1, -degrees)).normalized();
    touch();
}

void CameraController::setOrthographic(bool isOrthographic)
{
    if (m_transition)
        m_transition->from.isOrthographic = m_transition->to.isOrthographic = isOrthographic;
    m_pose.isOrthographic = isOrthographic;
    touch();
}

void CameraController::setFieldOfView(float degrees)
{
    if (!isFieldOfView(degrees))
        return;
    m_transition.reset();
    // What lies at the pivot keeps its size.
    const float height = halfHeight();
    m_pose.fieldOfView = degrees;
    m_pose.distance *= height / halfHeight();
    touch();
}

/// A pose that shows these bounds in the middle of the picture.
CameraPose CameraController::fitted(const QPair<QVector3D, QVector3D> &bounds, const QQuaternion &rotation) const
{
    CameraPose pose = m_transition ? m_transition->to : m_pose;
    pose.rotation = rotation;
    QPair<QVector3D, QVector3D> shown = bounds;
    if (shown.first == shown.second) { // Something has to be seen around a point.
        const QVector3D half(0.5f, 0.5f, 0.5f);
        shown = {shown.first - half, shown.second + half};
    }
    const QVector3D centre = (shown.first + shown.second) / 2;
    const auto tangentY = float(std::tan(qDegreesToRadians(double(pose.fieldOfView)) / 2));
    const std::array<float, 2> tangents{
        tangentY * float(m_size.width() / m_size.height()) * filledShare, tangentY * filledShare};
    // In each direction the two sides of the view that just hold all corners meet at the eye.
    std::array<QVector3D, 8> seen = cornersOf(shown);
    for (QVector3D &corner : seen)
        corner = rotation.conjugated().rotatedVector(corner - centre);
    float distance = 0;
    float nearest = std::numeric_limits<float>::lowest();
    for (int axis = 0; axis < 2; ++axis) {
        const float slope = pose.isOrthographic ? 0 : tangents[size_t(axis)];
        float above = std::numeric_limits<float>::lowest();
        float below = above;
        for (const QVector3D &corner : seen) {
            above = std::max(above, corner[axis] + slope * corner.z());
            below = std::max(below, -corner[axis] + slope * corner.z());
            nearest = std::max(nearest, corner.z());
        }
        distance = std::max(distance, (above + below) / 2 / tangents[size_t(axis)]);
    }
    if (!pose.isOrthographic)
        distance = std::max(distance, nearest + 0.01f * (shown.second - shown.first).length());
    pose.distance = distance;
    const auto place = [&](int axis) { return middleOf(seen, axis, pose.isOrthographic ? 0 : distance); };
    pose.pivot = centre + rotation.rotatedVector(QVector3D(place(0), place(1), 0));
    return pose;
}

void CameraController::fit(double seconds)
{
    fit(m_scene, seconds);
}

void CameraController::fit(const QPair<QVector3D, QVector3D> &bounds, double seconds)
{
    moveTo(fitted(bounds, m_transition ? m_transition->to.rotation : m_pose.rotation), seconds);
}

void CameraController::show(NamedView view, double seconds)
{
    switch (view) {
    case NamedView::Front:
        return show(0, 0, seconds);
    case NamedView::Back:
        return show(180, 0, seconds);
    case NamedView::Left:
        return show(-90, 0, seconds);
    case NamedView::Right:
        return show(90, 0, seconds);
    case NamedView::Top:
        return show(0, 90, seconds);
    case NamedView::Bottom:
        return show(0, -90, seconds);
    case NamedView::Iso:
        return show(45, float(qRadiansToDegrees(std::atan(std::sqrt(0.5)))), seconds);
    }
}

void CameraController::show(float azimuth, float elevation, double seconds)
{
    if (std::isfinite(azimuth) && std::isfinite(elevation))
        moveTo(fitted(m_scene, turned(azimuth, qBound(-90.0f, elevation, 90.0f))), seconds);
}

void CameraController::moveTo(const CameraPose &pose, double seconds)
{
    const CameraPose from = m_pose;
    setPose(pose);
    if (!(seconds > 0))
        return;
    m_transition = Transition{from, m_pose, seconds, 0};
    m_transition->from.isOrthographic = m_pose.isOrthographic;
    m_pose = m_transition->from;
}

bool CameraController::advance(double seconds)
{
    if (!m_transition)
        return false;
    Transition &transition = *m_transition;
    transition.passed += std::max(seconds, 0.0);
    touch();
    if (transition.passed >= transition.seconds) {
        m_pose = transition.to;
        m_transition.reset();
        return false;
    }
    const auto time = float(transition.passed / transition.seconds);
    const float share = time * time * (3 - 2 * time);
    m_pose.pivot = mixed(transition.from.pivot, transition.to.pivot, share);
    m_pose.rotation = QQuaternion::slerp(transition.from.rotation, transition.to.rotation, share);
    // Distances in equal ratios, as a zoom has them.
    m_pose.distance = transition.from.distance * std::pow(transition.to.distance / transition.from.distance, share);
    m_pose.fieldOfView =
        transition.from.fieldOfView + share * (transition.to.fieldOfView - transition.from.fieldOfView);
    return true;
}

} // namespace Velmora::Kvz
