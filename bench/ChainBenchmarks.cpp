// SPDX-License-Identifier: MIT
// Frames of the ready chains beside the least that shows their scene: see PlainFloor. Measured as they come, in their usual values, and
// in still frames, where passes may rest.
#include "Comparison.h"
#include "ComparisonScene.h"
#include "PlainFloor.h"

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/Texture.h>
#include <Host/Camera.h>
#include <Scene/GPUModelBuilder.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace Velmora::Kvz {

namespace {

const QSize size(1280, 720);

enum class Kind {
    Whole, ///< All of the scene.
    Few, ///< Few triangles.
    Glass ///< All of it, the three large items half transparent; the floor draws them opaque.
};

/// A scene on the GPU, its camera, its floor, and a target for chains.
class Stage
{
public:
    Stage(const ComparisonScene &scene, Kind kind)
        : m_camera(frameScene(boundsOf(scene), CameraView(), size)),
          m_target(GL_TEXTURE_2D, GL_RGBA8, size.width(), size.height(), 0, nullptr),
          floor(scene, m_camera.cameraMatrix, m_camera.projectionMatrix, size)
    {
        GPUModelBuilder builder;
        for (const ComparisonScene::Item &item : scene.items) {
            MaterialData material;
            material.kd = item.colour;
            material.ks = QVector3D(comparisonSpecular, comparisonSpecular, comparisonSpecular);
            material.ns = comparisonShininess;
            if (kind == Kind::Glass && item.mesh.indices.size() > 900) {
                material.alphaMode = MaterialData::Blend;
                material.d = 0.5f;
            }
            builder.addItem(builder.addMesh(item.mesh), builder.addMaterial(material), item.modelMatrix,
                GPUModel::DoubleSided, GPUModelBuilder::ClassifyTransparency);
        }
        m_model = builder.build();
        AutoBinder binder(&m_target);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, size.width(), size.height(), 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        m_framebuffer.bind();
        m_framebuffer.attach(&m_target, GL_COLOR_ATTACHMENT0, 0);
        m_framebuffer.setDrawBuffers();
        m_framebuffer.unbind();
    }

    void prepare(RenderChain *chain)
    {
        chain->setViewport(QRect(QPoint(), size));
        chain->setFramebuffer(&m_framebuffer);
        chain->setModel(m_model.data());
        chain->setCamera(m_camera.cameraMatrix, m_camera.projectionMatrix);
        chain->setFrameValue(FrameValues::nearPlane, m_camera.nearPlane);
        chain->setFrameValue(FrameValues::farPlane, m_camera.farPlane);
    }

    /// The picture that a chain presented, as PlainFloor::picture().
    std::vector<unsigned char> picture()
    {
        std::vector<unsigned char> bytes(size_t(size.width()) * size_t(size.height()) * 4);
        m_framebuffer.bind();
        glReadPixels(0, 0, size.width(), size.height(), GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
        m_framebuffer.unbind();
        return bytes;
    }

private:
    static QPair<QVector3D, QVector3D> boundsOf(const ComparisonScene &scene)
    {
        const QVector<QVector3D> points = scene.points();
        QPair<QVector3D, QVector3D> bounds(points.first(), points.first());
        for (const QVector3D &point : points) {
            for (int axis = 0; axis < 3; ++axis) {
                bounds.first[axis] = std::min(bounds.first[axis], point[axis]);
                bounds.second[axis] = std::max(bounds.second[axis], point[axis]);
            }
        }
        return bounds;
    }

    const Camera m_camera;
    QSharedPointer<GPUModel> m_model;
    Texture m_target;
    FramebufferObject m_framebuffer;

public:
    PlainFloor floor;
};

/// A ready chain, or the chain of equal work that a peer has: `shadows-one` is `shadows` with the first of its lamps alone.
bool load(const QString &name, ChainDescription *chain, QString *error)
{
    if (name != QLatin1String("shadows-one"))
        return loadChain(name, chain, error);
    if (!loadChain(QStringLiteral("shadows"), chain, error))
        return false;
    chain->lights.resize(1);
    return true;
}

/// The share of the pixels in which two pictures differ by more than 3 of 255 in a channel.
double differing(const std::vector<unsigned char> &a, const std::vector<unsigned char> &b)
{
    size_t count = 0;
    for (size_t i = 0; i + 3 < a.size(); i += 4) {
        bool differs = false;
        for (size_t k = 0; k < 3; ++k)
            differs = differs || std::abs(int(a[i + k]) - int(b[i + k])) > 3;
        count += differs ? 1 : 0;
    }
    return double(count) / double(a.size() / 4);
}

void chainFrame(benchmark::State &state, const QString &name, Kind kind)
{
    ComparisonScene scene = ComparisonScene::ofFewTriangles();
    QString error;
    ChainDescription description;
    RenderChain chain;
    if ((kind != Kind::Few && !scene.loadWhole(&error)) || !load(name, &description, &error)) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    Stage stage(scene, kind);
    stage.prepare(&chain);
    if (!chain.setDescription(description) || !chain.renderFrame()) {
        state.SkipWithError(qPrintable(chain.errorString()));
        return;
    }
    stage.floor.draw();
    // Chains that show nothing but the scene show that of the floor.
    if (kind != Kind::Glass && (name == QLatin1String("forward") || name == QLatin1String("deferred"))) {
        const double share = differing(stage.picture(), stage.floor.picture());
        if (share > 0.005) {
            state.SkipWithError(
                qPrintable(QStringLiteral("%1 % of the picture differ from the floor's").arg(100 * share)));
            return;
        }
    }
    for (int i = 0; i < 3; ++i)
        chain.renderFrame();
    compareWithFloor(
        state, [&chain] { chain.renderFrame(); }, [&stage] { stage.floor.draw(); });
    state.counters["triangles"] = scene.triangles();
}

const bool areRegistered = [] {
    const std::pair<const char *, Kind> kinds[] = {{"whole", Kind::Whole}, {"few", Kind::Few}, {"glass", Kind::Glass}};
    for (const QString &name : readyChainNames() + QStringList{QStringLiteral("shadows-one")}) {
        for (const auto &[title, kind] : kinds) {
            const std::string fullName = "chain/" + name.toStdString() + '/' + title;
            const auto measure = [name, kind = kind](benchmark::State &state) { chainFrame(state, name, kind); };
            benchmark::RegisterBenchmark(fullName.c_str(), measure)->Apply(timing);
        }
    }
    return true;
}();

} // namespace

} // namespace Velmora::Kvz
