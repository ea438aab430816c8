// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/PooledTextures.h"
#include "support/Samples.h"

#include <ExtraPasses/LitForwardRenderPass.h>
#include <ExtraPasses/MultisampleForwardRenderPass.h>
#include <ExtraPasses/SubsampleJitterPass.h>
#include <ExtraPasses/SubsampleTable.h>
#include <GL/GLStatistics.h>
#include <Scene/GPUModel.h>

#include <QtCore/QRect>
#include <QtGui/QVector2D>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Port = MultisampleForwardRenderPass;

const QSize size(192, 128);
const QMatrix4x4 projection = perspective(size, 0.5f, 30);
const QMatrix4x4 camera = lookAt(QVector3D(1.5f, 1.2f, 4), QVector3D(0.2f, 0, 0));

QSharedPointer<GPUModel> makeModel(float opacity = 1)
{
    GPUModelBuilder builder;
    MaterialData light, dark;
    light.kd = QVector3D(0.9f, 0.8f, 0.7f);
    light.d = opacity;
    dark.kd = QVector3D(0.2f, 0.3f, 0.5f);
    dark.mapKd = QImage(8, 8, QImage::Format_RGBA8888);
    dark.mapKd.fill(QColor(255, 220, 128));
    QMatrix4x4 matrix;
    matrix.rotate(20, 0.3f, 1, 0.4f);
    builder.addItem(builder.addMesh(boxMesh(1)), builder.addMaterial(light), matrix);
    matrix.translate(1.3f, 0.7f, 1.1f);
    builder.addItem(builder.addMesh(sphereMesh(9)), builder.addMaterial(dark), matrix);
    return builder.build();
}

class MultisampleForwardRenderPassTest : public GLTest
{
protected:
    MultisampleForwardRenderPassTest()
    {
        pass->setInput(Port::Viewport, QRect(QPoint(3, 4), size));
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
    }

    void draw(GPUModel *model)
    {
        pass->setInput(Port::Geometry, QVariant::fromValue(model));
        for (int i = 0; i < 2; ++i)
            pass->setNumOutputUsers(i, 1);
        pass->start(nullptr);
    }
    Texture *texture(int output) const { return pass->output(output).value<Texture *>(); }
    void release()
    {
        for (const int output : {Port::Frame, Port::Depth})
            TextureManager::Instance()->releaseTempTextureRef(texture(output), 1);
    }

    std::unique_ptr<MultisampleForwardRenderPass> pass = std::make_unique<MultisampleForwardRenderPass>();
    PooledTextures textures;
};

/// A single-sample picture, sampled at this position in each pixel instead of its centre.
Image sampledAt(const QPointF &place, GPUModel *model)
{
    LitForwardRenderPass forward;
    forward.setInput(LitForwardRenderPass::Viewport, QRect(QPoint(), size));
    forward.setInput(
        LitForwardRenderPass::ProjectionMatrix, movedByPixels(projection, size, 0.5 - place.x(), 0.5 - place.y()));
    forward.setInput(LitForwardRenderPass::CameraMatrix, camera);
    forward.setInput(LitForwardRenderPass::Geometry, QVariant::fromValue(model));
    forward.start(nullptr);
    return readTexture(forward.output(LitForwardRenderPass::Frame).value<Texture *>());
}

/// Counts the pixels that differ by more than half a step of 8 bits and what extrapolated shading adds.
int differences(const Image &a, const Image &b)
{
    int count = 0;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.width; ++x)
            count += int((a.pixel(x, y) - b.pixel(x, y)).length() > 0.02f);
    }
    return count;
}

} // namespace

TEST_F(MultisampleForwardRenderPassTest, samplesLieWhereTheTableWantsThem)
{
    const QSharedPointer<GPUModel> model = makeModel();
    const QPointF centre(0.5, 0.5);
    for (const int frame : {-1, 0, 1}) {
        pass->setInput(Port::JitterIndex, frame < 0 ? QVariant() : QVariant(frame));
        draw(model.data());
        EXPECT_EQ(texture(Port::Frame)->target(), unsigned(GL_TEXTURE_2D_MULTISAMPLE));
        for (int sample = 0; sample < 2; ++sample) {
            const Image image = readSample(texture(Port::Frame), sample);
            const Image expected = sampledAt(subsamplePosition(frame, sample), model.data());
            saveForViewing(image, QStringLiteral("multisample-%1-%2").arg(frame).arg(sample));
            // On edges that run through a sample, the last bit decides.
            EXPECT_LE(differences(image, expected), 12) << frame << ' ' << sample;
            EXPECT_GT(differences(image, sampledAt(centre, model.data())), 60) << "the middle is elsewhere";
            EXPECT_GT(differences(image, sampledAt(subsamplePosition(frame, 1 - sample), model.data())), 60);
        }
        release();
    }
}

