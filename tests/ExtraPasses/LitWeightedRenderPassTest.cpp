// SPDX-License-Identifier: MIT
#include "LayerScene.h"
#include "LitFixture.h"

#include "support/Cameras.h"
#include "support/DriverClaims.h"
#include "support/ItemDrawRecorder.h"
#include "support/Meshes.h"
#include "support/MultisampleTextures.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/LitForwardRenderPass.h>
#include <ExtraPasses/LitWeightedRenderPass.h>
#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Velmora::Kvz {

namespace {

/// Half floats up to 1, image filters with weights of 8 bits, and vertices that the rasteriser moves by 1/512 pixel.
constexpr double tolerance = 0.006;
/// The error of sums and products of half floats in a single layer.
constexpr double halfTolerance = 1.5e-3;

class LitWeightedRenderPassTest : public PassTest<LitWeightedRenderPass>
{
protected:
    /// Draws a frame and returns its image, which goes back to the pool.
    Image draw(const QSharedPointer<GPUModel> &model, const QSize &size = QSize(4, 4),
        const QMatrix4x4 &camera = QMatrix4x4(), const QMatrix4x4 &projection = orthographic())
    {
        setViewport(size);
        setModel(model);
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        const Image result = image(Port::Frame);
        giveFrameBack();
        return result;
    }
    void giveFrameBack() { TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1); }

    /// View depths from -1 to 1: a wall at z has a depth of -z.
    static QMatrix4x4 orthographic()
    {
        QMatrix4x4 projection;
        projection.ortho(-1, 1, -1, 1, -1, 1);
        return projection;
    }
    using Walls = QVector<QPair<float, MaterialData>>;
    static QSharedPointer<GPUModel> wallModel(const Walls &walls)
    {
        LitScene scene;
        for (const auto &wall : walls) {
            QMatrix4x4 matrix;
            matrix.translate(0, 0, wall.first);
            scene.add(wallMesh(), wall.second, matrix, GPUModel::Transparent);
        }
        return scene.build();
    }
    /// A pixel of walls that face the viewer, without perspective.
    QVector4D drawWalls(const Walls &walls) { return draw(wallModel(walls)).pixel(1, 2); }

    PooledTextures textures;
};

/// The weighted mean by the formulas, over the view depths that the items' bounds span.
struct Weights
{
    Weights(const GPUModel &model, const QMatrix4x4 &camera)
    {
        QVector3D low(1e30f, 1e30f, 1e30f);
        QVector3D high = -low;
        for (int item = 0; item < model.itemCount(); ++item) {
            if (model.itemFeatureFlags(item) & GPUModel::Transparent) {
                for (int axis = 0; axis < 3; ++axis) {
                    low[axis] = std::min(low[axis], model.itemBounds(item).first[axis]);
                    high[axis] = std::max(high[axis], model.itemBounds(item).second[axis]);
                }
            }
        }
        for (int corner = 0; corner < 8; ++corner) {
            const QVector3D point(
                corner & 1 ? high.x() : low.x(), corner & 2 ? high.y() : low.y(), corner & 4 ? high.z() : low.z());
            const auto depth = -double((camera * point).z());
            first = std::min(first, depth);
            last = std::max(last, depth);
        }
        first = std::max(0.0, first);
    }

    Vector4d mean(const QVector<Layer> &layers) const
    {
        Vector4d result = {0, 0, 0, 1};
        double weights = 0;
        for (const Layer &layer : layers) {
            const double place = (layer.viewDepth - first) / (last - first);
            const double weight = std::exp2(2 - 2 * place);
            for (size_t i = 0; i < 3; ++i)
                result[i] += weight * layer.colour[i];
            weights += weight * layer.colour[3];
            result[3] *= 1 - layer.colour[3];
        }
        for (size_t i = 0; i < 3 && weights > 0; ++i)
            result[i] *= (1 - result[3]) / weights;
        return result;
    }

