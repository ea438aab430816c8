// SPDX-License-Identifier: MIT
#include <RenderPasses/SMAARenderPass.h>

#include "BlurReference.h"
#include "SmaaReference.h"
#include "support/Cameras.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/PooledTextures.h"

#include <GL/BufferObject.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <RenderPasses/ForwardRenderPass.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QRect>
#include <QtCore/QRegularExpression>

#include <cmath>
#include <random>
#include <set>

namespace Velmora::Kvz {

namespace {

using Smaa = SMAARenderPass;

const QSize frameSize(321, 237);

/// The weights and the blend read between texels, whose place a driver may round to 1/256, and store 8 bits.
constexpr double storedTolerance = 0.5 / 255.0 + 1.0 / 256.0;

/// What an image of 8 bits for each channel holds of a value.
constexpr double byteTolerance = 0.51 / 255.0;

/// A rendered frame of boxes and spheres over a ground: edges at all angles, thin ones and far ones among them.
Image renderedFrame(const QSize &size)
{
    GPUModelBuilder builder;
    const int box = builder.addMesh(boxMesh());
    const int sphere = builder.addMesh(sphereMesh(12));
    const int ground = builder.addMesh(groundMesh());
    const auto add = [&](int mesh, const QVector3D &color, const QVector3D &place, float angle,
                         const QVector3D &scale) {
        MaterialData material;
        material.kd = color;
        QMatrix4x4 matrix;
        matrix.translate(place);
        matrix.rotate(angle, 0.3f, 1, 0.2f);
        matrix.scale(scale);
        builder.addItem(mesh, builder.addMaterial(material), matrix);
    };
    add(ground, {0.5f, 0.5f, 0.45f}, {0, -1, 0}, 0, {8, 1, 8});
    add(box, {0.9f, 0.2f, 0.1f}, {-1.5f, 0, 0}, 27, {0.7f, 0.9f, 0.7f});
    add(sphere, {0.2f, 0.7f, 0.9f}, {0.6f, 0.1f, 0.8f}, 0, {0.8f, 0.8f, 0.8f});
    add(box, {0.9f, 0.9f, 0.3f}, {1.8f, 0.6f, -1}, -38, {0.05f, 1.8f, 0.05f});
    for (int i = 0; i < 8; ++i)
        add(box, {0.8f, 0.8f, 0.9f}, {-4.0f + float(i), 0.4f, -4}, 8.0f * float(i), {0.06f, 1.4f, 0.4f});
    const QSharedPointer<GPUModel> model = builder.build();
    ForwardRenderPass pass;
    glViewport(0, 0, size.width(), size.height());
    pass.setInput(ForwardRenderPass::Viewport, QRect(QPoint(), size));
    pass.setInput(ForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    pass.setInput(ForwardRenderPass::ProjectionMatrix, perspective(size, 0.5f, 40));
    pass.setInput(ForwardRenderPass::CameraMatrix, lookAt(QVector3D(1.2f, 2.2f, 6), QVector3D(0, 0.1f, 0)));
    pass.start(nullptr);
    return readTexture(pass.output(ForwardRenderPass::Frame).value<Texture *>());
}

/// One of the images that the stages are tried on, by its name.
Image imageOf(const std::string &name)
{
    return name == "rendered" ? renderedFrame(frameSize)
        : name == "chart"     ? edgeChart(frameSize.width(), frameSize.height())
                              : photograph(frameSize.width(), frameSize.height());
}

/// Some edge pixels at random, at every density, so that lines meet in ways that no picture has.
Image randomEdges(int width, int height, unsigned seed)
{
    std::mt19937 random(seed);
    Image edges(width, height);
    for (int y = 0; y < height; ++y) {
        const unsigned along = 100 + 900 * unsigned(y) / unsigned(height);
        for (int x = 0; x < width; ++x) {
            const unsigned across = 30 + 600 * unsigned(x) / unsigned(width);
            edges.setPixel(x, y, QVector4D(random() % 1000 < across ? 1 : 0, random() % 1000 < along ? 1 : 0, 0, 0));
        }
    }
    return edges;
}

/// A program that copies an image texel by texel; one of a single texel goes everywhere.
std::unique_ptr<ShaderProgram> copyProgram()
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations({QStringLiteral("out_Color")});
    program->addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
        QString());
    program->addShader(GL_FRAGMENT_SHADER,
        QStringLiteral("#version 150\nuniform sampler2D u_Source;\nout vec4 out_Color;\nvoid main()\n{\n"
                       "    ivec2 last = textureSize(u_Source, 0) - 1;\n"
                       "    out_Color = texelFetch(u_Source, min(ivec2(gl_FragCoord.xy), last), 0);\n}\n"),
        QString());
    program->compile();
    program->link();
    return program;
}

/// Draws an image over the bound framebuffer.
void drawCopy(Texture *source)
{
    const auto program = copyProgram();
    AutoBinder programBinder(program.get());
    AutoBinder sourceBinder(source);
    program->setUniform(QStringLiteral("u_Source"), source->unit());
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    AutoBinder quadBinder(quad);
    quad->draw();
}

/// What GL's blend makes of an image, drawn whole over nothing and then once more, half of each: the image, but for the
/// precision of the blend.
Image halvedAndAdded(const Image &image, int internalFormat)
{
    const auto source = makeTexture(image, internalFormat);
    const auto sum = makeTexture(Image(image.width, image.height), internalFormat);
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(sum.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glViewport(0, 0, image.width, image.height);
    glDisable(GL_DEPTH_TEST);
    glEnablei(GL_BLEND, 0);
    glBlendEquation(GL_FUNC_ADD);
    glBlendFunc(GL_CONSTANT_COLOR, GL_CONSTANT_COLOR);
    for (float share : {1.0f, 0.5f}) {
        glBlendColor(share, share, share, share);
        drawCopy(source.get());
    }
    glDisablei(GL_BLEND, 0);
    framebuffer.detachAll();
    return readTexture(sum.get());
}

const char *const modeNames[] = {"1x", "S2X", "T2X", "4X"};

bool isTemporal(int mode)
{
    return mode == Smaa::SmaaT2X || mode == Smaa::Smaa4X;
}

bool wantsSamples(int mode)
{
    return mode == Smaa::SmaaS2X || mode == Smaa::Smaa4X;
}

} // namespace

class SMAARenderPassTest : public GLTest
{
protected:
    std::unique_ptr<Smaa> pass = std::make_unique<Smaa>();
    PooledTextures pool;

    static void set(Smaa *smaa, int mode, Texture *frame, const QSize &size, Texture *velocity = nullptr,
        Texture *predicate = nullptr, bool hdr = true)
    {
        smaa->setInput(Smaa::Viewport, QRect(QPoint(), size));
        smaa->setInput(Smaa::SmaaMode, mode);
        smaa->setInput(Smaa::Frame, QVariant::fromValue(frame));
        smaa->setInput(Smaa::Velocity, QVariant::fromValue(velocity));
        smaa->setInput(Smaa::Predicate, predicate ? QVariant::fromValue(predicate) : QVariant());
        smaa->setInput(Smaa::RenderInHDR, hdr);
    }

    /// A pass whose programs stand for a mode, so that its stages can be called one by one.
    void prepare(int mode, const QSize &size = frameSize, bool predication = false)
    {
        pass->setup(nullptr);
        const auto plain = makeTexture(filled(4, 4, QVector4D(0, 0, 0, 1)), GL_RGBA8);
        const auto still = makeTexture(Image(4, 4), GL_RGBA32F);
        const auto samples =
            wantsSamples(mode) ? makeMultisampleTexture(Image(size.width(), size.height()), GL_RGBA8, 2) : nullptr;
        set(pass.get(), mode, samples ? samples.get() : plain.get(), size, still.get(),
            predication ? still.get() : nullptr);
        pass->start(nullptr);
        log.takeDebug();
        glDisable(GL_STENCIL_TEST);
        glDisable(GL_BLEND);
        glDisable(GL_DEPTH_TEST);
        glViewport(0, 0, size.width(), size.height());
    }
    /// A linear, clamped texture, as the pass takes them, with one reference.
    Texture *target(TextureFormat format = TextureFormat::LowDynamicRange, const QSize &size = frameSize)
    {
        Texture *const texture = pool.take(format, size.width(), size.height(), 1);
        AutoBinder binder(texture);
        for (GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
            glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
        for (GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
            glTexParameteri(GL_TEXTURE_2D, wrap, GL_CLAMP_TO_EDGE);
        return texture;
    }
    /// The same with a content.
    Texture *linear(const Image &image, TextureFormat format = TextureFormat::LowDynamicRange)
    {
        Texture *const texture = target(format, QSize(image.width, image.height));
        AutoBinder binder(texture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image.width, image.height, GL_RGBA, GL_FLOAT, image.data.constData());
        return texture;
    }
    static Texture *result(const Smaa &smaa) { return smaa.output(Smaa::FrameOut).value<Texture *>(); }
    Texture *result() const { return result(*pass); }

    void expectWeights(
        const Image &edges, const SmaaSlices &slices, const SmaaSettings &settings, int row, const std::string &name)
    {
        Texture *const edgeTexture = linear(edges);
        Texture *const stencil = target(TextureFormat::DepthStencil);
        {
            FramebufferObject framebuffer;
            AutoBinder binder(&framebuffer);
            framebuffer.attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
            framebuffer.setDrawBuffers();
            glStencilMask(0xff);
            glClearStencil(1);
            glClear(GL_STENCIL_BUFFER_BIT);
        }
        glEnable(GL_STENCIL_TEST);
        Texture *const weights = target();
        pass->blendingWeightCalculation(weights, edgeTexture, stencil, row);
        const Image image = readTexture(weights);
        const Image reference = smaaWeights(edges, slices, settings);
        const Deviation difference = deviation(name, image, reference);
        saveForViewing(image, QStringLiteral("smaa-weights-%1").arg(QString::fromStdString(name)));
        // The table's texels differ by up to a half from one distance to the next.
        EXPECT_LE(difference.largest, storedTolerance) << name;
        int weighted = 0;
        for (int i = 0; i < reference.data.size(); ++i)
            weighted += reference.data[i] > 0 ? 1 : 0;
        EXPECT_GT(weighted, 400) << name << ": hardly anything to compare";
        for (Texture *texture : {edgeTexture, stencil, weights})
            TextureManager::Instance()->releaseTempTextureRef(texture, 1);
    }
};

/// The stages on each of several images.
class SmaaStagesTest : public SMAARenderPassTest, public ::testing::WithParamInterface<const char *>
{
protected:
    void SetUp() override
    {
        SMAARenderPassTest::SetUp();
        frame = imageOf(name);
    }

    const std::string name = GetParam();
    Image frame;
};

INSTANTIATE_TEST_SUITE_P(Images, SmaaStagesTest, ::testing::Values("rendered", "chart", "photograph"),
    [](const ::testing::TestParamInfo<const char *> &image) { return std::string(image.param); });

TEST_F(SMAARenderPassTest, declaresItsPorts)
{
    const char *const names[] = {"Kvz_QRect_Viewport", "Kvz_KvzTexture*_Frame", "Kvz_int_SmaaMode",
        "Kvz_KvzTexture*_Predicate", "Kvz_KvzTexture*_Velocity", "Kvz_int_JitterIndex", "Kvz_bool_RenderInHDR",
        "Kvz_Vector2D_JitterAmount"};
    ASSERT_EQ(pass->numInputs(), 8);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(pass->inputName(i), QString::fromLatin1(names[i]));
        EXPECT_EQ(pass->defaultValue(i), i == 2 ? QVariant(2) : i == 6 ? QVariant(true) : QVariant()) << names[i];
    }
    EXPECT_EQ(pass->defaultValue(2).userType(), int(QMetaType::Int));
    EXPECT_EQ(pass->defaultValue(6).userType(), int(QMetaType::Bool));
    ASSERT_EQ(pass->numOutputs(), 1);
    EXPECT_EQ(pass->outputName(0), QStringLiteral("Kvz_KvzTexture*_Frame"));
}

TEST_F(SMAARenderPassTest, makesTheLookupTablesOnceAsTheyArePublished)
{
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    struct Upload
    {
        int width;
        int height;
        int internalFormat;
        unsigned int format;
        unsigned int type;
        int alignment;
        QByteArray hash;
        QVector<int> sampling;
    };
    QVector<Upload> uploads;
    const GLObjectCounts before = glObjectCounts();
    {
        GLCallRecorder<&epoxy_glTexImage2D> images;
        images.onCall = [&](GLenum, GLint, GLint internalFormat, GLsizei width, GLsizei height, GLint, GLenum format,
                            GLenum type, const void *data) {
            const int bytes = width * height * (format == GL_RG ? 2 : 1);
            uploads.append({width, height, internalFormat, format, type, glInteger(GL_UNPACK_ALIGNMENT),
                QCryptographicHash::hash(QByteArray(static_cast<const char *>(data), bytes), QCryptographicHash::Sha256)
                    .toHex(),
                {}});
            for (GLenum name : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER, GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
                GLint value = 0;
                glGetTexParameteriv(GL_TEXTURE_2D, name, &value);
                uploads.last().sampling.append(value);
            }
        };
        pass->setup(nullptr);
        EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 8) << "the host's alignment comes back";
        ASSERT_EQ(uploads.size(), 2);
        pass->setup(nullptr);
        EXPECT_EQ(uploads.size(), 2) << "only what is missing";
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 2);
    EXPECT_EQ(glObjectCounts().programs, before.programs) << "they are empty";

