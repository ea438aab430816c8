// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/RenderChain.h>
#include <Chain/ScenePicker.h>
#include <GL/FramebufferObject.h>
#include <GL/Texture.h>
#include <Import/ImportedScene.h>
#include <Widgets/ViewportWidget.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

#include <memory>
#include <optional>

namespace Velmora::Kvz {

struct ViewportWidget::Private
{
    explicit Private(ViewportWidget *owner);

    /// Keeps a failure for errorString() and says it; false.
    bool fail(const QString &text);
    bool succeed()
    {
        error.clear();
        return true;
    }

    bool buildModel();
    void show(const QSharedPointer<GPUModel> &shown);
    void applyCamera(RenderChain *to, const QSize &pixels, const Camera &camera) const;
    void followCamera(const QSize &pixels);
    bool render(const QSize &pixels);
    void ensureTarget(const QSize &pixels);
    void copyToScreen(const QSize &pixels) const;
    void releaseContext();

    QPoint toPixel(const QPointF &position) const;
    bool canPick(const QPointF &position) const;
    void pickAt(const QPointF &position, const ScenePicker::Answer &answer);
    void grabAt(const QPointF &position);
    void hoverAt(const QPointF &position);
    void pollPicks();
    std::optional<QVector3D> pointNear(const QPointF &position) const;

    ViewportWidget *q;
    RenderChain chain;
    ScenePicker picker;
    CameraController camera;
    CameraInput input{&camera};
    QSharedPointer<GPUModel> model;
    std::optional<ImportedScene> scene; ///< What the model was built of, unless the host built it.
    bool isModelPhysical = false; ///< It has what physically based light reads.

    std::unique_ptr<Texture> target; ///< The picture, of the size of the screen's pixels.
    std::unique_ptr<FramebufferObject> framebuffer;
    QSize pixels; ///< Of the last frame.
    bool hasPicture = false;
    bool wasConverged = false;
    quint64 shownRevision = 0; ///< Of the camera, in the last frame.
    QElapsedTimer clock; ///< Since the last frame of a transition.

    QTimer pickTimer; ///< Looks for answers while no frame does.
    bool isHoverEnabled = false;
    int hoveredItem = -2; ///< -2: nothing was said yet.
    bool isHoverPending = false;
    int leaves = 0; ///< How often the pointer has left: an answer to a question from before is late.
    std::optional<QPointF> nextHover; ///< Where the pointer went meanwhile.
    /// A point in the scene that was seen at a position of the widget.
    struct Pointed
    {
        QPointF position;
        QVector3D point;
        quint64 revision; ///< Of the camera.
    };
    std::optional<Pointed> pointed;
    std::function<void(QPainter *)> overlay;
    QMetaObject::Connection contextEnd;
    QString error;
};

} // namespace Velmora::Kvz
