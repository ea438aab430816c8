// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/TextureToScreenRenderPass.h>

#include <QtCore/QRect>

#include <cmath>
#include <map>

namespace Velmora::Kvz {

namespace {

using BlitRecorder = GLCallRecorder<&epoxy_glBlitFramebuffer>;

const QVector4D poison(-7, -8, -9, -10);

/// Each texel another colour, in shades that a person can follow.
Image pattern(int width, int height)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.setPixel(x, y,
                QVector4D((float(x) + 0.5f) / float(width), (float(y) + 0.5f) / float(height),
                    float((x * 7 + y * 13) % 32) / 32.0f, 1.0f));
        }
    }
    return image;
}

/// Each texel another depth.
Image depthPattern(int width, int height)
{
    Image image(width, height, 1);
    for (int i = 0; i < width * height; ++i)
        image.data[i] = (float(i) + 0.5f) / float(width * height);
    return image;
}

Image depthFilled(int width, int height, float depth)
{
    Image image(width, height, 1);
    image.data.fill(depth);
    return image;
}

struct Step
{
    int x;
    int y;
};

/// The texels that the draw averages along each axis.
Step stepOf(const Image &source, const QRect &destination)
{
    return {std::max(1, int(std::lround(double(source.width) / destination.width()))),
        std::max(1, int(std::lround(double(source.height) / destination.height())))};
}

/// What the draw gives at a pixel; false where its box leaves the image, and the driver may give anything.
bool averagedPixel(const Image &source, Step step, int x, int y, QVector4D *average)
{
    if ((x + 1) * step.x > source.width || (y + 1) * step.y > source.height)
        return false;
    QVector4D sum;
    for (int i = 0; i < step.x; ++i) {
        for (int j = 0; j < step.y; ++j)
            sum += source.pixel(x * step.x + i, y * step.y + j);
    }
    *average = sum / float(step.x * step.y);
    return true;
}

class TextureToScreenRenderPassTest : public GLTest
{
protected:
    using Pass = TextureToScreenRenderPass;

    TextureToScreenRenderPass pass;
    PooledTextures pool;

    void setTexture(Pass::Input input, Texture *texture) { pass.setInput(input, QVariant::fromValue(texture)); }
    void setTexture(Pass::Input input, const std::unique_ptr<Texture> &texture) { setTexture(input, texture.get()); }
    void setFramebuffer(FramebufferObject *framebuffer)
    {
        pass.setInput(Pass::FramebufferOut, QVariant::fromValue(framebuffer));
    }
    std::unique_ptr<Texture> makeTarget(int width, int height) const
    {
        return makeTexture(filled(width, height, poison), GL_RGBA32F);
    }
    /// Blits that are noted and not made, for destinations that hold nothing.
    static void withhold(BlitRecorder &blits)
    {
        blits.replacement = [](auto...) {};
    }
    static BlitRecorder::Call call(const QRect &source, const QRect &destination, GLenum filter)
    {
        return {source.left(), source.top(), source.left() + source.width(), source.top() + source.height(),
            destination.left(), destination.top(), destination.left() + destination.width(),
            destination.top() + destination.height(), GL_COLOR_BUFFER_BIT, filter};
    }
    static QVariant rectangles(std::initializer_list<QVariant> list) { return QVariantList(list); }
};

} // namespace

// Ports

TEST_F(TextureToScreenRenderPassTest, declaresItsPorts)
{
    const char *const names[] = {"Kvz_QRect_Viewport", "Kvz_KvzTexture*_Texture", "Kvz_KvzTexture*_Depth",
        "Kvz_Bool_EnableSuperSampling", "Kvz_QRect_ViewportOut", "Kvz_KvzTexture*_TextureOut",
        "Kvz_KvzTexture*_DepthOut", "Kvz_Bool_LinearFilter", "Kvz_QVariant_Rects",
        "Kvz_KvzFramebuffer*_FramebufferOut"};
    ASSERT_EQ(pass.numInputs(), 10);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(pass.inputName(i), QString::fromLatin1(names[i]));
        EXPECT_EQ(pass.defaultValue(i).isValid(), i == 7) << i;
    }
    EXPECT_EQ(pass.defaultValue(7).userType(), int(QMetaType::Bool));
    EXPECT_FALSE(pass.defaultValue(7).toBool());
    EXPECT_EQ(pass.numOutputs(), 0);
}

// The blit

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
    // Drivers keep 8 bits or more of a filter's weights.
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

// The destination

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

    // A framebuffer of the host that is the default one.
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

// No image

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

