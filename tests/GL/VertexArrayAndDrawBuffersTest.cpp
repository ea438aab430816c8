// SPDX-License-Identifier: MIT
#include "Fixtures.h"
#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLErrors.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>

#include <QtGui/QColor>

#include <epoxy/gl.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

class DrawBuffersTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        target = makeBlankTexture(8, 8, GL_RGBA8);
        framebuffer = std::make_unique<FramebufferObject>();
        framebuffer->bind();
        framebuffer->attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
        framebuffer->setDrawBuffers();
        program = makeColorProgram();
        program->setUniform("u_Color", QColor(Qt::white));
    }
    void TearDown() override
    {
        framebuffer->unbind();
        framebuffer.reset();
        program.reset();
        target.reset();
        GLTest::TearDown();
    }

    static QSharedPointer<BufferObject> bufferOf(const std::vector<float> &values)
    {
        const auto buffer = OpenGLDeviceContext::current()->createBufferObject();
        buffer->upload(values.data(), int(values.size()), GL_STATIC_DRAW);
        return buffer;
    }

    /// A drawable of vertices with three coordinates each.
    QSharedPointer<DrawBuffers> drawableOf(const std::vector<float> &positions)
    {
        const auto device = OpenGLDeviceContext::current();
        const auto array = device->createVertexArrayObject();
        array->upload("va_Vertex", bufferOf(positions), 3, GL_FLOAT);
        {
            AutoBinder binder(array);
            array->enableShaderProgramArrays(program.get());
        }
        const auto drawable = device->createDrawBuffers();
        drawable->setVAO(array);
        drawable->setVertexCount(unsigned(positions.size() / 3));
        return drawable;
    }

    static QSharedPointer<BufferObject> indicesOf(const std::vector<unsigned int> &indices)
    {
        const auto buffer = OpenGLDeviceContext::current()->createBufferObject();
        buffer->setTarget(GL_ELEMENT_ARRAY_BUFFER);
        buffer->uploadGLuintData(indices.data(), int(indices.size()), GL_STATIC_DRAW);
        return buffer;
    }

    bool draw(DrawBuffers &drawable)
    {
        AutoBinder programBinder(program.get());
        AutoBinder binder(&drawable);
        return drawable.draw();
    }

    /// Counts the pixels that are not black and clears the image.
    int takeCoverage()
    {
        const Image image = readTexture(target.get());
        int count = 0;
        for (int i = 0; i < 64; ++i)
            count += image.pixel(i % 8, i / 8).x() > 0;
        glClear(GL_COLOR_BUFFER_BIT);
        return count;
    }

    std::unique_ptr<Texture> target;
    std::unique_ptr<FramebufferObject> framebuffer;
    std::unique_ptr<ShaderProgram> program;
};

/// Two triangles: the lower left half and the upper right half.
const std::vector<float> halves = {-1, -1, 0, 1, -1, 0, -1, 1, 0, -1, 1, 0, 1, -1, 0, 1, 1, 0};
/// The left half as a square, then the right half.
const std::vector<float> sides = {-1, -1, 0, 0, -1, 0, 0, 1, 0, -1, 1, 0, 0, -1, 0, 1, -1, 0, 1, 1, 0, 0, 1, 0};

using VertexArrayTest = DrawBuffersTest;

} // namespace

TEST_F(VertexArrayTest, registersBuffersByName)
{
    VertexArrayObject array;
    EXPECT_EQ(array.bo("va_Vertex"), nullptr);
    const auto first = bufferOf({1});
    const auto second = bufferOf({2});
    array.upload("va_Vertex", first, 3, GL_FLOAT);
    array.upload("va_TexCoord", second, 2, GL_FLOAT);
    array.upload("va_Normal", {}, 3, GL_FLOAT);
    EXPECT_EQ(array.bo("va_Vertex"), first);
    EXPECT_EQ(array.bo("va_TexCoord"), second);
    EXPECT_EQ(array.bo("va_Normal"), nullptr);
    array.upload("va_Vertex", second, 3, GL_FLOAT);
    EXPECT_EQ(array.bo("va_Vertex"), second);
}

