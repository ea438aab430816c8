// SPDX-License-Identifier: MIT
// What SMAARenderPass promises beyond the picture: macros, messages, references, formats, state, objects.
#include "SmaaFixture.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/GLStatistics.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

namespace Velmora::Kvz {

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
                texts.append(text); // The test's own shaders are not counted.
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
                continue; // The gamma program shares the vertex text of the others.
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
                            continue; // Covered by the next test.
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
            takeGLErrors(); // From the frame without samples.
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
        // The target, its resolved copy, the packed velocity and the two samples.
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

    // The next frame is resolved with the one before the skipped one.
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
        EXPECT_EQ(links, programsOf(changed.mode)) << "every program is built again";
        run(changed, true);
        EXPECT_EQ(pool.allReferences(), isTemporal(changed.mode) ? 2 : 0);
        const auto [back, again] = run(base, false);
        EXPECT_EQ(back, 0.0f) << "and on the way back";
        EXPECT_EQ(again, programsOf(base.mode));
    }
    // Inputs that are read in every frame rebuild nothing.
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
    // Only the velocity is multisampled, in 4X.
    const auto frame = makeMultisampleTexture(picture, GL_RGBA16F, 2);
    Texture *const velocity = pool.take(TextureFormat::ResolvedVelocity, 40, 30, 2, 2);
    pass->setup(nullptr);
    set(pass.get(), 3, frame.get(), size, velocity);
    pass->start(nullptr);
    EXPECT_EQ(pool.references(velocity), 1);
}

TEST_F(SMAARenderPassTest, anUnknownModeGivesNullAndLosesItsTarget)
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
        // A change of size and back builds the programs.
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
    // Not null, yet no texture: the programs expect a predicate and read black.
    const auto frame = makeTexture(photograph(24, 18), GL_RGBA16F);
    pass->setup(nullptr);
    pass->setNumOutputUsers(0, 1);
    set(pass.get(), 0, frame.get(), QSize(24, 18));
    pass->setInput(Smaa::Predicate, 3);
    pass->start(nullptr);
    EXPECT_EQ(log.takeDebug().filter(QStringLiteral("predication on")).size(), 1);
    EXPECT_GT(maximumDifference(readTexture(result()), Image(24, 18)), 0.5);
    TextureManager::Instance()->releaseTempTextureRef(result(), 1);
    // A null texture counts as no predicate.
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
    // Target, resolve target and two samples; edges, weights and the gamma copy; and one each of the others.
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
    // The frame keeps the filters and wrap modes that the pass set.
    EXPECT_EQ(samplingOf(frame.get()), linearAndClamped());
}

TEST_F(SMAARenderPassTest, deletesAllItMadeAndNothingAtTeardown)
{
    const auto frame = makeTexture(photograph(24, 18), GL_RGBA16F);
    const auto samples = makeMultisampleTexture(Image(24, 18), GL_RGBA16F, 2);
    const auto still = makeTexture(Image(24, 18), GL_RGBA16F);
    prepare(0, QSize(24, 18)); // Creates the device's quad.
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

} // namespace Velmora::Kvz
