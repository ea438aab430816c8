// SPDX-License-Identifier: MIT
#include "LayerScene.h"
#include "LitFixture.h"

#include "support/Cameras.h"
#include "support/DriverClaims.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"
#include "support/VisibilityLists.h"

#include <ExtraPasses/LitForwardRenderPass.h>
#include <ExtraPasses/LitListRenderPass.h>
#include <ExtraPasses/LitWeightedRenderPass.h>
#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>
#include <RenderPasses/VisibilitySortRenderPass.h>
#include <Scene/InstanceDataCollection.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Half floats up to 1, image filters with weights of 8 bits, and vertices that the rasteriser moves by 1/512 pixel.
constexpr double tolerance = 0.006;
/// A step of half floats below 1, since a driver may truncate, plus what floats lose on the way.
constexpr double halfTolerance = 6e-4;

/// Tests that also hold where each pixel has a single fragment.
class LitListRenderPassTest : public PassTest<LitListRenderPass>
{
protected:
    using Buffer = VisibilityBufferRenderPass;
    using Sort = VisibilitySortRenderPass;

    /// Records and sorts the lists of the transparent items and sets all inputs of the pass.
    void record(const QSharedPointer<GPUModel> &model, const QSize &size, const QMatrix4x4 &camera,
        const QMatrix4x4 &projection)
    {
        setViewport(size);
        for (RenderPass *each : {static_cast<RenderPass *>(buffer.get()), static_cast<RenderPass *>(pass.get())}) {
            each->setInput(each->findInput(QStringLiteral("Kvz_QRect_Viewport")), QRect(QPoint(), size));
            each->setInput(each->findInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix")), camera);
            each->setInput(each->findInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix")), projection);
            each->setInput(
                each->findInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry")), QVariant::fromValue(model.data()));
        }
        buffer->start(nullptr);
        sort->setInput(Sort::Viewport, QRect(QPoint(), size));
        for (int i = 0; i < 3; ++i)
            sort->setInput(Sort::HeadPointersIn + i, buffer->output(i));
        sort->start(nullptr);
        for (int i = 0; i < 3; ++i)
            pass->setInput(Port::HeadPointers + i, sort->output(i));
        pass->setNumOutputUsers(Port::Frame, 1);
    }
    /// Draws a frame and returns its image, which goes back to the pool.
    Image draw(const QSharedPointer<GPUModel> &model, const QSize &size = QSize(4, 4),
        const QMatrix4x4 &camera = QMatrix4x4(), const QMatrix4x4 &projection = QMatrix4x4())
    {
        record(model, size, camera, projection);
        pass->start(nullptr);
        const Image result = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return result;
    }
    using Walls = QVector<QPair<float, MaterialData>>;
    static QSharedPointer<GPUModel> wallModel(const Walls &walls, const MeshData &mesh = wallMesh())
    {
        LitScene scene;
        for (const auto &wall : walls) {
            QMatrix4x4 matrix;
            matrix.translate(0, 0, wall.first);
            scene.add(mesh, wall.second, matrix, GPUModel::Transparent);
        }
        return scene.build();
    }
    /// A pixel of walls that face the viewer, without perspective.
    QVector4D drawWalls(const Walls &walls)
    {
        QMatrix4x4 projection;
        projection.ortho(-1, 1, -1, 1, -1, 1);
        return draw(wallModel(walls), QSize(4, 4), QMatrix4x4(), projection).pixel(1, 2);
    }

    std::unique_ptr<Buffer> buffer = std::make_unique<Buffer>(GPUModel::Transparent, GPUModel::Transparent);
    std::unique_ptr<Sort> sort = std::make_unique<Sort>();
    PooledTextures textures;
};

class LitListsTest : public LitListRenderPassTest
{ };

} // namespace

TEST_F(LitListsTest, matchesTheFormulasAlongRays)
{
    const LitScene scene = layerScene();
    const Image frame = draw(scene.build(), layerSceneSize, layerSceneCamera, layerSceneProjection);
    saveForViewing(frame, QStringLiteral("lit-list-scene"));

    const LitReference reference(scene, layerSceneProjection, layerSceneCamera, layerSceneSize);
    double sum = 0;
    int beyond = 0;
    int compared = 0;
    QVector<int> byLayers(40, 0);
    reference.rays().compareClearLists(0.6, 4000, [&](int x, int y, const QVector<RayHit> &hits) {
        // Opaque items are not drawn here, so nothing hides the lists.
        QVector<RayHit> transparent;
        for (const RayHit &hit : hits) {
            if (scene.featureFlags(hit.item) & GPUModel::Transparent)
                transparent.append(hit);
        }
        bool isCertain = true;
        const QVector<Layer> layers = layersAt(scene, reference, layerSceneCamera, x, y, transparent, &isCertain);
        if (!isCertain)
            return;
        ++compared;
        ++byLayers[layers.size()];
        const Vector4d expected = composited(layers);
        double largest = 0;
        for (size_t i = 0; i < 4; ++i) {
            const double error = std::abs(double(frame.at(x, y)[i]) - expected[i]);
            largest = std::max(largest, error);
            sum += error / 4;
        }
        beyond += largest > tolerance;
        if (layers.isEmpty()) {
            EXPECT_EQ(frame.pixel(x, y), QVector4D(0, 0, 0, 1)) << x << ' ' << y;
        }
    });
    std::printf(
        "[ COMPARED ] mean error %.6f, %d of %d pixels beyond; %d, %d, %d and %d pixels of 0, 1, 2 and 16 layers\n",
        sum / compared, beyond, compared, byLayers[0], byLayers[1], byLayers[2], byLayers[16]);
    // At the edges of holes that a mask cuts, the last bit decides.
    EXPECT_LE(beyond, 12);
    EXPECT_LE(sum / compared, 1e-3);
    for (const int layers : {0, 1, 2, 3, 16})
        EXPECT_GT(byLayers[layers], 50) << layers << " layers";
}

TEST_F(LitListsTest, compositesExactlyFromFrontToBack)
{
    MaterialData lit;
    lit.kd = QVector3D(0.8f, 0.4f, 0.1f);
    lit.ks = QVector3D(0.1f, 0.1f, 0.1f);
    lit.d = 0.3f;
    const QVector3D light = lit.kd + 0.85f * lit.ks;
    const QVector4D one = drawWalls({{0, lit}});
    const MaterialData flat = flatGlass({0.1f, 0.5f, 1}, 0.6f);
    const QVector4D lower = drawWalls({{-0.5f, flat}, {0.5f, lit}});
    const QVector4D other = drawWalls({{0.5f, lit}, {-0.5f, flat}});
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(double(one[i]), double(0.3f * light[i]), halfTolerance);
        EXPECT_NEAR(double(lower[i]), double(0.3f * light[i] + 0.7f * 0.6f * flat.kd[i]), halfTolerance);
    }
    EXPECT_NEAR(one.w(), 0.7, halfTolerance);
    EXPECT_NEAR(lower.w(), 0.7 * 0.4, halfTolerance);
    EXPECT_EQ(lower, other) << "whatever is drawn first";
    // An opaque layer ends the list and lets nothing through.
    EXPECT_EQ(drawWalls({{-0.5f, flat}, {0.5f, flatGlass({1, 0, 0.5f}, 1)}}), QVector4D(1, 0, 0.5f, 0));
    // All of 40 layers count.
    Walls stack;
    for (int i = 0; i < 40; ++i)
        stack.append({-0.9f + 0.04f * float(i), flatGlass({1, 1, 1}, 0.05f)});
    EXPECT_NEAR(drawWalls(stack).w(), std::pow(0.95, 40), halfTolerance);
    EXPECT_NEAR(drawWalls(stack).x(), 1 - std::pow(0.95, 40), halfTolerance);
}

TEST_F(LitListsTest, tiesFollowItemsAndTrianglesHoweverTheyWereRecorded)
{
    // Three panes in one plane, behind another and before one more.
    const MaterialData colours[] = {flatGlass({1, 0.2f, 0.1f}, 0.5f), flatGlass({0.1f, 0.3f, 1}, 0.7f),
        flatGlass({0.2f, 1, 0.3f}, 0.4f), flatGlass({1, 1, 0.2f}, 0.3f), flatGlass({0.6f, 0.1f, 0.9f}, 0.8f)};
    const QSharedPointer<GPUModel> model =
        wallModel({{0, colours[0]}, {0.5f, colours[3]}, {0, colours[1]}, {-0.5f, colours[4]}, {0, colours[2]}});
    const QSize size(4, 4);
    QMatrix4x4 projection;
    projection.ortho(-1, 1, -1, 1, -1, 1);
    record(model, size, QMatrix4x4(), projection);
    const auto shade = [&] {
        pass->start(nullptr);
        const Image result = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return result;
    };
    const Image shown = shade();

    QVector3D colour;
    float through = 1;
    for (const int i : {3, 0, 1, 2, 4}) {
        colour += through * colours[i].d * colours[i].kd;
        through *= 1 - colours[i].d;
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(double(shown.pixel(1, 1)[i]), double(colour[i]), halfTolerance);

    // The same lists with the tied nodes in every other order.
    const VisibilityLists lists(*sort);
    auto *const nodes = sort->output(Sort::NodeBuffer).value<Texture *>();
    const int nodeWidth = sort->output(Sort::NodeBufferWidth).toInt();
    int order[] = {0, 1, 2};
    while (std::next_permutation(order, order + 3)) {
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const QVector<ListNode> list = lists.at(x, y);
                ASSERT_EQ(list.size(), 5);
                ASSERT_EQ(list[1].depthBits, list[3].depthBits);
                for (int i = 0; i < 3; ++i) {
                    const ListNode &at = list[1 + i];
                    const ListNode &from = list[1 + order[i]];
                    const quint32 node[] = {at.next, from.primitive, from.depthBits, from.draw};
                    AutoBinder binder(nodes);
                    glTexSubImage2D(GL_TEXTURE_2D, 0, int(at.place - 1) % nodeWidth, int(at.place - 1) / nodeWidth, 1,
                        1, GL_RGBA_INTEGER, GL_UNSIGNED_INT, node);
                }
            }
        }
        EXPECT_EQ(maximumDifference(shade(), shown), 0) << order[0] << order[1] << order[2];
    }
}

