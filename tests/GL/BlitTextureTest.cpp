// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/BufferObject.h>
#include <GL/FramebufferObject.h>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using BlitTextureTest = GLTest;
constexpr auto Ldr = TextureFormat::LowDynamicRange;

/// A different colour in each texel.
Image pattern(int width, int height)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, QVector4D(x / 255.0f, y / 255.0f, ((x * 7 + y * 3) % 11) / 255.0f, (x + y) / 255.0f));
    }
    return image;
}

} // namespace

TEST_F(BlitTextureTest, copies)
{
    const Image image = pattern(9, 5);
    const auto source = makeTexture(image, GL_RGBA8);
    const auto destination = makeBlankTexture(9, 5, GL_RGBA8);
    BlitTexture(source.get(), destination.get(), Ldr, 9, 5);
    EXPECT_EQ(maximumDifference(readTexture(destination.get()), readTexture(source.get())), 0.0);
    EXPECT_LT(maximumDifference(readTexture(destination.get()), image), 1e-6);
}

TEST_F(BlitTextureTest, convertsBetweenFormats)
{
    const Image image = pattern(9, 5);
    const auto source = makeTexture(image, GL_RGBA8);
    const auto destination = makeBlankTexture(9, 5, GL_RGBA16F);
    BlitTexture(source.get(), destination.get(), TextureFormat::HighDynamicRange, 9, 5);
    EXPECT_LT(maximumDifference(readTexture(destination.get()), image), 1e-4);
}

TEST_F(BlitTextureTest, scales)
{
    // Linear filtering keeps a ramp a ramp.
    Image image(8, 8);
    for (int i = 0; i < 64; ++i)
        image.setPixel(i % 8, i / 8, QVector4D((i % 8 + 0.5f) / 8, (i / 8 + 0.5f) / 8, 0, 1));
    const auto source = makeTexture(image, GL_RGBA32F);
    const auto destination = makeBlankTexture(4, 16, GL_RGBA32F);
    BlitTexture(source.get(), destination.get(), TextureFormat::Position, 4, 16);
    const Image scaled = readTexture(destination.get());
    for (int y = 1; y < 15; ++y) {
        for (int x = 0; x < 4; ++x) {
            EXPECT_NEAR(scaled.pixel(x, y).x(), (x + 0.5f) / 4, 1e-3);
            EXPECT_NEAR(scaled.pixel(x, y).y(), (y + 0.5f) / 16, 1e-3);
        }
    }
}

TEST_F(BlitTextureTest, fillsOnlyTheLowerLeftPart)
{
    const auto source = makeTexture(pattern(4, 4), GL_RGBA8);
    Image white(8, 8);
    white.data.fill(1);
    const auto destination = makeTexture(white, GL_RGBA8);
    BlitTexture(source.get(), destination.get(), Ldr, 4, 4);
    const Image result = readTexture(destination.get());
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            const QVector4D expected = x < 4 && y < 4 ? pattern(4, 4).pixel(x, y) : QVector4D(1, 1, 1, 1);
            EXPECT_LT((result.pixel(x, y) - expected).length(), 1e-6f);
        }
    }
}

TEST_F(BlitTextureTest, resolves)
{
    const Image image = pattern(6, 5);
    for (GLint format : {GL_RGBA8, GL_RGBA16F}) { // With the same format and with another.
        const auto source = makeMultisampleTexture(image, GL_RGBA8, 4);
        const auto destination = makeBlankTexture(6, 5, format);
        GLCallRecorder<&epoxy_glBlitFramebuffer> blits;
        BlitTexture(source.get(), destination.get(), Ldr, 6, 5);
        // Strict drivers refuse to resolve and convert in one blit.
        EXPECT_EQ(blits.calls.size(), format == GL_RGBA8 ? 1u : 2u);
        EXPECT_LT(maximumDifference(readTexture(destination.get()), image), 1e-4) << format;
    }
}

