// SPDX-License-Identifier: MIT
// Changes to a running chain: which of them are refused, and which resolve the chain again. No test here has an OpenGL
// context.
#include "FakePasses.h"
#include "ResolutionCounter.h"

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");
const QString amount = QStringLiteral("Kvz_float_Amount");
const QString samples = QStringLiteral("Kvz_int_NumberMultisamples");
const QString pass = QStringLiteral("Consumer");

/// A class with an input that nothing depends on, one that a rule reads, one that a trait depends on, and one that must
/// not be null.
PassInfo consumer()
{
    InputInfo needed = fakeInput("Kvz_QSize_Needed", ValueType::Size);
    needed.required = true;
    PassInfo info = fakeClass("Consumer",
        {fakeInput("Kvz_float_Amount", ValueType::Float, 2.0f), fakeInput("Kvz_float_Ruled", ValueType::Float),
            fakeInput("Kvz_bool_Jitters", ValueType::Bool), fakeInput("Kvz_QRect_Viewport", ValueType::Rect),
            fakeInput("Kvz_QMatrix4x4_CameraMatrix", ValueType::Matrix4x4), needed},
        {});
    const QString ruled = QStringLiteral("Kvz_float_Ruled");
    info.rules = {{ruled, QStringLiteral("a number above 0"), QStringLiteral("0"), QString(),
        [ruled](const PassUse &use) { return use.isFed(ruled) && use.value(ruled).toFloat() <= 0; }}};
    info.conditionalTraits = {{PassTrait::JittersCamera,
        [](const PassUse &use) { return use.value(QStringLiteral("Kvz_bool_Jitters")).toBool(); }}};
    return info;
}

PassRegistry classes()
{
    PassRegistry registry;
    registry.add(consumer());
    OutputInfo image = fakeImageOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour);
    image.samplesInput = samples;
    registry.add(fakeClass("Source", {fakeInput("Kvz_int_NumberMultisamples", ValueType::Int, 1)}, {image}));
    registry.add(fakeClass("Reader", {fakeImageInput("Kvz_KvzTexture*_Frame", TextureKind::Colour)}, {}));
    return registry;
}

class RenderChainEditTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ChainDescription description;
        for (const char *name : {"Source", "Reader", "Consumer"}) {
            ChainPass described;
            described.name = described.className = QString::fromLatin1(name);
            description.passes.append(described);
        }
        description.passes[2].values.insert(QStringLiteral("Kvz_QSize_Needed"), QSize(1, 1));
        ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
        resolutions.take();
    }

    /// Sets a value and returns how often the chain was resolved for it.
    int cost(const QString &port, const QVariant &value)
    {
        EXPECT_TRUE(chain.setValue(pass, port, value)) << qPrintable(chain.errorString());
        return resolutions.take();
    }

    /// Expects a change to be refused with this hint and to have no effect.
    template <typename Change> void expectRefused(const Change &change, const char *hint)
    {
        const ChainDescription before = chain.description();
        EXPECT_FALSE(change());
        EXPECT_TRUE(chain.errorString().contains(QString::fromUtf8(hint))) << qPrintable(chain.errorString());
        EXPECT_EQ(chain.description(), before);
        EXPECT_FALSE(hasErrors(chain.findings()));
        resolutions.take();
    }

    QStringList warnings()
    {
        QStringList ports;
        for (const ChainFinding &finding : chain.findings())
            ports.append(finding.port);
        return ports;
    }

    const PassRegistry registry = classes();
    ResolutionCounter resolutions;
    RenderChain chain{registry};
};

} // namespace

