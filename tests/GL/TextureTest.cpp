// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/FixedTextureUnits.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>

#include <epoxy/gl.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

using TextureTest = GLTest;

int activeUnit()
{
    return glInteger(GL_ACTIVE_TEXTURE) - GL_TEXTURE0;
}

} // namespace

TEST_F(TextureTest, startsEmpty)
{
    Texture texture;
    EXPECT_EQ(texture.target(), GLenum(GL_TEXTURE_2D));
    EXPECT_EQ(texture.unit(), 0);
    EXPECT_EQ(texture.width(0), 0);
    EXPECT_EQ(texture.height(0), 0);
    EXPECT_EQ(texture.internalFormat(0), 0);
    EXPECT_EQ(texture.samples(), 1);
    EXPECT_FALSE(texture.isReadOnly());
    texture.setTarget(GL_TEXTURE_CUBE_MAP);
    EXPECT_EQ(texture.target(), GLenum(GL_TEXTURE_CUBE_MAP));
}

TEST_F(TextureTest, takesUnitsFromOneUp)
{
    const auto first = makeBlankTexture(2, 2, GL_RGBA8);
    const auto second = makeBlankTexture(2, 2, GL_RGBA8);
    const auto third = makeBlankTexture(2, 2, GL_RGBA8);
    AutoBinder firstBinder(first.get());
    EXPECT_EQ(first->unit(), 1);
    {
        AutoBinder secondBinder(second.get());
        EXPECT_EQ(second->unit(), 2);
    }
    EXPECT_EQ(second->unit(), 0);
    AutoBinder thirdBinder(third.get());
    EXPECT_EQ(third->unit(), 2); // The unit that was freed.
    AutoBinder secondBinder(second.get());
    EXPECT_EQ(second->unit(), 3);
}

TEST_F(TextureTest, manyTexturesTakeDifferentUnitsBelowTheFixedOnes)
{
    std::vector<std::unique_ptr<Texture>> textures;
    for (int i = 0; i < 15; ++i) {
        textures.push_back(makeBlankTexture(1, 1, GL_RGBA8));
        textures.back()->bind();
        EXPECT_EQ(textures.back()->unit(), i + 1);
    }
    for (const QString &sampler : FixedTextureUnits::samplers())
        EXPECT_GT(FixedTextureUnits::unitOf(sampler), 15);
    while (!textures.empty()) {
        textures.back()->unbind();
        textures.pop_back();
    }
    EXPECT_EQ(activeUnit(), 0);
}

TEST_F(TextureTest, neverTakesAFixedUnit)
{
    const int units = glInteger(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS) - FixedTextureUnits::samplers().size() - 1;
    std::vector<std::unique_ptr<Texture>> textures;
    for (int i = 0; i < units; ++i) {
        textures.push_back(makeBlankTexture(1, 1, GL_RGBA8));
        textures.back()->bind();
    }
    EXPECT_EQ(textures.back()->unit(), units);
    const auto oneTooMany = makeBlankTexture(1, 1, GL_RGBA8);
    {
        AutoBinder binder(oneTooMany.get());
        EXPECT_EQ(log.takeWarnings().size(), 1);
        EXPECT_LE(oneTooMany->unit(), units);
    }
    while (!textures.empty()) {
        textures.back()->unbind();
        textures.pop_back();
    }
}

TEST_F(TextureTest, keepsItsUnitWhileItIsBoundAndMakesItActiveAgain)
{
    const auto texture = makeBlankTexture(2, 2, GL_RGBA8);
    const auto other = makeBlankTexture(2, 2, GL_RGBA8);
    texture->bind();
    EXPECT_EQ(activeUnit(), 1);
    other->bind();
    EXPECT_EQ(activeUnit(), 2);
    {
        AutoBinder again(texture.get());
        EXPECT_EQ(texture->unit(), 1);
        EXPECT_EQ(activeUnit(), 1);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_MIRRORED_REPEAT);
    }
    EXPECT_EQ(texture->unit(), 1);
    EXPECT_EQ(activeUnit(), 2);
    other->unbind();
    EXPECT_EQ(activeUnit(), 1);
    texture->unbind();
    EXPECT_EQ(activeUnit(), 0);
    EXPECT_EQ(texture->unit(), 0);

    GLint wrap = 0;
    AutoBinder binder(texture.get());
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &wrap);
    EXPECT_EQ(wrap, GL_MIRRORED_REPEAT);
    AutoBinder otherBinder(other.get());
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &wrap);
    EXPECT_EQ(wrap, GL_CLAMP_TO_EDGE);
}

TEST_F(TextureTest, theUnitItLeavesHoldsWhatItHeldBefore)
{
    const auto host = makeBlankTexture(2, 2, GL_RGBA8);
    const auto texture = makeBlankTexture(2, 2, GL_RGBA8);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, host->textureID());
    glActiveTexture(GL_TEXTURE7);
    {
        AutoBinder binder(texture.get());
        EXPECT_EQ(activeUnit(), 1);
        EXPECT_EQ(GLuint(glInteger(GL_TEXTURE_BINDING_2D)), texture->textureID());
    }
    EXPECT_EQ(activeUnit(), 7);
    glActiveTexture(GL_TEXTURE1);
    EXPECT_EQ(GLuint(glInteger(GL_TEXTURE_BINDING_2D)), host->textureID());
    glBindTexture(GL_TEXTURE_2D, 0);
}

