// SPDX-License-Identifier: MIT
#include "VisibilityFixture.h"

#include "support/GLCallRecorder.h"

#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ForwardRenderPass.h>

#include <QtGui/QColor>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

/// Half a step of 8 bits, plus rounding in single precision.
constexpr double colorTolerance = 0.5 / 255 + 1e-3;
/// The same with images filtered by weights of 8 bits, in colours that count twice.
constexpr double imageTolerance = 2.5 / 255;

class VisibilityDeferredRenderPassTest : public VisibilityFixture
{
protected:
    void setScene(const RayCastScene &newScene, const QSize &viewport, const QMatrix4x4 &newCamera)
    {
        scene = newScene;
        setModel(scene.build());
        setViewport(viewport);
        setCamera(newCamera, perspective(viewport, 0.5f, 30));
    }

    /// What a comparison must at least contain: pixels with images in their lists, and layers in one pixel.
    struct Least
    {
        int textured;
        int deepest;
    };
    /// Checks a frame against the four compositing statements, applied along the ray of each clear pixel whose images
    /// are magnified. `inOrder` arranges the hits of a ray in the order of its list.
    void compareWithRayCast(const Image &frame, double leastShare, int leastGeometry, const Least &least,
        const std::function<QVector<RayHit>(const QVector<RayHit> &)> &inOrder)
    {
        const RayCaster caster(scene.items(), projection, camera, size);
        const ListShading shading(scene, camera);
        double colorError = 0;
        double imageError = 0;
        int textured = 0;
        int deepest = 0;
        const RayCastCoverage coverage =
            caster.compareClearLists(leastShare, leastGeometry, [&](int x, int y, const QVector<RayHit> &hits) {
                const float *actual = frame.at(x, y);
                const Vector4d expected = hits.isEmpty() ? Vector4d{0, 0, 0, 1} : shading.shade(inOrder(hits));
                const bool hasImage = std::any_of(hits.begin(), hits.end(), [&](const RayHit &hit) {
                    return !scene.material(hit).mapKd.isNull() || !scene.material(hit).mapKs.isNull();
                });
                textured += hasImage;
                deepest = std::max(deepest, hits.size());
                for (size_t i = 0; i < 4; ++i) {
                    const double difference = std::abs(std::min(std::max(expected[i], 0.0), 1.0) - double(actual[i]));
                    (hasImage ? imageError : colorError) = std::max(hasImage ? imageError : colorError, difference);
                }
            });
        EXPECT_LE(colorError, colorTolerance);
        EXPECT_LE(imageError, imageTolerance);
        EXPECT_GE(textured, least.textured);
        EXPECT_GE(deepest, least.deepest);
        std::printf("[  SHADED  ] %d of %d with images, up to %d layers\n", textured, coverage.geometry, deepest);
    }

    RayCastScene scene;
};

class VisibilityDeferredListsTest : public VisibilityDeferredRenderPassTest
{ };

class VisibilityDeferredSingleNodeTest : public VisibilityDeferredRenderPassTest
{ };

/// An image without hard edges, of so few texels that it is magnified in all tests that do not say otherwise.
QImage softImage(unsigned int seed)
{
    std::mt19937 random(seed);
    QImage image(3, 3, QImage::Format_ARGB32);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x)
            image.setPixelColor(x, y, QColor(int(random() % 160), int(random() % 160), int(random() % 160)));
    }
    return image;
}

MaterialData glass(const QVector3D &kd, float d, const QVector3D &ks = QVector3D(), float ns = 8)
{
    MaterialData material;
    material.kd = kd;
    material.ks = ks;
    material.ns = ns;
    material.d = d;
    return material;
}

