// SPDX-License-Identifier: MIT
#include "TextureToScreenFixture.h"

#include <GL/GLStatistics.h>

#include <cmath>
#include <map>

namespace Velmora::Kvz {

TEST_F(TextureToScreenRenderPassTest, blitsTheViewportOnceByDefault)
{
    const auto source = makeTexture(pattern(640, 480), GL_RGBA8);
    const auto target = makeTexture(filled(640, 480, QVector4D(1, 0, 1, 1)), GL_RGBA8);
    pass.setInput(Pass::Viewport, QRect(0, 0, 640, 480));
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    BlitRecorder blits;
    pass.start(nullptr);
    ASSERT_EQ(blits.calls.size(), 1u);
    EXPECT_EQ(blits.calls[0], call(QRect(0, 0, 640, 480), QRect(0, 0, 640, 480), GL_NEAREST));
    const Image image = readTexture(target.get());
    saveForViewing(image, QStringLiteral("texture-to-screen-blit"));
    EXPECT_EQ(maximumDifference(image, readTexture(source.get())), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, blitsNothingOnceWithoutAnyRectangle)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    BlitRecorder blits;
    for (const QVariant &viewport : {QVariant(), QVariant(QStringLiteral("640x480"))}) {
        pass.setInput(Pass::Viewport, viewport);
        blits.calls.clear();
        pass.start(nullptr);
        ASSERT_EQ(blits.calls.size(), 1u);
        EXPECT_EQ(blits.calls[0], BlitRecorder::Call(0, 0, 0, 0, 0, 0, 0, 0, GL_COLOR_BUFFER_BIT, GL_NEAREST));
    }
    EXPECT_EQ(maximumDifference(readTexture(target.get()), filled(4, 4, poison)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, blitsEachPairOfRectanglesAndLeavesTheRestOut)
{
    const Image image = pattern(12, 10);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(12, 10);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::ViewportOut, rectangles({QRect(0, 0, 3, 2), QRect(5, 6, 6, 4), QRect(0, 5, 2, 2)}));
    pass.setInput(Pass::Rects, rectangles({QRect(8, 1, 3, 2), QRect(1, 2, 3, 2)}));
    BlitRecorder blits;
    pass.start(nullptr);
    ASSERT_EQ(blits.calls.size(), 2u);
    EXPECT_EQ(blits.calls[0], call(QRect(8, 1, 3, 2), QRect(0, 0, 3, 2), GL_NEAREST));
    EXPECT_EQ(blits.calls[1], call(QRect(1, 2, 3, 2), QRect(5, 6, 6, 4), GL_NEAREST));
    Image expected = filled(12, 10, poison);
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 3; ++x)
            expected.setPixel(x, y, image.pixel(8 + x, 1 + y));
    }
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x)
            expected.setPixel(5 + x, 6 + y, image.pixel(1 + x / 2, 2 + y / 2));
    }
    EXPECT_EQ(maximumDifference(readTexture(target.get()), expected), 0.0);

    // More sources than destinations.
    pass.setInput(Pass::ViewportOut, QRect(0, 0, 3, 2));
    blits.calls.clear();
    pass.start(nullptr);
    ASSERT_EQ(blits.calls.size(), 1u);
    EXPECT_EQ(blits.calls[0], call(QRect(8, 1, 3, 2), QRect(0, 0, 3, 2), GL_NEAREST));
}