TEST_F(LitListRenderPassTest, takesItsLightsFromItsInputs)
{
    MaterialData glass;
    glass.kd = QVector3D(0.8f, 0.4f, 0.2f);
    glass.d = 0.5f;
    pass->setInput(Port::HeadlightIntensity, 0.25f);
    pass->setInput(Port::AmbientIntensity, 0.5f);
    EXPECT_NEAR(drawWalls({{0, glass}}).x(), 0.75 * 0.8 * 0.5, halfTolerance);
    pass->setInput(Port::FixedLight, true);
    EXPECT_NEAR(drawWalls({{0, glass}}).x(), 0.8 * 0.5 / std::sqrt(3.0), halfTolerance);
    for (const int input : {Port::HeadlightIntensity, Port::AmbientIntensity, Port::FixedLight})
        pass->setInput(input, QVariant());
    EXPECT_NEAR(drawWalls({{0, glass}}).x(), 0.8 * 0.5, halfTolerance) << "null is the default";
}

TEST_F(LitListRenderPassTest, seesTheSideThatIsSeenWhateverMirrors)
{
    // One wall from the front or from behind, mirrored or not, seen by cameras on both sides of it.
    for (const bool isTwoSided : {true, false}) {
        for (const bool isMirrored : {true, false}) {
            for (const float side : {1.0f, -1.0f}) {
                MaterialData glass;
                glass.kd = QVector3D(0.8f, 0.8f, 0.8f);
                glass.d = 0.5f;
                glass.isLitFromBothSides = isTwoSided;
                QMatrix4x4 matrix;
                matrix.scale(isMirrored ? -2 : 2, 2, 2);
                LitScene scene;
                scene.add(wallMesh(), glass, matrix, GPUModel::Transparent);
                const QSize size(9, 9);
                const QVector4D pixel = draw(
                    scene.build(), size, lookAt(QVector3D(0, 0, 3 * side), QVector3D()), perspective(size, 0.5f, 10))
                                            .pixel(4, 4);
                // A surface that is lit by its normal has only the ambient share from behind.
                const double light = isTwoSided || side > 0 ? 1 : 0.15;
                EXPECT_NEAR(pixel.x(), 0.4 * light, 1e-3) << isTwoSided << isMirrored << side;
            }
        }
    }
}