TEST_F(TextureToScreenRenderPassTest, drawsTransparentWithoutAnImage)
{
    const auto target = makeTarget(6, 6);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.setInput(Pass::Viewport, QRect(1, 2, 3, 2));
    glClearColor(1, 1, 1, 1);
    pass.start(nullptr);
    Image expected = filled(6, 6, poison);
    for (int i = 0; i < 6; ++i)
        expected.setPixel(1 + i % 3, 2 + i / 3, QVector4D(0, 0, 0, 0));
    EXPECT_EQ(maximumDifference(readTexture(target.get()), expected), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, copiesDepthWithoutAnImage)
{
    const auto target = makeTarget(4, 4);
    const auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    const auto depthOut = makeTexture(depthFilled(4, 4, 0.0f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), Image(4, 4)), 0.0);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthPattern(4, 4)), 0.0);
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

// The draw

TEST_F(TextureToScreenRenderPassTest, drawsAnImageOfTheSameSizeAsItIs)
{
    const Image image = pattern(16, 12);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(16, 12);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 16, 12));
    pass.setInput(Pass::EnableSuperSampling, true);
    BlitRecorder blits;
    pass.start(nullptr);
    EXPECT_TRUE(blits.calls.empty());
    EXPECT_EQ(maximumDifference(readTexture(target.get()), image), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, averagesABoxOfTexelsForEachPixel)
{
    struct Case
    {
        int width, height;
        QRect destination;
        int stepX, stepY;
    };
    const Case cases[] = {
        {1920, 1080, QRect(0, 0, 960, 540), 2, 2},
        {1920, 1080, QRect(0, 0, 1000, 1000), 2, 1},
        {96, 60, QRect(0, 0, 32, 12), 3, 5},
        {64, 64, QRect(0, 0, 16, 64), 4, 1},
        {31, 17, QRect(0, 0, 9, 7), 3, 2},
        // A rectangle larger than the image shows it at its own size.
        {8, 8, QRect(0, 0, 16, 12), 1, 1},
        {14, 14, QRect(0, 0, 10, 10), 1, 1},
    };
    for (const Case &c : cases) {
        const Image image = pattern(c.width, c.height);
        const auto source = makeTexture(image, GL_RGBA32F);
        const auto target = makeTarget(c.destination.width(), c.destination.height());
        setTexture(Pass::SourceTexture, source);
        setTexture(Pass::TextureOut, target);
        pass.setInput(Pass::EnableSuperSampling, true);
        pass.setInput(Pass::Viewport, c.destination);
        pass.start(nullptr);
        const Image result = readTexture(target.get());
        saveForViewing(result, QStringLiteral("texture-to-screen-box-%1-%2").arg(c.stepX).arg(c.stepY));
        const Step step = stepOf(image, c.destination);
        EXPECT_EQ(step.x, c.stepX);
        EXPECT_EQ(step.y, c.stepY);
        int compared = 0;
        double difference = 0;
        for (int y = 0; y < result.height; ++y) {
            for (int x = 0; x < result.width; ++x) {
                QVector4D expected;
                if (!averagedPixel(image, step, x, y, &expected))
                    continue;
                ++compared;
                difference = std::max(difference, double((result.pixel(x, y) - expected).length()));
            }
        }
        EXPECT_EQ(compared, std::min(result.width, c.width / c.stepX) * std::min(result.height, c.height / c.stepY));
        EXPECT_LE(difference, 1e-6) << c.width << " by " << c.height;
    }
}

TEST_F(TextureToScreenRenderPassTest, readsTexelsUnderTheWindowPositionAndWritesOnlyTheRectangle)
{
    const Image image = pattern(24, 20);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(12, 10);
    const QRect destination(3, 2, 8, 5);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.setInput(Pass::ViewportOut, destination);
    pass.start(nullptr);
    const Image result = readTexture(target.get());
    const Step step = stepOf(image, destination); // 3 by 4: columns from 8 on leave the image.
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 12; ++x) {
            QVector4D expected;
            if (!destination.contains(x, y)) {
                EXPECT_EQ(result.pixel(x, y), poison) << x << ", " << y;
            } else if (averagedPixel(image, step, x, y, &expected)) {
                EXPECT_LE((result.pixel(x, y) - expected).length(), 1e-6f) << x << ", " << y;
            }
        }
    }
    QVector4D corner;
    EXPECT_TRUE(averagedPixel(image, step, 3, 2, &corner)) << "the comparison is not empty";
}

