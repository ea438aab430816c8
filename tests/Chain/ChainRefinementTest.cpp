// SPDX-License-Identifier: MIT
// When a chain needs a frame, when its picture is done, and that it holds it then.
#include "RenderChainFixture.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <Chain/FrameValues.h>
#include <GL/BlitTexture.h>
#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/ShadowMapManager.h>

#include <array>

namespace Velmora::Kvz {

namespace {

const QSize size(56, 40);

/// Boxes one behind another, and a pane of glass.
QSharedPointer<GPUModel> makeScene()
{
    GPUModelBuilder builder;
    const int box = builder.addMesh(boxMesh());
    const auto add = [&](const QVector3D &colour, float opacity, const QVector3D &place, float scale) {
        MaterialData material;
        material.kd = colour;
        material.d = opacity;
        if (opacity < 1)
            material.alphaMode = MaterialData::Blend;
        QMatrix4x4 matrix;
        matrix.translate(place);
        matrix.scale(scale);
        matrix.rotate(20, 0.3f, 1, 0);
        builder.addItem(box, builder.addMaterial(material), matrix, opacity < 1 ? quint64(GPUModel::Transparent) : 0);
    };
    add({0.9f, 0.4f, 0.1f}, 1, {0, 0, 0}, 1);
    add({0.2f, 0.8f, 0.3f}, 1, {0.2f, 0.1f, -2.5f}, 0.6f);
    add({0.3f, 0.5f, 1}, 0.5f, {-0.4f, 0.2f, 1.2f}, 0.5f);
    return builder.build();
}

CameraView view(float azimuth)
{
    CameraView view;
    view.azimuth = azimuth;
    view.elevation = 15;
    return view;
}

/// How often the passes of a chain have been started or left at rest, while it is timed.
int framesOfPasses(const RenderChain &chain)
{
    int frames = 0;
    for (const RenderChain::PassTiming &timing : chain.timings())
        frames += timing.frames;
    return frames;
}

/// What the host does to a picture after the chain: it must not be a part of what is held.
void paintOver(FramebufferObject *framebuffer)
{
    framebuffer->bind();
    glClearColor(1, 0, 1, 0.25f);
    glClear(GL_COLOR_BUFFER_BIT);
    framebuffer->unbind();
}

FramebufferObject *framebufferOf(const RenderChain &chain)
{
    return chain.frameValue(FrameValues::framebuffer).value<FramebufferObject *>();
}

/// Renders until the picture is done, and returns how many frames that took.
int converge(RenderChain *chain)
{
    int frames = 0;
    while (chain->needsFrame() && frames < 200) {
        EXPECT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        ++frames;
    }
    return frames;
}

} // namespace

class ReadyChainRefinementTest : public GLTest, public ::testing::WithParamInterface<QString>
{
protected:
    /// The frames that the chain's picture takes, by the contract.
    static int expectedFrames()
    {
        static const QMap<QString, int> others = {
            {QStringLiteral("exposure"), 2}, // By the luminance of the frame before.
            {QStringLiteral("studio"), 32}, // Its mean.
            {QStringLiteral("temporal"), 64},
            {QStringLiteral("full"), 65}, // One more for culling.
            {QStringLiteral("full-basic"), 65},
            {QStringLiteral("smaa-t2x"), 4}, // A velocity, and two places of the jitter after a frame without.
            {QStringLiteral("smaa-4x"), 4},
        };
        return others.value(GetParam(), 1);
    }
};

TEST_P(ReadyChainRefinementTest, thePictureIsDoneAfterTheFramesThatTheContractSaysAndThenHeld)
{
    const QString name = GetParam();
    const int frames = expectedFrames();
    const QSharedPointer<GPUModel> scene = makeScene();
    ModelChain held(name, scene, size);
    RenderChain &chain = held.chain;
    held.look(view(25));
    chain.setHoldsPicture(true);
    chain.setTimingEnabled(true);
    EXPECT_TRUE(chain.needsFrame());
    EXPECT_FALSE(chain.converged());
    EXPECT_EQ(chain.framesToConvergence(), frames);

    Image picture;
    for (const float azimuth : {25.0f, -30.0f}) {
        held.look(view(azimuth));
        for (int left = frames; left > 0; --left) {
            ASSERT_EQ(chain.framesToConvergence(), left);
            ASSERT_TRUE(chain.needsFrame());
            ASSERT_FALSE(chain.converged());
            const int before = framesOfPasses(chain);
            ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
            ASSERT_GT(framesOfPasses(chain), before);
        }
        EXPECT_EQ(chain.framesToConvergence(), 0);
        EXPECT_FALSE(chain.needsFrame());
        EXPECT_TRUE(chain.converged());
        picture = held.picture();
        if (azimuth > 0)
            saveForViewing(picture, QStringLiteral("held-%1").arg(name));
        EXPECT_GT(pixelsBeyond(picture, filled(size.width(), size.height(), picture.pixel(0, 0)), 0.1), 100)
            << "the model is seen";

        // The same bytes, and not a pass was run.
        const int before = framesOfPasses(chain);
        for (int i = 0; i < 3; ++i) {
            paintOver(framebufferOf(chain));
            ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
            ASSERT_EQ(held.picture().data, picture.data);
        }
        EXPECT_EQ(framesOfPasses(chain), before);
        EXPECT_TRUE(chain.converged());
    }

    // After the camera has moved it is the picture of a chain that has never seen another view.
    ModelChain fresh(name, scene, size);
    fresh.look(view(-30));
    for (int i = 0; i < frames; ++i)
        fresh.render();
    // Chains that a velocity leads on may be at the other place of their jitter.
    EXPECT_LE(maximumDifference(picture, fresh.picture()), name.startsWith(QLatin1String("smaa-")) ? 0.01 : 0);
}

INSTANTIATE_TEST_SUITE_P(ReadyChains, ReadyChainRefinementTest, ::testing::ValuesIn(readyChainNames()),
    [](const ::testing::TestParamInfo<QString> &chain) { return QString(chain.param).remove('-').toStdString(); });

class ChainRefinementTest : public RenderChainFixture
{
protected:
    /// A chain of a red frame that is presented to a texture of the host.
    void makeChain(const QVector<PassInfo> &classes = {})
    {
        registry.add(producer("Red"));
        registry.add(*PassRegistry::standard().find(QStringLiteral("TextureToScreenRenderPass")));
        QVector<ChainPass> passes = {described("red", "Red")};
        for (const PassInfo &info : classes) {
            registry.add(info);
            passes.append(described(info.className.toUtf8().constData(), info.className.toUtf8().constData()));
        }
        ChainPass screen = described("screen", "TextureToScreenRenderPass");
        screen.connections.insert(
            text("Kvz_KvzTexture*_Texture"), ChainSource::output(text("red"), QString::fromUtf8(frame)));
        passes.append(screen);
        setChain(passes);
        target = makeTexture(Image(8, 4), GL_RGBA8);
        framebuffer.bind();
        framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
        framebuffer.setDrawBuffers();
        framebuffer.unbind();
        chain->setFramebuffer(&framebuffer);
        chain->setHoldsPicture(true);
    }