TEST_F(BlitTextureTest, resolvesToTheMeanOfTheSamples)
{
    Texture source(GL_TEXTURE_2D_MULTISAMPLE, GL_RGBA32F, 2, 2, 0, nullptr);
    {
        AutoBinder binder(&source);
        glTexImage2DMultisample(GL_TEXTURE_2D_MULTISAMPLE, 4, GL_RGBA32F, 2, 2, GL_TRUE);
    }
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(&source, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glClear(GL_COLOR_BUFFER_BIT);
    const auto program = makeColorProgram();
    program->setUniform("u_Color", QVector4D(1, 1, 1, 1));
    glEnable(GL_SAMPLE_MASK);
    glSampleMaski(0, 1); // One of four samples.
    EXPECT_TRUE(drawQuad(program.get()));
    glSampleMaski(0, ~0u);
    glDisable(GL_SAMPLE_MASK);
    const auto destination = makeBlankTexture(2, 2, GL_RGBA32F);
    BlitTexture(&source, destination.get(), TextureFormat::Position, 2, 2);
    EXPECT_EQ(readTexture(destination.get()).pixel(1, 1), QVector4D(0.25f, 0.25f, 0.25f, 0.25f));
}

TEST_F(BlitTextureTest, resolvesAndScales)
{
    Image image(8, 8);
    for (int i = 0; i < 64; ++i)
        image.setPixel(i % 8, i / 8, QVector4D((i % 8 + 0.5f) / 8, (i / 8 + 0.5f) / 8, 0, 1));
    for (const int size : {8, 12}) { // The resolve target is reused, and recreated for another size.
        const auto source = makeMultisampleTexture(image, GL_RGBA16F, 2);
        const auto destination = makeBlankTexture(4, 4, GL_RGBA32F);
        BlitTexture(source.get(), destination.get(), TextureFormat::Position, 4, 4);
        const Image scaled = readTexture(destination.get());
        for (int i = 0; i < 16; ++i)
            EXPECT_LT(
                (scaled.pixel(i % 4, i / 4) - QVector4D((i % 4 + 0.5f) / 4, (i / 4 + 0.5f) / 4, 0, 1)).length(), 2e-3f);
        const auto other = makeMultisampleTexture(Image(size, size), GL_RGBA8, 2);
        BlitTexture(other.get(), destination.get(), TextureFormat::Position, 4, 4);
        EXPECT_EQ(readTexture(destination.get()).pixel(2, 2), QVector4D(0, 0, 0, 0));
    }
}

TEST_F(BlitTextureTest, copiesDepthAndStencil)
{
    Image depth(4, 4, 1);
    for (int i = 0; i < 16; ++i)
        depth.data[i] = i / 16.0f;
    const auto source = makeTexture(depth, GL_DEPTH24_STENCIL8);
    {
        FramebufferObject framebuffer;
        AutoBinder binder(&framebuffer);
        framebuffer.attach(source.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
        framebuffer.setDrawBuffers();
        glClearStencil(77);
        glClear(GL_STENCIL_BUFFER_BIT);
    }
    const auto destination = makeTexture(Image(4, 4, 1), GL_DEPTH24_STENCIL8);
    BlitTexture(source.get(), destination.get(), TextureFormat::DepthStencil, 4, 4);
    EXPECT_LT(maximumDifference(readTexture(destination.get()), depth), 1e-6);
    EXPECT_EQ(readStencil(destination.get()), QVector<int>(16, 77));
}

TEST_F(BlitTextureTest, copiesDepthAlone)
{
    Image depth(4, 4, 1);
    for (int i = 0; i < 16; ++i)
        depth.data[i] = i / 16.0f;
    const auto source = makeTexture(depth, GL_DEPTH_COMPONENT32F);
    const auto destination = makeTexture(Image(4, 4, 1), GL_DEPTH_COMPONENT32F);
    BlitTexture(source.get(), destination.get(), TextureFormat::DepthStencil, 4, 4);
    EXPECT_EQ(maximumDifference(readTexture(destination.get()), depth), 0.0);
}

TEST_F(BlitTextureTest, leavesTheStateAsItWas)
{
    const auto source = makeMultisampleTexture(pattern(4, 4), GL_RGBA8, 4);
    const auto destination = makeBlankTexture(4, 4, GL_RGBA16F);
    FramebufferObject read;
    FramebufferObject draw;
    glBindFramebuffer(GL_READ_FRAMEBUFFER, read.getFBO());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, draw.getFBO());
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_FALSE);
    glViewport(1, 2, 3, 4);
    BufferObject unpack;
    unpack.setTarget(GL_PIXEL_UNPACK_BUFFER);
    unpack.uploadBytes(nullptr, 1, GL_STATIC_DRAW);
    {
        AutoBinder unpackBinder(&unpack);
        AutoBinder sourceBinder(source.get()); // Passes keep their input bound.
        BlitTexture(source.get(), destination.get(), TextureFormat::HighDynamicRange, 4, 4);
        EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE) - GL_TEXTURE0, source->unit());
    }
    EXPECT_EQ(GLuint(glInteger(GL_READ_FRAMEBUFFER_BINDING)), read.getFBO());
    EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), draw.getFBO());
    EXPECT_TRUE(glFlag(GL_SCISSOR_TEST));
    EXPECT_EQ(glInteger(GL_VIEWPORT), 1);
    GLboolean mask[4] = {};
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    EXPECT_TRUE(mask[0] && !mask[1] && mask[2] && !mask[3]);
    // Neither scissor nor masks restricted the copy.
    EXPECT_LT(maximumDifference(readTexture(destination.get()), pattern(4, 4)), 1e-4);
}

TEST_F(BlitTextureTest, keepsNoHoldOnTheTextures)
{
    auto source = makeBlankTexture(4, 4, GL_RGBA8);
    auto destination = makeBlankTexture(4, 4, GL_RGBA8);
    BlitTexture(source.get(), destination.get(), Ldr, 4, 4);
    const auto second = makeTexture(pattern(4, 4), GL_RGBA8);
    source.reset();
    BlitTexture(second.get(), destination.get(), Ldr, 4, 4);
    EXPECT_LT(maximumDifference(readTexture(destination.get()), pattern(4, 4)), 1e-6);
}

TEST_F(BlitTextureTest, ignoresWhatIsNotThere)
{
    const auto texture = makeTexture(pattern(4, 4), GL_RGBA8);
    BlitTexture(nullptr, texture.get(), Ldr, 4, 4);
    BlitTexture(texture.get(), nullptr, Ldr, 4, 4);
    const auto destination = makeBlankTexture(4, 4, GL_RGBA8);
    BlitTexture(texture.get(), destination.get(), Ldr, 0, 4);
    BlitTexture(texture.get(), destination.get(), Ldr, 4, -1);
    EXPECT_EQ(readTexture(destination.get()).pixel(3, 3), QVector4D(0, 0, 0, 0));
}

} // namespace Velmora::Kvz