    EXPECT_EQ(uploads[0].width, 160);
    EXPECT_EQ(uploads[0].height, 560);
    EXPECT_EQ(uploads[0].internalFormat, GL_RG8);
    EXPECT_EQ(uploads[0].format, unsigned(GL_RG));
    EXPECT_EQ(uploads[0].type, unsigned(GL_UNSIGNED_BYTE));
    EXPECT_EQ(uploads[0].alignment, 2);
    EXPECT_EQ(uploads[0].hash, QByteArrayLiteral("35065cef2a02cabcad711d6bf430239ae64e27d71c4e4fa06f29cce2c992f0d2"));
    EXPECT_EQ(uploads[1].width, 64);
    EXPECT_EQ(uploads[1].height, 16);
    EXPECT_EQ(uploads[1].internalFormat, GL_R8);
    EXPECT_EQ(uploads[1].format, unsigned(GL_RED));
    EXPECT_EQ(uploads[1].type, unsigned(GL_UNSIGNED_BYTE));
    EXPECT_EQ(uploads[1].alignment, 1);
    EXPECT_EQ(uploads[1].hash, QByteArrayLiteral("3694eae5e9d44b8ebb4415a13f8c7b94dc08a2fc86658434d771c4610fe5744d"));
    for (const Upload &upload : uploads)
        EXPECT_EQ(upload.sampling, linearAndClamped());
}

TEST_F(SMAARenderPassTest, uploadsWholeTablesWhateverPixelsTheHostReads)
{
    // Too small for either table, so that an upload out of it would be refused.
    BufferObject buffer;
    buffer.setTarget(GL_PIXEL_UNPACK_BUFFER);
    buffer.uploadBytes(nullptr, 4, GL_STATIC_DRAW);
    const auto tables = [&](bool foreignRows, bool foreignBuffer) {
        // The area table, then the search table, as they lie on the GPU.
        QVector<Image> found;
        GLCallRecorder<&epoxy_glTexImage2D> uploads;
        QVector<GLuint> names;
        uploads.onCall = [&](GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void *) {
            names.append(GLuint(glInteger(GL_TEXTURE_BINDING_2D)));
        };
        pass = std::make_unique<Smaa>();
        {
            AutoBinder binder(foreignBuffer ? &buffer : nullptr);
            if (foreignRows) {
                glPixelStorei(GL_UNPACK_ROW_LENGTH, 200);
                glPixelStorei(GL_UNPACK_SKIP_ROWS, 2);
                glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
            }
            pass->setup(nullptr);
            if (foreignRows) {
                EXPECT_EQ(glInteger(GL_UNPACK_ROW_LENGTH), 200);
                EXPECT_EQ(glInteger(GL_UNPACK_SKIP_ROWS), 2);
                EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 8);
            }
            EXPECT_EQ(GLuint(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING)), foreignBuffer ? buffer.getBO() : 0u);
            glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
            glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
            glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        }
        const QSize sizes[] = {QSize(160, 560), QSize(64, 16)};
        for (int i = 0; i < names.size() && i < 2; ++i) {
            Image image(sizes[i].width(), sizes[i].height());
            glBindTexture(GL_TEXTURE_2D, names[i]);
            glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_FLOAT, image.data.data());
            glBindTexture(GL_TEXTURE_2D, 0);
            found.append(image);
        }
        return found;
    };
    const QVector<Image> expected = tables(false, false);
    ASSERT_EQ(expected.size(), 2);
    for (const auto &[foreignRows, foreignBuffer] : {std::pair(true, false), {false, true}, {true, true}}) {
        const QVector<Image> found = tables(foreignRows, foreignBuffer);
        EXPECT_TRUE(takeGLErrors().isEmpty());
        ASSERT_EQ(found.size(), 2);
        for (int i : {0, 1}) {
            EXPECT_GT(maximumDifference(expected[i], Image(expected[i].width, expected[i].height)), 0.4);
            EXPECT_EQ(maximumDifference(found[i], expected[i]), 0.0) << i << (foreignRows ? " rows" : " buffer");
        }
    }
}

// The stages

TEST_F(SMAARenderPassTest, gammaEncodesColoursAndKeepsAlpha)
{
    prepare(Smaa::Smaa1X);
    Image frame = photograph(frameSize.width(), frameSize.height(), 6);
    frame.setPixel(5, 5, QVector4D(0, 1, 40, 0.25f));
    const auto input = makeTexture(frame, GL_RGBA32F);
    Texture *const output = target();
    glClearColor(1, 1, 1, 1);
    pass->applyGamma(input.get(), output, 2.2f);
    Image expected = frame;
    for (int i = 0; i < expected.data.size(); ++i) {
        if (i % 4 != 3)
            expected.data[i] = float(std::clamp(std::pow(double(expected.data[i]), 1 / 2.2), 0.0, 1.0));
    }
    // The driver's power is good for some units of the last place of 8 bits.
    EXPECT_LE(deviation("gamma", readTexture(output), expected).largest, byteTolerance + 0.002);
}

TEST_P(SmaaStagesTest, findsTheEdgesExactly)
{
    prepare(Smaa::Smaa1X);
    const auto input = makeTexture(frame, GL_RGBA32F);
    Texture *const encoded = target();
    Texture *const edges = target();
    Texture *const stencil = target(TextureFormat::DepthStencil);
    pass->applyGamma(input.get(), encoded, 2.2f);
    pass->edgeDetection(edges, stencil, encoded, nullptr);
    glDisable(GL_STENCIL_TEST);
    const Image image = readTexture(edges);
    const QVector<int> stencils = readStencil(stencil);
    saveForViewing(image, QStringLiteral("smaa-edges-%1").arg(QString::fromStdString(name)));

    const SmaaEdges reference = smaaEdges(readTexture(encoded), nullptr);
    int wrong = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const int i = y * image.width + x;
            if (reference.open[size_t(i)])
                continue;
            const QVector4D found = image.pixel(x, y);
            const QVector4D expected = reference.edges.pixel(x, y);
            wrong += found.x() != expected.x() || found.y() != expected.y();
            EXPECT_EQ(stencils[i], reference.kept[size_t(i)] ? 1 : 0) << x << ", " << y;
        }
    }
    std::printf("%s: %d pixels with edges, %d open\n", name.c_str(), reference.count, reference.openCount);
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(reference.count, 500);
    EXPECT_LE(reference.openCount, 3) << "so near to a threshold that rounding decides";
}

TEST_F(SMAARenderPassTest, clearsEdgesAndFreesThePredicateBeforeTheTargets)
{
    const QSize size(20, 16);
    prepare(Smaa::Smaa1X, size, true);
    const auto input = makeTexture(edgeChart(20, 16), GL_RGBA8);
    const auto predicate = makeTexture(Image(20, 16), GL_RGBA8);
    QStringList calls;
    GLCallRecorder<&epoxy_glClearColor> colours;
    colours.onCall = [&](GLfloat, GLfloat, GLfloat, GLfloat) { calls.append(QStringLiteral("colour")); };
    GLCallRecorder<&epoxy_glClearStencil> stencils;
    stencils.onCall = [&](GLint) { calls.append(QStringLiteral("stencil")); };
    GLCallRecorder<&epoxy_glClear> clears;
    clears.onCall = [&](GLbitfield) { calls.append(QStringLiteral("clear")); };
    GLCallRecorder<&epoxy_glFramebufferTexture> changes;
    changes.onCall = [&](GLenum, GLenum, GLuint texture, GLint) {
        if (texture != 0)
            return;
        calls.append(QStringLiteral("detach"));
        EXPECT_EQ(predicate->unit(), 0) << "unbound by then";
        EXPECT_NE(input->unit(), 0);
    };
    pass->edgeDetection(target(TextureFormat::LowDynamicRange, size), target(TextureFormat::DepthStencil, size),
        input.get(), predicate.get());
    while (calls.count(QStringLiteral("detach")) > 1)
        calls.removeLast(); // One for each attachment.
    EXPECT_EQ(calls,
        QStringList(
            {QStringLiteral("colour"), QStringLiteral("stencil"), QStringLiteral("clear"), QStringLiteral("detach")}));
}

TEST_F(SMAARenderPassTest, lowersTheThresholdWhereThePredicateSteps)
{
    // Steps of 0.08 in luma: above 0.06, below 0.1.
    Image steps(64, 48);
    Image depth(64, 48);
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            const float grey = 0.3f + (x / 8 % 2 ? 0.08f : 0.0f) + (y / 16 % 2 ? 0.3f : 0.0f);
            steps.setPixel(x, y, QVector4D(grey, grey, grey, 1));
            const float z = x < 32 ? 0.5f : x / 8 % 2 ? 0.5f : 0.52f;
            depth.setPixel(x, y, QVector4D(z, 0, 0, 1));
        }
    }
    const QSize size(64, 48);
    prepare(Smaa::Smaa1X, size, true);
    Texture *const input = linear(steps);
    Texture *const predicate = linear(depth, TextureFormat::HighDynamicRange);
    Texture *const edges = target(TextureFormat::LowDynamicRange, size);
    Texture *const stencil = target(TextureFormat::DepthStencil, size);
    pass->edgeDetection(edges, stencil, input, predicate);
    glDisable(GL_STENCIL_TEST);
    const Image image = readTexture(edges);
    const Image stored = readTexture(predicate);
    const SmaaEdges reference = smaaEdges(readTexture(input), &stored);
    EXPECT_EQ(reference.openCount, 0);
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            EXPECT_EQ(image.pixel(x, y).x(), reference.edges.pixel(x, y).x()) << x << ", " << y;
            EXPECT_EQ(image.pixel(x, y).y(), reference.edges.pixel(x, y).y()) << x << ", " << y;
        }
    }
    EXPECT_EQ(image.pixel(40, 8).x(), 1.0f) << "the depth steps here";
    EXPECT_EQ(image.pixel(24, 8).x(), 0.0f) << "but not here";
    EXPECT_EQ(image.pixel(20, 16).y(), 1.0f) << "a strong edge needs no predicate";
}

