// SPDX-License-Identifier: MIT
#include <Host/CameraFit.h>
#include <Host/ChainLibrary.h>
#include <Host/HeadlessContext.h>
#include <Host/ModelImporter.h>
#include <Host/RenderChain.h>

using namespace Velmora::Kvz;

int main(int argc, char **argv)
{
    QString error;
    ImportedScene scene;
    ChainDescription description;
    const auto context = HeadlessContext::create(&error);
    if (!context || argc < 3 || !importModel(argv[1], &scene, &error) || !loadChain("deferred", &description, &error))
        qFatal("%s", qPrintable(error));
    const QSharedPointer<GPUModel> model = scene.build();

    RenderChain chain;
    chain.setDescription(description);
    chain.setViewport(QRect(0, 0, 640, 480));
    chain.setModel(model.data());
    chain.addExport("picture", {"over", "Kvz_KvzTexture*_Frame"});
    chain.renderFrame();
    return 0;
}