    void TearDown() override
    {
        target.reset();
        RenderChainFixture::TearDown();
    }

    /// Whether the next frame runs the passes.
    bool runsPasses()
    {
        lastMade = nullptr;
        EXPECT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        return lastMade != nullptr;
    }

    std::unique_ptr<Texture> target;
    FramebufferObject framebuffer;
};

TEST_F(ChainRefinementTest, everyChangeEndsAPictureThatIsHeld)
{
    PassInfo tinted = fakeClass("Tinted", {fakeInput(amount, ValueType::Float, 0.5f)}, {});
    makeChain({tinted});
    EXPECT_EQ(converge(chain.get()), 1);
    EXPECT_FALSE(runsPasses());
    const auto expectFrame = [&](const char *what) {
        EXPECT_TRUE(chain->needsFrame()) << what;
        EXPECT_FALSE(chain->converged()) << what;
        EXPECT_TRUE(runsPasses()) << what;
        EXPECT_FALSE(chain->needsFrame()) << what;
        EXPECT_FALSE(runsPasses()) << what;
    };
    const auto expectNone = [&](const char *what) {
        EXPECT_FALSE(chain->needsFrame()) << what;
        EXPECT_FALSE(runsPasses()) << what;
    };
    QMatrix4x4 moved;
    moved.translate(1, 0, 0);
    chain->setCamera(moved, QMatrix4x4());
    expectFrame("camera");
    chain->setCamera(moved, QMatrix4x4());
    expectNone("the same camera again");
    ASSERT_TRUE(chain->setValue(text("Tinted"), QString::fromUtf8(amount), 0.75f));
    expectFrame("value");
    ASSERT_TRUE(chain->setValue(text("Tinted"), QString::fromUtf8(amount), 0.75f));
    expectNone("the same value again");
    chain->setFrameValue(text("Kvz_float_Other"), 1.0f);
    expectFrame("value of the frame");
    ASSERT_TRUE(chain->setEnabled(text("Tinted"), false));
    expectFrame("a pass less");
    chain->setClearColor(Qt::blue);
    expectFrame("clear colour");
    chain->setViewport(QRect(0, 0, 6, 4));
    expectFrame("size");
    chain->forgetPast();
    expectFrame("past");
    ASSERT_TRUE(chain->setDescription(ChainDescription(chain->description())));
    expectFrame("description");
    chain->releaseContext();
    expectFrame("context");
    const QSharedPointer<GPUModel> model = makeScene();
    chain->setModel(model.data());
    expectFrame("model");
    model->setModelMatrix(0, moved);
    expectFrame("an item that moves");
    chain->setModel(nullptr);
    expectFrame("no model");
}

TEST_F(ChainRefinementTest, aLightThatIsTakenEndsIt)
{
    makeChain({fakeClass("Lit", {fakeInput("Kvz_QList_KvzShadowMapManagerLight*_Lights", ValueType::Lights)}, {})});
    ShadowMapManager::Light light;
    chain->setFrameValue(FrameValues::lights, QVariantList{QVariant::fromValue(&light)});
    EXPECT_EQ(converge(chain.get()), 1);
    EXPECT_FALSE(runsPasses());
    light.colour = QVector3D(1, 0.5f, 0.25f);
    EXPECT_TRUE(chain->needsFrame());
    EXPECT_TRUE(runsPasses());
    light.intensity = 0.5f;
    EXPECT_TRUE(runsPasses());
    EXPECT_FALSE(runsPasses());
    chain->setFrameValue(FrameValues::lights, QVariant());
}

TEST_F(ChainRefinementTest, withoutHoldingEachFrameRuns)
{
    makeChain();
    chain->setHoldsPicture(false);
    EXPECT_EQ(converge(chain.get()), 1);
    EXPECT_TRUE(chain->converged());
    EXPECT_TRUE(runsPasses());
    EXPECT_TRUE(runsPasses());
    EXPECT_TRUE(chain->converged());
}

TEST_F(ChainRefinementTest, capturesAndReleasedExportsTakeAFrame)
{
    makeChain();
    ASSERT_TRUE(chain->addExport(text("shown"), {text("red"), QString::fromUtf8(frame)}));
    EXPECT_EQ(converge(chain.get()), 1);
    Texture *const exported = chain->exportedTexture(text("shown"));
    ASSERT_TRUE(exported);
    EXPECT_FALSE(runsPasses());
    EXPECT_EQ(chain->exportedTexture(text("shown")), exported) << "it stays while the picture is held";
    EXPECT_EQ(readTexture(exported).pixel(3, 2), QVector4D(1, 0, 0, 1));

    chain->releaseExports();
    EXPECT_FALSE(chain->needsFrame()) << "the picture is what it was";
    EXPECT_TRUE(runsPasses());
    EXPECT_TRUE(chain->exportedTexture(text("shown")));
    EXPECT_FALSE(runsPasses());

    ASSERT_TRUE(chain->requestCapture({text("red"), QString::fromUtf8(frame)}));
    EXPECT_TRUE(chain->needsFrame());
    EXPECT_TRUE(runsPasses());
    ASSERT_EQ(chain->takeCaptures().size(), 1);
    EXPECT_FALSE(runsPasses());
    chain->requestAllCaptures();
    EXPECT_TRUE(chain->needsFrame());
    EXPECT_TRUE(runsPasses());
    EXPECT_EQ(chain->takeCaptures().size(), 1);
    EXPECT_FALSE(runsPasses());
    ASSERT_TRUE(chain->removeExport(text("shown")));
}

TEST_F(ChainRefinementTest, classesSayHowManyFramesTheyTake)
{
    PassInfo slow = fakeClass("Slow", {}, {});
    slow.framesToSettle = 5;
    PassInfo mean = fakeClass("Mean", {fakeInput("Kvz_int_Frames", ValueType::Int, 7)}, {});
    mean.traits = PassTrait::AccumulatesFrames;
    mean.inputs[0].countsMean = true;
    makeChain({slow, mean});
    EXPECT_EQ(converge(chain.get()), 5 + 7 - 1);
    ASSERT_TRUE(chain->setValue(text("Mean"), text("Kvz_int_Frames"), 3));
    EXPECT_EQ(chain->framesToConvergence(), 5 + 3 - 1);
    EXPECT_EQ(converge(chain.get()), 5 + 3 - 1);
    ASSERT_TRUE(chain->setValue(text("Mean"), text("Kvz_int_Frames"), -2));
    EXPECT_EQ(converge(chain.get()), 5);
    ASSERT_TRUE(chain->setEnabled(text("Slow"), false));
    EXPECT_EQ(converge(chain.get()), 1);
}

TEST_F(ChainRefinementTest, aClassThatNeverSettlesKeepsItsChainAwake)
{
    PassInfo clock = fakeClass("Clock", {}, {});
    clock.framesToSettle = -1;
    makeChain({clock});
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(chain->needsFrame());
        EXPECT_TRUE(runsPasses());
        EXPECT_FALSE(chain->converged());
        EXPECT_EQ(chain->framesToConvergence(), -1);
    }
}

