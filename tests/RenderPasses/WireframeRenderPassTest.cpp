// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/PooledTextures.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/ModelRenderPass.h>
#include <RenderPasses/WireframeRenderPass.h>

#include <QtCore/QRect>
#include <QtGui/QColor>

#include <epoxy/gl.h>

#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

class WireframeRenderPassTest : public GLTest
{
protected:
    using Port = WireframeRenderPass;

    std::unique_ptr<WireframeRenderPass> pass = std::make_unique<WireframeRenderPass>();
    PooledTextures textures;

    void setViewport(const QRect &viewport) { pass->setInput(Port::Viewport, viewport); }
    void setViewport(int width, int height) { setViewport(QRect(0, 0, width, height)); }
    void setId(Texture *texture) { pass->setInput(Port::Id, QVariant::fromValue(texture)); }
    void setColor(const QColor &color) { pass->setInput(Port::WireColor, color); }
    Texture *frame() const { return pass->output(Port::Frame).value<Texture *>(); }
    Image image() const { return readTexture(frame()); }
};

enum class Wrap { Clamp, Repeat };

int wrapped(int value, int size, Wrap wrap)
{
    return wrap == Wrap::Clamp ? std::clamp(value, 0, size - 1) : (value % size + size) % size;
}

/// The integer that a channel stands for.
int whole(float value)
{
    return int(std::floor(value + 0.1f));
}

/// The texel read for the pixel at this offset from a pixel of the viewport.
const float *texelAt(const Image &id, const QSize &viewport, int x, int y, int dx, int dy, Wrap wrap)
{
    const int column = int(std::floor((x + dx + 0.5) / viewport.width() * id.width));
    const int row = int(std::floor((y + dy + 0.5) / viewport.height() * id.height));
    return id.at(wrapped(column, id.width, wrap), wrapped(row, id.height, wrap));
}

/// The strength of the edge in a pixel.
double edgeStrength(const Image &id, const QSize &viewport, int x, int y, Wrap wrap)
{
    const float *center = texelAt(id, viewport, x, y, 0, 0, wrap);
    double strength = 0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const float *neighbour = texelAt(id, viewport, x, y, dx, dy, wrap);
            if (whole(neighbour[0]) != whole(center[0]))
                strength += 1;
            else if (whole(neighbour[2]) != whole(center[2]))
                strength += 0.33;
        }
    }
    return strength / 8;
}

struct Coverage
{
    int flat = 0;
    int full = 0;
    int between = 0;
};

/// Checks a whole overlay against the formula, to half a step of 8 bits plus rounding in single precision.
Coverage compareWithFormula(
    const Image &overlay, const Image &id, const QColor &color, Wrap wrap, const QPoint &origin = QPoint())
{
    const QSize viewport(overlay.width, overlay.height);
    const QVector4D wire(float(color.redF()), float(color.greenF()), float(color.blueF()), float(color.alphaF()));
    Coverage coverage;
    double error = 0;
    for (int y = 0; y < viewport.height() - origin.y(); ++y) {
        for (int x = 0; x < viewport.width() - origin.x(); ++x) {
            const double strength = edgeStrength(id, viewport, x, y, wrap);
            for (int i = 0; i < 4; ++i) {
                const double written = double(overlay.at(x + origin.x(), y + origin.y())[i]);
                error = std::max(error, std::abs(written - strength * double(wire[i])));
            }
            ++(strength == 0 ? coverage.flat : strength > 1 - 1e-9 ? coverage.full : coverage.between);
        }
    }
    EXPECT_LE(error, 0.5 / 255 + 1e-5);
    std::printf("[ COMPARED ] %d flat, %d full, %d between\n", coverage.flat, coverage.full, coverage.between);
    return coverage;
}

/// Areas with a red number and, inside them, areas with a blue one, and single odd pixels. Every number is a little
/// off, as interpolation leaves it; green and alpha are random and have no effect.
Image makeIdImage(int width, int height, unsigned int seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> noise(-0.09f, 0.09f);
    std::uniform_int_distribution<int> any(0, 9);
    Image id(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int red = any(random) == 0 ? 100000 + any(random) : (x / 13) + 7 * ((y + x / 3) / 11);
            const int blue = any(random) == 0 ? any(random) : (x / 5) % 3 + (y / 4) % 2;
            id.setPixel(x, y,
                QVector4D(float(red) + (red < 1000 ? noise(random) : 0), noise(random) * 100,
                    float(blue) + noise(random), noise(random) * 100));
        }
    }
    return id;
}

