// SPDX-License-Identifier: MIT
// How a chain has made-up passes forget.
#include "RenderChainFixture.h"

#include <QtGui/QColor>

namespace Velmora::Kvz {

namespace {

const char reset[] = "Kvz_bool_ResetTemporal";
const char mode[] = "Kvz_int_JitterMode";

} // namespace

class PastLossTest : public RenderChainFixture
{
protected:
    void SetUp() override
    {
        RenderChainFixture::SetUp();
        add("Jitter", PassTrait::CountsFrames | PassTrait::JittersCamera);
        add("Mean", PassTrait::AccumulatesFrames);
        add("Led", PassTrait::AccumulatesFrames | PassTrait::Reprojects);
        add("Motion", PassTrait::ComparesFrames);
        add("Plain", {});
    }

    /// A class that notes what it is given. Names of passes are those of their classes.
    void add(const char *name, PassTraits traits)
    {
        QVector<InputInfo> inputs = {
            fakeInput(amount, ValueType::Float, 1.0f), fakeImageInput(frame, TextureKind::Any)};
        const bool isJitter = traits.testFlag(PassTrait::JittersCamera);
        const bool isMean = traits == PassTraits(PassTrait::AccumulatesFrames);
        if (isJitter) {
            inputs.append(fakeInput(mode, ValueType::Int, 7));
            inputs.last().stillValue = 3;
        }
        if (isMean) {
            inputs.append(fakeInput(reset, ValueType::Bool, false));
            inputs.last().restartsPast = true;
        }
        inputs[1].required = name == QByteArray("Led");
        const QString label = text(name);
        PassInfo info = fakeClass(
            name, inputs, {},
            [=](FakePass &pass) {
                calls.append(isJitter ? QStringLiteral("%1 %2").arg(label).arg(pass.input(mode).toInt())
                        : isMean && pass.input(reset).toBool() ? label + QStringLiteral(" reset")
                                                               : label);
            },
            [=](const QString &call, FakePass &) {
                if (call == QLatin1String("destroy"))
                    calls.append(label + QStringLiteral(" gone"));
            });
        info.traits = traits;
        if (traits.testFlag(PassTrait::Reprojects))
            info.forgetPast = [=](RenderPass *) { calls.append(label + QStringLiteral(" forgets")); };
        registry.add(info);
    }

    void setPasses(const QStringList &names)
    {
        registry.add(fakeClass("Source", {}, {fakeImageOutput(frame, TextureKind::Colour)}, [this](FakePass &pass) {
            if (hasFrame)
                pass.handOnNew(frame, 8, 4);
            else
                pass.setOutput(frame, QVariant());
        }));
        QVector<ChainPass> passes = {described("source", "Source")};
        for (const QString &name : names)
            passes.append(described(qPrintable(name), qPrintable(name)));
        setChain(passes);
    }

    QStringList nextFrame()
    {
        calls.clear();
        render();
        return calls;
    }

    bool hasFrame = true;
};

TEST_F(PastLossTest, aMeanStartsOverByItsPortAndTheJitterWithIt)
{
    setPasses({"Jitter", "Mean", "Motion", "Plain"});
    const QStringList usual = {"Jitter 7", "Mean", "Motion", "Plain"};
    const QStringList over = {"Jitter gone", "Motion gone", "Jitter 3", "Mean reset", "Motion", "Plain"};
    EXPECT_EQ(nextFrame(), (QStringList{"Jitter 3", "Mean", "Motion", "Plain"})) << "a new pass has nothing to forget";
    EXPECT_EQ(nextFrame(), usual);
    EXPECT_EQ(nextFrame(), usual);

    const QPair<const char *, std::function<void()>> changes[] = {
        {"clear colour", [&] { chain->setClearColor(Qt::red); }},
        {"value of a pass", [&] { EXPECT_TRUE(chain->setValue("Plain", amount, 2.0f)); }},
        {"value of the frame", [&] { chain->setFrameValue("Kvz_float_Time", 1.0f); }},
        {"no value of the frame", [&] { chain->setFrameValue("Kvz_float_Time", QVariant()); }},
        {"no value of a pass", [&] { EXPECT_TRUE(chain->clearValue("Plain", amount)); }},
        {"set of passes", [&] { EXPECT_TRUE(chain->setEnabled("source", false)); }},
        {"what the chain cannot see", [&] { chain->forgetPast(); }},
        {"size", [&] { chain->setViewport(QRect(0, 0, 16, 4)); }},
        {"value of a pass with a past", [&] { EXPECT_TRUE(chain->setValue("Mean", amount, 3.0f)); }},
    };
    for (const auto &change : changes) {
        SCOPED_TRACE(change.first);
        change.second();
        nextFrame();
        EXPECT_EQ(calls, over);
        EXPECT_EQ(nextFrame(), usual);
    }
    // What is set as it was is no change, and neither is what no picture depends on.
    chain->setClearColor(Qt::red);
    EXPECT_TRUE(chain->setValue("Mean", amount, 3.0f));
    EXPECT_TRUE(chain->setEnabled("source", false));
    chain->setViewport(QRect(5, 5, 16, 4));
    chain->setFramebuffer(nullptr);
    EXPECT_EQ(nextFrame(), usual);
}

TEST_F(PastLossTest, whatAVelocityLeadsOnGoesOnUntilNothingIsLeft)
{
    setPasses({"Jitter", "Motion", "Led", "Mean"});
    const QStringList usual = {"Jitter 7", "Motion", "Led", "Mean"};
    EXPECT_EQ(nextFrame(), (QStringList{"Jitter 3", "Motion", "Led", "Mean"}));
    EXPECT_EQ(nextFrame(), usual);
    QMatrix4x4 camera;
    camera.translate(1, 0, 0);
    chain->setCamera(camera, QMatrix4x4());
    QStringList reset = usual;
    reset.last() += QStringLiteral(" reset");
    EXPECT_EQ(nextFrame().mid(0, 3), usual.mid(0, 3)) << "the camera moves";
    chain->setFrameValue("Kvz_float_Time", 1.0f);
    EXPECT_EQ(nextFrame(), reset) << "another value";
    EXPECT_EQ(nextFrame(), usual);
    chain->forgetPast();
    EXPECT_EQ(nextFrame(),
        (QStringList{"Led forgets", "Jitter gone", "Motion gone", "Jitter 3", "Motion", "Led", "Mean reset"}));
    EXPECT_EQ(nextFrame(), usual);
    EXPECT_TRUE(chain->setValue("Led", amount, 5.0f));
    EXPECT_TRUE(nextFrame().contains("Led forgets")) << "its own mode";
}

TEST_F(PastLossTest, aPassThatWasPassedOverBeginsAnewWithoutJitter)
{
    setPasses({"Jitter", "Motion", "Led"});
    nextFrame();
    const QStringList usual = {"Jitter 7", "Motion", "Led"};
    EXPECT_EQ(nextFrame(), usual);
    hasFrame = false;
    EXPECT_EQ(nextFrame(), (QStringList{"Jitter 7", "Motion"}));
    EXPECT_EQ(takeWarnings().size(), 1);
    EXPECT_EQ(nextFrame(), (QStringList{"Led forgets", "Jitter gone", "Motion gone", "Jitter 3", "Motion"}));
    hasFrame = true;
    EXPECT_EQ(nextFrame(), (QStringList{"Jitter gone", "Motion gone", "Jitter 3", "Motion", "Led"}));
    EXPECT_EQ(nextFrame(), usual);
}

} // namespace Velmora::Kvz