TEST_F(MultisampleForwardRenderPassTest, samplesGoWithTheSlicesOfTheAreaTable)
{
    // The offset of each slice for edges; a slice is made for the sample on the opposite side of the texel's centre.
    const double slices[] = {0, -0.25, 0.25, -0.125, 0.125, -0.375, 0.375};
    const struct
    {
        int frame, sample, vertical, horizontal;
    } rows[] = {{-1, 0, 1, 1}, {-1, 1, 2, 2}, {0, 0, 5, 3}, {0, 1, 4, 6}, {1, 0, 3, 5}, {1, 1, 6, 4}};
    for (const auto &row : rows) {
        const QPointF position = subsamplePosition(row.frame, row.sample);
        EXPECT_EQ(position.x() - 0.5, -slices[row.vertical]);
        EXPECT_EQ(position.y() - 0.5, -slices[row.horizontal]);
    }
}

TEST_F(MultisampleForwardRenderPassTest, saysHowFarTheMiddleOfTheSamplesMoved)
{
    const QSharedPointer<GPUModel> model = makeModel();
    const struct
    {
        QVariant index;
        QPointF pixels;
    } cases[] = {{QVariant(), {0, 0}}, {0, {-0.125, 0.125}}, {1, {0.125, -0.125}}};
    for (const auto &[index, pixels] : cases) {
        pass->setInput(Port::JitterIndex, index);
        draw(model.data());
        const auto amount = pass->output(Port::JitterAmount).value<QVector2D>();
        EXPECT_NEAR(amount.x(), 2 * pixels.x() / size.width(), 1e-9);
        EXPECT_NEAR(amount.y(), 2 * pixels.y() / size.height(), 1e-9);
        const auto matrix = pass->output(Port::ProjectionMatrixOut).value<QMatrix4x4>();
        EXPECT_TRUE(qFuzzyCompare(matrix, movedByPixels(projection, size, pixels.x(), pixels.y())));
        release();
    }
}

TEST_F(MultisampleForwardRenderPassTest, mixesTheNearestSurfaceWithTheBackground)
{
    const QVector4D behind(0.25f, 0.5f, 1, 0.5f);
    Texture *const background = textures.take(TextureFormat::HighDynamicRange, filled(192, 128, behind), 2);
    pass->setInput(Port::Background, QVariant::fromValue(background));
    const QSharedPointer<GPUModel> opaque = makeModel();
    const QSharedPointer<GPUModel> transparent = makeModel(0.25f);
    draw(opaque.data());
    EXPECT_EQ(PooledTextures::references(background), 1) << "the pass gave its use back";
    const Image solid = readSample(texture(Port::Frame), 0);
    release();
    pass->setInput(Port::Background, QVariant::fromValue(background));
    draw(transparent.data());
    const Image mixed = readSample(texture(Port::Frame), 0);
    release();
    int mixtures = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QVector4D surface = solid.pixel(x, y);
            const QVector4D result = mixed.pixel(x, y);
            if (surface == behind) {
                EXPECT_EQ(result, behind) << x << ' ' << y;
                continue;
            }
            EXPECT_EQ(surface.w(), 1);
            if ((result - surface).length() < 1e-6f)
                continue; // The opaque item.
            ++mixtures;
            const QVector4D expected(surface.toVector3D() * 0.25f + behind.toVector3D() * 0.75f, 0.25f + 0.5f * 0.75f);
            EXPECT_LT((result - expected).length(), 2e-3f) << x << ' ' << y;
        }
    }
    EXPECT_GT(mixtures, 1000);
}

TEST_F(MultisampleForwardRenderPassTest, lightsByItsInputsAndLeavesMasksOut)
{
    const QVector4D behind(0.25f, 0.5f, 1, 1);
    Texture *const background = textures.take(TextureFormat::HighDynamicRange, filled(192, 128, behind), 5);
    GPUModelBuilder builder;
    MaterialData material;
    material.kd = QVector3D(0.8f, 0.4f, 0.2f);
    material.emission = QVector3D(0, 0, 0.1f);
    material.d = 0.6f;
    material.alphaMode = MaterialData::Mask;
    MeshData wall = wallMesh();
    // Opaque where the alpha is at least a half: it is 0.3 + 0.3 x, for x from -1 to 1.
    for (const QVector3D &position : qAsConst(wall.positions))
        wall.colours.append(QVector4D(0.5f, 1, 1, 0.5f + 0.5f * position.x()));
    builder.addItem(builder.addMesh(wall), builder.addMaterial(material));
    const QSharedPointer<GPUModel> model = builder.build();
    pass->setInput(Port::ProjectionMatrix, QMatrix4x4());
    pass->setInput(Port::CameraMatrix, QMatrix4x4());
    const auto pixels = [&] {
        pass->setInput(Port::Background, QVariant::fromValue(background));
        draw(model.data());
        const Image image = readSample(texture(Port::Frame), 0);
        release();
        EXPECT_EQ(image.pixel(150, 64), behind) << "an alpha of 0.47: a hole";
        return image.pixel(170, 64);
    };
    const QVector3D base(0.4f, 0.4f, 0.2f);
    const auto expected = [&](float light) { return QVector4D(base * light + material.emission, 1); };
    EXPECT_LT((pixels() - expected(1)).length(), 2e-3f);
    pass->setInput(Port::HeadlightIntensity, 0.25f);
    pass->setInput(Port::AmbientIntensity, 0.5f);
    EXPECT_LT((pixels() - expected(0.75f)).length(), 2e-3f);
    pass->setInput(Port::FixedLight, true);
    EXPECT_LT((pixels() - expected(float(1 / std::sqrt(3.0)))).length(), 2e-3f);
    for (const int input : {Port::HeadlightIntensity, Port::AmbientIntensity, Port::FixedLight})
        pass->setInput(input, QVariant());
    EXPECT_LT((pixels() - expected(1)).length(), 2e-3f) << "null is the default";
}