Image flatIdImage(int width, int height, float red)
{
    Image id(width, height);
    for (int i = 0; i < width * height; ++i)
        id.setPixel(i % width, i / width, QVector4D(red, 0, 0, 1));
    return id;
}

} // namespace

TEST_F(WireframeRenderPassTest, matchesTheFormulaOverAWholeImage)
{
    const Image id = makeIdImage(157, 101, 5);
    const std::unique_ptr<Texture> texture = makeTexture(id, GL_RGBA32F);
    setViewport(157, 101);
    setId(texture.get());
    pass->setNumOutputUsers(0, 1);
    for (const QColor &color : {QColor(255, 255, 255, 255), QColor(51, 102, 204, 153), QColor(0, 255, 0, 0)}) {
        setColor(color);
        pass->start(nullptr);
        EXPECT_EQ(frame()->internalFormat(0), GL_RGBA8);
        const Image overlay = image();
        const Coverage coverage = compareWithFormula(overlay, id, color, Wrap::Clamp);
        if (color == QColor(51, 102, 204, 153))
            saveForViewing(overlay, QStringLiteral("wireframe-areas"));
        EXPECT_GT(coverage.flat, 500);
        EXPECT_GT(coverage.full, 500);
        EXPECT_GT(coverage.between, 5000);
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
    }
}

TEST_F(WireframeRenderPassTest, drawsTheEdgesOfAModel)
{
    const QSize size(320, 240);
    GPUModelBuilder builder;
    const int material = builder.addMaterial({});
    QMatrix4x4 matrix;
    matrix.translate(-1.2f, 0, 0);
    builder.addItem(builder.addMesh(sphereMesh(6)), material, matrix);
    matrix.translate(2.4f, 0, 0);
    matrix.rotate(35, 0.2f, 1, 0);
    builder.addItem(builder.addMesh(boxMesh(3)), material, matrix);
    const QSharedPointer<GPUModel> model = builder.build();
    ModelRenderPass geometry;
    geometry.setInput(ModelRenderPass::Viewport, QRect(QPoint(0, 0), size));
    geometry.setInput(ModelRenderPass::ProjectionMatrix, perspective(size, 0.5f, 30));
    geometry.setInput(ModelRenderPass::CameraMatrix, lookAt(QVector3D(1, 2, 4.5f), QVector3D()));
    geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
    glViewport(0, 0, size.width(), size.height());
    geometry.start(nullptr);

    setViewport(size.width(), size.height());
    pass->setInput(Port::Id, geometry.output(ModelRenderPass::Id));
    setColor(QColor(255, 200, 0));
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    const Image overlay = image();
    saveForViewing(overlay, QStringLiteral("wireframe-model"));
    // The pass uses the wrap mode that it finds, and the id image repeats.
    const Coverage coverage = compareWithFormula(overlay,
        readTexture(geometry.output(ModelRenderPass::Id).value<Texture *>()), QColor(255, 200, 0), Wrap::Repeat);
    EXPECT_GT(coverage.flat, 40000);
    EXPECT_GT(coverage.between, 8000);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
}

TEST_F(WireframeRenderPassTest, countsNeighboursThatDiffer)
{
    // A lone pixel differs from all eight neighbours, and each of them differs only from it.
    Image id = flatIdImage(9, 9, 5);
    id.setPixel(4, 4, QVector4D(6, 0, 0, 1));
    std::unique_ptr<Texture> texture = makeTexture(id, GL_RGBA32F);
    setViewport(9, 9);
    setId(texture.get());
    setColor(QColor(255, 255, 255));
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    Image overlay = image();
    EXPECT_EQ(overlay.pixel(4, 4), QVector4D(1, 1, 1, 1));
    EXPECT_NEAR(overlay.pixel(3, 5).w(), 1.0f / 8, 0.51f / 255);
    EXPECT_EQ(overlay.pixel(1, 1), QVector4D(0, 0, 0, 0));
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);

    // A neighbour that differs only in blue counts 0.33, however large the difference; differences of less than a whole
    // number do not count; red takes precedence over blue.
    for (const auto &[value, expected] :
        {std::pair{QVector4D(5, 0, 1, 1), 0.33f}, {QVector4D(5, 0, -300, 1), 0.33f}, {QVector4D(5, 0, 0.85f, 1), 0.0f},
            {QVector4D(5, 77, 0, 33), 0.0f}, {QVector4D(4, 0, 9, 1), 1.0f}, {QVector4D(4.95f, 0, 0, 1), 0.0f}}) {
        id.setPixel(4, 4, value);
        texture = makeTexture(id, GL_RGBA32F);
        setId(texture.get());
        pass->start(nullptr);
        overlay = image();
        EXPECT_NEAR(overlay.pixel(4, 4).x(), expected, 0.51f / 255) << value.x() << ' ' << value.z();
        EXPECT_NEAR(overlay.pixel(5, 4).x(), expected / 8, 0.51f / 255);
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
    }
}

