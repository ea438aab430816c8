// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/BufferTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/GLStatistics.h>
#include <Scene/InstanceDataRegistry.h>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const float nan = std::nanf("");

class GPUModelBuilderTest : public GLTest
{
protected:
    /// Takes the only line in the log, which must contain `part`.
    void expectOneLine(const char *part)
    {
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1) << qPrintable(lines.join(QLatin1Char('\n')));
        EXPECT_TRUE(lines[0].startsWith(QLatin1String("[GPUModelBuilder:"))) << qPrintable(lines[0]);
        EXPECT_TRUE(lines[0].contains(QLatin1String(part))) << qPrintable(lines[0]);
    }

    GPUModelBuilder builder;
};

TEST_F(GPUModelBuilderTest, numbersCountUp)
{
    EXPECT_EQ(builder.addMesh(unitSquare()), 0);
    EXPECT_EQ(builder.addMesh(cube()), 1);
    EXPECT_EQ(builder.addMaterial({}), 0);
    EXPECT_EQ(builder.addMaterial({}), 1);
    EXPECT_EQ(builder.addItem(1, 0), 0);
    EXPECT_EQ(builder.addItem(0, 1), 1);
}

TEST_F(GPUModelBuilderTest, badMeshesAreRefused)
{
    struct Case
    {
        const char *line;
        void (*spoil)(MeshData &);
    };
    const Case cases[] = {
        {"Mesh 1 is refused: it has no triangles", [](MeshData &mesh) { mesh = MeshData(); }},
        {"5 indices are no whole number of triangles", [](MeshData &mesh) { mesh.indices.removeLast(); }},
        {"4 positions without indices are no whole number", [](MeshData &mesh) { mesh.indices.clear(); }},
        {"3 normals for 4 positions", [](MeshData &mesh) { mesh.normals.removeLast(); }},
        {"5 texture coordinates for 4 positions", [](MeshData &mesh) { mesh.texCoords.append(QVector2D()); }},
        {"index 5 is 4, past the last of 4 positions", [](MeshData &mesh) { mesh.indices[5] = 4; }},
        {"index 0 is 0, past the last of 0 positions",
            [](MeshData &mesh) {
                mesh = MeshData();
                mesh.indices = {0, 0, 0};
            }},
        {"position 2 is not finite", [](MeshData &mesh) { mesh.positions[2].setY(nan); }},
        {"normal 1 is not finite", [](MeshData &mesh) { mesh.normals[1].setX(INFINITY); }},
        {"texture coordinate 3 is not finite", [](MeshData &mesh) { mesh.texCoords[3].setY(-INFINITY); }},
    };
    ASSERT_EQ(builder.addMesh(unitSquare()), 0);
    for (const Case &bad : cases) {
        MeshData mesh = unitSquare();
        bad.spoil(mesh);
        EXPECT_LT(builder.addMesh(mesh), 0) << bad.line;
        expectOneLine(bad.line);
    }
    // What was added before stays valid, and numbers continue.
    EXPECT_EQ(builder.addMesh(cube()), 1);
}

TEST_F(GPUModelBuilderTest, badMaterialsAreRefused)
{
    MaterialData material;
    material.kd.setX(nan);
    EXPECT_LT(builder.addMaterial(material), 0);
    expectOneLine("Material 0 is refused: kd");
    material = MaterialData();
    material.ks.setZ(INFINITY);
    EXPECT_LT(builder.addMaterial(material), 0);
    expectOneLine("ks is not finite");
    material = MaterialData();
    material.ns = nan;
    EXPECT_LT(builder.addMaterial(material), 0);
    expectOneLine("ns is not finite");
    material = MaterialData();
    material.d = nan;
    EXPECT_LT(builder.addMaterial(material), 0);
    expectOneLine("d is not finite");
    EXPECT_EQ(builder.addMaterial({}), 0);
}

TEST_F(GPUModelBuilderTest, badItemsAreRefused)
{
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    for (const int mesh : {-1, 1, 7}) {
        EXPECT_LT(builder.addItem(mesh, 0), 0);
        expectOneLine(qPrintable(QStringLiteral("there is no mesh %1; 1 were added").arg(mesh)));
    }
    for (const int material : {-1, 1}) {
        EXPECT_LT(builder.addItem(0, material), 0);
        expectOneLine(qPrintable(QStringLiteral("there is no material %1; 1 were added").arg(material)));
    }
    QMatrix4x4 matrix;
    matrix(1, 2) = nan;
    EXPECT_LT(builder.addItem(0, 0, matrix), 0);
    expectOneLine("Item 0 is refused: its matrix is not finite");
    EXPECT_EQ(builder.addItem(0, 0), 0);
    EXPECT_EQ(builder.build()->itemCount(), 1);
}

