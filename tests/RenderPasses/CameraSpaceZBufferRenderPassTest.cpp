// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/MultisampleTextures.h"
#include "support/PooledTextures.h"
#include "support/RayCastScene.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/CameraSpaceZBufferRenderPass.h>
#include <RenderPasses/ModelRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

class CameraSpaceZBufferRenderPassTest : public GLTest
{
protected:
    using Port = CameraSpaceZBufferRenderPass;

    std::unique_ptr<CameraSpaceZBufferRenderPass> pass = std::make_unique<CameraSpaceZBufferRenderPass>();
    PooledTextures textures;

    void feed(Texture *depth, const QRect &viewport, const QMatrix4x4 &projection, const QVariant &samples = {})
    {
        pass->setInput(Port::Viewport, viewport);
        pass->setInput(Port::Depth, QVariant::fromValue(depth));
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::NumberMultisamples, samples);
        pass->setNumOutputUsers(Port::Frame, 1);
    }
    Texture *frame() const { return pass->output(Port::Frame).value<Texture *>(); }
    /// Runs the pass and reads its output, which goes back to the pool.
    Image run()
    {
        pass->start(nullptr);
        const Image image = readTexture(frame());
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
        return image;
    }
};

QMatrix4x4 orthographic(float nearPlane, float farPlane)
{
    QMatrix4x4 projection;
    projection.ortho(-3, 4, -2.5f, 2, nearPlane, farPlane);
    return projection;
}

QMatrix4x4 offAxis()
{
    QMatrix4x4 projection;
    projection.frustum(-0.2f, 0.5f, -0.1f, 0.4f, 0.5f, 20);
    return projection;
}

/// Random depths, some of them exactly 0 or 1.
Image randomDepth(int width, int height, unsigned int seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> any(-0.1f, 1.1f);
    Image depth(width, height, 1);
    for (float &value : depth.data)
        value = qBound(0.0f, any(random), 1.0f);
    return depth;
}

Vector3d unproject(const DoubleMatrix &inverse, double u, double v, double depth)
{
    const Vector4d point = inverse * Vector4d{2 * u - 1, 2 * v - 1, 2 * depth - 1, 1};
    return xyz(point) * (1 / point[3]);
}

/// Checks the positions of all pixels against those of a depth image that is stretched over the viewport.
/// The homogeneous point is exact to a few units in the last place of single precision. Where its w is small compared
/// with its terms, as at the far plane by the ratio of far to near, the error in the result grows accordingly.
void compareWithUnprojection(const Image &positions, const Image &depth, const QMatrix4x4 &projection)
{
    const DoubleMatrix inverse = DoubleMatrix(projection).inverted();
    double error = 0;
    for (int y = 0; y < positions.height; ++y) {
        for (int x = 0; x < positions.width; ++x) {
            const double u = (x + 0.5) / positions.width;
            const double v = (y + 0.5) / positions.height;
            const float d = *depth.at(int(u * depth.width), int(v * depth.height));
            const Vector3d expected = unproject(inverse, u, v, double(d));
            const double w = (inverse * Vector4d{2 * u - 1, 2 * v - 1, 2 * double(d) - 1, 1})[3];
            const double parts = std::abs(inverse.at(3, 2)) + std::abs(inverse.at(3, 3));
            const double unit = std::ldexp(1.0, -23) * (1 + parts / std::abs(w));
            const QVector4D found = positions.pixel(x, y);
            for (int i = 0; i < 3; ++i) {
                const double size = std::sqrt(dot(expected, expected));
                error = std::max(error, std::abs(double(found[i]) - expected[size_t(i)]) / (size * unit));
            }
            // A number divided by itself.
            ASSERT_NEAR(found.w(), 1, 1e-6) << x << ' ' << y;
        }
    }
    EXPECT_LE(error, 8) << "units in the last place";
}

} // namespace

