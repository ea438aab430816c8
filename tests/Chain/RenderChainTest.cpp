// SPDX-License-Identifier: MIT
#include "FakePasses.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"

#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModelBuilder.h>

#include <epoxy/gl.h>

#include <chrono>
#include <cmath>
#include <thread>

namespace Velmora::Kvz {

namespace {

const char frame[] = "Kvz_KvzTexture*_Frame";
const char amount[] = "Kvz_float_Amount";

QString text(const char *string)
{
    return QString::fromUtf8(string);
}

ChainPass described(const char *name, const char *className)
{
    ChainPass pass;
    pass.name = text(name);
    pass.className = text(className);
    return pass;
}

TextureManager::PoolStatistics pool()
{
    return TextureManager::Instance()->poolStatistics();
}

} // namespace

class RenderChainTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        context(); // The tests below make no pass before this.
        TextureManager::Instance()->deleteUnusedTempTextures();
        referencesBefore = pool().references;
    }

    void TearDown() override
    {
        chain.reset();
        EXPECT_EQ(pool().references, referencesBefore) << "the chain kept textures";
        GLTest::TearDown();
    }

    /// A producer of a pooled frame of the viewport's size, cleared to a colour.
    PassInfo producer(const char *name, const QColor &color = Qt::red)
    {
        return fakeClass(name, {fakeInput("Kvz_QRect_Viewport", ValueType::Rect)},
            {fakeImageOutput(frame, TextureKind::Colour)}, [this, color](FakePass &pass) {
                const QRect viewport = pass.input("Kvz_QRect_Viewport").toRect();
                Texture *made = pass.handOnNew(frame, viewport.width(), viewport.height());
                FramebufferObject framebuffer;
                framebuffer.bind();
                framebuffer.attach(made, GL_COLOR_ATTACHMENT0, 0);
                framebuffer.setDrawBuffers();
                glClearColor(float(color.redF()), float(color.greenF()), float(color.blueF()), float(color.alphaF()));
                glClear(GL_COLOR_BUFFER_BIT);
                framebuffer.unbind();
                lastMade = made;
            });
    }

    /// A pass that takes a frame and keeps its reference, as many do.
    PassInfo hoarder(const char *name)
    {
        return fakeClass(name, {fakeImageInput(frame, TextureKind::Colour)}, {},
            [this](FakePass &pass) { seen.append(pass.texture(frame)); });
    }

    /// A pass that takes a frame and gives it back.
    PassInfo releaser(const char *name)
    {
        return fakeClass(name, {fakeImageInput(frame, TextureKind::Colour)}, {}, [this](FakePass &pass) {
            seen.append(pass.texture(frame));
            TextureManager::Instance()->releaseTempTextureRef(pass.texture(frame), 1);
        });
    }

    void setChain(const QVector<ChainPass> &passes)
    {
        ChainDescription description;
        description.passes = passes;
        chain = std::make_unique<RenderChain>(registry);
        ASSERT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        chain->setViewport(QRect(0, 0, 8, 4));
    }

    void render(int frames = 1)
    {
        for (int i = 0; i < frames; ++i)
            ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
    }

    FakePass::Listener listener()
    {
        return [this](const QString &call, FakePass &) { calls.append(call); };
    }

    /// The warnings in the log, without the places in the code in front.
    QStringList takeWarnings()
    {
        QStringList texts;
        for (const QString &line : log.takeWarnings())
            texts.append(line.section(text("] "), 1));
        return texts;
    }

    PassRegistry registry;
    std::unique_ptr<RenderChain> chain;
    QStringList calls;
    QVector<Texture *> seen;
    Texture *lastMade = nullptr;
    int referencesBefore = 0;
};

// --- lifecycle -----------------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, aPassIsMadeAtTheFirstFrameAndDrivenInOrder)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    EXPECT_EQ(calls, QStringList());
    render(2);
    EXPECT_EQ(calls,
        (QStringList{text("construct"), text("setup"), text("beginFrame"), text("start"), text("endFrame"),
            text("beginFrame"), text("start"), text("endFrame")}));
    calls.clear();
    chain.reset();
    EXPECT_EQ(calls, (QStringList{text("teardown"), text("destroy")}));
}

TEST_F(RenderChainTest, aDisabledPassIsSkipped)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    EXPECT_TRUE(chain->setEnabled(text("a"), false));
    render();
    EXPECT_TRUE(calls.contains(text("skip")));
    EXPECT_FALSE(calls.contains(text("start")));
    EXPECT_TRUE(chain->setEnabled(text("a"), true));
    render();
    EXPECT_EQ(calls.count(text("start")), 1);
    EXPECT_EQ(calls.count(text("construct")), 1);
}

TEST_F(RenderChainTest, passesThatBothChainsHaveLiveOn)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A"), described("b", "A")});
    render();
    const RenderPass *kept = chain->pass(text("b"));
    calls.clear();
    ChainDescription changed = chain->description();
    changed.passes = {described("b", "A"), described("c", "A")};
    ASSERT_TRUE(chain->setDescription(changed));
    render();
    EXPECT_EQ(chain->pass(text("b")), kept);
    EXPECT_EQ(calls.count(text("construct")), 1);
    EXPECT_EQ(calls.count(text("teardown")), 1);
    EXPECT_EQ(calls.count(text("destroy")), 1);
    EXPECT_EQ(chain->passObjectCount(), 2);
}

TEST_F(RenderChainTest, anOptionMakesThePassAnew)
{
    QVariant seenOption;
    PassInfo info = fakeClass(
        "A", {}, {}, [&](FakePass &pass) { seenOption = pass.options.value(text("size")); }, listener());
    OptionInfo option;
    option.name = text("size");
    option.type = ValueType::Int;
    option.defaultValue = 5;
    info.options = {option};
    registry.add(info);
    setChain({described("a", "A")});
    render();
    EXPECT_EQ(seenOption, QVariant(5));
    EXPECT_FALSE(chain->setOption(text("a"), text("size"), text("large")));
    EXPECT_TRUE(chain->setOption(text("a"), text("size"), 7));
    render();
    EXPECT_EQ(seenOption, QVariant(7));
    EXPECT_EQ(calls.count(text("construct")), 2);
    EXPECT_EQ(calls.count(text("destroy")), 1);
}