TEST_P(SmaaStagesTest, weighsByTheShapesThatEdgesBelongTo)
{
    prepare(Smaa::Smaa1X);
    expectWeights(smaaEdges(quantised(frame), nullptr).edges, {0, 0, 0, 0}, {}, 0, name);
}

TEST_F(SMAARenderPassTest, weighsEdgesThatNoPictureHas)
{
    prepare(Smaa::Smaa1X);
    expectWeights(randomEdges(frameSize.width(), frameSize.height(), 7), {0, 0, 0, 0}, {}, 0, "random");
}

TEST_F(SMAARenderPassTest, picksTheSlicesOfTheSubsampleTable)
{
    const Image chart = smaaEdges(quantised(edgeChart(frameSize.width(), frameSize.height())), nullptr).edges;
    const SmaaSlices two[] = {{1, 1, 1, 0}, {2, 2, 2, 0}};
    const SmaaSlices four[] = {{5, 3, 1, 3}, {4, 6, 2, 3}, {3, 5, 1, 4}, {6, 4, 2, 4}};
    for (int mode : {Smaa::SmaaS2X, Smaa::SmaaT2X, Smaa::Smaa4X}) {
        prepare(mode);
        for (int row = 0; row < (mode == Smaa::Smaa4X ? 4 : 2); ++row) {
            expectWeights(chart, mode == Smaa::Smaa4X ? four[row] : two[row], {}, row,
                "chart-" + std::string(modeNames[mode]) + "-" + std::to_string(row));
        }
    }
    // The centre for mode 0, whatever the row.
    prepare(Smaa::Smaa1X);
    expectWeights(chart, {0, 0, 0, 0}, {}, 1, "chart-1x");
}

TEST_F(SMAARenderPassTest, everyPresetOfTheShaderFileDoesWhatItSays)
{
    struct Preset
    {
        const char *name;
        SmaaSettings settings;
    };
    const Preset presets[] = {
        {"SMAA_PRESET_LOW", {0.15, 4, 0, std::nullopt}},
        {"SMAA_PRESET_MEDIUM", {0.1, 8, 0, std::nullopt}},
        {"SMAA_PRESET_HIGH", {0.1, 16, 8, 0.25}},
        {"SMAA_PRESET_ULTRA", {0.05, 32, 16, 0.25}},
        {"SMAA_NO_PRESET", {0.1, 16, 8, 0.25}},
        {"SMAA_THRESHOLD 0.3\n#define SMAA_MAX_SEARCH_STEPS 6\n#define SMAA_MAX_SEARCH_STEPS_DIAG 3\n"
         "#define SMAA_CORNER_ROUNDING 60\n#define SMAA_OWN_VALUES",
            {0.3, 6, 3, 0.6}},
        {"SMAA_PRESET_ULTRA 1\n#define SMAA_DISABLE_CORNER_DETECTION", {0.05, 32, 16, std::nullopt}},
    };
    const Image frame = renderedFrame(frameSize);
    for (const Preset &preset : presets) {
        SCOPED_TRACE(preset.name);
        pass = std::make_unique<Smaa>();
        {
            ChangedShaders shaders("#define SMAA_PRESET_ULTRA", QByteArray("#define ") + preset.name);
            prepare(Smaa::Smaa1X);
            EXPECT_EQ(shaders.changed, 8);
        }
        Texture *const input = linear(quantised(frame));
        Texture *const edges = target();
        Texture *const stencil = target(TextureFormat::DepthStencil);
        pass->edgeDetection(edges, stencil, input, nullptr);
        glDisable(GL_STENCIL_TEST);
        const SmaaEdges reference = smaaEdges(readTexture(input), nullptr, preset.settings);
        const Image found = readTexture(edges);
        int wrong = 0;
        for (int i = 0; i < frameSize.width() * frameSize.height(); ++i) {
            for (int k = 0; k < 2 && !reference.open[size_t(i)]; ++k)
                wrong += found.data[4 * i + k] != reference.edges.data[4 * i + k];
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_LE(reference.openCount, 3);
        EXPECT_GT(reference.count, 300);
        expectWeights(randomEdges(frameSize.width(), frameSize.height(), 3), {0, 0, 0, 0}, preset.settings, 0,
            QString::fromLatin1(preset.name).section(QLatin1Char('\n'), -1).toStdString());
    }
}

TEST_P(SmaaStagesTest, mixesPixelsWithTheirNeighboursByTheWeights)
{
    for (int mode : {Smaa::Smaa1X, Smaa::SmaaT2X}) {
        prepare(mode);
        const Image velocity = [] {
            Image image(frameSize.width(), frameSize.height());
            for (int y = 0; y < image.height; ++y) {
                for (int x = 0; x < image.width; ++x)
                    image.setPixel(x, y, x < 160 ? QVector4D(0.01f, -0.02f, 0, 0) : QVector4D(-0.003f, 0.001f, 0, 0));
            }
            return image;
        }();
        const auto velocityTexture = makeTexture(velocity, GL_RGBA32F);
        {
            AutoBinder binder(velocityTexture.get());
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        }
        Texture *const colour = linear(frame, TextureFormat::HighDynamicRange);
        const Image edges = smaaEdges(quantised(frame), nullptr).edges;
        Texture *const weights = linear(quantised(smaaWeights(edges, {0, 0, 0, 0})));
        Texture *const blended = linear(Image(frameSize.width(), frameSize.height()), TextureFormat::HighDynamicRange);
        Texture *const packed =
            linear(filled(frameSize.width(), frameSize.height(), QVector4D(1, 1, 1, 1)), TextureFormat::Velocity);
        pass->neighbourhoodBlending(blended, colour, weights, velocityTexture.get(), packed);
        const Image image = readTexture(blended);
        const Image stored = readTexture(colour);
        const Image expected = smaaBlended(stored, readTexture(weights), isTemporal(mode) ? &velocity : nullptr);
        saveForViewing(image, QStringLiteral("smaa-blended-%1-%2").arg(mode).arg(QString::fromStdString(name)));
        EXPECT_LE(deviation("blended " + name, image, expected).largest, storedTolerance);
        EXPECT_GT(pixelsBeyond(expected, stored, 0.1), 100) << "nothing to mix";
        const Image packedImage = readTexture(packed);
        EXPECT_EQ(packedImage.pixel(40, 40), isTemporal(mode) ? QVector4D() : QVector4D(1, 1, 1, 1));
    }
}

TEST_F(SMAARenderPassTest, averagesTwoPassesInTheTarget)
{
    prepare(Smaa::Smaa1X);
    const auto first = makeTexture(filled(frameSize.width(), frameSize.height(), {1, 0.5f, 0, 0.5f}), GL_RGBA32F);
    const auto second = makeTexture(filled(frameSize.width(), frameSize.height(), {0, 0.25f, 3, 1}), GL_RGBA32F);
    Texture *const blended = linear(Image(frameSize.width(), frameSize.height()), TextureFormat::HighDynamicRange);
    pass->doSmaa1x(blended, nullptr, first.get(), nullptr, nullptr, 0);
    EXPECT_EQ(readTexture(blended).pixel(10, 10), QVector4D(1, 0.5f, 0, 0.5f));
    pass->doSmaa1x(blended, nullptr, second.get(), nullptr, nullptr, 1);
    EXPECT_EQ(readTexture(blended).pixel(10, 10), QVector4D(0.5f, 0.375f, 1.5f, 0.75f));
}

TEST_F(SMAARenderPassTest, resolvesAgainstTheLastFrameWhereTheSurfaceWas)
{
    const int width = frameSize.width();
    const int height = frameSize.height();
    const auto field = [&](auto &&at) {
        Image image(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                image.setPixel(x, y, at(x, y));
        }
        return image;
    };
    const auto withAlpha = [&](Image image, auto &&alpha) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                image.at(x, y)[3] = alpha(x, y);
        }
        return image;
    };
    const Image colours = photograph(width, height, 1, 2);
    const Image others = photograph(width, height, 1, 9);
    struct Case
    {
        const char *name;
        Image current;
        Image previous;
        Image velocity;
        QVector2D jitter; ///< In normalised device units, of the second frame; the first has none.
    };
    const auto constant = [](float value) { return [value](int, int) { return value; }; };
    const auto columns = [](int x, int) { return 0.02f * float(x / 16 % 12); };
    const std::vector<Case> cases = {
        {"still", withAlpha(colours, constant(0)), withAlpha(others, constant(0)), Image(width, height), {}},
        {"moving by whole texels", withAlpha(colours, constant(0.3f)), withAlpha(others, constant(0.3f)),
            field([&](int, int y) {
                return QVector4D(y < 100 ? 3.0f / float(width) : -7.0f / float(width), 5.0f / float(height), 0, 0);
            }),
            {}},
        {"moving between texels", withAlpha(colours, constant(0.2f)), withAlpha(others, constant(0.2f)),
            field([&](int x, int y) { return QVector4D(float(x % 40) / 400.0f, float(y % 30) / 500.0f, 0, 0); }), {}},
        {"at other speeds", withAlpha(colours, columns), withAlpha(others, constant(0.1f)), Image(width, height), {}},
        // The change of the jitter is in the velocity, and goes.
        {"still with jitter", withAlpha(colours, constant(0.05f)), withAlpha(others, constant(0.05f)),
            filled(width, height, QVector4D(0.25f / float(width), -0.5f / float(height), 0, 0)),
            QVector2D(0.5f / float(width), -1.0f / float(height))},
        {"moving with jitter", withAlpha(colours, constant(0.05f)), withAlpha(others, constant(0.05f)),
            filled(width, height, QVector4D(2.25f / float(width), 1.5f / float(height), 0, 0)),
            QVector2D(0.5f / float(width), -1.0f / float(height))},
        // Half floats leave a trace of it.
        {"still with a rounded velocity", withAlpha(colours, constant(0.05f)), withAlpha(others, constant(0.05f)),
            filled(width, height, QVector4D(0.2535f / float(width), -0.4965f / float(height), 0, 0)),
            QVector2D(0.5f / float(width), -1.0f / float(height))},
    };
    prepare(Smaa::SmaaT2X);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        pass->release();
        pass->init();
        log.takeDebug();
        const auto history = [&](const Image &image) {
            Texture *const texture = linear(image, TextureFormat::HighDynamicRange);
            TextureManager::Instance()->addTempTextureRef(texture, 1);
            return texture;
        };
        Texture *const packed[] = {target(TextureFormat::Velocity), target(TextureFormat::Velocity)};
        for (Texture *texture : packed)
            TextureManager::Instance()->addTempTextureRef(texture, 1);
        const auto velocity = makeTexture(c.velocity, GL_RGBA32F);
        const auto none = makeTexture(Image(width, height), GL_RGBA32F);
        Texture *const output = target(TextureFormat::HighDynamicRange);
        Texture *const previous = history(c.previous);
        Texture *const current = history(c.current);

        // The previous jitter is that of the latest resolve, so a first one sets it.
        pass->doTemporalResolve(output, previous, none.get(), packed[0], QVector2D());
        pass->release();
        pass->init();
        log.takeDebug();
        EXPECT_EQ(pool.references(previous), 1) << "the history is given back";
        TextureManager::Instance()->addTempTextureRef(previous, 1);
        TextureManager::Instance()->addTempTextureRef(packed[0], 1);
        pass->doTemporalResolve(output, previous, none.get(), packed[0], QVector2D());
        const Image storedPrevious = readTexture(previous);
        EXPECT_LE(maximumDifference(readTexture(output), withAlpha(storedPrevious, constant(1))), 1e-3)
            << "the first frame is resolved with itself";

        pass->doTemporalResolve(output, current, velocity.get(), packed[1], c.jitter);
        const Image image = readTexture(output);
        const Image expected =
            smaaResolved(readTexture(current), storedPrevious, c.velocity, QVector2D() - 0.5f * c.jitter);
        saveForViewing(image, QStringLiteral("smaa-resolved-%1").arg(QString::fromLatin1(c.name)));
        // Half floats in, half floats out; the place of a read between texels, where it is between them.
        const bool isBetween = QByteArray(c.name).contains("between") || QByteArray(c.name).startsWith("moving with");
        EXPECT_LE(deviation(c.name, image, expected).largest, 1.0 / 1024.0 + (isBetween ? 1.0 / 256.0 : 0.0));
        EXPECT_GT(pixelsBeyond(expected, withAlpha(readTexture(current), constant(1)), 0.05), 1000);
        EXPECT_EQ(pool.references(previous), 1) << "given back";
        EXPECT_EQ(pool.references(packed[0]), 1) << "given back";
        EXPECT_EQ(pool.references(current), 2) << "kept: the history is the frame before its resolve";
        EXPECT_EQ(pool.references(packed[1]), 2);
    }
}

