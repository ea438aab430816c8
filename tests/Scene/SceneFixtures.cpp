// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <Scene/InstanceDataRegistry.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<Texture> allocate(int width, int height, GLint internalFormat, GLenum format)
{
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, internalFormat, width, height, 0, nullptr);
    AutoBinder binder(texture.get());
    const bool isInteger = format == GL_RGBA_INTEGER;
    glTexImage2D(
        GL_TEXTURE_2D, 0, internalFormat, width, height, 0, format, isInteger ? GL_UNSIGNED_INT : GL_FLOAT, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    return texture;
}

} // namespace

RenderTarget::RenderTarget(int width, int height, int colorFormat, bool withDepth)
    : m_framebuffer(nullptr)
{
    m_color = allocate(width, height, colorFormat, colorFormat == GL_RGBA32UI ? GL_RGBA_INTEGER : GL_RGBA);
    m_framebuffer.bind();
    m_framebuffer.attach(m_color.get(), GL_COLOR_ATTACHMENT0, 0);
    if (withDepth) {
        m_depth = allocate(width, height, GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT);
        m_framebuffer.attach(m_depth.get(), GL_DEPTH_ATTACHMENT, 0);
    }
    m_framebuffer.setDrawBuffers();
    glViewport(0, 0, width, height);
    clear();
}

RenderTarget::~RenderTarget()
{
    m_framebuffer.detachAll();
    m_framebuffer.unbind();
}

void RenderTarget::clear()
{
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

Image RenderTarget::read() const
{
    return readTexture(m_color.get());
}

Image RenderTarget::readDepth() const
{
    return readTexture(m_depth.get());
}

std::unique_ptr<ShaderProgram> makeProgram(const QVector<QPair<unsigned int, QString>> &sources)
{
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations({QStringLiteral("out_FragColor")});
    for (const QPair<unsigned int, QString> &source : sources) {
        if (source.second.startsWith(QLatin1Char('@')))
            program->addShaderFromFile(int(source.first), source.second.mid(1));
        else
            program->addShader(int(source.first), source.second, QString());
    }
    EXPECT_TRUE(program->compile()) << qPrintable(program->log());
    EXPECT_TRUE(program->link()) << qPrintable(program->log());
    return program;
}

QString itemVertexSource(const QString &plan)
{
    return QStringLiteral(R"(#version 150
#instancedata "%1"
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_CameraMatrix;
in vec3 va_Vertex;
in vec2 va_TexCoord;
out vec2 vo_TexCoord;

void main()
{
    vo_TexCoord = va_TexCoord;
    gl_Position = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
}
)")
        .arg(plan);
}

std::unique_ptr<ShaderProgram> makeItemProgram(const QString &color)
{
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    const QString fragmentSource = QStringLiteral(R"(#version 150
#include "TextureManager.glslh"
#instancedata "OBJMaterial"
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    out_FragColor = %1;
}
)")
                                       .arg(color);
    return makeProgram({
        {GL_VERTEX_SHADER, itemVertexSource(QStringLiteral("InstanceInfo"))},
        {GL_VERTEX_SHADER, registry.getPlan(QStringLiteral("InstanceInfo")).glslc()},
        {GL_VERTEX_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        {GL_FRAGMENT_SHADER, fragmentSource},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("OBJMaterial")).glslc()},
        {GL_FRAGMENT_SHADER, QStringLiteral("@TextureManager.glslc")},
        {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
    });
}

MeshData unitSquare()
{
    MeshData mesh;
    mesh.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    mesh.normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}};
    mesh.texCoords = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
    mesh.indices = {0, 1, 2, 2, 1, 3};
    return mesh;
}

MeshData cube()
{
    MeshData mesh;
    for (int i = 0; i < 8; ++i)
        mesh.positions.append({i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f});
    mesh.indices = {
        0, 2, 1, 1, 2, 3, 4, 5, 6, 5, 7, 6, 0, 1, 4, 1, 5, 4, 2, 6, 3, 3, 6, 7, 0, 4, 2, 2, 4, 6, 1, 3, 5, 3, 7, 5};
    return mesh;
}

QMatrix4x4 placed(float x, float y, float z, float scale)
{
    QMatrix4x4 matrix;
    matrix.translate(x, y, z);
    matrix.scale(scale);
    return matrix;
}

QMatrix4x4 pixelProjection(int width, int height)
{
    QMatrix4x4 projection;
    projection.ortho(0, float(width), 0, float(height), -1, 1);
    return projection;
}

} // namespace Velmora::Kvz