TEST_F(TextureToScreenRenderPassTest, drawsAsManyRectanglesAsBothListsHave)
{
    const Image image = pattern(12, 10);
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto target = makeTarget(12, 10);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.setInput(Pass::ViewportOut, rectangles({QRect(0, 0, 12, 5), QRect(2, 6, 10, 4), QRect(0, 8, 2, 2)}));
    // Where the sources lie does not matter.
    pass.setInput(Pass::Rects, rectangles({QRect(100, 100, 1, 1), QRect()}));
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    draws.onCall = [](auto...) { EXPECT_TRUE(glFlag(GL_SCISSOR_TEST)); };
    GLCallRecorder<&epoxy_glViewport> viewports;
    GLCallRecorder<&epoxy_glScissor> scissors;
    pass.start(nullptr);
    EXPECT_EQ(draws.calls.size(), 2u);
    using Rectangle = std::tuple<GLint, GLint, GLsizei, GLsizei>;
    const std::vector<Rectangle> expected{Rectangle(0, 0, 12, 5), Rectangle(2, 6, 10, 4)};
    EXPECT_EQ(viewports.calls, expected);
    EXPECT_EQ(scissors.calls, expected);
    const Image result = readTexture(target.get());
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 12; ++x) {
            QVector4D average;
            // The first rectangle is half as high as the image, the second has less than half of its height.
            if (y < 5 && averagedPixel(image, {1, 2}, x, y, &average)) {
                EXPECT_LE((result.pixel(x, y) - average).length(), 1e-6f) << x << ", " << y;
            } else if (y == 5 || (y > 5 && x < 2)) {
                EXPECT_EQ(result.pixel(x, y), poison) << x << ", " << y;
            }
        }
    }
}

TEST_F(TextureToScreenRenderPassTest, aDepthSelectsTheDrawAndIsCopiedTexelByTexel)
{
    const Image image = pattern(16, 12);
    const auto source = makeTexture(image, GL_RGBA32F);
    const Image depths = depthPattern(16, 12);
    const auto depth = makeTexture(depths, GL_DEPTH_COMPONENT32F);
    const auto target = makeTarget(8, 6);
    const auto depthOut = makeTexture(depthFilled(8, 6, 0.0f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::EnableSuperSampling, false);
    pass.setInput(Pass::Viewport, QRect(0, 0, 8, 6));
    // A test that would reject everything must not.
    glDepthFunc(GL_NEVER);
    glDepthMask(GL_FALSE);
    pass.start(nullptr);
    const Image result = readTexture(target.get());
    const Image depthResult = readTexture(depthOut.get());
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) {
            QVector4D expected;
            ASSERT_TRUE(averagedPixel(image, {2, 2}, x, y, &expected));
            EXPECT_LE((result.pixel(x, y) - expected).length(), 1e-6f) << "the box filter runs all the same";
            EXPECT_EQ(*depthResult.at(x, y), *depths.at(x, y)) << "not scaled by the box";
        }
    }
}

TEST_F(TextureToScreenRenderPassTest, writesNoDepthWithoutADepth)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    const auto depthOut = makeTexture(depthFilled(4, 4, 0.5f), GL_DEPTH_COMPONENT32F);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    setTexture(Pass::DepthOut, depthOut);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(target.get()), pattern(4, 4)), 0.0);
    EXPECT_EQ(maximumDifference(readTexture(depthOut.get()), depthFilled(4, 4, 0.5f)), 0.0);
}

TEST_F(TextureToScreenRenderPassTest, superSamplingIsOffForNullAndForWhatDoesNotConvert)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    const auto draws = [&](const QVariant &value) {
        pass.setInput(Pass::EnableSuperSampling, value);
        BlitRecorder blits;
        pass.start(nullptr);
        return blits.calls.empty();
    };
    EXPECT_FALSE(draws(QVariant()));
    EXPECT_FALSE(draws(QVariant(QVariant::Bool)));
    EXPECT_FALSE(draws(QVariantList{true}));
    EXPECT_FALSE(draws(false));
    EXPECT_FALSE(draws(QStringLiteral("false")));
    EXPECT_TRUE(draws(true));
    EXPECT_TRUE(draws(1));
}

// State

