// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"

#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ModelDeferredPass.h>
#include <RenderPasses/ModelRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

namespace Velmora::Kvz {

namespace {

class ModelDeferredPassTest : public PassTest<ModelDeferredPass>
{
protected:
    void setTextures(Texture *diffuse, Texture *specular, Texture *normal)
    {
        pass->setInput(Port::Diffuse, QVariant::fromValue(diffuse));
        pass->setInput(Port::Specular, QVariant::fromValue(specular));
        pass->setInput(Port::Normal, QVariant::fromValue(normal));
    }
    Texture *frame() const { return texture(Port::Frame); }
};

/// The colour of one pixel, clamped to the range of the target; alpha is that of the diffuse image.
std::array<double, 4> shaded(const float *diffuse, const float *specular, const float *normal)
{
    const Vector3d n = {double(normal[0]), double(normal[1]), double(normal[2])};
    const Vector3d light = normalized({100, 100, 100});
    const Vector3d half = normalized(light + Vector3d{0, 0, 1});
    const double lambert = std::max(0.0, dot(n, light));
    const double highlight = std::pow(std::max(0.0, dot(n, half)), double(specular[3]));
    std::array<double, 4> color;
    for (size_t i = 0; i < 3; ++i)
        color[i] = std::clamp(lambert * double(diffuse[i]) + highlight * double(specular[i]), 0.0, 1.0);
    color[3] = std::clamp(double(diffuse[3]), 0.0, 1.0);
    return color;
}

/// Half a step of the target's 8 bits, plus the error of powers in single precision.
constexpr double tolerance = 0.5 / 255 + 5e-5;

void compareWithFormula(const Image &frame, const Image &diffuse, const Image &specular, const Image &normal)
{
    ASSERT_EQ(frame.width, diffuse.width);
    ASSERT_EQ(frame.height, diffuse.height);
    double error = 0;
    int lit = 0;
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            const std::array<double, 4> expected = shaded(diffuse.at(x, y), specular.at(x, y), normal.at(x, y));
            for (size_t i = 0; i < 4; ++i)
                error = std::max(error, std::abs(expected[i] - double(frame.at(x, y)[i])));
            lit += expected[0] > 0 && expected[0] < 1 ? 1 : 0;
        }
    }
    std::printf("[ COMPARED ] %d pixels, %d of them lit and not saturated\n", frame.width * frame.height, lit);
    EXPECT_LE(error, tolerance);
    EXPECT_GE(lit, frame.width * frame.height / 5);
}

struct RandomBuffers
{
    Image diffuse;
    Image specular;
    Image normal;

    RandomBuffers(int width, int height)
        : diffuse(width, height),
          specular(width, height),
          normal(width, height)
    {
        std::mt19937 random(11);
        std::uniform_real_distribution<float> unit(0, 1);
        std::uniform_real_distribution<float> component(-0.5f, 1);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const float exponent = std::exp2(8 * unit(random)) - 0.5f;
                diffuse.setPixel(x, y, QVector4D(unit(random), unit(random), unit(random), unit(random)));
                specular.setPixel(x, y, QVector4D(unit(random), unit(random), unit(random), exponent));
                // Not of unit length: the pass does not normalise.
                normal.setPixel(x, y, QVector4D(component(random), component(random), component(random), 1) * 0.7f);
            }
        }
    }
};

} // namespace

