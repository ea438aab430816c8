// SPDX-License-Identifier: MIT
// What a viewport does with the pointer, fingers, keys and dropped files.
#include <Widgets/ViewportWidget.h>

#include "ViewportWidgetPrivate.h"

#include <Import/ModelFormats.h>

#include <QtCore/QFileInfo>
#include <QtCore/QMimeData>
#include <QtCore/QUrl>
#include <QtGui/QDragEnterEvent>
#include <QtGui/QDropEvent>
#include <QtGui/QKeyEvent>
#include <QtGui/QMouseEvent>
#include <QtGui/QOpenGLContext>
#include <QtGui/QTouchEvent>
#include <QtGui/QWheelEvent>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr double pointerRadius = 4; ///< Within which a pick finds something, in the widget's unit.

constexpr double tapDistance = 8; ///< Within which a finger that is lifted has tapped.

double distance(const QPointF &a, const QPointF &b)
{
    return std::hypot(a.x() - b.x(), a.y() - b.y());
}

/// Makes the context of a widget current for a scope, unless it is.
class CurrentScope
{
public:
    explicit CurrentScope(QOpenGLWidget *widget)
        : m_widget(QOpenGLContext::currentContext() == widget->context() ? nullptr : widget)
    {
        if (m_widget)
            m_widget->makeCurrent();
    }
    ~CurrentScope()
    {
        if (m_widget)
            m_widget->doneCurrent();
    }

private:
    Q_DISABLE_COPY(CurrentScope)

    QOpenGLWidget *m_widget; ///< Null where nothing is to be undone.
};

/// The first model file among what is dragged; empty for none.
QString modelFileIn(const QMimeData *data)
{
    const QList<QUrl> urls = data->urls();
    for (const QUrl &url : urls) {
        const QString suffix = QFileInfo(url.toLocalFile()).suffix().toLower();
        const QVector<FileFormat> formats = modelFormats();
        if (std::any_of(formats.begin(), formats.end(),
                [&](const FileFormat &format) { return format.suffixes.contains(suffix); }))
            return url.toLocalFile();
    }
    return {};
}

} // namespace

/// The pixel of the picture at a position of the widget.
QPoint ViewportWidget::Private::toPixel(const QPointF &position) const
{
    return {int(std::floor(position.x() * pixels.width() / std::max(q->width(), 1))),
        int(std::floor(position.y() * pixels.height() / std::max(q->height(), 1)))};
}

/// Whether a question about a position can be answered: there is a model, and a picture of it.
bool ViewportWidget::Private::canPick(const QPointF &position) const
{
    return model && q->isValid() && !pixels.isEmpty() && QRectF(q->rect()).contains(position);
}

/// Asks what is near a position, if anything can be asked now.
void ViewportWidget::Private::pickAt(const QPointF &position, const ScenePicker::Answer &answer)
{
    if (!canPick(position))
        return;
    q->pick(position, pointerRadius, answer);
}

/// Finds out which point a drag or a turn of the wheel takes hold of.
void ViewportWidget::Private::grabAt(const QPointF &position)
{
    const quint64 revision = camera.revision();
    pickAt(position, [this, position, revision](const ScenePick &pick) {
        if (!pick.isHit())
            return;
        pointed = Pointed{position, pick.position, revision};
        input.setGrabbed(pick.position);
    });
}

/// The point that is known to be seen near a position.
std::optional<QVector3D> ViewportWidget::Private::pointNear(const QPointF &position) const
{
    // The camera may have moved since, as a wheel goes on turning: what counts is where the point is seen now.
    if (pointed && distance(camera.positionOf(pointed->point), position) < 2 * pointerRadius)
        return pointed->point;
    return std::nullopt;
}

/// Says what the pointer is over. One question at a time: positions that come meanwhile replace each other.
void ViewportWidget::Private::hoverAt(const QPointF &position)
{
    if (!isHoverEnabled || !canPick(position))
        return;
    if (isHoverPending) {
        nextHover = position;
        return;
    }
    isHoverPending = true;
    const bool isAsked = q->pick(position, pointerRadius, [this, asked = leaves](const ScenePick &pick) {
        isHoverPending = false;
        if (pick.item != hoveredItem && asked == leaves) {
            hoveredItem = pick.item;
            Q_EMIT q->hovered(pick);
        }
        if (const std::optional<QPointF> next = std::exchange(nextHover, std::nullopt))
            hoverAt(*next);
    });
    isHoverPending = isHoverPending && isAsked;
}

void ViewportWidget::Private::pollPicks()
{
    const CurrentScope context(q);
    if (picker.poll() == 0)
        pickTimer.stop();
}