TEST_F(MultisampleForwardRenderPassTest, withoutAModelTheBackgroundRemains)
{
    const QVector4D behind(0.25f, 0.5f, 1, 1);
    const std::unique_ptr<Texture> background = makeTexture(filled(192, 128, behind), GL_RGBA16F);
    for (const bool hasBackground : {true, false}) {
        pass->setInput(Port::Background, QVariant::fromValue(hasBackground ? background.get() : nullptr));
        draw(nullptr);
        for (int sample = 0; sample < 2; ++sample)
            EXPECT_EQ(readSample(texture(Port::Frame), sample).pixel(100, 100), hasBackground ? behind : QVector4D());
        EXPECT_EQ(readSample(texture(Port::Depth), 0).pixel(100, 100).x(), 1);
        release();
    }
}

TEST_F(MultisampleForwardRenderPassTest, depthAndFormatsFollow)
{
    const QSharedPointer<GPUModel> model = makeModel();
    pass->setInput(Port::RenderInHDR, false);
    draw(model.data());
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(texture(Port::Depth)->internalFormat(0), GL_DEPTH24_STENCIL8);
    EXPECT_EQ(texture(Port::Frame)->width(0), size.width());
    EXPECT_EQ(texture(Port::Frame)->height(0), size.height());
    const Image color = readSample(texture(Port::Frame), 1);
    const Image depth = readSample(texture(Port::Depth), 1);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            EXPECT_EQ(color.pixel(x, y).w() > 0, depth.pixel(x, y).x() < 1) << x << ' ' << y;
    }
    release();
    pass->setInput(Port::RenderInHDR, true);
    draw(model.data());
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA16F);
    release();
}

TEST_F(MultisampleForwardRenderPassTest, handsOnReferencesAndLeavesItsState)
{
    const QSharedPointer<GPUModel> model = makeModel();
    pass->setInput(Port::Geometry, QVariant::fromValue(model.data()));
    pass->setNumOutputUsers(Port::Frame, 1);
    pass->setNumOutputUsers(Port::Depth, 0);
    pass->start(nullptr);
    const Image plain = readSample(texture(Port::Frame), 0);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ONE); // Nothing would be drawn.
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->setNumOutputUsers(Port::Depth, 0);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(PooledTextures::references(texture(Port::Depth)), 0);
    EXPECT_EQ(maximumDifference(readSample(texture(Port::Frame), 0), plain), 0.0);
    EXPECT_GT(maximumDifference(plain, Image(plain.width, plain.height)), 0.2);
    EXPECT_FALSE(glFlag(GL_BLEND));
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);
    EXPECT_FALSE(glFlag(GL_SAMPLE_MASK));
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_MULTISAMPLE));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);

    const GLObjectCounts before = glObjectCounts();
    {
        MultisampleForwardRenderPass other;
        other.setInput(Port::Viewport, QRect(QPoint(), size));
        other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    }
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST(SubsampleJitterPassTest, putsTheFramesSampleIntoTheMiddleOfThePixel)
{
    SubsampleJitterPass jitter;
    ASSERT_EQ(jitter.numInputs(), 3);
    EXPECT_EQ(jitter.inputName(0), QStringLiteral("Kvz_QRect_Viewport"));
    EXPECT_EQ(jitter.inputName(1), QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    EXPECT_EQ(jitter.inputName(2), QStringLiteral("Kvz_int_JitterIndex"));
    ASSERT_EQ(jitter.numOutputs(), 2);
    EXPECT_EQ(jitter.outputName(0), QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    EXPECT_EQ(jitter.outputName(1), QStringLiteral("Kvz_Vector2D_JitterAmount"));
    jitter.setInput(SubsampleJitterPass::Viewport, QRect(QPoint(4, 5), size));
    jitter.setInput(SubsampleJitterPass::ProjectionMatrix, projection);
    for (const auto &[index, pixels] : {std::pair{QVariant(), 0.0}, {QVariant(0), -0.25}, {QVariant(1), 0.25}}) {
        jitter.setInput(SubsampleJitterPass::JitterIndex, index);
        jitter.start(nullptr);
        const auto amount = jitter.output(SubsampleJitterPass::JitterAmount).value<QVector2D>();
        EXPECT_EQ(amount, QVector2D(float(2 * pixels / size.width()), float(2 * pixels / size.height())));
        const auto matrix = jitter.output(SubsampleJitterPass::ProjectionMatrixOut).value<QMatrix4x4>();
        EXPECT_TRUE(qFuzzyCompare(matrix, movedByPixels(projection, size, pixels, pixels)));
    }
}

} // namespace Velmora::Kvz