TEST_F(TextureToScreenRenderPassTest, readsRectanglesAsOneAListOrATypedVector)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    setTexture(Pass::SourceTexture, source);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    BlitRecorder blits;
    withhold(blits);
    const auto destinationsOf = [&](const QVariant &value) {
        pass.setInput(Pass::ViewportOut, value);
        pass.setInput(Pass::Rects, QVariantList{QRect(0, 0, 1, 1), QRect(0, 0, 1, 1), QRect(0, 0, 1, 1)});
        blits.calls.clear();
        pass.start(nullptr);
        QVector<QRect> destinations;
        for (const BlitRecorder::Call &blit : blits.calls)
            destinations.append(QRect(std::get<4>(blit), std::get<5>(blit), std::get<6>(blit) - std::get<4>(blit),
                std::get<7>(blit) - std::get<5>(blit)));
        return destinations;
    };
    const QRect a(1, 0, 2, 2);
    const QRect b(0, 1, 1, 3);
    const QRect viewport(0, 0, 4, 4);
    EXPECT_EQ(destinationsOf(a), QVector<QRect>{a});
    EXPECT_EQ(destinationsOf(QVariant::fromValue(QVector<QRect>{a, b})), (QVector<QRect>{a, b}));
    EXPECT_EQ(destinationsOf(QVariant::fromValue(QList<QRect>{b, a})), (QVector<QRect>{b, a}));
    EXPECT_EQ(destinationsOf(rectangles({a, QStringLiteral("rectangle"), b})), (QVector<QRect>{a, QRect(), b}));
    EXPECT_EQ(destinationsOf(rectangles({a, QVariant(), b})), (QVector<QRect>{a, b}));
    EXPECT_EQ(destinationsOf(rectangles({})), QVector<QRect>{viewport});
    EXPECT_EQ(destinationsOf(QRect()), QVector<QRect>{viewport}) << "a null rectangle counts as none";
    EXPECT_EQ(destinationsOf(12), QVector<QRect>{viewport});
}

TEST_F(TextureToScreenRenderPassTest, filtersOnlyACopyThatChangesTheSizeAndOnlyWhenAllowed)
{
    const auto source = makeTexture(pattern(8, 8), GL_RGBA32F);
    const auto target = makeTarget(8, 8);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    BlitRecorder blits;
    const auto filterOf = [&](const QVariant &linear, const QRect &from, const QRect &to) {
        pass.setInput(Pass::LinearFilter, linear);
        pass.setInput(Pass::Rects, from);
        pass.setInput(Pass::ViewportOut, to);
        blits.calls.clear();
        pass.start(nullptr);
        return blits.calls.size() == 1 ? std::get<9>(blits.calls[0]) : GLenum(0);
    };
    EXPECT_EQ(filterOf(true, QRect(0, 0, 4, 4), QRect(0, 0, 4, 4)), GLenum(GL_NEAREST));
    EXPECT_EQ(filterOf(true, QRect(0, 0, 4, 4), QRect(3, 2, 4, 4)), GLenum(GL_NEAREST));
    EXPECT_EQ(filterOf(true, QRect(0, 0, 4, 4), QRect(0, 0, 4, 5)), GLenum(GL_LINEAR));
    EXPECT_EQ(filterOf(true, QRect(0, 0, 4, 4), QRect(0, 0, 3, 4)), GLenum(GL_LINEAR));
    EXPECT_EQ(filterOf(false, QRect(0, 0, 4, 4), QRect(0, 0, 8, 8)), GLenum(GL_NEAREST));
    EXPECT_EQ(filterOf(QVariant(), QRect(0, 0, 4, 4), QRect(0, 0, 8, 8)), GLenum(GL_NEAREST));
    EXPECT_EQ(filterOf(1, QRect(0, 0, 4, 4), QRect(0, 0, 8, 8)), GLenum(GL_LINEAR));
}

TEST_F(TextureToScreenRenderPassTest, aLinearBlitInterpolates)
{
    const Image image = pattern(4, 4);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(8, 8);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::LinearFilter, true);
    pass.setInput(Pass::Rects, QRect(0, 0, 4, 4));
    pass.setInput(Pass::ViewportOut, QRect(0, 0, 8, 8));
    pass.start(nullptr);
    const auto texel = [&](int x, int y) { return image.pixel(qBound(0, x, 3), qBound(0, y, 3)); };
    Image expected(8, 8);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            const float u = (float(x) + 0.5f) / 2.0f - 0.5f;
            const float v = (float(y) + 0.5f) / 2.0f - 0.5f;
            const int i = int(std::floor(u));
            const int j = int(std::floor(v));
            const float s = u - float(i);
            const float t = v - float(j);
            expected.setPixel(x, y,
                (texel(i, j) * (1 - s) + texel(i + 1, j) * s) * (1 - t)
                    + (texel(i, j + 1) * (1 - s) + texel(i + 1, j + 1) * s) * t);
        }
    }
    // Drivers filter with weights of 8 bits or more.
    EXPECT_LE(maximumDifference(readTexture(target.get()), expected), 1.0 / 256.0);
}

