// SPDX-License-Identifier: MIT
// No test here has an OpenGL context, and no pass is ever constructed.
#include "FakePasses.h"
#include "support/GLTest.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Code = ChainFinding::Code;
using Severity = ChainFinding::Severity;

const char frame[] = "Kvz_KvzTexture*_Frame";
const char depth[] = "Kvz_KvzTexture*_Depth";

/// Classes for the rules that need them. Constructing one is a failure.
PassRegistry fakes()
{
    PassRegistry registry = PassRegistry::standard();
    const auto add = [&](PassInfo info) {
        info.create = [](const PassOptions &) -> std::unique_ptr<RenderPass> {
            ADD_FAILURE() << "validation constructed a pass";
            return nullptr;
        };
        registry.add(info);
    };

    InputInfo samples = fakeInput("Kvz_int_NumberMultisamples", ValueType::Int);
    OutputInfo sampled = fakeImageOutput(frame, TextureKind::Colour, GL_RGBA8);
    sampled.samplesInput = samples.name;
    OutputInfo stenciled = fakeImageOutput(depth, TextureKind::Depth, GL_DEPTH24_STENCIL8);
    add(fakeClass(
        "Source", {samples}, {sampled, stenciled, fakeOutput("Kvz_float_averageLuminance", ValueType::Float)}));
    add(fakeClass("PlainDepth", {}, {fakeImageOutput(depth, TextureKind::Depth, GL_DEPTH_COMPONENT32F)}));
    OutputInfo sampledDepth = fakeImageOutput(depth, TextureKind::Depth, GL_DEPTH_COMPONENT32F);
    sampledDepth.samplesInput = samples.name;
    OutputInfo sampledNormal = fakeImageOutput("Kvz_KvzTexture*_Normal", TextureKind::Normal, GL_RGB32F);
    sampledNormal.samplesInput = samples.name;
    add(fakeClass("SampledGeometry", {samples}, {sampledDepth, sampledNormal}));
    OutputInfo kept = fakeImageOutput(frame, TextureKind::Colour);
    kept.keptByProducer = true;
    add(fakeClass("Keeper", {}, {kept}));

    InputInfo required = fakeImageInput(frame, TextureKind::Colour);
    required.required = true;
    add(fakeClass("Filter", {required}, {fakeImageOutput(frame, TextureKind::Colour)}));
    InputInfo resolving = required;
    resolving.multisampling = Multisampling::Resolved;
    add(fakeClass("Resolver", {resolving}, {fakeImageOutput(frame, TextureKind::Colour)}));

    InputInfo taking = required;
    taking.multisampling = Multisampling::Taken;
    OutputInfo through = fakeImageOutput(frame, TextureKind::Colour);
    through.passesOn = taking.name;
    add(fakeClass("Through", {taking}, {through}));

    InputInfo canvas = required;
    canvas.drawnInto = true;
    InputInfo mask = fakeImageInput(depth, TextureKind::Depth);
    mask.needsStencil = true;
    OutputInfo painted = fakeImageOutput(frame, TextureKind::Colour);
    painted.passesOn = canvas.name;
    add(fakeClass("Painter", {canvas, mask}, {painted}));

    const char *const numbersPort = "Kvz_KvzTexture*_Numbers";
    add(fakeClass("Numbers", {}, {fakeImageOutput(numbersPort, TextureKind::Id, GL_RG32UI)}));
    InputInfo numbers = fakeImageInput(numbersPort, TextureKind::Any);
    add(fakeClass("NumberFilter", {numbers}, {}));
    numbers.takesIntegers = true;
    add(fakeClass("NumberReader", {numbers}, {}));

    const auto addRole = [&](const char *name, PassTraits traits) {
        PassInfo info = fakeClass(name, {}, {});
        info.traits = traits;
        add(info);
    };
    PassInfo jitter = fakeClass("Jitter", {}, {fakeOutput("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4)});
    jitter.traits = PassTrait::JittersCamera;
    add(jitter);
    InputInfo steady = fakeInput("Kvz_QMatrix4x4_ProjectionMatrix", ValueType::Matrix4x4);
    steady.wiring = ImplicitWiring::FrameOnly;
    PassInfo comparer = fakeClass("Comparer", {steady}, {});
    comparer.traits = PassTrait::AccumulatesFrames;
    add(comparer);
    addRole("Accumulator", PassTrait::AccumulatesFrames);
    addRole("Shader", PassTrait::Shades);
    addRole("Obscurance", PassTrait::Obscures);
    addRole("Transparency", PassTrait::Transparent);
    addRole("Smoother", PassTrait::AntiAliases);
    addRole("Culler", PassTrait::Culls);
    addRole("Shadow", PassTrait::ResetsCulling);

    add(fakeClass("Mover", {}, {fakeImageOutput("velocity", TextureKind::Velocity)}));
    PassInfo modal = fakeClass(
        "Modal", {fakeInput("mode", ValueType::Int, 0), fakeImageInput("velocity", TextureKind::Velocity)}, {});
    const auto isTemporal = [](const PassUse &use) { return use.value(QStringLiteral("mode")).toInt() == 2; };
    modal.conditionalTraits = {{PassTrait::AccumulatesFrames, isTemporal}};
    modal.rules = {{QStringLiteral("velocity"), QStringLiteral("velocity for the temporal mode"),
        QStringLiteral("none"), QStringLiteral("choose another mode"),
        [=](const PassUse &use) { return isTemporal(use) && !use.isFed(QStringLiteral("velocity")); }}};
    add(modal);
    return registry;
}

ChainPass pass(const char *name, const char *className)
{
    ChainPass described;
    described.name = QString::fromUtf8(name);
    described.className = QString::fromUtf8(className);
    return described;
}

ChainPass connected(ChainPass described, const char *port, const char *source)
{
    EXPECT_TRUE(ChainSource::fromString(QString::fromUtf8(source), &described.connections[QString::fromUtf8(port)]));
    return described;
}

ChainPass with(ChainPass described, const char *port, const QVariant &value)
{
    described.values.insert(QString::fromUtf8(port), value);
    return described;
}

ChainPass withOption(ChainPass described, const char *option, const QVariant &value)
{
    described.options.insert(QString::fromUtf8(option), value);
    return described;
}

ChainPass disabled(ChainPass described)
{
    described.enabled = false;
    return described;
}

QVector<ChainFinding> check(const QVector<ChainPass> &passes)
{
    static const PassRegistry registry = fakes();
    ChainDescription chain;
    chain.passes = passes;
    return validateChain(chain, registry);
}

QStringList lines(const QVector<ChainFinding> &findings)
{
    QStringList texts;
    for (const ChainFinding &finding : findings)
        texts.append(finding.toString());
    return texts;
}

/// Checks a chain that has one finding, and returns it.
ChainFinding only(const QVector<ChainPass> &passes)
{
    const QVector<ChainFinding> findings = check(passes);
    EXPECT_EQ(findings.size(), 1) << qPrintable(lines(findings).join(QLatin1Char('\n')));
    return findings.value(0);
}

#define EXPECT_CLEAN(...) EXPECT_EQ(lines(check(__VA_ARGS__)), QStringList())

} // namespace

TEST(ChainValidationTest, readyChainsHaveNoFindings)
{
    for (const QString &name : readyChainNames()) {
        ChainDescription chain;
        QString error;
        ASSERT_TRUE(loadChain(name, &chain, &error)) << qPrintable(error);
        EXPECT_EQ(lines(validateChain(chain)), QStringList()) << qPrintable(name);
    }
}

TEST(ChainValidationTest, anEmptyChainIsAnError)
{
    const ChainFinding finding = only({});
    EXPECT_EQ(finding.code, Code::EmptyChain);
    EXPECT_EQ(
        finding.toString(), QStringLiteral("error: the chain: expected at least one pass, found none; add a pass"));
    EXPECT_EQ(finding.description(), QStringLiteral("the chain: expected at least one pass, found none; add a pass"));
}

TEST(ChainValidationTest, anUnknownClassOffersTheNearest)
{
    const ChainFinding finding = only({pass("a", "GradientRendererPass")});
    EXPECT_EQ(finding.code, Code::UnknownClass);
    EXPECT_EQ(finding.toString(),
        QStringLiteral("error: pass \"a\": expected a known pass class, found \"GradientRendererPass\"; did you mean "
                       "\"GradientRenderPass\"?"));
}

TEST(ChainValidationTest, namesThatAreNearNoneAreToBeLookedUp)
{
    EXPECT_EQ(only({pass("a", "Quux")}).toString(),
        QStringLiteral("error: pass \"a\": expected a known pass class, found \"Quux\"; see kvz passes"));
    EXPECT_EQ(only({pass("s", "Source"),
                       connected(with(pass("a", "TextureToScreenRenderPass"), "xyzzy", 1), "Kvz_KvzTexture*_Texture",
                           "s.Kvz_KvzTexture*_Frame")})
                  .toString(),
        QStringLiteral("error: pass \"a\", xyzzy: expected an input of TextureToScreenRenderPass, found no such port; "
                       "see kvz passes TextureToScreenRenderPass"));
}

TEST(ChainValidationTest, namesMustBeUniqueAndPlain)
{
    EXPECT_EQ(only({pass("a", "Source"), pass("a", "PlainDepth")}).code, Code::DuplicatePass);
    EXPECT_EQ(only({pass("a.b", "Source")}).code, Code::BadPassName);
    EXPECT_EQ(only({pass("a:b", "Source")}).code, Code::BadPassName);
    EXPECT_EQ(only({pass("", "Source")}).code, Code::BadPassName);
}

TEST(ChainValidationTest, unknownPortsOfferTheNearest)
{
    const ChainFinding value = only({with(pass("a", "GradientRenderPass"), "Kvz_QColor_TopColor", "red")});
    EXPECT_EQ(value.code, Code::UnknownPort);
    EXPECT_EQ(value.port, QStringLiteral("Kvz_QColor_TopColor"));
    const ChainFinding miswritten = only({with(pass("a", "GradientRenderPass"), "kvz_qcolor_colortop", "red")});
    EXPECT_TRUE(miswritten.remedy.contains(QStringLiteral("\"Kvz_QColor_ColorTop\"")))
        << qPrintable(miswritten.toString());
    const ChainFinding output = only({with(pass("a", "GradientRenderPass"), frame, QVariant())});
    EXPECT_EQ(output.actual, QStringLiteral("an output"));
    EXPECT_EQ(only({pass("s", "Source"), connected(pass("f", "Filter"), "Frame", "none")}).code, Code::UnknownPort);

    const ChainFinding source =
        only({pass("s", "Source"), connected(pass("f", "Filter"), frame, "s.Kvz_KvzTexture*_Fram")});
    EXPECT_EQ(source.code, Code::UnknownPort);
    EXPECT_TRUE(source.remedy.contains(QStringLiteral("\"Kvz_KvzTexture*_Frame\""))) << qPrintable(source.toString());
    const ChainFinding unknownPass =
        only({pass("source", "Source"), connected(pass("f", "Filter"), frame, "sorce.Kvz_KvzTexture*_Frame")});
    EXPECT_EQ(unknownPass.code, Code::UnknownPass);
    EXPECT_EQ(unknownPass.remedy, QStringLiteral("did you mean \"source\"?"));
}

TEST(ChainValidationTest, badOptionsAreNamedByPath)
{
    const auto blend =
        connected(connected(pass("b", "BlendRenderPass"), "Kvz_KvzTexture*_FrameA", "s.Kvz_KvzTexture*_Frame"),
            "Kvz_KvzTexture*_FrameB", "s.Kvz_KvzTexture*_Frame");
    const auto found = [&](const ChainPass &described) { return only({pass("s", "Source"), described}); };
    EXPECT_EQ(found(blend).code, Code::BadOption);
    EXPECT_EQ(found(blend).port, QStringLiteral("mode"));
    EXPECT_EQ(found(withOption(blend, "mode", "SourceOver")).remedy, QStringLiteral("did you mean \"SrcOver\"?"));
    EXPECT_EQ(found(withOption(blend, "mode", 26)).remedy, QStringLiteral("numbers go from 0 to 25"));
    const ChainFinding unknown = found(withOption(withOption(blend, "mode", 3), "moode", 3));
    EXPECT_EQ(unknown.port, QStringLiteral("moode"));
    EXPECT_EQ(unknown.remedy, QStringLiteral("did you mean \"mode\"?"));

    const auto primitive = [](const QVariantMap &fields) {
        return withOption(pass("p", "PrimitiveBuilderRenderPass"), "primitives", QVariantList{fields});
    };
    EXPECT_CLEAN({primitive({{QStringLiteral("shape"), QStringLiteral("cube")}})});
    EXPECT_EQ(only({primitive({{QStringLiteral("shape"), 1}, {QStringLiteral("size"), QStringLiteral("big")}})}).port,
        QStringLiteral("primitives[0].size"));
    EXPECT_EQ(only({primitive({})}).port, QStringLiteral("primitives[0].shape"));
    EXPECT_EQ(only({withOption(pass("p", "PrimitiveBuilderRenderPass"), "primitives", QVariantList{3})}).port,
        QStringLiteral("primitives[0]"));
}

TEST(ChainValidationTest, valuesMustConvertToTheTypeOfTheirPort)
{
    const ChainFinding finding = only({with(pass("a", "GradientRenderPass"), "Kvz_QColor_ColorTop", 3)});
    EXPECT_EQ(finding.code, Code::BadValue);
    EXPECT_EQ(finding.severity, Severity::Error);
    EXPECT_EQ(finding.toString(),
        QStringLiteral(
            "error: pass \"a\", Kvz_QColor_ColorTop: expected QColor: \"#rrggbb\", \"#rrggbbaa\" or [r, g, b, a] "
            "from 0 to 1, found 3"));
    EXPECT_CLEAN({with(pass("a", "GradientRenderPass"), "Kvz_QColor_ColorTop", QVariant())});
    EXPECT_EQ(only({with(pass("f", "Filter"), frame, "picture.png")}).code, Code::BadValue);
}

TEST(ChainValidationTest, viewportsMustHaveAnExtent)
{
    const auto found = [](const QVariantList &viewport) {
        return only({with(pass("a", "GradientRenderPass"), "Kvz_QRect_Viewport", viewport)});
    };
    EXPECT_EQ(found({0, 0, -5, 10}).code, Code::BadValue);
    EXPECT_EQ(found({0, 0, -5, 10}).toString(),
        QStringLiteral("error: pass \"a\", Kvz_QRect_Viewport: expected a width and height of 1 or more, found "
                       "[0,0,-5,10]; leave it out for the viewport of the frame"));
    EXPECT_EQ(found({0, 0, 0, 0}).code, Code::BadValue);
    EXPECT_EQ(found({3, 4, 10, 0}).code, Code::BadValue);
    EXPECT_CLEAN({with(pass("a", "GradientRenderPass"), "Kvz_QRect_Viewport", QVariantList{-3, -4, 1, 1})});
    EXPECT_CLEAN({with(pass("a", "GradientRenderPass"), "Kvz_QRect_Viewport", QVariant())});
}

TEST(ChainValidationTest, connectionsMustHaveAFittingType)
{
    const ChainFinding finding =
        only({pass("s", "Source"), connected(pass("f", "Filter"), frame, "s.Kvz_float_averageLuminance")});
    EXPECT_EQ(finding.code, Code::TypeMismatch);
    EXPECT_EQ(finding.expected, QStringLiteral("Texture *"));
    EXPECT_EQ(
        only({connected(pass("f", "Filter"), frame, "frame:Kvz_QMatrix4x4_CameraMatrix")}).code, Code::TypeMismatch);
    EXPECT_EQ(only({connected(pass("g", "GradientRenderPass"), "Kvz_QColor_ColorTop", "frame:Kvz_QColor_Sky")}).code,
        Code::UnknownFrameValue);
}

TEST(ChainValidationTest, aRequiredInputThatNothingFeedsIsAnError)
{
    const ChainFinding finding = only({pass("f", "Filter")});
    EXPECT_EQ(finding.code, Code::MissingInput);
    EXPECT_EQ(finding.port, QString::fromUtf8(frame));
    EXPECT_TRUE(finding.remedy.contains(QStringLiteral("GradientRenderPass"))) << qPrintable(finding.toString());
    EXPECT_EQ(only({pass("s", "Source"), connected(pass("f", "Filter"), frame, "none")}).code, Code::MissingInput);
    EXPECT_EQ(only({pass("s", "Source"), with(pass("f", "Filter"), frame, QVariant())}).code, Code::MissingInput);
    EXPECT_CLEAN({pass("s", "Source"), pass("f", "Filter")});
    EXPECT_CLEAN({disabled(pass("f", "Filter"))});
}

TEST(ChainValidationTest, aConsumerBeforeItsProducerIsAnError)
{
    const ChainFinding finding =
        only({connected(pass("f", "Resolver"), frame, "s.Kvz_KvzTexture*_Frame"), pass("s", "Source")});
    EXPECT_EQ(finding.code, Code::OrderViolation);
    EXPECT_TRUE(finding.remedy.contains(QStringLiteral("move pass \"s\" before it"))) << qPrintable(finding.toString());
}

TEST(ChainValidationTest, aPassCannotFeedItself)
{
    const ChainFinding finding = only({connected(pass("f", "Filter"), frame, "f.Kvz_KvzTexture*_Frame")});
    EXPECT_EQ(finding.code, Code::OrderViolation);
    EXPECT_EQ(finding.actual, QStringLiteral("itself"));
}

TEST(ChainValidationTest, onlyPlainValuesComeFromTheLastFrame)
{
    EXPECT_CLEAN({connected(pass("m", "Modal"), "mode", "previous:s.Kvz_float_averageLuminance"), pass("s", "Source")});
    const ChainFinding finding =
        only({connected(pass("m", "Modal"), "velocity", "previous:s.Kvz_KvzTexture*_Frame"), pass("s", "Source")});
    EXPECT_EQ(finding.code, Code::NotPlain);
}

TEST(ChainValidationTest, aConnectionToADisabledPassIsAWarning)
{
    const QVector<ChainFinding> findings =
        check({disabled(pass("s", "Source")), connected(pass("f", "Filter"), frame, "s.Kvz_KvzTexture*_Frame")});
    ASSERT_EQ(findings.size(), 1) << qPrintable(lines(findings).join(QLatin1Char('\n')));
    EXPECT_EQ(findings[0].code, Code::DisabledProducer);
    EXPECT_EQ(findings[0].severity, Severity::Warning);
    EXPECT_FALSE(hasErrors(findings));
}

TEST(ChainValidationTest, aRequiredInputWhoseOnlyProducerIsDisabledIsAWarning)
{
    const ChainFinding finding = only({disabled(pass("s", "Source")), pass("f", "Filter")});
    EXPECT_EQ(finding.code, Code::DisabledProducer);
    EXPECT_EQ(finding.severity, Severity::Warning);
}

TEST(ChainValidationTest, depthPortsTakeDepthOnly)
{
    const ChainFinding finding =
        only({pass("s", "Source"), connected(pass("p", "Painter"), depth, "s.Kvz_KvzTexture*_Frame")});
    EXPECT_EQ(finding.code, Code::DepthFormatMismatch);
    EXPECT_EQ(finding.severity, Severity::Error);
    const ChainFinding shown =
        only({pass("s", "Source"), connected(pass("f", "Filter"), frame, "s.Kvz_KvzTexture*_Depth")});
    EXPECT_EQ(shown.code, Code::KindMismatch);
    EXPECT_EQ(shown.severity, Severity::Warning);
}

TEST(ChainValidationTest, integersAreForPassesThatTakeThem)
{
    EXPECT_CLEAN({pass("n", "Numbers"), pass("r", "NumberReader")});
    const ChainFinding finding = only({pass("n", "Numbers"), pass("f", "NumberFilter")});
    EXPECT_EQ(finding.code, Code::KindMismatch);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_TRUE(finding.actual.contains(QStringLiteral("integers (GL_RG32UI)"))) << qPrintable(finding.toString());
}

TEST(ChainValidationTest, aStencilMaskNeedsStencil)
{
    EXPECT_CLEAN({pass("s", "Source"), pass("p", "Painter")});
    const ChainFinding finding = only({pass("s", "Source"), pass("d", "PlainDepth"), pass("p", "Painter")});
    EXPECT_EQ(finding.code, Code::MissingStencil);
    EXPECT_TRUE(finding.actual.contains(QStringLiteral("GL_DEPTH_COMPONENT32F"))) << qPrintable(finding.toString());
    EXPECT_CLEAN({pass("s", "Source"), pass("d", "PlainDepth"), connected(pass("p", "Painter"), depth, "none")});
}

TEST(ChainValidationTest, multisampledImagesNeedAPassThatTakesThem)
{
    const auto source = with(pass("s", "Source"), "Kvz_int_NumberMultisamples", 4);
    const ChainFinding finding = only({source, pass("f", "Filter")});
    EXPECT_EQ(finding.code, Code::MultisampleMismatch);
    EXPECT_TRUE(finding.actual.startsWith(QStringLiteral("4 samples"))) << qPrintable(finding.toString());
    EXPECT_CLEAN({source, pass("r", "Resolver"), pass("f", "Filter")});
    EXPECT_CLEAN({with(pass("s", "Source"), "Kvz_int_NumberMultisamples", 1), pass("f", "Filter")});
}

TEST(ChainValidationTest, multisampledImagesStayMultisampledWhereTheyAreHandedOn)
{
    const auto source = with(pass("s", "Source"), "Kvz_int_NumberMultisamples", 4);
    EXPECT_EQ(only({source, pass("t", "Through"), pass("u", "Through"), pass("f", "Filter")}).toString(),
        QStringLiteral("error: pass \"f\", Kvz_KvzTexture*_Frame: expected one sample per texel, found 4 samples "
                       "from \"u.Kvz_KvzTexture*_Frame\"; set Kvz_int_NumberMultisamples of pass \"s\" to 1"));
    EXPECT_CLEAN({source, pass("t", "Through"), pass("r", "Resolver"), pass("f", "Filter")});
    EXPECT_CLEAN({pass("s", "Source"), pass("t", "Through"), pass("f", "Filter")});
}

TEST(ChainValidationTest, multisampledImagesAreCopiedToTheScreenButNotDrawn)
{
    const auto source = with(pass("s", "Source"), "Kvz_int_NumberMultisamples", 4);
    const auto screen =
        connected(pass("screen", "TextureToScreenRenderPass"), "Kvz_KvzTexture*_Texture", "s.Kvz_KvzTexture*_Frame");
    EXPECT_CLEAN({source, screen});
    EXPECT_CLEAN({source, with(screen, "Kvz_Bool_EnableSuperSampling", false)});
    EXPECT_EQ(only({source, with(screen, "Kvz_Bool_EnableSuperSampling", true)}).toString(),
        QStringLiteral("error: pass \"screen\", Kvz_KvzTexture*_Texture: expected one sample per texel beside "
                       "Kvz_Bool_EnableSuperSampling, found 4 samples from \"s.Kvz_KvzTexture*_Frame\"; set "
                       "Kvz_int_NumberMultisamples of pass \"s\" to 1"));
    const ChainFinding drawn = only({source, connected(screen, depth, "s.Kvz_KvzTexture*_Depth")});
    EXPECT_EQ(drawn.code, Code::MultisampleMismatch);
    EXPECT_EQ(drawn.port, QStringLiteral("Kvz_KvzTexture*_Texture"));
    EXPECT_CLEAN({source, connected(screen, depth, "none")});
    EXPECT_CLEAN({pass("s", "Source"), with(screen, "Kvz_Bool_EnableSuperSampling", true)});
}

TEST(ChainValidationTest, anImageThatIsDrawnIntoMustHaveNoOtherLaterReader)
{
    const ChainFinding finding = only(
        {pass("s", "Source"), pass("p", "Painter"), connected(pass("f", "Filter"), frame, "s.Kvz_KvzTexture*_Frame")});
    EXPECT_EQ(finding.code, Code::SharedDrawTarget);
    EXPECT_EQ(finding.pass, QStringLiteral("p"));
    EXPECT_EQ(finding.severity, Severity::Warning);
    // The image that the painter hands on may be read, and a reader before it sees the image unchanged.
    EXPECT_CLEAN({pass("s", "Source"), pass("p", "Painter"), pass("f", "Filter")});
    EXPECT_CLEAN(
        {pass("s", "Source"), pass("f", "Filter"), connected(pass("p", "Painter"), frame, "s.Kvz_KvzTexture*_Frame")});
    // The same behind a pass that hands the image on.
    EXPECT_EQ(only({pass("s", "Source"), pass("p", "Painter"), pass("q", "Painter"),
                       connected(pass("f", "Filter"), frame, "p.Kvz_KvzTexture*_Frame")})
                  .pass,
        QStringLiteral("q"));
}

TEST(ChainValidationTest, anImageThatIsDrawnIntoMustNotBeKeptOrExported)
{
    EXPECT_EQ(only({pass("k", "Keeper"), pass("p", "Painter")}).code, Code::SharedDrawTarget);
    ChainDescription chain;
    chain.passes = {pass("s", "Source"), pass("p", "Painter")};
    chain.exports = {{QStringLiteral("x"), {QStringLiteral("s"), QString::fromUtf8(frame)}}};
    const PassRegistry registry = fakes();
    const QVector<ChainFinding> findings = validateChain(chain, registry);
    ASSERT_EQ(findings.size(), 1);
    EXPECT_EQ(findings[0].code, Code::SharedDrawTarget);
    chain.exports = {{QStringLiteral("x"), {QStringLiteral("p"), QString::fromUtf8(frame)}}};
    EXPECT_EQ(lines(validateChain(chain, registry)), QStringList());
}

TEST(ChainValidationTest, exportsMustExist)
{
    ChainDescription chain;
    chain.passes = {pass("g", "GradientRenderPass")};
    chain.exports = {{QStringLiteral("x"), {QStringLiteral("h"), QString::fromUtf8(frame)}},
        {QStringLiteral("y"), {QStringLiteral("g"), QStringLiteral("Frame")}}};
    const QVector<ChainFinding> findings = validateChain(chain);
    ASSERT_EQ(findings.size(), 2);
    EXPECT_EQ(findings[0].code, Code::UnknownPass);
    EXPECT_EQ(findings[1].code, Code::UnknownPort);
    EXPECT_EQ(findings[1].toString(),
        QStringLiteral("error: export \"y\": expected an output of GradientRenderPass, found \"Frame\"; did you mean "
                       "\"Kvz_KvzTexture*_Frame\"?"));
}

TEST(ChainValidationTest, jitterNeedsALaterPassThatAccumulates)
{
    EXPECT_CLEAN({pass("j", "Jitter"), pass("t", "Accumulator")});
    EXPECT_CLEAN({disabled(pass("j", "Jitter"))});
    const ChainFinding finding = only({pass("t", "Accumulator"), pass("j", "Jitter")});
    EXPECT_EQ(finding.code, Code::RoleOrder);
    EXPECT_EQ(finding.pass, QStringLiteral("j"));
    EXPECT_EQ(only({pass("j", "Jitter"), disabled(pass("t", "Accumulator"))}).code, Code::RoleOrder);
}

TEST(ChainValidationTest, passesThatCompareTheCameraWantItWithoutJitter)
{
    const char projection[] = "Kvz_QMatrix4x4_ProjectionMatrix";
    // An unconnected input takes the projection of the frame.
    EXPECT_CLEAN({pass("j", "Jitter"), pass("c", "Comparer")});
    EXPECT_CLEAN(
        {pass("j", "Jitter"), connected(pass("c", "Comparer"), projection, "frame:Kvz_QMatrix4x4_ProjectionMatrix")});
    const auto wrong = connected(pass("c", "Comparer"), projection, "j.Kvz_QMatrix4x4_ProjectionMatrix");
    const ChainFinding finding = only({pass("j", "Jitter"), wrong});
    EXPECT_EQ(finding.code, Code::UnusableConfiguration);
    EXPECT_EQ(finding.pass, QStringLiteral("c"));
    EXPECT_EQ(finding.port, QString::fromUtf8(projection));
    // A pass that does not jitter in its configuration is not reported.
    const auto still = connected(pass("c", "Comparer"), projection, "s.Kvz_QMatrix4x4_ProjectionMatrix");
    EXPECT_CLEAN({pass("s", "CameraJitterPass"), still});
    EXPECT_EQ(only({with(pass("s", "CameraJitterPass"), "Kvz_int_JitterMode", 2), still}).port,
        QString::fromUtf8(projection));
}

TEST(ChainValidationTest, temporalPassesPassFramesThroughWhileTheyAreReset)
{
    const auto jitter =
        with(with(pass("j", "CameraJitterPass"), "Kvz_int_JitterMode", 1), "Kvz_bool_ResetTemporal", false);
    const auto mean = pass("t", "TemporalAARenderPass");
    const auto accumulating = with(mean, "Kvz_bool_ResetTemporal", false);
    EXPECT_CLEAN({jitter, pass("s", "Source"), accumulating});
    // As constructed, the pass averages nothing, and the jitter has no consumer.
    const QVector<ChainFinding> findings = check({jitter, pass("s", "Source"), mean});
    ASSERT_EQ(findings.size(), 2);
    EXPECT_EQ(findings[0].code, Code::UnusableConfiguration);
    EXPECT_EQ(findings[0].port, QStringLiteral("Kvz_bool_ResetTemporal"));
    EXPECT_EQ(findings[1].code, Code::RoleOrder);
    EXPECT_EQ(findings[1].pass, QStringLiteral("j"));
    // The pass compares the camera between frames.
    EXPECT_EQ(only({jitter, pass("s", "Source"),
                       connected(accumulating, "Kvz_QMatrix4x4_ProjectionMatrix", "j.Kvz_QMatrix4x4_ProjectionMatrix")})
                  .port,
        QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"));
    EXPECT_EQ(only({pass("s", "Source"), with(accumulating, "Kvz_Float_ViewportScale", 0)}).port,
        QStringLiteral("Kvz_Float_ViewportScale"));
    EXPECT_CLEAN({pass("s", "Source"),
        with(with(accumulating, "Kvz_Float_ViewportScale", 0), "Kvz_Bool_ViewportScale_Enable", false)});
    // No pass may draw into the mean.
    EXPECT_EQ(
        only({pass("s", "Source"), accumulating, connected(pass("p", "Painter"), depth, "s.Kvz_KvzTexture*_Depth")})
            .code,
        Code::SharedDrawTarget);
}

TEST(ChainValidationTest, framesOfTwoSamplesGoToPassesThatTakeThem)
{
    const auto sampled = pass("frame", "MultisampleForwardRenderPass");
    EXPECT_CLEAN({sampled, with(pass("smooth", "SMAARenderPass"), "Kvz_int_SmaaMode", 1)});
    const ChainFinding finding = only({sampled, pass("smooth", "FastApproximateAntiAliasingRenderPass")});
    EXPECT_EQ(finding.code, Code::MultisampleMismatch);
    EXPECT_EQ(finding.pass, QStringLiteral("smooth"));
    EXPECT_TRUE(finding.actual.contains(QStringLiteral("2 samples")));
    EXPECT_FALSE(finding.remedy.contains(QStringLiteral("set ")));
    // With a jitter index the camera jitters as in mode 4x, which mode S2x does not expect.
    const auto placed = with(sampled, "Kvz_int_JitterIndex", 0);
    EXPECT_EQ(only({placed, with(pass("smooth", "SMAARenderPass"), "Kvz_int_SmaaMode", 1)}).code, Code::RoleOrder);
}

TEST(ChainValidationTest, velocityNeedsDepthAndTheJitterAnIndex)
{
    EXPECT_EQ(only({pass("v", "VelocityRenderPass")}).port, QString::fromUtf8(depth));
    EXPECT_CLEAN({pass("m", "ModelRenderPass"), pass("v", "VelocityRenderPass")});
    EXPECT_CLEAN({pass("m", "MultisampleForwardRenderPass"), pass("v", "VelocityRenderPass")});
    EXPECT_EQ(
        only({pass("j", "SubsampleJitterPass"), pass("a", "Accumulator")}).port, QStringLiteral("Kvz_int_JitterIndex"));
    EXPECT_CLEAN({pass("i", "CameraJitterPass"), pass("j", "SubsampleJitterPass"), pass("a", "Accumulator")});
}

TEST(ChainValidationTest, antiAliasingComesAfterShading)
{
    const auto smooth = pass("smooth", "FastApproximateAntiAliasingRenderPass");
    EXPECT_CLEAN({pass("f", "ForwardRenderPass"), smooth});
    const ChainFinding finding = only({pass("s", "Source"), smooth, pass("f", "ForwardRenderPass")});
    EXPECT_EQ(finding.code, Code::RoleOrder);
    EXPECT_EQ(finding.pass, QStringLiteral("smooth"));
}

TEST(ChainValidationTest, theRandomModeNeedsFramesWithoutReset)
{
    const auto jitter = with(pass("j", "CameraJitterPass"), "Kvz_int_JitterMode", 1);
    const ChainFinding finding = only({jitter, pass("a", "Accumulator")});
    EXPECT_EQ(finding.code, Code::UnusableConfiguration);
    EXPECT_EQ(finding.port, QStringLiteral("Kvz_bool_ResetTemporal"));
    EXPECT_CLEAN({with(jitter, "Kvz_bool_ResetTemporal", false), pass("a", "Accumulator")});
    EXPECT_EQ(only({with(pass("j", "CameraJitterPass"), "Kvz_int_JitterMode", 4), pass("a", "Accumulator")}).port,
        QStringLiteral("Kvz_int_JitterMode"));
}

TEST(ChainValidationTest, rolesHaveTheirOrder)
{
    const struct
    {
        const char *first;
        const char *second;
        const char *blamed; ///< When the two stand the other way round.
    } cases[] = {
        {"Obscurance", "Transparency", "Obscurance"},
        {"Shader", "Smoother", "Smoother"},
        {"Transparency", "Smoother", "Smoother"},
        {"Shadow", "Culler", "Culler"},
    };
    for (const auto &order : cases) {
        EXPECT_CLEAN({pass(order.first, order.first), pass(order.second, order.second)});
        const ChainFinding finding = only({pass(order.second, order.second), pass(order.first, order.first)});
        EXPECT_EQ(finding.code, Code::RoleOrder);
        EXPECT_EQ(finding.pass, QString::fromUtf8(order.blamed));
        EXPECT_FALSE(finding.remedy.isEmpty());
    }
}

// Applying the obscurance to a picture that contains transparent surfaces would darken them by what lies behind.
TEST(ChainValidationTest, obscuranceIsMadeAndAppliedBeforeTransparentSurfaces)
{
    const ChainPass geometry = pass("g", "PlainDepth");
    const ChainPass obscurance = pass("o", "ScalableAmbientObscuranceRenderPass");
    const ChainPass shading = pass("s", "Source");
    const ChainPass glass = pass("t", "Transparency");
    const auto apply = connected(connected(withOption(pass("b", "BlendRenderPass"), "mode", "Multiply"),
                                     "Kvz_KvzTexture*_FrameA", "s.Kvz_KvzTexture*_Frame"),
        "Kvz_KvzTexture*_FrameB", "o.Kvz_KvzTexture*_Frame");
    // The blend expects a colour and reports that in each of these chains as well.
    const auto rolesOf = [](const QVector<ChainPass> &passes) {
        QStringList blamed;
        for (const ChainFinding &finding : check(passes)) {
            if (finding.code == Code::RoleOrder)
                blamed.append(finding.pass);
            else
                EXPECT_EQ(finding.code, Code::KindMismatch) << qPrintable(finding.toString());
        }
        return blamed;
    };
    EXPECT_CLEAN({geometry, obscurance, glass});
    EXPECT_EQ(only({geometry, glass, obscurance}).pass, QStringLiteral("o"));
    EXPECT_EQ(only({geometry, glass, obscurance}).code, Code::RoleOrder);
    EXPECT_EQ(rolesOf({geometry, obscurance, shading, apply, glass}), QStringList());
    EXPECT_EQ(rolesOf({geometry, obscurance, shading, glass, apply}), QStringList(QStringLiteral("b")));
    EXPECT_EQ(rolesOf({geometry, obscurance, shading, glass, disabled(apply)}), QStringList());
    // A pass that only shows the obscurance may stand anywhere.
    EXPECT_EQ(rolesOf({geometry, obscurance, shading, glass,
                  connected(pass("screen", "TextureToScreenRenderPass"), "Kvz_KvzTexture*_Texture",
                      "o.Kvz_KvzTexture*_Frame")}),
        QStringList());
}

TEST(ChainValidationTest, obscuranceIsToldHowToReadItsImages)
{
    const char samples[] = "Kvz_int_NumberMultisamples";
    const char divider[] = "Kvz_float_ResolutionDivider";
    const char positions[] = "Kvz_KvzTexture*_CameraSpacePosition";
    const ChainPass geometry = pass("g", "SampledGeometry");
    const ChainPass unprojection = pass("p", "CameraSpaceZBufferRenderPass");
    const ChainPass obscurance = pass("o", "ScalableAmbientObscuranceRenderPass");
    EXPECT_CLEAN({geometry, obscurance});
    EXPECT_CLEAN({geometry, unprojection, connected(obscurance, positions, "p.Kvz_KvzTexture*_Frame")});
    EXPECT_EQ(only({obscurance}).code, Code::MissingInput);
    EXPECT_EQ(only({unprojection}).code, Code::MissingInput);

    // The depth is attached, so it must have as many samples as the result.
    const ChainFinding unequal = only({with(geometry, samples, 4), obscurance});
    EXPECT_EQ(unequal.toString(),
        QStringLiteral("error: pass \"o\", Kvz_KvzTexture*_Depth: expected one sample per texel, as "
                       "Kvz_int_NumberMultisamples says, "
                       "found 4 from \"g.Kvz_KvzTexture*_Depth\"; set Kvz_int_NumberMultisamples to 4"));
    EXPECT_EQ(unequal.code, Code::MultisampleMismatch);
    EXPECT_EQ(only({geometry, with(obscurance, samples, 4)}).code, Code::MultisampleMismatch);
    EXPECT_CLEAN({with(geometry, samples, 4), with(obscurance, samples, 4)});
    EXPECT_CLEAN({with(geometry, samples, 1), with(obscurance, samples, 0)});
    EXPECT_CLEAN({with(geometry, samples, 4), unprojection});

    // Multisampled normals must be in world space.
    const ChainFinding refused = only({with(geometry, samples, 4),
        withOption(with(obscurance, samples, 4), "normalProcessing", "NormalScreenSpace")});
    EXPECT_EQ(refused.code, Code::MultisampleMismatch);
    EXPECT_EQ(refused.port, QStringLiteral("Kvz_KvzTexture*_Normal"));

    // A divider requires positions.
    EXPECT_EQ(only({geometry, with(obscurance, divider, 2)}).port, QString::fromUtf8(divider));
    EXPECT_CLEAN({geometry, with(obscurance, divider, 0.5)});
    EXPECT_CLEAN(
        {geometry, unprojection, connected(with(obscurance, divider, 2), positions, "p.Kvz_KvzTexture*_Frame")});
    EXPECT_EQ(only({geometry, with(obscurance, "Kvz_float_SaoNumSamples", 0.5)}).code, Code::UnusableConfiguration);
}

TEST(ChainValidationTest, rulesAndRolesMayDependOnValues)
{
    EXPECT_CLEAN({pass("m", "Modal")});
    EXPECT_EQ(only({with(pass("m", "Modal"), "mode", 2)}).code, Code::UnusableConfiguration);
    EXPECT_EQ(only({pass("j", "Jitter"), pass("m", "Modal")}).code, Code::RoleOrder);
    EXPECT_EQ(only({pass("j", "Jitter"), with(pass("m", "Modal"), "mode", 2)}).code, Code::UnusableConfiguration);
}

TEST(ChainValidationTest, configurationsThatGiveNoPictureAreExplained)
{
    const ChainFinding screen = only({pass("s", "Source"), pass("screen", "TextureToScreenRenderPass")});
    EXPECT_EQ(screen.code, Code::UnusableConfiguration);
    EXPECT_EQ(screen.port, QStringLiteral("Kvz_KvzTexture*_Texture"));
    EXPECT_EQ(only({pass("p", "PrimitiveBuilderRenderPass")}).port, QStringLiteral("primitives"));
    const auto blend = connected(connected(withOption(pass("b", "BlendRenderPass"), "mode", 3),
                                     "Kvz_KvzTexture*_FrameA", "s.Kvz_KvzTexture*_Frame"),
        "Kvz_KvzTexture*_FrameB", "s.Kvz_KvzTexture*_Frame");
    EXPECT_CLEAN({pass("s", "Source"), blend});
    EXPECT_EQ(only({pass("s", "Source"), with(blend, "Int_BlendMode", 26)}).port, QStringLiteral("Int_BlendMode"));
}

TEST(ChainValidationTest, theModesOfMorphologicalAntiAliasingWantTheirInputs)
{
    const auto smooth = [](const QVariant &mode) {
        return with(pass("a", "SMAARenderPass"), "Kvz_int_SmaaMode", mode);
    };
    const auto fed = [](const ChainPass &described) {
        return connected(with(described, "Kvz_int_JitterIndex", 1), "Kvz_KvzTexture*_Velocity", "v.velocity");
    };
    const ChainPass mover = pass("v", "Mover");
    const ChainPass one = with(pass("s", "Source"), "Kvz_int_NumberMultisamples", 1);
    const ChainPass two = with(pass("s", "Source"), "Kvz_int_NumberMultisamples", 2);
    EXPECT_CLEAN({one, smooth(0)});
    EXPECT_CLEAN({two, smooth(0)});
    EXPECT_CLEAN({two, smooth(1)});
    EXPECT_CLEAN({mover, one, fed(smooth(2))});
    EXPECT_CLEAN({mover, two, fed(smooth(3))});

    // The number of samples of the frame.
    EXPECT_EQ(only({one, smooth(1)}).toString(),
        QStringLiteral(
            "warning: pass \"a\", Kvz_KvzTexture*_Frame: expected a frame of several samples in modes 1 and 3, found "
            "one sample per texel: the averaged samples are black; draw the frame with "
            "MultisampleForwardRenderPass, or set Kvz_int_SmaaMode to 0 or 2"));
    EXPECT_EQ(only({mover, one, fed(smooth(3))}).port, QString::fromUtf8(frame));
    // Velocity and jitter, in the mode of a pass as constructed too.
    for (const ChainPass &temporal : {smooth(2), pass("a", "SMAARenderPass")}) {
        const QVector<ChainFinding> findings = check({one, temporal});
        ASSERT_EQ(findings.size(), 2) << qPrintable(lines(findings).join(QLatin1Char('\n')));
        EXPECT_EQ(findings[0].port, QStringLiteral("Kvz_KvzTexture*_Velocity"));
        EXPECT_EQ(findings[0].code, Code::UnusableConfiguration);
        EXPECT_EQ(findings[0].expected, QStringLiteral("a velocity image in the temporal modes 2 and 3"));
        EXPECT_EQ(findings[1].port, QStringLiteral("Kvz_int_JitterIndex"));
    }
    EXPECT_EQ(check({two, smooth(3)}).size(), 2);
    // The mode itself.
    EXPECT_EQ(only({one, smooth(4)}).port, QStringLiteral("Kvz_int_SmaaMode"));
    EXPECT_EQ(only({one, smooth(-1)}).port, QStringLiteral("Kvz_int_SmaaMode"));
    // Temporal modes consume jitter; the others do not.
    EXPECT_EQ(only({pass("j", "Jitter"), one, smooth(0)}).code, Code::RoleOrder);
    EXPECT_CLEAN({pass("j", "Jitter"), mover, one, fed(smooth(2))});
    EXPECT_EQ(only({one, smooth(0), pass("shading", "Shader")}).code, Code::RoleOrder);
}

TEST(ChainValidationTest, theConfigurationThatNeverBuildsItsProgramsIsExplained)
{
    const auto smooth = [](int mode, int width, int height) {
        return connected(
            with(with(with(pass("a", "SMAARenderPass"), "Kvz_int_SmaaMode", mode), "Kvz_int_JitterIndex", 1),
                "Kvz_QRect_Viewport", QVariantList{0, 0, width, height}),
            "Kvz_KvzTexture*_Velocity", "v.velocity");
    };
    const ChainPass mover = pass("v", "Mover");
    const ChainPass source = pass("s", "Source");
    EXPECT_EQ(only({mover, source, smooth(2, 64, 64)}).toString(),
        QStringLiteral(
            "warning: pass \"a\", Kvz_QRect_Viewport: expected any size but 64 by 64 with mode 2 and no predicate, "
            "found exactly that, which counts as built from the start: the pass never builds its programs and gives no "
            "picture; "
            "change the size by a pixel"));
    EXPECT_CLEAN({mover, source, smooth(2, 64, 65)});
    EXPECT_CLEAN({mover, source, smooth(0, 64, 64)});
    EXPECT_CLEAN({mover, source, connected(smooth(2, 64, 64), "Kvz_KvzTexture*_Predicate", "s.Kvz_KvzTexture*_Depth")});

    // The same where the viewport is that of the frame, once it is known.
    ChainDescription chain;
    ChainPass fromFrame = smooth(2, 64, 64);
    fromFrame.values.remove(FrameValues::viewport);
    chain.passes = {mover, source, fromFrame};
    const PassRegistry registry = fakes();
    const auto findingsAt = [&](const QVariant &viewport) {
        return validateChain(chain, registry, FrameValues::standardNames(), {{FrameValues::viewport, viewport}}).size();
    };
    EXPECT_EQ(validateChain(chain, registry).size(), 0);
    EXPECT_EQ(findingsAt(QRect(0, 0, 64, 64)), 1);
    EXPECT_EQ(findingsAt(QRect(0, 0, 640, 480)), 0);
}

TEST(ChainValidationTest, depthReachesTheScreenOnlyWhenAsked)
{
    const auto screen =
        connected(pass("screen", "TextureToScreenRenderPass"), "Kvz_KvzTexture*_Texture", "s.Kvz_KvzTexture*_Frame");
    EXPECT_CLEAN({pass("s", "Source"), screen});
    EXPECT_CLEAN({pass("s", "Source"), connected(screen, depth, "s.Kvz_KvzTexture*_Depth")});
}

TEST(ChainValidationTest, anEnabledPassPresents)
{
    const auto shown = [](const QVector<ChainPass> &passes) {
        ChainDescription chain;
        chain.passes = passes;
        return presents(chain);
    };
    const auto screen = pass("screen", "TextureToScreenRenderPass");
    EXPECT_TRUE(shown({pass("g", "GradientRenderPass"), screen}));
    EXPECT_FALSE(shown({pass("g", "GradientRenderPass"), disabled(screen)}));
    EXPECT_FALSE(shown({pass("g", "GradientRenderPass"), pass("x", "Nothing")}));
    EXPECT_FALSE(shown({}));
}

TEST(ChainValidationTest, errorsComeFirst)
{
    const QVector<ChainFinding> findings =
        check({pass("screen", "TextureToScreenRenderPass"), pass("f", "Filter"), pass("x", "Nothing")});
    ASSERT_EQ(findings.size(), 3);
    EXPECT_EQ(findings[0].severity, Severity::Error);
    EXPECT_EQ(findings[1].severity, Severity::Error);
    EXPECT_EQ(findings[2].severity, Severity::Warning);
}

} // namespace Velmora::Kvz