/// Transparent and opaque things inside and in front of one another, dark enough for colours that count twice.
RayCastScene mixedScene(bool isIndexed)
{
    RayCastScene scene;
    const auto add = [&](const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix) {
        scene.add(isIndexed ? mesh : withoutIndices(mesh), material, matrix);
    };
    QMatrix4x4 matrix;
    matrix.translate(-0.7f, 0.3f, 0.3f);
    add(sphereMesh(6), glass({0.5f, 0.2f, 0.1f}, 0.4f, {0.2f, 0.2f, 0.2f}), matrix);
    matrix.setToIdentity();
    matrix.translate(0.6f, 0.2f, 0.1f);
    matrix.rotate(35, 0.3f, 1, 0.2f);
    matrix.scale(-0.8f, 0.6f, 0.5f);
    MaterialData material = glass({0.5f, 0.6f, 0.5f}, 0.5f);
    material.mapKd = softImage(1);
    add(boxMesh(2), material, matrix);
    for (int i = 0; i < 3; ++i) {
        matrix.setToIdentity();
        matrix.rotate(60 * float(i) + 15, 0, 1, 0);
        material =
            glass({0.1f + 0.1f * float(i), 0.3f, 0.4f - 0.1f * float(i)}, 0.3f + 0.2f * float(i), {0.1f, 0.2f, 0.1f});
        if (i == 1)
            material.mapKs = softImage(2);
        add(wallMesh(), material, matrix);
    }
    matrix.setToIdentity();
    matrix.translate(0.2f, -0.4f, -0.3f);
    matrix.scale(0.5f);
    add(sphereMesh(5), glass({0.3f, 0.3f, 0.25f}, 1), matrix);
    // The ground reaches behind the camera.
    matrix.setToIdentity();
    matrix.translate(0, -1, 0);
    matrix.scale(20);
    add(groundMesh(), glass({0.2f, 0.3f, 0.3f}, 0.6f), matrix);
    return scene;
}

/// Squares in a grid of this many columns and rows that fills the image, each with its own material.
GPUModelBuilder gridOfSquares(int columns, int rows, QVector<QVector3D> *colors)
{
    GPUModelBuilder builder;
    const int wall = builder.addMesh(wallMesh());
    std::mt19937 random(5);
    const auto channel = [&random] { return float(random() % 1000) / 2500; };
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            QMatrix4x4 matrix;
            matrix.translate((2 * float(column) + 1) / float(columns) - 1, (2 * float(row) + 1) / float(rows) - 1, 0);
            // Normals are transformed by the inverse transpose, so depth keeps its scale.
            matrix.scale(1 / float(columns), 1 / float(rows), 1);
            colors->append(QVector3D(channel(), channel(), channel()));
            builder.addItem(wall, builder.addMaterial(glass(colors->last(), 0.5f)), matrix);
        }
    }
    return builder;
}

} // namespace

TEST_F(VisibilityDeferredListsTest, compositesWhatRaysMeet)
{
    for (const bool isIndexed : {true, false}) {
        deferred = std::make_unique<Deferred>(); // The pass keeps the vertices of its first model.
        setScene(mixedScene(isIndexed), QSize(160, 120), lookAt(QVector3D(0.6f, 0.9f, 4), QVector3D(0, 0.1f, 0)));
        const Image image = runAll();
        saveForViewing(image, QStringLiteral("visibility-deferred"));
        compareWithRayCast(image, 0.85, 12000, {2059, 7}, byDepth);
    }
}

TEST_F(VisibilityDeferredListsTest, givesNormalsAWOfOne)
{
    // With affine matrices the w of the normal has no effect. The last row of this camera's matrix gives it one.
    RayCastScene turned;
    QMatrix4x4 matrix;
    matrix.rotate(30, 1, 0.5f, 0);
    turned.add(wallMesh(), glass({0.4f, 0.3f, 0.2f}, 0.5f), matrix);
    QMatrix4x4 cameraMatrix = lookAt(QVector3D(0, 0, 3), QVector3D());
    cameraMatrix(3, 0) = 0.05f;
    cameraMatrix(3, 1) = -0.04f;
    cameraMatrix(3, 2) = 0.03f;
    setScene(turned, QSize(64, 48), cameraMatrix);
    compareWithRayCast(runAll(), 0.85, 300, {0, 1}, byDepth);
}

