// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>

#include <epoxy/gl.h>

#include <array>

namespace Velmora::Kvz {

namespace {

using Viewport = std::array<GLint, 4>;

class FramebufferObjectTest : public GLTest
{
protected:
    FramebufferObjectTest() { context().makeCurrent(); }

    static std::unique_ptr<Texture> makeArray(GLenum target, int width, int height, int layers)
    {
        auto texture = std::make_unique<Texture>(target, GL_RGBA8, width, height, layers, nullptr);
        AutoBinder binder(texture.get());
        glTexImage3D(target, 0, GL_RGBA8, width, height, layers, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        return texture;
    }

    static Viewport viewport()
    {
        Viewport values;
        glGetIntegerv(GL_VIEWPORT, values.data());
        return values;
    }

    static bool isComplete() { return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE; }

    static GLint attachedName(GLenum point)
    {
        GLint name = 0;
        GLint type = GL_NONE;
        glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, point, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &type);
        if (type != GL_NONE)
            glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, point, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
        return name;
    }

    static void clearTo(float red, float green, float blue)
    {
        glClearColor(red, green, blue, 1);
        glClear(GL_COLOR_BUFFER_BIT);
    }

    FramebufferObject framebuffer;
};

} // namespace

TEST_F(FramebufferObjectTest, attachesAndDetaches)
{
    const auto texture = makeBlankTexture(4, 4, GL_RGBA8);
    AutoBinder binder(&framebuffer);
    EXPECT_EQ(framebuffer.detach(GL_COLOR_ATTACHMENT0), nullptr);
    EXPECT_EQ(framebuffer.attachment(GL_COLOR_ATTACHMENT0), nullptr);
    EXPECT_FALSE(framebuffer.hasAttachment(GL_COLOR_ATTACHMENT0));

    framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(framebuffer.attachment(GL_COLOR_ATTACHMENT0), texture.get());
    EXPECT_TRUE(framebuffer.hasAttachment(GL_COLOR_ATTACHMENT0));
    EXPECT_TRUE(isComplete());
    clearTo(1, 0, 0);
    EXPECT_EQ(readTexture(texture.get()).pixel(3, 3), QVector4D(1, 0, 0, 1));

    EXPECT_EQ(framebuffer.detach(GL_COLOR_ATTACHMENT0), texture.get());
    EXPECT_EQ(attachedName(GL_COLOR_ATTACHMENT0), 0);
    EXPECT_EQ(framebuffer.detach(GL_COLOR_ATTACHMENT0), nullptr);
}

TEST_F(FramebufferObjectTest, detachesWithoutBeingBound)
{
    const auto texture = makeBlankTexture(4, 4, GL_RGBA8);
    const auto other = makeBlankTexture(4, 4, GL_RGBA8);
    FramebufferObject bound;
    AutoBinder outer(&bound);
    bound.attach(other.get(), GL_COLOR_ATTACHMENT0, 0);
    {
        AutoBinder binder(&framebuffer);
        framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    }
    EXPECT_EQ(framebuffer.detach(GL_COLOR_ATTACHMENT0), texture.get());
    EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), bound.getFBO());
    EXPECT_EQ(GLuint(attachedName(GL_COLOR_ATTACHMENT0)), other->textureID());
    AutoBinder binder(&framebuffer);
    EXPECT_EQ(attachedName(GL_COLOR_ATTACHMENT0), 0);
}