TEST_F(GPUModelBuilderTest, buildingWithoutContextIsRefused)
{
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    builder.addItem(0, 0);
    context().doneCurrent();
    EXPECT_TRUE(builder.build().isNull());
    context().makeCurrent();
    expectOneLine("no OpenGL context is current");
    EXPECT_FALSE(builder.build().isNull());
}

/// Claims while it lives that the driver's buffer textures have this many texels.
class SmallBufferTextures
{
public:
    explicit SmallBufferTextures(int texels)
        : m_real(epoxy_glGetIntegerv)
    {
        glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &m_claimed); // Resolves the entry point.
        m_real = epoxy_glGetIntegerv;
        m_claimed = texels;
        instance = this;
        epoxy_glGetIntegerv = [](GLenum name, GLint *value) {
            instance->m_real(name, value);
            if (name == GL_MAX_TEXTURE_BUFFER_SIZE)
                *value = instance->m_claimed;
        };
    }
    ~SmallBufferTextures() { epoxy_glGetIntegerv = m_real; }

private:
    static SmallBufferTextures *instance;
    PFNGLGETINTEGERVPROC m_real;
    GLint m_claimed = 0;
};

SmallBufferTextures *SmallBufferTextures::instance = nullptr;

TEST_F(GPUModelBuilderTest, moreItemsThanBufferTexturesHoldAreRefused)
{
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    for (int i = 0; i < 4; ++i)
        builder.addItem(0, 0);
    SmallBufferTextures driver(4 * 16); // Sixteen texels hold a material for physically based light.
    EXPECT_FALSE(builder.build().isNull());
    builder.addItem(0, 0);
    EXPECT_TRUE(builder.build().isNull());
    expectOneLine("A model of 5 items cannot be built: this driver's buffer textures hold the data of 4");
}