TEST_F(VisibilityDeferredRenderPassTest, shadesTheNearestLayerOfOneItem)
{
    // A convex item with its back faces culled: each pixel has one fragment in both modes.
    for (const bool isIndexed : {true, false}) {
        MaterialData material = glass({0.5f, 0.6f, 0.6f}, 0.7f, {0.2f, 0.2f, 0.1f});
        material.mapKd = softImage(4);
        QMatrix4x4 matrix;
        matrix.rotate(35, 0.3f, 1, 0.2f);
        RayCastScene ball;
        ball.add(isIndexed ? sphereMesh(6) : withoutIndices(sphereMesh(6)), material, matrix);
        deferred = std::make_unique<Deferred>();
        setScene(ball, QSize(160, 120), lookAt(QVector3D(0.6f, 0.9f, 2.6f), QVector3D(0, 0.1f, 0)));
        glEnable(GL_CULL_FACE);
        runBuffer();
        glDisable(GL_CULL_FACE);
        runSort();
        glClearColor(0, 0, 0, 1);
        runDeferred();
        compareWithRayCast(
            frame(), 0.85, 6000, {4431, 2}, [](const QVector<RayHit> &hits) { return byDepth(hits).mid(0, 1); });
    }
}

TEST_F(VisibilityDeferredSingleNodeTest, shadesTheNearestOfManyLayers)
{
    RayCastScene rings;
    MeshData mesh;
    for (int i = 0; i < 5; ++i) {
        const MeshData wall = wallMesh();
        const auto first = quint32(mesh.positions.size());
        QMatrix4x4 matrix;
        matrix.rotate(36 * float(i), 0, 1, 0);
        for (int k = 0; k < wall.positions.size(); ++k) {
            mesh.positions.append(matrix * wall.positions[k]);
            mesh.normals.append(matrix.mapVector(wall.normals[k]));
            mesh.texCoords.append(wall.texCoords[k]);
        }
        for (const quint32 index : wall.indices)
            mesh.indices.append(first + index);
    }
    rings.add(mesh, glass({0.4f, 0.3f, 0.2f}, 0.5f));
    setScene(rings, QSize(128, 96), lookAt(QVector3D(0.3f, 0.5f, 3), QVector3D()));
    compareWithRayCast(
        runAll(), 0.85, 4000, {0, 4}, [](const QVector<RayHit> &hits) { return byDepth(hits).mid(0, 1); });
}

TEST_F(VisibilityDeferredListsTest, readsTheRowsOfEachDraw)
{
    // More than 256 materials, and more items than would fit into a small table.
    struct Grid
    {
        int columns, rows, pixels;
    };
    for (const Grid &grid : {Grid{20, 15, 4}, Grid{100, 100, 2}}) {
        QVector<QVector3D> colors;
        deferred = std::make_unique<Deferred>();
        setModel(gridOfSquares(grid.columns, grid.rows, &colors).build());
        ASSERT_EQ(model->itemCount(), grid.columns * grid.rows);
        setViewport(QSize(grid.columns * grid.pixels, grid.rows * grid.pixels));
        setCamera(QMatrix4x4(), QMatrix4x4());
        const Image image = runAll();
        const double lambert = 1 / std::sqrt(3.0);
        double error = 0;
        for (int i = 0; i < colors.size(); ++i) {
            const QVector4D pixel = image.pixel(
                i % grid.columns * grid.pixels + grid.pixels / 2, i / grid.columns * grid.pixels + grid.pixels / 2);
            // One layer: its colour counts twice, at an opacity of a half.
            for (int k = 0; k < 3; ++k)
                error = std::max(error, std::abs(lambert * double(colors[i][k]) - double(pixel[k])));
            error = std::max(error, std::abs(0.5 - double(pixel.w())));
        }
        EXPECT_LE(error, colorTolerance);
    }
}