TEST_F(TextureToScreenRenderPassTest, aBlitResolvesAMultisampledImage)
{
    const Image image = pattern(8, 4);
    const auto source = makeMultisampleTexture(image, GL_RGBA32F, 4);
    const auto target = makeTarget(8, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 8, 4));
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(target.get()), image), 1e-6);
}

TEST_F(TextureToScreenRenderPassTest, aBlitLeavesDepthOutAlone)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    const auto depthOut = makeTexture(depthFilled(4, 4, 0.75f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), pattern(4, 4)), 0.0);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthFilled(4, 4, 0.75f)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, aBlitMakesItsCallsInOrderAndUsesNoProgram)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    const auto depthOut = makeTexture(depthFilled(4, 4, 0.75f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);

    std::map<GLuint, std::string> framebuffers{{0, "0"}};
    const std::map<GLuint, std::string> textures{
        {0, "0"}, {source->textureID(), "source"}, {target->textureID(), "target"}, {depthOut->textureID(), "depth"}};
    std::vector<std::string> made;
    GLCallRecorder<&epoxy_glBindFramebuffer> binds;
    GLCallRecorder<&epoxy_glFramebufferTexture> attachments;
    GLCallRecorder<&epoxy_glDrawBuffer> drawBuffers;
    GLCallRecorder<&epoxy_glReadBuffer> readBuffers;
    BlitRecorder blits;
    GLCallRecorder<&epoxy_glUseProgram> programs;
    const auto nameOf = [](GLenum point) { return point == GL_DRAW_FRAMEBUFFER ? "draw " : "read "; };
    binds.onCall = [&](GLenum point, GLuint name) {
        framebuffers.emplace(name, framebuffers.size() == 1 ? "first" : "second");
        made.push_back(std::string("bind ") + nameOf(point) + framebuffers.at(name));
    };
    attachments.onCall = [&](GLenum point, GLenum attachment, GLuint texture, GLint) {
        made.push_back(std::string("attach ") + nameOf(point)
            + (attachment == GL_COLOR_ATTACHMENT0 ? "colour " : "depth ") + textures.at(texture));
    };
    drawBuffers.onCall = [&](GLenum buffer) { made.push_back(buffer == GL_COLOR_ATTACHMENT0 ? "draw buffer" : "?"); };
    readBuffers.onCall = [&](GLenum buffer) { made.push_back(buffer == GL_COLOR_ATTACHMENT0 ? "read buffer" : "?"); };
    blits.onCall = [&](auto...) { made.push_back("blit"); };
    pass.start(nullptr);
    EXPECT_EQ(made,
        (std::vector<std::string>{"bind draw first", "attach draw colour target", "attach draw depth depth",
            "draw buffer", "bind read second", "attach read colour source", "read buffer", "blit",
            "attach read colour 0", "bind read 0", "attach draw colour 0", "bind draw 0"}));
    EXPECT_TRUE(programs.calls.empty());
}

TEST_F(TextureToScreenRenderPassTest, theDefaultFramebufferKeepsItsDrawBuffer)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    setTexture(Pass::SourceTexture, source);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    FramebufferObject host;
    host.bind();
    int destination = -1;
    BlitRecorder blits;
    blits.replacement = [&](auto...) { destination = glInteger(GL_DRAW_FRAMEBUFFER_BINDING); };
    GLCallRecorder<&epoxy_glDrawBuffer> drawBuffers;
    pass.start(nullptr);
    EXPECT_EQ(destination, 0);
    EXPECT_TRUE(drawBuffers.calls.empty());
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0) << "what was bound does not come back";
    host.unbind();

    // A framebuffer object of the host that wraps the default framebuffer.
    const std::unique_ptr<FramebufferObject> window(FramebufferObject::wrap(0));
    setFramebuffer(window.get());
    destination = -1;
    pass.start(nullptr);
    EXPECT_EQ(destination, 0);
    EXPECT_TRUE(drawBuffers.calls.empty());
    EXPECT_EQ(blits.calls.size(), 2u);
}