TEST_F(GPUModelBuilderTest, nothingIsLeftBehind)
{
    MaterialData material;
    material.mapKd = QImage(8, 8, QImage::Format_RGB32);
    material.mapKd.fill(Qt::red);
    builder.addMesh(unitSquare());
    builder.addMaterial(material);
    builder.addItem(0, 0);
    builder.build(); // From here on the manager has what it keeps.
    const GLObjectCounts before = glObjectCounts();
    QSharedPointer<GPUModel> model = builder.build();
    EXPECT_FALSE(glObjectCounts() == before);
    model.clear();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(GPUModelBuilderTest, geometryIsPackedWithAbsoluteIndices)
{
    MeshData unindexed;
    unindexed.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    builder.addMesh(cube()); // No item draws it, so it takes no room.
    builder.addMesh(unindexed);
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    builder.addItem(2, 0);
    builder.addItem(1, 0);
    builder.addItem(2, 0);
    const QSharedPointer<GPUModel> model = builder.build();
    DrawBuffers *const geometry = model->drawBuffers(0);
    ASSERT_TRUE(geometry);
    EXPECT_FALSE(model->drawBuffers(1));
    EXPECT_FALSE(model->drawBuffers(-1));
    EXPECT_EQ(geometry->primitiveType(), unsigned(GL_TRIANGLES));

    ASSERT_TRUE(geometry->indexBO());
    const QSharedPointer<BufferObject> indexBuffer = geometry->indexBO();
    ASSERT_EQ(indexBuffer->size(), long(9 * sizeof(quint32)));
    const auto *indices = static_cast<const quint32 *>(indexBuffer->map(GL_READ_ONLY));
    EXPECT_EQ(QVector<quint32>(indices, indices + 9), (QVector<quint32>{0, 1, 2, 3, 4, 5, 5, 4, 6}));
    indexBuffer->unmap();

    const QSharedPointer<BufferObject> normals = geometry->VAO()->bo(QStringLiteral("va_Normal"));
    ASSERT_EQ(normals->size(), long(7 * sizeof(QVector3D)));
    const auto *normal = static_cast<const QVector3D *>(normals->map(GL_READ_ONLY));
    EXPECT_EQ(normal[0], QVector3D()); // The mesh has no normals.
    EXPECT_EQ(normal[3], QVector3D(0, 0, 1));
    normals->unmap();
    EXPECT_EQ(geometry->VAO()->bo(QStringLiteral("va_TexCoord"))->size(), long(7 * sizeof(QVector2D)));

    const QVector<DrawElementsIndirectCommand> commands = geometry->drawElementsIndirectCommands();
    ASSERT_EQ(commands.size(), 3);
    EXPECT_EQ(commands[0].firstIndex, 3u);
    EXPECT_EQ(commands[0].count, 6u);
    EXPECT_EQ(commands[1].firstIndex, 0u);
    EXPECT_EQ(commands[1].count, 3u);
    EXPECT_EQ(commands[2].firstIndex, 3u);
    for (const DrawElementsIndirectCommand &command : commands) {
        EXPECT_EQ(command.baseVertex, 0u);
        EXPECT_EQ(command.instanceCount, 1u);
        EXPECT_EQ(command.baseInstance, 0u);
    }
}

TEST_F(GPUModelBuilderTest, materialRowsAreThoseThatShadersRead)
{
    const int mesh = builder.addMesh(unitSquare());
    MaterialData glass;
    glass.kd = {0.1f, 0.2f, 0.3f};
    glass.ks = {0.4f, 0.5f, 0.6f};
    glass.ns = 70;
    glass.d = 0.25f;
    MaterialData painted;
    painted.mapKd = QImage(2, 2, QImage::Format_RGBA8888);
    painted.mapKd.fill(Qt::red);
    const int materials[] = {builder.addMaterial({}), builder.addMaterial(glass), builder.addMaterial(painted)};
    // The first material is not used, the second one twice.
    for (const int material : {materials[1], materials[2], materials[1]})
        builder.addItem(mesh, material);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_NE(model, nullptr);

    const InstanceDataPlan &plan = InstanceDataRegistry::Instance().getPlan("OBJMaterial");
    const int rowFloats = plan.stride() * 4;
    const QVector<float> &rows = model->materialRows();
    ASSERT_EQ(rows.size(), 3 * rowFloats);
    const auto value = [&](int item, const char *getter, int channel = 0) {
        return rows[item * rowFloats + plan.offset(getter) + channel];
    };
    for (const int item : {0, 2}) {
        for (int channel = 0; channel < 3; ++channel) {
            EXPECT_EQ(value(item, "getKd", channel), glass.kd[channel]);
            EXPECT_EQ(value(item, "getKs", channel), glass.ks[channel]);
        }
        EXPECT_EQ(value(item, "getNs"), 70);
        EXPECT_EQ(value(item, "getD"), 0.25f);
        EXPECT_EQ(value(item, "getMap_Kd"), 0);
        EXPECT_EQ(value(item, "getMaterialId"), materials[1]);
    }
    EXPECT_GT(value(1, "getMap_Kd"), 0);
    EXPECT_EQ(value(1, "getMaterialId"), materials[2]);

    auto *const uploaded = dynamic_cast<BufferTexture *>(model->materialData(0));
    ASSERT_NE(uploaded, nullptr);
    ASSERT_EQ(uploaded->size(), rows.size() * long(sizeof(float)));
    QVector<float> read(rows.size());
    glBindBuffer(GL_COPY_READ_BUFFER, uploaded->buffer()->getBO());
    glGetBufferSubData(GL_COPY_READ_BUFFER, 0, uploaded->size(), read.data());
    glBindBuffer(GL_COPY_READ_BUFFER, 0);
    EXPECT_EQ(read, rows);
    EXPECT_TRUE(GPUModelBuilder().build()->materialRows().isEmpty());
}

TEST_F(GPUModelBuilderTest, modelIsUnindexedOnlyWhenNoMeshHasIndices)
{
    MeshData first;
    first.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    MeshData second;
    second.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    builder.addMesh(first);
    builder.addMesh(second);
    builder.addMaterial({});
    builder.addItem(0, 0);
    builder.addItem(1, 0);
    const QSharedPointer<GPUModel> model = builder.build();
    EXPECT_FALSE(model->drawBuffers(0)->indexBO());
    const QVector<DrawElementsIndirectCommand> commands = model->drawBuffers(0)->drawElementsIndirectCommands();
    EXPECT_EQ(commands[1].firstIndex, 3u);
    EXPECT_EQ(commands[1].count, 6u);
}

TEST_F(GPUModelBuilderTest, builderWithoutItemsGivesAModelThatDrawsNothing)
{
    builder.addMesh(cube());
    builder.addMaterial({});
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);
    EXPECT_EQ(model->itemCount(), 0);
    EXPECT_FALSE(model->drawBuffers(0));
    EXPECT_TRUE(model->isDrawEmpty(0, 0));
    EXPECT_FALSE(model->hasFeatureFlags(GPUModel::HasSceneBounds));
    EXPECT_EQ(model->sceneBounds(), (QPair<QVector3D, QVector3D>()));
    ASSERT_TRUE(model->objectData(0));
    ASSERT_TRUE(model->materialData(0));
    RenderTarget target(4, 4, GL_RGBA8);
    model->draw(makeItemProgram(QStringLiteral("vec4(1.0)")).get(), 0, 0, WindingCounterClockwise, false);
    model->visibilityCull();
    model->frustumCull(QMatrix4x4());
    model->resetCulling();
    EXPECT_EQ(model->culledCount(), 0);
    EXPECT_EQ(target.read().pixel(2, 2), QVector4D());
}

} // namespace

} // namespace Velmora::Kvz
