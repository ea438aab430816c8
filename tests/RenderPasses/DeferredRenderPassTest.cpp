// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/DeferredRenderPass.h>
#include <RenderPasses/GBufferRenderPass.h>
#include <RenderPasses/PrimitiveBuilderRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cstdio>
#include <random>

namespace Velmora::Kvz {

namespace {

class DeferredRenderPassTest : public PassTest<DeferredRenderPass>
{
protected:
    Texture *frame() const { return texture(Port::Frame); }
};

/// Wrong ways to compute the light, which the pictures must rule out.
enum Mistake { None, PlainInverse, MappedDepth, NormalizedNormal, LightInCameraSpace };

/// The light of one pixel before it is clamped to the range of the target.
double lightAt(const Image &normals, const Image &depths, int x, int y, const DoubleMatrix &projection,
    const DoubleMatrix &camera, Mistake mistake = None)
{
    const DoubleMatrix inverse = projection.inverted();
    const DoubleMatrix toPosition = mistake == PlainInverse ? inverse : inverse.transposed();
    double z = double(*depths.at(x, y));
    if (mistake == MappedDepth)
        z = 2 * z - 1;
    const Vector4d position =
        toPosition * Vector4d{2 * (x + 0.5) / normals.width - 1, 2 * (y + 0.5) / normals.height - 1, z, 1};
    const Vector3d vertex = xyz(camera * withW(xyz(position) * (1 / position[3]), 1));
    const Vector3d light =
        mistake == LightInCameraSpace ? Vector3d{100, 100, 100} : xyz(camera * Vector4d{100, 100, 100, 1});

    const float *texel = normals.at(x, y);
    Vector3d normal = {double(texel[0]), double(texel[1]), double(texel[2])};
    if (mistake == NormalizedNormal && dot(normal, normal) > 0)
        normal = normalized(normal);
    const Vector3d normalInEyeSpace = xyz(camera.inverted().transposed() * withW(normal, 1));
    return dot(normalized(light - vertex), normalInEyeSpace);
}

double clamped(double value)
{
    return value < 0 ? 0 : value > 1 ? 1 : value;
}

/// Half a step of the target's 8 bits, plus rounding in single precision.
constexpr double tolerance = 0.5 / 255 + 2e-5;

/// Checks every pixel of the frame against the formula, and that the picture tells the formula from each mistake:
/// `telltale` is the least share of pixels that each mistake must change by more than two steps.
void compareWithFormula(const Image &frame, const Image &normals, const Image &depths, const QMatrix4x4 &projection,
    const QMatrix4x4 &camera, const QVector<Mistake> &mistakes, double telltale)
{
    const DoubleMatrix p(projection);
    const DoubleMatrix c(camera);
    ASSERT_EQ(frame.width, normals.width);
    ASSERT_EQ(frame.height, normals.height);
    double error = 0;
    int lit = 0;
    QVector<int> changed(mistakes.size(), 0);
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            const double expected = clamped(lightAt(normals, depths, x, y, p, c));
            const QVector4D pixel = frame.pixel(x, y);
            for (int channel = 0; channel < 3; ++channel)
                error = std::max(error, std::abs(double(pixel[channel]) - expected));
            ASSERT_EQ(pixel.w(), 1.0f);
            lit += expected > 0 && expected < 1 ? 1 : 0;
            for (int i = 0; i < mistakes.size(); ++i) {
                const double wrong = clamped(lightAt(normals, depths, x, y, p, c, mistakes[i]));
                changed[i] += std::abs(wrong - expected) > 2.0 / 255 ? 1 : 0;
            }
        }
    }
    const int pixels = frame.width * frame.height;
    std::printf("[ COMPARED ] %d pixels, %d of them lit and not saturated\n", pixels, lit);
    EXPECT_LE(error, tolerance);
    for (int i = 0; i < mistakes.size(); ++i)
        EXPECT_GE(changed[i], telltale * pixels) << "mistake " << mistakes[i] << " would not show";
}

} // namespace

