// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ScenePicker.h>
#include <Host/CameraController.h>
#include <Host/CameraInput.h>
#include <Widgets/Export.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtGui/QColor>
#include <QtGui/QImage>
#include <QtWidgets/QOpenGLWidget>

#include <functional>
#include <memory>

class QPainter;

namespace Velmora::Kvz {

struct ChainDescription;
class GPUModel;
struct ImportedScene;
class RenderChain;

/// Shows a model through a chain, with a camera that mouse, wheel, touch and keys move (see CameraInput).
///
/// ```cpp
/// QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
/// QApplication application(argc, argv);
/// ViewportWidget viewport;
/// viewport.setChain("full");
/// viewport.load("car.glb");
/// viewport.show();
/// ```
///
/// **Frames.** The widget draws when something has changed, refines the picture while it is idle, and then rests: RenderChain::needsFrame()
/// says when. After a change of the chain, of lights, of items or of the camera by the program itself, call update().
///
/// **Picture.** It asks for a core profile of OpenGL 3.2 itself. The chain draws into a target of the widget's own, whose pixels are
/// those of the screen at every scale, and which is then copied opaquely.
///
/// **Models** live in a hidden context (ModelContext), so that one model serves several widgets, and none is lost when a widget moves to another
/// window. That takes Qt::AA_ShareOpenGLContexts; without it the widget shows the line that says so.
class KVZ_WIDGETS_EXPORT ViewportWidget : public QOpenGLWidget
{
    Q_OBJECT

public:
    explicit ViewportWidget(QWidget *parent = nullptr);
    ~ViewportWidget() override;

    /// \name Content
    /// Each returns false, with errorString() and failed(), where it cannot be done; what is shown stays then.
    /// @{
    /// Shows models through a ready chain by name, through a chain file, or through a description. "forward" unless set.
    bool setChain(const QString &nameOrFile);
    bool setChain(const ChainDescription &chain);
    /// Reads a model file and shows it from where all of it is seen. Waits until the file is read.
    bool load(const QString &file);
    /// The same with a scene that is read already.
    bool setScene(const ImportedScene &scene);
    /// Shows a model that was built while ModelContext was current, perhaps one that another viewport shows too; null for none. The
    /// camera stays where it is.
    bool setModel(const QSharedPointer<GPUModel> &model);
    QSharedPointer<GPUModel> model() const;
    /// @}

    /// The chain, for its values: lights, passes, exports. Its camera, size, model and framebuffer are the widget's. Call update()
    /// after a change.
    RenderChain &chain();
    /// The camera. Call update() after moving it.
    CameraController &camera();
    CameraInput &cameraInput();
    /// The last failure in one line; empty when there was none since the last success.
    QString errorString() const;

    /// A picture of any size in pixels from the present camera, rendered until it is done. `background` replaces what the chain has behind
    /// the model: a transparent colour leaves it out, and the picture has alpha; an invalid one keeps the chain's own. Null, with
    /// errorString(), where that cannot be done.
    QImage grabImage(const QSize &size, const QColor &background = QColor());

    /// Asks what is seen at a position of the widget, or nearest to it within a radius, both in its own unit. The answer comes later. False,
    /// with errorString(), outside of the widget and without a model.
    bool pick(const QPointF &position, double radius, const ScenePicker::Answer &answer);
    /// Asks for the items that are seen in a rectangle of the widget.
    bool pickArea(const QRectF &area, const ScenePicker::AreaAnswer &answer);
    /// Whether hovered() says what the pointer is over; off from the start, since it draws the ids at the pointer while that moves.
    void setHoverEnabled(bool isEnabled);
    /// Whether model files that are dropped on the widget are loaded; on from the start.
    void setDropEnabled(bool isEnabled);
    /// Called for each frame, to paint over it; empty for nothing.
    void setOverlay(const std::function<void(QPainter *)> &paint);

    /// Whether the picture on the screen is done, and nothing moves.
    bool isAtRest() const;

Q_SIGNALS:
    /// A frame was rendered. Not when a picture that is done was painted again.
    void frameRendered();
    /// The picture is done.
    void converged();
    /// Something went wrong: one line that says what.
    void failed(const QString &message);
    void modelChanged();
    /// The pointer is over something else: what is nearest within a few pixels. A frame later.
    void hovered(const Velmora::Kvz::ScenePick &pick);
    /// A click without a drag, and what is nearest to it.
    void clicked(const Velmora::Kvz::ScenePick &pick, Qt::MouseButton button);

protected:
    void initializeGL() override;
    void paintGL() override;
    bool event(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz

Q_DECLARE_METATYPE(Velmora::Kvz::ScenePick)
