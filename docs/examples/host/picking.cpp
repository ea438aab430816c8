// SPDX-License-Identifier: MIT

// picking MODEL X Y: says what a picture of 640 by 480 pixels shows at a pixel.
#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ItemPicker.h>
#include <Import/ModelImporter.h>

#include <cstdio>

using namespace Velmora::Kvz;

int main(int argc, char **argv)
{
    if (argc != 4)
        qFatal("usage: picking MODEL X Y");
    QString error;
    const auto context = HeadlessContext::create(&error); // In a viewer: the widget's own context.
    ImportedScene scene;
    ChainDescription description;
    if (!context || !importModel(argv[1], &scene, &error) || !loadChain("picking", &description, &error))
        qFatal("%s", qPrintable(error));
    const QSharedPointer<GPUModel> model = scene.build();
    const QRect viewport(0, 0, 640, 480);
    const QPoint pointer(atoi(argv[2]), atoi(argv[3])); // From the upper left, in pixels of the device.
    const Camera camera = framePoints(scene.points(), CameraView(), viewport.size()); // The one of the picture.

    RenderChain chain; // Beside the chain that draws the picture.
    chain.setDescription(description);
    chain.setOption("ids", "falseColours", false); // Nobody looks at them.
    chain.setEnabled("over", false);
    chain.setEnabled("screen", false);
    chain.setViewport(viewport);
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);
    chain.setModel(model.data());

    // When the pointer moves or is pressed:
    ItemPicker picker;
    if (!chain.renderFrame())
        qFatal("%s", qPrintable(chain.errorString()));
    if (!picker.request(chain.exportedTexture("ids"), chain.exportedTexture("depth"), pointer))
        qFatal("pixel %d %d is not in the picture", pointer.x(), pointer.y());

    // In each frame of a viewer:
    std::optional<PickedItem> picked;
    while (!picked)
        picked = picker.take();

    if (!picked->isHit()) {
        std::printf("nothing\n");
        return 0;
    }
    const QVector3D place = QVector3D(pointer.x() + 0.5f, viewport.height() - pointer.y() - 0.5f, picked->depth)
                                .unproject(camera.cameraMatrix, camera.projectionMatrix, viewport);
    std::printf("item %d, \"%s\", triangle %d, at %.2f %.2f %.2f\n", picked->item,
        qPrintable(scene.items[picked->item].name), picked->triangle, place.x(), place.y(), place.z());
    return 0;
}