TEST_F(VertexArrayTest, pointsTheArraysThatAProgramReads)
{
    const auto isEnabled = [](GLuint location) {
        GLint enabled = 0;
        glGetVertexAttribiv(location, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled);
        return enabled == GL_TRUE;
    };
    VertexArrayObject array;
    array.upload("va_Vertex", bufferOf(halves), 3, GL_FLOAT);
    array.upload("va_TexCoord", bufferOf({0, 0, 1, 0}), 2, GL_FLOAT);
    array.upload("va_Unread", bufferOf({0}), 1, GL_FLOAT);
    BufferObject host;
    glBindBuffer(GL_ARRAY_BUFFER, host.getBO());
    AutoBinder binder(&array);
    array.enableShaderProgramArrays(nullptr);
    ShaderProgram unlinked;
    array.enableShaderProgramArrays(&unlinked);
    EXPECT_FALSE(isEnabled(0));

    const auto positionsOnly =
        makeProgram({{GL_VERTEX_SHADER,
                         "#version 150\nin vec3 va_Vertex;\nin vec4 va_Color;\nvoid main() { gl_Position = "
                         "vec4(va_Vertex, 1.0) + va_Color; }\n"},
            {GL_FRAGMENT_SHADER,
                "#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(1.0); }\n"}});
    array.enableShaderProgramArrays(positionsOnly.get());
    EXPECT_TRUE(isEnabled(0));
    EXPECT_FALSE(isEnabled(2));
    EXPECT_FALSE(isEnabled(3)); // It has no buffer.
    const auto withTexCoord = makeQuadProgram("#version 150\nin vec2 vo_TexCoord;\nout vec4 out_FragColor;\n"
                                              "void main() { out_FragColor = vec4(vo_TexCoord, 0.0, 1.0); }\n");
    array.enableShaderProgramArrays(withTexCoord.get());
    EXPECT_TRUE(isEnabled(2));
    array.enableShaderProgramArrays(positionsOnly.get());
    EXPECT_TRUE(isEnabled(2)); // Enabled arrays stay enabled.
    GLint bound = 0;
    glGetVertexAttribiv(0, GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING, &bound);
    EXPECT_EQ(GLuint(bound), array.bo("va_Vertex")->getBO());
    GLint size = 0;
    glGetVertexAttribiv(2, GL_VERTEX_ATTRIB_ARRAY_SIZE, &size);
    EXPECT_EQ(size, 2);
    EXPECT_EQ(GLuint(glInteger(GL_ARRAY_BUFFER_BINDING)), host.getBO());
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

TEST_F(VertexArrayTest, theQuadCoversTheScreen)
{
    const auto device = OpenGLDeviceContext::current();
    const auto coordinates = makeQuadProgram("#version 150\nin vec2 vo_TexCoord;\nout vec4 out_FragColor;\n"
                                             "void main() { out_FragColor = vec4(vo_TexCoord, 0.0, 1.0); }\n");
    for (const auto &quad : {device->createScreenQuad(), device->createScreenQuad2()}) {
        glClear(GL_COLOR_BUFFER_BIT);
        AutoBinder programBinder(coordinates.get());
        AutoBinder quadBinder(quad);
        EXPECT_TRUE(quad->draw()); // Its arrays are already enabled.
        const Image image = readTexture(target.get());
        for (int i = 0; i < 64; ++i) {
            EXPECT_NEAR(image.pixel(i % 8, i / 8).x(), (i % 8 + 0.5) / 8, 3e-3);
            EXPECT_NEAR(image.pixel(i % 8, i / 8).y(), (i / 8 + 0.5) / 8, 3e-3);
        }
    }
}

TEST_F(VertexArrayTest, quadsShareBuffersButNoArray)
{
    const auto device = OpenGLDeviceContext::current();
    const auto first = device->createScreenQuad();
    const auto second = device->createScreenQuad();
    const auto third = device->createScreenQuad2();
    EXPECT_NE(first, second);
    for (const auto &other : {second, third}) {
        EXPECT_NE(first->VAO(), other->VAO());
        EXPECT_NE(first->VAO()->getVAO(), other->VAO()->getVAO());
        EXPECT_EQ(first->VAO()->bo("va_Vertex"), other->VAO()->bo("va_Vertex"));
        EXPECT_EQ(first->VAO()->bo("va_TexCoord"), other->VAO()->bo("va_TexCoord"));
    }
    EXPECT_EQ(first->primitiveType(), GLenum(GL_TRIANGLES));
}

TEST_F(DrawBuffersTest, draws)
{
    const auto drawable = drawableOf(halves);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_EQ(takeCoverage(), 64);
    drawable->setVertexCount(3);
    EXPECT_TRUE(draw(*drawable));
    const int half = takeCoverage();
    EXPECT_GT(half, 24);
    EXPECT_LT(half, 40);
    drawable->setPrimitiveType(GL_POINTS);
    drawable->setVertexCount(6);
    glEnable(GL_PROGRAM_POINT_SIZE);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_LT(takeCoverage(), 10);
    glDisable(GL_PROGRAM_POINT_SIZE);
}

TEST_F(DrawBuffersTest, drawsNothingWithSuccess)
{
    const auto drawable = drawableOf(halves);
    drawable->setVertexCount(0);
    EXPECT_TRUE(draw(*drawable));
    drawable->setIndexedDraw(indicesOf({0, 1, 2}), 0, GL_UNSIGNED_INT);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_EQ(takeCoverage(), 0);
}

TEST_F(DrawBuffersTest, drawsByIndices)
{
    const auto drawable = drawableOf(sides);
    const auto indices = indicesOf({4, 5, 6, 4, 6, 7});
    drawable->setIndexedDraw(indices, 6, GL_UNSIGNED_INT);
    EXPECT_EQ(drawable->indexBO(), indices);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_EQ(readTexture(target.get()).pixel(1, 1).x(), 0);
    EXPECT_EQ(readTexture(target.get()).pixel(6, 6).x(), 1);
    EXPECT_EQ(takeCoverage(), 32);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);

    // Another index buffer over the same array.
    drawable->setIndexedDraw(indicesOf({0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7}), 12, GL_UNSIGNED_INT);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_EQ(takeCoverage(), 64);
    const auto sharing = OpenGLDeviceContext::current()->createDrawBuffers();
    sharing->setVAO(drawable->VAO());
    sharing->setIndexedDraw(indices, 6, GL_UNSIGNED_INT);
    EXPECT_TRUE(draw(*sharing));
    EXPECT_EQ(takeCoverage(), 32);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_EQ(takeCoverage(), 64);

    drawable->setIndexedDraw({}, 0, GL_UNSIGNED_INT);
    EXPECT_EQ(drawable->indexBO(), nullptr);
    drawable->setVertexCount(3);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_GT(takeCoverage(), 0);
}

