// SPDX-License-Identifier: MIT
// What a chain refuses, what its passes get, and what it reports about them.
#include "RenderChainFixture.h"
#include "support/GLCallRecorder.h"

#include <Scene/GPUModelBuilder.h>

namespace Velmora::Kvz {

using RenderChainTest = RenderChainFixture;

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
    EXPECT_TRUE(chain->setEnabled(text("b"), false)); // A disabled pass draws nothing.
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

TEST_F(RenderChainTest, unknownNamesAreReportedWithTheNearest)
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

TEST_F(RenderChainTest, aValueThatMakesSamplesUnreadableIsRefused)
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
    EXPECT_FALSE(chain->setValue(text("a"), text("smooth"), true));
    EXPECT_EQ(chain->errorString(),
        text("pass \"a\", Kvz_KvzTexture*_Frame: expected one sample per texel beside smooth, found 4 samples from "
             "\"s.Kvz_KvzTexture*_Frame\"; set Kvz_int_NumberMultisamples of pass \"s\" to 1"));
    EXPECT_EQ(chain->description().passes[1].values.value(text("smooth")), QVariant(false));
    render();
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

TEST_F(RenderChainTest, aFailureOfAPassIsReportedOnceAndCleared)
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

TEST_F(RenderChainTest, aPassThatRunsOutOfMemoryIsReportedAsSuch)
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

TEST_F(RenderChainTest, aChainWithErrorsIsNotRenderedUntilItIsFixed)
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

TEST_F(RenderChainTest, inputsAreSetAgainEachFrame)
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

} // namespace Velmora::Kvz