TEST_F(VisibilityDeferredRenderPassTest, filtersImagesAsRasterisedTrianglesDo)
{
    // A fine image on a ground that recedes from the camera: mip levels differ from pixel to pixel, and along the edge
    // that its two triangles share, neighbouring pixels lie on the other one. Forward shading filters by the
    // rasteriser's own derivatives.
    MaterialData material = glass({0.8f, 0.8f, 0.8f}, 1);
    material.mapKd = QImage(256, 256, QImage::Format_ARGB32);
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            const int level = (x / 8 + y / 8) % 2 ? 120 : 20;
            material.mapKd.setPixelColor(x, y, QColor(level, x / 4, y / 4));
        }
    }
    RayCastScene ground;
    QMatrix4x4 matrix;
    matrix.translate(0, -0.6f, -4);
    matrix.scale(3, 1, 4);
    MeshData mesh = groundMesh();
    for (QVector2D &texCoord : mesh.texCoords)
        texCoord *= 3;
    ground.add(mesh, material, matrix);
    const QSize viewport(160, 120);
    setScene(ground, viewport, QMatrix4x4());
    const Image lists = runAll();
    saveForViewing(lists, QStringLiteral("visibility-minified"));

    ForwardRenderPass forward;
    forward.setInput(ForwardRenderPass::Viewport, QRect(QPoint(), viewport));
    forward.setInput(ForwardRenderPass::ProjectionMatrix, projection);
    forward.setInput(ForwardRenderPass::CameraMatrix, camera);
    forward.setInput(ForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    forward.start(nullptr);
    const Image reference = readTexture(forward.output(ForwardRenderPass::Frame).value<Texture *>());

    double error = 0;
    double contrast = 0;
    int compared = 0;
    for (int y = 0; y < viewport.height(); ++y) {
        for (int x = 0; x < viewport.width(); ++x) {
            if (reference.pixel(x, y).w() == 0)
                continue;
            ++compared;
            for (int k = 0; k < 3; ++k) {
                // An opaque colour counts twice.
                const double once = double(lists.pixel(x, y)[k]) / 2;
                error = std::max(error, std::abs(once - double(reference.pixel(x, y)[k])));
            }
            contrast = std::max(contrast, double(reference.pixel(x, y).x()));
        }
    }
    EXPECT_GT(compared, 7000);
    EXPECT_GT(contrast, 0.2);
    // Rasterisers take derivatives for 2 by 2 pixels at once, so levels differ a little.
    EXPECT_LE(error, 8.0 / 255);
}

TEST_F(VisibilityDeferredRenderPassTest, keepsTheClearColourWhereNothingIs)
{
    RayCastScene half;
    QMatrix4x4 matrix;
    matrix.translate(-0.5f, 0);
    matrix.scale(0.5f, 1, 1);
    half.add(wallMesh(), glass({0.5f, 0.5f, 0.5f}, 0.25f), matrix);
    setModel(half.build());
    setViewport(QSize(8, 4));
    runBuffer();
    runSort();
    glClearColor(0.2f, 0.4f, 0.6f, 0.8f);
    runDeferred();
    const Image image = frame();
    EXPECT_LE((image.pixel(6, 2) - QVector4D(0.2f, 0.4f, 0.6f, 0.8f)).length(), 0.003f);
    // A layer reduces the transmitted light by its opacity.
    EXPECT_NEAR(double(image.pixel(2, 2).w()), 0.75, 0.5 / 255);
    EXPECT_NEAR(double(image.pixel(2, 2).x()), 2 * 0.25 * 0.5 / std::sqrt(3.0), colorTolerance);
}

TEST_F(VisibilityDeferredListsTest, endsAListAtAnOpaqueFragment)
{
    for (const float opacity : {1.0f, 0.99f}) {
        GPUModelBuilder builder;
        const int wall = builder.addMesh(wallMesh());
        QMatrix4x4 matrix;
        matrix.translate(0, 0, -0.2f);
        builder.addItem(wall, builder.addMaterial(glass({0.3f, 0.2f, 0.1f}, opacity)), matrix);
        builder.addItem(wall, builder.addMaterial(glass({0.0f, 0.0f, 0.8f}, 0.5f)));
        deferred = std::make_unique<Deferred>();
        setModel(builder.build());
        setViewport(QSize(4, 4));
        const QVector4D pixel = runAll().pixel(2, 2);
        const double lambert = 1 / std::sqrt(3.0);
        if (opacity == 1.0f) {
            EXPECT_NEAR(double(pixel.x()), 2 * 0.3 * lambert, colorTolerance);
            EXPECT_NEAR(double(pixel.z()), 2 * 0.1 * lambert, colorTolerance);
            EXPECT_EQ(pixel.w(), 0.0f);
        } else {
            EXPECT_GT(double(pixel.z()), 0.4) << "the fragment behind counts";
        }
    }
}