    double first = 1e30;
    double last = -1e30;
};

} // namespace

TEST_F(LitWeightedRenderPassTest, matchesTheFormulasAlongRays)
{
    const LitScene scene = layerScene();
    const QSharedPointer<GPUModel> model = scene.build();
    LitForwardRenderPass opaque;
    opaque.setOpaqueOnly(true);
    opaque.setInput(LitForwardRenderPass::Viewport, QRect(QPoint(), layerSceneSize));
    opaque.setInput(LitForwardRenderPass::ProjectionMatrix, layerSceneProjection);
    opaque.setInput(LitForwardRenderPass::CameraMatrix, layerSceneCamera);
    opaque.setInput(LitForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    opaque.start(nullptr);
    pass->setInput(Port::Depth, opaque.output(LitForwardRenderPass::Depth));
    const Image frame = draw(model, layerSceneSize, layerSceneCamera, layerSceneProjection);
    saveForViewing(frame, QStringLiteral("lit-weighted-scene"));
    saveForViewing(
        readTexture(opaque.output(LitForwardRenderPass::Frame).value<Texture *>()), QStringLiteral("lit-opaque-scene"));

    const LitReference reference(scene, layerSceneProjection, layerSceneCamera, layerSceneSize);
    const Weights weights(*model, layerSceneCamera);
    double sum = 0;
    double fromExact = 0;
    int beyond = 0;
    int compared = 0;
    QVector<int> byLayers(40, 0);
    reference.rays().compareClearLists(0.6, 4000, [&](int x, int y, const QVector<RayHit> &hits) {
        bool isCertain = true;
        const QVector<Layer> layers = layersAt(scene, reference, layerSceneCamera, x, y, hits, &isCertain);
        if (!isCertain)
            return;
        ++compared;
        ++byLayers[layers.size()];
        const Vector4d expected = weights.mean(layers);
        const Vector4d exact = composited(layers);
        double largest = 0;
        for (size_t i = 0; i < 4; ++i) {
            const double error = std::abs(double(frame.at(x, y)[i]) - expected[i]);
            largest = std::max(largest, error);
            sum += error / 4;
            fromExact += std::abs(exact[i] - expected[i]) / 4;
        }
        beyond += largest > tolerance;
        if (layers.isEmpty()) {
            EXPECT_EQ(frame.pixel(x, y), QVector4D(0, 0, 0, 1)) << x << ' ' << y;
        }
    });
    std::printf(
        "[ COMPARED ] mean error %.6f, %d of %d pixels beyond; compositing in order is %.4f away; %d, %d, %d and %d "
        "pixels of 0, 1, 2 and more than 9 layers\n",
        sum / compared, beyond, compared, fromExact / compared, byLayers[0], byLayers[1], byLayers[2],
        std::accumulate(byLayers.begin() + 10, byLayers.end(), 0));
    // At the edges of holes that a mask cuts, the last bit decides.
    EXPECT_LE(beyond, 12);
    EXPECT_LE(sum / compared, 1e-3);
    for (const int layers : {0, 1, 2, 3, 16})
        EXPECT_GT(byLayers[layers], 50) << layers << " layers";
}

TEST_F(LitWeightedRenderPassTest, aLayerAloneIsItsLightTimesItsOpacity)
{
    for (const float opacity : {0.004f, 0.1f, 0.5f, 0.9f, 1.0f}) {
        MaterialData glass;
        glass.kd = QVector3D(0.8f, 0.4f, 0.1f);
        glass.ks = QVector3D(0.1f, 0.1f, 0.1f);
        glass.d = opacity;
        glass.emission = QVector3D(0, 0.05f, 0);
        const QVector4D pixel = drawWalls({{0.3f, glass}});
        // Lit by the headlight, which it faces, and by the ambient light.
        const QVector3D lit = glass.kd + 0.85f * glass.ks + glass.emission;
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(double(pixel[i]), double(lit[i] * opacity), halfTolerance) << opacity;
        EXPECT_NEAR(double(pixel.w()), 1 - double(opacity), halfTolerance) << opacity;
    }
}

TEST_F(LitWeightedRenderPassTest, takesItsLightsFromItsInputs)
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

TEST_F(LitWeightedRenderPassTest, drawsLayersInAnyOrderAlike)
{
    Walls walls;
    for (int i = 0; i < 12; ++i) {
        walls.append({0.8f - 0.1f * float(i),
            flatGlass({0.1f * float(i % 4), 0.3f, 0.05f * float(i)}, 0.1f + 0.05f * float(i % 5))});
    }
    const QVector4D forwards = drawWalls(walls);
    std::reverse(walls.begin(), walls.end());
    const QVector4D backwards = drawWalls(walls);
    std::rotate(walls.begin(), walls.begin() + 5, walls.end());
    const QVector4D rotated = drawWalls(walls);
    // Each of the twelve sums is rounded to 11 bits.
    EXPECT_LE((forwards - backwards).length(), 4e-3f);
    EXPECT_LE((forwards - rotated).length(), 4e-3f);
    for (int i = 0; i < 6; ++i)
        std::swap(walls[i].first, walls[11 - i].first);
    EXPECT_GT((drawWalls(walls) - forwards).length(), 0.02f) << "nearer layers count more";
}

TEST_F(LitWeightedRenderPassTest, weighsByTheDepthWithinTheTransparentItems)
{
    // Across the whole range, the nearer of two equal opacities counts 2^2 times as much, however short the range is.
    const MaterialData red = flatGlass({1, 0, 0}, 0.5f);
    const MaterialData blue = flatGlass({0, 0, 1}, 0.5f);
    for (const float half : {0.9f, 1e-3f}) {
        const QVector4D pixel = drawWalls({{half, red}, {-half, blue}});
        EXPECT_NEAR(double(pixel.x()), 0.75 * 4 / 5, halfTolerance) << half;
        EXPECT_NEAR(double(pixel.z()), 0.75 / 5, halfTolerance) << half;
    }
    // Halfway it counts twice as much.
    EXPECT_NEAR(double(drawWalls({{0.8f, red}, {0, blue}, {-0.8f, flatGlass({0, 1, 0}, 0.001f)}}).z()), 0.75 / (1 + 2),
        2 * halfTolerance);
    // Opaque items, and what lies behind the camera, are not part of the range.
    LitScene scene;
    QMatrix4x4 matrix;
    matrix.translate(0, 0, -0.5f);
    scene.add(wallMesh(), flatGlass({0, 0, 1}, 0.5f), matrix, GPUModel::Transparent);
    matrix.translate(0, 0, -9);
    scene.add(wallMesh(), flatGlass({0, 1, 0}, 1), matrix);
    matrix.setToIdentity();
    matrix.translate(0, 0, -0.1f);
    scene.add(wallMesh(), flatGlass({1, 0, 0}, 0.5f), matrix, GPUModel::Transparent);
    matrix.translate(0, 0, 30);
    scene.add(wallMesh(), flatGlass({1, 1, 1}, 0.5f), matrix, GPUModel::Transparent);
    const QSize size(4, 4);
    const QVector4D pixel = draw(scene.build(), size, QMatrix4x4(), perspective(size, 0.05f, 20)).pixel(1, 2);
    // The range goes from the camera to 0.5 in front of it, so 0.1 is a fifth.
    EXPECT_NEAR(double(pixel.z()), 0.75 / (1 + std::exp2(2 * 0.8)), halfTolerance);
}

TEST_F(LitWeightedRenderPassTest, aSceneLooksAlikeAtAnyScale)
{
    const QSharedPointer<GPUModel> model = layerScene().build();
    const QSize size(48, 36);
    const auto at = [&](float scale) {
        QMatrix4x4 smaller;
        smaller.scale(scale);
        const QVector3D eye(1.2f, 1.6f, 6);
        for (int item = 0; item < model->itemCount(); ++item)
            model->setModelMatrix(item, smaller * model->modelMatrix(item));
        const Image result = draw(model, size, lookAt(eye * scale, QVector3D(0, 0.1f, 0) * scale),
            perspective(size, 0.5f * scale, 40 * scale));
        for (int item = 0; item < model->itemCount(); ++item)
            model->setModelMatrix(item, smaller.inverted() * model->modelMatrix(item));
        return result;
    };
    const Image usual = at(1);
    for (const float scale : {0.001f, 1000.0f})
        EXPECT_LE(pixelsBeyond(at(scale), usual, 2.0 / 255), 4) << scale;
    EXPECT_GT(maximumDifference(usual, filled(48, 36, QVector4D(0, 0, 0, 1))), 0.5);
}

TEST_F(LitWeightedRenderPassTest, hundredsOfLayersRightBeforeTheEyeStayFinite)
{
    for (const float opacity : {0.02f, 0.5f, 1.0f}) {
        for (const int layers : {100, 250, 600}) {
            Walls walls;
            for (int i = 0; i < layers; ++i)
                walls.append({1 - 1e-4f * float(i + 1), flatGlass({1, 1, 1}, opacity)});
            walls.append({-0.9f, flatGlass({0, 0, 0}, 0.5f)});
            const QVector4D pixel = drawWalls(walls);
            const double through = std::pow(1 - double(opacity), layers) * 0.5;
            const double white = 4 * double(opacity) * layers; // Beside the black one's weight of 0.5.
            const double expected = (1 - through) * white / (white + 0.5);
            EXPECT_NEAR(double(pixel.w()), through, 4e-3) << layers << " of " << opacity;
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(double(pixel[i]), expected, 0.01) << layers << " of " << opacity;
        }
    }
}

TEST_F(LitWeightedRenderPassTest, opaqueSurfacesHideWhatLiesBehindThem)
{
    // A window depth of 0.5 in the left half, and nothing in the right half.
    Image depths(4, 4, 1);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4; ++x)
            *depths.at(x, y) = x < 2 ? 0.5f : 1.0f;
    }
    const std::unique_ptr<Texture> depth = makeTexture(depths, GL_DEPTH_COMPONENT32F);
    const QSharedPointer<GPUModel> model = wallModel(
        {{0.5f, flatGlass({1, 0, 0}, 0.5f)}, {0, flatGlass({0, 1, 0}, 0.5f)}, {-0.5f, flatGlass({0, 0, 1}, 0.5f)}});
    setTexture(Port::Depth, depth.get());
    const Image image = draw(model);
    for (int y = 0; y < 4; ++y) {
        EXPECT_NEAR(image.pixel(0, y).x(), 0.5, halfTolerance);
        EXPECT_EQ(image.pixel(0, y).y(), 0) << "at the same depth";
        EXPECT_EQ(image.pixel(0, y).z(), 0);
        EXPECT_NEAR(image.pixel(0, y).w(), 0.5, halfTolerance);
        EXPECT_NEAR(image.pixel(3, y).w(), 0.125, halfTolerance);
        EXPECT_GT(image.pixel(3, y).z(), 0);
    }
    EXPECT_EQ(maximumDifference(readTexture(depth.get()), depths), 0.0) << "the depth image is not written";
    setTexture(Port::Depth, nullptr);
    EXPECT_NEAR(draw(model).pixel(0, 1).w(), 0.125, halfTolerance) << "nothing hides anything";
}

