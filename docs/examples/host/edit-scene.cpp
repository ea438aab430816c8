// SPDX-License-Identifier: MIT

// edit-scene MODEL FOLDER: adds an item to a scene and takes others away, with a picture of each step.
#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <Host/Camera.h>
#include <Host/HeadlessContext.h>
#include <Host/ImageWriter.h>
#include <Import/ModelImporter.h>

#include <algorithm>

using namespace Velmora::Kvz;

/// A scene that changes: the list of its items is the host's, the model on the GPU follows.
class EditableScene
{
public:
    EditableScene(const ImportedScene &scene, RenderChain *chain)
        : m_scene(scene),
          m_chain(chain)
    {
        rebuild();
    }
    ~EditableScene() { m_chain->setModel(nullptr); }

    /// One more item with mesh and material of another; returns its number.
    int addCopy(int item, const QMatrix4x4 &modelMatrix)
    {
        ImportedItem copy = m_scene.items[item];
        copy.modelMatrix = modelMatrix;
        m_scene.items.append(copy);
        rebuild();
        return m_scene.items.size() - 1;
    }
    /// The items behind it move up by a number.
    void remove(int item)
    {
        m_scene.items.removeAt(item);
        rebuild();
    }
    /// Items that only move need no other model.
    void move(int item, const QMatrix4x4 &modelMatrix)
    {
        m_scene.items[item].modelMatrix = modelMatrix;
        m_model->setModelMatrix(item, modelMatrix);
    }
    /// The first item of a name; -1 when there is none.
    int find(const QString &name) const
    {
        const auto found = std::find_if(
            m_scene.items.begin(), m_scene.items.end(), [&](const ImportedItem &item) { return item.name == name; });
        return found == m_scene.items.end() ? -1 : int(found - m_scene.items.begin());
    }
    const ImportedScene &scene() const { return m_scene; }
    QPair<QVector3D, QVector3D> bounds() const { return m_model->sceneBounds(); }

private:
    void rebuild()
    {
        const QSharedPointer<GPUModel> model = m_scene.build();
        if (!model)
            return; // The log says why; the one before stays.
        m_chain->setModel(model.data()); // Before the old one goes.
        m_model = model;
    }

    ImportedScene m_scene; // Keeps the images: releaseImages() would take them from the next build().
    RenderChain *m_chain;
    QSharedPointer<GPUModel> m_model;
};

int main(int argc, char **argv)
{
    if (argc != 3)
        qFatal("usage: edit-scene MODEL FOLDER");
    QString error;
    const auto context = HeadlessContext::create(&error);
    ImportedScene scene;
    ChainDescription description;
    if (!context || !importModel(argv[1], &scene, &error) || !loadChain("deferred", &description, &error))
        qFatal("%s", qPrintable(error));
    const QSize size(320, 240);
    RenderChain chain;
    chain.setDescription(description);
    chain.setEnabled("screen", false);
    chain.setViewport(QRect(QPoint(), size));
    EditableScene edited(scene, &chain);
    const Camera camera = frameScene(edited.bounds(), CameraView(), size);
    chain.setCamera(camera.cameraMatrix, camera.projectionMatrix);

    const auto draw = [&](const char *name) {
        chain.requestCapture({"over", "Kvz_KvzTexture*_Frame"});
        const QString file = QStringLiteral("%1/%2.png").arg(argv[2], name);
        if (!chain.renderFrame() || !writeImage(chain.takeCaptures().first().image, file, &error))
            qFatal("%s", qPrintable(chain.errorString() + error));
    };
    const int first = edited.find("crate");
    if (first < 0)
        qFatal("%s: no item \"crate\"", argv[1]);
    draw("before");

    QMatrix4x4 above;
    above.translate(0, 1.2f, 0);
    const int second = edited.addCopy(first, above * edited.scene().items[first].modelMatrix);
    draw("added");
    QMatrix4x4 aside;
    aside.translate(0.4f, 0, 0);
    edited.move(second, aside * edited.scene().items[second].modelMatrix);
    draw("moved");
    edited.remove(second);
    draw("removed");
    return 0;
}