TEST_F(LitListRenderPassTest, seesTheSideOfATriangleThatReachesBehindTheEye)
{
    // A floor below the camera, with one corner far behind it.
    MeshData floor;
    floor.positions = {{-50, -1, 30}, {50, -1, 30}, {0, -1, -60}};
    floor.normals = {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}};
    MaterialData glass;
    glass.kd = QVector3D(0.8f, 0.8f, 0.8f);
    glass.d = 0.5f;
    glass.isLitFromBothSides = false;
    const QSize size(16, 16);
    const QMatrix4x4 projection = perspective(size, 0.1f, 100);
    LitScene scene;
    scene.add(floor, glass, QMatrix4x4(), GPUModel::Transparent);
    const Image above = draw(scene.build(), size, QMatrix4x4(), projection);
    const LitReference reference(scene, projection, QMatrix4x4(), size);
    int compared = 0;
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const Vector4d expected = reference.colourAt(x, y, reference.rays().cast(x + 0.5, y + 0.5));
            EXPECT_NEAR(double(above.at(x, y)[0]), expected[0], 1e-3) << x << ' ' << y;
            compared += expected[0] > 0.1;
        }
    }
    EXPECT_GT(compared, 80);
}

TEST_F(LitListRenderPassTest, readsImagesFromTheMipLevelsOfTheForwardPass)
{
    // Eight texels a pixel in one direction, one in the other. Pixels are moved to the centres of texels, or the largest level would
    // give the mean of two of them, which is that of all.
    MaterialData material = coloured({1, 1, 1});
    material.mapKd = checkerImage(64, Qt::black, Qt::white);
    material.alphaMode = MaterialData::Blend;
    material.d = 0.5f;
    const View view = wallView(QSize(64, 64));
    for (const int set : {0, 1}) {
        material.mapKdSampling.uvSet = set;
        for (const QVector2D &scale : {QVector2D(8, 1), QVector2D(1, 8), QVector2D(1, 1)}) {
            MeshData wall = wallMesh();
            wall.texCoords1 = wall.texCoords;
            for (QVector2D &texCoord : set == 0 ? wall.texCoords : wall.texCoords1)
                texCoord = texCoord * scale + (scale - QVector2D(1, 1)) / (7 * 128);
            LitScene scene;
            scene.add(wall, material, QMatrix4x4(), GPUModel::Transparent);
            const QSharedPointer<GPUModel> model = scene.build();
            const Image layers = draw(model, view.size, view.camera, view.projection);
            LitForwardRenderPass forward;
            forward.setInput(LitForwardRenderPass::Viewport, QRect(QPoint(), view.size));
            forward.setInput(LitForwardRenderPass::ProjectionMatrix, view.projection);
            forward.setInput(LitForwardRenderPass::CameraMatrix, view.camera);
            forward.setInput(LitForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
            forward.start(nullptr);
            const Image frame = readTexture(forward.output(LitForwardRenderPass::Frame).value<Texture *>());
            double largest = 0;
            for (int y = 0; y < view.size.height(); ++y) {
                for (int x = 0; x < view.size.width(); ++x) {
                    const QVector3D difference = (layers.pixel(x, y) - frame.pixel(x, y)).toVector3D();
                    largest = std::max(largest, double(difference.length()));
                }
            }
            EXPECT_LE(largest, 4.0 / 255) << set << ' ' << scale.x() << ' ' << scale.y();
            EXPECT_GT(frame.pixel(1, 1).w(), 0.4f);
        }
    }
}

TEST_F(LitListRenderPassTest, followsTheGeometryOfEachModel)
{
    QVector<QSharedPointer<GPUModel>> models;
    const QMatrix4x4 identity;
    const auto pixelOf = [&](const MeshData &mesh, const MaterialData &material) {
        models.append(wallModel({{0, material}}, mesh));
        QMatrix4x4 projection;
        projection.ortho(-1, 1, -1, 1, -1, 1);
        return draw(models.last(), QSize(4, 4), identity, projection).pixel(1, 2);
    };
    MaterialData glass;
    glass.kd = QVector3D(0.8f, 0.6f, 0.4f);
    glass.d = 0.5f;
    EXPECT_NEAR(pixelOf(wallMesh(), glass).x(), 0.4, halfTolerance);
    // Other vertices: a wall whose normals lean.
    MeshData leaning = wallMesh();
    for (QVector3D &normal : leaning.normals)
        normal = QVector3D(0, 0.6f, 0.8f);
    EXPECT_NEAR(pixelOf(leaning, glass).x(), 0.4 * (0.15 + 0.85 * 0.8), halfTolerance);
    EXPECT_NEAR(pixelOf(withoutIndices(leaning), glass).x(), 0.4 * (0.15 + 0.85 * 0.8), halfTolerance);
    // With vertex colours, then without.
    MeshData coloured = wallMesh();
    coloured.colours = QVector<QVector4D>(4, QVector4D(0.5f, 1, 1, 0.5f));
    EXPECT_NEAR(pixelOf(coloured, glass).x(), 0.8 * 0.5 * 0.25, halfTolerance);
    EXPECT_NEAR(pixelOf(coloured, glass).w(), 0.75, halfTolerance);
    EXPECT_NEAR(pixelOf(wallMesh(), glass).w(), 0.5, halfTolerance);
    // Two models that exist at the same time, drawn in turn.
    QMatrix4x4 projection;
    projection.ortho(-1, 1, -1, 1, -1, 1);
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_NEAR(draw(models[0], QSize(4, 4), identity, projection).pixel(1, 2).x(), 0.4, halfTolerance);
        EXPECT_NEAR(draw(models[2], QSize(4, 4), identity, projection).pixel(1, 2).x(), 0.4 * (0.15 + 0.85 * 0.8),
            halfTolerance);
    }
    // After a model is deleted, another may get its address.
    models.clear();
    EXPECT_NEAR(pixelOf(coloured, glass).w(), 0.75, halfTolerance);
}

