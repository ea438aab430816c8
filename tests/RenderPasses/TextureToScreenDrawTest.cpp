// SPDX-License-Identifier: MIT
// TextureToScreenRenderPass where it draws: with depth, or with super sampling.
#include "TextureToScreenFixture.h"

#include <cmath>

namespace Velmora::Kvz {

namespace {

struct Step
{
    int x;
    int y;
};

/// The number of texels that the draw averages along each axis.
Step stepOf(const Image &source, const QRect &destination)
{
    return {std::max(1, int(std::lround(double(source.width) / destination.width()))),
        std::max(1, int(std::lround(double(source.height) / destination.height())))};
}

/// The result of the draw at a pixel; false where its box extends beyond the image, whose result is undefined.
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

} // namespace

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
        // In a rectangle larger than the image, the image keeps its own size.
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
    const Step step = stepOf(image, destination); // 3 by 4: from column 8 on, boxes extend beyond the image.
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
    // The positions of the source rectangles have no effect.
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
            // The first rectangle is half as high as the image, the second less than half.
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
    // A depth test that would reject everything has no effect.
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
    // Frames with super sampling share the programs, with depth and without.
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

} // namespace Velmora::Kvz
