// SPDX-License-Identifier: MIT
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/PrimitiveBuilderRenderPass.h>

#include <QtCore/QPointer>

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// Position, texture coordinate, normal.
using Vertex = std::array<float, 8>;

const std::vector<Vertex> quadVertices = {
    {-1, -1, 0, 0, 0, 0, 0, -1},
    {-1, 1, 0, 0, 1, 0, 0, -1},
    {1, -1, 0, 1, 0, 0, 0, -1},
    {1, 1, 0, 1, 1, 0, 0, -1},
};

const std::vector<Vertex> cubeVertices = {
    {-0.5f, -0.5f, -0.5f, 1, 1, 0, 0, -1},
    {-0.5f, 0.5f, -0.5f, 1, 0, 0, 0, -1},
    {0.5f, -0.5f, -0.5f, 0, 1, 0, 0, -1},
    {-0.5f, 0.5f, -0.5f, 1, 0, 0, 0, -1},
    {0.5f, -0.5f, -0.5f, 0, 1, 0, 0, -1},
    {0.5f, 0.5f, -0.5f, 0, 0, 0, 0, -1},
    {-0.5f, -0.5f, 0.5f, 2, 2, 0, 0, 1},
    {-0.5f, 0.5f, 0.5f, 2, 1, 0, 0, 1},
    {0.5f, -0.5f, 0.5f, 1, 2, 0, 0, 1},
    {-0.5f, 0.5f, 0.5f, 2, 1, 0, 0, 1},
    {0.5f, -0.5f, 0.5f, 1, 2, 0, 0, 1},
    {0.5f, 0.5f, 0.5f, 1, 1, 0, 0, 1},
    {-0.5f, -0.5f, -0.5f, 3, 3, -1, 0, 0},
    {-0.5f, 0.5f, -0.5f, 3, 2, -1, 0, 0},
    {-0.5f, -0.5f, 0.5f, 2, 3, -1, 0, 0},
    {-0.5f, 0.5f, -0.5f, 3, 2, -1, 0, 0},
    {-0.5f, -0.5f, 0.5f, 2, 3, -1, 0, 0},
    {-0.5f, 0.5f, 0.5f, 2, 2, -1, 0, 0},
    {0.5f, -0.5f, -0.5f, 4, 4, 1, 0, 0},
    {0.5f, 0.5f, -0.5f, 4, 3, 1, 0, 0},
    {0.5f, -0.5f, 0.5f, 3, 4, 1, 0, 0},
    {0.5f, 0.5f, -0.5f, 4, 3, 1, 0, 0},
    {0.5f, -0.5f, 0.5f, 3, 4, 1, 0, 0},
    {0.5f, 0.5f, 0.5f, 3, 3, 1, 0, 0},
    {-0.5f, -0.5f, -0.5f, 5, 5, 0, -1, 0},
    {0.5f, -0.5f, -0.5f, 5, 4, 0, -1, 0},
    {-0.5f, -0.5f, 0.5f, 4, 5, 0, -1, 0},
    {0.5f, -0.5f, -0.5f, 5, 4, 0, -1, 0},
    {-0.5f, -0.5f, 0.5f, 4, 5, 0, -1, 0},
    {0.5f, -0.5f, 0.5f, 4, 4, 0, -1, 0},
    {-0.5f, 0.5f, -0.5f, 6, 6, 0, 1, 0},
    {0.5f, 0.5f, -0.5f, 6, 5, 0, 1, 0},
    {-0.5f, 0.5f, 0.5f, 5, 6, 0, 1, 0},
    {0.5f, 0.5f, -0.5f, 6, 5, 0, 1, 0},
    {-0.5f, 0.5f, 0.5f, 5, 6, 0, 1, 0},
    {0.5f, 0.5f, 0.5f, 5, 5, 0, 1, 0},
};

class PrimitiveBuilderRenderPassTest : public GLTest
{
protected:
    PrimitiveBuilderRenderPass pass;

    DrawBuffers *geometry() const { return pass.output(PrimitiveBuilderRenderPass::Geometry).value<DrawBuffers *>(); }
    /// Runs the pass and reads what it baked.
    MeshData bake()
    {
        pass.start(nullptr);
        return readMesh(*geometry());
    }
};

/// The expected content of the buffers, appended one primitive at a time.
class ExpectedMesh : public MeshData
{
public:
    ExpectedMesh &quad(float size, const QVector3D &position)
    {
        return add(quadVertices, {0, 1, 2, 1, 2, 3}, size, position);
    }
    ExpectedMesh &cube(float size, const QVector3D &position)
    {
        QVector<quint32> inOrder;
        for (quint32 i = 0; i < 36; ++i)
            inOrder.append(i);
        return add(cubeVertices, inOrder, size, position);
    }

private:
    ExpectedMesh &add(const std::vector<Vertex> &vertices, const QVector<quint32> &shapeIndices, float size,
        const QVector3D &position)
    {
        const auto base = quint32(positions.size());
        for (const quint32 index : shapeIndices)
            indices.append(base + index);
        for (const Vertex &v : vertices) {
            positions.append(
                QVector3D(size * v[0] + position.x(), size * v[1] + position.y(), size * v[2] + position.z()));
            texCoords.append(QVector2D(v[3], v[4]));
            normals.append(QVector3D(v[5], v[6], v[7]));
        }
        return *this;
    }
};