TEST_F(DrawBuffersTest, itsCommandsMoveNoIndexedDraw)
{
    const auto drawable = drawableOf(sides);
    drawable->setIndexedDraw(indicesOf({0, 1, 2, 0, 2, 3}), 6, GL_UNSIGNED_INT);
    const DrawElementsIndirectCommand command = {3, 5, 3, 4, 9};
    drawable->setDrawElementsIndirectCommands(&command, 1);
    EXPECT_TRUE(draw(*drawable));
    EXPECT_EQ(readTexture(target.get()).pixel(1, 1).x(), 1);
    EXPECT_EQ(readTexture(target.get()).pixel(6, 6).x(), 0);
    EXPECT_EQ(takeCoverage(), 32);
}

TEST_F(DrawBuffersTest, showsItsCommandsToShaders)
{
    DrawBuffers drawable;
    const auto empty = drawable.getDrawElementsIndirectCommandsUniformBufferObject();
    EXPECT_NE(empty, nullptr);
    {
        AutoBinder binder(empty);
    }
    std::vector<DrawElementsIndirectCommand> commands = {{1, 2, 3, 4, 5}, {10, 20, 30, 40, 50}};
    drawable.setDrawElementsIndirectCommands(commands.data(), 2);
    commands[1].count = 999; // They were copied.
    ASSERT_EQ(drawable.drawElementsIndirectCommands().size(), 2);
    EXPECT_EQ(drawable.drawElementsIndirectCommands()[1].count, 10u);

    GLSLMacroProcessor processor;
    DrawBuffers::setup(&processor);
    DrawBuffers::setup(nullptr);
    ShaderProgram reader;
    reader.setMacroProcessor(&processor);
    reader.setFragDataLocations({"out_FragColor"});
    reader.addShader(GL_VERTEX_SHADER, quadVertexSource, QString());
    reader.addShader(GL_FRAGMENT_SHADER, R"(#version 150
uniform usamplerBuffer kvz_DrawCommands;
out vec4 out_FragColor;
void main()
{
    int texel = KVZ_DRAW_COMMAND_STRIDE * int(gl_FragCoord.y) + int(gl_FragCoord.x);
    out_FragColor = vec4(float(texelFetch(kvz_DrawCommands, texel).r) / 255.0);
}
)",
        QString());
    ASSERT_TRUE(reader.compile()) << qPrintable(reader.log());
    ASSERT_TRUE(reader.link()) << qPrintable(reader.log());
    {
        AutoBinder binder(drawable.getDrawElementsIndirectCommandsUniformBufferObject());
        glViewport(0, 0, 5, 2);
        EXPECT_TRUE(drawQuad(&reader));
    }
    const Image image = readTexture(target.get());
    for (int i = 0; i < 5; ++i) {
        EXPECT_NEAR(image.pixel(i, 0).x() * 255, i + 1, 1e-3);
        EXPECT_NEAR(image.pixel(i, 1).x() * 255, 10 * (i + 1), 1e-3);
    }
    drawable.setDrawElementsIndirectCommands(nullptr, 3);
    EXPECT_TRUE(drawable.drawElementsIndirectCommands().isEmpty());
    drawable.setDrawElementsIndirectCommands(commands.data(), -1);
    EXPECT_TRUE(drawable.drawElementsIndirectCommands().isEmpty());
}

