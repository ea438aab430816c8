// SPDX-License-Identifier: MIT
#include "Meshes.h"

#include <GL/AutoBinder.h>
#include <GL/OpenGLDeviceContext.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

template <typename Element> QVector<Element> readBuffer(const QSharedPointer<BufferObject> &buffer)
{
    if (!buffer)
        return {};
    glBindBuffer(GL_COPY_READ_BUFFER, buffer->getBO());
    GLint size = 0;
    glGetBufferParameteriv(GL_COPY_READ_BUFFER, GL_BUFFER_SIZE, &size);
    QVector<Element> elements(size / int(sizeof(Element)));
    glGetBufferSubData(GL_COPY_READ_BUFFER, 0, elements.size() * long(sizeof(Element)), elements.data());
    glBindBuffer(GL_COPY_READ_BUFFER, 0);
    return elements;
}

template <typename Vector> QSharedPointer<BufferObject> makeBuffer(const QVector<Vector> &vectors)
{
    QSharedPointer<BufferObject> buffer = OpenGLDeviceContext::current()->createBufferObject();
    buffer->uploadBytes(vectors.constData(), vectors.size() * long(sizeof(Vector)), GL_STATIC_DRAW);
    return buffer;
}

} // namespace

MeshData boxMesh(int divisions)
{
    MeshData mesh;
    for (int face = 0; face < 6; ++face) {
        const int axis = face / 2;
        const float side = face % 2 == 0 ? -1.0f : 1.0f;
        const auto first = quint32(mesh.positions.size());
        for (int j = 0; j <= divisions; ++j) {
            for (int i = 0; i <= divisions; ++i) {
                const QVector2D texCoord(float(i) / float(divisions), float(j) / float(divisions));
                QVector3D position;
                position[axis] = side;
                // Reversed on the far side, so that both wind the same way seen from outside.
                position[(axis + 1) % 3] = side * (2 * texCoord.x() - 1);
                position[(axis + 2) % 3] = 2 * texCoord.y() - 1;
                QVector3D normal;
                normal[axis] = side;
                mesh.positions.append(position);
                mesh.normals.append(normal);
                mesh.texCoords.append(texCoord);
            }
        }
        const auto row = quint32(divisions + 1);
        for (quint32 j = 0; j + 1 < row; ++j) {
            for (quint32 i = 0; i + 1 < row; ++i) {
                const quint32 corner = first + j * row + i;
                mesh.indices += {corner, corner + 1, corner + row, corner + row, corner + 1, corner + row + 1};
            }
        }
    }
    return mesh;
}

MeshData sphereMesh(int divisions)
{
    MeshData mesh = boxMesh(divisions);
    for (QVector3D &position : mesh.positions)
        position.normalize();
    mesh.normals = mesh.positions;
    return mesh;
}

MeshData groundMesh()
{
    MeshData mesh;
    mesh.positions = {{-1, 0, 1}, {1, 0, 1}, {-1, 0, -1}, {1, 0, -1}};
    mesh.normals = {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}};
    mesh.texCoords = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
    mesh.indices = {0, 1, 2, 2, 1, 3};
    return mesh;
}

MeshData wallMesh()
{
    MeshData mesh = groundMesh();
    mesh.positions = {{-1, -1, 0}, {1, -1, 0}, {-1, 1, 0}, {1, 1, 0}};
    mesh.normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}};
    return mesh;
}

MeshData withoutIndices(const MeshData &mesh)
{
    MeshData corners;
    for (const quint32 index : mesh.indices) {
        corners.positions.append(mesh.positions[int(index)]);
        corners.normals.append(mesh.normals[int(index)]);
        corners.texCoords.append(mesh.texCoords[int(index)]);
    }
    return corners;
}

std::unique_ptr<DrawBuffers> makeDrawBuffers(const MeshData &mesh)
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    auto drawBuffers = std::make_unique<DrawBuffers>(nullptr);
    const QSharedPointer<VertexArrayObject> vao = device->createVertexArrayObject();
    vao->upload(QStringLiteral("va_Vertex"), makeBuffer(mesh.positions), 3, GL_FLOAT);
    vao->upload(QStringLiteral("va_Normal"), makeBuffer(mesh.normals), 3, GL_FLOAT);
    vao->upload(QStringLiteral("va_TexCoord"), makeBuffer(mesh.texCoords), 2, GL_FLOAT);
    drawBuffers->setVAO(vao);
    drawBuffers->setVertexCount(unsigned(mesh.positions.size()));
    if (!mesh.indices.isEmpty()) {
        const QSharedPointer<BufferObject> indices = device->createBufferObject();
        indices->setTarget(GL_ELEMENT_ARRAY_BUFFER);
        indices->uploadGLuintData(mesh.indices.constData(), mesh.indices.size(), GL_STATIC_DRAW);
        drawBuffers->setIndexedDraw(indices, mesh.indices.size(), GL_UNSIGNED_INT);
    }
    return drawBuffers;
}

MeshData readMesh(const DrawBuffers &drawBuffers)
{
    MeshData mesh;
    mesh.positions = readBuffer<QVector3D>(drawBuffers.VAO()->bo(QStringLiteral("va_Vertex")));
    mesh.normals = readBuffer<QVector3D>(drawBuffers.VAO()->bo(QStringLiteral("va_Normal")));
    mesh.texCoords = readBuffer<QVector2D>(drawBuffers.VAO()->bo(QStringLiteral("va_TexCoord")));
    mesh.indices = readBuffer<quint32>(drawBuffers.indexBO());
    return mesh;
}

} // namespace Velmora::Kvz