TEST_F(RenderChainTest, theEndOfAContextTearsDownAndTheNextFrameMakesAnew)
{
    QVariant value;
    registry.add(fakeClass(
        "A", {fakeInput(amount, ValueType::Float, 1.0f)}, {}, [&](FakePass &pass) { value = pass.input(amount); },
        listener()));
    setChain({described("a", "A")});
    EXPECT_TRUE(chain->setValue(text("a"), text(amount), 4));
    render();
    calls.clear();
    chain->releaseContext();
    EXPECT_EQ(calls, (QStringList{text("teardown"), text("teardownContextData"), text("destroy")}));
    EXPECT_EQ(chain->pass(text("a")), nullptr);
    value = QVariant();
    render();
    EXPECT_EQ(value, QVariant(4.0f));
    EXPECT_EQ(calls.count(text("construct")), 1);
}

TEST_F(RenderChainTest, anotherContextGetsPassesOfItsOwn)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    render();
    {
        QString error;
        const std::unique_ptr<HeadlessContext> other = HeadlessContext::create(&error);
        ASSERT_TRUE(other) << qPrintable(error);
        render(2);
        EXPECT_EQ(calls.count(text("construct")), 2);
        EXPECT_EQ(calls.count(text("destroy")), 1);
        calls.removeAll(text("beginFrame"));
    }
    // The end of that context reached the chain while it was current.
    EXPECT_EQ(
        calls.mid(calls.size() - 3), (QStringList{text("teardown"), text("teardownContextData"), text("destroy")}));
    EXPECT_EQ(chain->passObjectCount(), 0);
    context().makeCurrent();
    render();
    EXPECT_EQ(calls.count(text("construct")), 3);
    EXPECT_EQ(calls.count(text("destroy")), 2);
}

TEST_F(RenderChainTest, withoutAContextThereIsNoFrame)
{
    registry.add(fakeClass("A", {}, {}));
    setChain({described("a", "A")});
    context().doneCurrent();
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_EQ(chain->errorString(), text("no current OpenGL context"));
    context().makeCurrent();
    render();
    // A chain may also outlive the context being current.
    context().doneCurrent();
    chain.reset();
    context().makeCurrent();
}

TEST_F(RenderChainTest, aBadViewportIsRefused)
{
    registry.add(fakeClass("A", {}, {}, {}, listener()));
    setChain({described("a", "A")});
    chain->setFrameValue(FrameValues::viewport, QVariant());
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_TRUE(chain->errorString().contains(text("no viewport"))) << qPrintable(chain->errorString());
    for (const QRect &bad : {QRect(0, 0, 0, 4), QRect(0, 0, 4, -1), QRect(0, 0, 10000000, 1)}) {
        chain->setViewport(bad);
        EXPECT_FALSE(chain->renderFrame());
        EXPECT_TRUE(chain->errorString().contains(text("each side must be from 1 to")))
            << qPrintable(chain->errorString());
    }
    EXPECT_EQ(calls, QStringList());
}

TEST_F(RenderChainTest, aBadViewportOfAPassIsRefused)
{
    registry.add(fakeClass("A", {fakeInput("Kvz_QRect_Viewport", ValueType::Rect)}, {}, {}, listener()));
    setChain({described("a", "A"), described("b", "A")});
    const int limit = glInteger(GL_MAX_TEXTURE_SIZE);
    EXPECT_TRUE(chain->setValue(text("b"), text("Kvz_QRect_Viewport"), QRect(0, 0, limit, 1)));
    render();
    EXPECT_TRUE(chain->setValue(text("b"), text("Kvz_QRect_Viewport"), QRect(0, 0, limit + 1, 3)));
    calls.clear();
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_EQ(chain->errorString(),
        text("pass \"b\": viewport of %1 by 3 pixels: each side must be from 1 to %2").arg(limit + 1).arg(limit));
    EXPECT_EQ(calls, QStringList()) << "nothing is rendered";
    EXPECT_TRUE(chain->setEnabled(text("b"), false)); // It draws nothing then.
    render();

    for (const QRect &bad : {QRect(0, 0, 0, 4), QRect(0, 0, 4, -1), QRect(0, 0, 0, 0)})
        EXPECT_FALSE(chain->setValue(text("a"), text("Kvz_QRect_Viewport"), bad));
    EXPECT_EQ(chain->errorString(),
        text("pass \"a\", Kvz_QRect_Viewport: expected a width and height of 1 or more, found [0,0,0,0]"));
    EXPECT_FALSE(chain->description().passes[0].values.contains(text("Kvz_QRect_Viewport")));
    EXPECT_TRUE(chain->connect(text("a"), text("Kvz_QRect_Viewport"), ChainSource::frameValue(text("mine"))) == false)
        << "there is no such value yet";
    chain->setFrameValue(text("mine"), QRect(0, 0, 4, -1));
    EXPECT_TRUE(chain->connect(text("a"), text("Kvz_QRect_Viewport"), ChainSource::frameValue(text("mine"))));
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_EQ(chain->errorString(),
        text("pass \"a\": viewport of 4 by -1 pixels: each side must be from 1 to %1").arg(limit));
}

