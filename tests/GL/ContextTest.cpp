// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/FramebufferObject.h>
#include <GL/GLExtensions.h>
#include <GL/GLStatistics.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

class ContextTest : public GLTest
{
protected:
    static std::unique_ptr<HeadlessContext> createContext(HeadlessContext *shareWith = nullptr)
    {
        HeadlessContext::Options options;
        options.shareWith = shareWith;
        auto made = HeadlessContext::create(options);
        EXPECT_NE(made, nullptr);
        return made;
    }
};

/// One object of each kind, with its GL name created.
struct Objects
{
    std::unique_ptr<Texture> texture = makeBlankTexture(2, 2, GL_RGBA8);
    std::unique_ptr<FramebufferObject> framebuffer = std::make_unique<FramebufferObject>();
    std::unique_ptr<ShaderProgram> program = makeColorProgram();
    std::unique_ptr<BufferObject> buffer = std::make_unique<BufferObject>();
    std::unique_ptr<VertexArrayObject> vertexArray = std::make_unique<VertexArrayObject>();

    Objects()
    {
        const float zero = 0;
        buffer->upload(&zero, 1, GL_STATIC_DRAW);
        AutoBinder framebufferBinder(framebuffer.get());
        AutoBinder vertexArrayBinder(vertexArray.get());
    }

    void destroy()
    {
        texture.reset();
        framebuffer.reset();
        program.reset();
        buffer.reset();
        vertexArray.reset();
    }
};

/// Records the names that are deleted while it lives, by kind.
struct Deletions
{
    GLCallRecorder<&epoxy_glDeleteTextures> textures;
    GLCallRecorder<&epoxy_glDeleteFramebuffers> framebuffers;
    GLCallRecorder<&epoxy_glDeleteProgram> programs;
    GLCallRecorder<&epoxy_glDeleteBuffers> buffers;
    GLCallRecorder<&epoxy_glDeleteVertexArrays> vertexArrays;

    size_t shared() const { return textures.calls.size() + programs.calls.size() + buffers.calls.size(); }
    size_t ofOneContext() const { return framebuffers.calls.size() + vertexArrays.calls.size(); }
};

} // namespace

TEST_F(ContextTest, everyContextHasItsOwnDeviceAndManager)
{
    const auto device = OpenGLDeviceContext::current();
    TextureManager *const manager = TextureManager::Instance();
    ASSERT_NE(device, nullptr);
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(OpenGLDeviceContext::current(), device);
    EXPECT_EQ(TextureManager::Instance(), manager);

    const auto other = createContext();
    EXPECT_NE(OpenGLDeviceContext::current(), nullptr);
    EXPECT_NE(OpenGLDeviceContext::current(), device);
    EXPECT_NE(TextureManager::Instance(), manager);

    context().makeCurrent();
    EXPECT_EQ(OpenGLDeviceContext::current(), device);
    EXPECT_EQ(TextureManager::Instance(), manager);
}

TEST_F(ContextTest, contextsThatShareHaveOneManager)
{
    const auto device = OpenGLDeviceContext::current();
    TextureManager *const manager = TextureManager::Instance();
    Texture *const texture = manager->tempTexture(TextureFormat::LowDynamicRange, 8, 8, 1, 1);

    auto sharer = createContext(&context());
    EXPECT_NE(OpenGLDeviceContext::current(), device);
    ASSERT_EQ(TextureManager::Instance(), manager);
    TextureManager::Instance()->releaseTempTextureRef(texture, 1);
    EXPECT_EQ(TextureManager::Instance()->tempTexture(TextureFormat::LowDynamicRange, 8, 8, 1, 1), texture);
    manager->releaseTempTextureRef(texture, 1);

    // Ending the first of two sharing contexts deletes nothing.
    const GLuint name = texture->textureID();
    sharer.reset();
    context().makeCurrent();
    EXPECT_EQ(TextureManager::Instance(), manager);
    EXPECT_TRUE(glIsTexture(name));
    manager->deleteUnusedTempTextures();
    EXPECT_FALSE(glIsTexture(name));
}