TEST_F(TextureToScreenRenderPassTest, aDrawWithoutDepthLeavesTheStateThatItSets)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.setInput(Pass::ViewportOut, QRect(1, 0, 3, 2));
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_STENCIL_TEST, GL_SCISSOR_TEST})
        glEnable(capability);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glDepthMask(GL_FALSE);
    glDepthFunc(GL_GREATER);
    glStencilFunc(GL_NEVER, 0, 0xff);
    pass.start(nullptr);
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_STENCIL_TEST, GL_SCISSOR_TEST})
        EXPECT_FALSE(glFlag(capability)) << capability;
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    for (GLboolean channel : mask)
        EXPECT_TRUE(channel);
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_FALSE) << "untouched";
    EXPECT_EQ(glInteger(GL_DEPTH_FUNC), GL_GREATER) << "untouched";
    GLint rectangle[4];
    glGetIntegerv(GL_VIEWPORT, rectangle);
    EXPECT_EQ(QRect(rectangle[0], rectangle[1], rectangle[2], rectangle[3]), QRect(1, 0, 3, 2));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
    glStencilFunc(GL_ALWAYS, 0, 0xff);
}

TEST_F(TextureToScreenRenderPassTest, aDrawWithDepthLeavesTheDepthStateThatItSets)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::SourceDepth, depth);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    glDepthMask(GL_FALSE);
    glDepthFunc(GL_NEVER);
    pass.start(nullptr);
    EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
    EXPECT_EQ(glInteger(GL_DEPTH_FUNC), GL_ALWAYS);
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_TRUE);
    EXPECT_FALSE(glFlag(GL_SCISSOR_TEST));
    EXPECT_EQ(depth->unit(), 0) << "nothing stays bound";
    EXPECT_EQ(source->unit(), 0);
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

TEST_F(TextureToScreenRenderPassTest, aDrawLeavesTheReadFramebufferBound)
{
    const auto target = makeTarget(4, 4);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    const auto bystander = makeTarget(4, 4);
    FramebufferObject host;
    host.bind();
    host.attach(bystander.get(), GL_COLOR_ATTACHMENT0, 0);
    pass.start(nullptr);
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), int(host.getFBO()));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    host.unbind();
}

// What stays attached

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
    // DepthOut is attached when it goes.
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

// References

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

// Objects

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

TEST_F(TextureToScreenRenderPassTest, aToggleDeletesTheProgramsAndADrawBuildsThem)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    GLCallRecorder<&epoxy_glLinkProgram> links;
    GLCallRecorder<&epoxy_glDeleteProgram> deletions;
    for (int frame = 0; frame < 6; ++frame) {
        links.calls.clear();
        deletions.calls.clear();
        const bool superSampling = frame % 2 == 1;
        pass.setInput(Pass::EnableSuperSampling, superSampling);
        pass.start(nullptr);
        EXPECT_EQ(links.calls.size(), superSampling ? 2u : 0u) << "both programs, on every second frame";
        EXPECT_EQ(deletions.calls.size(), superSampling || frame == 0 ? 0u : 2u) << frame;
        EXPECT_EQ(maximumDifference(readTexture(target.get()), pattern(4, 4)), 0.0) << frame;
    }
    // Frames of one kind share them, with depth and without.
    const auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    links.calls.clear();
    deletions.calls.clear();
    for (int frame = 0; frame < 4; ++frame) {
        pass.setInput(Pass::EnableSuperSampling, true);
        setTexture(Pass::SourceDepth, frame % 2 ? depth.get() : nullptr);
        pass.start(nullptr);
    }
    EXPECT_TRUE(links.calls.empty());
    EXPECT_TRUE(deletions.calls.empty());
}

TEST_F(TextureToScreenRenderPassTest, definesTheDepthForOneOfItsProgramsOnly)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA32F);
    const auto depth = makeTexture(depthPattern(4, 4), GL_DEPTH_COMPONENT32F);
    const auto target = makeTarget(4, 4);
    setTexture(Pass::SourceTexture, source);
    setTexture(Pass::TextureOut, target);
    pass.setInput(Pass::Viewport, QRect(0, 0, 4, 4));
    bool readsDepth = false;
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    draws.onCall = [&](auto...) {
        readsDepth = glGetUniformLocation(GLuint(glInteger(GL_CURRENT_PROGRAM)), "u_SamplerDepth") >= 0;
    };
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.start(nullptr);
    EXPECT_FALSE(readsDepth);
    pass.setInput(Pass::EnableSuperSampling, false);
    setTexture(Pass::SourceDepth, depth);
    pass.start(nullptr);
    EXPECT_TRUE(readsDepth);
    pass.setInput(Pass::EnableSuperSampling, true);
    pass.start(nullptr);
    EXPECT_TRUE(readsDepth);
    EXPECT_EQ(draws.calls.size(), 3u);
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

TEST_F(TextureToScreenRenderPassTest, deletesAllItsObjectsInTheEnd)
{
    // What device and manager keep for everybody exists from here on.
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