/// Compares bit by bit, since Qt's own == on vectors ignores small differences.
template <typename Element>
void expectSame(const char *what, const QVector<Element> &actual, const QVector<Element> &expected)
{
    ASSERT_EQ(actual.size(), expected.size()) << what;
    for (int i = 0; i < expected.size(); ++i)
        ASSERT_EQ(std::memcmp(&actual[i], &expected[i], sizeof(Element)), 0) << what << " differ at " << i;
}

void expectSame(const MeshData &actual, const MeshData &expected)
{
    expectSame("positions", actual.positions, expected.positions);
    expectSame("texture coordinates", actual.texCoords, expected.texCoords);
    expectSame("normals", actual.normals, expected.normals);
    expectSame("indices", actual.indices, expected.indices);
}

void expectCommand(const DrawElementsIndirectCommand &command, quint32 count, quint32 firstIndex, quint32 baseVertex)
{
    EXPECT_EQ(command.count, count);
    EXPECT_EQ(command.instanceCount, 1u);
    EXPECT_EQ(command.firstIndex, firstIndex);
    EXPECT_EQ(command.baseVertex, baseVertex);
    EXPECT_EQ(command.baseInstance, 0u);
}

float least(const QVector<QVector3D> &positions, int axis)
{
    return (
        *std::min_element(positions.begin(), positions.end(), [=](auto a, auto b) { return a[axis] < b[axis]; }))[axis];
}

float greatest(const QVector<QVector3D> &positions, int axis)
{
    return (
        *std::max_element(positions.begin(), positions.end(), [=](auto a, auto b) { return a[axis] < b[axis]; }))[axis];
}

} // namespace

TEST_F(PrimitiveBuilderRenderPassTest, shapesHaveFixedNumbers)
{
    EXPECT_EQ(int(PrimitiveBuilderRenderPass::Cube), 0);
    EXPECT_EQ(int(PrimitiveBuilderRenderPass::Quad), 1);
}

TEST_F(PrimitiveBuilderRenderPassTest, publishesNullWithoutPrimitives)
{
    const GLObjectCounts before = glObjectCounts();
    pass.start(nullptr);
    ASSERT_TRUE(pass.output(0).isValid());
    EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<DrawBuffers *>());
    EXPECT_EQ(geometry(), nullptr);
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesAQuad)
{
    pass.addQuad(2, QVector3D(1, 0, 0));
    const MeshData mesh = bake();
    expectSame(mesh, ExpectedMesh().quad(2, QVector3D(1, 0, 0)));
    EXPECT_EQ(least(mesh.positions, 0), -1.0f);
    EXPECT_EQ(greatest(mesh.positions, 0), 3.0f);
    EXPECT_EQ(geometry()->primitiveType(), unsigned(GL_TRIANGLES));
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesACubeAtHalfTheScaleOfAQuad)
{
    pass.addCube(2, QVector3D(1, 0, 0));
    const MeshData mesh = bake();
    expectSame(mesh, ExpectedMesh().cube(2, QVector3D(1, 0, 0)));
    EXPECT_EQ(least(mesh.positions, 0), 0.0f);
    EXPECT_EQ(greatest(mesh.positions, 0), 2.0f);
    // Each face moves one step up the diagonal.
    for (int face = 0; face < 6; ++face) {
        EXPECT_EQ(mesh.texCoords[face * 6], QVector2D(float(face + 1), float(face + 1)));
        EXPECT_EQ(mesh.texCoords[face * 6 + 5], QVector2D(float(face), float(face)));
    }
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesAMixedList)
{
    const QVector3D a(0.1f, -3.7f, 12.25f);
    const QVector3D b(-1e4f, 0.003f, 1.0f / 3.0f);
    pass.addCube(0.3f, a);
    pass.addQuad(-1.7f, b);
    pass.addQuad(0, a);
    pass.addCube(123.456f, b);
    pass.addQuad(1, QVector3D());
    const MeshData mesh = bake();
    expectSame(mesh, ExpectedMesh().cube(0.3f, a).quad(-1.7f, b).quad(0, a).cube(123.456f, b).quad(1, QVector3D()));

    // Commands have a base vertex although indices are absolute already.
    const QVector<DrawElementsIndirectCommand> commands = geometry()->drawElementsIndirectCommands();
    ASSERT_EQ(commands.size(), 5);
    expectCommand(commands[0], 36, 0, 0);
    expectCommand(commands[1], 6, 36, 36);
    expectCommand(commands[2], 6, 42, 40);
    expectCommand(commands[3], 36, 48, 44);
    expectCommand(commands[4], 6, 84, 80);
    EXPECT_EQ(mesh.indices.last(), 83u);
}

