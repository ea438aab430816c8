// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/AutoEnabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>

#include <epoxy/gl.h>

#include <functional>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// Two objects of one kind, and the binding that GL reports for it.
struct Pair
{
    const char *kind;
    std::shared_ptr<Bindable> first;
    std::shared_ptr<Bindable> second;
    std::function<int()> bound;
    std::function<void(GLuint)> bindDirectly;
};

std::shared_ptr<DrawBuffers> drawableWithArray()
{
    auto drawable = std::make_shared<DrawBuffers>();
    drawable->setVAO(OpenGLDeviceContext::current()->createVertexArrayObject());
    return drawable;
}

std::shared_ptr<BufferObject> bufferFor(GLenum target)
{
    auto buffer = std::make_shared<BufferObject>();
    buffer->setTarget(target);
    return buffer;
}

class BindingTest : public GLTest
{
protected:
    static std::vector<Pair> allKinds()
    {
        const auto query = [](GLenum name) { return [name] { return glInteger(name); }; };
        const auto buffers = [&query](const char *kind, GLenum target, GLenum binding) {
            return Pair{kind, bufferFor(target), bufferFor(target), query(binding),
                [target](GLuint name) { glBindBuffer(target, name); }};
        };
        return {
            {"framebuffer", std::make_shared<FramebufferObject>(), std::make_shared<FramebufferObject>(),
                query(GL_DRAW_FRAMEBUFFER_BINDING), [](GLuint name) { glBindFramebuffer(GL_FRAMEBUFFER, name); }},
            {"program", std::shared_ptr<Bindable>(makeColorProgram()), std::shared_ptr<Bindable>(makeColorProgram()),
                query(GL_CURRENT_PROGRAM), [](GLuint name) { glUseProgram(name); }},
            {"vertex array", std::make_shared<VertexArrayObject>(), std::make_shared<VertexArrayObject>(),
                query(GL_VERTEX_ARRAY_BINDING), [](GLuint name) { glBindVertexArray(name); }},
            {"drawable", drawableWithArray(), drawableWithArray(), query(GL_VERTEX_ARRAY_BINDING),
                [](GLuint name) { glBindVertexArray(name); }},
            buffers("array buffer", GL_ARRAY_BUFFER, GL_ARRAY_BUFFER_BINDING),
            buffers("unpack buffer", GL_PIXEL_UNPACK_BUFFER, GL_PIXEL_UNPACK_BUFFER_BINDING),
            buffers("pack buffer", GL_PIXEL_PACK_BUFFER, GL_PIXEL_PACK_BUFFER_BINDING),
            buffers("uniform buffer", GL_UNIFORM_BUFFER, GL_UNIFORM_BUFFER_BINDING),
            buffers("texture buffer", GL_TEXTURE_BUFFER, GL_TEXTURE_BUFFER),
            buffers("copy buffer", GL_COPY_READ_BUFFER, GL_COPY_READ_BUFFER),
        };
    }
};

} // namespace

TEST_F(BindingTest, bringsBackWhatWasBound)
{
    for (const Pair &pair : allKinds()) {
        SCOPED_TRACE(pair.kind);
        const int before = pair.bound();
        {
            AutoBinder outer(pair.first.get());
            const int first = pair.bound();
            EXPECT_NE(first, before);
            {
                AutoBinder inner(pair.second.get());
                EXPECT_NE(pair.bound(), first);
                EXPECT_NE(pair.bound(), before);
            }
            EXPECT_EQ(pair.bound(), first);
        }
        EXPECT_EQ(pair.bound(), before);
    }
}

TEST_F(BindingTest, nestsOnOneObject)
{
    for (const Pair &pair : allKinds()) {
        SCOPED_TRACE(pair.kind);
        {
            AutoBinder outer(pair.first.get());
            const int first = pair.bound();
            {
                AutoBinder other(pair.second.get());
                AutoBinder again(pair.first.get());
                AutoBinder third(pair.first.get());
                EXPECT_EQ(pair.bound(), first);
            }
            EXPECT_EQ(pair.bound(), first);
        }
        EXPECT_EQ(pair.bound(), 0);
    }
}

TEST_F(BindingTest, keepsNoCacheOfWhatIsBound)
{
    for (const Pair &pair : allKinds()) {
        SCOPED_TRACE(pair.kind);
        {
            AutoBinder outer(pair.first.get());
            const int first = pair.bound();
            pair.bindDirectly(0);
            EXPECT_EQ(pair.bound(), 0);
            {
                AutoBinder again(pair.first.get());
                EXPECT_EQ(pair.bound(), first);
            }
            EXPECT_EQ(pair.bound(), 0);
        }
        EXPECT_EQ(pair.bound(), 0);
        pair.first->bind();
        const int first = pair.bound();
        pair.first->unbind();
        pair.bindDirectly(GLuint(first));
        {
            AutoBinder binder(pair.second.get());
        }
        EXPECT_EQ(pair.bound(), first);
        pair.bindDirectly(0);
    }
}