TEST_F(SMAARenderPassTest, separatesTheTwoSamplesOfAFrame)
{
    const QSize size(40, 30);
    prepare(Smaa::SmaaS2X, size);
    Texture frame(GL_TEXTURE_2D_MULTISAMPLE, GL_RGBA16F, size.width(), size.height(), 0, nullptr);
    {
        AutoBinder binder(&frame);
        glTexImage2DMultisample(GL_TEXTURE_2D_MULTISAMPLE, 2, GL_RGBA16F, size.width(), size.height(), GL_TRUE);
    }
    const QVector4D colors[2] = {{0.25f, 0.5f, 2, 1}, {0.75f, 0, 1, 0.5f}};
    {
        FramebufferObject framebuffer;
        AutoBinder binder(&framebuffer);
        framebuffer.attach(&frame, GL_COLOR_ATTACHMENT0, 0);
        framebuffer.setDrawBuffers();
        const auto source = makeTexture(filled(1, 1, colors[1]), GL_RGBA32F);
        glClearColor(colors[0].x(), colors[0].y(), colors[0].z(), colors[0].w());
        glClear(GL_COLOR_BUFFER_BIT);
        // Sample 1 alone, by a draw under a mask, in the left half.
        glEnable(GL_SAMPLE_MASK);
        glSampleMaski(0, 2);
        glViewport(0, 0, size.width() / 2, size.height());
        drawCopy(source.get());
        glDisable(GL_SAMPLE_MASK);
        glSampleMaski(0, ~0u);
    }
    Texture *const first = target(TextureFormat::HighDynamicRange, size);
    Texture *const second = target(TextureFormat::HighDynamicRange, size);
    pass->doMultiSampleSeparation(&frame, first, second);
    const Image images[2] = {readTexture(first), readTexture(second)};
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            EXPECT_EQ(images[0].pixel(x, y), colors[0]) << x << ", " << y;
            EXPECT_EQ(images[1].pixel(x, y), colors[x < size.width() / 2 ? 1 : 0]) << x << ", " << y;
        }
    }
    // Averaged, as the whole pass does.
    set(pass.get(), Smaa::SmaaS2X, &frame, size);
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    const QVector4D mean = 0.5f * (colors[0] + colors[1]);
    EXPECT_EQ(readTexture(result()).pixel(5, 15), mean);
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
}

// The whole pass

TEST_F(SMAARenderPassTest, smoothsFramesAsTheReferenceDoesInAllModes)
{
    const int width = frameSize.width();
    const int height = frameSize.height();
    const QVector2D jitters[2] = {
        {0.5f / float(width), -0.5f / float(height)}, {-0.5f / float(width), 0.5f / float(height)}};
    const SmaaSlices none = {0, 0, 0, 0};
    const SmaaSlices two[] = {{1, 1, 1, 0}, {2, 2, 2, 0}};
    const SmaaSlices four[] = {{5, 3, 1, 3}, {4, 6, 2, 3}, {3, 5, 1, 4}, {6, 4, 2, 4}};
    const Image pictures[] = {edgeChart(width, height), renderedFrame(frameSize)};
    for (int mode : {Smaa::Smaa1X, Smaa::SmaaS2X, Smaa::SmaaT2X, Smaa::Smaa4X}) {
        for (bool hdr : {true, false}) {
            SCOPED_TRACE(std::string(modeNames[mode]) + (hdr ? " HDR" : " LDR"));
            pass = std::make_unique<Smaa>();
            pass->setup(nullptr);
            pass->setNumOutputUsers(0, 1);
            Image history;
            QVector2D lastJitter;
            for (int f = 0; f < 3; ++f) {
                const Image &picture = pictures[f % 2];
                const int format = hdr ? GL_RGBA16F : GL_RGBA8;
                const auto frame =
                    wantsSamples(mode) ? makeMultisampleTexture(picture, format, 2) : makeTexture(picture, format);
                const QVector2D jitter = jitters[f % 2];
                const Image velocity = filled(width, height,
                    QVector4D(
                        0.5f * (jitter - lastJitter) + QVector2D(4.0f / float(width), -3.0f / float(height)), 0, 0));
                const auto velocityTexture = makeTexture(velocity, GL_RGBA32F);
                set(pass.get(), mode, frame.get(), frameSize, velocityTexture.get(), nullptr, hdr);
                pass->setInput(Smaa::JitterIndex, f % 2);
                pass->setInput(Smaa::JitterAmount, jitter);
                pass->start(nullptr);
                ASSERT_NE(result(), nullptr);
                EXPECT_EQ(result()->internalFormat(0), format);
                const Image image = readTexture(result());
                TextureManager::Instance()->releaseTempTextureRef(result(), 1);
                saveForViewing(
                    image, QStringLiteral("smaa-%1-%2-%3").arg(QString::fromLatin1(modeNames[mode])).arg(hdr).arg(f));

                // What the frame holds, and its encoded copy as the driver makes it: edges may hang on its last bit.
                const auto plain = makeTexture(picture, format);
                const Image input = readTexture(plain.get());
                Texture *const encoded = target();
                pass->applyGamma(plain.get(), encoded, 2.2f);
                const SmaaEdges edges = smaaEdges(readTexture(encoded), nullptr);
                TextureManager::Instance()->releaseTempTextureRef(encoded, 1);
                Image blended(width, height);
                const int passes = wantsSamples(mode) ? 2 : 1;
                for (int p = 0; p < passes; ++p) {
                    const SmaaSlices &slices = mode == Smaa::Smaa1X ? none
                        : mode == Smaa::SmaaS2X                     ? two[p]
                        : mode == Smaa::SmaaT2X                     ? two[f % 2]
                                                                    : four[p + 2 * (f % 2)];
                    const Image one = smaaBlended(
                        input, quantised(smaaWeights(edges.edges, slices)), isTemporal(mode) ? &velocity : nullptr);
                    for (int i = 0; i < blended.data.size(); ++i)
                        blended.data[i] = p == 0 ? one.data[i] : 0.5f * (blended.data[i] + one.data[i]);
                }
                Image expected = blended;
                if (isTemporal(mode)) {
                    if (!hdr)
                        blended = quantised(blended);
                    expected = smaaResolved(
                        blended, history.data.isEmpty() ? blended : history, velocity, 0.5f * (lastJitter - jitter));
                    history = blended;
                }
                lastJitter = jitter;
                // Weights that are stored one step of 8 bits apart, twice in the modes of two samples or frames, on edges of
                // full contrast; half of a byte that the driver's blend rounds its way.
                const double tolerance = 4.0 / 255.0;
                const double mean = !hdr && wantsSamples(mode) ? 0.5 / 255.0 : 0.0003;
                EXPECT_LE(deviation(modeNames[mode], image, expected).mean, mean);
                // A pixel whose greatest weights are equal in 8 bits may be mixed along the other axis: two small weights, on
                // edges of full contrast.
                EXPECT_EQ(edges.openCount, 0);
                EXPECT_LE(pixelsBeyond(image, expected, tolerance), 4);
                EXPECT_LE(maximumDifference(image, expected), 18.0 / 255.0);
                EXPECT_GT(pixelsBeyond(expected, input, 0.1), 100);
            }
        }
    }
}

TEST_F(SMAARenderPassTest, leavesFlatImagesExactlyAsTheyAre)
{
    const QSize size(48, 40);
    for (int mode : {Smaa::Smaa1X, Smaa::SmaaS2X, Smaa::SmaaT2X, Smaa::Smaa4X}) {
        for (const QVector4D &color : {QVector4D(0.6f, 0.2f, 0.4f, 1), QVector4D(0, 0, 0, 1), QVector4D(1, 1, 1, 1),
                 QVector4D(0.001f, 0.999f, 0.333f, 1), QVector4D(3, 0.1f, 70, 1)}) {
            const Image image = filled(size.width(), size.height(), color);
            for (bool hdr : {false, true}) {
                Smaa smaa;
                smaa.setup(nullptr);
                smaa.setNumOutputUsers(0, 1);
                const int format = hdr ? GL_RGBA16F : GL_RGBA8;
                const auto plain = makeTexture(image, format);
                const auto frame =
                    wantsSamples(mode) ? makeMultisampleTexture(image, format, 2) : makeTexture(image, format);
                const auto velocity = makeTexture(Image(size.width(), size.height()), GL_RGBA16F);
                set(&smaa, mode, frame.get(), size, velocity.get(), nullptr, hdr);
                // Some drivers blend in the target's 8 bits, where the sum of two halves is even. Half floats lose nothing.
                const Image expected =
                    wantsSamples(mode) && !hdr ? halvedAndAdded(image, format) : readTexture(plain.get());
                EXPECT_LE(maximumDifference(expected, readTexture(plain.get())), 2.0 * byteTolerance);
                for (int f = 0; f < 3; ++f) {
                    smaa.start(nullptr);
                    EXPECT_EQ(maximumDifference(readTexture(result(smaa)), expected), 0.0)
                        << modeNames[mode] << (hdr ? " HDR" : " LDR") << " frame " << f;
                    TextureManager::Instance()->releaseTempTextureRef(result(smaa), 1);
                }
            }
        }
    }
}