TEST_F(TextureToScreenRenderPassTest, writesTheFirstColourOfAFramebuffer)
{
    const Image image = pattern(4, 4);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto first = makeTarget(4, 4);
    const auto second = makeTarget(4, 4);
    FramebufferObject framebuffer;
    framebuffer.bind();
    framebuffer.attach(first.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.attach(second.get(), GL_COLOR_ATTACHMENT1, 0);
    framebuffer.setDrawBuffers();
    framebuffer.unbind();
    setTexture(Pass::SourceTexture, source);
    setFramebuffer(&framebuffer);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(first.get()), image), 0.0);
    EXPECT_EQ(maximumDifference(readTexture(second.get()), filled(4, 4, poison)), 0.0);
    EXPECT_EQ(framebuffer.attachment(GL_COLOR_ATTACHMENT0), first.get());
}

TEST_F(TextureToScreenRenderPassTest, writesAnAdoptedFramebufferByBlitAndByDraw)
{
    const Image image = pattern(4, 4);
    const auto source = makeTexture(image, GL_RGBA32F);
    for (bool superSampling : {false, true}) {
        const auto target = makeTarget(4, 4);
        GLuint name = 0;
        glGenFramebuffers(1, &name);
        glBindFramebuffer(GL_FRAMEBUFFER, name);
        glFramebufferTexture(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, target->textureID(), 0);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        {
            const std::unique_ptr<FramebufferObject> widget(FramebufferObject::wrap(name));
            setTexture(Pass::SourceTexture, source);
            setFramebuffer(widget.get());
            pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
            pass.setInput(Pass::EnableSuperSampling, superSampling);
            pass.start(nullptr);
            setFramebuffer(nullptr);
        }
        EXPECT_LE(maximumDifference(readTexture(target.get()), image), 1e-6) << superSampling;
        EXPECT_TRUE(glIsFramebuffer(name)) << "it stays the host's";
        glDeleteFramebuffers(1, &name);
    }
}

TEST_F(TextureToScreenRenderPassTest, aTextureWinsOverAFramebuffer)
{
    const Image image = pattern(4, 4);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    const auto ignored = makeTarget(4, 4);
    FramebufferObject framebuffer;
    framebuffer.bind();
    framebuffer.attach(ignored.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.unbind();
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    setFramebuffer(&framebuffer);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), image), 0.0);
    EXPECT_EQ(maximumDifference(readTexture(ignored.get()), filled(4, 4, poison)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, depthOutNeedsTextureOut)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    const auto depthOut = makeTexture(depthFilled(4, 4, 1.0f), GL_DEPTH_COMPONENT32F);
    const auto target = makeTarget(4, 4);
    FramebufferObject framebuffer;
    framebuffer.bind();
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.unbind();
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::DepthOut, depthOut);
    setFramebuffer(&framebuffer);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(target.get()), pattern(4, 4)), 1e-6);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthFilled(4, 4, 1.0f)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, writesTheDepthOfAFramebuffer)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    const auto target = makeTarget(4, 4);
    const auto targetDepth = makeTexture(depthFilled(4, 4, 1.0f), GL_DEPTH24_STENCIL8);
    FramebufferObject framebuffer;
    framebuffer.bind();
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.attach(targetDepth.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    framebuffer.unbind();
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, depth);
    setFramebuffer(&framebuffer);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_LE(maximumDifference(readTexture(targetDepth.get()), depthPattern(4, 4)), 1.0 / 16777215.0);
}

