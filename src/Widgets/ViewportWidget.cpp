// SPDX-License-Identifier: MIT
// Before the headers of Qt's widgets, which bring the system's declarations of OpenGL.
#include <GL/TrackedGL.h>

#include <Widgets/ViewportWidget.h>

#include "ViewportWidgetPrivate.h"

#include <Chain/ChainBackground.h>
#include <Chain/ChainLibrary.h>
#include <Chain/FrameValues.h>
#include <Chain/ResolvedChain.h>
#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <Host/ModelContext.h>
#include <Host/TextureCapture.h>
#include <Import/ModelImporter.h>

#include <QtCore/QtMath>
#include <QtGui/QOpenGLContext>
#include <QtGui/QPainter>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr int pollInterval = 4; ///< Milliseconds between looks for an answer that no frame brings.
constexpr int mostFrames = 1024; ///< Of a picture that never says it is done.

/// The picture's pixels in the framebuffer of a widget. Where scales are fractions, Qt's rounding decides, so the framebuffer is asked.
QSize pixelsOf(GLuint framebuffer)
{
    GLint before = 0;
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &before);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    const auto parameter = [](GLenum name) {
        GLint value = 0;
        glGetFramebufferAttachmentParameteriv(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, name, &value);
        return value;
    };
    const GLint type = parameter(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE);
    const auto name = GLuint(parameter(GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME));
    GLint width = 0;
    GLint height = 0;
    if (type == GL_TEXTURE) {
        GLint bound = 0;
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
        glBindTexture(GL_TEXTURE_2D, name);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
        glBindTexture(GL_TEXTURE_2D, GLuint(bound));
    } else if (type == GL_RENDERBUFFER) {
        GLint bound = 0;
        glGetIntegerv(GL_RENDERBUFFER_BINDING, &bound);
        glBindRenderbuffer(GL_RENDERBUFFER, name);
        glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_WIDTH, &width);
        glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_HEIGHT, &height);
        glBindRenderbuffer(GL_RENDERBUFFER, GLuint(bound));
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(before));
    return {width, height};
}

std::unique_ptr<Texture> makeTarget(const QSize &pixels)
{
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA8, pixels.width(), pixels.height(), 0, nullptr);
    const AutoBinder binder(texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, pixels.width(), pixels.height(), 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    return texture;
}

void attachTarget(FramebufferObject *framebuffer, Texture *target)
{
    const AutoBinder binder(framebuffer);
    framebuffer->attach(target, GL_COLOR_ATTACHMENT0, 0);
    framebuffer->setDrawBuffers();
}

bool readsPhysicalMaterials(const ChainDescription &chain)
{
    return ResolvedChain(chain).has(PassTrait::PhysicalSurfaces);
}

} // namespace

ViewportWidget::Private::Private(ViewportWidget *owner)
    : q(owner)
{
    pickTimer.setInterval(pollInterval);
    chain.setRestoresState(true);
}

bool ViewportWidget::Private::fail(const QString &text)
{
    if (error == text)
        return false; // Once, not in each frame.
    error = text;
    KVZ_WARNING(text);
    Q_EMIT q->failed(text);
    return false;
}

/// Puts the scene on the GPU as the chain needs it.
bool ViewportWidget::Private::buildModel()
{
    const ModelContext::Scope context;
    if (!context.isCurrent())
        return fail(ModelContext::errorString());
    SceneBuildOptions options;
    options.forPhysicalPasses = readsPhysicalMaterials(chain.description());
    options.forBasicPasses = chain.description().name.endsWith(QLatin1String("-basic"));
    const QSharedPointer<GPUModel> built = scene->build(options);
    if (!built)
        return fail(QStringLiteral("the driver cannot hold this model"));
    isModelPhysical = options.forPhysicalPasses;
    show(ModelContext::keep(built));
    return true;
}

void ViewportWidget::Private::show(const QSharedPointer<GPUModel> &shown)
{
    // The old one goes when nobody looks at it any more.
    const QSharedPointer<GPUModel> before = model;
    model = shown;
    chain.setModel(model.data());
    picker.setModel(model.data());
    pointed.reset();
    hoveredItem = -2;
    if (model)
        camera.setScene(model->sceneBounds());
    q->update();
}

void ViewportWidget::Private::applyCamera(RenderChain *to, const QSize &size, const Camera &seen) const
{
    to->setViewport(QRect(QPoint(), size));
    to->setCamera(seen.cameraMatrix, seen.projectionMatrix);
    to->setFrameValue(FrameValues::nearPlane, seen.nearPlane);
    to->setFrameValue(FrameValues::farPlane, seen.farPlane);
}