TEST_F(DeferredRenderPassTest, shadesAGeometryBufferByItsFormula)
{
    const QSize size(320, 240);
    PrimitiveBuilderRenderPass builder;
    builder.addCube(40, QVector3D(-30, 5, 0));
    builder.addCube(24, QVector3D(14, -3, 22));
    builder.addQuad(26, QVector3D(25, 4, -30));
    builder.addCube(14, QVector3D(6, 26, 8));
    builder.start(nullptr);
    // One smooth surface among the flat ones.
    MeshData ball = sphereMesh(16);
    for (QVector3D &position : ball.positions)
        position = position * 15 + QVector3D(40, 10, 20);
    const std::unique_ptr<DrawBuffers> ballBuffers = makeDrawBuffers(ball);
    const QMatrix4x4 camera = lookAt(QVector3D(-55, 45, 100), QVector3D(2, 2, 0));
    const QMatrix4x4 projection = perspective(size, 10, 400);

    GBufferRenderPass geometry;
    geometry.setInput(GBufferRenderPass::Viewport, QRect(QPoint(0, 0), size));
    geometry.setInput(GBufferRenderPass::ProjectionMatrix, projection);
    geometry.setInput(GBufferRenderPass::CameraMatrix, camera);
    geometry.setInput(GBufferRenderPass::Geometry,
        QVariantList{builder.output(PrimitiveBuilderRenderPass::Geometry), QVariant::fromValue(ballBuffers.get())});
    geometry.start(nullptr);

    pass->setInput(Port::Viewport, QRect(QPoint(0, 0), size));
    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    pass->setInput(Port::Normal, geometry.output(GBufferRenderPass::Normal));
    pass->setInput(Port::TexCoord, geometry.output(GBufferRenderPass::TexCoord));
    pass->setInput(Port::Depth, geometry.output(GBufferRenderPass::Depth));
    pass->start(nullptr);

    const Image image = readTexture(frame());
    saveForViewing(image, QStringLiteral("deferred-primitives"));
    compareWithFormula(image, readTexture(geometry.output(GBufferRenderPass::Normal).value<Texture *>()),
        readTexture(geometry.output(GBufferRenderPass::Depth).value<Texture *>()), projection, camera,
        {PlainInverse, LightInCameraSpace}, 0.1);
}

TEST_F(DeferredRenderPassTest, shadesAnyBufferByItsFormula)
{
    // Normals of any length and direction and depths of any value: real geometry could hide a missing step.
    const int width = 97;
    const int height = 61;
    std::mt19937 random(7);
    std::uniform_real_distribution<float> component(-0.9f, 0.9f);
    std::uniform_real_distribution<float> anyDepth(0, 1);
    Image normals(width, height);
    Image depths(width, height, 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            normals.setPixel(x, y, QVector4D(component(random), component(random), component(random), 1));
            *depths.at(x, y) = anyDepth(random);
        }
    }
    const std::unique_ptr<Texture> normal = makeTexture(normals, GL_RGB32F);
    const std::unique_ptr<Texture> depth = makeTexture(depths, GL_DEPTH_COMPONENT32F);
    // The transposed inverse of this projection spreads positions around the light, far apart for different depths.
    const QMatrix4x4 toPosition(40, 5, 80, 20, -10, 60, -70, 30, 20, -15, 90, 10, 0.05f, 0.1f, 0.2f, 1);
    const QMatrix4x4 projection = toPosition.transposed().inverted();
    QMatrix4x4 camera = lookAt(QVector3D(20, 60, -30), QVector3D(1, 2, 3));
    camera.scale(1.2f, 0.8f, 1.1f);

    setViewport(QSize(width, height));
    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    setTexture(Port::Normal, normal.get());
    setTexture(Port::Depth, depth.get());
    pass->start(nullptr);
    compareWithFormula(readTexture(frame()), normals, depths, projection, camera,
        {PlainInverse, MappedDepth, NormalizedNormal, LightInCameraSpace}, 0.1);
}

TEST_F(DeferredRenderPassTest, shadesMissingTexturesFromOnePlaceholder)
{
    pass->start(nullptr); // The first frame creates what all frames share.
    takeGLErrors();
    const GLObjectCounts before = glObjectCounts();
    setViewport(QSize(6, 5));
    pass->start(nullptr);
    EXPECT_TRUE(glObjectCounts() == before);
    const Image black = readTexture(frame());
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 6; ++x)
            ASSERT_EQ(black.pixel(x, y), QVector4D(0, 0, 0, 1));
    }

    // If only the depth is missing, it is read as 0.
    Image normals(6, 5);
    for (int i = 0; i < 30; ++i)
        normals.setPixel(i % 6, i / 6, QVector4D(0.3f, 0.5f, 0.4f, 1));
    const std::unique_ptr<Texture> normal = makeTexture(normals, GL_RGB32F);
    setTexture(Port::Normal, normal.get());
    pass->start(nullptr);
    compareWithFormula(readTexture(frame()), normals, Image(6, 5, 1), QMatrix4x4(), QMatrix4x4(), {}, 0);
}

