// SPDX-License-Identifier: MIT
// Which source each input takes, without an OpenGL context.
#include "FakePasses.h"
#include "support/GLTest.h"

#include <Chain/RenderChain.h>

#include <QtCore/QRect>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

namespace {

using Kind = RenderChain::InputSource::Kind;

const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");
const QString amount = QStringLiteral("Kvz_float_Amount");
const QString projection = QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix");

PassRegistry classes()
{
    PassRegistry registry;
    registry.add(fakeClass("Colour", {}, {fakeImageOutput("Kvz_KvzTexture*_Frame", TextureKind::Colour)}));
    registry.add(fakeClass("Positions", {}, {fakeImageOutput("Kvz_KvzTexture*_Frame", TextureKind::Positions)}));
    registry.add(fakeClass("Amount", {}, {fakeOutput("Kvz_float_Amount", ValueType::Float)}));
    registry.add(fakeClass("Jitter", {}, {fakeOutput("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4)}));

    InputInfo steady = fakeInput("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4);
    steady.wiring = ImplicitWiring::FrameOnly;
    registry.add(fakeClass("Steady", {steady}, {}));
    InputInfo asked = fakeImageInput("Kvz_KvzTexture*_Frame", TextureKind::Colour);
    asked.wiring = ImplicitWiring::Never;
    registry.add(fakeClass("Asking", {asked}, {}));
    registry.add(fakeClass("Consumer",
        {fakeImageInput("Kvz_KvzTexture*_Frame", TextureKind::Colour),
            fakeInput("Kvz_float_Amount", ValueType::Float, 2.0f),
            fakeInput("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4)},
        {}));
    registry.add(fakeClass("Anything", {fakeImageInput("Kvz_KvzTexture*_Frame", TextureKind::Any)}, {}));
    return registry;
}

class RenderChainWiringTest : public ::testing::Test
{
protected:
    /// Passes named after their classes, with a number from the second of a class on: "Colour", "Colour2", ….
    void setPasses(const QStringList &classNames)
    {
        ChainDescription description;
        for (const QString &className : classNames) {
            ChainPass pass;
            pass.className = pass.name = className;
            for (int i = 2; description.findPass(pass.name) >= 0; ++i)
                pass.name = className + QString::number(i);
            description.passes.append(pass);
        }
        EXPECT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    }

    /// The source of an input of the last pass: "pass.port", "frame:port", "value" or "default".
    QString source(const QString &port) const
    {
        const auto found = chain.inputSource(chain.description().passes.last().name, port);
        switch (found.kind) {
        case Kind::Default:
            return QStringLiteral("default");
        case Kind::Value:
            return QStringLiteral("value");
        case Kind::Output:
            return ChainSource::output(found.pass, found.port).toString();
        case Kind::Previous:
            return ChainSource::previous(found.pass, found.port).toString();
        case Kind::FrameValue:
            return ChainSource::frameValue(found.port).toString();
        }
        return QString();
    }

    const PassRegistry registry = classes();
    RenderChain chain{registry};
    const QString consumer = QStringLiteral("Consumer");
};

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

} // namespace

TEST_F(RenderChainWiringTest, anInputTakesTheNearestEarlierOutputOfItsName)
{
    setPasses(words("Colour Amount Colour Consumer Colour"));
    const auto found = chain.inputSource(consumer, frame);
    EXPECT_EQ(found.pass, QStringLiteral("Colour2"));
    EXPECT_EQ(chain.inputSource(consumer, amount).pass, QStringLiteral("Amount"));
}

TEST_F(RenderChainWiringTest, itsKindMustFit)
{
    setPasses(words("Colour Positions Consumer"));
    EXPECT_EQ(source(frame), QStringLiteral("Colour.Kvz_KvzTexture*_Frame"));
    setPasses(words("Positions Consumer"));
    EXPECT_EQ(source(frame), QStringLiteral("default"));
    setPasses(words("Colour Positions Anything"));
    EXPECT_EQ(source(frame), QStringLiteral("Positions.Kvz_KvzTexture*_Frame"));
}

TEST_F(RenderChainWiringTest, aSetValueTakesPrecedenceOverAnEarlierOutput)
{
    setPasses(words("Amount Consumer"));
    EXPECT_EQ(source(amount), QStringLiteral("Amount.Kvz_float_Amount"));
    EXPECT_TRUE(chain.setValue(consumer, amount, 3));
    EXPECT_EQ(source(amount), QStringLiteral("value"));
    EXPECT_TRUE(chain.clearValue(consumer, amount));
    EXPECT_EQ(source(amount), QStringLiteral("Amount.Kvz_float_Amount"));
    EXPECT_TRUE(chain.setValue(consumer, amount, QVariant()));
    EXPECT_EQ(source(amount), QStringLiteral("value"));
}

TEST_F(RenderChainWiringTest, anExplicitConnectionTakesPrecedenceOverASetValue)
{
    setPasses(words("Amount Amount Consumer"));
    EXPECT_TRUE(chain.setValue(consumer, amount, 3));
    EXPECT_TRUE(chain.connect(consumer, amount, ChainSource::output(QStringLiteral("Amount"), amount)));
    EXPECT_EQ(source(amount), QStringLiteral("Amount.Kvz_float_Amount"));
    EXPECT_TRUE(chain.connect(consumer, amount, ChainSource::none()));
    EXPECT_EQ(source(amount), QStringLiteral("default"));
    EXPECT_TRUE(chain.connect(consumer, amount, ChainSource::previous(QStringLiteral("Amount2"), amount)));
    EXPECT_EQ(source(amount), QStringLiteral("previous:Amount2.Kvz_float_Amount"));
    EXPECT_TRUE(chain.disconnect(consumer, amount));
    EXPECT_EQ(source(amount), QStringLiteral("value"));
}

TEST_F(RenderChainWiringTest, theFramesValueComesLast)
{
    setPasses(words("Consumer"));
    EXPECT_EQ(source(projection), QStringLiteral("default"));
    chain.setFrameValue(FrameValues::projectionMatrix, QMatrix4x4());
    EXPECT_EQ(source(projection), QStringLiteral("frame:Kvz_QMatrix4x4_ProjectionMatrix"));
    setPasses(words("Jitter Consumer"));
    EXPECT_EQ(source(projection), QStringLiteral("Jitter.Kvz_QMatrix4x4_ProjectionMatrix"));
    setPasses(words("Consumer"));
    chain.setFrameValue(FrameValues::projectionMatrix, QVariant());
    EXPECT_EQ(source(projection), QStringLiteral("default"));
}

TEST_F(RenderChainWiringTest, aFrameValueOfAnotherNameCanBeConnected)
{
    setPasses(words("Consumer"));
    EXPECT_FALSE(chain.connect(consumer, amount, ChainSource::frameValue(QStringLiteral("Kvz_float_Sun"))));
    EXPECT_TRUE(chain.errorString().contains(QStringLiteral("Kvz_float_Sun"))) << qPrintable(chain.errorString());
    chain.setFrameValue(QStringLiteral("Kvz_float_Sun"), 0.5f);
    EXPECT_TRUE(chain.connect(consumer, amount, ChainSource::frameValue(QStringLiteral("Kvz_float_Sun"))));
    EXPECT_EQ(source(amount), QStringLiteral("frame:Kvz_float_Sun"));
}

TEST_F(RenderChainWiringTest, somePortsTakeTheFramesValueOnlyAndSomeMustBeAsked)
{
    chain.setFrameValue(FrameValues::projectionMatrix, QMatrix4x4());
    setPasses(words("Jitter Steady"));
    EXPECT_EQ(source(projection), QStringLiteral("frame:Kvz_QMatrix4x4_ProjectionMatrix"));
    EXPECT_TRUE(
        chain.connect(QStringLiteral("Steady"), projection, ChainSource::output(QStringLiteral("Jitter"), projection)));
    EXPECT_EQ(source(projection), QStringLiteral("Jitter.Kvz_QMatrix4x4_ProjectionMatrix"));

    setPasses(words("Colour Asking"));
    EXPECT_EQ(source(frame), QStringLiteral("default"));
    EXPECT_TRUE(chain.connect(QStringLiteral("Asking"), frame, ChainSource::output(QStringLiteral("Colour"), frame)));
    EXPECT_EQ(source(frame), QStringLiteral("Colour.Kvz_KvzTexture*_Frame"));
}

TEST_F(RenderChainWiringTest, implicitWiringPassesOverDisabledPassesAndExplicitDoesNot)
{
    setPasses(words("Colour Colour Consumer"));
    EXPECT_TRUE(chain.setEnabled(QStringLiteral("Colour2"), false));
    EXPECT_EQ(source(frame), QStringLiteral("Colour.Kvz_KvzTexture*_Frame"));
    EXPECT_TRUE(chain.connect(consumer, frame, ChainSource::output(QStringLiteral("Colour2"), frame)));
    EXPECT_EQ(source(frame), QStringLiteral("Colour2.Kvz_KvzTexture*_Frame"));
    EXPECT_EQ(chain.findings().value(0).code, ChainFinding::Code::DisabledProducer);
    EXPECT_TRUE(chain.setEnabled(QStringLiteral("Colour2"), true));
    EXPECT_TRUE(chain.findings().isEmpty());
}

TEST_F(RenderChainWiringTest, aDisabledPassTakesNoOutputs)
{
    setPasses(words("Colour Amount Consumer"));
    EXPECT_TRUE(chain.setEnabled(consumer, false));
    EXPECT_EQ(source(frame), QStringLiteral("default"));
    EXPECT_EQ(source(amount), QStringLiteral("default"));
}

TEST_F(RenderChainWiringTest, badChangesAreRefusedAndChangeNothing)
{
    setPasses(words("Colour Consumer Amount"));
    const ChainDescription before = chain.description();
    const auto refused = [&](bool done, const char *hint) {
        EXPECT_FALSE(done);
        EXPECT_TRUE(chain.errorString().contains(QString::fromUtf8(hint))) << qPrintable(chain.errorString());
        EXPECT_EQ(chain.description(), before);
    };
    refused(chain.setValue(QStringLiteral("Consummer"), amount, 1), "did you mean \"Consumer\"?");
    refused(chain.setValue(consumer, QStringLiteral("Kvz_float_Amuont"), 1), "did you mean \"Kvz_float_Amount\"?");
    refused(chain.setValue(consumer, amount, QStringLiteral("much")), "expected float, found \"much\"");
    refused(chain.setEnabled(QStringLiteral("X"), false), "no pass named \"X\"");
    refused(chain.connect(consumer, amount, ChainSource::output(QStringLiteral("Amount"), amount)), "runs later");
    refused(chain.connect(consumer, amount, ChainSource::output(QStringLiteral("Colour"), frame)), "expected float");
    refused(chain.setOption(consumer, QStringLiteral("x"), 1), "no options");
    refused(chain.addExport(QStringLiteral("e"), {QStringLiteral("Colour"), amount}), "expected an output of Colour");
    refused(chain.removeExport(QStringLiteral("e")), "no export named \"e\"");
    refused(chain.requestCapture({QStringLiteral("Amount"), amount}), "no image");
}

TEST_F(RenderChainWiringTest, theDescriptionFollowsTheChanges)
{
    setPasses(words("Colour Consumer"));
    EXPECT_TRUE(chain.setValue(consumer, amount, 3));
    EXPECT_TRUE(chain.setEnabled(QStringLiteral("Colour"), false));
    EXPECT_TRUE(chain.connect(consumer, frame, ChainSource::none()));
    EXPECT_TRUE(chain.addExport(QStringLiteral("e"), {QStringLiteral("Colour"), frame}));
    ChainDescription again;
    QString error;
    ASSERT_TRUE(ChainDescription::fromJson(chain.description().toJson(), &again, &error)) << qPrintable(error);
    EXPECT_EQ(again, chain.description());
    EXPECT_EQ(again.passes[1].values.value(amount).toDouble(), 3);
    EXPECT_FALSE(again.passes[0].enabled);
}

TEST_F(RenderChainWiringTest, aChainWithErrorsSaysTheFirst)
{
    ChainDescription description;
    ChainPass pass;
    pass.name = QStringLiteral("a");
    pass.className = QStringLiteral("Color");
    description.passes = {pass};
    EXPECT_FALSE(chain.setDescription(description));
    EXPECT_EQ(chain.errorString(), chain.findings().value(0).toString());
    EXPECT_TRUE(chain.errorString().contains(QStringLiteral("did you mean \"Colour\"?")))
        << qPrintable(chain.errorString());
}

} // namespace Velmora::Kvz