TEST_F(TextureToScreenRenderPassTest, clearsWithoutAnImageByTheColourInForce)
{
    const auto target = makeTarget(6, 4);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 2, 2));
    pass.setInput(Pass::ViewportOut, rectangles({QRect(1, 1, 1, 1)}));
    glClearColor(0.25f, 0.5f, 0.75f, 0.125f);
    BlitRecorder blits;
    pass.start(nullptr);
    EXPECT_TRUE(blits.calls.empty());
    EXPECT_EQ(maximumDifference(readTexture(target.get()), filled(6, 4, QVector4D(0.25f, 0.5f, 0.75f, 0.125f))), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, clearsColourAlone)
{
    const auto target = makeTarget(4, 4);
    const auto depthOut = makeTexture(depthFilled(4, 4, 0.25f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    GLCallRecorder<&epoxy_glClear> clears;
    pass.start(nullptr);
    ASSERT_EQ(clears.calls.size(), 1u);
    EXPECT_EQ(std::get<0>(clears.calls[0]), GLbitfield(GL_COLOR_BUFFER_BIT));
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthFilled(4, 4, 0.25f)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, objectsOfAnotherClassCountAsNull)
{
    const auto target = makeTarget(4, 4);
    FramebufferObject framebuffer;
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::SourceTexture, QVariant::fromValue(&framebuffer));
    pass.setInput(Pass::SourceDepth, QVariant::fromValue<QObject *>(&framebuffer));
    pass.setInput(Pass::DepthOut, 12);
    pass.setInput(Pass::FramebufferOut, QVariant::fromValue(target.get()));
    glClearColor(0, 1, 0, 1);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), filled(4, 4, QVector4D(0, 1, 0, 1))), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, aBlitSetsNoDrawingState)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_STENCIL_TEST})
        glEnable(capability);
    GLCallRecorder<&epoxy_glViewport> viewports;
    FramebufferObject host;
    host.bind();
    pass.start(nullptr);
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_STENCIL_TEST})
        EXPECT_TRUE(glFlag(capability));
    EXPECT_TRUE(viewports.calls.empty());
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    host.unbind();
}

TEST_F(TextureToScreenRenderPassTest, depthOutStaysAttachedToLaterFrames)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto near = makeTexture(depthFilled(4, 4, 0.25f), GL_DEPTH_COMPONENT32F);
    const auto far = makeTexture(depthFilled(4, 4, 0.75f), GL_DEPTH_COMPONENT32F);
    const auto target = makeTarget(4, 4);
    const auto depthOut = makeTexture(depthFilled(4, 4, 0.0f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, near);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthFilled(4, 4, 0.25f)), 0.0);
    setTexture(Pass::SourceDepth, far);
    setTexture(Pass::DepthOut, nullptr);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthFilled(4, 4, 0.75f)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, theColourDoesNotStayAttached)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    for (bool superSampling : {false, true}) {
        pass.setInput(Pass::EnableSuperSampling, superSampling);
        GLCallRecorder<&epoxy_glFramebufferTexture> attachments;
        pass.start(nullptr);
        EXPECT_EQ(attachments.calls.back(),
            std::make_tuple(GLenum(GL_DRAW_FRAMEBUFFER), GLenum(GL_COLOR_ATTACHMENT0), 0u, 0));
    }
}

TEST_F(TextureToScreenRenderPassTest, outlivesTheTexturesThatItWasGiven)
{
    auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    auto target = makeTarget(4, 4);
    auto depthOut = makeTexture(depthFilled(4, 4, 0.0f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    // DepthOut is still attached when it is deleted.
    source.reset();
    depth.reset();
    target.reset();
    depthOut.reset();

    const Image image = pattern(4, 4);
    source = makeTexture(image, GL_RGBA32F);
    depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, nullptr);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), image), 0.0);
    setTexture(Pass::SourceDepth, nullptr);
    target = makeTarget(4, 4);
    setTexture(Pass::TextureOut, target);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), image), 0.0);
    depthOut = makeTexture(depthFilled(4, 4, 0.0f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::DepthOut, depthOut);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthPattern(4, 4)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, givesTheImageBackOnceAndNothingElse)
{
    for (int branch = 0; branch < 3; ++branch) {
        PooledTextures textures;
        Texture *const source = textures.take(TextureFormat::LowDynamicRange, pattern(4, 4), 3);
        Texture *const target = textures.take(TextureFormat::LowDynamicRange, 4, 4, 3);
        Texture *const depth = textures.take(TextureFormat::DepthStencil, 4, 4, 3);
        Texture *const depthOut = textures.take(TextureFormat::DepthStencil, 4, 4, 3);
        setTexture(Pass::SourceTexture, source);
        setTexture(Pass::SourceDepth, branch == 0 ? depth : nullptr);
        setTexture(Pass::TextureOut, target);
        setTexture(Pass::DepthOut, depthOut);
        pass.setInput(Pass::EnableSuperSampling, branch == 1);
        pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
        pass.start(nullptr);
        EXPECT_EQ(textures.references(source), 2) << branch;
        EXPECT_EQ(textures.references(target), 3) << branch;
        EXPECT_EQ(textures.references(depth), 3) << branch;
        EXPECT_EQ(textures.references(depthOut), 3) << branch;
        EXPECT_EQ(textures.allReferences(), 11) << branch;
    }
}

