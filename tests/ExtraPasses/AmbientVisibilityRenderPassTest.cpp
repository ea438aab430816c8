// SPDX-License-Identifier: MIT
#include "DepthScene.h"
#include "support/Cameras.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/AmbientVisibilityRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtGui/QVector2D>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(96, 72);
const double pi = std::acos(-1.0);

QMatrix4x4 parallel()
{
    QMatrix4x4 projection;
    projection.ortho(-4, 4, -3, 3, 0.5f, 40);
    return projection;
}

class AmbientVisibilityRenderPassTest : public PassTest<AmbientVisibilityRenderPass>
{
protected:
    void SetUp() override
    {
        PassTest::SetUp();
        setViewport(size);
        pass->setInput(Port::ProjectionMatrix, projection);
        setRadius(1);
    }
    /// In units of the scene.
    void setRadius(float radius)
    {
        pass->setInput(Port::SceneBoundsMin, QVector3D(-1, -1, -1));
        pass->setInput(Port::SceneBoundsMax, QVector3D(9, 1, 1));
        pass->setInput(Port::RelativeRadius, radius / 10);
    }
    void setProjection(const QMatrix4x4 &matrix)
    {
        projection = matrix;
        pass->setInput(Port::ProjectionMatrix, matrix);
    }
    Image measure(const DepthScene &scene, bool withNormals = true, int depthFormat = GL_DEPTH_COMPONENT32F)
    {
        depth = makeTexture(scene.depth(size, projection), depthFormat);
        normals = makeTexture(scene.normals(size, projection), GL_RGBA16F);
        setTexture(Port::Depth, depth.get());
        setTexture(Port::Normal, withNormals ? normals.get() : nullptr);
        return measure();
    }
    Image measure()
    {
        pass->setNumOutputUsers(Port::Visibility, 1);
        pass->start(nullptr);
        if (!texture(Port::Visibility)) {
            ADD_FAILURE() << "there is no image";
            return {};
        }
        const Image result = image(Port::Visibility);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Visibility), 1);
        return result;
    }
    /// Mean and largest error of the visibility against rays, over every third pixel each way.
    void expectLikeRays(const DepthScene &scene, const Image &measured, double radius, double mean, double most)
    {
        double sum = 0;
        double bias = 0;
        int count = 0;
        int bad = 0;
        double least = 1;
        for (int y = 1; y < size.height(); y += 3) {
            for (int x = 1; x < size.width(); x += 3) {
                const auto expected = scene.visibility(size, projection, x, y, radius, 16);
                if (!expected)
                    continue;
                const double error = std::abs(*expected - double(measured.at(x, y)[3]));
                sum += error;
                bias += double(measured.at(x, y)[3]) - *expected;
                bad += error > most;
                least = std::min(least, *expected);
                ++count;
            }
        }
        ASSERT_GT(count, 60);
        EXPECT_LT(least, 0.75) << "something hides something";
        SCOPED_TRACE(testing::Message() << "mean error " << sum / count << ", bias " << bias / count << ", " << bad
                                        << " of " << count << " beyond " << most);
        EXPECT_LT(sum / count, mean);
        EXPECT_LT(std::abs(bias / count), 0.8 * mean);
        EXPECT_LT(bad, 0.05 * count);
    }

    QMatrix4x4 projection = perspective(size, 0.5f, 40);
    std::unique_ptr<Texture> depth;
    std::unique_ptr<Texture> normals;
    PooledTextures textures;
};

/// A plane through a point before the camera, turned by this angle from facing it, about an axis at `heading`.
DepthScene plane(double angle, double heading)
{
    const QVector3D axis(float(std::cos(heading)), float(std::sin(heading)), 0);
    QMatrix4x4 turn;
    turn.rotate(float(angle * 180 / pi), axis);
    DepthScene scene;
    scene.addRectangle(QVector3D(0.1f, 0.05f, -4), turn.map(QVector3D(60, 0, 0)), turn.map(QVector3D(0, 60, 0)));
    return scene;
}

/// A floor and a wall behind it.
DepthScene corner()
{
    DepthScene scene;
    scene.addRectangle(QVector3D(0, -1.2f, -5), QVector3D(30, 0, 0), QVector3D(0, 0, 5));
    scene.addRectangle(QVector3D(0, 8.8f, -6), QVector3D(30, 0, 0), QVector3D(0, 10, 0));
    return scene;
}