TEST_F(LitListRenderPassTest, takesTheRowsThatAHostPutsInPlaceOfTheModels)
{
    MaterialData glass;
    glass.kd = QVector3D(0.8f, 0.6f, 0.4f);
    glass.d = 0.5f;
    const QSharedPointer<GPUModel> model = wallModel({{0, glass}});
    QMatrix4x4 turned;
    turned.rotate(60, 0, 1, 0);
    InstanceDataCollection rows(QStringLiteral("InstanceInfo"));
    rows.setRowCount(1);
    rows.setValue(0, QStringLiteral("getModelMatrix"), turned);
    rows.setValue(0, QStringLiteral("getModelNormalMatrix"), turned);
    QMatrix4x4 projection;
    projection.ortho(-1, 1, -1, 1, -1, 1);
    rows.bind(nullptr, nullptr);
    const Image image = draw(model, QSize(8, 8), QMatrix4x4(), projection);
    rows.unbind(nullptr, nullptr);
    EXPECT_EQ(image.pixel(0, 4), QVector4D(0, 0, 0, 1)) << "the turned wall is half as wide";
    EXPECT_NEAR(image.pixel(4, 4).x(), 0.4 * (0.15 + 0.85 * 0.5), 1e-3);
}

TEST_F(LitListRenderPassTest, withoutListsOrModelThereIsNoImage)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    draw(model);
    const QVector<QPair<int, QVariant>> changes = {{Port::Geometry, QVariant::fromValue<GPUModel *>(nullptr)},
        {Port::HeadPointers, QVariant()}, {Port::NodeBuffer, QVariant()}, {Port::Viewport, QRect(0, 0, 4, 0)}};
    for (const auto &[input, value] : changes) {
        record(model, QSize(4, 4), QMatrix4x4(), QMatrix4x4());
        pass->setInput(input, value);
        pass->start(nullptr);
        EXPECT_EQ(pass->output(Port::Frame).userType(), qMetaTypeId<Texture *>()) << input;
        EXPECT_EQ(texture(Port::Frame), nullptr) << input;
    }
    // A model without items has empty lists, and a node width of 0 means no nodes.
    GPUModelBuilder empty;
    const QSharedPointer<GPUModel> nothing = empty.build();
    record(nothing, QSize(4, 4), QMatrix4x4(), QMatrix4x4());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Frame), nullptr);
    record(model, QSize(4, 4), QMatrix4x4(), QMatrix4x4());
    pass->setInput(Port::NodeBufferWidth, QVariant());
    pass->start(nullptr);
    EXPECT_EQ(image(Port::Frame).pixel(1, 1), QVector4D(0, 0, 0, 1));
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
}

