// SPDX-License-Identifier: MIT

// split-view MODEL OUT.png: two views of one model, each with a chain of its own, side by side in one framebuffer.
#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ImageWriter.h>
#include <Host/TextureCapture.h>
#include <Import/ModelImporter.h>

#include <epoxy/gl.h>

using namespace Velmora::Kvz;

/// Has a chain draw a view of the model into a part of the framebuffer.
static void setUp(RenderChain &chain, const char *name, GPUModel *model, const CameraView &view,
    FramebufferObject *framebuffer, const QRect &part)
{
    ChainDescription description;
    QString error;
    if (!loadChain(name, &description, &error) || !chain.setDescription(description))
        qFatal("%s", qPrintable(error + chain.errorString()));
    const Camera camera = frameScene(model->sceneBounds(), view, part.size());
    chain.setViewport(QRect(QPoint(), part.size())); // Of the images that the passes make.
    chain.setValue(
        "screen", "Kvz_QRect_ViewportOut", part); // Where the last one goes; the origin is at the lower left.
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
    chain.setModel(model);
    chain.setFramebuffer(framebuffer);
}

int main(int argc, char **argv)
{
    if (argc != 3)
        qFatal("usage: split-view MODEL OUT.png");
    QString error;
    const auto context = HeadlessContext::create(&error);
    ImportedScene scene;
    if (!context || !importModel(argv[1], &scene, &error))
        qFatal("%s", qPrintable(error));
    const QSharedPointer<GPUModel> model = scene.build(); // Once, for both.

    // In a widget: FramebufferObject::wrap(defaultFramebufferObject()).
    const QSize size(640, 240);
    Texture colour(GL_TEXTURE_2D, GL_RGBA8, size.width(), size.height(), 0, nullptr);
    FramebufferObject framebuffer;
    {
        AutoBinder texture(&colour);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, size.width(), size.height(), 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        AutoBinder binder(&framebuffer);
        framebuffer.attach(&colour, GL_COLOR_ATTACHMENT0, 0);
        framebuffer.setDrawBuffers();
    }

    CameraView front;
    front.azimuth = front.elevation = 0;
    RenderChain left, right;
    setUp(left, "deferred", model.data(), CameraView(), &framebuffer, QRect(0, 0, 320, 240));
    setUp(right, "wireframe-overlay", model.data(), front, &framebuffer, QRect(320, 0, 320, 240));

    // In each frame:
    for (RenderChain *chain : {&left, &right}) {
        if (!chain->renderFrame())
            qFatal("%s", qPrintable(chain->errorString()));
    }
    if (!writeImage(captureTexture(&colour, TextureDisplay::Colour), argv[2], &error))
        qFatal("%s", qPrintable(error));
    return 0;
}