TEST_F(ChainRefinementTest, valuesOfTheFrameBeforeTakeOneMoreAndLoopsMany)
{
    const auto counting = [](const char *name) {
        return fakeClass(name, {fakeInput(amount, ValueType::Float, 0.0f)},
            {fakeOutput("Kvz_float_Sum", ValueType::Float)},
            [](FakePass &pass) { pass.setOutput("Kvz_float_Sum", pass.input(amount).toFloat() + 1); });
    };
    makeChain({counting("First"), counting("Second")});
    EXPECT_EQ(chain->framesToConvergence(), 1);
    ASSERT_TRUE(chain->connect(
        text("First"), QString::fromUtf8(amount), ChainSource::previous(text("Second"), text("Kvz_float_Sum"))))
        << qPrintable(chain->errorString());
    EXPECT_EQ(converge(chain.get()), 2);
    // The second one takes what the first makes of it: nobody knows where that ends.
    ASSERT_TRUE(chain->connect(
        text("Second"), QString::fromUtf8(amount), ChainSource::output(text("First"), text("Kvz_float_Sum"))))
        << qPrintable(chain->errorString());
    EXPECT_EQ(converge(chain.get()), 33);
}

TEST_F(ChainRefinementTest, thePictureGoesWhereTheChainWouldPresentNow)
{
    makeChain();
    chain->setFrameValue(text("Kvz_QRect_ViewportOut"), QVariant::fromValue(QVariantList{QRect(2, 1, 3, 2)}));
    ASSERT_TRUE(chain->setValue(text("screen"), text("Kvz_QVariant_Rects"), QRect(0, 0, 3, 2)));
    converge(chain.get());
    std::unique_ptr<Texture> other = makeTexture(Image(8, 4), GL_RGBA16F);
    FramebufferObject otherFramebuffer;
    otherFramebuffer.bind();
    otherFramebuffer.attach(other.get(), GL_COLOR_ATTACHMENT0, 0);
    otherFramebuffer.setDrawBuffers();
    otherFramebuffer.unbind();
    chain->setFramebuffer(&otherFramebuffer);
    EXPECT_FALSE(chain->needsFrame());
    paintOver(&otherFramebuffer);
    // Neither of these is to touch the copy, nor to be touched by it.
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    glViewport(1, 2, 3, 4);
    framebuffer.bind();
    EXPECT_FALSE(runsPasses());
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), int(framebuffer.getFBO()));
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), int(framebuffer.getFBO()));
    framebuffer.unbind();
    EXPECT_TRUE(glFlag(GL_SCISSOR_TEST));
    glDisable(GL_SCISSOR_TEST);
    std::array<int, 4> viewport{};
    glGetIntegerv(GL_VIEWPORT, viewport.data());
    EXPECT_EQ(viewport, (std::array<int, 4>{1, 2, 3, 4}));
    const Image shown = readTexture(other.get());
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 8; ++x) {
            const bool isInside = QRect(2, 1, 3, 2).contains(x, y);
            EXPECT_EQ(shown.pixel(x, y), isInside ? QVector4D(1, 0, 0, 1) : QVector4D(1, 0, 1, 0.25f)) << x << ' ' << y;
        }
    }
    chain->setFramebuffer(&framebuffer);
}