TEST_F(RenderChainTest, unknownNamesAreSaidWithTheNearest)
{
    QVector<InputInfo> many;
    for (int i = 0; i < 9; ++i)
        many.append(fakeInput(qPrintable(text("input%1").arg(i)), ValueType::Float));
    registry.add(fakeClass("Many", many, {}));
    setChain({described("many", "Many")});
    EXPECT_FALSE(chain->setValue(text("mny"), text("input1"), 1));
    EXPECT_EQ(chain->errorString(), text("no pass named \"mny\"; did you mean \"many\"?"));
    EXPECT_FALSE(chain->setEnabled(text("zzzzzz"), true));
    EXPECT_EQ(chain->errorString(), text("no pass named \"zzzzzz\"; known: \"many\""));
    EXPECT_FALSE(chain->setValue(text("many"), text("zzzzzz"), 1));
    EXPECT_EQ(chain->errorString(), text("pass \"many\" has no input \"zzzzzz\""));
}

TEST_F(RenderChainTest, samplesAreCheckedAgainWhenWhatReadsThemChanges)
{
    InputInfo samples = fakeInput("Kvz_int_NumberMultisamples", ValueType::Int, 4);
    OutputInfo sampled = fakeImageOutput(frame, TextureKind::Colour);
    sampled.samplesInput = samples.name;
    registry.add(fakeClass("Source", {samples}, {sampled}));
    InputInfo image = fakeImageInput(frame, TextureKind::Colour);
    image.multisampling = Multisampling::Resolved;
    image.refusesSamplesWith = QStringList(text("smooth"));
    registry.add(fakeClass("A", {image, fakeInput("smooth", ValueType::Bool, false)}, {}));
    setChain({described("s", "Source"), described("a", "A")});
    render();
    EXPECT_TRUE(chain->setValue(text("a"), text("smooth"), false));
    render();
    EXPECT_TRUE(chain->setValue(text("a"), text("smooth"), true));
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_EQ(chain->errorString(),
        text("error: pass \"a\", Kvz_KvzTexture*_Frame: expected one sample for each texel beside smooth, found 4 "
             "samples from \"s.Kvz_KvzTexture*_Frame\"; set Kvz_int_NumberMultisamples of pass \"s\" to 1"));
}

TEST_F(RenderChainTest, samplesThatTheFrameSaysAreCheckedAgainWhenTheyChange)
{
    const QString samples = text("Kvz_int_NumberMultisamples");
    OutputInfo sampled = fakeImageOutput(frame, TextureKind::Colour);
    sampled.samplesInput = samples;
    registry.add(fakeClass("Source", {fakeInput("Kvz_int_NumberMultisamples", ValueType::Int)}, {sampled}));
    InputInfo image = fakeImageInput(frame, TextureKind::Colour);
    image.multisampling = Multisampling::Resolved;
    image.refusesSamplesWith = QStringList(text("smooth"));
    registry.add(fakeClass("A", {image, fakeInput("smooth", ValueType::Bool, true)}, {}));
    setChain({described("s", "Source"), described("a", "A")});
    chain->setFrameValue(samples, 1);
    render();
    for (int i = 0; i < 2; ++i) {
        chain->setFrameValue(samples, 4);
        EXPECT_FALSE(chain->renderFrame());
        EXPECT_TRUE(chain->errorString().contains(text("found 4 samples"))) << qPrintable(chain->errorString());
        chain->setFrameValue(samples, 1);
        render();
    }
}

TEST_F(RenderChainTest, aFailureOfAPassIsSaidOnceAndCleared)
{
    QVector<unsigned int> codes;
    registry.add(fakeClass("A", {}, {}, [&](FakePass &pass) {
        codes.append(pass.errorCode());
        pass.setErrorCode(unsigned(-1));
    }));
    setChain({described("a", "A"), described("b", "A")});
    render(3);
    EXPECT_EQ(codes, QVector<unsigned int>(6, 0));
    EXPECT_EQ(takeWarnings(),
        (QStringList{
            text("pass \"a\" failed: error code 0xffffffff"), text("pass \"b\" failed: error code 0xffffffff")}));
}

TEST_F(RenderChainTest, aPassThatFailsForWantOfMemoryIsSaidTo)
{
    GLCallRecorder<&epoxy_glGetError> errors;
    registry.add(fakeClass("A", {}, {}, [&](FakePass &pass) {
        bool told = false;
        errors.replacement = [told]() mutable -> GLenum {
            const GLenum error = told ? GL_NO_ERROR : GL_OUT_OF_MEMORY;
            told = true;
            return error;
        };
        pass.setErrorCode(1);
    }));
    setChain({described("a", "A")});
    render(2);
    EXPECT_EQ(takeWarnings(), QStringList(text("pass \"a\" failed: out of graphics memory")));
}

TEST_F(RenderChainTest, aChainWithErrorsIsNotRenderedUntilItIsMended)
{
    InputInfo required = fakeImageInput(frame, TextureKind::Colour);
    required.required = true;
    registry.add(producer("Source"));
    registry.add(fakeClass("A", {required}, {}, {}, listener()));
    ChainDescription description;
    ChainPass open = described("a", "A");
    open.connections.insert(text(frame), ChainSource::none());
    description.passes = {described("s", "Source"), open};
    chain = std::make_unique<RenderChain>(registry);
    EXPECT_FALSE(chain->setDescription(description));
    chain->setViewport(QRect(0, 0, 8, 4));
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_TRUE(chain->errorString().contains(text("nothing feeds it"))) << qPrintable(chain->errorString());
    EXPECT_EQ(calls, QStringList());
    EXPECT_TRUE(chain->disconnect(text("a"), text(frame)));
    render();
    EXPECT_EQ(calls.count(text("start")), 1);
    EXPECT_EQ(chain->errorString(), QString());
}

TEST_F(RenderChainTest, aPassWhosePortsDifferFromItsEntryIsRefused)
{
    PassInfo info = fakeClass("A", {}, {});
    info.inputs.append(fakeInput(amount, ValueType::Float)); // Not in the pass that create() makes.
    registry.add(info);
    setChain({described("a", "A")});
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_TRUE(chain->errorString().contains(text("other ports"))) << qPrintable(chain->errorString());
}