TEST_F(DeferredRenderPassTest, runsWithAllInputsNull)
{
    pass->start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->width(0), 0);
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
}

TEST_F(DeferredRenderPassTest, writesBlackForSurfacesThatFaceAway)
{
    Image normals(2, 1);
    normals.setPixel(0, 0, QVector4D(-1, -1, -1, 1));
    normals.setPixel(1, 0, QVector4D(1, 1, 1, 1));
    const std::unique_ptr<Texture> normal = makeTexture(normals, GL_RGB32F);
    setViewport(QSize(2, 1));
    setTexture(Port::Normal, normal.get());
    pass->start(nullptr);
    EXPECT_EQ(readTexture(frame()).pixel(0, 0), QVector4D(0, 0, 0, 1));
    EXPECT_EQ(readTexture(frame()).pixel(1, 0), QVector4D(1, 1, 1, 1));
}

TEST_F(DeferredRenderPassTest, drawsWithTheViewportThatItFinds)
{
    Image normals(8, 8);
    for (int i = 0; i < 64; ++i)
        normals.setPixel(i % 8, i / 8, QVector4D(1, 1, 1, 1));
    const std::unique_ptr<Texture> normal = makeTexture(normals, GL_RGB32F);
    pass->setInput(Port::Viewport, QRect(0, 0, 8, 8));
    setTexture(Port::Normal, normal.get());
    glViewport(2, 4, 3, 2);
    glClearColor(0, 0, 1, 0);
    GLCallRecorder<&epoxy_glViewport> viewports;
    pass->start(nullptr); // Creates the target.
    EXPECT_TRUE(viewports.calls.empty());
    const Image image = readTexture(frame());
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            const bool isInside = x >= 2 && x < 5 && y >= 4 && y < 6;
            ASSERT_EQ(image.pixel(x, y), isInside ? QVector4D(1, 1, 1, 1) : QVector4D(0, 0, 1, 0)) << x << ' ' << y;
        }
    }
    glClearColor(0, 0, 0, 0);
}

TEST_F(DeferredRenderPassTest, setsNoMoreStateThanTheDepthTest)
{
    setViewport(QSize(4, 4));
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_BLEND));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
}

TEST_F(DeferredRenderPassTest, ownsATargetOf8Bits)
{
    setViewport(QSize(4, 3));
    pass->setNumOutputUsers(0, 2);
    pass->start(nullptr);
    EXPECT_EQ(frame()->internalFormat(0), GL_RGBA);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(frame()), -1);
    AutoBinder binder(frame());
    GLint value = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_RED_SIZE, &value);
    EXPECT_EQ(value, 8);
    for (const GLenum parameter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
        glGetTexParameteriv(GL_TEXTURE_2D, parameter, &value);
        EXPECT_EQ(value, GL_NEAREST);
    }
}

TEST_F(DeferredRenderPassTest, remakesItsTargetWhenTheSizeChanges)
{
    expectTexturesFollowTheViewport(1, 1);
}

TEST_F(DeferredRenderPassTest, releasesNoInput)
{
    Texture *const normal = TextureManager::Instance()->tempTexture(TextureFormat::HighDynamicRange, 4, 4, 1, 1);
    setViewport(QSize(4, 4));
    setTexture(Port::Normal, normal);
    pass->start(nullptr);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(normal), 1);
    pass->skip(nullptr);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(normal), 0) << "a skipped pass does give it back";
    EXPECT_FALSE(pass->output(0).isValid());
}

TEST_F(DeferredRenderPassTest, takesItsObjectsAlong)
{
    {
        DeferredRenderPass first; // Creates what the device keeps.
        first.start(nullptr);
        takeGLErrors();
    }
    const GLObjectCounts before = glObjectCounts();
    setViewport(QSize(4, 4));
    pass->start(nullptr);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 2);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