TEST_F(BindingTest, acceptsNull)
{
    const auto program = makeColorProgram();
    AutoBinder outer(program.get());
    {
        AutoBinder pointer(static_cast<Bindable *>(nullptr));
        AutoBinder shared((QSharedPointer<Bindable>()));
        EXPECT_EQ(GLuint(glInteger(GL_CURRENT_PROGRAM)), program->programID());
    }
    EXPECT_EQ(GLuint(glInteger(GL_CURRENT_PROGRAM)), program->programID());
}

TEST_F(BindingTest, keepsASharedObjectAlive)
{
    auto vertexArray = OpenGLDeviceContext::current()->createVertexArrayObject();
    {
        AutoBinder binder(vertexArray);
        const GLuint name = vertexArray->getVAO();
        vertexArray.clear();
        EXPECT_TRUE(glIsVertexArray(name));
    }
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
}

TEST_F(BindingTest, aDrawableWithoutAnArrayLeavesTheBinding)
{
    VertexArrayObject array;
    AutoBinder arrayBinder(&array);
    DrawBuffers empty;
    AutoBinder binder(&empty);
    EXPECT_EQ(GLuint(glInteger(GL_VERTEX_ARRAY_BINDING)), array.getVAO());
}

TEST_F(BindingTest, keepsReadAndDrawFramebufferApart)
{
    FramebufferObject read;
    FramebufferObject draw;
    FramebufferObject both;
    glBindFramebuffer(GL_READ_FRAMEBUFFER, read.getFBO());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, draw.getFBO());
    {
        AutoBinder binder(&both);
        EXPECT_EQ(GLuint(glInteger(GL_READ_FRAMEBUFFER_BINDING)), both.getFBO());
        EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), both.getFBO());
    }
    EXPECT_EQ(GLuint(glInteger(GL_READ_FRAMEBUFFER_BINDING)), read.getFBO());
    EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), draw.getFBO());
}

TEST_F(BindingTest, bringsBackTheHostsFramebuffer)
{
    GLuint host = 0;
    glGenFramebuffers(1, &host);
    glBindFramebuffer(GL_FRAMEBUFFER, host);
    {
        FramebufferObject own;
        AutoBinder binder(&own);
        EXPECT_NE(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), host);
    }
    EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), host);
    EXPECT_EQ(GLuint(glInteger(GL_READ_FRAMEBUFFER_BINDING)), host);
    glDeleteFramebuffers(1, &host);
}

TEST_F(BindingTest, anUnbindTooManyBindsNothing)
{
    const auto program = makeColorProgram();
    program->bind();
    program->unbind();
    program->unbind();
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    FramebufferObject framebuffer;
    framebuffer.unbind();
    Texture texture;
    texture.unbind();
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
}

TEST_F(BindingTest, manyObjectsNestAsADrawNestsThem)
{
    FramebufferObject framebuffer;
    const auto program = makeColorProgram();
    const auto first = makeBlankTexture(2, 2, GL_RGBA8);
    const auto second = makeBlankTexture(2, 2, GL_RGBA8);
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    {
        AutoBinder framebufferBinder(&framebuffer);
        AutoBinder programBinder(program.get());
        AutoBinder firstBinder(first.get());
        AutoBinder secondBinder(second.get());
        AutoBinder sameAgain(first.get()); // Two inputs of a pass may be the same substitute.
        AutoBinder quadBinder(quad);
        EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), framebuffer.getFBO());
        EXPECT_EQ(GLuint(glInteger(GL_CURRENT_PROGRAM)), program->programID());
        EXPECT_EQ(GLuint(glInteger(GL_VERTEX_ARRAY_BINDING)), quad->VAO()->getVAO());
        for (const Texture *texture : {first.get(), second.get()}) {
            glActiveTexture(GL_TEXTURE0 + GLenum(texture->unit()));
            EXPECT_EQ(GLuint(glInteger(GL_TEXTURE_BINDING_2D)), texture->textureID());
        }
    }
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(first->unit(), 0);
    EXPECT_EQ(second->unit(), 0);
    for (GLenum unit : {0, 1, 2, 3}) {
        glActiveTexture(GL_TEXTURE0 + unit);
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D), 0);
    }
}

TEST_F(BindingTest, capabilitiesComeBack)
{
    for (GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_PROGRAM_POINT_SIZE, GL_TEXTURE_CUBE_MAP_SEAMLESS}) {
        for (const bool before : {false, true}) {
            before ? glEnable(capability) : glDisable(capability);
            {
                AutoEnabler enabler(capability);
                EXPECT_TRUE(glFlag(capability));
                {
                    AutoDisabler disabler(capability);
                    EXPECT_FALSE(glFlag(capability));
                }
                EXPECT_TRUE(glFlag(capability));
                glDisable(capability); // State set inside is restored whatever it is.
            }
            EXPECT_EQ(glFlag(capability), before);
            {
                AutoDisabler disabler(capability);
                EXPECT_FALSE(glFlag(capability));
                glEnable(capability);
            }
            EXPECT_EQ(glFlag(capability), before);
        }
        glDisable(capability);
    }
}

} // namespace Velmora::Kvz