TEST_F(TextureToScreenRenderPassTest, releasesTheSubstituteAndNullWithoutHarm)
{
    const auto target = makeTarget(4, 4);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    Texture *const other = pool.take(TextureFormat::LowDynamicRange, 4, 4, 2);
    for (bool superSampling : {false, true, true}) {
        pass.setInput(Pass::EnableSuperSampling, superSampling);
        pass.start(nullptr);
        EXPECT_EQ(pool.references(other), 2);
        EXPECT_EQ(pool.allReferences(), 2);
    }
    Texture *const transparent = TextureManager::Instance()->colorTexture(QColor(Qt::transparent));
    EXPECT_EQ(readTexture(transparent).pixel(0, 0), QVector4D(0, 0, 0, 0)) << "the substitute is alive";
}

TEST_F(TextureToScreenRenderPassTest, skipGivesAllTextureInputsBack)
{
    QVector<Texture *> textures;
    for (Pass::Input input : {Pass::SourceTexture, Pass::SourceDepth, Pass::TextureOut, Pass::DepthOut}) {
        textures.append(pool.take(TextureFormat::LowDynamicRange, 4, 4, 2));
        setTexture(input, textures.last());
    }
    BlitRecorder blits;
    pass.skip(nullptr);
    for (Texture *texture : qAsConst(textures))
        EXPECT_EQ(pool.references(texture), 1);
    EXPECT_TRUE(blits.calls.empty());
}

TEST_F(TextureToScreenRenderPassTest, aBlitMakesFramebuffersAlone)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    const GLObjectCounts before = glObjectCounts();
    pass.start(nullptr);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1) << "a clear needs only the one to draw into";
    setTexture(Pass::SourceTexture, source);
    pass.start(nullptr);
    pass.start(nullptr);
    const GLObjectCounts after = glObjectCounts();
    EXPECT_EQ(after.framebuffers, before.framebuffers + 2);
    EXPECT_EQ(after.programs, before.programs);
    EXPECT_EQ(after.vertexArrays, before.vertexArrays);
    EXPECT_EQ(after.textures, before.textures);
}

TEST_F(TextureToScreenRenderPassTest, teardownContextDataDeletesFramebuffersAndQuadAndKeepsThePrograms)
{
    const Image image = pattern(4, 4);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.teardownContextData(nullptr);
    const GLObjectCounts before = glObjectCounts();
    pass.start(nullptr);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.start(nullptr);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 2);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays + 1);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 2);
    pass.teardownContextData(nullptr);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 2);

    // The kept programs draw with the new quad.
    GLCallRecorder<&epoxy_glLinkProgram> links;
    const auto again = makeTarget(4, 4);
    setTexture(Pass::TextureOut, again);
    pass.start(nullptr);
    EXPECT_TRUE(links.calls.empty());
    EXPECT_EQ(maximumDifference(readTexture(again.get()), image), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, deletesAllItsObjectsAtTheEnd)
{
    // From here on the objects exist that the device and the texture manager share among passes.
    const auto target = makeTarget(4, 4);
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    {
        TextureToScreenRenderPass other;
        other.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Pass::TextureOut, QVariant::fromValue(target.get()));
        other.setInput(Pass::SourceTexture, QVariant::fromValue(source.get()));
        other.start(nullptr);
        other.setInput(Pass::EnableSuperSampling, true);
        other.start(nullptr);
        other.setInput(Pass::SourceTexture, QVariant());
        other.start(nullptr);
        EXPECT_FALSE(glObjectCounts() == before);
    }
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(TextureManager::Instance()->colorTexture(QColor(Qt::transparent))->width(0), 1);
}

} // namespace Velmora::Kvz
