// SPDX-License-Identifier: MIT
#include "Fixtures.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/FramebufferObject.h>
#include <GL/GLExtensions.h>
#include <GL/OpenGLDeviceContext.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <vector>

namespace Velmora::Kvz {

namespace {

using BufferObjectTest = GLTest;

template <typename T> std::vector<T> contentOf(const BufferObject &buffer)
{
    glBindBuffer(GL_COPY_READ_BUFFER, buffer.getBO());
    GLint bytes = 0;
    glGetBufferParameteriv(GL_COPY_READ_BUFFER, GL_BUFFER_SIZE, &bytes);
    std::vector<T> content(size_t(bytes) / sizeof(T));
    glGetBufferSubData(GL_COPY_READ_BUFFER, 0, bytes, content.data());
    glBindBuffer(GL_COPY_READ_BUFFER, 0);
    return content;
}

} // namespace

TEST_F(BufferObjectTest, uploads)
{
    BufferObject buffer;
    EXPECT_EQ(buffer.target(), GLenum(GL_ARRAY_BUFFER));
    EXPECT_EQ(buffer.size(), 0);
    const float floats[] = {1, 2, 3};
    buffer.upload(floats, 3, GL_STATIC_DRAW);
    EXPECT_EQ(contentOf<float>(buffer), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(buffer.size(), 12);
    const unsigned int numbers[] = {7, 4000000000u};
    buffer.uploadGLuintData(numbers, 2, GL_STATIC_DRAW);
    EXPECT_EQ(contentOf<unsigned int>(buffer), (std::vector<unsigned int>{7, 4000000000u}));
    buffer.uploadBytes("abcdef", 6, GL_STREAM_DRAW);
    buffer.uploadRange("XY", 2, 2);
    EXPECT_EQ(contentOf<char>(buffer), (std::vector<char>{'a', 'b', 'X', 'Y', 'e', 'f'}));
    buffer.upload(nullptr, 5, GL_STATIC_DRAW);
    EXPECT_EQ(contentOf<float>(buffer).size(), 5u);
    buffer.uploadRange("too long", 18, 8);
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>({GL_INVALID_VALUE}));
}

TEST_F(BufferObjectTest, transfersTouchNoBinding)
{
    BufferObject host;
    glBindBuffer(GL_ARRAY_BUFFER, host.getBO());
    const auto array = OpenGLDeviceContext::current()->createVertexArrayObject();
    AutoBinder arrayBinder(array);
    BufferObject indices;
    indices.setTarget(GL_ELEMENT_ARRAY_BUFFER);
    const unsigned int numbers[] = {1, 2};
    indices.uploadGLuintData(numbers, 2, GL_STATIC_DRAW);
    EXPECT_NE(indices.map(GL_WRITE_ONLY), nullptr);
    EXPECT_TRUE(indices.unmap());
    EXPECT_EQ(GLuint(glInteger(GL_ARRAY_BUFFER_BINDING)), host.getBO());
    EXPECT_EQ(glInteger(GL_ELEMENT_ARRAY_BUFFER_BINDING), 0); // It belongs to the vertex array.
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

TEST_F(BufferObjectTest, maps)
{
    BufferObject buffer;
    buffer.setTarget(GL_PIXEL_UNPACK_BUFFER);
    EXPECT_EQ(buffer.map(GL_WRITE_ONLY), nullptr); // There is no storage to map.
    buffer.uploadBytes(nullptr, 8, GL_STATIC_DRAW);
    auto *bytes = static_cast<char *>(buffer.map(GL_WRITE_ONLY));
    ASSERT_NE(bytes, nullptr);
    std::fill_n(bytes, 8, 'k');
    EXPECT_TRUE(buffer.unmap());
    EXPECT_EQ(contentOf<char>(buffer), std::vector<char>(8, 'k'));
}

TEST_F(BufferObjectTest, mapsWhatADirectCallStored)
{
    BufferObject buffer;
    buffer.setTarget(GL_PIXEL_UNPACK_BUFFER);
    {
        AutoBinder binder(&buffer);
        glBufferData(GL_PIXEL_UNPACK_BUFFER, 4, nullptr, GL_STATIC_DRAW);
        auto *bytes = static_cast<char *>(buffer.map(GL_WRITE_ONLY));
        ASSERT_NE(bytes, nullptr);
        std::fill_n(bytes, 4, 'k');
        EXPECT_TRUE(buffer.unmap());
    }
    EXPECT_EQ(contentOf<char>(buffer), std::vector<char>(4, 'k'));
}

TEST_F(BufferObjectTest, feedsTextures)
{
    BufferObject buffer;
    buffer.setTarget(GL_PIXEL_UNPACK_BUFFER);
    const unsigned char texels[] = {255, 0, 0, 255, 0, 255, 0, 255};
    buffer.uploadBytes(texels, sizeof(texels), GL_STATIC_DRAW);
    const auto texture = makeBlankTexture(2, 1, GL_RGBA8);
    {
        AutoBinder bufferBinder(&buffer);
        AutoBinder textureBinder(texture.get());
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 2, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    }
    EXPECT_EQ(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING), 0);
    EXPECT_EQ(readTexture(texture.get()).pixel(0, 0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(readTexture(texture.get()).pixel(1, 0), QVector4D(0, 1, 0, 1));
}

TEST_F(BufferObjectTest, bindsARangeToAnIndexedTarget)
{
    const GLint alignment = glInteger(GL_UNIFORM_BUFFER_OFFSET_ALIGNMENT);
    BufferObject other;
    other.setTarget(GL_UNIFORM_BUFFER);
    AutoBinder otherBinder(&other);
    BufferObject buffer;
    buffer.setIndexedTarget(GL_UNIFORM_BUFFER, 3, alignment, 16);
    EXPECT_EQ(buffer.target(), GLenum(GL_UNIFORM_BUFFER));
    EXPECT_EQ(buffer.size(), alignment + 16);
    const std::vector<char> content = contentOf<char>(buffer);
    EXPECT_EQ(content, std::vector<char>(size_t(alignment) + 16, '\0'));
    GLint name = 0;
    glGetIntegeri_v(GL_UNIFORM_BUFFER_BINDING, 3, &name);
    EXPECT_EQ(GLuint(name), buffer.getBO());
    glGetIntegeri_v(GL_UNIFORM_BUFFER_START, 3, &name);
    EXPECT_EQ(name, alignment);
    EXPECT_EQ(GLuint(glInteger(GL_UNIFORM_BUFFER_BINDING)), other.getBO());
    glBindBufferBase(GL_UNIFORM_BUFFER, 3, 0);
    glBindBuffer(GL_UNIFORM_BUFFER, other.getBO());
}

TEST_F(BufferObjectTest, keepsWhatIsStoredWhenItGetsAnIndexedTarget)
{
    BufferObject uploaded;
    const float value = 7;
    uploaded.upload(&value, 1, GL_STATIC_DRAW);
    uploaded.setIndexedTarget(GL_UNIFORM_BUFFER, 0, 0, 4);
    EXPECT_EQ(contentOf<float>(uploaded), std::vector<float>({7}));
    BufferObject direct;
    {
        AutoBinder binder(&direct);
        glBufferData(GL_ARRAY_BUFFER, 4, &value, GL_STATIC_DRAW);
    }
    direct.setIndexedTarget(GL_UNIFORM_BUFFER, 0, 0, 4);
    EXPECT_EQ(contentOf<float>(direct), std::vector<float>({7}));
    glBindBufferBase(GL_UNIFORM_BUFFER, 0, 0);
}

TEST_F(BufferObjectTest, unbindsWhereItWasBound)
{
    BufferObject array;
    BufferObject uniform;
    uniform.setTarget(GL_UNIFORM_BUFFER);
    AutoBinder uniformBinder(&uniform);
    {
        AutoBinder arrayBinder(&array);
        array.setIndexedTarget(GL_UNIFORM_BUFFER, 0, 0, 4);
    }
    EXPECT_EQ(glInteger(GL_ARRAY_BUFFER_BINDING), 0);
    EXPECT_EQ(GLuint(glInteger(GL_UNIFORM_BUFFER_BINDING)), uniform.getBO());
    glBindBufferBase(GL_UNIFORM_BUFFER, 0, 0);
    glBindBuffer(GL_UNIFORM_BUFFER, uniform.getBO());
}

TEST_F(BufferObjectTest, countsAtomically)
{
    if (!hasGLExtension("ARB_shader_atomic_counters"))
        GTEST_SKIP() << "this driver has no atomic counters";
    const auto counter = OpenGLDeviceContext::current()->createBufferObject();
    counter->setIndexedTarget(GL_ATOMIC_COUNTER_BUFFER, 0, 0, 4);
    {
        // The way passes reset it: through its target, while bound.
        AutoBinder binder(counter);
        glBufferData(GL_ATOMIC_COUNTER_BUFFER, 4, nullptr, GL_DYNAMIC_DRAW);
        auto *value = static_cast<GLuint *>(counter->map(GL_WRITE_ONLY));
        ASSERT_NE(value, nullptr);
        *value = 100;
        counter->unmap();
    }
    const auto program = makeQuadProgram(R"(#version 150
#extension GL_ARB_shader_atomic_counters : require
#extension GL_ARB_shading_language_420pack : require
layout(binding = 0, offset = 0) uniform atomic_uint u_Counter;
out vec4 out_FragColor;
void main() { out_FragColor = vec4(float(atomicCounterIncrement(u_Counter))); }
)");
    const auto target = makeBlankTexture(8, 4, GL_RGBA32F);
    FramebufferObject framebuffer;
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    {
        AutoBinder counterBinder(counter);
        EXPECT_TRUE(drawQuad(program.get()));
    }
    EXPECT_EQ(contentOf<unsigned int>(*counter), std::vector<unsigned int>({132}));
    const Image image = readTexture(target.get());
    std::vector<float> values;
    for (int i = 0; i < 32; ++i)
        values.push_back(image.pixel(i % 8, i / 8).x());
    std::sort(values.begin(), values.end());
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(values[size_t(i)], float(100 + i)); // Every pixel got a different number.
    glBindBufferBase(GL_ATOMIC_COUNTER_BUFFER, 0, 0);
}

} // namespace Velmora::Kvz