TEST_F(LitWeightedRenderPassTest, saysOnceWhyADepthImageDoesNotServe)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    const std::unique_ptr<Texture> small = makeTexture(Image(3, 4, 1), GL_DEPTH_COMPONENT32F);
    const std::unique_ptr<Texture> colour = makeTexture(Image(4, 4), GL_RGBA8);
    const std::unique_ptr<Texture> samples =
        makeMultisampleTexture(Image(4, 4, 1), Image(4, 4, 1), GL_DEPTH_COMPONENT32F, 2);
    const std::unique_ptr<Texture> good = makeTexture(Image(4, 4, 1), GL_DEPTH_COMPONENT32F);
    const QPair<Texture *, const char *> cases[] = {{small.get(), "has 3 by 4 texels"},
        {colour.get(), "is no depth image"}, {samples.get(), "has several samples or layers"}};
    for (const auto &[image, complaint] : cases) {
        setTexture(Port::Depth, image);
        for (int frame = 0; frame < 2; ++frame)
            EXPECT_NEAR(draw(model).pixel(1, 1).w(), 0.5, halfTolerance) << complaint;
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(
            lines[0].endsWith(QStringLiteral("Nothing hides the layers: the image on Kvz_KvzTexture*_Depth %1; feed a "
                                             "depth image of 4 by 4 texels with one sample each")
                                  .arg(QString::fromLatin1(complaint))))
            << qPrintable(lines[0]);
        setTexture(Port::Depth, good.get());
        EXPECT_EQ(draw(model).pixel(1, 1), QVector4D(0, 0, 0, 1)) << "hidden: the image is black, the nearest depth";
    }
}