TEST_F(VisibilityDeferredListsTest, shadesAllOfALongList)
{
    // 60 layers at random depths: the first 50 of the list, which were drawn last, are sorted; the first ten that were
    // drawn follow in the order of their list.
    RayCastScene stack;
    std::mt19937 random(21);
    for (int i = 0; i < 60; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, float(random() % 10000) / 6000 - 0.8f);
        const auto channel = [&random] { return float(random() % 100) / 200; };
        stack.add(wallMesh(), glass({channel(), channel(), channel()}, 0.02f + channel() / 8), matrix);
    }
    scene = stack;
    setModel(scene.build());
    setViewport(QSize(8, 8));
    const auto latestFirst = [](QVector<RayHit> hits) {
        std::reverse(hits.begin(), hits.end());
        return byDepth(hits.mid(0, 50)) + hits.mid(50);
    };
    const Image image = runAll();
    compareWithRayCast(image, 0.7, 40, {0, 60}, latestFirst);

    // A list that is sorted as a whole, or that ends after 50, would give another picture.
    const RayCaster caster(scene.items(), projection, camera, size);
    const QVector<RayHit> hits = caster.castAll(3.3, 5.5);
    ASSERT_EQ(hits.size(), 60);
    const ListShading shading(scene, camera);
    const Vector4d right = shading.shade(latestFirst(hits));
    double fromSorted = 0;
    double fromFifty = 0;
    for (size_t i = 0; i < 3; ++i) {
        fromSorted = std::max(fromSorted, std::abs(right[i] - shading.shade(byDepth(hits))[i]));
        fromFifty = std::max(fromFifty, std::abs(right[i] - shading.shade(latestFirst(hits).mid(0, 50))[i]));
    }
    EXPECT_GT(fromSorted, 2 * colorTolerance);
    EXPECT_GT(fromFifty, 2 * colorTolerance);
}

TEST_F(VisibilityDeferredListsTest, outlivesMoreFragmentsThanThereAreNodes)
{
    // 17 layers of 1024 by 1024 pixels are 17,825,792 fragments for 16,777,216 nodes.
    RayCastScene stack;
    for (int i = 0; i < 17; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, 0.8f - 0.1f * float(i));
        stack.add(wallMesh(), glass({0.2f, 0.3f, 0.4f}, 0.1f), matrix);
    }
    setModel(stack.build());
    setViewport(QSize(1024, 1024));
    runBuffer();
    runSort();
    glClearColor(0, 0, 0, 1);
    runDeferred();
    const Image image = frame();
    // Each pixel needs 17 nodes. Where its last fragment found none, the head leads nowhere and all light passes; where
    // another one found none, the list ends early.
    const auto through = [](int layers) {
        double alpha = 1;
        for (int i = 0; i < layers; ++i)
            alpha = 0.9 * (0.1 + 0.9 * alpha);
        return alpha;
    };
    std::array<int, 18> pixelsOf = {};
    int strange = 0;
    int whole = 0;
    int lost = 0;
    for (int y = 0; y < 1024; ++y) {
        for (int x = 0; x < 1024; ++x) {
            const double alpha = double(image.at(x, y)[3]);
            // The largest number of layers that fits: transmittances of long lists lie close together.
            int layers = 17;
            while (layers >= 0 && std::abs(alpha - through(layers)) > colorTolerance)
                --layers;
            if (layers < 0)
                ++strange;
            else
                ++pixelsOf[size_t(layers)];
            whole += layers == 17;
            lost += alpha == 1.0;
        }
    }
    EXPECT_EQ(strange, 0) << "pixels that no number of layers explains";
    // A node is in one list at most, so all lists together have no more layers than there are nodes, and at least the
    // other 1,048,576 fragments are missing. A pixel can miss up to 17, so at least a 17th as many pixels miss some.
    constexpr int tooMany = 17 * 1024 * 1024 - 4096 * 4096;
    int lostNodes = 0;
    int losers = 0;
    for (int layers = 0; layers < 17; ++layers) {
        lostNodes += (17 - layers) * pixelsOf[size_t(layers)];
        losers += pixelsOf[size_t(layers)];
    }
    EXPECT_GE(lostNodes, tooMany);
    EXPECT_GE(losers, (tooMany + 16) / 17);
    std::printf("[  LOST    ] %d nodes of %d pixels; %d pixels whole, %d empty\n", lostNodes, losers, whole, lost);
    // Which fragments come last depends on the driver. This one runs the fragments of a pixel in draw order, so once
    // one finds no node the later ones find none either: a pixel has all its layers or none.
    EXPECT_EQ(whole + lost, 1024 * 1024);

    // The next frame starts afresh.
    setViewport(QSize(64, 64));
    EXPECT_NEAR(double(runAll().at(5, 5)[3]), through(17), colorTolerance);
}

