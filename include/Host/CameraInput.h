// SPDX-License-Identifier: MIT
#pragma once

#include <Host/CameraController.h>
#include <Host/Export.h>

#include <QtCore/QPoint>
#include <QtCore/QPointF>
#include <QtCore/Qt>

#include <optional>

namespace Velmora::Kvz {

/// What mouse, wheel, touch and keys do to a camera, for widgets, items and windows alike:
///
/// | Input                                             | Motion                                   |
/// |---------------------------------------------------|------------------------------------------|
/// | left button                                       | turns                                    |
/// | middle or right button, Shift and left            | pans                                     |
/// | Ctrl and left                                     | zooms: upwards comes closer              |
/// | wheel, two fingers apart                          | zooms to the pointer                     |
/// | one finger, two fingers together                  | turns, pans                              |
/// | F                                                 | fits the scene                           |
/// | Home                                              | view along the diagonal                  |
/// | 1, 3, 7; with Ctrl                                | front, right, top; back, left, bottom    |
/// | 5                                                 | perspective or parallel rays             |
/// | arrows; +, -                                      | turns by 15 degrees; zooms               |
class KVZ_HOST_EXPORT CameraInput
{
public:
    /// `controller` must live as long as this.
    explicit CameraInput(CameraController *controller)
        : m_controller(*controller)
    { }

    /// How long views take to get there; 0.25 seconds unless set.
    void setTransitionSeconds(double seconds) { m_transitionSeconds = seconds; }
    double transitionSeconds() const { return m_transitionSeconds; }

    /// \name Mouse
    /// `grabbed` is the point in world space under the pointer, where it is known: pans and zooms keep it there.
    /// @{
    void press(Qt::MouseButton button, Qt::KeyboardModifiers modifiers, const QPointF &position,
        const std::optional<QVector3D> &grabbed = std::nullopt);
    /// Sets the point of a press that is under way, which may become known after it.
    void setGrabbed(const QVector3D &grabbed) { m_grabbed = grabbed; }
    /// Whether the camera has moved: not before the pointer has left the place of the press by a few pixels.
    bool move(const QPointF &position);
    /// Ends a drag; whether it was a click, at which nothing has moved.
    bool release(Qt::MouseButton button);
    bool isDragging() const { return m_button != Qt::NoButton && m_hasMoved; }
    /// `angle` is in eighths of a degree, as QWheelEvent::angleDelta() has it.
    void wheel(const QPoint &angle, const QPointF &position, const std::optional<QVector3D> &grabbed = std::nullopt);
    /// @}

    /// Two fingers that have moved: from and to their centre, and by which factor they have come apart.
    void pinch(const QPointF &from, const QPointF &to, float factor);
    /// Whether the key means something; nothing happens otherwise.
    bool key(int key, Qt::KeyboardModifiers modifiers);

private:
    enum class Motion { None, Turn, Pan, Zoom };

    CameraController &m_controller;
    double m_transitionSeconds = 0.25;
    Qt::MouseButton m_button = Qt::NoButton;
    Motion m_motion = Motion::None;
    QPointF m_pressed;
    QPointF m_last;
    bool m_hasMoved = false;
    std::optional<QVector3D> m_grabbed;
};

} // namespace Velmora::Kvz
