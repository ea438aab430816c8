// SPDX-License-Identifier: MIT
#include <Host/CameraInput.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr double clickDistance = 4; ///< Pixels within which a press is a click.
constexpr double stepAngle = 120; ///< Of a notch of a wheel, in eighths of a degree.
constexpr double zoomOfStep = 1.2;
constexpr double zoomOfHeight = 8; ///< By a drag over the height of the viewport.
constexpr double degreesOfArrow = 15;

} // namespace

void CameraInput::press(Qt::MouseButton button, Qt::KeyboardModifiers modifiers, const QPointF &position,
    const std::optional<QVector3D> &grabbed)
{
    if (m_button != Qt::NoButton)
        return; // The first button counts until it is released.
    m_button = button;
    m_pressed = m_last = position;
    m_hasMoved = false;
    m_grabbed = grabbed;
    const bool isPan = button == Qt::MiddleButton || button == Qt::RightButton
        || (button == Qt::LeftButton && modifiers & Qt::ShiftModifier);
    const bool isZoom = button == Qt::LeftButton && modifiers & Qt::ControlModifier;
    m_motion = isPan ? Motion::Pan : isZoom ? Motion::Zoom : button == Qt::LeftButton ? Motion::Turn : Motion::None;
}

bool CameraInput::move(const QPointF &position)
{
    if (m_button == Qt::NoButton || m_motion == Motion::None)
        return false;
    const QPointF way = position - m_pressed;
    if (!m_hasMoved && std::hypot(way.x(), way.y()) < clickDistance)
        return false;
    m_hasMoved = true;
    const QPointF from = m_last;
    m_last = position;
    if (m_motion == Motion::Turn)
        m_controller.turn(from, position);
    else if (m_motion == Motion::Pan)
        m_controller.pan(from, position, m_grabbed);
    else
        m_controller.zoom(float(std::pow(zoomOfHeight, (from.y() - position.y()) / m_controller.viewport().height())),
            m_pressed, m_grabbed);
    return true;
}

bool CameraInput::release(Qt::MouseButton button)
{
    if (button != m_button)
        return false;
    m_button = Qt::NoButton;
    m_motion = Motion::None;
    m_grabbed.reset();
    return !m_hasMoved;
}

void CameraInput::wheel(const QPoint &angle, const QPointF &position, const std::optional<QVector3D> &grabbed)
{
    if (angle.y() != 0)
        m_controller.zoom(float(std::pow(zoomOfStep, angle.y() / stepAngle)), position, grabbed);
}

void CameraInput::pinch(const QPointF &from, const QPointF &to, float factor)
{
    if (from != to)
        m_controller.pan(from, to);
    if (factor != 1)
        m_controller.zoom(factor, to);
}

bool CameraInput::key(int key, Qt::KeyboardModifiers modifiers)
{
    using View = CameraController::NamedView;
    const bool isOpposite = modifiers & Qt::ControlModifier;
    const auto turn = [this](double x, double y) {
        const QSizeF size = m_controller.viewport();
        const double scale = std::min(size.width(), size.height()) / 180;
        const QPointF middle(size.width() / 2, size.height() / 2);
        m_controller.turn(middle, middle + degreesOfArrow * scale * QPointF(x, y));
    };
    const auto zoom = [this](double factor) {
        m_controller.zoom(
            float(factor), QPointF(m_controller.viewport().width() / 2, m_controller.viewport().height() / 2));
    };
    // Shortcuts of the program are its own.
    const bool isView = key == Qt::Key_1 || key == Qt::Key_3 || key == Qt::Key_7;
    if (modifiers & (Qt::AltModifier | Qt::MetaModifier) || (isOpposite && !isView))
        return false;
    switch (key) {
    case Qt::Key_F:
        m_controller.fit(m_transitionSeconds);
        return true;
    case Qt::Key_Home:
        m_controller.show(View::Iso, m_transitionSeconds);
        return true;
    case Qt::Key_1:
        m_controller.show(isOpposite ? View::Back : View::Front, m_transitionSeconds);
        return true;
    case Qt::Key_3:
        m_controller.show(isOpposite ? View::Left : View::Right, m_transitionSeconds);
        return true;
    case Qt::Key_7:
        m_controller.show(isOpposite ? View::Bottom : View::Top, m_transitionSeconds);
        return true;
    case Qt::Key_5:
        m_controller.setOrthographic(!m_controller.pose().isOrthographic);
        return true;
    case Qt::Key_Left:
        turn(-1, 0);
        return true;
    case Qt::Key_Right:
        turn(1, 0);
        return true;
    case Qt::Key_Up:
        turn(0, -1);
        return true;
    case Qt::Key_Down:
        turn(0, 1);
        return true;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        zoom(zoomOfStep);
        return true;
    case Qt::Key_Minus:
        zoom(1 / zoomOfStep);
        return true;
    default:
        return false;
    }
}

} // namespace Velmora::Kvz