DepthScene ballOnFloor()
{
    DepthScene scene;
    scene.addRectangle(QVector3D(0, -1.2f, -5), QVector3D(30, 0, 0), QVector3D(0, 0.8f, -20));
    scene.addBall(QVector3D(0.2f, -0.3f, -5.2f), 0.85f);
    return scene;
}

/// The same for views that would see a floor from its edge, and so could not tell what it hides.
DepthScene ballOnSlope()
{
    DepthScene scene;
    scene.addRectangle(QVector3D(0, -1.2f, -5), QVector3D(30, 0, 0), QVector3D(0, 9, -16));
    scene.addBall(QVector3D(0.2f, -1.2f, -5) + 0.85f * QVector3D(0, 16, 9).normalized(), 0.85f);
    return scene;
}

} // namespace

TEST_F(AmbientVisibilityRenderPassTest, anOpenPlaneIsNeverDarkened)
{
    for (const QMatrix4x4 &matrix :
        {projection, parallel(), movedByPixels(perspective(size, 0.5f, 40), size, 0.37, -0.21)}) {
        setProjection(matrix);
        for (const double angle : {0.0, 0.3, 0.8, 1.2, 1.45}) {
            for (const double heading : {0.0, 0.7, 1.57, 2.6}) {
                const DepthScene scene = plane(angle, heading);
                for (const bool withNormals : {true, false}) {
                    for (const int format : {GL_DEPTH_COMPONENT32F, GL_DEPTH24_STENCIL8}) {
                        const Image open = measure(scene, withNormals, format);
                        float least = 1;
                        for (const float value : open.data)
                            least = std::min(least, value);
                        EXPECT_GE(least, 254.0f / 255) << "at " << angle << " about " << heading << ", normals "
                                                       << withNormals << ", format " << format;
                    }
                }
            }
        }
    }
}

TEST_F(AmbientVisibilityRenderPassTest, comesNearToRaysInCornersAndUnderBalls)
{
    for (const QMatrix4x4 &matrix : {projection, parallel()}) {
        setProjection(matrix);
        const bool isParallel = matrix(3, 3) == 1;
        for (const float radius : {1.0f, 2.0f}) {
            SCOPED_TRACE(testing::Message() << "radius " << radius << (isParallel ? ", parallel" : ""));
            setRadius(radius);
            if (isParallel) {
                expectLikeRays(ballOnSlope(), measure(ballOnSlope()), double(radius), 0.03, 0.12);
                continue;
            }
            expectLikeRays(corner(), measure(corner()), double(radius), 0.03, 0.1);
            expectLikeRays(corner(), measure(corner(), false), double(radius), 0.03, 0.1);
            expectLikeRays(ballOnFloor(), measure(ballOnFloor()), double(radius), 0.03, 0.12);
        }
    }
    saveForViewing(measure(ballOnFloor()), QStringLiteral("visibility-ball"));
}

TEST_F(AmbientVisibilityRenderPassTest, theCornerOfTwoWallsIsHalf)
{
    setRadius(5);
    // Facing the fold of an open book of a right angle; both pages are seen alike.
    DepthScene book;
    book.addRectangle(QVector3D(-5, 0, -1), QVector3D(0, 30, 0), QVector3D(5, 0, -5));
    book.addRectangle(QVector3D(5, 0, -1), QVector3D(0, 30, 0), QVector3D(5, 0, 5));
    const Image open = measure(book);
    const Image depthImage = readTexture(depth.get());
    ASSERT_LT(*depthImage.at(48, 36), 1);
    EXPECT_NEAR(double(open.at(47, 36)[3]), 0.5, 0.06);
    EXPECT_NEAR(double(open.at(48, 30)[3]), 0.5, 0.06);
}

TEST_F(AmbientVisibilityRenderPassTest, whatIsFarBeforeASurfaceDoesNotDarkenIt)
{
    DepthScene scene = plane(0, 0);
    scene.addRectangle(QVector3D(0, 0, -1.5f), QVector3D(0.2f, 0, 0), QVector3D(0, 0.3f, 0));
    setRadius(1.5f);
    for (const bool withNormals : {true, false}) {
        const Image open = measure(scene, withNormals);
        EXPECT_LE(pixelsBeyond(open, filled(size.width(), size.height(), QVector4D(1, 1, 1, 1)), 1.01 / 255), 0);
    }
}