TEST_F(ContextTest, objectsAreDeletedInTheirContext)
{
    const GLObjectCounts before = glObjectCounts();
    Objects objects;
    const GLObjectCounts during = glObjectCounts();
    EXPECT_EQ(during.textures, before.textures + 1);
    EXPECT_EQ(during.framebuffers, before.framebuffers + 1);
    EXPECT_EQ(during.programs, before.programs + 1);
    EXPECT_EQ(during.buffers, before.buffers + 1);
    EXPECT_EQ(during.vertexArrays, before.vertexArrays + 1);
    const GLuint names[] = {objects.texture->textureID(), objects.framebuffer->getFBO(), objects.program->programID(),
        objects.buffer->getBO(), objects.vertexArray->getVAO()};
    EXPECT_TRUE(glIsTexture(names[0]) && glIsFramebuffer(names[1]) && glIsProgram(names[2]) && glIsBuffer(names[3])
        && glIsVertexArray(names[4]));
    objects.destroy();
    EXPECT_FALSE(glIsTexture(names[0]) || glIsFramebuffer(names[1]) || glIsProgram(names[2]) || glIsBuffer(names[3])
        || glIsVertexArray(names[4]));
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(ContextTest, objectsThatDieInASharingContextAreDeletedWhereTheyAreShared)
{
    Objects objects;
    const GLuint framebuffer = objects.framebuffer->getFBO();
    const GLuint vertexArray = objects.vertexArray->getVAO();
    const auto sharer = createContext(&context());
    {
        Deletions deletions;
        objects.destroy();
        EXPECT_EQ(deletions.shared(), 3u);
        EXPECT_EQ(deletions.ofOneContext(), 0u);
    }
    context().makeCurrent();
    EXPECT_TRUE(glIsFramebuffer(framebuffer));
    EXPECT_TRUE(glIsVertexArray(vertexArray));
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteVertexArrays(1, &vertexArray);
}

TEST_F(ContextTest, objectsThatDieInAForeignContextDropTheirNames)
{
    const GLObjectCounts before = glObjectCounts();
    auto first = createContext();
    Objects objects;
    const GLuint name = objects.texture->textureID();
    context().makeCurrent();
    {
        Deletions deletions;
        objects.destroy();
        EXPECT_EQ(deletions.shared() + deletions.ofOneContext(), 0u);
    }
    EXPECT_TRUE(glObjectCounts().textures == before.textures && glObjectCounts().programs == before.programs);
    first->makeCurrent();
    EXPECT_TRUE(glIsTexture(name));
    first.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(ContextTest, objectsThatDieWithoutAContextDropTheirNames)
{
    const GLObjectCounts before = glObjectCounts();
    auto first = createContext();
    Objects objects;
    first->doneCurrent();
    {
        Deletions deletions;
        objects.destroy();
        EXPECT_EQ(deletions.shared() + deletions.ofOneContext(), 0u);
    }
    first.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(ContextTest, objectsThatOutliveTheirContextDropTheirNames)
{
    auto first = createContext();
    Objects objects;
    first.reset();
    // The new context may well get the old handle.
    const auto second = createContext();
    Deletions deletions;
    objects.destroy();
    EXPECT_EQ(deletions.shared() + deletions.ofOneContext(), 0u);
}

TEST_F(ContextTest, aHandleThatComesAgainFindsNothingOld)
{
    const auto other = createContext();
    TextureManager *const manager = TextureManager::Instance();
    const auto device = OpenGLDeviceContext::current();
    manager->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1);
    Objects objects;
    const GLuint pooled = manager->pooledTextures().first().texture->textureID();
    OpenGLDeviceContext::announceContextEnd();
    EXPECT_FALSE(glIsTexture(pooled)); // The manager went with the context.

    // The current context now counts as a new one with the old handle.
    EXPECT_NE(OpenGLDeviceContext::current(), device);
    EXPECT_TRUE(TextureManager::Instance()->pooledTextures().isEmpty());
    Deletions deletions;
    objects.destroy();
    EXPECT_EQ(deletions.shared() + deletions.ofOneContext(), 0u);
}

TEST_F(ContextTest, anEndCanBeAnnouncedTwiceAndWithoutAContext)
{
    const auto other = createContext();
    OpenGLDeviceContext::current();
    OpenGLDeviceContext::announceContextEnd();
    OpenGLDeviceContext::announceContextEnd();
    other->doneCurrent();
    OpenGLDeviceContext::announceContextEnd();
    EXPECT_EQ(OpenGLDeviceContext::current(), nullptr);
}

TEST_F(ContextTest, sharingWithAStrangerChangesNothing)
{
    TextureManager *const manager = TextureManager::Instance();
    int stranger = 0;
    OpenGLDeviceContext::shareObjectsWith(&stranger);
    OpenGLDeviceContext::shareObjectsWith(nullptr);
    EXPECT_EQ(TextureManager::Instance(), manager);
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 2);
    EXPECT_TRUE(warnings[0].contains("Contexts cannot share objects")) << qPrintable(warnings[0]);
}

TEST_F(ContextTest, withoutAContextThereIsNothingToUse)
{
    context().doneCurrent();
    EXPECT_EQ(OpenGLDeviceContext::current(), nullptr);
    EXPECT_EQ(OpenGLDeviceContext::currentHandle(), nullptr);

    TextureManager *const manager = TextureManager::Instance();
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(manager->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1), nullptr);
    EXPECT_EQ(manager->colorTexture(Qt::red), nullptr);
    EXPECT_EQ(manager->loadTexture("image.png"), nullptr);
    EXPECT_EQ(manager->addManagedTexture(QImage(2, 2, QImage::Format_ARGB32)), 0);
    manager->addTempTextureRef(nullptr, 1);
    manager->releaseTempTextureRef(nullptr, 1);
    manager->deleteUnusedTempTextures();
    manager->bindTextures(nullptr);
    manager->unbindTextures(nullptr);
    manager->releaseManagedTexture(1);
    EXPECT_EQ(manager->poolStatistics().live, 0);

    const Texture texture(GL_TEXTURE_2D, GL_RGBA8, 5, 6, 0, nullptr);
    EXPECT_EQ(texture.textureID(), 0u);
    EXPECT_EQ(texture.width(0), 5);
    EXPECT_EQ(texture.height(0), 6);
    EXPECT_EQ(texture.internalFormat(0), GL_RGBA8);
    EXPECT_EQ(FramebufferObject().getFBO(), 0u);
    EXPECT_EQ(BufferObject().getBO(), 0u);
    EXPECT_EQ(VertexArrayObject().getVAO(), 0u);
    ShaderProgram program;
    EXPECT_FALSE(program.compile());
    EXPECT_FALSE(program.log().isEmpty());
    EXPECT_FALSE(program.link());
}