TEST_F(VisibilityDeferredRenderPassTest, readsVerticesOfItsFirstModelForGood)
{
    GLCallRecorder<&epoxy_glTexBuffer> buffers;
    const auto formats = [&] {
        QVector<GLenum> list;
        for (const auto &call : buffers.calls) {
            if (std::get<1>(call) != GL_RGBA32F && std::get<1>(call) != GL_R32UI) // The others are rows and commands.
                list.append(std::get<1>(call));
        }
        return list;
    };
    const auto shade = [this](const MeshData &mesh, const QVector3D &kd, const QMatrix4x4 &matrix = QMatrix4x4()) {
        RayCastScene one;
        one.add(mesh, glass(kd, 0.5f), matrix);
        setModel(one.build());
        setViewport(QSize(4, 4));
        return runAll().pixel(2, 1);
    };
    const QVector4D indexed = shade(wallMesh(), {0.5f, 0.2f, 0.1f});
    EXPECT_EQ(formats(), (QVector<GLenum>{GL_RGB32F, GL_RG32F, GL_RGB32F, GL_R32I}));
    EXPECT_NEAR(double(indexed.x()), 0.5 / std::sqrt(3.0), colorTolerance);

    // Another wall, whose normals face away from the light: its materials and matrices are used, its vertices are not.
    MeshData away = wallMesh();
    for (QVector3D &normal : away.normals)
        normal = -normal;
    const QSharedPointer<GPUModel> first = model;
    buffers.calls.clear();
    QMatrix4x4 turned;
    turned.rotate(30, 0, 1, 0);
    const QVector4D swapped = shade(away, {0.1f, 0.2f, 0.5f}, turned);
    EXPECT_TRUE(formats().isEmpty());
    // Turned towards the light, which the first model's matrix would not do.
    const double lambert = (std::sin(M_PI / 6) + std::cos(M_PI / 6)) / std::sqrt(3.0);
    ASSERT_GT(0.5 * lambert, 0.5 / std::sqrt(3.0) + 10 * colorTolerance);
    EXPECT_NEAR(double(swapped.x()), 0.1 * lambert, colorTolerance);
    EXPECT_NEAR(double(swapped.z()), 0.5 * lambert, colorTolerance);

    // A new pass reads the new vertices; without indices there is no fourth buffer.
    deferred = std::make_unique<Deferred>();
    buffers.calls.clear();
    EXPECT_EQ(shade(withoutIndices(away), {0.1f, 0.2f, 0.5f}).z(), 0.0f);
    EXPECT_EQ(formats(), (QVector<GLenum>{GL_RGB32F, GL_RG32F, GL_RGB32F}));
}

