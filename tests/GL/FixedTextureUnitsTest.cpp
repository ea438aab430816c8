// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include <GL/AutoBinder.h>
#include <GL/BufferTexture.h>
#include <GL/FixedTextureUnits.h>
#include <GL/FramebufferObject.h>

#include <epoxy/gl.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

using FixedTextureUnitsTest = GLTest;

} // namespace

TEST_F(FixedTextureUnitsTest, countDownFromTheDriversLimit)
{
    FixedTextureUnits::reserve("kvz_TestRows");
    const int limit = glInteger(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS);
    const QStringList samplers = FixedTextureUnits::samplers();
    ASSERT_TRUE(samplers.contains("kvz_TestRows"));
    for (int i = 0; i < samplers.size(); ++i)
        EXPECT_EQ(FixedTextureUnits::unitOf(samplers[i]), limit - 1 - i);
}

TEST_F(FixedTextureUnitsTest, stayAsTheyWereReserved)
{
    FixedTextureUnits::reserve("kvz_TestRows");
    const int unit = FixedTextureUnits::unitOf("kvz_TestRows");
    FixedTextureUnits::reserve("kvz_TestMoreRows");
    FixedTextureUnits::reserve("kvz_TestRows");
    EXPECT_EQ(FixedTextureUnits::unitOf("kvz_TestRows"), unit);
    EXPECT_LT(FixedTextureUnits::unitOf("kvz_TestMoreRows"), unit);
    EXPECT_EQ(FixedTextureUnits::samplers().count("kvz_TestRows"), 1);
}

TEST_F(FixedTextureUnitsTest, anUnknownSamplerHasNone)
{
    EXPECT_EQ(FixedTextureUnits::unitOf("u_Input"), -1);
    EXPECT_EQ(FixedTextureUnits::unitOf(QString()), -1);
}

TEST_F(FixedTextureUnitsTest, areSetWhenAProgramLinks)
{
    FixedTextureUnits::reserve("kvz_TestRows");
    const auto program = makeQuadProgram(R"(#version 150
uniform samplerBuffer kvz_TestRows;
uniform sampler2D u_Other;
out vec4 out_FragColor;
void main() { out_FragColor = texelFetch(kvz_TestRows, 0) + texture(u_Other, vec2(0.5)); }
)");
    GLint unit = -1;
    glGetUniformiv(program->programID(), program->getUniformLocation("kvz_TestRows"), &unit);
    EXPECT_EQ(unit, FixedTextureUnits::unitOf("kvz_TestRows"));
    glGetUniformiv(program->programID(), program->getUniformLocation("u_Other"), &unit);
    EXPECT_EQ(unit, 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
}

TEST_F(FixedTextureUnitsTest, letABufferTextureBeReadWithoutAskingTheProgram)
{
    BufferTexture rows("kvz_TestRows", GL_RGBA32F);
    const auto program = makeQuadProgram(R"(#version 150
uniform samplerBuffer kvz_TestRows;
out vec4 out_FragColor;
void main() { out_FragColor = texelFetch(kvz_TestRows, int(gl_FragCoord.x)); }
)");
    const float texels[] = {1, 2, 3, 4, 5, 6, 7, 8};
    rows.upload(texels, sizeof(texels));
    EXPECT_EQ(rows.size(), long(sizeof(texels)));
    const auto target = makeBlankTexture(2, 1, GL_RGBA32F);
    FramebufferObject framebuffer;
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    {
        AutoBinder rowsBinder(&rows);
        EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE0);
        EXPECT_TRUE(drawQuad(program.get()));
    }
    EXPECT_EQ(readTexture(target.get()).pixel(0, 0), QVector4D(1, 2, 3, 4));
    EXPECT_EQ(readTexture(target.get()).pixel(1, 0), QVector4D(5, 6, 7, 8));

    // The same texture takes storage of another size, and part of it can be replaced.
    const std::vector<float> more(400, 9.0f);
    rows.upload(more.data(), long(more.size() * sizeof(float)));
    const float changed[] = {10, 11, 12, 13};
    rows.uploadRange(changed, 16, sizeof(changed));
    {
        AutoBinder rowsBinder(&rows);
        EXPECT_TRUE(drawQuad(program.get()));
    }
    EXPECT_EQ(readTexture(target.get()).pixel(0, 0), QVector4D(9, 9, 9, 9));
    EXPECT_EQ(readTexture(target.get()).pixel(1, 0), QVector4D(10, 11, 12, 13));
}

TEST_F(FixedTextureUnitsTest, giveBackWhatABufferTextureCovered)
{
    BufferTexture outer("kvz_TestRows", GL_RGBA32F);
    BufferTexture inner("kvz_TestRows", GL_R32UI);
    outer.upload(nullptr, 0);
    EXPECT_EQ(outer.size(), 16); // One texel of zeros.
    const auto bound = [] {
        glActiveTexture(GL_TEXTURE0 + GLenum(FixedTextureUnits::unitOf("kvz_TestRows")));
        const int name = glInteger(GL_TEXTURE_BINDING_BUFFER);
        glActiveTexture(GL_TEXTURE0);
        return name;
    };
    EXPECT_EQ(bound(), 0);
    {
        AutoBinder outerBinder(&outer);
        const int outerName = bound();
        EXPECT_NE(outerName, 0);
        {
            AutoBinder innerBinder(&inner);
            EXPECT_NE(bound(), outerName);
            EXPECT_NE(bound(), 0);
            AutoBinder again(&outer);
            EXPECT_EQ(bound(), outerName);
        }
        EXPECT_EQ(bound(), outerName);
    }
    EXPECT_EQ(bound(), 0);
}

TEST_F(FixedTextureUnitsTest, showOneContentUnderTwoSamplers)
{
    BufferTexture first("kvz_TestRows", GL_R32F);
    BufferTexture second("kvz_TestMoreRows", first);
    const float value = 7;
    second.upload(&value, sizeof(value));
    EXPECT_EQ(first.buffer(), second.buffer());
    EXPECT_EQ(first.size(), 4);
    EXPECT_GE(BufferTexture::maximumTexels(), 65536);
}

} // namespace Velmora::Kvz