TEST_F(LitWeightedRenderPassTest, withoutTransparentItemsThereIsNoImage)
{
    LitScene opaque;
    opaque.add(wallMesh(), flatGlass({1, 1, 1}, 0.5f)); // Without the flag the pass takes it as opaque.
    const QSharedPointer<GPUModel> without = opaque.build();
    const QSharedPointer<GPUModel> with = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    const int programs = glObjectCounts().programs;
    const QPair<GPUModel *, QSize> cases[] = {
        {nullptr, {4, 4}}, {without.data(), {4, 4}}, {with.data(), {0, 0}}, {with.data(), {4, 0}}};
    for (const auto &[model, size] : cases) {
        Texture *const depth = textures.take(TextureFormat::DepthStencil, 4, 4, 2);
        setTexture(Port::Depth, depth);
        setViewport(size);
        pass->setInput(Port::Geometry, QVariant::fromValue(model));
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        EXPECT_EQ(pass->output(Port::Frame).userType(), qMetaTypeId<Texture *>());
        EXPECT_EQ(texture(Port::Frame), nullptr);
        EXPECT_EQ(PooledTextures::references(depth), 1) << "its use was given back";
    }
    EXPECT_EQ(glObjectCounts().programs, programs) << "nothing was made for it";
}

TEST_F(LitWeightedRenderPassTest, takesAWholeDepthStencilImageToo)
{
    Texture *const depth = textures.take(TextureFormat::DepthStencil, 4, 4, 2);
    {
        FramebufferObject framebuffer;
        AutoBinder binder(&framebuffer);
        framebuffer.attach(depth, GL_DEPTH_STENCIL_ATTACHMENT, 0);
        framebuffer.setDrawBuffers();
        glReadBuffer(GL_NONE); // Otherwise it is incomplete before OpenGL 4.1.
        glClearDepth(0.25);
        glClear(GL_DEPTH_BUFFER_BIT);
        glClearDepth(1);
    }
    setTexture(Port::Depth, depth);
    const QVector4D pixel = drawWalls({{0.6f, flatGlass({1, 0, 0}, 0.5f)}, {0.4f, flatGlass({0, 1, 0}, 0.5f)}});
    EXPECT_EQ(pixel.y(), 0) << "at 0.3";
    EXPECT_NEAR(pixel.w(), 0.5, halfTolerance) << "at 0.2";
    EXPECT_EQ(PooledTextures::references(depth), 1);
}