TEST_F(VisibilityDeferredRenderPassTest, goesByThePresentModelsIndicesInTheFirstModelsBuffers)
{
    setViewport(QSize(4, 4));
    for (const bool isFirstIndexed : {false, true}) {
        SCOPED_TRACE(isFirstIndexed);
        deferred = std::make_unique<Deferred>();
        setViewport(size);
        QVector<QSharedPointer<GPUModel>> models; // Kept: the buffers of the first one are read for good.
        for (const bool isIndexed : {isFirstIndexed, !isFirstIndexed, isFirstIndexed}) {
            SCOPED_TRACE(isIndexed);
            RayCastScene one;
            one.add(isIndexed ? wallMesh() : withoutIndices(wallMesh()), glass({0.5f, 0.2f, 0.1f}, 0.25f));
            models.append(one.build());
            setModel(models.last());
            runBuffer();
            runSort();
            glClearColor(0, 0, 0, 1);
            int draws = 0;
            const auto check = [&] {
                ++draws;
                const auto program = GLuint(glInteger(GL_CURRENT_PROGRAM));
                const auto uniform = [program](const char *name) {
                    GLint value = -1;
                    glGetUniformiv(program, glGetUniformLocation(program, name), &value);
                    return value;
                };
                EXPECT_EQ(uniform("u_indexedDraw"), int(isIndexed));
                if (!isFirstIndexed) {
                    EXPECT_EQ(uniform("u_IndexBuffer"), 0) << "there is no such buffer";
                }
            };
            GLCallRecorder<&epoxy_glDrawArrays> arrays;
            arrays.onCall = [&](GLenum, GLint, GLsizei) { check(); };
            GLCallRecorder<&epoxy_glDrawElements> elements;
            elements.onCall = [&](GLenum, GLsizei, GLenum, const void *) { check(); };
            runDeferred();
            EXPECT_EQ(draws, 1);
            // Transmittance does not depend on vertices; the colour is right only if the first model is of the same
            // kind.
            const QVector4D pixel = frame().pixel(1, 2);
            EXPECT_NEAR(double(pixel.w()), 0.75, colorTolerance);
            if (isIndexed == isFirstIndexed) {
                EXPECT_NEAR(double(pixel.x()), 2 * 0.25 * 0.5 / std::sqrt(3.0), colorTolerance);
            }
        }
    }
}

TEST_F(VisibilityDeferredRenderPassTest, publishesAClearedFrameWithoutAModel)
{
    setViewport(QSize(5, 4));
    // The clear colour changes each time: a frame left untouched would show the last one.
    glClearColor(0, 0, 1, 1);
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<GPUModel *>(nullptr)}) {
        deferred->setInput(Deferred::Geometry, nothing);
        deferred->start(nullptr);
        const bool isFirst = !nothing.isValid();
        EXPECT_EQ(frame().pixel(2, 2), isFirst ? QVector4D(0, 0, 1, 1) : QVector4D(0, 1, 0, 0));
        glClearColor(isFirst ? 0 : 1, 1, 0, 0);
    }
    // A model without geometry counts as none.
    GPUModelBuilder empty;
    setModel(empty.build());
    deferred->start(nullptr);
    EXPECT_EQ(frame().pixel(2, 2), QVector4D(1, 1, 0, 0));
}

TEST_F(VisibilityDeferredRenderPassTest, doesNotCrashWithoutLists)
{
    RayCastScene wall;
    wall.add(wallMesh(), glass({0.5f, 0.5f, 0.5f}, 0.5f));
    setModel(wall.build());
    setViewport(QSize(4, 4));
    glClearColor(0, 1, 0, 1);
    deferred->start(nullptr);
    EXPECT_EQ(frame().pixel(2, 2), QVector4D(0, 1, 0, 1));
    takeGLErrors(); // Some drivers refuse to draw without the textures.
    // With lists, but a node width of 0.
    runBuffer();
    deferred->setInput(Deferred::HeadPointers, buffer->output(Buffer::HeadPointers));
    deferred->setInput(Deferred::NodeBuffer, buffer->output(Buffer::NodeBuffer));
    glClearColor(0, 1, 0, 1);
    deferred->start(nullptr);
    EXPECT_EQ(frame().pixel(2, 2), QVector4D(0, 1, 0, 1));
}