TEST_F(AmbientVisibilityRenderPassTest, keepsEachSurfacesOwnVisibility)
{
    // A plate that stands free before the corner: what is behind its rim must not bleed onto it.
    DepthScene scene = corner();
    scene.addRectangle(QVector3D(0, -0.5f, -2.5f), QVector3D(0.5f, 0, 0), QVector3D(0, 0.3f, 0));
    setRadius(1.2f);
    const Image open = measure(scene);
    const Image depthImage = readTexture(depth.get());
    int plate = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QVector3D device(0, 0, 2 * *depthImage.at(x, y) - 1);
            if (projection.inverted().map(device).z() < -2.6f)
                continue;
            ++plate;
            EXPECT_GE(open.at(x, y)[3], 254.0f / 255) << x << ", " << y;
        }
    }
    EXPECT_GT(plate, 100);
}

TEST_F(AmbientVisibilityRenderPassTest, surfacesPassLightOn)
{
    const auto fitted = [](double visibility, double albedo) {
        // Bounce after bounce: what is hidden sends what the surface itself sends.
        double lit = 0;
        for (int bounce = 0; bounce < 2000; ++bounce)
            lit = visibility + (1 - visibility) * albedo * lit;
        return lit;
    };
    for (const float albedo : {0.0f, 0.5f, 0.9f, 1.0f}) {
        pass->setInput(Port::Albedo, albedo);
        const Image grey = measure(corner());
        int dark = 0;
        for (int i = 0; i < grey.data.size(); i += 4) {
            const auto visibility = double(grey.data[i + 3]);
            dark += visibility < 0.75;
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(double(grey.data[i + k]), fitted(visibility, double(albedo)), 2.0 / 255);
        }
        EXPECT_GT(dark, 50);
    }
    const auto colours = makeTexture(filled(size.width(), size.height(), QVector4D(0.9f, 0.3f, 0, 1)), GL_RGBA8);
    setTexture(Port::Diffuse, colours.get());
    const Image coloured = measure(corner());
    for (int i = 0; i < coloured.data.size(); i += 4) {
        const auto visibility = double(coloured.data[i + 3]);
        EXPECT_NEAR(double(coloured.data[i]), fitted(visibility, 0.9), 2.0 / 255);
        EXPECT_NEAR(double(coloured.data[i + 1]), fitted(visibility, 0.3), 2.0 / 255);
        EXPECT_NEAR(double(coloured.data[i + 2]), fitted(visibility, 0), 2.0 / 255);
    }
    // The same colours, by what the surfaces send of light that is four times as bright from above as from below; turned with the camera.
    setTexture(Port::Diffuse, nullptr);
    QVariantList irradiance;
    for (int i = 0; i < 9; ++i)
        irradiance.append(QVector3D(1, 1, 1) * (i == 0 ? 2.5f / 0.282095f : i == 1 ? 1.5f / 0.488603f : 0));
    pass->setInput(Port::Irradiance, irradiance);
    QMatrix4x4 camera;
    camera.rotate(40, 1, 0, 0);
    pass->setInput(Port::CameraMatrix, camera);
    const auto sentAt = [&](const QVector3D &normal) { return 2.5f + 1.5f * camera.inverted().mapVector(normal).y(); };
    const Image facing = corner().normals(size, projection);
    Image sent(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            sent.setPixel(
                x, y, QVector4D(0.9f, 0.3f, 0, 0) * sentAt(facing.pixel(x, y).toVector3D()) + QVector4D(0, 0, 0, 1));
    }
    const auto light = makeTexture(sent, GL_RGBA32F);
    setTexture(Port::Indirect, light.get());
    EXPECT_LT(maximumDifference(measure(corner()), coloured), 2.1 / 255);
    pass->setInput(Port::Irradiance, QVariant());
    pass->setInput(Port::Albedo, 0.5f);
    const Image grey = measure(corner());
    EXPECT_GT(maximumDifference(grey, coloured), 0.1) << "the light alone says nothing about colours";
}