TEST_F(FramebufferObjectTest, detachesEverything)
{
    const auto color = makeBlankTexture(4, 4, GL_RGBA8);
    const auto second = makeBlankTexture(4, 4, GL_RGBA8);
    const auto depth = makeTexture(Image(4, 4, 1), GL_DEPTH24_STENCIL8);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(color.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.attach(second.get(), GL_COLOR_ATTACHMENT1, 0);
    framebuffer.attach(depth.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    EXPECT_TRUE(isComplete());
    framebuffer.detachAll();
    for (GLenum point : {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_DEPTH_ATTACHMENT, GL_STENCIL_ATTACHMENT})
        EXPECT_EQ(attachedName(point), 0);
    for (GLenum point : {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_DEPTH_STENCIL_ATTACHMENT})
        EXPECT_FALSE(framebuffer.hasAttachment(point));
    framebuffer.detachAll();
}

TEST_F(FramebufferObjectTest, aNullTextureDetaches)
{
    const auto texture = makeBlankTexture(4, 4, GL_RGBA8);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.attach(nullptr, GL_COLOR_ATTACHMENT0, 0);
    EXPECT_FALSE(framebuffer.hasAttachment(GL_COLOR_ATTACHMENT0));
    EXPECT_EQ(attachedName(GL_COLOR_ATTACHMENT0), 0);
}

TEST_F(FramebufferObjectTest, forgetsATextureThatDied)
{
    auto texture = makeBlankTexture(4, 4, GL_RGBA8);
    {
        AutoBinder binder(&framebuffer);
        framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    }
    texture.reset();
    EXPECT_FALSE(framebuffer.hasAttachment(GL_COLOR_ATTACHMENT0));
    EXPECT_EQ(framebuffer.attachment(GL_COLOR_ATTACHMENT0), nullptr);
    EXPECT_EQ(framebuffer.detach(GL_COLOR_ATTACHMENT0), nullptr);
    AutoBinder binder(&framebuffer);
    EXPECT_EQ(attachedName(GL_COLOR_ATTACHMENT0), 0);
}

TEST_F(FramebufferObjectTest, attachesLevels)
{
    Texture texture(GL_TEXTURE_2D, GL_RGBA8, 8, 4, 0, nullptr);
    {
        AutoBinder binder(&texture);
        for (int level = 0; level < 4; ++level)
            glTexImage2D(GL_TEXTURE_2D, level, GL_RGBA8, qMax(1, 8 >> level), qMax(1, 4 >> level), 0, GL_RGBA,
                GL_UNSIGNED_BYTE, nullptr);
    }
    AutoBinder binder(&framebuffer);
    framebuffer.attach(&texture, GL_COLOR_ATTACHMENT0, 2);
    framebuffer.setDrawBuffers();
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(viewport(), (Viewport{0, 0, 2, 1}));
    clearTo(0, 1, 0);
    AutoBinder textureBinder(&texture);
    GLubyte texels[2 * 4] = {};
    glGetTexImage(GL_TEXTURE_2D, 2, GL_RGBA, GL_UNSIGNED_BYTE, texels);
    EXPECT_EQ(texels[5], 255);
}

TEST_F(FramebufferObjectTest, attachesOneLayer)
{
    for (GLenum target : {GL_TEXTURE_2D_ARRAY, GL_TEXTURE_3D}) {
        const auto layers = makeArray(target, 4, 4, 3);
        AutoBinder binder(&framebuffer);
        for (int layer = 0; layer < 3; ++layer) {
            framebuffer.attach3D(layers.get(), GL_COLOR_ATTACHMENT0, layer, 0);
            framebuffer.setDrawBuffers();
            EXPECT_TRUE(isComplete());
            EXPECT_EQ(framebuffer.attachment(GL_COLOR_ATTACHMENT0), layers.get());
            clearTo(layer == 0, layer == 1, layer == 2);
        }
        for (int layer = 0; layer < 3; ++layer)
            EXPECT_EQ(readLayer(layers.get(), layer).pixel(1, 1), QVector4D(layer == 0, layer == 1, layer == 2, 1));
        framebuffer.attach(layers.get(), GL_COLOR_ATTACHMENT0, 0); // Layer 0.
        clearTo(1, 1, 1);
        EXPECT_EQ(readLayer(layers.get(), 0).pixel(1, 1), QVector4D(1, 1, 1, 1));
        EXPECT_EQ(readLayer(layers.get(), 1).pixel(1, 1), QVector4D(0, 1, 0, 1));
        framebuffer.detachAll();
    }
}

TEST_F(FramebufferObjectTest, attachesFacesOfACube)
{
    Texture cube;
    cube.setTarget(GL_TEXTURE_CUBE_MAP);
    cube.setSize(0, GL_RGBA8, 2, 2, 0);
    {
        AutoBinder binder(&cube);
        for (GLenum face = 0; face < 6; ++face)
            glTexImage2D(
                GL_TEXTURE_CUBE_MAP_POSITIVE_X + face, 0, GL_RGBA8, 2, 2, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    }
    AutoBinder binder(&framebuffer);
    for (int face = 0; face < 6; ++face) {
        framebuffer.attach3D(&cube, GL_COLOR_ATTACHMENT0, face, 0);
        framebuffer.setDrawBuffers();
        EXPECT_TRUE(isComplete());
        clearTo(float(face) / 5, 0, 0);
    }
    framebuffer.attach(&cube, GL_COLOR_ATTACHMENT1, 0); // The face +X.
    framebuffer.setDrawBuffers();
    AutoBinder cubeBinder(&cube);
    for (int face = 0; face < 6; ++face) {
        GLubyte texels[16] = {};
        glGetTexImage(GL_TEXTURE_CUBE_MAP_POSITIVE_X + GLenum(face), 0, GL_RGBA, GL_UNSIGNED_BYTE, texels);
        EXPECT_EQ(texels[0], face * 51);
    }
    GLint face = 0;
    glGetFramebufferAttachmentParameteriv(
        GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT1, GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_CUBE_MAP_FACE, &face);
    EXPECT_EQ(face, GL_TEXTURE_CUBE_MAP_POSITIVE_X);
}

TEST_F(FramebufferObjectTest, drawsIntoAllLayersAtOnce)
{
    const auto layers = makeArray(GL_TEXTURE_2D_ARRAY, 4, 4, 3);
    const auto program = makeProgram({
        {GL_VERTEX_SHADER, "#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"},
        {GL_GEOMETRY_SHADER, R"(#version 150
layout(triangles) in;
layout(triangle_strip, max_vertices = 9) out;
flat out int go_Layer;

void main()
{
    for (int layer = 0; layer < 3; ++layer) {
        for (int i = 0; i < 3; ++i) {
            gl_Layer = layer;
            go_Layer = layer;
            gl_Position = gl_in[i].gl_Position;
            EmitVertex();
        }
        EndPrimitive();
    }
}
)"},
        {GL_FRAGMENT_SHADER, R"(#version 150
flat in int go_Layer;
out vec4 out_FragColor;
void main() { out_FragColor = vec4(float(go_Layer + 1) * 0.2, 0.0, 0.0, 1.0); }
)"},
    });
    AutoBinder binder(&framebuffer);
    framebuffer.attachLayers(layers.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_TRUE(isComplete());
    GLint layered = GL_FALSE;
    glGetFramebufferAttachmentParameteriv(
        GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_FRAMEBUFFER_ATTACHMENT_LAYERED, &layered);
    EXPECT_EQ(layered, GL_TRUE);
    glViewport(0, 0, 4, 4);
    EXPECT_TRUE(drawQuad(program.get()));
    for (int layer = 0; layer < 3; ++layer)
        EXPECT_NEAR(readLayer(layers.get(), layer).pixel(2, 1).x(), (layer + 1) * 0.2f, 1e-3) << layer;
}

TEST_F(FramebufferObjectTest, takesDepthWithoutStencilWhereBothAreWanted)
{
    const auto color = makeBlankTexture(4, 4, GL_RGBA8);
    const auto both = makeTexture(Image(4, 4, 1), GL_DEPTH24_STENCIL8);
    const auto depthOnly = makeTexture(Image(4, 4, 1), GL_DEPTH_COMPONENT32F);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(color.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.attach(both.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(GLuint(attachedName(GL_STENCIL_ATTACHMENT)), both->textureID());

    framebuffer.attach(depthOnly.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(GLuint(attachedName(GL_DEPTH_ATTACHMENT)), depthOnly->textureID());
    EXPECT_EQ(attachedName(GL_STENCIL_ATTACHMENT), 0); // The earlier stencil attachment is gone.
    EXPECT_EQ(framebuffer.attachment(GL_DEPTH_STENCIL_ATTACHMENT), depthOnly.get());
    EXPECT_FALSE(framebuffer.hasAttachment(GL_DEPTH_ATTACHMENT));

    EXPECT_EQ(framebuffer.detach(GL_DEPTH_STENCIL_ATTACHMENT), depthOnly.get());
    EXPECT_EQ(attachedName(GL_DEPTH_ATTACHMENT), 0);

    framebuffer.attach(depthOnly.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    framebuffer.attach(both.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    EXPECT_EQ(GLuint(attachedName(GL_DEPTH_ATTACHMENT)), both->textureID());
    EXPECT_EQ(GLuint(attachedName(GL_STENCIL_ATTACHMENT)), both->textureID());
    EXPECT_TRUE(isComplete());
}

TEST_F(FramebufferObjectTest, knowsOneTextureForEachPoint)
{
    const auto first = makeTexture(Image(4, 4, 1), GL_DEPTH_COMPONENT32F);
    const auto second = makeTexture(Image(4, 4, 1), GL_DEPTH_COMPONENT32F);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(first.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    framebuffer.attach(second.get(), GL_DEPTH_ATTACHMENT, 0);
    EXPECT_FALSE(framebuffer.hasAttachment(GL_DEPTH_STENCIL_ATTACHMENT));
    EXPECT_EQ(framebuffer.detach(GL_DEPTH_STENCIL_ATTACHMENT), nullptr);
    EXPECT_EQ(GLuint(attachedName(GL_DEPTH_ATTACHMENT)), second->textureID());
}

TEST_F(FramebufferObjectTest, setsTheViewportToTheLevelAttachedFirst)
{
    const auto texture = makeBlankTexture(30, 20, GL_RGBA8);
    glViewport(1, 2, 3, 4);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4})); // Not before the draw buffers are set.
    framebuffer.setDrawBuffers();
    EXPECT_EQ(viewport(), (Viewport{0, 0, 30, 20}));
    glViewport(1, 2, 3, 4);
    framebuffer.setDrawBuffers(); // The viewport is set once per attach.
    EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4}));
}

TEST_F(FramebufferObjectTest, otherAttachmentsLeaveTheViewport)
{
    const auto color = makeBlankTexture(30, 20, GL_RGBA8);
    const auto depth = makeTexture(Image(30, 20, 1), GL_DEPTH24_STENCIL8);
    const auto layers = makeArray(GL_TEXTURE_2D_ARRAY, 30, 20, 2);
    glViewport(1, 2, 3, 4);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(color.get(), GL_COLOR_ATTACHMENT1, 0);
    framebuffer.attach(depth.get(), GL_DEPTH_ATTACHMENT, 0);
    framebuffer.attach(depth.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4}));
    framebuffer.attach3D(layers.get(), GL_COLOR_ATTACHMENT0, 1, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4}));
    framebuffer.attachLayers(layers.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4}));
}