TEST_F(WireframeRenderPassTest, multipliesTheColoursAlpha)
{
    Image id = flatIdImage(5, 5, 1);
    id.setPixel(2, 2, QVector4D(2, 0, 0, 1));
    const std::unique_ptr<Texture> texture = makeTexture(id, GL_RGBA32F);
    setViewport(5, 5);
    setId(texture.get());
    pass->setNumOutputUsers(0, 1);
    setColor(QColor(255, 0, 51, 128));
    pass->start(nullptr);
    // The colour itself is not premultiplied.
    EXPECT_LT((image().pixel(2, 2) - QVector4D(1, 0, 0.2f, 128.0f / 255)).length(), 0.6f / 255);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);

    // An unset colour is an invalid one, which is opaque black, not the colour built into the pass.
    for (const QVariant &unset : {QVariant(), QVariant(QRect())}) {
        pass->setInput(Port::WireColor, unset);
        pass->start(nullptr);
        EXPECT_EQ(image().pixel(2, 2), QVector4D(0, 0, 0, 1));
        EXPECT_NEAR(image().pixel(1, 1).w(), 1.0f / 8, 0.51f / 255);
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
    }
}

TEST_F(WireframeRenderPassTest, takesThePixelDistanceFromTheViewport)
{
    const Image id = makeIdImage(48, 36, 9);
    const std::unique_ptr<Texture> texture = makeTexture(id, GL_RGBA32F);
    setId(texture.get());
    setColor(QColor(255, 255, 255));
    pass->setNumOutputUsers(0, 1);
    for (const QSize &size : {QSize(64, 48), QSize(16, 12)}) {
        setViewport(size.width(), size.height());
        pass->start(nullptr);
        EXPECT_EQ(frame()->width(0), size.width());
        const Coverage coverage = compareWithFormula(image(), id, QColor(255, 255, 255), Wrap::Clamp);
        EXPECT_GT(coverage.between, 20);
        TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
    }
}

TEST_F(WireframeRenderPassTest, movesThePictureByTheViewportsCorner)
{
    const Image id = makeIdImage(40, 30, 3);
    const std::unique_ptr<Texture> texture = makeTexture(id, GL_RGBA32F);
    setViewport(QRect(7, 4, 40, 30));
    setId(texture.get());
    setColor(QColor(255, 255, 255));
    pass->setNumOutputUsers(0, 1);
    glClearColor(0.2f, 0.4f, 0.6f, 0.8f);
    GLCallRecorder<&epoxy_glViewport> viewports;
    pass->start(nullptr);
    ASSERT_FALSE(viewports.calls.empty());
    EXPECT_EQ(viewports.calls.back(), std::make_tuple(7, 4, 40, 30));
    const Image overlay = image();
    EXPECT_EQ(overlay.width, 40);
    EXPECT_EQ(overlay.height, 30);
    compareWithFormula(overlay, id, QColor(255, 255, 255), Wrap::Clamp, QPoint(7, 4));
    for (const QPoint &outside : {QPoint(0, 0), QPoint(6, 29), QPoint(39, 3)})
        EXPECT_LT((overlay.pixel(outside.x(), outside.y()) - QVector4D(0.2f, 0.4f, 0.6f, 0.8f)).length(), 1.0f / 255);
    TextureManager::Instance()->releaseTempTextureRef(frame(), 1);
}