bool ViewportWidget::pick(const QPointF &position, double radius, const ScenePicker::Answer &answer)
{
    if (!isValid() || d->pixels.isEmpty())
        return d->fail(QStringLiteral("nothing can be picked before the first frame"));
    const CurrentScope current(this);
    const double scale = double(d->pixels.width()) / std::max(width(), 1);
    const bool isAsked = d->picker.pick(d->toPixel(position), int(std::ceil(radius * scale)), answer);
    if (!isAsked)
        return d->fail(d->picker.errorString());
    d->pickTimer.start();
    return true;
}

bool ViewportWidget::pickArea(const QRectF &area, const ScenePicker::AreaAnswer &answer)
{
    if (!isValid() || d->pixels.isEmpty())
        return d->fail(QStringLiteral("nothing can be picked before the first frame"));
    const CurrentScope current(this);
    const QRectF corners = area.normalized();
    const bool isAsked =
        d->picker.pickArea(QRect(d->toPixel(corners.topLeft()), d->toPixel(corners.bottomRight())), answer);
    if (!isAsked)
        return d->fail(d->picker.errorString());
    d->pickTimer.start();
    return true;
}

void ViewportWidget::setHoverEnabled(bool isEnabled)
{
    d->isHoverEnabled = isEnabled;
    d->hoveredItem = -2;
}

void ViewportWidget::mousePressEvent(QMouseEvent *event)
{
    d->input.press(event->button(), event->modifiers(), event->localPos());
    d->grabAt(event->localPos());
}

void ViewportWidget::mouseMoveEvent(QMouseEvent *event)
{
    if (d->input.move(event->localPos()))
        update();
    else if (event->buttons() == Qt::NoButton)
        d->hoverAt(event->localPos());
}

void ViewportWidget::mouseReleaseEvent(QMouseEvent *event)
{
    if (!d->input.release(event->button()))
        return;
    const Qt::MouseButton button = event->button();
    d->pickAt(event->localPos(), [this, button](const ScenePick &pick) { Q_EMIT clicked(pick, button); });
}

void ViewportWidget::wheelEvent(QWheelEvent *event)
{
    const QPointF position = event->posF();
    const std::optional<QVector3D> point = d->pointNear(position);
    if (!point)
        d->grabAt(position); // For the next notch.
    d->input.wheel(event->angleDelta(), position, point);
    update();
    event->accept();
}

void ViewportWidget::keyPressEvent(QKeyEvent *event)
{
    if (d->input.key(event->key(), event->modifiers())) {
        d->clock.invalidate();
        update();
    } else {
        QOpenGLWidget::keyPressEvent(event);
    }
}

void ViewportWidget::resizeEvent(QResizeEvent *event)
{
    d->camera.setViewport(size());
    QOpenGLWidget::resizeEvent(event);
}

bool ViewportWidget::event(QEvent *event)
{
    if (event->type() == QEvent::Leave && d->isHoverEnabled && d->hoveredItem >= 0) {
        d->hoveredItem = -1;
        ++d->leaves;
        d->nextHover.reset();
        Q_EMIT hovered(ScenePick());
    }
    if (event->type() != QEvent::TouchBegin && event->type() != QEvent::TouchUpdate
        && event->type() != QEvent::TouchEnd)
        return QOpenGLWidget::event(event);
    const QList<QTouchEvent::TouchPoint> points = static_cast<QTouchEvent *>(event)->touchPoints();
    event->accept();
    if (points.size() == 1 && event->type() == QEvent::TouchEnd) {
        if (distance(points[0].startPos(), points[0].pos()) < tapDistance)
            d->pickAt(points[0].pos(), [this](const ScenePick &pick) { Q_EMIT clicked(pick, Qt::LeftButton); });
    } else if (points.size() == 1 && event->type() == QEvent::TouchUpdate) {
        d->camera.turn(points[0].lastPos(), points[0].pos());
        update();
    } else if (points.size() >= 2) {
        const double before = distance(points[0].lastPos(), points[1].lastPos());
        const double after = distance(points[0].pos(), points[1].pos());
        d->input.pinch((points[0].lastPos() + points[1].lastPos()) / 2, (points[0].pos() + points[1].pos()) / 2,
            before > 0 && after > 0 ? float(after / before) : 1);
        update();
    }
    return true;
}

void ViewportWidget::dragEnterEvent(QDragEnterEvent *event)
{
    if (!modelFileIn(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void ViewportWidget::dropEvent(QDropEvent *event)
{
    const QString file = modelFileIn(event->mimeData());
    if (file.isEmpty())
        return;
    event->acceptProposedAction();
    load(file);
}

} // namespace Velmora::Kvz