/// Hands the present camera to the chain and to picks.
void ViewportWidget::Private::followCamera(const QSize &size)
{
    if (model)
        camera.setScene(model->sceneBounds()); // Items may have moved.
    if (shownRevision == camera.revision() && pixels == size)
        return;
    shownRevision = camera.revision();
    pixels = size;
    const Camera seen = camera.camera();
    applyCamera(&chain, size, seen);
    picker.setView(seen.cameraMatrix, seen.projectionMatrix, size);
}

void ViewportWidget::Private::ensureTarget(const QSize &size)
{
    if (target && QSize(target->width(0), target->height(0)) == size)
        return;
    target = makeTarget(size);
    if (!framebuffer)
        framebuffer = std::make_unique<FramebufferObject>();
    attachTarget(framebuffer.get(), target.get());
    chain.setFramebuffer(framebuffer.get());
    hasPicture = false;
}

/// Brings the picture up to date, unless it is.
bool ViewportWidget::Private::render(const QSize &size)
{
    ensureTarget(size);
    if (hasPicture && !chain.needsFrame())
        return true;
    const bool isRendered = chain.renderFrame();
    // One that is wrong is shown all the same, and said.
    hasPicture = isRendered || hasPicture;
    if (!isRendered)
        return fail(chain.errorString());
    error.clear();
    Q_EMIT q->frameRendered();
    const bool isConverged = chain.converged();
    if (isConverged && !wasConverged)
        Q_EMIT q->converged();
    wasConverged = isConverged;
    return true;
}

/// Copies the picture to the widget's framebuffer, opaque: windows are put together with its alpha.
void ViewportWidget::Private::copyToScreen(const QSize &size) const
{
    const GLuint screen = q->defaultFramebufferObject();
    const AutoDisabler scissor(GL_SCISSOR_TEST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer->getFBO());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, screen);
    glBlitFramebuffer(
        0, 0, size.width(), size.height(), 0, 0, size.width(), size.height(), GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, screen);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_TRUE);
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

/// Lets go of all that lives in the widget's context. The model lives elsewhere.
void ViewportWidget::Private::releaseContext()
{
    pickTimer.stop();
    picker.releaseContext();
    isHoverPending = false;
    chain.releaseContext();
    chain.setFramebuffer(nullptr);
    framebuffer.reset();
    target.reset();
    hasPicture = false;
    wasConverged = false;
}

ViewportWidget::ViewportWidget(QWidget *parent)
    : QOpenGLWidget(parent),
      d(std::make_unique<Private>(this))
{
    QSurfaceFormat asked = QSurfaceFormat::defaultFormat();
    asked.setVersion(3, 2);
    asked.setProfile(QSurfaceFormat::CoreProfile);
    asked.setSamples(0);
    setFormat(asked);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_AcceptTouchEvents);
    setMouseTracking(true);
    setAcceptDrops(true);
    qRegisterMetaType<ScenePick>();
    connect(&d->pickTimer, &QTimer::timeout, this, [this] { d->pollPicks(); });
    setChain(QStringLiteral("forward"));
}

ViewportWidget::~ViewportWidget()
{
    disconnect(d->contextEnd);
    if (!isValid())
        return;
    makeCurrent();
    d->releaseContext();
    doneCurrent();
}

bool ViewportWidget::setChain(const QString &nameOrFile)
{
    ChainDescription description;
    QString error;
    return loadChain(nameOrFile, &description, &error) ? setChain(description) : d->fail(error);
}

bool ViewportWidget::setChain(const ChainDescription &chain)
{
    const QStringList errors = ResolvedChain(chain).errors();
    if (!errors.isEmpty())
        return d->fail(errors.first());
    d->chain.setDescription(chain);
    d->wasConverged = false;
    update();
    if (d->scene && readsPhysicalMaterials(chain) && !d->isModelPhysical && !d->buildModel())
        return false;
    return d->succeed();
}

bool ViewportWidget::load(const QString &file)
{
    ImportedScene scene;
    QString error;
    return importModel(file, &scene, &error) ? setScene(scene) : d->fail(error);
}

bool ViewportWidget::setScene(const ImportedScene &scene)
{
    std::optional<ImportedScene> before = std::move(d->scene);
    d->scene = scene;
    if (!d->buildModel()) {
        d->scene = std::move(before);
        return false;
    }
    d->camera.setViewport(size());
    d->camera.show(30, 20);
    Q_EMIT modelChanged();
    return d->succeed();
}

bool ViewportWidget::setModel(const QSharedPointer<GPUModel> &model)
{
    const QString obstacle = ModelContext::errorString();
    if (model && !obstacle.isEmpty())
        return d->fail(obstacle);
    d->scene.reset();
    d->show(model);
    Q_EMIT modelChanged();
    return d->succeed();
}