TEST_F(ContextTest, tessellationOfOneContextDoesNotTouchAnother)
{
    const auto first = createContext();
    if (epoxy_gl_version() < 40)
        GTEST_SKIP() << "this driver has no tessellation";
    const auto tessellated = makeProgram({
        {GL_VERTEX_SHADER, "#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"},
        {GL_TESS_EVALUATION_SHADER,
            "#version 400\nlayout(triangles) in;\nvoid main() { gl_Position = "
            "gl_TessCoord.x * gl_in[0].gl_Position + gl_TessCoord.y * gl_in[1].gl_Position "
            "+ gl_TessCoord.z * gl_in[2].gl_Position; }\n"},
        {GL_FRAGMENT_SHADER, "#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(1.0); }\n"},
    });
    const auto second = createContext();
    const auto plain = makeColorProgram();
    // Names are counted in each context separately.
    ASSERT_EQ(plain->programID(), tessellated->programID());
    const auto target = makeBlankTexture(2, 2, GL_RGBA8);
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_TRUE(drawQuad(plain.get()));
}

TEST_F(ContextTest, releasedResourcesAreRecreated)
{
    const auto other = createContext();
    const GLObjectCounts before = glObjectCounts();
    const auto device = OpenGLDeviceContext::current();
    auto quad = device->createScreenQuad();
    const auto positions = quad->VAO()->bo("va_Vertex");
    device->releaseResources();
    EXPECT_TRUE(glIsBuffer(positions->getBO())); // The quad is still alive.
    EXPECT_NE(device->createScreenQuad()->VAO()->bo("va_Vertex"), positions);
    quad.clear();
    device->releaseResources();
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays);
}