TEST_F(LitWeightedRenderPassTest, runsOnADriverWith16TextureUnitsAStage)
{
    const QSize size(24, 18);
    MaterialData first = flatGlass({0.8f, 0.6f, 0.4f}, 0.5f);
    MaterialData second = first;
    fillAllImageArrays(&first, &second, [](int side) { return speckledImage(side, side, unsigned(side)); });
    const auto buildModel = [&] {
        LitScene scene = layerScene();
        scene.add(boxMesh(), first, QMatrix4x4(), GPUModel::Transparent);
        return scene.add(boxMesh(), second, placed({0.5f, 0, 0}), GPUModel::Transparent).build();
    };
    const Image expected = draw(buildModel(), size, layerSceneCamera, layerSceneProjection);
    pass.reset();
    {
        const DriverClaims claims({}, 0, {}, 16);
        QString error;
        const std::unique_ptr<HeadlessContext> modest = HeadlessContext::create(&error);
        ASSERT_TRUE(modest) << qPrintable(error);
        ASSERT_TRUE(modest->makeCurrent());
        pass = std::make_unique<LitWeightedRenderPass>();
        const QSharedPointer<GPUModel> model = buildModel();
        int samplers = 0;
        const ItemDrawRecorder draws(
            [&] { samplers = std::max(samplers, activeSamplers(GLuint(glInteger(GL_CURRENT_PROGRAM)))); });
        EXPECT_EQ(maximumDifference(draw(model, size, layerSceneCamera, layerSceneProjection), expected), 0);
        EXPECT_EQ(samplers, 6) << "the arrays of images; rows are uniforms";
        pass.reset();
    }
    context().makeCurrent();
}