TEST_F(WireframeRenderPassTest, isEmptyWithoutAnIdentityImage)
{
    const std::unique_ptr<Texture> texture = makeTexture(flatIdImage(4, 4, 1), GL_RGBA32F);
    setViewport(4, 4);
    setId(texture.get());
    pass->start(nullptr);
    EXPECT_TRUE(pass->output(0).isValid());
    const GLObjectCounts before = glObjectCounts();
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<Texture *>(nullptr), QVariant(3)}) {
        pass->setInput(Port::Id, nothing);
        GLCallRecorder<&epoxy_glClear> clears;
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(0).isValid());
        EXPECT_EQ(clears.calls.size() + draws.calls.size() + indexedDraws.calls.size(), 0u);
    }
    WireframeRenderPass untouched;
    untouched.start(nullptr);
    EXPECT_FALSE(untouched.output(0).isValid());
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(WireframeRenderPassTest, doesNothingWithoutItsPorts)
{
    class Renamed : public WireframeRenderPass
    {
    public:
        void renameInput(int index) { m_inputs[index].name += QLatin1Char('?'); }
        void renameOutput(int index) { m_outputs[index].name += QLatin1Char('?'); }
    };
    Image id = flatIdImage(5, 5, 1);
    id.setPixel(2, 2, QVector4D(2, 0, 0, 1));
    const std::unique_ptr<Texture> texture = makeTexture(id, GL_RGBA32F);
    const auto feed = [&texture](WireframeRenderPass &wireframe) {
        wireframe.setInput(Port::Viewport, QRect(0, 0, 5, 5));
        wireframe.setInput(Port::Id, QVariant::fromValue(texture.get()));
        wireframe.setInput(Port::WireColor, QColor(255, 0, 0));
        wireframe.setNumOutputUsers(0, 1);
    };
    for (int missing = 0; missing < 3; ++missing) {
        Renamed renamed;
        feed(renamed);
        missing < 2 ? renamed.renameInput(missing) : renamed.renameOutput(0);
        renamed.start(nullptr);
        EXPECT_FALSE(renamed.output(0).isValid()) << missing;
    }
    EXPECT_TRUE(log.messages().isEmpty());

    // Without the colour port the pass uses its built-in colour, for alpha as well.
    Renamed colourless;
    feed(colourless);
    colourless.renameInput(Port::WireColor);
    colourless.start(nullptr);
    auto *const overlay = colourless.output(0).value<Texture *>();
    ASSERT_NE(overlay, nullptr);
    const float value = 23.0f / 255;
    EXPECT_LT((readTexture(overlay).pixel(2, 2) - QVector4D(value, value, value, value)).length(), 0.1f / 255);
    TextureManager::Instance()->releaseTempTextureRef(overlay, 1);
}

TEST_F(WireframeRenderPassTest, handsOnOneReferenceForEachUser)
{
    Texture *const id = textures.take(TextureFormat::HighDynamicRange, flatIdImage(6, 6, 1), 3);
    setViewport(6, 6);
    setId(id);
    setColor(QColor(255, 0, 0));
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    Texture *const first = frame();
    EXPECT_EQ(PooledTextures::references(first), 2);
    EXPECT_EQ(PooledTextures::references(id), 2) << "the pass gave its use back";
    TextureManager::Instance()->releaseTempTextureRef(first, 2);

    // The frame has no user and is back in the pool at once.
    pass->setNumOutputUsers(Port::Frame, 0);
    pass->start(nullptr);
    EXPECT_EQ(frame(), first);
    EXPECT_EQ(PooledTextures::references(first), 0);
    EXPECT_EQ(PooledTextures::references(id), 1);

    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_EQ(PooledTextures::references(id), 0) << "a skipped pass gives it back too";
    EXPECT_EQ(PooledTextures::allReferences(), 0);
}

TEST_F(WireframeRenderPassTest, turnsTheDepthTestOffAndLeavesTheRest)
{
    const std::unique_ptr<Texture> texture = makeTexture(flatIdImage(4, 4, 1), GL_RGBA32F);
    setViewport(4, 4);
    setId(texture.get());
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glEnable(GL_CULL_FACE);
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_BLEND));
    EXPECT_TRUE(glFlag(GL_CULL_FACE));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    EXPECT_EQ(texture->unit(), 0);
    // The texture's own wrap mode is still set.
    texture->bind();
    GLint wrap = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &wrap);
    EXPECT_EQ(wrap, GL_CLAMP_TO_EDGE);
    texture->unbind();
}

TEST_F(WireframeRenderPassTest, takesItsObjectsAlong)
{
    const std::unique_ptr<Texture> texture = makeTexture(flatIdImage(4, 4, 1), GL_RGBA32F);
    setViewport(4, 4);
    setId(texture.get());
    pass->start(nullptr); // Creates what the device and the pool keep.
    const GLObjectCounts before = glObjectCounts();
    {
        WireframeRenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Port::Id, QVariant::fromValue(texture.get()));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().textures, before.textures) << "the target is the pool's";
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
