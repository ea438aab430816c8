// SPDX-License-Identifier: MIT
#include <Host/ModelContext.h>

#include <Scene/GPUModel.h>

#include <QtCore/QCoreApplication>
#include <QtGui/QGuiApplication>
#include <QtGui/QOffscreenSurface>
#include <QtGui/QOpenGLContext>

namespace Velmora::Kvz {

namespace {

/// The context and its surface, or why there is none.
struct HiddenContext
{
    HiddenContext()
    {
        if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
            error = QStringLiteral("models that viewports share need a QGuiApplication");
            return;
        }
        QOpenGLContext *const shared = QOpenGLContext::globalShareContext();
        if (!shared) {
            error = QStringLiteral("viewports cannot share models: call "
                                   "QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts) before the application "
                                   "is made");
            return;
        }
        QSurfaceFormat format = shared->format();
        format.setVersion(3, 2);
        format.setProfile(QSurfaceFormat::CoreProfile);
        surface.setFormat(format);
        surface.create();
        context.setFormat(format);
        context.setShareContext(shared);
        if (!context.create() || !surface.isValid())
            error = QStringLiteral("the driver gives no OpenGL 3.2 core context that shares objects with the widgets");
    }

    QOffscreenSurface surface;
    QOpenGLContext context;
    QString error;
};

std::unique_ptr<HiddenContext> &holder()
{
    static std::unique_ptr<HiddenContext> instance;
    return instance;
}

HiddenContext &hidden()
{
    std::unique_ptr<HiddenContext> &instance = holder();
    if (!instance) {
        instance = std::make_unique<HiddenContext>();
        // Before the platform goes, which the context needs to end.
        qAddPostRoutine([] { holder().reset(); });
    }
    return *instance;
}

} // namespace

struct ModelContext::Scope::Before
{
    QOpenGLContext *context;
    QSurface *surface;
};

ModelContext::Scope::Scope()
    : m_before(std::make_unique<Before>())
{
    QOpenGLContext *const current = QOpenGLContext::currentContext();
    *m_before = {current, current ? current->surface() : nullptr};
    HiddenContext &own = hidden();
    m_isCurrent = own.error.isEmpty() && own.context.makeCurrent(&own.surface);
}

ModelContext::Scope::~Scope()
{
    if (!m_isCurrent)
        return;
    if (m_before->context)
        m_before->context->makeCurrent(m_before->surface);
    else
        hidden().context.doneCurrent();
}

QSharedPointer<GPUModel> ModelContext::keep(const QSharedPointer<GPUModel> &model)
{
    if (!model)
        return {};
    return QSharedPointer<GPUModel>(model.data(), [kept = model](GPUModel *) mutable {
        // After the application the driver has taken all back.
        if (!QCoreApplication::instance()) {
            kept.clear();
            return;
        }
        const Scope scope;
        kept.clear();
    });
}

QString ModelContext::errorString()
{
    return hidden().error;
}

} // namespace Velmora::Kvz