// --- values --------------------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, inputsAreSetAnewEachFrame)
{
    QVector<QVariant> values;
    registry.add(fakeClass(
        "Source", {}, {fakeOutput(amount, ValueType::Float)}, [](FakePass &pass) { pass.setOutput(amount, 7.0f); }));
    registry.add(fakeClass("A", {fakeInput(amount, ValueType::Float, 2.0f)}, {},
        [&](FakePass &pass) { values.append(pass.input(amount)); }));
    setChain({described("s", "Source"), described("a", "A")});
    render();
    chain->setEnabled(text("s"), false); // The input goes back to its default.
    render();
    chain->setValue(text("a"), text(amount), 3);
    render();
    chain->setValue(text("a"), text(amount), QVariant());
    render();
    chain->connect(
        text("a"), text(amount), ChainSource::output(text("s"), text(amount))); // Null: its pass is disabled.
    render();
    EXPECT_EQ(values, (QVector<QVariant>{7.0f, 2.0f, 3.0f, QVariant(), QVariant()}));
}

TEST_F(RenderChainTest, frameValuesReachTheInputsOfTheirName)
{
    QVector<QVariant> values;
    registry.add(fakeClass("A", {fakeInput("Kvz_QMatrix4x4_CameraMatrix", ValueType::Matrix4x4)}, {},
        [&](FakePass &pass) { values.append(pass.input("Kvz_QMatrix4x4_CameraMatrix")); }));
    setChain({described("a", "A")});
    render();
    QMatrix4x4 camera;
    camera.translate(1, 2, 3);
    chain->setCamera(camera, QMatrix4x4());
    render();
    camera.scale(2);
    chain->setCamera(camera, QMatrix4x4());
    render();
    ASSERT_EQ(values.size(), 3);
    EXPECT_FALSE(values[0].isValid());
    EXPECT_EQ(values[1].value<QMatrix4x4>()(1, 3), 2);
    EXPECT_EQ(values[2].value<QMatrix4x4>(), camera);
}

TEST_F(RenderChainTest, anInputCanTakeWhatAnOutputHeldInTheLastFrame)
{
    QVector<QVariant> values;
    int counter = 0;
    registry.add(fakeClass("Late", {}, {fakeOutput(amount, ValueType::Float)},
        [&](FakePass &pass) { pass.setOutput(amount, float(++counter)); }));
    registry.add(fakeClass("A", {fakeInput(amount, ValueType::Float, 9.0f)}, {},
        [&](FakePass &pass) { values.append(pass.input(amount)); }));
    ChainPass early = described("a", "A");
    early.connections.insert(text(amount), ChainSource::previous(text("late"), text(amount)));
    setChain({early, described("late", "Late")});
    render(3);
    EXPECT_EQ(values, (QVector<QVariant>{QVariant(), 1.0f, 2.0f}));
}

TEST_F(RenderChainTest, aPassWhoseRequiredInputIsNullIsSkippedWithOneLine)
{
    InputInfo required = fakeImageInput(frame, TextureKind::Colour);
    required.required = true;
    registry.add(producer("Source"));
    registry.add(fakeClass("Silent", {}, {fakeImageOutput(frame, TextureKind::Colour)}));
    registry.add(fakeClass("A", {required}, {}, {}, listener()));
    setChain({described("s", "Silent"), described("a", "A")});
    render(3);
    EXPECT_EQ(calls.count(text("skip")), 3);
    EXPECT_EQ(calls.count(text("start")), 0);
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].endsWith(text("pass \"a\" is skipped: Kvz_KvzTexture*_Frame is null")))
        << qPrintable(warnings[0]);
}

TEST_F(RenderChainTest, theModelAdvancesOnceAFrameAndItsBoundsFollow)
{
    GPUModelBuilder builder;
    MeshData mesh;
    mesh.positions = {QVector3D(0, 0, 0), QVector3D(1, 0, 0), QVector3D(0, 1, 0)};
    builder.addItem(builder.addMesh(mesh), builder.addMaterial({}));
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);

    QVector<QVector3D> maxima;
    registry.add(fakeClass("A", {fakeInput("Kvz_QVector3D_SceneBoundsMax", ValueType::Vector3D)}, {},
        [&](FakePass &pass) { maxima.append(pass.input("Kvz_QVector3D_SceneBoundsMax").value<QVector3D>()); }));
    setChain({described("a", "A")});
    chain->setModel(model.data());
    QMatrix4x4 moved;
    moved.translate(5, 0, 0);
    model->setModelMatrix(0, moved);
    EXPECT_EQ(model->previousModelMatrix(0), QMatrix4x4());
    render();
    EXPECT_EQ(model->previousModelMatrix(0), moved);
    chain->setFrameValue(FrameValues::sceneBoundsMax, QVector3D(9, 9, 9));
    render();
    EXPECT_EQ(maxima, (QVector<QVector3D>{QVector3D(6, 1, 0), QVector3D(9, 9, 9)}));
}