TEST_F(SMAARenderPassTest, averagesEqualSamplesToThemselves)
{
    const QSize size(16, 16);
    prepare(Smaa::Smaa1X, size);
    Image flats(256, 1);
    for (int byte = 0; byte < 256; ++byte)
        flats.setPixel(byte, 0, QVector4D(float(byte), 255.0f - float(byte), float(byte / 2), 255.0f) / 255.0f);
    const Image stored = readTexture(makeTexture(flats, GL_RGBA8).get());
    const Image averages = halvedAndAdded(flats, GL_RGBA8);
    // Said of a driver whose blend does not round to the target's 8 bits before it adds.
    const bool isExact = qEnvironmentVariableIsSet("KVZ_EXPECT_EXACT_BLEND");
    EXPECT_LE(maximumDifference(averages, stored), isExact ? 0.0 : 2.0 * byteTolerance);
    for (int byte = 0; byte < 256; ++byte) {
        const auto flat = makeTexture(filled(size.width(), size.height(), flats.pixel(byte, 0)), GL_RGBA8);
        Texture *const average = linear(Image(size.width(), size.height()));
        glViewport(0, 0, size.width(), size.height());
        for (int sample : {0, 1})
            pass->doSmaa1x(average, nullptr, flat.get(), nullptr, nullptr, sample);
        EXPECT_EQ(
            maximumDifference(readTexture(average), filled(size.width(), size.height(), averages.pixel(byte, 0))), 0.0)
            << byte;
        TextureManager::Instance()->releaseTempTextureRef(average, 1);
    }
}

TEST_F(SMAARenderPassTest, leavesSmoothImagesAsTheyAre)
{
    Image ramp(48, 40);
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 48; ++x)
            ramp.setPixel(x, y, QVector4D(0.3f + 0.01f * float(x), 0.4f, 0.3f + 0.008f * float(y), 1));
    }
    const QSize size(48, 40);
    for (int mode : {Smaa::Smaa1X, Smaa::SmaaS2X, Smaa::SmaaT2X, Smaa::Smaa4X}) {
        for (bool hdr : {false, true}) {
            Smaa smaa;
            smaa.setup(nullptr);
            smaa.setNumOutputUsers(0, 1);
            const int format = hdr ? GL_RGBA16F : GL_RGBA8;
            const auto plain = makeTexture(ramp, format);
            const auto frame = wantsSamples(mode) ? makeMultisampleTexture(ramp, format, 2) : makeTexture(ramp, format);
            const auto velocity = makeTexture(Image(48, 40), GL_RGBA16F);
            set(&smaa, mode, frame.get(), size, velocity.get(), nullptr, hdr);
            // Half of two equal bytes may be one more or less, by the driver's blend; between texels that differ, a filter
            // that is off by the place's last bit costs half floats theirs, once in each draw.
            const double tolerance = hdr ? 1.0 / 1024.0 : wantsSamples(mode) ? 2.0 * byteTolerance : 0.0;
            for (int f = 0; f < 3; ++f) {
                smaa.start(nullptr);
                EXPECT_LE(maximumDifference(readTexture(result(smaa)), readTexture(plain.get())), tolerance)
                    << modeNames[mode] << (hdr ? " HDR" : " LDR") << " frame " << f;
                TextureManager::Instance()->releaseTempTextureRef(result(smaa), 1);
            }
        }
    }
}

TEST_F(SMAARenderPassTest, keepsTransparencyInAlphaUnderTheMacroOfIts)
{
    // No mode defines it; the shaders hold it ready.
    ChangedShaders shaders("#define SMAA_GLSL_3 1", "#define SMAA_GLSL_3 1\n#define SMAA_TRANSPARENCY 1");
    prepare(Smaa::SmaaT2X);
    EXPECT_EQ(shaders.changed, 10);
    const Image frame = edgeChart(frameSize.width(), frameSize.height());
    const Image velocity = filled(frameSize.width(), frameSize.height(), QVector4D(0.03f, 0.04f, 0, 0));
    const auto velocityTexture = makeTexture(velocity, GL_RGBA32F);
    Texture *const colour = linear(frame);
    Texture *const weights = linear(Image(frameSize.width(), frameSize.height()));
    Texture *const blended = linear(Image(frameSize.width(), frameSize.height()));
    Texture *const packed = target(TextureFormat::Velocity);
    Texture *const output = target();
    pass->neighbourhoodBlending(blended, colour, weights, velocityTexture.get(), packed);
    EXPECT_EQ(maximumDifference(readTexture(blended), readTexture(colour)), 0.0) << "alpha is the frame's";
    EXPECT_NEAR(readTexture(packed).pixel(30, 30).x(), 0.5f, byteTolerance);
    for (Texture *texture : {blended, packed})
        TextureManager::Instance()->addTempTextureRef(texture, 1);
    pass->release();
    ASSERT_TRUE(log.takeDebug().isEmpty());
    pass->init();
    log.takeDebug();
    pass->doTemporalResolve(output, blended, velocityTexture.get(), packed, QVector2D());
    const Image resolved = readTexture(output);
    EXPECT_EQ(resolved.pixel(200, 118).w(), readTexture(colour).pixel(200, 118).w());
    EXPECT_TRUE(std::any_of(resolved.data.begin(), resolved.data.end(), [](float value) { return value != 1.0f; }));
}

TEST_F(SMAARenderPassTest, definesItsMacrosInOrder)
{
    struct Case
    {
        int mode;
        bool predication;
        int programs;
    };
    for (const Case &c : {Case{Smaa::Smaa1X, false, 4}, Case{Smaa::SmaaS2X, true, 5}, Case{Smaa::SmaaT2X, true, 5},
             Case{Smaa::Smaa4X, false, 6}}) {
        SCOPED_TRACE(modeNames[c.mode]);
        pass = std::make_unique<Smaa>();
        ChangedShaders shaders("no such text", "");
        prepare(c.mode, QSize(40, 30), c.predication);
        QVector<QByteArray> texts;
        for (const QByteArray &text : qAsConst(shaders.texts)) {
            if (text.contains("SMAA_"))
                texts.append(text); // And not the test's own.
        }
        EXPECT_EQ(texts.size(), 2 * c.programs);
        QStringList expected = {QStringLiteral("SMAA_RT_METRICS float4(1.0 / 40.0, 1.0 / 30.0, 40.0, 30.0)"),
            QStringLiteral("SMAA_GLSL_3 1"), QStringLiteral("SMAA_PRESET_ULTRA 1")};
        if (c.predication)
            expected.append(QStringLiteral("SMAA_PREDICATION 1"));
        if (isTemporal(c.mode))
            expected += {QStringLiteral("SMAA_REPROJECTION 1"), QStringLiteral("SMAA_JITTER_COMPENSATION 1")};
        for (const QByteArray &text : qAsConst(texts)) {
            const QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'));
            EXPECT_EQ(lines.first(), QStringLiteral("#version 150"));
            QStringList defines;
            for (int i = 2; i < lines.size() && lines[i].startsWith(QLatin1String("#define SMAA_")); ++i)
                defines.append(lines[i].mid(8));
            EXPECT_EQ(defines.mid(0, expected.size()), expected);
            if (text.contains("u_gamma"))
                continue;
            const bool vertex = text.contains("KVZ_STAGE_VERTEX");
            if (vertex && defines.size() == expected.size())
                continue; // The gamma program has the vertex text of the others.
            EXPECT_EQ(defines.mid(expected.size(), 2),
                QStringList({QStringLiteral("SMAA_INCLUDE_VS %1").arg(vertex ? 1 : 0),
                    QStringLiteral("SMAA_INCLUDE_PS %1").arg(vertex ? 0 : 1)}));
        }
    }
}

