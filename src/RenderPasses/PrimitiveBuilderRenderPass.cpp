// SPDX-License-Identifier: MIT
#include <RenderPasses/PrimitiveBuilderRenderPass.h>

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/OpenGLDeviceContext.h>

#include <QtCore/QVector>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <array>

namespace Velmora::Kvz {

namespace {

struct Vertex
{
    float position[3];
    float texCoord[2];
    float normal[3];
};

constexpr std::array<Vertex, 4> quadVertices = {{
    {{-1, -1, 0}, {0, 0}, {0, 0, -1}},
    {{-1, 1, 0}, {0, 1}, {0, 0, -1}},
    {{1, -1, 0}, {1, 0}, {0, 0, -1}},
    {{1, 1, 0}, {1, 1}, {0, 0, -1}},
}};

constexpr std::array<unsigned int, 6> quadIndices = {0, 1, 2, 1, 2, 3};

/// The faces -z, +z, -x, +x, -y, +y, two triangles each. The faces of a pair list their corners in one order, on purpose, so
/// they wind in opposite directions.
constexpr std::array<Vertex, 36> makeCubeVertices()
{
    constexpr int axes[6] = {2, 2, 0, 0, 1, 1};
    // Along the two other axes, in the order x, y, z.
    constexpr float zFaceCorners[6][2] = {
        {-0.5f, -0.5f}, {-0.5f, 0.5f}, {0.5f, -0.5f}, {-0.5f, 0.5f}, {0.5f, -0.5f}, {0.5f, 0.5f}};
    constexpr float sideCorners[6][2] = {
        {-0.5f, -0.5f}, {0.5f, -0.5f}, {-0.5f, 0.5f}, {0.5f, -0.5f}, {-0.5f, 0.5f}, {0.5f, 0.5f}};
    constexpr int texCoordSteps[6][2] = {{1, 1}, {1, 0}, {0, 1}, {1, 0}, {0, 1}, {0, 0}};

    std::array<Vertex, 36> vertices = {};
    for (int face = 0; face < 6; ++face) {
        const int axis = axes[face];
        const float side = face % 2 == 0 ? -1.0f : 1.0f;
        for (int i = 0; i < 6; ++i) {
            Vertex &vertex = vertices[size_t(face * 6 + i)];
            const float *const corner = axis == 2 ? zFaceCorners[i] : sideCorners[i];
            vertex.position[axis] = 0.5f * side;
            vertex.position[axis == 0 ? 1 : 0] = corner[0];
            vertex.position[axis == 2 ? 1 : 2] = corner[1];
            vertex.normal[axis] = side;
            vertex.texCoord[0] = float(face + texCoordSteps[i][0]);
            vertex.texCoord[1] = float(face + texCoordSteps[i][1]);
        }
    }
    return vertices;
}

constexpr std::array<unsigned int, 36> makeCubeIndices()
{
    std::array<unsigned int, 36> indices = {};
    for (unsigned int i = 0; i < 36; ++i)
        indices[i] = i;
    return indices;
}

constexpr std::array<Vertex, 36> cubeVertices = makeCubeVertices();
constexpr std::array<unsigned int, 36> cubeIndices = makeCubeIndices();

struct Shape
{
    const Vertex *vertices;
    unsigned int vertexCount;
    const unsigned int *indices;
    unsigned int indexCount;
};

// Half the extent is 1 for the quad and 0.5 for the cube, on purpose: one size scales them differently.
constexpr Shape quadShape = {quadVertices.data(), 4, quadIndices.data(), 6};
constexpr Shape cubeShape = {cubeVertices.data(), 36, cubeIndices.data(), 36};

const Shape &shapeOf(PrimitiveBuilderRenderPass::PrimitiveType type)
{
    return type == PrimitiveBuilderRenderPass::Cube ? cubeShape : quadShape;
}

/// All primitives together.
struct Arrays
{
    QVector<float> positions;
    QVector<float> texCoords;
    QVector<float> normals;
    QVector<unsigned int> indices;
    QVector<DrawElementsIndirectCommand> commands;
};

Arrays bake(const QList<PrimitiveBuilderRenderPass::PrimitiveInfo> &primitives, bool useIndirectDrawCommands)
{
    int vertexCount = 0;
    int indexCount = 0;
    for (const auto &primitive : primitives) {
        vertexCount += int(shapeOf(primitive.type).vertexCount);
        indexCount += int(shapeOf(primitive.type).indexCount);
    }
    Arrays arrays;
    arrays.positions.resize(3 * vertexCount);
    arrays.texCoords.resize(2 * vertexCount);
    arrays.normals.resize(3 * vertexCount);
    arrays.indices.resize(indexCount);
    arrays.commands.resize(primitives.size());

    float *position = arrays.positions.data();
    float *texCoord = arrays.texCoords.data();
    float *normal = arrays.normals.data();
    unsigned int *index = arrays.indices.data();
    unsigned int vertexBase = 0;
    unsigned int firstIndex = 0;
    for (int i = 0; i < primitives.size(); ++i) {
        const auto &primitive = primitives[i];
        const Shape &shape = shapeOf(primitive.type);
        // The vertex base goes into the command and into the indices, on purpose.
        if (useIndirectDrawCommands)
            arrays.commands[i] = {shape.indexCount, 1, firstIndex, vertexBase, 0};
        for (const Vertex *vertex = shape.vertices; vertex != shape.vertices + shape.vertexCount; ++vertex) {
            for (int axis = 0; axis < 3; ++axis)
                *position++ = primitive.size * vertex->position[axis] + primitive.position[axis];
            normal = std::copy_n(vertex->normal, 3, normal);
            texCoord = std::copy_n(vertex->texCoord, 2, texCoord);
        }
        for (unsigned int k = 0; k < shape.indexCount; ++k)
            *index++ = shape.indices[k] + vertexBase;
        firstIndex += shape.indexCount;
        vertexBase += shape.vertexCount;
    }
    return arrays;
}

std::unique_ptr<DrawBuffers> makeDrawBuffers(const Arrays &arrays, bool useIndirectDrawCommands)
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    auto drawBuffers = std::make_unique<DrawBuffers>(nullptr);
    drawBuffers->setVAO(device->createVertexArrayObject());

