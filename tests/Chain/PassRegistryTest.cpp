// SPDX-License-Identifier: MIT
#include "FakePasses.h"
#include "support/GLTest.h"
#include "support/Image.h"
#include "support/Meshes.h"
#include "support/PortListing.h"

#include <Chain/NearestNames.h>
#include <Chain/PassOptions.h>
#include <Chain/PassRegistry.h>
#include <Core/RenderPass.h>
#include <GL/DrawBuffers.h>
#include <GL/Texture.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

namespace {

/// The fewest options that a class can be constructed with: required ones get their first choice.
QVariantMap leastOptions(const PassInfo &info)
{
    QVariantMap options;
    for (const OptionInfo &option : info.options) {
        if (option.required && option.type == ValueType::Enumeration)
            options.insert(option.name, 0);
    }
    return options;
}

QStringList sorted(QStringList names)
{
    names.sort();
    return names;
}

std::unique_ptr<RenderPass> make(const QString &className, const QVariantMap &given)
{
    const PassInfo *info = PassRegistry::standard().find(className);
    QVector<OptionProblem> problems;
    const PassOptions options = resolveOptions(*info, given, &problems);
    EXPECT_TRUE(problems.isEmpty()) << qPrintable(problems.value(0).option);
    return info->create(options);
}

} // namespace

using PassRegistryTest = GLTest;

TEST_F(PassRegistryTest, everyConstructedPassHasThePortsOfTheListing)
{
    const QMap<QString, QStringList> listing = portListing();
    EXPECT_EQ(QStringList(listing.keys()), sorted(PassRegistry::standard().classNames()));
    for (const QString &name : PassRegistry::standard().classNames()) {
        SCOPED_TRACE(qPrintable(name));
        const PassInfo &info = *PassRegistry::standard().find(name);
        const std::unique_ptr<RenderPass> pass = make(name, leastOptions(info));
        ASSERT_TRUE(pass);
        EXPECT_EQ(portRows(*pass, info), listing.value(name));
        for (int i = 0; i < pass->numOutputs(); ++i)
            EXPECT_FALSE(pass->output(i).isValid()) << "an output before the first frame: " << i;
    }
}

TEST_F(PassRegistryTest, everyEntryHasThePortsOfTheConstructedPass)
{
    const QStringList names = PassRegistry::standard().classNames();
    EXPECT_GE(names.size(), 8);
    for (const QString &name : names) {
        SCOPED_TRACE(qPrintable(name));
        const PassInfo &info = *PassRegistry::standard().find(name);
        EXPECT_EQ(info.className, name);
        const std::unique_ptr<RenderPass> pass = make(name, leastOptions(info));
        ASSERT_TRUE(pass);
        ASSERT_EQ(pass->numInputs(), info.inputs.size());
        ASSERT_EQ(pass->numOutputs(), info.outputs.size());
        for (int i = 0; i < info.inputs.size(); ++i) {
            const InputInfo &input = info.inputs[i];
            EXPECT_EQ(input.name, pass->inputName(i));
            EXPECT_EQ(input.defaultValue.isValid(), pass->defaultValue(i).isValid()) << qPrintable(input.name);
            EXPECT_EQ(input.defaultValue, pass->defaultValue(i)) << qPrintable(input.name);
        }
        for (int i = 0; i < info.outputs.size(); ++i)
            EXPECT_EQ(info.outputs[i].name, pass->outputName(i));
    }
}

TEST_F(PassRegistryTest, everyEntryIsDescribedAndFollowsTheGrammarOfPortNames)
{
    for (const QString &name : PassRegistry::standard().classNames()) {
        SCOPED_TRACE(qPrintable(name));
        const PassInfo &info = *PassRegistry::standard().find(name);
        EXPECT_FALSE(info.summary.isEmpty());
        const auto checkPort = [](const PortInfo &port) {
            EXPECT_FALSE(port.description.isEmpty()) << qPrintable(port.name);
            ValueType type;
            if (typeFromPortName(port.name, &type)) {
                EXPECT_TRUE(canFeed(type, port.type)) << qPrintable(port.name);
            }
            if (port.type == ValueType::Texture) {
                EXPECT_EQ(port.texture.kind == TextureKind::Depth, port.texture.display == TextureDisplay::Depth);
            }
        };
        for (const InputInfo &input : info.inputs) {
            checkPort(input);
            EXPECT_FALSE(input.whenNull.isEmpty()) << qPrintable(input.name);
            for (const QString &other : input.refusesSamplesWith)
                EXPECT_GE(info.findInput(other), 0) << qPrintable(other);
            EXPECT_TRUE(input.samplesAs.isEmpty() || info.findInput(input.samplesAs) >= 0);
        }
        for (const OutputInfo &output : info.outputs) {
            checkPort(output);
            EXPECT_TRUE(output.type != ValueType::Texture || output.texture.internalFormat) << qPrintable(output.name);
            EXPECT_TRUE(output.passesOn.isEmpty() || info.findInput(output.passesOn) >= 0);
            EXPECT_TRUE(output.samplesInput.isEmpty() || info.findInput(output.samplesInput) >= 0);
        }
        for (const OptionInfo &option : info.options)
            EXPECT_FALSE(option.description.isEmpty()) << qPrintable(option.name);
        for (const UseRule &rule : info.rules)
            EXPECT_TRUE(info.findInput(rule.port) >= 0 || info.findOption(rule.port) >= 0) << qPrintable(rule.port);
    }
}