TEST_F(VisibilityDeferredRenderPassTest, recreatesItsFrameWhenTheSizeChanges)
{
    setViewport(QSize(7, 5));
    deferred->start(nullptr);
    auto *const first = deferred->output(Deferred::Frame).value<Texture *>();
    EXPECT_EQ(first->internalFormat(0), GL_RGBA);
    EXPECT_EQ(QSize(first->width(0), first->height(0)), QSize(7, 5));
    first->bind();
    for (const GLenum parameter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
        GLint filter = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, parameter, &filter);
        EXPECT_EQ(filter, GL_NEAREST);
    }
    first->unbind();
    deferred->start(nullptr);
    EXPECT_EQ(deferred->output(Deferred::Frame).value<Texture *>(), first);
    const GLObjectCounts before = glObjectCounts();
    // The height changes alone, then the width.
    for (const QSize &other : {QSize(7, 6), QSize(8, 6)}) {
        setViewport(other);
        deferred->start(nullptr);
        auto *const resized = deferred->output(Deferred::Frame).value<Texture *>();
        EXPECT_EQ(QSize(resized->width(0), resized->height(0)), other);
        EXPECT_TRUE(glObjectCounts() == before);
    }
}

TEST_F(VisibilityDeferredRenderPassTest, publishesNullWithoutAViewport)
{
    deferred->start(nullptr);
    EXPECT_EQ(deferred->output(Deferred::Frame).userType(), qMetaTypeId<Texture *>());
    EXPECT_EQ(deferred->output(Deferred::Frame).value<Texture *>(), nullptr);
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION}); // It has no texels.
}

TEST_F(VisibilityDeferredRenderPassTest, leavesItsState)
{
    RayCastScene wall;
    wall.add(wallMesh(), glass({0.5f, 0.5f, 0.5f}, 0.5f));
    setModel(wall.build());
    setViewport(QSize(4, 4));
    runBuffer();
    runSort();
    glClearColor(0, 0, 0, 1);
    {
        // The first frame creates what the pass keeps.
        GLCallRecorder<&epoxy_glViewport> viewports;
        GLCallRecorder<&epoxy_glClearColor> clearColors;
        runDeferred();
        EXPECT_TRUE(viewports.calls.empty());
        EXPECT_TRUE(clearColors.calls.empty());
    }
    for (const bool isTested : {true, false}) {
        (isTested ? glEnable : glDisable)(GL_DEPTH_TEST);
        glDepthFunc(GL_NEVER); // A depth test would reject everything.
        GLCallRecorder<&epoxy_glViewport> viewports;
        GLCallRecorder<&epoxy_glClearColor> clearColors;
        runDeferred();
        EXPECT_TRUE(viewports.calls.empty());
        EXPECT_TRUE(clearColors.calls.empty());
        EXPECT_EQ(glFlag(GL_DEPTH_TEST), isTested);
        EXPECT_NEAR(double(frame().pixel(2, 2).w()), 0.5, 0.501 / 255); // 127.5 of 255 may be rounded either way.
    }
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
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    for (const LogCapture::Message &message : log.messages())
        EXPECT_FALSE(message.text.contains(QStringLiteral("VisibilityDeferred"))) << qPrintable(message.text);
}

TEST_F(VisibilityDeferredRenderPassTest, takesItsObjectsAlongAndSkipClearsTheOutput)
{
    RayCastScene wall;
    wall.add(wallMesh(), glass({0.5f, 0.5f, 0.5f}, 0.5f));
    setModel(wall.build());
    setViewport(QSize(4, 4));
    deferred->setNumOutputUsers(Deferred::Frame, 2);
    runAll();
    const GLObjectCounts before = glObjectCounts();
    {
        Deferred other;
        other.setInput(Deferred::Viewport, QRect(0, 0, 4, 4));
        for (int i = 0; i < 3; ++i)
            other.setInput(Deferred::HeadPointers + i, sort->output(i));
        other.setInput(Deferred::Geometry, QVariant::fromValue(model.data()));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().textures, before.textures + 5);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
    auto *const texture = deferred->output(Deferred::Frame).value<Texture *>();
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(texture), -1);
    deferred->skip(nullptr);
    EXPECT_FALSE(deferred->output(Deferred::Frame).isValid());
}

} // namespace Velmora::Kvz