    const QSharedPointer<BufferObject> indices = device->createBufferObject();
    indices->setTarget(GL_ELEMENT_ARRAY_BUFFER);
    drawBuffers->setIndexedDraw(indices, arrays.indices.size(), GL_UNSIGNED_INT);
    const auto addArray = [&](const QString &name, int components) {
        QSharedPointer<BufferObject> buffer = device->createBufferObject();
        buffer->setTarget(GL_ARRAY_BUFFER);
        drawBuffers->VAO()->upload(name, buffer, components, GL_FLOAT);
        return buffer;
    };
    const QSharedPointer<BufferObject> positions = addArray(QStringLiteral("va_Vertex"), 3);
    const QSharedPointer<BufferObject> texCoords = addArray(QStringLiteral("va_TexCoord"), 2);
    const QSharedPointer<BufferObject> normals = addArray(QStringLiteral("va_Normal"), 3);

    {
        AutoBinder binder(indices);
        indices->uploadGLuintData(arrays.indices.constData(), arrays.indices.size(), GL_STATIC_DRAW);
    }
    const auto fill = [](const QSharedPointer<BufferObject> &buffer, const QVector<float> &values) {
        AutoBinder binder(buffer);
        buffer->upload(values.constData(), values.size(), GL_STATIC_DRAW);
    };
    fill(positions, arrays.positions);
    fill(texCoords, arrays.texCoords);
    fill(normals, arrays.normals);

    drawBuffers->setPrimitiveType(GL_TRIANGLES);
    if (useIndirectDrawCommands)
        drawBuffers->setDrawElementsIndirectCommands(arrays.commands.constData(), arrays.commands.size());
    return drawBuffers;
}

} // namespace

PrimitiveBuilderRenderPass::PrimitiveBuilderRenderPass()
{
    addOutput(QStringLiteral("Kvz_KvzDrawBuffers*_Geometry"));
}

PrimitiveBuilderRenderPass::~PrimitiveBuilderRenderPass() = default;

void PrimitiveBuilderRenderPass::start(RenderCallbacks *)
{
    const int geometry = findOutput(QStringLiteral("Kvz_KvzDrawBuffers*_Geometry"));
    if (geometry == -1)
        return;
    if (m_dirty) {
        m_dirty = false;
        m_drawBuffers.reset();
        m_drawBuffers = makeDrawBuffers(bake(m_primitives, m_useIndirectDrawCommands), m_useIndirectDrawCommands);
    }
    m_outputs[geometry].value = QVariant::fromValue(m_drawBuffers.get());
}

void PrimitiveBuilderRenderPass::addQuad(float size, const QVector3D &position)
{
    m_primitives.append({Quad, size, position});
    m_dirty = true;
}

void PrimitiveBuilderRenderPass::addCube(float size, const QVector3D &position)
{
    m_primitives.append({Cube, size, position});
    m_dirty = true;
}

void PrimitiveBuilderRenderPass::setUseIndirectDrawCommands(bool use)
{
    m_useIndirectDrawCommands = use;
    m_dirty = true;
}

} // namespace Velmora::Kvz