TEST_F(SMAARenderPassTest, reportsItsModesAtDebugLevel)
{
    const auto plain = makeTexture(filled(20, 20, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    const auto samples = makeMultisampleTexture(filled(20, 20, QVector4D(1, 1, 1, 1)), GL_RGBA8, 2);
    pass->setup(nullptr);
    for (int mode : {0, 1, 2, 3}) {
        for (bool predication : {true, false}) {
            set(pass.get(), mode, wantsSamples(mode) ? samples.get() : plain.get(), QSize(20, 20), plain.get(),
                predication ? plain.get() : nullptr);
            pass->start(nullptr);
            QStringList expected = {QStringLiteral("SMAA mode: %1").arg(QString::fromLatin1(modeNames[mode]))};
            if (predication)
                expected.append(QStringLiteral("SMAA predication on"));
            ASSERT_EQ(log.messages().size(), expected.size());
            const QRegularExpression form(QStringLiteral("^\\[SMAARenderPass:[1-9][0-9]*\\] (.*)$"));
            for (int i = 0; i < expected.size(); ++i) {
                EXPECT_EQ(log.messages()[i].type, QtDebugMsg);
                EXPECT_EQ(log.messages()[i].category, QStringLiteral("default"));
                EXPECT_EQ(form.match(log.messages()[i].text).captured(1), expected[i]);
            }
            log.clear();
            pass->start(nullptr);
            EXPECT_TRUE(log.messages().isEmpty()) << "once for each configuration";
        }
    }
}

TEST_F(SMAARenderPassTest, assertsWhatItsModesWantAndGoesOn)
{
    const QSize size(20, 20);
    const auto plain = makeTexture(filled(20, 20, QVector4D(1, 0.5f, 0.25f, 1)), GL_RGBA8);
    const auto samples = makeMultisampleTexture(filled(20, 20, QVector4D(1, 0.5f, 0.25f, 1)), GL_RGBA8, 2);
    const QString noVelocity = QStringLiteral(
        "[ !! ] Assertion 'velocityTexture != NULL' failed: SMAA T2X/4X mode requested, but input velocity texture for "
        "reprojection was not provided.");
    const QString notMultisampled =
        QStringLiteral("[ !! ] Assertion 'frameTexture->target() == GL_TEXTURE_2D_MULTISAMPLE' failed: The input frame "
                       "texture must be of "
                       "type GL_TEXTURE_2D_MULTISAMPLE for SMAA %1");
    for (int mode : {0, 1, 2, 3}) {
        for (Texture *frame : {plain.get(), samples.get()}) {
            for (Texture *velocity : {static_cast<Texture *>(nullptr), plain.get()}) {
                SCOPED_TRACE(std::string(modeNames[mode]) + (frame == plain.get() ? " plain" : " samples")
                    + (velocity ? " velocity" : ""));
                QStringList expected;
                if (isTemporal(mode) && !velocity)
                    expected.append(noVelocity);
                if (wantsSamples(mode) && frame == plain.get())
                    expected.append(
                        notMultisampled.arg(mode == Smaa::SmaaS2X ? QStringLiteral("S2X") : QStringLiteral("4X")));
                Smaa smaa;
                smaa.setup(nullptr);
                smaa.setNumOutputUsers(0, 1);
                set(&smaa, mode, frame, size, velocity);
                for (int f = 0; f < 2; ++f) {
                    log.clear();
                    smaa.start(nullptr);
                    QStringList found;
                    for (const QString &text : log.takeCriticals()) {
                        EXPECT_TRUE(text.startsWith(QStringLiteral("[SMAARenderPass:"))) << qPrintable(text);
                        found.append(text.mid(text.indexOf(QStringLiteral("] ")) + 2));
                    }
                    EXPECT_EQ(found, expected) << "each frame";
                    ASSERT_NE(result(smaa), nullptr) << "none stops the frame";
                    if (wantsSamples(mode) == (frame == samples.get())) {
                        EXPECT_NEAR(readTexture(result(smaa)).pixel(9, 9).y(), 0.5f, 2e-3f);
                    }
                    TextureManager::Instance()->releaseTempTextureRef(result(smaa), 1);
                    takeGLErrors();
                }
                EXPECT_EQ(smaa.errorCode(), 0u);
            }
        }
    }
    log.clear();
}

TEST_F(SMAARenderPassTest, asksForTheRowOfThePassAndTheJitter)
{
    const int expected[4][2][2] = {{{0, 0}, {0, 0}}, {{0, 0}, {1, 1}}, {{0, 1}, {0, 1}}, {{0, 2}, {1, 3}}};
    for (int mode : {0, 1, 2, 3}) {
        prepare(mode, QSize(20, 20));
        for (int p : {0, 1}) {
            for (int jitter : {0, 1})
                EXPECT_EQ(pass->getSubSampleIndex(p, jitter), expected[mode][p][jitter]) << modeNames[mode];
        }
    }
    EXPECT_TRUE(log.messages().isEmpty());

    const auto plain = makeTexture(filled(20, 20, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    for (int mode : {4, -1}) {
        set(pass.get(), mode, plain.get(), QSize(20, 20));
        pass->start(nullptr);
        EXPECT_EQ(pass->getSubSampleIndex(1, 1), 0);
        const QStringList criticals = log.takeCriticals();
        ASSERT_EQ(criticals.size(), 1);
        EXPECT_TRUE(
            criticals[0].endsWith(QStringLiteral("[ !! ] Assertion 'false' failed: SMAA: the returned subsample "
                                                 "index for mode %1 will probably be incorrect")
                                      .arg(mode)))
            << qPrintable(criticals[0]);
    }
    // Each left a target behind.
    for (const TextureManager::PooledTexture &texture : TextureManager::Instance()->pooledTextures()) {
        if (texture.references > 0)
            TextureManager::Instance()->releaseTempTextureRef(
                const_cast<Texture *>(texture.texture), texture.references);
    }
}

TEST_F(SMAARenderPassTest, drawsWithTheRowOfTheJitterOnItsPort)
{
    const auto plain = makeTexture(filled(20, 20, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    const auto samples = makeMultisampleTexture(filled(20, 20, QVector4D(1, 1, 1, 1)), GL_RGBA8, 2);
    using Rows = QVector<QVector4D>;
    const auto rows = [&](int mode, const QVariant &jitterIndex) {
        Rows found;
        GLCallRecorder<&epoxy_glUniform4fv> calls;
        calls.onCall = [&](GLint, GLsizei, const GLfloat *v) { found.append(QVector4D(v[0], v[1], v[2], v[3])); };
        set(pass.get(), mode, wantsSamples(mode) ? samples.get() : plain.get(), QSize(20, 20), plain.get());
        pass->setInput(Smaa::JitterIndex, jitterIndex);
        pass->start(nullptr);
        return found;
    };
    pass->setup(nullptr);
    EXPECT_EQ(rows(0, 1), Rows({QVector4D()}));
    EXPECT_EQ(rows(1, 1), Rows({{1, 1, 1, 0}, {2, 2, 2, 0}}));
    EXPECT_EQ(rows(2, QVariant()), Rows({{1, 1, 1, 0}})) << "without a jitter always the first";
    EXPECT_EQ(rows(2, QStringLiteral("none")), Rows({{1, 1, 1, 0}})) << "what does not convert is 0";
    EXPECT_EQ(rows(2, 0), Rows({{1, 1, 1, 0}}));
    EXPECT_EQ(rows(2, 1), Rows({{2, 2, 2, 0}}));
    EXPECT_EQ(rows(3, 0), Rows({{5, 3, 1, 3}, {4, 6, 2, 3}}));
    EXPECT_EQ(rows(3, 1), Rows({{3, 5, 1, 4}, {6, 4, 2, 4}}));
    EXPECT_EQ(rows(2, 7), Rows({{2, 2, 2, 0}})) << "past the end it stays within the table";
}

TEST_F(SMAARenderPassTest, givesTheResolveTheChangeOfTheJitter)
{
    const QSize size(40, 30);
    const auto plain = makeTexture(filled(40, 30, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    pass->setup(nullptr);
    const auto vectors = [&](const QVariant &jitter) {
        set(pass.get(), 2, plain.get(), size, plain.get());
        pass->setInput(Smaa::JitterAmount, jitter);
        VectorUniforms uniforms;
        pass->start(nullptr);
        return uniforms.values;
    };
    const QVector2D texel(float(1.0 / 40.0), float(1.0 / 30.0));
    const QVector2D a(0.25f, -0.5f);
    const QVector2D b(-0.5f, 0.125f);
    EXPECT_EQ(vectors(a), QVector<QVector2D>({-0.5f * a, texel})) << "before the first there is none";
    EXPECT_EQ(vectors(b), QVector<QVector2D>({0.5f * (a - b)}));
    EXPECT_EQ(vectors(QVariant()), QVector<QVector2D>({0.5f * b}));
    // The jitter outlives the history.
    vectors(a);
    set(pass.get(), 0, plain.get(), size);
    pass->start(nullptr);
    EXPECT_EQ(vectors(b), QVector<QVector2D>({0.5f * (a - b), texel}));
}

// A pixel changes where it or a neighbour has a weight, and weights are at edges. Saves the sheet of the documentation.
TEST_F(SMAARenderPassTest, changesPixelsAtEdgesAlone)
{
    const QSize size(480, 270);
    prepare(Smaa::Smaa1X, size);
    const auto frame = makeTexture(renderedFrame(size), GL_RGBA8);
    Texture *const encoded = target(TextureFormat::LowDynamicRange, size);
    Texture *const edges = target(TextureFormat::LowDynamicRange, size);
    Texture *const stencil = target(TextureFormat::DepthStencil, size);
    Texture *const weights = target(TextureFormat::LowDynamicRange, size);
    pass->applyGamma(frame.get(), encoded, 2.2f);
    pass->edgeDetection(edges, stencil, encoded, nullptr);
    pass->blendingWeightCalculation(weights, edges, stencil, 0);
    set(pass.get(), Smaa::Smaa1X, frame.get(), size, nullptr, nullptr, false);
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    const Image before = readTexture(frame.get());
    const Image found = readTexture(edges);
    const Image shares = readTexture(weights);
    const Image after = readTexture(result());
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);

    const auto sum = [](const Image &image, int x, int y) {
        const Color color = texel(image, x, y);
        return color[0] + color[1] + color[2] + color[3];
    };
    int changed = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            if (sum(shares, x, y) > 0) {
                EXPECT_GT(texel(found, x, y)[0] + texel(found, x, y)[1], 0.0) << x << ", " << y;
            }
            const bool mayChange = sum(shares, x, y) + sum(shares, x + 1, y) + sum(shares, x, y + 1) > 0;
            const bool changes = after.pixel(x, y) != before.pixel(x, y);
            EXPECT_TRUE(mayChange || !changes) << x << ", " << y;
            changed += changes ? 1 : 0;
        }
    }
    EXPECT_GT(changed, 500);

    // The frame and the result over the edges and the weights, five times as large.
    const QPoint corner(196, 112);
    const QSize part(96, 64);
    constexpr int scale = 5;
    constexpr int gap = 4;
    Image sheet = filled(2 * scale * part.width() + gap, 2 * scale * part.height() + gap, QVector4D(1, 1, 1, 1));
    for (int tile = 0; tile < 4; ++tile) {
        for (int y = 0; y < scale * part.height(); ++y) {
            for (int x = 0; x < scale * part.width(); ++x) {
                const int sx = corner.x() + x / scale;
                const int sy = corner.y() + y / scale;
                const QVector4D w = shares.pixel(sx, sy);
                const QVector4D tiles[] = {before.pixel(sx, sy), after.pixel(sx, sy), found.pixel(sx, sy),
                    QVector4D(2 * w.x(), 2 * w.y(), 2 * std::max(w.z(), w.w()), 1)};
                sheet.setPixel(x + tile % 2 * (scale * part.width() + gap),
                    y + (1 - tile / 2) * (scale * part.height() + gap), QVector4D(tiles[tile].toVector3D(), 1));
            }
        }
    }
    saveForViewing(sheet, QStringLiteral("SMAARenderPass"));
}

// Life and references

TEST_F(SMAARenderPassTest, aNullFrameEndsTheFrame)
{
    Texture *const predicate = pool.take(TextureFormat::LowDynamicRange, 8, 8, 2);
    Texture *const velocity = pool.take(TextureFormat::HighDynamicRange, 8, 8, 2);
    pass->setup(nullptr);
    const auto plain = makeTexture(filled(8, 8, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    set(pass.get(), 0, plain.get(), QSize(8, 8));
    pass->start(nullptr);
    ASSERT_TRUE(pass->output(0).isValid());
    log.clear();

    set(pass.get(), Smaa::SmaaT2X, nullptr, QSize(16, 16), velocity, predicate);
    const int references = pool.allReferences();
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    GLCallRecorder<&epoxy_glLinkProgram> links;
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(pool.references(predicate), 1);
    EXPECT_EQ(pool.references(velocity), 1);
    EXPECT_EQ(pool.allReferences(), references - 2);
    EXPECT_TRUE(draws.calls.empty());
    EXPECT_TRUE(links.calls.empty());
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(SMAARenderPassTest, countsReferencesOnEveryPath)
{
    const QSize size(24, 18);
    for (int mode : {0, 1, 2, 3}) {
        for (int frameSamples : {1, 2}) {
            for (int velocitySamples : {0, 1, 2}) {
                for (bool withPredicate : {false, true}) {
                    for (int users : {0, 1, 2}) {
                        if (isTemporal(mode) && velocitySamples == 0)
                            continue; // The next test.
                        if (wantsSamples(mode) && frameSamples == 1)
                            continue;
                        SCOPED_TRACE(std::string(modeNames[mode]) + " frame " + std::to_string(frameSamples)
                            + " velocity " + std::to_string(velocitySamples) + " users " + std::to_string(users));
                        PooledTextures textures;
                        Texture *const frame = textures.take(TextureFormat::HighDynamicRange, 24, 18, 4, frameSamples);
                        Texture *const velocity = velocitySamples
                            ? textures.take(TextureFormat::ResolvedVelocity, 24, 18, 4, velocitySamples)
                            : nullptr;
                        Texture *const predicate =
                            withPredicate ? textures.take(TextureFormat::LowDynamicRange, 24, 18, 4) : nullptr;
                        const int before = textures.allReferences();
                        const int inputs = 1 + (velocity ? 1 : 0) + (predicate ? 1 : 0);
                        const int history = isTemporal(mode) ? 2 : 0;
                        {
                            Smaa smaa;
                            smaa.setup(nullptr);
                            smaa.setNumOutputUsers(0, users);
                            set(&smaa, mode, frame, size, velocity, predicate);
                            for (int f = 1; f <= 3; ++f) {
                                smaa.start(nullptr);
                                EXPECT_EQ(textures.references(frame), 4 - f);
                                if (velocity) {
                                    EXPECT_EQ(textures.references(velocity), 4 - f);
                                }
                                if (predicate) {
                                    EXPECT_EQ(textures.references(predicate), 4 - f);
                                }
                                ASSERT_NE(result(smaa), nullptr);
                                EXPECT_EQ(textures.references(result(smaa)), users);
                                EXPECT_EQ(textures.allReferences(), before - f * inputs + history + users);
                                TextureManager::Instance()->releaseTempTextureRef(result(smaa), users);
                            }
                            EXPECT_TRUE(log.takeCriticals().isEmpty());
                        }
                        EXPECT_EQ(textures.allReferences(), before - 3 * inputs) << "the destructor drops the history";
                    }
                }
            }
        }
    }
}

TEST_F(SMAARenderPassTest, clearsItsTargetBeforeAllElse)
{
    const auto plain = makeTexture(filled(12, 8, QVector4D(1, 1, 1, 1)), GL_RGBA8);
    for (int mode : {0, 1, 2, 3}) {
        SCOPED_TRACE(modeNames[mode]);
        Smaa smaa;
        smaa.setup(nullptr);
        set(&smaa, mode, plain.get(), QSize(12, 8), plain.get());
        for (int f = 0; f < 2; ++f) {
            const int before = pool.allReferences();
            int clears = 0;
            GLCallRecorder<&epoxy_glClear> recorder;
            recorder.onCall = [&](GLbitfield mask) {
                if (clears++ > 0)
                    return;
                EXPECT_EQ(mask, GLbitfield(GL_COLOR_BUFFER_BIT));
                EXPECT_EQ(pool.allReferences(), before + 1) << "nothing else is taken yet";
                EXPECT_TRUE(log.takeCriticals().isEmpty()) << "nothing is said about the samples yet";
            };
            smaa.start(nullptr);
            EXPECT_GT(clears, 3);
            EXPECT_EQ(log.takeCriticals().size(), wantsSamples(mode) ? 1 : 0);
            takeGLErrors(); // Of the frame that has no samples.
        }
    }
    log.clear();
}

TEST_F(SMAARenderPassTest, holdsBothSamplesUntilTheResolve)
{
    const QSize size(12, 8);
    const auto samples = makeMultisampleTexture(filled(12, 8, QVector4D(1, 1, 1, 1)), GL_RGBA8, 2);
    const auto still = makeTexture(Image(12, 8), GL_RGBA16F);
    pass->setup(nullptr);
    set(pass.get(), Smaa::Smaa4X, samples.get(), size, still.get());
    for (int f = 0; f < 3; ++f) {
        const int history = f == 0 ? 0 : 2;
        int atLastDraw = 0;
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        draws.onCall = [&](GLenum, GLint, GLsizei) { atLastDraw = pool.allReferences(); };
        pass->start(nullptr);
        EXPECT_EQ(draws.calls.size(), 10u);
        // The target, its resolve, the packed velocity and the two samples.
        EXPECT_EQ(atLastDraw, history + 5) << "frame " << f;
        EXPECT_EQ(pool.allReferences(), 2) << "the history";
    }
}

TEST_F(SMAARenderPassTest, countsReferencesOnItsWrongPathsToo)
{
    const QSize size(24, 18);
    struct Case
    {
        int mode;
        int frameSamples;
        bool velocity;
    };
    for (const Case &c : {Case{2, 1, false}, Case{2, 2, false}, Case{3, 2, false}, Case{1, 1, true}, Case{3, 1, true},
             Case{3, 1, false}}) {
        SCOPED_TRACE(std::string(modeNames[c.mode]) + " frame " + std::to_string(c.frameSamples));
        PooledTextures textures;
        Texture *const frame = textures.take(TextureFormat::HighDynamicRange, 24, 18, 3, c.frameSamples);
        Texture *const velocity = c.velocity ? textures.take(TextureFormat::ResolvedVelocity, 24, 18, 3) : nullptr;
        const int before = textures.allReferences();
        {
            Smaa smaa;
            smaa.setup(nullptr);
            set(&smaa, c.mode, frame, size, velocity);
            for (int f = 1; f <= 2; ++f) {
                smaa.start(nullptr);
                EXPECT_EQ(textures.allReferences(), before - f * (c.velocity ? 2 : 1) + (isTemporal(c.mode) ? 2 : 0));
            }
        }
        EXPECT_FALSE(log.takeCriticals().isEmpty());
        EXPECT_EQ(textures.allReferences(), before - 2 * (c.velocity ? 2 : 1));
        takeGLErrors();
    }
}

TEST_F(SMAARenderPassTest, givesInputsBackWhenItIsSkippedAndKeepsTheHistory)
{
    const QSize size(24, 18);
    pass->setup(nullptr);
    const auto plain = makeTexture(filled(24, 18, QVector4D(1, 1, 1, 1)), GL_RGBA16F);
    const auto still = makeTexture(Image(24, 18), GL_RGBA16F);
    set(pass.get(), 2, plain.get(), size, still.get());
    pass->start(nullptr);
    const int history = pool.allReferences();
    EXPECT_EQ(history, 2);

    Texture *const frame = pool.take(TextureFormat::HighDynamicRange, 24, 18, 2);
    Texture *const velocity = pool.take(TextureFormat::HighDynamicRange, 24, 18, 2);
    Texture *const predicate = pool.take(TextureFormat::HighDynamicRange, 24, 18, 2);
    set(pass.get(), 2, frame, size, velocity, predicate);
    pass->skip(nullptr);
    for (Texture *texture : {frame, velocity, predicate})
        EXPECT_EQ(pool.references(texture), 1);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(pool.allReferences(), history + 3);

    // The next frame is resolved with the one before the skip.
    const auto black = makeTexture(filled(24, 18, QVector4D(0, 0, 0, 1)), GL_RGBA16F);
    set(pass.get(), 2, black.get(), size, still.get());
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    EXPECT_EQ(readTexture(result()).pixel(5, 5), QVector4D(0.5f, 0.5f, 0.5f, 1));
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
}

TEST_F(SMAARenderPassTest, dropsTheHistoryAtEachChangeOfItsConfiguration)
{
    const auto picture = [](float grey) { return filled(24, 18, QVector4D(grey, grey, grey, 1)); };
    const auto white = makeTexture(picture(1), GL_RGBA16F);
    const auto black = makeTexture(picture(0), GL_RGBA16F);
    const auto whiteSamples = makeMultisampleTexture(picture(1), GL_RGBA16F, 2);
    const auto blackSamples = makeMultisampleTexture(picture(0), GL_RGBA16F, 2);
    const auto still = makeTexture(Image(24, 18), GL_RGBA16F);
    struct State
    {
        const char *name;
        int mode;
        QSize size;
        bool predicate;
    };
    const State base = {"base", 2, QSize(24, 18), false};
    const State changes[] = {{"wider", 2, QSize(25, 18), false}, {"higher", 2, QSize(24, 19), false},
        {"with a predicate", 2, QSize(24, 18), true}, {"in 4X", 3, QSize(24, 18), false},
        {"in 1x", 0, QSize(24, 18), false}, {"in S2X", 1, QSize(24, 18), false}};
    // Gamma, edges, weights and blending; the resolve; the separation.
    const auto programsOf = [](int mode) { return 4 + int(isTemporal(mode)) + int(wantsSamples(mode)); };
    const auto run = [&](const State &state, bool isWhite) {
        Texture *const frame =
            wantsSamples(state.mode) ? (isWhite ? whiteSamples : blackSamples).get() : (isWhite ? white : black).get();
        set(pass.get(), state.mode, frame, state.size, still.get(), state.predicate ? still.get() : nullptr);
        GLCallRecorder<&epoxy_glLinkProgram> links;
        pass->start(nullptr);
        const float grey = readTexture(result()).pixel(5, 5).x();
        TextureManager::Instance()->releaseTempTextureRef(result(), 1);
        return std::make_pair(grey, int(links.calls.size()));
    };
    pass->setup(nullptr);
    pass->setNumOutputUsers(0, 1);
    for (const State &changed : changes) {
        SCOPED_TRACE(changed.name);
        run(base, true);
        EXPECT_EQ(run(base, true), std::make_pair(1.0f, 0));
        EXPECT_EQ(run(base, false), std::make_pair(0.5f, 0)) << "the history is there";
        run(base, true);
        const auto [grey, links] = run(changed, false);
        EXPECT_EQ(grey, 0.0f) << "resolved with itself";
        EXPECT_EQ(links, programsOf(changed.mode)) << "every program is built anew";
        run(changed, true);
        EXPECT_EQ(pool.allReferences(), isTemporal(changed.mode) ? 2 : 0);
        const auto [back, again] = run(base, false);
        EXPECT_EQ(back, 0.0f) << "and on the way back";
        EXPECT_EQ(again, programsOf(base.mode));
    }
    // What is read each frame changes nothing.
    run(base, true);
    pass->setInput(Smaa::JitterIndex, 1);
    pass->setInput(Smaa::JitterAmount, QVector2D());
    EXPECT_EQ(run(base, false), std::make_pair(0.5f, 0));
}

TEST_F(SMAARenderPassTest, resolvesAMultisampledFrameFirst)
{
    const QSize size(40, 30);
    const Image picture = photograph(40, 30);
    for (int mode : {0, 2}) {
        const auto still = makeTexture(Image(40, 30), GL_RGBA16F);
        const auto multisampledStill = makeMultisampleTexture(Image(40, 30), GL_RGBA16F, 2);
        Image results[2];
        for (int i : {0, 1}) {
            Smaa smaa;
            smaa.setup(nullptr);
            smaa.setNumOutputUsers(0, 1);
            const auto frame = i ? makeMultisampleTexture(picture, GL_RGBA16F, 2) : makeTexture(picture, GL_RGBA16F);
            set(&smaa, mode, frame.get(), size, i ? multisampledStill.get() : still.get());
            smaa.start(nullptr);
            results[i] = readTexture(result(smaa));
            TextureManager::Instance()->releaseTempTextureRef(result(smaa), 1);
        }
        EXPECT_EQ(maximumDifference(results[0], results[1]), 0.0) << modeNames[mode];
    }
    // A multisampled velocity alone, in 4X.
    const auto frame = makeMultisampleTexture(picture, GL_RGBA16F, 2);
    Texture *const velocity = pool.take(TextureFormat::ResolvedVelocity, 40, 30, 2, 2);
    pass->setup(nullptr);
    set(pass.get(), 3, frame.get(), size, velocity);
    pass->start(nullptr);
    EXPECT_EQ(pool.references(velocity), 1);
}

TEST_F(SMAARenderPassTest, aModeThatIsNoneGivesNullAndLosesItsTarget)
{
    const QSize size(24, 18);
    Texture *const frame = pool.take(TextureFormat::HighDynamicRange, 24, 18, 3);
    Texture *const velocity = pool.take(TextureFormat::HighDynamicRange, 24, 18, 3);
    pass->setup(nullptr);
    pass->setNumOutputUsers(0, 2);
    for (int mode : {4, -1}) {
        set(pass.get(), mode, frame, size, velocity);
        const int before = pool.allReferences();
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        pass->start(nullptr);
        EXPECT_TRUE(draws.calls.empty());
        EXPECT_EQ(pass->output(0).userType(), qMetaTypeId<Texture *>());
        EXPECT_EQ(result(), nullptr);
        EXPECT_EQ(pool.allReferences(), before - 2 + 1);
        EXPECT_EQ(log.takeDebug().filter(QStringLiteral("SMAA mode: ")).size(), 1);
    }
    for (const TextureManager::PooledTexture &texture : TextureManager::Instance()->pooledTextures()) {
        if (texture.references > 0 && texture.texture != frame && texture.texture != velocity)
            TextureManager::Instance()->releaseTempTextureRef(
                const_cast<Texture *>(texture.texture), texture.references);
    }
}

TEST_F(SMAARenderPassTest, aFirstFrameAsConstructedNeverBuildsThePrograms)
{
    const Image picture = photograph(64, 64);
    const auto frame = makeTexture(picture, GL_RGBA16F);
    const auto still = makeTexture(Image(64, 64), GL_RGBA16F);
    for (bool setUp : {true, false}) {
        log.clear();
        pass = std::make_unique<Smaa>();
        if (setUp)
            pass->setup(nullptr);
        pass->setNumOutputUsers(0, 1);
        set(pass.get(), 2, frame.get(), QSize(64, 64), still.get());
        for (int f = 0; f < 2; ++f) {
            GLCallRecorder<&epoxy_glLinkProgram> links;
            GLCallRecorder<&epoxy_glDrawArrays> draws;
            pass->start(nullptr);
            EXPECT_TRUE(links.calls.empty());
            EXPECT_TRUE(draws.calls.empty());
            EXPECT_TRUE(log.takeDebug().isEmpty());
            ASSERT_NE(result(), nullptr);
            EXPECT_EQ(maximumDifference(readTexture(result()), Image(64, 64)), 0.0) << "cleared, and no more";
            TextureManager::Instance()->releaseTempTextureRef(result(), 1);
        }
        EXPECT_EQ(pool.allReferences(), 2) << "the history is kept all the same";
        // Any change, and back, mends it.
        set(pass.get(), 2, frame.get(), QSize(64, 63), still.get());
        pass->start(nullptr);
        TextureManager::Instance()->releaseTempTextureRef(result(), 1);
        set(pass.get(), 2, frame.get(), QSize(64, 64), still.get());
        pass->start(nullptr);
        EXPECT_GT(maximumDifference(readTexture(result()), Image(64, 64)), 0.5);
        TextureManager::Instance()->releaseTempTextureRef(result(), 1);
    }
    log.clear();
}

TEST_F(SMAARenderPassTest, doesNotLetAForeignValueOnThePredicateCrashIt)
{
    // Not null, and no texture: the programs want a predicate and read black.
    const auto frame = makeTexture(photograph(24, 18), GL_RGBA16F);
    pass->setup(nullptr);
    pass->setNumOutputUsers(0, 1);
    set(pass.get(), 0, frame.get(), QSize(24, 18));
    pass->setInput(Smaa::Predicate, 3);
    pass->start(nullptr);
    EXPECT_EQ(log.takeDebug().filter(QStringLiteral("predication on")).size(), 1);
    EXPECT_GT(maximumDifference(readTexture(result()), Image(24, 18)), 0.5);
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
    // A null texture is as good as none.
    pass->setInput(Smaa::Predicate, QVariant::fromValue(static_cast<Texture *>(nullptr)));
    pass->start(nullptr);
    EXPECT_TRUE(log.takeDebug().filter(QStringLiteral("predication on")).isEmpty());
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
}

TEST_F(SMAARenderPassTest, followsTheFormatsOfItsPorts)
{
    const auto frame = makeTexture(filled(24, 18, QVector4D(3, 0.5f, 0, 1)), GL_RGBA16F);
    pass->setup(nullptr);
    pass->setNumOutputUsers(0, 1);
    const QPair<QVariant, int> cases[] = {{true, GL_RGBA16F}, {false, GL_RGBA8}, {QVariant(), GL_RGBA8},
        {1, GL_RGBA16F}, {QVariant::fromValue(QRect()), GL_RGBA8}};
    for (const auto &[hdr, format] : cases) {
        set(pass.get(), 0, frame.get(), QSize(24, 18));
        pass->setInput(Smaa::RenderInHDR, hdr);
        pass->start(nullptr);
        EXPECT_EQ(result()->internalFormat(0), format);
        EXPECT_NEAR(readTexture(result()).pixel(3, 3).x(), format == GL_RGBA8 ? 1.0f : 3.0f, 1e-3f);
        TextureManager::Instance()->releaseTempTextureRef(result(), 1);
    }
    QSet<TextureFormat> formats;
    TextureManager::Instance()->deleteUnusedTempTextures();
    const auto samples = makeMultisampleTexture(Image(24, 18), GL_RGBA16F, 2);
    const auto still = makeMultisampleTexture(Image(24, 18), GL_RGBA16F, 2);
    set(pass.get(), 3, samples.get(), QSize(24, 18), still.get());
    pass->start(nullptr);
    QMap<int, int> counts;
    for (const TextureManager::PooledTexture &texture : TextureManager::Instance()->pooledTextures()) {
        ++counts[int(texture.format)];
        EXPECT_EQ(texture.width, 24);
        EXPECT_EQ(texture.samples, 1);
        EXPECT_EQ(samplingOf(const_cast<Texture *>(texture.texture)), linearAndClamped());
    }
    // Target, resolve target and two samples; edges, weights and the gamma copy; and one each.
    EXPECT_EQ(counts, (QMap<int, int>{{3, 3}, {5, 1}, {6, 1}, {8, 4}, {24, 1}}));
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
}

TEST_F(SMAARenderPassTest, leavesItsStateBehind)
{
    const auto frame = makeTexture(photograph(24, 18), GL_RGBA16F);
    const auto still = makeTexture(Image(24, 18), GL_RGBA16F);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendEquation(GL_FUNC_REVERSE_SUBTRACT);
    glClearColor(1, 1, 1, 1);
    glClearStencil(7);
    glViewport(3, 4, 5, 6);
    pass->setup(nullptr);
    set(pass.get(), 2, frame.get(), QSize(24, 18), still.get());
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
    EXPECT_EQ(glInteger(GL_STENCIL_WRITEMASK), 0);
    EXPECT_EQ(glInteger(GL_STENCIL_CLEAR_VALUE), 0);
    EXPECT_EQ(glInteger(GL_BLEND_EQUATION_RGB), GL_FUNC_ADD);
    EXPECT_EQ(glInteger(GL_BLEND_SRC_RGB), GL_CONSTANT_COLOR);
    EXPECT_EQ(glInteger(GL_BLEND_DST_ALPHA), GL_CONSTANT_COLOR);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(0, 0, 24, 18));
    GLfloat clear[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    EXPECT_EQ(QVector4D(clear[0], clear[1], clear[2], clear[3]), QVector4D());
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    // The frame keeps the filters, and its wrap modes.
    EXPECT_EQ(samplingOf(frame.get()), linearAndClamped());
}

TEST_F(SMAARenderPassTest, deletesAllItMadeAndNothingAtTeardown)
{
    const auto frame = makeTexture(photograph(24, 18), GL_RGBA16F);
    const auto samples = makeMultisampleTexture(Image(24, 18), GL_RGBA16F, 2);
    const auto still = makeTexture(Image(24, 18), GL_RGBA16F);
    prepare(0, QSize(24, 18)); // So that the device's quad is there.
    const int pooled = TextureManager::Instance()->poolStatistics().references;
    TextureManager::Instance()->deleteUnusedTempTextures();
    const GLObjectCounts before = glObjectCounts();
    {
        Smaa other;
        other.setup(nullptr);
        const int programs[] = {4, 5, 5, 6};
        for (int mode : {0, 1, 2, 3}) {
            set(&other, mode, wantsSamples(mode) ? samples.get() : frame.get(), QSize(24, 18), still.get());
            for (int f = 0; f < 2; ++f) // The history alternates.
                other.start(nullptr);
            EXPECT_EQ(glObjectCounts().programs, before.programs + programs[mode]) << "the old ones are deleted";
            EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 2);
        }
        const GLObjectCounts running = glObjectCounts();
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
        other.start(nullptr);
        EXPECT_TRUE(glObjectCounts() == running);
    }
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, pooled);
    TextureManager::Instance()->deleteUnusedTempTextures();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(SMAARenderPassTest, anEmptyViewportGivesAnEmptyResult)
{
    const auto frame = makeTexture(photograph(24, 18), GL_RGBA16F);
    pass->setup(nullptr);
    set(pass.get(), 0, frame.get(), QSize());
    pass->setInput(Smaa::Viewport, QVariant());
    pass->start(nullptr);
    ASSERT_NE(result(), nullptr);
    EXPECT_EQ(result()->width(0), 0);
    EXPECT_FALSE(takeGLErrors().isEmpty()) << "there is nothing to clear";
    EXPECT_EQ(pass->errorCode(), 0u);
}

// The stencil confines the weights to edges: the shader runs nowhere else.
TEST_F(SMAARenderPassTest, weighsAtEdgesAlone)
{
    prepare(Smaa::Smaa1X);
    const auto input = makeTexture(edgeChart(frameSize.width(), frameSize.height()), GL_RGBA8);
    Texture *const edges = target();
    Texture *const stencil = target(TextureFormat::DepthStencil);
    pass->edgeDetection(edges, stencil, input.get(), nullptr);
    EXPECT_TRUE(glFlag(GL_STENCIL_TEST)) << "it stays on for the weights";
    int atEdges = 0;
    for (int value : readStencil(stencil))
        atEdges += value;
    GLuint query = 0;
    glGenQueries(1, &query);
    glBeginQuery(GL_SAMPLES_PASSED, query);
    pass->blendingWeightCalculation(target(), edges, stencil, 0);
    glEndQuery(GL_SAMPLES_PASSED);
    GLuint drawn = 0;
    glGetQueryObjectuiv(query, GL_QUERY_RESULT, &drawn);
    glDeleteQueries(1, &query);
    EXPECT_EQ(int(drawn), atEdges);
    EXPECT_LT(atEdges, frameSize.width() * frameSize.height() / 4);
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
}

TEST_F(SMAARenderPassTest, tenThousandFramesOfAllModesGrowNothing)
{
    // Each mode after each other one, with and without a predicate in both, and the same in another size.
    struct State
    {
        int mode;
        bool predication;
        QSize size;
    };
    std::vector<State> states;
    for (const QSize &size : {QSize(12, 8), QSize(9, 13)}) {
        for (const auto &[from, to] : {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
            for (int mode : {0, 1, 0, 2, 0, 3, 1, 2, 1, 3, 2, 3, 3})
                states.push_back({mode, states.size() % 2 ? to : from, size});
        }
    }
    std::set<std::pair<int, int>> switches;
    for (size_t i = 1; i < states.size(); ++i)
        switches.insert({states[i - 1].mode, states[i].mode});
    switches.insert({states.back().mode, states.front().mode});
    for (int from : {0, 1, 2, 3}) {
        for (int to : {0, 1, 2, 3})
            EXPECT_TRUE(from == to || switches.count({from, to})) << from << " to " << to;
    }

    constexpr int frames = 10000;
    constexpr int stay = 16;
    const int cycle = stay * int(states.size());
    const auto frame = makeTexture(photograph(12, 8), GL_RGBA16F);
    const auto samples = makeMultisampleTexture(photograph(12, 8), GL_RGBA16F, 2);
    const auto still = makeTexture(Image(12, 8), GL_RGBA16F);
    pass->setup(nullptr);
    pass->setNumOutputUsers(0, 1);
    TextureManager *const manager = TextureManager::Instance();
    manager->deleteUnusedTempTextures();
    TextureManager::PoolStatistics before;
    GLObjectCounts objects;
    int compared = 0;
    for (int f = 0; f <= frames; ++f) {
        const State &state = states[size_t(f % cycle / stay)];
        set(pass.get(), state.mode, wantsSamples(state.mode) ? samples.get() : frame.get(), state.size, still.get(),
            state.predication ? still.get() : nullptr, f % 3 != 0);
        pass->setInput(Smaa::JitterIndex, f % 2);
        if (f % 7 == 3)
            pass->skip(nullptr);
        else
            pass->start(nullptr);
        manager->releaseTempTextureRef(result(), 1);
        if (f % 100 == 0)
            log.clear();
        // At the same place of each cycle, since what a mode takes from the pool stays there.
        if (f % cycle == cycle - 1 && f > 2 * cycle) {
            const TextureManager::PoolStatistics now = manager->poolStatistics();
            if (before.bytes == 0) {
                before = now;
                objects = glObjectCounts();
                continue;
            }
            ++compared;
            EXPECT_EQ(now.references, before.references) << f;
            EXPECT_EQ(now.live, before.live) << f;
            EXPECT_EQ(now.bytes, before.bytes) << f;
            EXPECT_TRUE(glObjectCounts() == objects) << f;
        }
    }
    EXPECT_GT(before.bytes, 0);
    EXPECT_GE(compared, 2);
    manager->deleteUnusedTempTextures();
}

} // namespace Velmora::Kvz