TEST_F(TextureTest, unitZeroStaysEmpty)
{
    const auto texture = makeBlankTexture(2, 2, GL_RGBA8);
    Texture fresh(GL_TEXTURE_2D_ARRAY, GL_RGBA8, 1, 1, 1, nullptr);
    EXPECT_NE(fresh.textureID(), 0u); // Created with unit 0 active.
    EXPECT_EQ(texture->width(0), 2);
    for (GLenum binding : {GL_TEXTURE_BINDING_2D, GL_TEXTURE_BINDING_2D_ARRAY})
        EXPECT_EQ(glInteger(binding), 0);
}

TEST_F(TextureTest, everyTargetIsBoundAndComesBack)
{
    const struct
    {
        GLenum target;
        GLenum binding;
    } targets[] = {
        {GL_TEXTURE_1D, GL_TEXTURE_BINDING_1D},
        {GL_TEXTURE_1D_ARRAY, GL_TEXTURE_BINDING_1D_ARRAY},
        {GL_TEXTURE_2D, GL_TEXTURE_BINDING_2D},
        {GL_TEXTURE_2D_ARRAY, GL_TEXTURE_BINDING_2D_ARRAY},
        {GL_TEXTURE_3D, GL_TEXTURE_BINDING_3D},
        {GL_TEXTURE_CUBE_MAP, GL_TEXTURE_BINDING_CUBE_MAP},
        {GL_TEXTURE_BUFFER, GL_TEXTURE_BINDING_BUFFER},
        {GL_TEXTURE_2D_MULTISAMPLE, GL_TEXTURE_BINDING_2D_MULTISAMPLE},
        {GL_TEXTURE_2D_MULTISAMPLE_ARRAY, GL_TEXTURE_BINDING_2D_MULTISAMPLE_ARRAY},
        {GL_TEXTURE_RECTANGLE, GL_TEXTURE_BINDING_RECTANGLE},
        {GL_TEXTURE_CUBE_MAP_ARRAY, GL_TEXTURE_BINDING_CUBE_MAP_ARRAY},
    };
    for (const auto &entry : targets) {
        if (entry.target == GL_TEXTURE_CUBE_MAP_ARRAY && epoxy_gl_version() < 40)
            continue; // OpenGL before 4.0 has no such target.
        SCOPED_TRACE(entry.target);
        Texture texture;
        texture.setTarget(entry.target);
        Texture other;
        other.setTarget(entry.target);
        glActiveTexture(GL_TEXTURE1);
        glBindTexture(entry.target, other.textureID());
        glActiveTexture(GL_TEXTURE0);
        {
            AutoBinder binder(&texture);
            EXPECT_EQ(GLuint(glInteger(entry.binding)), texture.textureID());
        }
        glActiveTexture(GL_TEXTURE1);
        EXPECT_EQ(GLuint(glInteger(entry.binding)), other.textureID());
        glBindTexture(entry.target, 0);
        glActiveTexture(GL_TEXTURE0);
        EXPECT_EQ(glInteger(entry.binding), 0);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
}

TEST_F(TextureTest, keepsItsTargetOnceItHasItsName)
{
    Texture texture;
    EXPECT_NE(texture.textureID(), 0u);
    texture.setTarget(GL_TEXTURE_3D);
    EXPECT_EQ(texture.target(), GLenum(GL_TEXTURE_2D));
}

TEST_F(TextureTest, itsNameIsATextureBeforeItIsBound)
{
    const Texture texture;
    EXPECT_TRUE(glIsTexture(texture.textureID()));
}

TEST_F(TextureTest, recordsSizesAndAsksForWhatIsStored)
{
    Texture texture(GL_TEXTURE_2D, GL_RGBA, 10, 20, 0, nullptr);
    EXPECT_EQ(texture.width(0), 10);
    EXPECT_EQ(texture.height(0), 20);
    EXPECT_EQ(texture.internalFormat(0), GL_RGBA);
    texture.setSize(1, GL_RGBA, 5, 10, 0);
    EXPECT_EQ(texture.width(1), 5);
    {
        AutoBinder binder(&texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 32, 16, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        EXPECT_EQ(texture.width(0), 32);
        EXPECT_EQ(GLuint(glInteger(GL_TEXTURE_BINDING_2D)), texture.textureID());
    }
    EXPECT_EQ(texture.width(0), 32);
    EXPECT_EQ(texture.height(0), 16);
    EXPECT_EQ(texture.internalFormat(0), GL_RGBA); // As recorded, whatever the driver made of it.
    EXPECT_EQ(texture.width(1), 5);
    EXPECT_EQ(texture.height(3), 0);
}

TEST_F(TextureTest, asksGLForAFormatThatNobodyRecorded)
{
    Texture texture;
    {
        AutoBinder binder(&texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_R32F, 3, 3, 0, GL_RED, GL_FLOAT, nullptr);
    }
    EXPECT_EQ(texture.internalFormat(0), GL_R32F);
    Texture cube;
    cube.setTarget(GL_TEXTURE_CUBE_MAP);
    {
        AutoBinder binder(&cube);
        glTexImage2D(GL_TEXTURE_CUBE_MAP_POSITIVE_X, 0, GL_RG8, 6, 6, 0, GL_RG, GL_UNSIGNED_BYTE, nullptr);
    }
    EXPECT_EQ(cube.internalFormat(0), GL_RG8);
    EXPECT_EQ(cube.width(0), 6);
}

TEST_F(TextureTest, answersForLevelsThatCannotBe)
{
    const auto texture = makeBlankTexture(4, 4, GL_RGBA8);
    EXPECT_EQ(texture->width(-1), 0);
    EXPECT_EQ(texture->width(100), 0);
    EXPECT_EQ(texture->height(100), 0);
    EXPECT_EQ(texture->internalFormat(100), 0);
    const auto multisampled = makeMultisampleTexture(Image(4, 4), GL_RGBA8, 2);
    EXPECT_EQ(multisampled->width(1), 0);
    EXPECT_EQ(multisampled->width(0), 4);
}

TEST_F(TextureTest, countsItsSamples)
{
    EXPECT_EQ(makeMultisampleTexture(Image(4, 4), GL_RGBA8, 4)->samples(), 4);
    Texture empty;
    empty.setTarget(GL_TEXTURE_2D_MULTISAMPLE);
    EXPECT_EQ(empty.samples(), 1);
}

TEST_F(TextureTest, refusesToBeWrittenWhenReadOnly)
{
    const auto texture = makeBlankTexture(4, 4, GL_RGBA8);
    texture->setReadOnly();
    EXPECT_TRUE(texture->isReadOnly());
    glViewport(1, 2, 3, 4);
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_FALSE(framebuffer.hasAttachment(GL_COLOR_ATTACHMENT0));
    framebuffer.setDrawBuffers();
    EXPECT_EQ(glInteger(GL_VIEWPORT), 1);
    const auto source = makeBlankTexture(4, 4, GL_RGBA8);
    BlitTexture(source.get(), texture.get(), TextureFormat::LowDynamicRange, 4, 4);
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(TextureTest, freesItsUnitWhenItDiesBound)
{
    auto texture = makeBlankTexture(2, 2, GL_RGBA8);
    const GLuint name = texture->textureID();
    texture->bind();
    EXPECT_EQ(texture->unit(), 1);
    texture.reset();
    EXPECT_FALSE(glIsTexture(name));
    const auto other = makeBlankTexture(2, 2, GL_RGBA8);
    AutoBinder binder(other.get());
    EXPECT_EQ(other->unit(), 1);
}

TEST_F(TextureTest, everyKnownFormatMakesATexture)
{
    const GLenum formats[] = {GL_R8, GL_RG8, GL_RGB8, GL_RGBA8, GL_SRGB8, GL_SRGB8_ALPHA8, GL_R8_SNORM, GL_RG8_SNORM,
        GL_RGB8_SNORM, GL_RGBA8_SNORM, GL_R16, GL_RG16, GL_RGB16, GL_RGBA16, GL_RGB10_A2, GL_R11F_G11F_B10F, GL_RGB9_E5,
        GL_R16F, GL_RG16F, GL_RGB16F, GL_RGBA16F, GL_R32F, GL_RG32F, GL_RGB32F, GL_RGBA32F, GL_R8UI, GL_RG8UI,
        GL_RGBA8UI, GL_R16UI, GL_RG16UI, GL_RGBA16UI, GL_R32UI, GL_RG32UI, GL_RGB32UI, GL_RGBA32UI, GL_R8I, GL_RG8I,
        GL_RGBA8I, GL_R16I, GL_RG16I, GL_RGBA16I, GL_R32I, GL_RG32I, GL_RGB32I, GL_RGBA32I, GL_RED, GL_RG, GL_RGB,
        GL_RGBA, GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT24, GL_DEPTH_COMPONENT32,
        GL_DEPTH_COMPONENT32F, GL_DEPTH_STENCIL, GL_DEPTH24_STENCIL8, GL_DEPTH32F_STENCIL8};
    const std::vector<GLubyte> zeros(2 * 2 * 16);
    for (GLenum format : formats) {
        Texture texture(GL_TEXTURE_2D, int(format), 2, 2, 0, nullptr);
        AutoBinder binder(&texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GLint(format), 2, 2, 0, formatFromInternalFormat(format),
            typeFromInternalFormat(format), zeros.data());
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)) << std::hex << format;
        EXPECT_EQ(texture.width(0), 2) << std::hex << format;
    }
}

} // namespace Velmora::Kvz
