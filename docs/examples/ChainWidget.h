// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <Host/Camera.h>
#include <Import/ModelImporter.h>

#include <QtGui/QOpenGLContext>
#include <QtWidgets/QOpenGLWidget>

#include <memory>

using namespace Velmora::Kvz;

/// Shows a scene through a ready chain.
class ChainWidget : public QOpenGLWidget
{
public:
    ChainWidget(const ImportedScene &scene, const QString &chainName)
        : m_scene(scene)
    {
        QSurfaceFormat format;
        format.setVersion(3, 2);
        format.setProfile(QSurfaceFormat::CoreProfile);
        setFormat(format);

        ChainDescription description;
        QString error;
        if (!loadChain(chainName, &description, &error))
            qWarning("%s", qPrintable(error));
        else if (!m_chain.setDescription(description))
            qWarning("%s", qPrintable(m_chain.errorString()));
        m_chain.setRestoresState(true);
    }

    ~ChainWidget() override
    {
        disconnect(m_contextEnd);
        releaseContext();
    }

protected:
    void initializeGL() override
    {
        m_contextEnd = connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, [this] { releaseContext(); });
        m_model = m_scene.build();
        m_chain.setModel(m_model.data());
    }

    void paintGL() override
    {
        if (!m_model)
            return;
        const QSize pixels = size() * devicePixelRatioF();
        const Camera camera = frameScene(m_model->sceneBounds(), CameraView(), pixels);
        m_framebuffer.reset(FramebufferObject::wrap(defaultFramebufferObject()));
        m_chain.setViewport(QRect(QPoint(), pixels));
        m_chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
        m_chain.setFrameValue(FrameValues::nearPlane, camera.nearPlane);
        m_chain.setFrameValue(FrameValues::farPlane, camera.farPlane);
        m_chain.setFramebuffer(m_framebuffer.get());
        if (!m_chain.renderFrame())
            qWarning("%s", qPrintable(m_chain.errorString()));
    }

private:
    void releaseContext()
    {
        makeCurrent();
        m_chain.releaseContext();
        m_chain.setModel(nullptr);
        m_chain.setFramebuffer(nullptr);
        m_framebuffer.reset();
        m_model.clear();
        doneCurrent();
    }

    ImportedScene m_scene;
    RenderChain m_chain;
    QSharedPointer<GPUModel> m_model;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    QMetaObject::Connection m_contextEnd;
};
