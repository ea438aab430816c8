// SPDX-License-Identifier: MIT
// Whole frames of SMAARenderPass, in all modes.
#include "SmaaFixture.h"
#include "support/ChangedShaders.h"

#include <GL/DrawBuffers.h>
#include <GL/GLStatistics.h>

#include <QtGui/QVector3D>

#include <set>

namespace Velmora::Kvz {

namespace {

/// Blends an image over nothing, then itself over that at half weight. The result is the image again, within the
/// precision of GL's blend.
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

} // namespace

TEST_F(SMAARenderPassTest, smoothsFramesAsTheReferenceDoesInAllModes)
{
    const int width = smaaFrameSize.width();
    const int height = smaaFrameSize.height();
    const QVector2D jitters[2] = {
        {0.5f / float(width), -0.5f / float(height)}, {-0.5f / float(width), 0.5f / float(height)}};
    const SmaaSlices none = {0, 0, 0, 0};
    const SmaaSlices two[] = {{1, 1, 1, 0}, {2, 2, 2, 0}};
    const SmaaSlices four[] = {{5, 3, 1, 3}, {4, 6, 2, 3}, {3, 5, 1, 4}, {6, 4, 2, 4}};
    const Image pictures[] = {edgeChart(width, height), renderedFrame(smaaFrameSize)};
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
                set(pass.get(), mode, frame.get(), smaaFrameSize, velocityTexture.get(), nullptr, hdr);
                pass->setInput(Smaa::JitterIndex, f % 2);
                pass->setInput(Smaa::JitterAmount, jitter);
                pass->start(nullptr);
                ASSERT_NE(result(), nullptr);
                EXPECT_EQ(result()->internalFormat(0), format);
                const Image image = readTexture(result());
                TextureManager::Instance()->releaseTempTextureRef(result(), 1);
                saveForViewing(
                    image, QStringLiteral("smaa-%1-%2-%3").arg(QString::fromLatin1(modeNames[mode])).arg(hdr).arg(f));

                // The content of the frame, and its encoded copy as the driver computes it: an edge can depend on the
                // last bit.
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
                // Weights stored one step of 8 bits apart, twice in the modes of two samples or frames, on edges of
                // full contrast. The mean allows for half a byte, by which the driver's blend may round.
                const double tolerance = 4.0 / 255.0;
                const double mean = !hdr && wantsSamples(mode) ? 0.5 / 255.0 : 0.0003;
                EXPECT_LE(deviation(modeNames[mode], image, expected).mean, mean);
                // A pixel whose greatest weights are equal in 8 bits may be mixed along the other axis: two small
                // weights on edges of full contrast.
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
                // Some drivers blend in the 8 bits of the target, where the sum of two halves is even. Half floats lose
                // nothing.
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
    // Set for a driver whose blend does not round to 8 bits before it adds.
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
            // The blend of a driver may make the sum of two equal halves one byte more or less. Between differing
            // texels, a position that is off by its last bit costs a step of half floats in each draw.
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
    // No mode defines this macro, but the shaders support it.
    ChangedShaders shaders("#define SMAA_GLSL_3 1", "#define SMAA_GLSL_3 1\n#define SMAA_TRANSPARENCY 1");
    prepare(Smaa::SmaaT2X);
    EXPECT_EQ(shaders.changed, 10);
    const Image frame = edgeChart(smaaFrameSize.width(), smaaFrameSize.height());
    const Image velocity = filled(smaaFrameSize.width(), smaaFrameSize.height(), QVector4D(0.03f, 0.04f, 0, 0));
    const auto velocityTexture = makeTexture(velocity, GL_RGBA32F);
    Texture *const colour = linear(frame);
    Texture *const weights = linear(Image(smaaFrameSize.width(), smaaFrameSize.height()));
    Texture *const blended = linear(Image(smaaFrameSize.width(), smaaFrameSize.height()));
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

// A pixel changes only where it or a neighbour has a weight, and weights lie on edges. Saves the sheet for the
// documentation.
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

    // The frame and the result above the edges and the weights, enlarged five times.
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

TEST_F(SMAARenderPassTest, tenThousandFramesOfAllModesGrowNothing)
{
    // Each mode after every other one, each with and without a predicate, and the same in another size.
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
        // Compares the same frame of each cycle, since textures that a mode takes from the pool stay there.
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