TEST_F(PrimitiveBuilderRenderPassTest, leavesOutTheCommandsAndKeepsTheIndices)
{
    pass.addQuad(1, QVector3D());
    pass.addCube(1, QVector3D());
    const MeshData withCommands = bake();
    EXPECT_EQ(geometry()->drawElementsIndirectCommands().size(), 2);
    pass.setUseIndirectDrawCommands(false);
    const MeshData withoutCommands = bake();
    EXPECT_TRUE(geometry()->drawElementsIndirectCommands().isEmpty());
    expectSame(withoutCommands, withCommands);
    EXPECT_EQ(withoutCommands.indices[6], 4u);
}

TEST_F(PrimitiveBuilderRenderPassTest, fillsStaticBuffersOfTheirTargets)
{
    pass.addCube(1, QVector3D());
    GLCallRecorder<&epoxy_glBufferData> uploads;
    pass.start(nullptr);
    ASSERT_EQ(uploads.calls.size(), 4u);
    const std::vector<GLsizeiptr> sizes = {36 * 4, 36 * 12, 36 * 8, 36 * 12};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(std::get<1>(uploads.calls[i]), sizes[i]) << i;
        EXPECT_EQ(std::get<3>(uploads.calls[i]), GLenum(GL_STATIC_DRAW));
    }
    EXPECT_EQ(geometry()->indexBO()->target(), unsigned(GL_ELEMENT_ARRAY_BUFFER));
    for (const char *name : {"va_Vertex", "va_TexCoord", "va_Normal"})
        EXPECT_EQ(geometry()->VAO()->bo(QLatin1String(name))->target(), unsigned(GL_ARRAY_BUFFER));
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesOnceForAnUnchangedList)
{
    pass.addCube(1, QVector3D());
    pass.start(nullptr);
    DrawBuffers *const first = geometry();
    ASSERT_NE(first, nullptr);
    GLCallRecorder<&epoxy_glBufferData> uploads;
    pass.start(nullptr);
    EXPECT_EQ(geometry(), first);
    EXPECT_TRUE(uploads.calls.empty());
    // Skipping clears the output and keeps the drawable.
    pass.skip(nullptr);
    EXPECT_FALSE(pass.output(0).isValid());
    pass.start(nullptr);
    EXPECT_EQ(geometry(), first);
    EXPECT_TRUE(uploads.calls.empty());
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesTheWholeListAgainWhenItGrows)
{
    pass.addQuad(1, QVector3D());
    pass.start(nullptr);
    const QPointer<DrawBuffers> first = geometry();
    const GLObjectCounts before = glObjectCounts();
    pass.addCube(3, QVector3D(0, 1, 0));
    expectSame(bake(), ExpectedMesh().quad(1, QVector3D()).cube(3, QVector3D(0, 1, 0)));
    EXPECT_TRUE(first.isNull());
    EXPECT_EQ(glObjectCounts().buffers, before.buffers);
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesAgainForTheSameChoiceOfCommands)
{
    pass.addQuad(1, QVector3D());
    pass.start(nullptr);
    const QPointer<DrawBuffers> first = geometry();
    pass.setUseIndirectDrawCommands(true);
    pass.start(nullptr);
    EXPECT_TRUE(first.isNull());
    EXPECT_NE(geometry(), nullptr);
}

TEST_F(PrimitiveBuilderRenderPassTest, bakesAnEmptyDrawableWhenOnlyTheCommandsWereChosen)
{
    pass.setUseIndirectDrawCommands(true);
    pass.start(nullptr);
    ASSERT_NE(geometry(), nullptr);
    const MeshData mesh = readMesh(*geometry());
    EXPECT_TRUE(mesh.positions.isEmpty());
    EXPECT_TRUE(mesh.indices.isEmpty());
    EXPECT_NE(geometry()->indexBO(), nullptr);
    EXPECT_NE(geometry()->VAO()->bo(QStringLiteral("va_Normal")), nullptr);
    EXPECT_TRUE(geometry()->drawElementsIndirectCommands().isEmpty());
}

TEST_F(PrimitiveBuilderRenderPassTest, leavesWhatWasBound)
{
    VertexArrayObject vao;
    BufferObject elements;
    elements.setTarget(GL_ELEMENT_ARRAY_BUFFER);
    vao.bind();
    elements.bind();
    pass.addCube(1, QVector3D());
    pass.start(nullptr);
    EXPECT_EQ(unsigned(glInteger(GL_VERTEX_ARRAY_BINDING)), vao.getVAO());
    EXPECT_EQ(unsigned(glInteger(GL_ELEMENT_ARRAY_BUFFER_BINDING)), elements.getBO());
    EXPECT_EQ(glInteger(GL_ARRAY_BUFFER_BINDING), 0);
    elements.unbind();
    vao.unbind();
}

TEST_F(PrimitiveBuilderRenderPassTest, takesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    {
        PrimitiveBuilderRenderPass other;
        other.addCube(1, QVector3D());
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().buffers, before.buffers + 4);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