QSharedPointer<GPUModel> ViewportWidget::model() const
{
    return d->model;
}

RenderChain &ViewportWidget::chain()
{
    return d->chain;
}

CameraController &ViewportWidget::camera()
{
    return d->camera;
}

CameraInput &ViewportWidget::cameraInput()
{
    return d->input;
}

QString ViewportWidget::errorString() const
{
    return d->error;
}

bool ViewportWidget::isAtRest() const
{
    return d->hasPicture && !d->camera.isMoving() && d->camera.revision() == d->shownRevision && !d->chain.needsFrame();
}

void ViewportWidget::setOverlay(const std::function<void(QPainter *)> &paint)
{
    d->overlay = paint;
    update();
}

void ViewportWidget::setDropEnabled(bool isEnabled)
{
    setAcceptDrops(isEnabled);
}

QImage ViewportWidget::grabImage(const QSize &size, const QColor &background)
{
    const auto refuse = [this](const QString &reason) {
        d->fail(reason);
        return QImage();
    };
    if (size.isEmpty())
        return refuse(QStringLiteral("a picture of %1 by %2 pixels is empty").arg(size.width()).arg(size.height()));
    ChainDescription description = d->chain.description();
    QString error;
    if (background.isValid() && !setBackground(&description, background, &error))
        return refuse(error);
    const ModelContext::Scope context;
    if (!context.isCurrent())
        return refuse(ModelContext::errorString());

    RenderChain chain;
    if (!chain.setDescription(description))
        return refuse(chain.errorString());
    for (const QString &name : d->chain.frameValueNames())
        chain.setFrameValue(name, d->chain.frameValue(name));
    chain.setModel(d->model.data());
    CameraController camera = d->camera;
    camera.setViewport(size);
    d->applyCamera(&chain, size, camera.camera());
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    if (std::max(size.width(), size.height()) > limit) {
        return refuse(QStringLiteral("a picture of %1 by %2 pixels: each side must be from 1 to %3")
                          .arg(size.width())
                          .arg(size.height())
                          .arg(limit));
    }
    const std::unique_ptr<Texture> target = makeTarget(size);
    FramebufferObject framebuffer;
    attachTarget(&framebuffer, target.get());
    chain.setFramebuffer(&framebuffer);
    chain.setAdvancesModels(false);
    for (int frame = 0; frame < mostFrames && chain.needsFrame(); ++frame) {
        if (!chain.renderFrame())
            return refuse(chain.errorString());
    }
    QImage image = captureTexture(target.get(), TextureDisplay::Colour);
    chain.releaseContext();
    if (image.isNull())
        return refuse(
            QStringLiteral("no memory for a picture of %1 by %2 pixels").arg(size.width()).arg(size.height()));
    if (background.isValid() && background.alpha() < 255)
        image.reinterpretAsFormat(QImage::Format_RGBA8888_Premultiplied);
    else
        image = image.convertToFormat(QImage::Format_RGB32);
    d->succeed();
    return image;
}

void ViewportWidget::initializeGL()
{
    // Each window has a context of its own: this is called again when the widget has moved to another.
    disconnect(d->contextEnd);
    d->contextEnd = connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this] {
        makeCurrent();
        d->releaseContext();
        doneCurrent();
    });
}

void ViewportWidget::paintGL()
{
    const QString obstacle = ModelContext::errorString();
    if (!obstacle.isEmpty()) {
        d->fail(obstacle);
        QPainter painter(this);
        painter.fillRect(rect(), palette().window());
        painter.setPen(palette().windowText().color());
        painter.drawText(rect().adjusted(8, 8, -8, -8), Qt::AlignCenter | Qt::TextWrapAnywhere, obstacle);
        return;
    }
    const QSize pixels = pixelsOf(defaultFramebufferObject());
    if (pixels.isEmpty())
        return;
    if (d->camera.isMoving()) {
        const double passed = d->clock.isValid() ? double(d->clock.nsecsElapsed()) / 1e9 : 0;
        d->clock.start();
        d->camera.advance(passed);
    }
    if (!d->camera.isMoving())
        d->clock.invalidate();
    d->camera.setViewport(size());
    d->followCamera(pixels);
    const bool isRendered = d->render(pixels);
    if (d->hasPicture || isRendered)
        d->copyToScreen(pixels);
    d->picker.poll();
    if (d->overlay) {
        QPainter painter(this);
        d->overlay(&painter);
    }
    // Go on while something moves or the picture gets better; not after a failure, until something changes.
    if (d->camera.isMoving() || (isRendered && d->chain.needsFrame()))
        update();
}

} // namespace Velmora::Kvz