TEST_F(LitWeightedRenderPassTest, handsOnReferencesAndLeavesItsState)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    draw(model); // Creates what the pass keeps.
    glDepthFunc(GL_NEVER);
    glEnable(GL_DEPTH_TEST);
    glViewport(0, 0, 1, 1);
    setModel(model);
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA16F);
    EXPECT_NEAR(image(Port::Frame).pixel(3, 3).w(), 0.5, halfTolerance);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glInteger(GL_DEPTH_WRITEMASK));
    EXPECT_EQ(glInteger(GL_DEPTH_FUNC), GL_LESS);
    EXPECT_FALSE(glFlag(GL_BLEND));
    EXPECT_EQ(glInteger(GL_BLEND_SRC_RGB), GL_ONE);
    EXPECT_EQ(glInteger(GL_BLEND_DST_RGB), GL_ONE);
    EXPECT_EQ(glInteger(GL_BLEND_SRC_ALPHA), GL_ZERO);
    EXPECT_EQ(glInteger(GL_BLEND_DST_ALPHA), GL_ONE_MINUS_SRC_ALPHA);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 4, 4));
    GLfloat colour[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, colour);
    EXPECT_EQ(std::vector<GLfloat>(colour, colour + 4), (std::vector<GLfloat>{0, 0, 0, 1}));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    EXPECT_EQ(log.takeWarnings(), QStringList());
}

TEST_F(LitWeightedRenderPassTest, followsTheViewportAndTakesItsObjectsAlong)
{
    const QSharedPointer<GPUModel> model = wallModel({{0, flatGlass({1, 1, 1}, 0.5f)}});
    draw(model);
    const GLObjectCounts before = glObjectCounts();
    for (const QSize &size : {QSize(4, 7), QSize(9, 7)}) {
        const Image image = draw(model, size);
        EXPECT_EQ(QSize(image.width, image.height), size);
        EXPECT_NEAR(image.pixel(size.width() - 1, size.height() - 1).w(), 0.5, halfTolerance);
        TextureManager::Instance()->deleteUnusedTempTextures();
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
        EXPECT_EQ(glObjectCounts().programs, before.programs);
    }
    Texture *const depth = textures.take(TextureFormat::DepthStencil, 9, 7, 2);
    setTexture(Port::Depth, depth);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(depth), 1);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs - 2);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers - 2);
}

} // namespace Velmora::Kvz