TEST_F(RenderChainEditTest, aValueThatDecidesOnNothingResolvesNothing)
{
    EXPECT_EQ(cost(amount, 0), 1) << "it goes before what the input had by its name";
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(cost(amount, 0.1 * i), 0);
    EXPECT_NEAR(chain.description().passes[2].values.value(amount).toDouble(), 9.9, 1e-6);
    EXPECT_EQ(cost(amount, QVariant()), 1) << "null feeds nothing";
    EXPECT_EQ(cost(amount, 1), 1);
    const QString viewport = FrameValues::viewport;
    EXPECT_EQ(cost(viewport, QRect(0, 0, 4, 4)), 1);
    EXPECT_EQ(cost(viewport, QRect(0, 0, 8, 4)), 0);
    EXPECT_EQ(cost(QStringLiteral("Kvz_QSize_Needed"), QSize(2, 2)), 0);
    EXPECT_TRUE(chain.clearValue(pass, amount));
    EXPECT_EQ(resolutions.take(), 1);
    EXPECT_TRUE(chain.clearValue(pass, amount)) << "there is none";
    EXPECT_EQ(resolutions.take(), 0);
}

TEST_F(RenderChainEditTest, aValueThatARuleReadsResolvesWhenTheRuleChanges)
{
    const QString ruled = QStringLiteral("Kvz_float_Ruled");
    cost(ruled, 1);
    EXPECT_EQ(cost(ruled, 2), 0);
    EXPECT_EQ(warnings(), QStringList());
    resolutions.take();
    EXPECT_EQ(cost(ruled, 0), 1);
    EXPECT_EQ(warnings(), QStringList(ruled));
    EXPECT_EQ(cost(ruled, -1), 0);
    EXPECT_EQ(cost(ruled, 3), 1);
    EXPECT_EQ(warnings(), QStringList());
}

TEST_F(RenderChainEditTest, aValueThatATraitDependsOnResolvesWhenTheTraitChanges)
{
    const QString jitters = QStringLiteral("Kvz_bool_Jitters");
    cost(jitters, false);
    EXPECT_EQ(cost(jitters, false), 0);
    EXPECT_EQ(cost(jitters, true), 1);
    ASSERT_EQ(chain.findings().size(), 1);
    EXPECT_EQ(chain.findings()[0].code, ChainFinding::Code::RoleOrder);
    EXPECT_EQ(cost(jitters, true), 0);
}

TEST_F(RenderChainEditTest, aValueThatCausesAnErrorIsRefused)
{
    const QString source = QStringLiteral("Source");
    EXPECT_TRUE(chain.setValue(source, samples, 1));
    expectRefused([&] { return chain.setValue(source, samples, 4); }, "expected one sample per texel");
    EXPECT_EQ(chain.description().passes[0].values.value(samples), QVariant(1));
    expectRefused(
        [&] { return chain.setValue(pass, QStringLiteral("Kvz_QSize_Needed"), QVariant()); }, "nothing feeds it");
    expectRefused([&] { return chain.clearValue(pass, QStringLiteral("Kvz_QSize_Needed")); }, "nothing feeds it");
    expectRefused([&] { return chain.setValue(pass, FrameValues::viewport, QRect(0, 0, 0, 4)); },
        "a width and height of 1 or more");

    // Without its reader the image may have any number of samples; but then the reader cannot be enabled again.
    EXPECT_TRUE(chain.setEnabled(QStringLiteral("Reader"), false));
    EXPECT_TRUE(chain.setValue(source, samples, 4)) << qPrintable(chain.errorString());
    expectRefused([&] { return chain.setEnabled(QStringLiteral("Reader"), true); }, "4 samples");
    EXPECT_TRUE(chain.clearValue(source, samples));
    EXPECT_TRUE(chain.setEnabled(QStringLiteral("Reader"), true)) << qPrintable(chain.errorString());
}

TEST_F(RenderChainEditTest, aChainWithAnErrorTakesChangesThatCauseNoOther)
{
    ChainDescription broken = chain.description();
    broken.passes[2].values.clear();
    EXPECT_FALSE(chain.setDescription(broken));
    EXPECT_TRUE(chain.setValue(pass, amount, 3)) << qPrintable(chain.errorString());
    EXPECT_FALSE(chain.setValue(QStringLiteral("Source"), samples, 4));
    EXPECT_TRUE(chain.setValue(pass, QStringLiteral("Kvz_QSize_Needed"), QSize(1, 1)));
    EXPECT_FALSE(hasErrors(chain.findings()));
}