// --- GL state ------------------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, everyPassFindsTheBaseline)
{
    GLuint unpackBuffer = 0;
    glGenBuffers(1, &unpackBuffer);
    QVector<QStringList> found;
    const auto check = [&](FakePass &) {
        QStringList wrong;
        const auto expect = [&](bool good, const char *what) {
            if (!good)
                wrong.append(text(what));
        };
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        expect(viewport[0] == 0 && viewport[1] == 0 && viewport[2] == 8 && viewport[3] == 4, "viewport");
        for (GLenum capability : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST,
                 GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB})
            expect(!glIsEnabled(capability), "capability");
        GLboolean mask[4];
        glGetBooleanv(GL_COLOR_WRITEMASK, mask);
        expect(mask[0] && mask[1] && mask[2] && mask[3], "color mask");
        expect(glInteger(GL_DEPTH_WRITEMASK) == 1, "depth mask");
        expect((glInteger(GL_STENCIL_WRITEMASK) & 0xff) == 0xff, "stencil mask");
        expect((glInteger(GL_STENCIL_BACK_WRITEMASK) & 0xff) == 0xff, "back stencil mask");
        expect(glInteger(GL_DEPTH_FUNC) == GL_LESS, "depth function");
        expect(glInteger(GL_BLEND_EQUATION_RGB) == GL_FUNC_ADD, "blend equation");
        expect(glInteger(GL_BLEND_EQUATION_ALPHA) == GL_FUNC_ADD, "alpha blend equation");
        expect(glInteger(GL_BLEND_SRC_RGB) == GL_ONE && glInteger(GL_BLEND_DST_ALPHA) == GL_ZERO, "blend function");
        expect(glInteger(GL_CULL_FACE_MODE) == GL_BACK && glInteger(GL_FRONT_FACE) == GL_CCW, "faces");
        expect(glInteger(GL_POLYGON_MODE) == GL_FILL, "polygon mode");
        GLfloat clear[4];
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        expect(clear[0] == 0 && clear[3] == 0, "clear color");
        GLfloat clearDepth = 0;
        glGetFloatv(GL_DEPTH_CLEAR_VALUE, &clearDepth);
        expect(clearDepth == 1, "clear depth");
        expect(glInteger(GL_STENCIL_CLEAR_VALUE) == 0, "clear stencil");
        expect(glInteger(GL_UNPACK_ALIGNMENT) == 4 && glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING) == 0, "unpack");
        found.append(wrong);

        for (GLenum capability : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST,
                 GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB})
            glEnable(capability);
        glViewport(3, 3, 1, 1);
        glColorMask(0, 0, 0, 0);
        glDepthMask(0);
        glStencilMask(0);
        glDepthFunc(GL_ALWAYS);
        glBlendEquationSeparate(GL_MAX, GL_MIN);
        glBlendFunc(GL_DST_COLOR, GL_SRC_COLOR);
        glCullFace(GL_FRONT);
        glFrontFace(GL_CW);
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
        glClearColor(1, 1, 1, 1);
        glClearDepth(0.25);
        glClearStencil(7);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, unpackBuffer);
    };
    registry.add(fakeClass("A", {}, {}, check));
    setChain({described("a", "A"), described("b", "A")});
    chain->setRestoresState(true);
    render(2);
    ASSERT_EQ(found.size(), 4);
    for (const QStringList &wrong : found)
        EXPECT_EQ(wrong, QStringList());
    // What the last pass left behind is not what the host finds.
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
    EXPECT_EQ(glInteger(GL_POLYGON_MODE), GL_FILL);
    EXPECT_EQ(glInteger(GL_BLEND_EQUATION_ALPHA), GL_FUNC_ADD);
    EXPECT_EQ(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING), 0);
    glDeleteBuffers(1, &unpackBuffer);
}

TEST_F(RenderChainTest, aDebugGroupOfThePassesNameStandsAroundEachStart)
{
    if (epoxy_gl_version() < 43 && !epoxy_has_gl_extension("GL_KHR_debug"))
        GTEST_SKIP() << "this driver has no debug groups";
    QStringList order;
    GLCallRecorder<&epoxy_glPushDebugGroup> push;
    push.onCall = [&](GLenum source, GLuint, GLsizei length, const GLchar *label) {
        EXPECT_EQ(source, GLenum(GL_DEBUG_SOURCE_APPLICATION));
        order.append(text("push ") + QString::fromUtf8(label, length));
    };
    GLCallRecorder<&epoxy_glPopDebugGroup> pop;
    pop.onCall = [&] { order.append(text("pop")); };
    registry.add(fakeClass("A", {}, {}, {}, [&](const QString &call, FakePass &) {
        if (call == text("start") || call == text("skip"))
            order.append(call);
    }));
    setChain({described("first", "A"), described("zweite Stufe \u00fc", "A")});
    render();
    EXPECT_TRUE(chain->setEnabled(text("first"), false));
    render();
    const QString second = text("push zweite Stufe \u00fc");
    EXPECT_EQ(order,
        (QStringList{text("push first"), text("start"), text("pop"), second, text("start"), text("pop"),
            text("push first"), text("skip"), text("pop"), second, text("start"), text("pop")}));
}

TEST_F(RenderChainTest, aPassStartsWithTheSizeOfItsOwnViewportAndTheClearColorOfTheHost)
{
    GLint viewport[4];
    GLfloat clear[4];
    registry.add(fakeClass("A", {fakeInput("Kvz_QRect_Viewport", ValueType::Rect)}, {}, [&](FakePass &) {
        glGetIntegerv(GL_VIEWPORT, viewport);
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    }));
    setChain({described("a", "A")});
    chain->setClearColor(QColor(255, 0, 255));
    chain->setValue(text("a"), text("Kvz_QRect_Viewport"), QRect(5, 6, 70, 80));
    render();
    EXPECT_EQ(viewport[0], 0);
    EXPECT_EQ(viewport[2], 70);
    EXPECT_EQ(viewport[3], 80);
    EXPECT_EQ(clear[0], 1);
    EXPECT_EQ(clear[1], 0);
    EXPECT_EQ(clear[3], 1);
}