TEST_F(LitListRenderPassTest, refusesModelsThatBufferTexturesDoNotHold)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    const int texels = 6; // Of the indices, the longest buffer of a wall.
    for (const int limit : {texels - 1, texels}) {
        SCOPED_TRACE(limit);
        pass = std::make_unique<LitListRenderPass>();
        GLCallRecorder<&epoxy_glGetIntegerv> integers;
        integers.replacement = [&](GLenum name, GLint *value) {
            integers.forward(name, value);
            if (name == GL_MAX_TEXTURE_BUFFER_SIZE)
                *value = limit;
        };
        for (int frame = 0; frame < 2; ++frame) {
            record(model, QSize(4, 4), QMatrix4x4(), QMatrix4x4());
            pass->start(nullptr);
            EXPECT_EQ(texture(Port::Frame) != nullptr, limit == texels);
            if (Texture *const frameTexture = texture(Port::Frame))
                TextureManager::Instance()->releaseTempTextureRef(frameTexture, 1);
        }
        const QStringList lines = log.takeWarnings();
        EXPECT_EQ(lines.size(), limit == texels ? 0 : 1) << "once, not for each frame";
        if (!lines.isEmpty()) {
            EXPECT_TRUE(lines[0].contains(QStringLiteral("hold 5; split the model"))) << qPrintable(lines[0]);
        }
    }
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
}