TEST_F(RenderChainEditTest, valuesOfTheFrameResolveOnlyWhereTheyDecide)
{
    using Kind = RenderChain::InputSource::Kind;
    const QString camera = FrameValues::cameraMatrix;
    const auto ask = [&] { return chain.inputSource(pass, camera).kind; };
    EXPECT_EQ(ask(), Kind::Default);
    for (int i = 0; i < 10; ++i) {
        QMatrix4x4 moved;
        moved.translate(float(i), 0, 0);
        chain.setCamera(moved, moved);
        chain.setViewport(QRect(0, 0, 8 + i, 8));
        EXPECT_EQ(ask(), Kind::FrameValue);
    }
    EXPECT_EQ(resolutions.take(), 0) << "the standard names are taken for granted";
    chain.setFrameValue(QStringLiteral("mine"), 1);
    ask();
    EXPECT_EQ(resolutions.take(), 1) << "a new name";
    chain.setFrameValue(QStringLiteral("mine"), 2);
    ask();
    EXPECT_EQ(resolutions.take(), 0);
    chain.setFrameValue(samples, 2);
    ask();
    EXPECT_EQ(resolutions.take(), 1);
    chain.setFrameValue(samples, 2);
    ask();
    EXPECT_EQ(resolutions.take(), 0);
    chain.setFrameValue(samples, 4);
    EXPECT_TRUE(hasErrors(chain.findings())) << "it says how many samples the source has";
}

TEST_F(RenderChainEditTest, findingsSeeTheFrameAsItIs)
{
    const QString ruled = QStringLiteral("Kvz_float_Ruled");
    EXPECT_EQ(warnings(), QStringList());
    chain.setFrameValue(ruled, 0.0f);
    EXPECT_EQ(warnings(), QStringList(ruled));
    chain.setFrameValue(ruled, 1.0f);
    EXPECT_EQ(warnings(), QStringList());
}

TEST_F(RenderChainEditTest, aSourceSaysWhetherTheChainNamesIt)
{
    using Kind = RenderChain::InputSource::Kind;
    const QString reader = QStringLiteral("Reader");
    EXPECT_EQ(chain.inputSource(reader, frame).kind, Kind::Output);
    EXPECT_FALSE(chain.inputSource(reader, frame).isExplicit);
    EXPECT_TRUE(chain.connect(reader, frame, ChainSource::output(QStringLiteral("Source"), frame)));
    EXPECT_EQ(chain.inputSource(reader, frame).kind, Kind::Output);
    EXPECT_TRUE(chain.inputSource(reader, frame).isExplicit);
    EXPECT_TRUE(chain.connect(reader, frame, ChainSource::none()));
    EXPECT_EQ(chain.inputSource(reader, frame).kind, Kind::Default);
    EXPECT_TRUE(chain.inputSource(reader, frame).isExplicit);
}

TEST_F(RenderChainEditTest, aHostResolvesAReadyChainTwiceBeforeItsFirstFrame)
{
    ChainDescription description;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("full"), &description, &error)) << qPrintable(error);
    const ResolvedChain resolved(description);
    EXPECT_FALSE(hasErrors(resolved.findings()));
    EXPECT_TRUE(resolved.presents());
    EXPECT_TRUE(resolved.takesLights());
    RenderChain running;
    running.setViewport(QRect(0, 0, 64, 64));
    running.setCamera(QMatrix4x4(), QMatrix4x4());
    EXPECT_TRUE(running.setDescription(description)) << qPrintable(running.errorString());
    running.inputSource(QStringLiteral("maps"), FrameValues::lights);
    running.shaderFiles();
    EXPECT_EQ(resolutions.take(), 2);
}

} // namespace Velmora::Kvz