TEST_F(RenderChainTest, theStateFoundComesBackWhenAsked)
{
    registry.add(fakeClass("A", {}, {}, [](FakePass &) {
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glActiveTexture(GL_TEXTURE5);
        glStencilFunc(GL_NEVER, 3, 5);
    }));
    setChain({described("a", "A")});
    chain->setRestoresState(true);
    GLuint framebuffer = 0;
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_SCISSOR_TEST);
    glScissor(1, 2, 3, 4);
    glViewport(5, 6, 7, 8);
    glDepthFunc(GL_GEQUAL);
    glColorMask(0, 1, 0, 1);
    glBlendFuncSeparate(GL_ONE, GL_DST_ALPHA, GL_ZERO, GL_SRC_ALPHA);
    glClearColor(0.25f, 0.5f, 0.75f, 1);
    glStencilFuncSeparate(GL_BACK, GL_EQUAL, 1, 0xff);
    glActiveTexture(GL_TEXTURE2);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 2);
    render();
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), int(framebuffer));
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), int(framebuffer));
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));
    EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST));
    GLint box[4];
    glGetIntegerv(GL_VIEWPORT, box);
    EXPECT_EQ(box[3], 8);
    glGetIntegerv(GL_SCISSOR_BOX, box);
    EXPECT_EQ(box[3], 4);
    EXPECT_EQ(glInteger(GL_DEPTH_FUNC), GL_GEQUAL);
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    EXPECT_FALSE(mask[0]);
    EXPECT_TRUE(mask[1]);
    EXPECT_EQ(glInteger(GL_BLEND_DST_RGB), GL_DST_ALPHA);
    EXPECT_EQ(glInteger(GL_BLEND_DST_ALPHA), GL_SRC_ALPHA);
    GLfloat clear[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    EXPECT_EQ(clear[2], 0.75f);
    EXPECT_EQ(glInteger(GL_STENCIL_FUNC), GL_ALWAYS);
    EXPECT_EQ(glInteger(GL_STENCIL_BACK_FUNC), GL_EQUAL);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE2);
    EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 2);

    glStencilFunc(GL_ALWAYS, 0, ~0u);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &framebuffer);
}

// --- references ----------------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, aTextureIsReusedWhetherOrNotItsConsumersGiveItBack)
{
    registry.add(producer("Source"));
    registry.add(hoarder("Hoarder"));
    registry.add(releaser("Releaser"));
    setChain(
        {described("s", "Source"), described("h", "Hoarder"), described("r", "Releaser"), described("h2", "Hoarder")});
    render(5);
    ASSERT_EQ(seen.size(), 15);
    for (Texture *texture : seen)
        EXPECT_EQ(texture, lastMade);
    EXPECT_EQ(pool().references, referencesBefore);
    EXPECT_EQ(pool().live + pool().free, 1);
}

TEST_F(RenderChainTest, theTextureLivesUntilItsLastConsumerHasRun)
{
    QVector<int> references;
    const auto count = [&](FakePass &pass) {
        references.append(TextureManager::Instance()->tempTextureRefs(pass.texture(frame)));
    };
    registry.add(producer("Source"));
    registry.add(fakeClass("A", {fakeImageInput(frame, TextureKind::Colour)}, {}, count));
    setChain({described("s", "Source"), described("a", "A"), described("b", "A"), described("c", "A")});
    render();
    EXPECT_EQ(references, (QVector<int>{3, 2, 1}));
}

TEST_F(RenderChainTest, onePassMayTakeATextureTwice)
{
    registry.add(producer("Source"));
    InputInfo first = fakeImageInput("Kvz_KvzTexture*_FrameA", TextureKind::Colour);
    InputInfo second = fakeImageInput("Kvz_KvzTexture*_FrameB", TextureKind::Colour);
    registry.add(fakeClass("Once", {first, second}, {}, [this](FakePass &pass) {
        seen.append(pass.texture("Kvz_KvzTexture*_FrameB"));
        TextureManager::Instance()->releaseTempTextureRef(pass.texture("Kvz_KvzTexture*_FrameA"), 1); // Forgets one.
    }));
    ChainPass both = described("o", "Once");
    both.connections = {{text("Kvz_KvzTexture*_FrameA"), ChainSource::output(text("s"), text(frame))},
        {text("Kvz_KvzTexture*_FrameB"), ChainSource::output(text("s"), text(frame))}};
    setChain({described("s", "Source"), both});
    render(3);
    EXPECT_EQ(seen, (QVector<Texture *>{lastMade, lastMade, lastMade}));
    EXPECT_EQ(pool().references, referencesBefore);
}

TEST_F(RenderChainTest, aPassThatHandsItsInputOnLeavesEnoughReferencesForAllItsUsers)
{
    QVector<int> references;
    OutputInfo handedOn = fakeImageOutput(frame, TextureKind::Colour);
    handedOn.passesOn = text(frame);
    registry.add(producer("Source"));
    registry.add(fakeClass("Through", {fakeImageInput(frame, TextureKind::Colour)}, {handedOn},
        [](FakePass &pass) { pass.setOutput(frame, pass.input(frame)); })); // Adds no reference for its users.
    registry.add(fakeClass("A", {fakeImageInput(frame, TextureKind::Colour)}, {}, [&](FakePass &pass) {
        references.append(TextureManager::Instance()->tempTextureRefs(pass.texture(frame)));
        TextureManager::Instance()->releaseTempTextureRef(pass.texture(frame), 1);
    }));
    setChain({described("s", "Source"), described("t", "Through"), described("a", "A"), described("b", "A"),
        described("c", "A")});
    render(2);
    EXPECT_EQ(references, (QVector<int>{3, 2, 1, 3, 2, 1}));
    EXPECT_EQ(pool().references, referencesBefore);
}

TEST_F(RenderChainTest, skippedConsumersGiveTheirTexturesBackToo)
{
    InputInfo needed = fakeImageInput("Kvz_KvzTexture*_Mask", TextureKind::Colour);
    needed.required = true;
    registry.add(producer("Source"));
    registry.add(fakeClass("Silent", {}, {fakeImageOutput("Kvz_KvzTexture*_Mask", TextureKind::Colour)}));
    // FakePass::skip() releases nothing, like the base class's.
    registry.add(fakeClass("A", {fakeImageInput(frame, TextureKind::Colour), needed}, {}));
    setChain({described("s", "Source"), described("q", "Silent"), described("a", "A")});
    render(3);
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_EQ(pool().references, referencesBefore);
    EXPECT_EQ(pool().live + pool().free, 1);
}