TEST_F(PassRegistryTest, passesThatFillTheBackgroundSaySo)
{
    QStringList names;
    for (const QString &name : PassRegistry::standard().classNames()) {
        if (PassRegistry::standard().find(name)->traits.testFlag(PassTrait::Background))
            names.append(name);
    }
    EXPECT_EQ(sorted(names),
        (QStringList{QStringLiteral("BackdropRenderPass"), QStringLiteral("BackgroundGradientRenderPass"),
            QStringLiteral("BackgroundImageRenderPass"), QStringLiteral("GradientRenderPass"),
            QStringLiteral("SkyboxRenderPass")}));
    EXPECT_EQ(toStringList(PassTrait::Background), QStringList(QStringLiteral("fills the background")));
}

TEST_F(PassRegistryTest, opaqueOnlyReachesThePassesThatHaveIt)
{
    QMatrix4x4 nearer;
    nearer.translate(0, 0, -0.5f);
    GPUModelBuilder builder;
    MaterialData white;
    white.isUnlit = true;
    white.kd = QVector3D(1, 1, 1);
    MaterialData green = white;
    green.kd = QVector3D(0, 1, 0);
    builder.addItem(builder.addMesh(wallMesh()), builder.addMaterial(white));
    builder.addItem(builder.addMesh(wallMesh()), builder.addMaterial(green), nearer, GPUModel::Transparent);
    const QSharedPointer<GPUModel> model = builder.build();
    for (const char *name : {"LitForwardRenderPass", "SurfaceRenderPass"}) {
        for (const bool isOpaqueOnly : {false, true}) {
            const std::unique_ptr<RenderPass> pass =
                make(QString::fromLatin1(name), {{QStringLiteral("opaqueOnly"), isOpaqueOnly}});
            pass->setInput(0, QRect(0, 0, 2, 2));
            pass->setInput(3, QVariant::fromValue(model.data()));
            pass->start(nullptr);
            const Image image = readTexture(pass->output(0).value<Texture *>());
            EXPECT_EQ(image.pixel(1, 1), isOpaqueOnly ? QVector4D(1, 1, 1, 1) : QVector4D(0, 1, 0, 1)) << name;
        }
    }
    for (const bool isSet : {false, true}) {
        const std::unique_ptr<RenderPass> pass = make(QStringLiteral("ItemIdRenderPass"),
            {{QStringLiteral("opaqueOnly"), isSet}, {QStringLiteral("falseColours"), isSet}});
        pass->setInput(0, QRect(0, 0, 2, 2));
        pass->setInput(3, QVariant::fromValue(model.data()));
        pass->start(nullptr);
        EXPECT_EQ(readTexture(pass->output(0).value<Texture *>()).at(1, 1)[0], isSet ? 1 : 2);
        EXPECT_EQ(pass->output(2).value<Texture *>() != nullptr, isSet);
    }
}

TEST_F(PassRegistryTest, optionsReachThePass)
{
    const auto trianglesOf = [](const QVariantMap &options) {
        const std::unique_ptr<RenderPass> pass = make(QStringLiteral("PrimitiveBuilderRenderPass"), options);
        pass->start(nullptr);
        return pass->output(0).value<DrawBuffers *>() != nullptr;
    };
    const QVariantMap cube{{QStringLiteral("shape"), QStringLiteral("cube")}};
    EXPECT_FALSE(trianglesOf({}));
    EXPECT_TRUE(trianglesOf({{QStringLiteral("primitives"), QVariantList{cube}}}));
    EXPECT_TRUE(trianglesOf({{QStringLiteral("useIndirectDrawCommands"), false}}));
}

TEST(PassOptionsTest, namesAndNumbersOfEnumeratorsAreTaken)
{
    const PassInfo &blend = *PassRegistry::standard().find(QStringLiteral("BlendRenderPass"));
    const auto mode = [&](const QVariant &given) {
        return resolveOptions(blend, {{QStringLiteral("mode"), given}}).value(QStringLiteral("mode"));
    };
    EXPECT_EQ(mode(QStringLiteral("SrcOver")), QVariant(3));
    EXPECT_EQ(mode(QStringLiteral("MultiplyKeepAlpha")), QVariant(25));
    EXPECT_EQ(mode(7), QVariant(7));
    EXPECT_FALSE(mode(26).isValid());
    EXPECT_FALSE(mode(QStringLiteral("srcover")).isValid());
}