TEST_F(ContextTest, releasedResourcesHoldTheCopyingFramebuffersToo)
{
    const auto other = createContext();
    const auto device = OpenGLDeviceContext::current();
    const auto source = makeBlankTexture(4, 4, GL_RGBA8);
    const auto target = makeBlankTexture(4, 4, GL_RGBA8);
    const GLObjectCounts before = glObjectCounts();
    BlitTexture(source.get(), target.get(), TextureFormat::LowDynamicRange, 4, 4);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 2);
    {
        Deletions deletions;
        device->releaseResources();
        EXPECT_EQ(deletions.framebuffers.calls.size(), 2u);
    }
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    BlitTexture(source.get(), target.get(), TextureFormat::LowDynamicRange, 4, 4);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 2);

    // If released while its context is not current, the device drops the names.
    context().makeCurrent();
    Deletions deletions;
    device->releaseResources();
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(deletions.framebuffers.calls.size(), 0u);
}

TEST_F(ContextTest, theEndIsAnnouncedBeforeAnythingGoes)
{
    const auto other = createContext();
    const auto device = OpenGLDeviceContext::current();
    TextureManager *const manager = TextureManager::Instance();
    const auto quad = device->createScreenQuad();
    const GLuint positions = quad->VAO()->bo("va_Vertex")->getBO();
    const GLuint pooled = manager->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1)->textureID();
    QStringList calls;
    int first = -1;
    first = device->addEndListener([&] {
        EXPECT_EQ(OpenGLDeviceContext::current(), device);
        EXPECT_EQ(TextureManager::Instance(), manager);
        EXPECT_TRUE(glIsTexture(pooled));
        EXPECT_TRUE(glIsBuffer(positions));
        calls.append("first");
        device->removeEndListener(first);
    });
    const int second = device->addEndListener([&] { calls.append("second"); });
    const int third = device->addEndListener([&] { calls.append("third"); });
    EXPECT_NE(first, second);
    device->removeEndListener(second);
    device->removeEndListener(12345);
    OpenGLDeviceContext::announceContextEnd();
    EXPECT_EQ(calls, QStringList({"first", "third"}));
    EXPECT_NE(second, third);
    EXPECT_FALSE(glIsTexture(pooled));
    OpenGLDeviceContext::announceContextEnd();
    EXPECT_EQ(calls.size(), 2);
}

TEST_F(ContextTest, everyObjectThatAContextKeepsIsDeletedWithIt)
{
    const auto other = createContext();
    const auto source = makeBlankTexture(4, 4, GL_RGBA8);
    const auto target = makeBlankTexture(4, 4, GL_RGBA8);
    BlitTexture(source.get(), target.get(), TextureFormat::LowDynamicRange, 4, 4);
    OpenGLDeviceContext::current()->createScreenQuad();
    TextureManager::Instance()->colorTexture(Qt::red);
    TextureManager::Instance()->bindTextures(nullptr);
    TextureManager::Instance()->unbindTextures(nullptr);
    Deletions deletions;
    OpenGLDeviceContext::announceContextEnd();
    EXPECT_EQ(deletions.framebuffers.calls.size(), 2u); // Those of BlitTexture().
    EXPECT_EQ(deletions.buffers.calls.size(), 2u); // Those of the quads.
    EXPECT_EQ(deletions.textures.calls.size(), 2u); // The colour, and the white texture used without a material image.
}

TEST_F(ContextTest, aDeviceThatOutlivesItsContextHasNothingLeft)
{
    auto other = createContext();
    const auto device = OpenGLDeviceContext::current();
    bool called = false;
    other.reset();
    context().makeCurrent();
    device->addEndListener([&called] { called = true; });
    device->releaseResources();
    const auto last = createContext();
    EXPECT_NE(OpenGLDeviceContext::current(), device);
    OpenGLDeviceContext::announceContextEnd();
    EXPECT_FALSE(called);
}

} // namespace Velmora::Kvz