TEST_F(RenderChainTest, aPooledTextureOfTheHostStaysTheHosts)
{
    TextureManager *manager = TextureManager::Instance();
    Texture *own = manager->tempTexture(TextureFormat::LowDynamicRange, 3, 3, 1, 1);
    registry.add(releaser("Releaser"));
    registry.add(hoarder("Hoarder"));
    setChain({described("r", "Releaser"), described("h", "Hoarder")});
    EXPECT_TRUE(chain->setValue(text("r"), text(frame), QVariant::fromValue(own)));
    chain->setFrameValue(text(frame), QVariant::fromValue(own));
    render(3);
    EXPECT_EQ(seen.count(own), 6);
    EXPECT_EQ(manager->tempTextureRefs(own), 1);
    chain.reset();
    manager->releaseTempTextureRef(own, 1);
}

TEST_F(RenderChainTest, aNewSizeFreesTheTexturesOfTheOld)
{
    registry.add(producer("Source"));
    registry.add(releaser("Releaser"));
    setChain({described("s", "Source"), described("r", "Releaser")});
    for (int width = 8; width < 40; ++width) {
        chain->setViewport(QRect(0, 0, width, 4));
        render(2);
        EXPECT_EQ(pool().live + pool().free, 1);
    }
}

// --- exports and captures ------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, anExportedTextureIsKeptUntilTheNextFrame)
{
    registry.add(producer("Source"));
    registry.add(releaser("Releaser"));
    setChain({described("s", "Source"), described("r", "Releaser")});
    ASSERT_TRUE(chain->addExport(text("picture"), {text("s"), text(frame)}));
    EXPECT_EQ(chain->exportedTexture(text("picture")), nullptr);
    render(3);
    Texture *exported = chain->exportedTexture(text("picture"));
    EXPECT_EQ(exported, lastMade);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(exported), 1);
    EXPECT_EQ(chain->exportedTexture(text("other")), nullptr);
    chain->releaseExports();
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(exported), 0);
    EXPECT_EQ(chain->exportedTexture(text("picture")), nullptr);
    render();
    EXPECT_TRUE(chain->removeExport(text("picture")));
    render();
    EXPECT_EQ(pool().references, referencesBefore);
}

TEST_F(RenderChainTest, exportsAreGivenBackAcrossContextsThatShareTextures)
{
    registry.add(producer("Source"));
    setChain({described("s", "Source")});
    ASSERT_TRUE(chain->addExport(text("picture"), {text("s"), text(frame)}));
    render();
    HeadlessContext::Options options;
    options.shareWith = &context();
    QString error;
    {
        const std::unique_ptr<HeadlessContext> other = HeadlessContext::create(options, &error);
        ASSERT_TRUE(other) << qPrintable(error);
        render(2);
        EXPECT_EQ(pool().references, referencesBefore + 1);
        chain->releaseContext();
        EXPECT_EQ(pool().references, referencesBefore);
    }
    context().makeCurrent();
}

TEST_F(RenderChainTest, plainValuesAreExportedToo)
{
    registry.add(fakeClass(
        "Source", {}, {fakeOutput(amount, ValueType::Float)}, [](FakePass &pass) { pass.setOutput(amount, 7.0f); }));
    setChain({described("s", "Source")});
    ASSERT_TRUE(chain->addExport(text("n"), {text("s"), text(amount)}));
    render();
    EXPECT_EQ(chain->exportedValue(text("n")), QVariant(7.0f));
    chain->setEnabled(text("s"), false);
    render();
    EXPECT_FALSE(chain->exportedValue(text("n")).isValid());
}

TEST_F(RenderChainTest, anOutputIsCapturedRightAfterItsPass)
{
    // The second pass draws into the same pooled texture, which nobody else holds.
    registry.add(producer("Red", Qt::red));
    registry.add(producer("Blue", Qt::blue));
    setChain({described("r", "Red"), described("b", "Blue")});
    ASSERT_TRUE(chain->requestCapture({text("r"), text(frame)}));
    EXPECT_FALSE(chain->requestCapture({text("r"), text("Kvz_KvzTexture*_Depth")}));
    render();
    const QVector<RenderChain::Capture> captures = chain->takeCaptures();
    ASSERT_EQ(captures.size(), 1);
    EXPECT_EQ(captures[0].pass, text("r"));
    ASSERT_EQ(captures[0].image.size(), QSize(8, 4));
    EXPECT_EQ(captures[0].image.pixelColor(3, 2), QColor(Qt::red));
    EXPECT_TRUE(chain->takeCaptures().isEmpty());
    render();
    EXPECT_TRUE(chain->takeCaptures().isEmpty());
    EXPECT_EQ(pool().references, referencesBefore);

    chain->requestAllCaptures();
    render();
    const QVector<RenderChain::Capture> all = chain->takeCaptures();
    ASSERT_EQ(all.size(), 2);
    EXPECT_EQ(all[1].image.pixelColor(0, 0), QColor(Qt::blue));
    render();
    EXPECT_TRUE(chain->takeCaptures().isEmpty());
    EXPECT_EQ(pool().references, referencesBefore);
}