TEST_F(DrawBuffersTest, failsWithoutAProgram)
{
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    AutoBinder binder(quad);
    EXPECT_FALSE(quad->draw());
    EXPECT_FALSE(quad->draw(nullptr));
    EXPECT_EQ(takeCoverage(), 0);
}

TEST_F(DrawBuffersTest, drawsWithAGivenProgram)
{
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    AutoBinder binder(quad);
    EXPECT_TRUE(quad->draw(program.get()));
    EXPECT_EQ(takeCoverage(), 64);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
}

TEST_F(DrawBuffersTest, failsIntoAnIncompleteFramebuffer)
{
    {
        FramebufferObject empty;
        AutoBinder binder(&empty);
        EXPECT_FALSE(drawQuad(program.get()));
    }
    {
        const auto small = makeBlankTexture(0, 0, GL_RGBA8);
        FramebufferObject framebufferOfNothing;
        AutoBinder binder(&framebufferOfNothing);
        framebufferOfNothing.attach(small.get(), GL_COLOR_ATTACHMENT0, 0);
        framebufferOfNothing.setDrawBuffers();
        EXPECT_FALSE(drawQuad(program.get()));
    }
    EXPECT_TRUE(log.takeCriticals().isEmpty()); // It does not even try to draw.
    log.takeCategory("kvz.gl"); // The driver may say why.
    EXPECT_TRUE(drawQuad(program.get()));
}

TEST_F(DrawBuffersTest, failsWhenTheDriverRefuses)
{
    DrawBuffers drawable;
    drawable.setVertexCount(3);
    EXPECT_FALSE(draw(drawable)); // There is no vertex array.
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    quad->setPrimitiveType(0x1234);
    EXPECT_FALSE(draw(*quad));
    EXPECT_TRUE(takeGLErrors().isEmpty()); // The result reports the error.
    quad->setPrimitiveType(GL_TRIANGLES);
    EXPECT_TRUE(draw(*quad));
}

TEST_F(DrawBuffersTest, anEarlierErrorIsNotItsOwn)
{
    glEnable(0xffff);
    log.takeCategory("kvz.gl");
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_TRUE(log.takeDebug().join('\n').contains("0x0500")); // The earlier error is logged, not lost.
}

TEST_F(DrawBuffersTest, warnsWhenMemoryRanOut)
{
    std::vector<GLenum> errors; // The errors that GL reports, last first.
    GLCallRecorder<&epoxy_glGetError> recorder;
    recorder.replacement = [&]() -> GLenum {
        const GLenum error = errors.empty() ? GLenum(GL_NO_ERROR) : errors.back();
        if (!errors.empty())
            errors.pop_back();
        return error;
    };
    const auto warnings = [this] {
        QStringList texts;
        for (const QString &line : log.takeWarnings())
            texts.append(line.section("] ", 1));
        return texts;
    };
    errors = {GL_OUT_OF_MEMORY, GL_INVALID_ENUM};
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_EQ(warnings(), QStringList("out of graphics memory before a draw"));
    errors = {GL_OUT_OF_MEMORY, GL_NO_ERROR};
    EXPECT_FALSE(drawQuad(program.get()));
    EXPECT_EQ(warnings(), QStringList("out of graphics memory in a draw"));
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_EQ(warnings(), QStringList());
}

TEST_F(DrawBuffersTest, trianglesGoOutAsPatches)
{
    if (epoxy_gl_version() < 40)
        GTEST_SKIP() << "this driver has no tessellation";
    const auto tessellated = makeProgram({
        {GL_VERTEX_SHADER, "#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"},
        {GL_TESS_CONTROL_SHADER, R"(#version 400
layout(vertices = 3) out;
void main()
{
    gl_out[gl_InvocationID].gl_Position = gl_in[gl_InvocationID].gl_Position;
    gl_TessLevelInner[0] = 2.0;
    gl_TessLevelOuter[0] = gl_TessLevelOuter[1] = gl_TessLevelOuter[2] = 2.0;
}
)"},
        {GL_TESS_EVALUATION_SHADER, R"(#version 400
layout(triangles) in;
void main()
{
    gl_Position = gl_TessCoord.x * gl_in[0].gl_Position + gl_TessCoord.y * gl_in[1].gl_Position
        + gl_TessCoord.z * gl_in[2].gl_Position;
}
)"},
        {GL_FRAGMENT_SHADER, "#version 150\nout vec4 out_FragColor;\nvoid main() { out_FragColor = vec4(1.0); }\n"},
    });
    EXPECT_TRUE(tessellated->hasTessellation());
    glPatchParameteri(GL_PATCH_VERTICES, 5); // A value set by someone else.
    EXPECT_TRUE(drawQuad(tessellated.get()));
    EXPECT_EQ(takeCoverage(), 64);
    EXPECT_TRUE(drawQuad(program.get()));
    EXPECT_EQ(takeCoverage(), 64);
}

} // namespace Velmora::Kvz