TEST_F(LitListRenderPassTest, runsOnADriverWith16TextureUnitsAStage)
{
    // With vertex colours, a second set of texture coordinates, images and an index buffer.
    MeshData mesh = wallMesh();
    mesh.colours = QVector<QVector4D>(4, QVector4D(0.5f, 1, 1, 0.5f));
    mesh.texCoords1 = mesh.texCoords;
    MaterialData glass = flatGlass({0.8f, 0.6f, 0.4f}, 0.5f);
    MaterialData other = glass;
    fillAllImageArrays(&glass, &other, [](int size) {
        QImage image(size, size, QImage::Format_ARGB32);
        image.fill(QColor(255, 255, 255, 128));
        return image;
    });
    glass.mapKdSampling.uvSet = 1;
    pass.reset();
    {
        const DriverClaims claims({}, 0, {}, 16);
        QString error;
        const std::unique_ptr<HeadlessContext> modest = HeadlessContext::create(&error);
        ASSERT_TRUE(modest) << qPrintable(error);
        ASSERT_TRUE(modest->makeCurrent());
        pass = std::make_unique<LitListRenderPass>();
        auto modestBuffer = std::make_unique<Buffer>(GPUModel::Transparent, GPUModel::Transparent);
        auto modestSort = std::make_unique<Sort>();
        std::swap(buffer, modestBuffer);
        std::swap(sort, modestSort);
        int samplers = 0;
        {
            const QSharedPointer<GPUModel> model =
                wallModel({{0, glass}, {5, other}}, mesh); // The other is out of sight.
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            draws.onCall = [&](GLenum, GLint, GLsizei) {
                samplers = std::max(samplers, activeSamplers(GLuint(glInteger(GL_CURRENT_PROGRAM))));
            };
            const QVector4D pixel = draw(model).pixel(1, 1);
            const double opacity = 0.5 * 0.5 * 128 / 255;
            EXPECT_NEAR(pixel.x(), 0.8 * 0.5 * opacity, halfTolerance);
            EXPECT_NEAR(pixel.w(), 1 - opacity, halfTolerance);
        }
        EXPECT_EQ(samplers, 16) << "all of them in the fragment stage";
        pass.reset();
        std::swap(buffer, modestBuffer);
        std::swap(sort, modestSort);
    }
    context().makeCurrent();
}