// --- values that cost ----------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, aPassThatBuildsForEachValueIsKeptForTheLastFewOfAGrid)
{
    QVector<QPair<const FakePass *, float>> runs;
    InputInfo radius = fakeInput("Kvz_float_BlurRadius", ValueType::Float, 2.0f);
    radius.gridStep = 0.5;
    registry.add(fakeClass(
        "Blur", {radius}, {fakeOutput(amount, ValueType::Float)},
        [&](FakePass &pass) {
            const float value = pass.input("Kvz_float_BlurRadius").toFloat();
            runs.append({&pass, value});
            pass.setOutput(amount, value);
        },
        listener()));
    QVector<QVariant> passedOn;
    registry.add(fakeClass("After", {fakeInput(amount, ValueType::Float)}, {},
        [&](FakePass &pass) { passedOn.append(pass.input(amount)); }));
    setChain({described("b", "Blur"), described("a", "After")});

    for (int i = 0; i < 100; ++i) { // A slider is dragged.
        chain->setValue(text("b"), text("Kvz_float_BlurRadius"), 1 + 0.05 * i);
        render();
        EXPECT_LE(chain->passObjectCount(), 5);
    }
    ASSERT_EQ(runs.size(), 100);
    for (const auto &run : runs)
        EXPECT_EQ(run.second, std::round(run.second * 2) / 2);
    EXPECT_NEAR(runs.last().second, 6, 1e-6);
    EXPECT_EQ(runs[99].first, runs[98].first);
    EXPECT_EQ(passedOn.last(), QVariant(runs.last().second));
    EXPECT_EQ(calls.count(text("setup")), calls.count(text("construct")));
    EXPECT_EQ(calls.count(text("beginFrame")), 100);
    EXPECT_EQ(calls.count(text("endFrame")), 100);
    EXPECT_EQ(calls.count(text("construct")) - calls.count(text("destroy")), 4);
    EXPECT_EQ(calls.count(text("teardown")), calls.count(text("destroy")));

    // Going back by one step finds the object of before.
    const FakePass *recent = runs.last().first;
    calls.clear();
    for (double value : {5.5, 6.0, 5.5, 6.0}) {
        chain->setValue(text("b"), text("Kvz_float_BlurRadius"), value);
        render();
    }
    EXPECT_EQ(runs.last().first, recent);
    EXPECT_EQ(calls.count(text("construct")), 0);
}

TEST_F(RenderChainTest, oneObjectServesAGridValueThatIsNoNumber)
{
    float produced = NAN;
    QVector<QPair<const FakePass *, float>> runs;
    InputInfo radius = fakeInput("Kvz_float_BlurRadius", ValueType::Float, 2.0f);
    radius.gridStep = 0.5;
    registry.add(fakeClass("Source", {}, {fakeOutput("Kvz_float_BlurRadius", ValueType::Float)},
        [&](FakePass &pass) { pass.setOutput("Kvz_float_BlurRadius", produced); }));
    registry.add(fakeClass(
        "Blur", {radius}, {},
        [&](FakePass &pass) {
            runs.append({&pass, pass.input("Kvz_float_BlurRadius").toFloat()});
        },
        listener()));
    setChain({described("s", "Source"), described("b", "Blur")});
    render(10);
    ASSERT_EQ(runs.size(), 10);
    EXPECT_TRUE(std::isnan(runs.last().second));
    EXPECT_EQ(calls.count(text("construct")), 1);
    const FakePass *first = runs.last().first;
    produced = INFINITY;
    render(10);
    EXPECT_EQ(runs.last().second, INFINITY);
    EXPECT_EQ(calls.count(text("construct")), 2);
    produced = NAN;
    render();
    EXPECT_EQ(runs.last().first, first);
    EXPECT_EQ(calls.count(text("construct")), 2);
}

// --- times ---------------------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, passesAreTimed)
{
    registry.add(
        fakeClass("Slow", {}, {}, [](FakePass &) { std::this_thread::sleep_for(std::chrono::milliseconds(3)); }));
    registry.add(producer("Source"));
    setChain({described("slow", "Slow"), described("s", "Source")});
    render();
    EXPECT_EQ(chain->timings().value(0).frames, 0);
    chain->setTimingEnabled(true);
    render(10);
    chain->finishTimings();
    const QVector<RenderChain::PassTiming> timings = chain->timings();
    ASSERT_EQ(timings.size(), 2);
    EXPECT_EQ(timings[0].pass, text("slow"));
    EXPECT_EQ(timings[0].frames, 10);
    EXPECT_GE(timings[0].cpuMean, 3.0);
    EXPECT_LT(timings[1].cpuMean, timings[0].cpuMean);
    if (epoxy_gl_version() >= 33) {
        // A frame is left out when the driver is behind, never waited for.
        EXPECT_GE(timings[1].gpuFrames, 4);
        EXPECT_LE(timings[1].gpuFrames, 10);
        EXPECT_GT(timings[1].gpuMean, 0.0);
        EXPECT_LT(timings[1].gpuMean, 1000.0);
    }
    chain->resetTimings();
    EXPECT_EQ(chain->timings()[0].frames, 0);
    EXPECT_EQ(chain->timings()[0].pass, text("slow"));
}

TEST_F(RenderChainTest, aPassesNameStandsWithTheTexturesItTakes)
{
    registry.add(producer("Source"));
    registry.add(hoarder("Hoarder"));
    setChain({described("my source", "Source"), described("h", "Hoarder")});
    render();
    ASSERT_EQ(TextureManager::Instance()->pooledTextures().size(), 1);
    EXPECT_EQ(TextureManager::Instance()->pooledTextures()[0].holder, text("my source"));
}

// --- long runs -----------------------------------------------------------------------------------------------------

TEST_F(RenderChainTest, togglesAndSizesLeaveNothingBehind)
{
    registry.add(producer("Source"));
    registry.add(hoarder("Hoarder"));
    registry.add(releaser("Releaser"));
    setChain(
        {described("s", "Source"), described("t", "Source"), described("h", "Hoarder"), described("r", "Releaser")});
    ASSERT_TRUE(chain->addExport(text("x"), {text("t"), text(frame)}));
    render();
    const GLObjectCounts before = glObjectCounts();
    const qint64 bytes = pool().bytes;
    for (int i = 0; i < 400; ++i) {
        chain->setEnabled(text("t"), i % 3 != 0);
        chain->setEnabled(text("h"), i % 5 != 0);
        chain->setViewport(QRect(0, 0, 8 + i / 10 % 7, 4));
        if (i % 11 == 0)
            chain->requestAllCaptures();
        render();
    }
    chain->setEnabled(text("t"), true);
    chain->setEnabled(text("h"), true);
    chain->setViewport(QRect(0, 0, 8, 4));
    render();
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(pool().bytes, bytes);
}

} // namespace Velmora::Kvz
