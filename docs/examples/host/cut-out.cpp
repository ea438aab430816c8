// SPDX-License-Identifier: MIT

// cut-out MODEL OUT.png: a model on a transparent background, with straight alpha.
#include <Chain/ChainBackground.h>
#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ImageWriter.h>
#include <Import/ModelImporter.h>

using namespace Velmora::Kvz;

int main(int argc, char **argv)
{
    if (argc != 3)
        qFatal("usage: cut-out MODEL OUT.png");
    QString error;
    const auto context = HeadlessContext::create(&error);
    ImportedScene scene;
    ChainDescription description;
    if (!context || !importModel(argv[1], &scene, &error) || !loadChain("deferred", &description, &error)
        || !setBackground(&description, Qt::transparent, &error))
        qFatal("%s", qPrintable(error));
    const QSharedPointer<GPUModel> model = scene.build();
    const QSize size(480, 360);
    const Camera camera = frameScene(model->sceneBounds(), CameraView(), size);

    RenderChain chain;
    chain.setDescription(description);
    chain.setEnabled("screen", false); // There is none; a viewer leaves it on.
    chain.setViewport(QRect(QPoint(), size));
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
    chain.setModel(model.data());
    chain.requestCapture({"over", "Kvz_KvzTexture*_Frame"});
    if (!chain.renderFrame())
        qFatal("%s", qPrintable(chain.errorString()));

    // The frame's colours are multiplied by its alpha; those of a PNG are not.
    QImage image = chain.takeCaptures().first().image;
    image.reinterpretAsFormat(QImage::Format_RGBA8888_Premultiplied);
    if (!writeImage(image.convertToFormat(QImage::Format_RGBA8888), argv[2], &error))
        qFatal("%s", qPrintable(error));
    return 0;
}
