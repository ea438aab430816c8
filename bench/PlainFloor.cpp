// SPDX-License-Identifier: MIT
#include "PlainFloor.h"

#include <cstdio>
#include <cstdlib>

namespace Velmora::Kvz {

namespace {

const char *const backgroundVertex = R"(#version 150
out float vo_Height;
void main()
{
    vec2 corner = vec2(gl_VertexID % 2, gl_VertexID / 2);
    vo_Height = corner.y;
    gl_Position = vec4(2.0 * corner - 1.0, 0.0, 1.0);
}
)";

const char *const backgroundFragment = R"(#version 150
in float vo_Height;
out vec4 out_Colour;
void main()
{
    out_Colour = vec4(vec3(mix(153.0, 64.0, vo_Height) / 255.0), 1.0);
}
)";

const char *const surfaceVertex = R"(#version 150
in vec3 va_Position;
in vec3 va_Normal;
uniform mat4 u_ModelView;
uniform mat4 u_ModelViewProjection;
uniform mat3 u_Normal;
out vec3 vo_Position;
out vec3 vo_Normal;
void main()
{
    vo_Position = (u_ModelView * vec4(va_Position, 1.0)).xyz;
    vo_Normal = u_Normal * va_Normal;
    gl_Position = u_ModelViewProjection * vec4(va_Position, 1.0);
}
)";

const char *const surfaceFragment = R"(#version 150
in vec3 vo_Position;
in vec3 vo_Normal;
uniform vec3 u_Colour;
uniform float u_Specular;
uniform float u_Shininess;
out vec4 out_Colour;
void main()
{
    vec3 normal = normalize(gl_FrontFacing ? vo_Normal : -vo_Normal);
    float lit = max(0.0, dot(normal, normalize(-vo_Position)));
    out_Colour = vec4((0.15 + 0.85 * lit) * u_Colour + 0.85 * pow(lit, u_Shininess) * u_Specular, 1.0);
}
)";

GLuint shader(GLenum type, const char *text)
{
    const GLuint name = glCreateShader(type);
    glShaderSource(name, 1, &text, nullptr);
    glCompileShader(name);
    return name;
}

GLuint program(const char *vertex, const char *fragment)
{
    const GLuint name = glCreateProgram();
    for (const GLuint stage : {shader(GL_VERTEX_SHADER, vertex), shader(GL_FRAGMENT_SHADER, fragment)}) {
        glAttachShader(name, stage);
        glDeleteShader(stage);
    }
    glBindAttribLocation(name, 0, "va_Position");
    glBindAttribLocation(name, 1, "va_Normal");
    glLinkProgram(name);
    GLint isLinked = GL_FALSE;
    glGetProgramiv(name, GL_LINK_STATUS, &isLinked);
    if (!isLinked) {
        std::fprintf(stderr, "kvz-bench: the floor's program does not link\n");
        std::exit(1);
    }
    return name;
}

} // namespace

PlainFloor::PlainFloor(
    const ComparisonScene &scene, const QMatrix4x4 &camera, const QMatrix4x4 &projection, const QSize &size)
    : m_size(size),
      m_background(program(backgroundVertex, backgroundFragment)),
      m_surface(program(surfaceVertex, surfaceFragment))
{
    glGenTextures(1, &m_colour);
    glBindTexture(GL_TEXTURE_2D, m_colour);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, size.width(), size.height());
    glGenTextures(1, &m_depth);
    glBindTexture(GL_TEXTURE_2D, m_depth);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_DEPTH_COMPONENT24, size.width(), size.height());
    glBindTexture(GL_TEXTURE_2D, 0);
    glGenFramebuffers(1, &m_framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_colour, 0);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, m_depth, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glGenVertexArrays(1, &m_noVertices);
    glUseProgram(m_surface);
    glUniform1f(glGetUniformLocation(m_surface, "u_Specular"), comparisonSpecular);
    glUniform1f(glGetUniformLocation(m_surface, "u_Shininess"), comparisonShininess);
    glUseProgram(0);
    for (const ComparisonScene::Item &item : scene.items) {
        Item drawn;
        GLuint buffers[3];
        glGenVertexArrays(1, &drawn.vertexArray);
        glGenBuffers(3, buffers);
        m_buffers.insert(m_buffers.end(), buffers, buffers + 3);
        glBindVertexArray(drawn.vertexArray);
        const QVector<QVector3D> *const streams[] = {&item.mesh.positions, &item.mesh.normals};
        for (GLuint i = 0; i < 2; ++i) {
            glBindBuffer(GL_ARRAY_BUFFER, buffers[i]);
            glBufferData(
                GL_ARRAY_BUFFER, streams[i]->size() * int(sizeof(QVector3D)), streams[i]->constData(), GL_STATIC_DRAW);
            glVertexAttribPointer(i, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
            glEnableVertexAttribArray(i);
        }
        drawn.indices = item.mesh.indices.size();
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers[2]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, drawn.indices * int(sizeof(quint32)), item.mesh.indices.constData(),
            GL_STATIC_DRAW);
        glBindVertexArray(0);
        drawn.modelView = camera * item.modelMatrix;
        drawn.modelViewProjection = projection * drawn.modelView;
        drawn.normal = drawn.modelView.normalMatrix();
        drawn.colour = item.colour;
        m_items.push_back(drawn);
    }
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

PlainFloor::~PlainFloor()
{
    glDeleteBuffers(GLsizei(m_buffers.size()), m_buffers.data());
    for (const Item &item : m_items)
        glDeleteVertexArrays(1, &item.vertexArray);
    glDeleteVertexArrays(1, &m_noVertices);
    glDeleteProgram(m_surface);
    glDeleteProgram(m_background);
    glDeleteFramebuffers(1, &m_framebuffer);
    glDeleteTextures(1, &m_depth);
    glDeleteTextures(1, &m_colour);
}

void PlainFloor::draw() const
{
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer);
    glViewport(0, 0, m_size.width(), m_size.height());
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glDisable(GL_DEPTH_TEST);
    glUseProgram(m_background);
    glBindVertexArray(m_noVertices);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glEnable(GL_DEPTH_TEST);
    glDepthMask(GL_TRUE);
    glDepthFunc(GL_LESS);
    glClear(GL_DEPTH_BUFFER_BIT);
    glUseProgram(m_surface);
    const GLint modelView = glGetUniformLocation(m_surface, "u_ModelView");
    const GLint modelViewProjection = glGetUniformLocation(m_surface, "u_ModelViewProjection");
    const GLint normal = glGetUniformLocation(m_surface, "u_Normal");
    const GLint colour = glGetUniformLocation(m_surface, "u_Colour");
    for (const Item &item : m_items) {
        glUniformMatrix4fv(modelView, 1, GL_FALSE, item.modelView.constData());
        glUniformMatrix4fv(modelViewProjection, 1, GL_FALSE, item.modelViewProjection.constData());
        glUniformMatrix3fv(normal, 1, GL_FALSE, item.normal.constData());
        glUniform3f(colour, item.colour.x(), item.colour.y(), item.colour.z());
        glBindVertexArray(item.vertexArray);
        glDrawElements(GL_TRIANGLES, item.indices, GL_UNSIGNED_INT, nullptr);
    }
    glBindVertexArray(0);
    glUseProgram(0);
    glDisable(GL_DEPTH_TEST);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
}

std::vector<unsigned char> PlainFloor::picture() const
{
    std::vector<unsigned char> bytes(size_t(m_size.width()) * size_t(m_size.height()) * 4);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_framebuffer);
    glReadPixels(0, 0, m_size.width(), m_size.height(), GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    return bytes;
}

} // namespace Velmora::Kvz
