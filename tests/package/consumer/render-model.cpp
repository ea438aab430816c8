// SPDX-License-Identifier: MIT
// The program that the README shows.
#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ImageWriter.h>
#include <Import/ModelImporter.h>

using namespace Velmora::Kvz;

int main(int, char **argv)
{
    QString error;
    const auto context = HeadlessContext::create(&error); // In a viewer: the widget's own context.
    ImportedScene scene;
    ChainDescription description;
    if (!context || !importModel(argv[1], &scene, &error) || !loadChain("deferred", &description, &error))
        qFatal("%s", qPrintable(error));
    const QSharedPointer<GPUModel> model = scene.build();
    const QSize size(1280, 720);
    const Camera camera = frameScene(model->sceneBounds(), CameraView(), size);

    RenderChain chain;
    chain.setDescription(description);
    chain.setEnabled("screen", false); // There is none. In a viewer: setFramebuffer().
    chain.setViewport(QRect(QPoint(), size));
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
    chain.setModel(model.data());
    chain.requestCapture({"over", "Kvz_KvzTexture*_Frame"});
    if (!chain.renderFrame() || !writeImage(chain.takeCaptures().first().image, argv[2], &error))
        qFatal("%s", qPrintable(chain.errorString() + error));
    return 0;
}
