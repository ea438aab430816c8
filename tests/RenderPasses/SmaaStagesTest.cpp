// SPDX-License-Identifier: MIT
// The stages of SMAARenderPass, called one by one, against their formulas.
#include "SmaaFixture.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/BufferObject.h>
#include <GL/DrawBuffers.h>
#include <GL/GLStatistics.h>

#include <QtCore/QCryptographicHash>

#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

/// The image of this name that the stages are tried on.
Image imageOf(const std::string &name)
{
    return name == "rendered" ? renderedFrame(smaaFrameSize)
        : name == "chart"     ? edgeChart(smaaFrameSize.width(), smaaFrameSize.height())
                              : photograph(smaaFrameSize.width(), smaaFrameSize.height());
}

/// Random edge pixels at every density, so that lines meet in ways that no picture has.
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

} // namespace

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
    // A bound buffer too small for either table: an upload that read from it would be refused.
    BufferObject buffer;
    buffer.setTarget(GL_PIXEL_UNPACK_BUFFER);
    buffer.uploadBytes(nullptr, 4, GL_STATIC_DRAW);
    const auto tables = [&](bool foreignRows, bool foreignBuffer) {
        // The area table, then the search table, as they are stored on the GPU.
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

TEST_F(SMAARenderPassTest, gammaEncodesColoursAndKeepsAlpha)
{
    prepare(Smaa::Smaa1X);
    Image frame = photograph(smaaFrameSize.width(), smaaFrameSize.height(), 6);
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
    // The driver's power function is off by a few units in the last place of 8 bits.
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
    expectWeights(randomEdges(smaaFrameSize.width(), smaaFrameSize.height(), 7), {0, 0, 0, 0}, {}, 0, "random");
}

TEST_F(SMAARenderPassTest, picksTheSlicesOfTheSubsampleTable)
{
    const Image chart = smaaEdges(quantised(edgeChart(smaaFrameSize.width(), smaaFrameSize.height())), nullptr).edges;
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
    const Image frame = renderedFrame(smaaFrameSize);
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
        for (int i = 0; i < smaaFrameSize.width() * smaaFrameSize.height(); ++i) {
            for (int k = 0; k < 2 && !reference.open[size_t(i)]; ++k)
                wrong += found.data[4 * i + k] != reference.edges.data[4 * i + k];
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_LE(reference.openCount, 3);
        EXPECT_GT(reference.count, 300);
        expectWeights(randomEdges(smaaFrameSize.width(), smaaFrameSize.height(), 3), {0, 0, 0, 0}, preset.settings, 0,
            QString::fromLatin1(preset.name).section(QLatin1Char('\n'), -1).toStdString());
    }
}

TEST_P(SmaaStagesTest, mixesPixelsWithTheirNeighboursByTheWeights)
{
    for (int mode : {Smaa::Smaa1X, Smaa::SmaaT2X}) {
        prepare(mode);
        const Image velocity = [] {
            Image image(smaaFrameSize.width(), smaaFrameSize.height());
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
        Texture *const blended =
            linear(Image(smaaFrameSize.width(), smaaFrameSize.height()), TextureFormat::HighDynamicRange);
        Texture *const packed = linear(
            filled(smaaFrameSize.width(), smaaFrameSize.height(), QVector4D(1, 1, 1, 1)), TextureFormat::Velocity);
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
    const auto first =
        makeTexture(filled(smaaFrameSize.width(), smaaFrameSize.height(), {1, 0.5f, 0, 0.5f}), GL_RGBA32F);
    const auto second =
        makeTexture(filled(smaaFrameSize.width(), smaaFrameSize.height(), {0, 0.25f, 3, 1}), GL_RGBA32F);
    Texture *const blended =
        linear(Image(smaaFrameSize.width(), smaaFrameSize.height()), TextureFormat::HighDynamicRange);
    pass->doSmaa1x(blended, nullptr, first.get(), nullptr, nullptr, 0);
    EXPECT_EQ(readTexture(blended).pixel(10, 10), QVector4D(1, 0.5f, 0, 0.5f));
    pass->doSmaa1x(blended, nullptr, second.get(), nullptr, nullptr, 1);
    EXPECT_EQ(readTexture(blended).pixel(10, 10), QVector4D(0.5f, 0.375f, 1.5f, 0.75f));
}

TEST_F(SMAARenderPassTest, resolvesAgainstTheLastFrameWhereTheSurfaceWas)
{
    const int width = smaaFrameSize.width();
    const int height = smaaFrameSize.height();
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
        // The velocity contains the change of jitter, which the resolve removes.
        {"still with jitter", withAlpha(colours, constant(0.05f)), withAlpha(others, constant(0.05f)),
            filled(width, height, QVector4D(0.25f / float(width), -0.5f / float(height), 0, 0)),
            QVector2D(0.5f / float(width), -1.0f / float(height))},
        {"moving with jitter", withAlpha(colours, constant(0.05f)), withAlpha(others, constant(0.05f)),
            filled(width, height, QVector4D(2.25f / float(width), 1.5f / float(height), 0, 0)),
            QVector2D(0.5f / float(width), -1.0f / float(height))},
        // Rounding to half floats leaves a remainder of it.
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

        // The pass remembers the jitter of its latest resolve, which this first one sets.
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
        // Half floats in and out; reads between texels add the error of their position.
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
        // Only sample 1 differs in the left half, drawn with a sample mask.
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
    // Averages the samples, as the whole pass does.
    set(pass.get(), Smaa::SmaaS2X, &frame, size);
    pass->setNumOutputUsers(0, 1);
    pass->start(nullptr);
    const QVector4D mean = 0.5f * (colors[0] + colors[1]);
    EXPECT_EQ(readTexture(result()).pixel(5, 15), mean);
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
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
    // Each call left a target referenced.
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
    // The jitter is remembered even when the history is gone.
    vectors(a);
    set(pass.get(), 0, plain.get(), size);
    pass->start(nullptr);
    EXPECT_EQ(vectors(b), QVector<QVector2D>({0.5f * (a - b), texel}));
}

// The stencil confines the weights to edges; the shader runs nowhere else.
TEST_F(SMAARenderPassTest, weighsAtEdgesAlone)
{
    prepare(Smaa::Smaa1X);
    const auto input = makeTexture(edgeChart(smaaFrameSize.width(), smaaFrameSize.height()), GL_RGBA8);
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
    EXPECT_LT(atEdges, smaaFrameSize.width() * smaaFrameSize.height() / 4);
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
}

} // namespace Velmora::Kvz