TEST(PassOptionsTest, defaultsAreFilledInAlsoWithinRecords)
{
    const PassInfo &builder = *PassRegistry::standard().find(QStringLiteral("PrimitiveBuilderRenderPass"));
    const QVariantList given{QVariantMap{
        {QStringLiteral("shape"), QStringLiteral("quad")}, {QStringLiteral("position"), QVariantList{1, 2, 3}}}};
    const PassOptions options = resolveOptions(builder, {{QStringLiteral("primitives"), given}});
    EXPECT_EQ(options.value(QStringLiteral("useIndirectDrawCommands")), QVariant(true));
    const QVariantMap primitive = options.value(QStringLiteral("primitives")).toList().value(0).toMap();
    EXPECT_EQ(primitive.value(QStringLiteral("shape")), QVariant(0));
    EXPECT_EQ(primitive.value(QStringLiteral("size")), QVariant(1.0f));
    EXPECT_EQ(primitive.value(QStringLiteral("position")).value<QVector3D>(), QVector3D(1, 2, 3));
}

TEST(PassRegistryDataTest, aCustomRegistryReplacesAndKeepsOrder)
{
    PassRegistry registry;
    EXPECT_EQ(registry.find(QStringLiteral("B")), nullptr);
    registry.add(fakeClass("B", {}, {}));
    registry.add(fakeClass("A", {}, {}));
    registry.add(fakeClass("B", {fakeInput("x", ValueType::Int)}, {}));
    EXPECT_EQ(registry.classNames(), (QStringList{QStringLiteral("A"), QStringLiteral("B")}));
    ASSERT_NE(registry.find(QStringLiteral("B")), nullptr);
    EXPECT_EQ(registry.find(QStringLiteral("B"))->inputNames(), QStringList(QStringLiteral("x")));
}

TEST(NearestNamesTest, misspeltNamesAreFoundNearestFirst)
{
    const QStringList known{QStringLiteral("BlendRenderPass"), QStringLiteral("GradientRenderPass"),
        QStringLiteral("ModelRenderPass"), QStringLiteral("ModelDeferredPass")};
    EXPECT_EQ(nearestNames(QStringLiteral("Gradiant"), known), QStringList(QStringLiteral("GradientRenderPass")));
    EXPECT_EQ(nearestNames(QStringLiteral("blendpass"), known), QStringList(QStringLiteral("BlendRenderPass")));
    EXPECT_EQ(nearestNames(QStringLiteral("Model"), known).value(0), QStringLiteral("ModelRenderPass"));
    EXPECT_TRUE(nearestNames(QStringLiteral("Model"), known).contains(QStringLiteral("ModelDeferredPass")));
    EXPECT_EQ(nearestNames(QStringLiteral("Quaternion"), known), QStringList());
}

TEST(NearestNamesTest, theHintListsAFewKnownNamesWhenNoneIsNear)
{
    const QStringList few{QStringLiteral("alpha"), QStringLiteral("beta")};
    EXPECT_EQ(nearestNamesAdvice(QStringLiteral("zzzzzz"), few), QStringLiteral("known: \"alpha\", \"beta\""));
    EXPECT_EQ(nearestNamesAdvice(QStringLiteral("zzzzzz"), {}), QString());
}

TEST(NearestNamesTest, theHintBringsItsSeparatorOrIsEmpty)
{
    const QStringList many =
        QStringLiteral("alpha beta gamma delta epsilon zeta theta lambda omega").split(QLatin1Char(' '));
    EXPECT_EQ(nearestNamesHint(QStringLiteral("epsilom"), many), QStringLiteral("; did you mean \"epsilon\"?"));
    EXPECT_EQ(nearestNamesHint(QStringLiteral("zzzzzz"), many.mid(0, 1)), QStringLiteral("; known: \"alpha\""));
    EXPECT_EQ(nearestNamesHint(QStringLiteral("zzzzzz"), many), QString());
    EXPECT_EQ(nearestNamesHint(QStringLiteral("zzzzzz"), {}), QString());
    EXPECT_EQ(nearestNamesHint(QStringLiteral("zzzzzz"), many, QStringLiteral("look")), QStringLiteral("; look"));
    EXPECT_EQ(nearestNamesAdvice(QStringLiteral("zzzzzz"), {}, QStringLiteral("look")), QStringLiteral("look"));
}

} // namespace Velmora::Kvz