TEST_F(FramebufferObjectTest, anEarlierBindingLeavesTheViewport)
{
    const auto texture = makeBlankTexture(30, 20, GL_RGBA8);
    glViewport(1, 2, 3, 4);
    {
        AutoBinder binder(&framebuffer);
        framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    }
    {
        AutoBinder binder(&framebuffer);
        framebuffer.setDrawBuffers();
        EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4}));
    }
    // A nested binding has a pending viewport of its own; that of the outer one is kept.
    AutoBinder outer(&framebuffer);
    framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    {
        AutoBinder inner(&framebuffer);
        framebuffer.setDrawBuffers();
        EXPECT_EQ(viewport(), (Viewport{1, 2, 3, 4}));
    }
    framebuffer.setDrawBuffers();
    EXPECT_EQ(viewport(), (Viewport{0, 0, 30, 20}));
}

TEST_F(FramebufferObjectTest, followsStorageThatWasRespecified)
{
    Texture texture(GL_TEXTURE_2D, GL_RGBA8, 4, 4, 0, nullptr);
    {
        AutoBinder binder(&texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 16, 9, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    }
    AutoBinder binder(&framebuffer);
    framebuffer.attach(&texture, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(viewport(), (Viewport{0, 0, 16, 9}));
}

TEST_F(FramebufferObjectTest, drawsIntoItsColoursInOrderWithGaps)
{
    const auto first = makeBlankTexture(2, 2, GL_RGBA8);
    const auto third = makeBlankTexture(2, 2, GL_RGBA8);
    const auto fourth = makeBlankTexture(2, 2, GL_RGBA8);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(fourth.get(), GL_COLOR_ATTACHMENT3, 0);
    framebuffer.attach(third.get(), GL_COLOR_ATTACHMENT2, 0);
    framebuffer.attach(first.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    EXPECT_TRUE(isComplete());
    EXPECT_EQ(glInteger(GL_DRAW_BUFFER0), GL_COLOR_ATTACHMENT0);
    EXPECT_EQ(glInteger(GL_DRAW_BUFFER1), GL_COLOR_ATTACHMENT2);
    EXPECT_EQ(glInteger(GL_DRAW_BUFFER2), GL_COLOR_ATTACHMENT3);
    EXPECT_EQ(glInteger(GL_DRAW_BUFFER3), GL_NONE);
    EXPECT_EQ(glInteger(GL_READ_BUFFER), GL_COLOR_ATTACHMENT0);
    const auto program = makeProgram({{GL_VERTEX_SHADER, quadVertexSource}, {GL_FRAGMENT_SHADER, R"(#version 150
out vec4 out_A;
out vec4 out_B;
out vec4 out_C;

void main()
{
    out_A = vec4(1.0, 0.0, 0.0, 1.0);
    out_B = vec4(0.0, 1.0, 0.0, 1.0);
    out_C = vec4(0.0, 0.0, 1.0, 1.0);
}
)"}},
        {"out_A", "out_B", "out_C"});
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_EQ(readTexture(first.get()).pixel(0, 0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(readTexture(third.get()).pixel(0, 0), QVector4D(0, 1, 0, 1));
    EXPECT_EQ(readTexture(fourth.get()).pixel(0, 0), QVector4D(0, 0, 1, 1));
}

TEST_F(FramebufferObjectTest, drawsAndReadsNoColourWhereItHasDepthAlone)
{
    const auto depth = makeTexture(Image(4, 4, 1), GL_DEPTH_COMPONENT32F);
    AutoBinder binder(&framebuffer);
    framebuffer.attach(depth.get(), GL_DEPTH_ATTACHMENT, 0);
    framebuffer.setDrawBuffers();
    EXPECT_EQ(glInteger(GL_DRAW_BUFFER0), GL_NONE);
    EXPECT_EQ(glInteger(GL_READ_BUFFER), GL_NONE);
    EXPECT_TRUE(isComplete());
    glClearDepth(0.25);
    glClear(GL_DEPTH_BUFFER_BIT);
    EXPECT_FLOAT_EQ(*readTexture(depth.get()).at(2, 2), 0.25f);
}

TEST_F(FramebufferObjectTest, wrapsOneOfTheHost)
{
    const auto color = makeBlankTexture(4, 4, GL_RGBA8);
    GLuint host = 0;
    glGenFramebuffers(1, &host);
    glBindFramebuffer(GL_FRAMEBUFFER, host);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT1, GL_TEXTURE_2D, color->textureID(), 0);
    glDrawBuffer(GL_COLOR_ATTACHMENT1);
    glReadBuffer(GL_COLOR_ATTACHMENT1);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    {
        const std::unique_ptr<FramebufferObject> wrapped(FramebufferObject::wrap(host));
        EXPECT_EQ(wrapped->getFBO(), host);
        EXPECT_FALSE(wrapped->hasAttachment(GL_COLOR_ATTACHMENT1)); // The host's attachments stay the host's.
        AutoBinder binder(wrapped.get());
        EXPECT_EQ(GLuint(glInteger(GL_DRAW_FRAMEBUFFER_BINDING)), host);
        wrapped->setDrawBuffers();
        wrapped->detachAll();
        EXPECT_EQ(glInteger(GL_DRAW_BUFFER0), GL_COLOR_ATTACHMENT1);
        clearTo(0, 0, 1);
    }
    EXPECT_TRUE(glIsFramebuffer(host));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(readTexture(color.get()).pixel(0, 0), QVector4D(0, 0, 1, 1));
    glDeleteFramebuffers(1, &host);
}

TEST_F(FramebufferObjectTest, wrapsTheWindow)
{
    FramebufferObject other;
    AutoBinder otherBinder(&other);
    const std::unique_ptr<FramebufferObject> window(FramebufferObject::wrap(0));
    EXPECT_EQ(window->getFBO(), 0u);
    AutoBinder binder(window.get());
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    window->setDrawBuffers();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

} // namespace Velmora::Kvz