TEST_F(ModelDeferredPassTest, shadesAModelByItsFormula)
{
    const QSize size(320, 240);
    QImage checker(8, 8, QImage::Format_RGB32);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x)
            checker.setPixelColor(x, y, (x + y) % 2 ? QColor(235, 235, 225) : QColor(70, 80, 95));
    }
    GPUModelBuilder builder;
    const int ball = builder.addMesh(sphereMesh(24));
    const int box = builder.addMesh(boxMesh());
    const int ground = builder.addMesh(groundMesh());
    MaterialData red;
    red.kd = QVector3D(0.7f, 0.15f, 0.1f);
    red.ks = QVector3D(0.6f, 0.6f, 0.6f);
    red.ns = 60;
    MaterialData glass;
    glass.kd = QVector3D(0.2f, 0.5f, 0.7f);
    glass.ks = QVector3D(0.3f, 0.3f, 0.3f);
    glass.ns = 12;
    glass.d = 0.25f;
    MaterialData tiles;
    tiles.kd = QVector3D(1, 1, 1);
    tiles.mapKd = checker;
    QMatrix4x4 matrix;
    matrix.translate(-1.1f, 0, 0);
    builder.addItem(ball, builder.addMaterial(red), matrix);
    matrix.setToIdentity();
    matrix.translate(1.2f, -0.1f, 0.3f);
    matrix.rotate(35, 0, 1, 0);
    matrix.scale(0.8f, 0.9f, 0.6f);
    builder.addItem(box, builder.addMaterial(glass), matrix);
    matrix.setToIdentity();
    matrix.translate(0, -1, 0);
    matrix.scale(4);
    builder.addItem(ground, builder.addMaterial(tiles), matrix);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_NE(model, nullptr);

    const QMatrix4x4 projection = perspective(size, 0.5f, 50);
    const QMatrix4x4 camera = lookAt(QVector3D(1, 2.4f, 5.5f), QVector3D(0, -0.1f, 0));
    ModelRenderPass geometry;
    geometry.setInput(ModelRenderPass::Viewport, QRect(QPoint(0, 0), size));
    geometry.setInput(ModelRenderPass::ProjectionMatrix, projection);
    geometry.setInput(ModelRenderPass::CameraMatrix, camera);
    geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
    setViewport(size);
    geometry.start(nullptr);

    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    pass->setInput(Port::Diffuse, geometry.output(ModelRenderPass::Diffuse));
    pass->setInput(Port::Specular, geometry.output(ModelRenderPass::Specular));
    pass->setInput(Port::Normal, geometry.output(ModelRenderPass::Normal));
    pass->setInput(Port::Depth, geometry.output(ModelRenderPass::Depth));
    pass->start(nullptr);

    const Image image = readTexture(frame());
    saveForViewing(image, QStringLiteral("model-deferred"));
    const auto buffer = [&](int output) { return readTexture(geometry.output(output).value<Texture *>()); };
    compareWithFormula(
        image, buffer(ModelRenderPass::Diffuse), buffer(ModelRenderPass::Specular), buffer(ModelRenderPass::Normal));

    // Alpha is the material's opacity, and 0 where there is no model.
    int opaque = 0;
    int transparent = 0;
    int empty = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QVector4D pixel = image.pixel(x, y);
            opaque += pixel.w() == 1 ? 1 : 0;
            transparent += std::abs(pixel.w() - 0.25f) < 1.0f / 255 ? 1 : 0;
            empty += pixel == QVector4D() ? 1 : 0;
        }
    }
    EXPECT_EQ(opaque + transparent + empty, size.width() * size.height());
    EXPECT_GT(opaque, 20000);
    EXPECT_GT(transparent, 3000);
    EXPECT_GT(empty, 3000);
}

TEST_F(ModelDeferredPassTest, shadesAnyBufferByItsFormula)
{
    const RandomBuffers buffers(101, 73);
    const std::unique_ptr<Texture> diffuse = makeTexture(buffers.diffuse, GL_RGBA32F);
    const std::unique_ptr<Texture> specular = makeTexture(buffers.specular, GL_RGBA32F);
    const std::unique_ptr<Texture> normal = makeTexture(buffers.normal, GL_RGB32F);
    setViewport(QSize(101, 73));
    setTextures(diffuse.get(), specular.get(), normal.get());
    pass->start(nullptr);
    const Image first = readTexture(frame());
    compareWithFormula(first, buffers.diffuse, buffers.specular, buffers.normal);

    // Matrices and depth have no effect.
    pass->setInput(Port::ProjectionMatrix, perspective(QSize(4, 3), 1, 9));
    pass->setInput(Port::CameraMatrix, lookAt(QVector3D(4, 5, 6), QVector3D()));
    pass->setInput(Port::Depth, QVariant::fromValue(normal.get()));
    pass->start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(frame()), first), 0.0);
}