TEST_F(LitListRenderPassTest, handsOnReferencesAndLeavesItsState)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    draw(model); // Creates what the pass keeps.
    record(model, QSize(4, 4), QMatrix4x4(), QMatrix4x4());
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ONE); // Nothing would be drawn.
    glViewport(0, 0, 1, 1);
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    glDepthFunc(GL_LESS);
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA16F);
    EXPECT_NEAR(image(Port::Frame).pixel(3, 3).w(), 0.5, halfTolerance);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 4, 4));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    const int units = glInteger(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS);
    for (int unit = 0; unit < units; ++unit) {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_BUFFER), 0) << "unit " << unit;
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D), 0) << "unit " << unit;
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D_ARRAY), 0) << "unit " << unit;
    }
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    EXPECT_EQ(log.takeWarnings(), QStringList());

    // Lists taken from the pool go back to it.
    Texture *const heads = textures.take(TextureFormat::LowDynamicRange, 4, 4, 2);
    Texture *const nodes = textures.take(TextureFormat::LowDynamicRange, 4, 4, 2);
    setTexture(Port::HeadPointers, heads);
    setTexture(Port::NodeBuffer, nodes);
    pass->setInput(Port::Geometry, QVariant());
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(heads), 1);
    EXPECT_EQ(PooledTextures::references(nodes), 1);
    pass->setInput(Port::HeadPointers, QVariant());
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(nodes), 0) << "the test's own went, too";
}

TEST_F(LitListRenderPassTest, followsTheViewportAndTakesItsObjectsAlong)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    draw(model);
    const GLObjectCounts before = glObjectCounts();
    for (const QSize &size : {QSize(4, 7), QSize(9, 7)}) {
        const Image image = draw(model, size);
        EXPECT_EQ(QSize(image.width, image.height), size);
        EXPECT_NEAR(image.pixel(size.width() - 1, size.height() - 1).w(), 0.5, halfTolerance);
    }
    TextureManager::Instance()->deleteUnusedTempTextures();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs - 1);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers - 1);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays - 1);
}

} // namespace Velmora::Kvz