TEST_F(AmbientVisibilityRenderPassTest, theRadiusFollowsTheScene)
{
    const auto differs = [](const Image &a, const Image &b) { return pixelsBeyond(a, b, 0.02); };
    setRadius(1.5f);
    const Image byPorts = measure(corner());
    // A model of 10 units gives the same; without both, the number is a length.
    GPUModelBuilder builder;
    QMatrix4x4 matrix;
    matrix.scale(5, 1, 0.5f);
    builder.addItem(builder.addMesh(boxMesh(1)), builder.addMaterial({}), matrix);
    const QSharedPointer<GPUModel> model = builder.build();
    const auto bounds = model->sceneBounds();
    const float longest = bounds.second.x() - bounds.first.x();
    ASSERT_GT(longest, 1);
    pass->setInput(Port::SceneBoundsMin, QVariant());
    pass->setInput(Port::SceneBoundsMax, QVariant());
    setModel(model);
    pass->setInput(Port::RelativeRadius, 1.5f / longest);
    EXPECT_EQ(differs(measure(corner()), byPorts), 0);
    pass->setInput(Port::Geometry, QVariant());
    pass->setInput(Port::RelativeRadius, 1.5f);
    EXPECT_EQ(differs(measure(corner()), byPorts), 0);
    pass->setInput(Port::RelativeRadius, 0.3f);
    EXPECT_GT(differs(measure(corner()), byPorts), 100);
    for (const QVariant &none : {QVariant(), QVariant(0.0f), QVariant(-1.0f)}) {
        pass->setInput(Port::RelativeRadius, none);
        EXPECT_EQ(differs(measure(corner()), filled(size.width(), size.height(), QVector4D(1, 1, 1, 1))), 0);
    }
}

TEST_F(AmbientVisibilityRenderPassTest, thePatternFollowsTheWholePictureAndTurnsFromFrameToFrame)
{
    const Image first = measure(ballOnFloor());
    EXPECT_EQ(maximumDifference(measure(), first), 0) << "equal input, equal bytes";
    // Of the same size, so that only the pattern moves.
    pass->setInput(Port::PatternOrigin, QVector2D(8, 16));
    EXPECT_EQ(maximumDifference(measure(), first), 0) << "a period of 8 pixels";
    pass->setInput(Port::PatternOrigin, QVector2D(2, 0));
    EXPECT_GT(pixelsBeyond(measure(), first, 1.5 / 255), 20);
    pass->setInput(Port::PatternOrigin, QVariant());
    Image mean(size.width(), size.height());
    constexpr int frames = 16;
    for (int i = 0; i < frames; ++i) {
        pass->setInput(Port::JitterIndex, i);
        const Image turned = measure();
        for (int k = 0; k < mean.data.size(); ++k)
            mean.data[k] += turned.data[k] / frames;
    }
    EXPECT_GT(pixelsBeyond(mean, first, 1.5 / 255), 20);
    expectLikeRays(ballOnFloor(), mean, 1, 0.025, 0.1);
}

TEST_F(AmbientVisibilityRenderPassTest, oddAndTinyFramesAreCovered)
{
    const DepthScene scene = plane(0.5, 1);
    for (const QSize &odd : {QSize(1, 1), QSize(3, 5), QSize(17, 2)}) {
        setViewport(odd);
        const auto small = makeTexture(scene.depth(odd, projection), GL_DEPTH_COMPONENT32F);
        setTexture(Port::Depth, small.get());
        const Image open = measure();
        EXPECT_LE(maximumDifference(open, filled(odd.width(), odd.height(), QVector4D(1, 1, 1, 1))), 1.01 / 255);
    }
}

TEST_F(AmbientVisibilityRenderPassTest, countsReferencesAndLeavesItsState)
{
    QVector<Texture *> taken = {textures.take(TextureFormat::DepthStencil, size.width(), size.height(), 3),
        textures.take(TextureFormat::HighDynamicRange, Image(size.width(), size.height()), 3),
        textures.take(TextureFormat::HighDynamicRange, Image(size.width(), size.height()), 3)};
    setTexture(Port::Depth, taken[0]);
    setTexture(Port::Normal, taken[1]);
    setTexture(Port::Diffuse, taken[2]);
    const int others = PooledTextures::allReferences();
    pass->setNumOutputUsers(Port::Visibility, 2);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ZERO);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass->start(nullptr);
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 2);
    ASSERT_TRUE(texture(Port::Visibility));
    EXPECT_EQ(texture(Port::Visibility)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(PooledTextures::references(texture(Port::Visibility)), 2);
    EXPECT_EQ(PooledTextures::allReferences(), others - 3 + 2);
    for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Visibility), 2);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Visibility).isValid());
    for (Texture *texture : qAsConst(taken)) {
        EXPECT_EQ(PooledTextures::references(texture), 1);
        TextureManager::Instance()->addTempTextureRef(texture, 1);
    }
    setTexture(Port::Depth, nullptr);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Visibility).isValid());
    EXPECT_EQ(PooledTextures::references(taken[1]), 1);
}

TEST_F(AmbientVisibilityRenderPassTest, takesItsObjectsAlong)
{
    measure(corner());
    pass->teardownContextData(nullptr);
    const GLObjectCounts before = glObjectCounts();
    measure();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 3);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