TEST_F(CameraSpaceZBufferRenderPassTest, unprojectsEveryPixelForEveryKindOfProjection)
{
    const Image depth = randomDepth(37, 23, 4);
    const Image other = randomDepth(37, 23, 5);
    const QRect viewport(0, 0, 37, 23);
    const std::unique_ptr<Texture> plain = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    const std::unique_ptr<Texture> sampled = makeMultisampleTexture(depth, other, GL_DEPTH_COMPONENT32F, 4);
    for (const QMatrix4x4 &projection :
        {perspective(viewport.size(), 0.5f, 30), orthographic(0.5f, 12), offAxis(), orthographic(-5, 5)}) {
        for (Texture *texture : {plain.get(), sampled.get()}) {
            pass = std::make_unique<CameraSpaceZBufferRenderPass>();
            feed(texture, viewport, projection);
            const Image positions = run();
            ASSERT_EQ(positions.width, 37);
            ASSERT_EQ(positions.height, 23);
            EXPECT_EQ(frame()->internalFormat(0), GL_RGBA32F);
            compareWithUnprojection(positions, depth, projection);
        }
    }
}

TEST_F(CameraSpaceZBufferRenderPassTest, takesAnyViewportAndDepthFormat)
{
    // Matrix and viewport change from frame to frame; the program stays.
    const Image depth = randomDepth(64, 48, 6);
    for (int format : {GL_DEPTH_COMPONENT32F, GL_DEPTH24_STENCIL8}) {
        const std::unique_ptr<Texture> texture = makeTexture(depth, format);
        const Image stored = readTexture(texture.get());
        for (const QRect &viewport :
            {QRect(0, 0, 64, 48), QRect(11, -7, 64, 48), QRect(0, 0, 1, 1), QRect(5, 5, 13, 3), QRect(0, 0, 131, 77)}) {
            const QMatrix4x4 projection = perspective(viewport.size(), 1, 15);
            feed(texture.get(), viewport, projection);
            GLCallRecorder<&epoxy_glViewport> viewports;
            const Image positions = run();
            EXPECT_EQ(viewports.calls.back(), std::make_tuple(0, 0, viewport.width(), viewport.height()));
            EXPECT_EQ(positions.width, viewport.width());
            EXPECT_EQ(positions.height, viewport.height());
            compareWithUnprojection(positions, stored, projection);
        }
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(CameraSpaceZBufferRenderPassTest, theViewportsCornerMakesNoDifference)
{
    const std::unique_ptr<Texture> depth = makeTexture(randomDepth(20, 14, 8), GL_DEPTH_COMPONENT32F);
    const QMatrix4x4 projection = perspective(QSize(20, 14), 0.5f, 30);
    feed(depth.get(), QRect(0, 0, 20, 14), projection);
    const Image there = run();
    feed(depth.get(), QRect(9, 31, 20, 14), projection);
    EXPECT_EQ(maximumDifference(there, run()), 0);
}

TEST_F(CameraSpaceZBufferRenderPassTest, putsNothingOnTheFarPlane)
{
    Image depth(4, 2, 1);
    depth.data.fill(1.0f);
    const std::unique_ptr<Texture> texture = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    feed(texture.get(), QRect(0, 0, 4, 2), perspective(QSize(4, 2), 0.5f, 30));
    const Image positions = run();
    for (int x = 0; x < 4; ++x)
        EXPECT_NEAR(positions.pixel(x, 1).z(), -30, 0.002);
    // The second row's centre lies a quarter of the height above the axis.
    EXPECT_NEAR(positions.pixel(0, 1).y(), 30 * std::tan(25 * M_PI / 180) / 2, 0.002);
}

// Compares with the points that were drawn, not only with the inverse of a matrix.
TEST_F(CameraSpaceZBufferRenderPassTest, findsThePointsOfAModel)
{
    const QSize size(161, 103);
    RayCastScene scene;
    QMatrix4x4 matrix;
    matrix.translate(-1.1f, 0.1f, 0);
    scene.add(sphereMesh(6), {}, matrix);
    matrix.translate(2.3f, -0.1f, -1);
    matrix.rotate(35, 0.2f, 1, 0);
    scene.add(boxMesh(), {}, matrix);
    const QSharedPointer<GPUModel> model = scene.build();
    const QMatrix4x4 camera = lookAt(QVector3D(1, 2, 5.5f), QVector3D());
    for (const QMatrix4x4 &projection : {perspective(size, 0.5f, 30), orthographic(0.5f, 12)}) {
        ModelRenderPass geometry;
        geometry.setInput(ModelRenderPass::Viewport, QRect(QPoint(), size));
        geometry.setInput(ModelRenderPass::ProjectionMatrix, projection);
        geometry.setInput(ModelRenderPass::CameraMatrix, camera);
        geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
        glViewport(0, 0, size.width(), size.height());
        glDepthMask(GL_TRUE);
        geometry.start(nullptr);
        feed(geometry.output(ModelRenderPass::Depth).value<Texture *>(), QRect(QPoint(), size), projection);
        const Image positions = run();

        const RayCaster caster(scene.items(), projection, camera, size);
        const DoubleMatrix inverse = DoubleMatrix(projection).inverted();
        double error = 0;
        caster.compareClearPixels(0.85, 2500, [&](int x, int y, const RayHit &hit) {
            if (!hit.isGeometry())
                return;
            const Vector3d expected =
                unproject(inverse, (x + 0.5) / size.width(), (y + 0.5) / size.height(), hit.depth);
            const QVector4D found = positions.pixel(x, y);
            for (int i = 0; i < 3; ++i)
                error = std::max(error, std::abs(double(found[i]) - expected[size_t(i)]));
        });
        // The rasteriser moves corners to a grid of 1/256 pixel, which shows where a face is seen edge on.
        EXPECT_LE(error, 0.03);
    }
}

TEST_F(CameraSpaceZBufferRenderPassTest, samplesOfDepthAndResultAreApart)
{
    const Image depth = randomDepth(9, 7, 2);
    const Image other = randomDepth(9, 7, 3);
    const std::unique_ptr<Texture> plain = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    const std::unique_ptr<Texture> sampled = makeMultisampleTexture(depth, other, GL_DEPTH24_STENCIL8, 4);
    const QMatrix4x4 projection = perspective(QSize(9, 7), 1, 9);
    for (Texture *texture : {plain.get(), sampled.get()}) {
        for (int samples : {-3, 0, 1, 4}) {
            pass = std::make_unique<CameraSpaceZBufferRenderPass>();
            feed(texture, QRect(0, 0, 9, 7), projection, samples);
            pass->start(nullptr);
            ASSERT_EQ(frame()->target(), GLenum(samples > 1 ? GL_TEXTURE_2D_MULTISAMPLE : GL_TEXTURE_2D)) << samples;
            Image stored = depth;
            if (texture != plain.get()) {
                for (float &value : stored.data)
                    value = float(std::lround(double(value) * 16777215.0) / 16777215.0);
            }
            for (int sample = 0; sample < std::max(1, samples); ++sample) {
                const Image positions = samples > 1 ? readSample(frame(), sample) : readTexture(frame());
                compareWithUnprojection(positions, stored, projection);
            }
            TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
        }
    }
}

TEST_F(CameraSpaceZBufferRenderPassTest, theFirstFrameSettlesTheKindOfDepth)
{
    const Image depth = filled(6, 4, QVector4D(0.5f, 0.5f, 0.5f, 0.5f));
    Image single(6, 4, 1);
    single.data.fill(0.5f);
    const std::unique_ptr<Texture> plain = makeTexture(single, GL_DEPTH_COMPONENT32F);
    const std::unique_ptr<Texture> sampled = makeMultisampleTexture(single, single, GL_DEPTH_COMPONENT32F, 4);
    const QMatrix4x4 projection = perspective(QSize(6, 4), 1, 9);
    const float expected = -1 / (0.5f / 9 + 0.5f);
    for (const auto &[first, second] : {std::pair{plain.get(), sampled.get()}, {sampled.get(), plain.get()}}) {
        pass = std::make_unique<CameraSpaceZBufferRenderPass>();
        feed(first, QRect(0, 0, 6, 4), projection);
        EXPECT_NEAR(run().pixel(3, 2).z(), expected, 1e-4);
        const int programs = glObjectCounts().programs;
        feed(second, QRect(0, 0, 6, 4), projection);
        // The sampler is of the other kind and finds no image at its unit; this driver then reads depth 0, the near
        // plane.
        EXPECT_NEAR(run().pixel(3, 2).z(), -1, 1e-4);
        EXPECT_EQ(glObjectCounts().programs, programs);
        feed(first, QRect(0, 0, 6, 4), projection);
        EXPECT_NEAR(run().pixel(3, 2).z(), expected, 1e-4);
    }
}

TEST_F(CameraSpaceZBufferRenderPassTest, withoutDepthItReadsNoOtherTexture)
{
    Image depth(2, 2, 1);
    depth.data.fill(0.75f);
    const std::unique_ptr<Texture> texture = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    feed(texture.get(), QRect(0, 0, 2, 2), {});
    EXPECT_EQ(run().pixel(1, 0).z(), 0.5f);
    // A texture of the host on the unit that the depth had is not read.
    AutoBinder binder(texture.get());
    feed(nullptr, QRect(0, 0, 2, 2), {});
    EXPECT_EQ(run().pixel(1, 0), QVector4D(0.5f, -0.5f, -1, 1)) << "the near plane";
}

TEST_F(CameraSpaceZBufferRenderPassTest, goesOnWithWhatIsMissing)
{
    // A singular projection counts as the identity, which is what QMatrix4x4::inverted() returns; a null one is the
    // identity.
    Image depth(2, 2, 1);
    depth.data.fill(0.75f);
    const std::unique_ptr<Texture> texture = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    QMatrix4x4 singular;
    singular.fill(0);
    for (const QVariant &projection : {QVariant(), QVariant(singular)}) {
        feed(texture.get(), QRect(0, 0, 2, 2), {});
        pass->setInput(Port::ProjectionMatrix, projection);
        EXPECT_EQ(run().pixel(1, 0), QVector4D(0.5f, -0.5f, 0.5f, 1));
    }
    // Without depth every pixel lies on the near plane.
    feed(nullptr, QRect(0, 0, 2, 2), {});
    EXPECT_EQ(run().pixel(1, 0).z(), -1);
    EXPECT_TRUE(log.messages().isEmpty());
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(CameraSpaceZBufferRenderPassTest, handsOnOneReferenceForEachUser)
{
    Texture *const depth = textures.take(TextureFormat::DepthStencil, 6, 4, 3);
    feed(depth, QRect(0, 0, 6, 4), perspective(QSize(6, 4), 1, 9));
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    Texture *const first = frame();
    EXPECT_EQ(PooledTextures::references(first), 2);
    EXPECT_EQ(PooledTextures::references(depth), 2);
    TextureManager::Instance()->releaseTempTextureRef(first, 2);

    pass->setNumOutputUsers(Port::Frame, 0);
    pass->start(nullptr);
    EXPECT_EQ(frame(), first);
    EXPECT_EQ(PooledTextures::references(first), 0);
    EXPECT_EQ(PooledTextures::references(depth), 1);

    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(depth), 0);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(CameraSpaceZBufferRenderPassTest, leavesDepthWritesAndStencilTestOffAndTheDepthTestAsItWas)
{
    const std::unique_ptr<Texture> depth = makeTexture(randomDepth(4, 4, 1), GL_DEPTH_COMPONENT32F);
    feed(depth.get(), QRect(0, 0, 4, 4), perspective(QSize(4, 4), 1, 9));
    for (bool tested : {false, true}) {
        glEnable(GL_STENCIL_TEST);
        glDepthMask(GL_TRUE);
        tested ? glEnable(GL_DEPTH_TEST) : glDisable(GL_DEPTH_TEST);
        GLCallRecorder<&epoxy_glClear> clears;
        run();
        EXPECT_TRUE(clears.calls.empty());
        EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
        EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE);
        EXPECT_EQ(glFlag(GL_DEPTH_TEST), tested);
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
        EXPECT_EQ(depth->unit(), 0);
    }
}

TEST_F(CameraSpaceZBufferRenderPassTest, takesItsObjectsAlong)
{
    const std::unique_ptr<Texture> depth = makeTexture(randomDepth(4, 4, 1), GL_DEPTH_COMPONENT32F);
    feed(depth.get(), QRect(0, 0, 4, 4), perspective(QSize(4, 4), 1, 9));
    run();
    const GLObjectCounts before = glObjectCounts();
    {
        CameraSpaceZBufferRenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Port::Depth, QVariant::fromValue(depth.get()));
        other.start(nullptr);
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().textures, before.textures);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