TEST_F(ChainRefinementTest, depthAndSamplesAreHeldToo)
{
    // A depth that rises from left to right, presented with the colour.
    Image ramp(8, 4, 1);
    for (int i = 0; i < 32; ++i)
        ramp.data[i] = float(i % 8) / 8;
    const std::unique_ptr<Texture> depth = makeTexture(ramp, GL_DEPTH_COMPONENT32F);
    makeChain();
    const std::unique_ptr<Texture> depthTarget = makeTexture(Image(8, 4, 1), GL_DEPTH_COMPONENT24);
    framebuffer.bind();
    framebuffer.attach(depthTarget.get(), GL_DEPTH_ATTACHMENT, 0);
    framebuffer.unbind();
    ASSERT_TRUE(chain->setValue(text("screen"), text("Kvz_KvzTexture*_Depth"), QVariant::fromValue(depth.get())))
        << qPrintable(chain->errorString());
    converge(chain.get());
    const Image before = readTexture(depthTarget.get());
    EXPECT_NEAR(*before.at(6, 1), 0.75, 1e-5);
    framebuffer.bind();
    glDepthMask(GL_TRUE);
    glClearDepth(0.1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glClearDepth(1);
    framebuffer.unbind();
    EXPECT_FALSE(runsPasses());
    EXPECT_EQ(readTexture(depthTarget.get()).data, before.data);
    EXPECT_EQ(readTexture(target.get()).pixel(4, 2), QVector4D(1, 0, 0, 1));
    framebuffer.detach(GL_DEPTH_ATTACHMENT);

    // Without depth, into a framebuffer of four samples: each keeps its own.
    ASSERT_TRUE(chain->clearValue(text("screen"), text("Kvz_KvzTexture*_Depth")));
    const std::unique_ptr<Texture> samples = makeMultisampleTexture(Image(8, 4), GL_RGBA8, 4);
    framebuffer.bind();
    framebuffer.attach(samples.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.unbind();
    chain->forgetPast();
    converge(chain.get());
    paintOver(&framebuffer);
    EXPECT_FALSE(runsPasses());
    std::unique_ptr<Texture> resolved = makeTexture(Image(8, 4), GL_RGBA8);
    BlitTexture(samples.get(), resolved.get(), TextureFormat::LowDynamicRange, 8, 4);
    EXPECT_EQ(readTexture(resolved.get()).data, filled(8, 4, {1, 0, 0, 1}).data);
    framebuffer.detach(GL_COLOR_ATTACHMENT0);
}

TEST_F(ChainRefinementTest, aFrameThatFailsNeitherConvergesNorRepeats)
{
    PassInfo broken = fakeClass("Broken", {}, {}, [](FakePass &) {
        ShaderProgram program;
        program.addShader(GL_FRAGMENT_SHADER, QStringLiteral("#version 150\nvoid main() { none = 1; }\n"), QString());
        program.compile();
        program.link();
    });
    makeChain({broken});
    EXPECT_FALSE(chain->renderFrame());
    log.takeCategory(text("kvz.gl")); // The driver's own messages about the source.
    EXPECT_EQ(takeWarnings().size(), 1);
    EXPECT_FALSE(chain->converged());
    EXPECT_FALSE(chain->needsFrame()) << "it would come out wrong again";
    chain->setClearColor(Qt::green);
    EXPECT_TRUE(chain->needsFrame());
    ASSERT_TRUE(chain->setEnabled(text("Broken"), false));
    EXPECT_TRUE(runsPasses());
    EXPECT_TRUE(chain->converged());

    chain->setViewport(QRect(0, 0, 0, 4));
    EXPECT_FALSE(chain->renderFrame());
    EXPECT_TRUE(chain->needsFrame()) << "nothing was rendered";
}

TEST_F(ChainRefinementTest, holdingGrowsNothing)
{
    makeChain();
    converge(chain.get());
    const GLObjectCounts before = glObjectCounts();
    for (int i = 0; i < 20; ++i) {
        chain->forgetPast();
        EXPECT_EQ(converge(chain.get()), 1);
        EXPECT_FALSE(runsPasses());
    }
    EXPECT_TRUE(glObjectCounts() == before);
    chain->releaseContext();
    EXPECT_LT(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