TEST_F(ModelDeferredPassTest, publishesNothingWithoutARequiredTexture)
{
    const RandomBuffers buffers(4, 4);
    const std::unique_ptr<Texture> texture = makeTexture(buffers.diffuse, GL_RGBA32F);
    for (const int missing : {Port::Diffuse, Port::Specular, Port::Normal}) {
        setViewport(QSize(4, 4));
        setTextures(texture.get(), texture.get(), texture.get());
        pass->start(nullptr);
        EXPECT_NE(frame(), nullptr);
        pass->setInput(missing, QVariant());
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(0).isValid());
    }
    ModelDeferredPass untouched;
    untouched.start(nullptr);
    EXPECT_FALSE(untouched.output(0).isValid());
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ModelDeferredPassTest, drawsWithTheViewportThatItFinds)
{
    const RandomBuffers buffers(8, 8);
    const std::unique_ptr<Texture> diffuse = makeTexture(buffers.diffuse, GL_RGBA32F);
    pass->setInput(Port::Viewport, QRect(0, 0, 8, 8));
    setTextures(diffuse.get(), diffuse.get(), diffuse.get());
    glViewport(1, 3, 4, 2);
    glClearColor(0, 1, 0, 0);
    GLCallRecorder<&epoxy_glViewport> viewports;
    pass->start(nullptr); // Creates the target.
    EXPECT_TRUE(viewports.calls.empty());
    const Image image = readTexture(frame());
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            const bool isInside = x >= 1 && x < 5 && y >= 3 && y < 5;
            EXPECT_EQ(image.pixel(x, y) != QVector4D(0, 1, 0, 0), isInside) << x << ' ' << y;
        }
    }
    glClearColor(0, 0, 0, 0);
}

TEST_F(ModelDeferredPassTest, setsNoMoreStateThanTheDepthTest)
{
    const RandomBuffers buffers(4, 4);
    const std::unique_ptr<Texture> diffuse = makeTexture(buffers.diffuse, GL_RGBA32F);
    setViewport(QSize(4, 4));
    setTextures(diffuse.get(), diffuse.get(), diffuse.get());
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_BLEND));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
}

TEST_F(ModelDeferredPassTest, remakesItsTargetWhenTheSizeChanges)
{
    const RandomBuffers buffers(4, 4);
    const std::unique_ptr<Texture> diffuse = makeTexture(buffers.diffuse, GL_RGBA32F);
    setTextures(diffuse.get(), diffuse.get(), diffuse.get());
    expectTexturesFollowTheViewport(1, 1);
    EXPECT_EQ(frame()->internalFormat(0), GL_RGBA);
}

TEST_F(ModelDeferredPassTest, makesAFrameOfNoPixelsWithoutAViewport)
{
    const RandomBuffers buffers(4, 4);
    const std::unique_ptr<Texture> diffuse = makeTexture(buffers.diffuse, GL_RGBA32F);
    setTextures(diffuse.get(), diffuse.get(), diffuse.get());
    pass->start(nullptr);
    ASSERT_NE(frame(), nullptr);
    EXPECT_EQ(frame()->width(0), 0);
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
}

TEST_F(ModelDeferredPassTest, releasesNoInput)
{
    TextureManager *const manager = TextureManager::Instance();
    Texture *const input = manager->tempTexture(TextureFormat::HighDynamicRange, 4, 4, 1, 1);
    setViewport(QSize(4, 4));
    setTextures(input, input, input);
    manager->addTempTextureRef(input, 2);
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    EXPECT_EQ(manager->tempTextureRefs(input), 3);
    EXPECT_EQ(manager->tempTextureRefs(frame()), -1);
    pass->skip(nullptr);
    EXPECT_EQ(manager->tempTextureRefs(input), 0) << "a skipped pass does give it back";
    EXPECT_FALSE(pass->output(0).isValid());
}

TEST_F(ModelDeferredPassTest, takesItsObjectsAlong)
{
    const RandomBuffers buffers(4, 4);
    const std::unique_ptr<Texture> diffuse = makeTexture(buffers.diffuse, GL_RGBA32F);
    setViewport(QSize(4, 4));
    setTextures(diffuse.get(), diffuse.get(), diffuse.get());
    pass->start(nullptr); // Creates what the device keeps.
    const GLObjectCounts before = glObjectCounts();
    {
        ModelDeferredPass other;
        for (int i = 0; i < other.numInputs(); ++i)
            other.setInput(i, i == Port::Viewport ? QVariant(QRect(0, 0, 4, 4)) : QVariant::fromValue(diffuse.get()));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().textures, before.textures + 1);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
