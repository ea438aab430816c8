// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/AutoEnabler.h>
#include <GL/DrawBuffers.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>
#include <Scene/ModelPast.h>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString materialColor = QStringLiteral("vec4(getKd(), getD())");

/// A model of squares on a grid of pixels, one item and one material per pixel; kd is colorOf().
class Grid
{
public:
    explicit Grid(int side)
        : m_side(side)
    {
        const int mesh = builder.addMesh(unitSquare());
        for (int item = 0; item < side * side; ++item) {
            MaterialData material;
            material.kd = colorOf(item);
            material.d = 0.5f;
            builder.addItem(mesh, builder.addMaterial(material), placed(float(item % side), float(item / side)));
        }
    }

    static QVector3D colorOf(int item)
    {
        return {float(item % 251) / 250, float(item % 241) / 240, float(item / 1024 % 256) / 255};
    }

    void expectPixels(const Image &image) const
    {
        int wrong = 0;
        for (int item = 0; item < m_side * m_side; ++item) {
            const QVector4D expected(colorOf(item), 0.5f);
            if ((image.pixel(item % m_side, item / m_side) - expected).length() > 1e-6f)
                ++wrong;
        }
        EXPECT_EQ(wrong, 0);
    }

    GPUModelBuilder builder;

private:
    int m_side;
};

class GPUModelTest : public GLTest
{
protected:
    /// Draws front faces, in pixel coordinates of the target.
    void draw(GPUModel &model, ShaderProgram &program, int width, int height, bool ignoreCulling = false)
    {
        AutoEnabler depthTest(GL_DEPTH_TEST);
        AutoEnabler cullFace(GL_CULL_FACE);
        AutoBinder binder(&program);
        program.setUniform(QStringLiteral("u_ProjectionMatrix"), pixelProjection(width, height));
        program.setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
        model.draw(&program, 0, 0, WindingCounterClockwise, ignoreCulling);
    }
};

TEST_F(GPUModelTest, thousandsOfItemsDrawWithTheirOwnMatrixAndMaterial)
{
    const Grid grid(64);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    EXPECT_EQ(model->itemCount(), 4096);
    RenderTarget target(64, 64, GL_RGBA32F);
    const auto program = makeItemProgram(materialColor);
    draw(*model, *program, 64, 64);
    grid.expectPixels(target.read());
    saveForViewing(target.read(), QStringLiteral("model-thousands-of-items"));
}

TEST_F(GPUModelTest, aHundredThousandItems)
{
    const Grid grid(320);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    ASSERT_TRUE(model);
    EXPECT_EQ(model->itemCount(), 102400);
    RenderTarget target(320, 320, GL_RGBA32F);
    const auto program = makeItemProgram(materialColor);
    draw(*model, *program, 320, 320);
    grid.expectPixels(target.read());

    // Marking and moving this many items works too.
    QMatrix4x4 leftHalf;
    leftHalf.ortho(0, 159.5f, 0, 320, -1, 1);
    model->frustumCull(leftHalf);
    EXPECT_EQ(model->culledCount(), 160 * 320);
    for (int item = 0; item < model->itemCount(); ++item)
        model->setModelMatrix(item, placed(float(item % 320), float(item / 320), 0.5f));
    target.clear();
    draw(*model, *program, 320, 320, true);
    grid.expectPixels(target.read());
    EXPECT_NEAR(target.readDepth().at(10, 10)[0], 0.25f, 1e-6f);
}

TEST_F(GPUModelTest, gettersOfBothPlansGiveTheSame)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    MaterialData material;
    material.kd = {0.1f, 0.2f, 0.3f};
    material.ks = {0.4f, 0.5f, 0.6f};
    material.ns = 77;
    material.d = 0.25f;
    builder.addMaterial(material);
    QMatrix4x4 matrix;
    matrix.translate(1, 0, 0.5f);
    matrix.scale(2, 4, 8);
    builder.addItem(0, 0);
    builder.addItem(0, 0, matrix);
    const QSharedPointer<GPUModel> model = builder.build();

    QMatrix4x4 moved = matrix;
    moved.translate(0.5f, 0, 0);
    model->setModelMatrix(1, moved);
    for (const char *plan : {"InstanceInfo", "TavoInstance"}) {
        const QString fragmentSource = QStringLiteral(R"(#version 150
#instancedata "%1"
#instancedata "OBJMaterial"
out vec4 out_FragColor;

void main()
{
    int column = int(gl_FragCoord.x);
    int row = int(gl_FragCoord.y);
    out_FragColor = row == 0 ? getModelMatrix()[column]
        : row == 1 ? getModelNormalMatrix()[column]
        : row == 2 ? getPreviousModelMatrix()[column]
        : column == 0 ? vec4(getKd(), getD())
        : column == 1 ? vec4(getKs(), getNs())
        : vec4(float(getMap_Kd()), float(getMap_Ks()), 0.0, 0.0);
}
)")
                                           .arg(QLatin1String(plan));
        const QString vertexSource = QStringLiteral(R"(#version 150
in vec3 va_Vertex;
void main() { gl_Position = vec4(va_Vertex.xy * 2.0 - 1.0, 0.0, 1.0); }
)");
        const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
        const auto program = makeProgram({
            {GL_VERTEX_SHADER, vertexSource},
            {GL_FRAGMENT_SHADER, fragmentSource},
            {GL_FRAGMENT_SHADER, registry.getPlan(QLatin1String(plan)).glslc()},
            {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("OBJMaterial")).glslc()},
            {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        });
        registry.getPlan(QLatin1String(plan)).assertShaderProgram(program.get());
        RenderTarget target(4, 4, GL_RGBA32F);
        AutoBinder binder(program.get());
        model->draw(program.get(), nullptr, 0, 0); // Item 1 is drawn last.
        const Image image = target.read();
        const QMatrix4x4 normalMatrix = moved.inverted().transposed();
        for (int column = 0; column < 4; ++column) {
            EXPECT_EQ(image.pixel(column, 0), moved.column(column)) << plan;
            EXPECT_EQ(image.pixel(column, 1), normalMatrix.column(column)) << plan;
            EXPECT_EQ(image.pixel(column, 2), matrix.column(column)) << plan;
        }
        EXPECT_EQ(image.pixel(0, 3), QVector4D(0.1f, 0.2f, 0.3f, 0.25f));
        EXPECT_EQ(image.pixel(1, 3), QVector4D(0.4f, 0.5f, 0.6f, 77));
        EXPECT_EQ(image.pixel(2, 3), QVector4D());
    }
}

TEST_F(GPUModelTest, previousMatrixAdvancesOnceAFrame)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    builder.addItem(0, 0);
    const QSharedPointer<GPUModel> model = builder.build();
    EXPECT_TRUE(model->movedItems().isEmpty());
    EXPECT_FALSE(model->hasMovedItems());
    model->setModelMatrix(0, placed(1, 0));
    model->setModelMatrix(0, placed(2, 0));
    EXPECT_EQ(model->modelMatrix(0), placed(2, 0));
    EXPECT_EQ(model->previousModelMatrix(0), QMatrix4x4());
    EXPECT_EQ(model->movedItems(), QVector<int>{0});
    EXPECT_TRUE(model->hasMovedItems());
    model->advanceFrame();
    EXPECT_EQ(model->previousModelMatrix(0), placed(2, 0));
    EXPECT_TRUE(model->movedItems().isEmpty());
    EXPECT_FALSE(model->hasMovedItems());
    model->setModelMatrix(0, placed(3, 0));
    EXPECT_EQ(model->previousModelMatrix(0), placed(2, 0));
    model->advanceFrame();
    model->advanceFrame();
    EXPECT_EQ(model->previousModelMatrix(0), placed(3, 0));
}

TEST_F(GPUModelTest, eachPastKnowsItsOwnMoves)
{
    const Grid grid(3);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    const QMatrix4x4 start = model->modelMatrix(1);
    const std::shared_ptr<ModelPast> left = model->makePast();
    std::shared_ptr<ModelPast> right = model->makePast();
    const auto previous = [&](const std::shared_ptr<ModelPast> &past) {
        model->usePast(past);
        const QMatrix4x4 matrix = model->previousModelMatrix(1);
        const bool hasMoved = model->hasMovedItems();
        EXPECT_EQ(hasMoved, matrix != model->modelMatrix(1));
        EXPECT_EQ(model->movedItems(), hasMoved ? QVector<int>{1} : QVector<int>());
        model->usePast(nullptr);
        return matrix;
    };
    model->setModelMatrix(1, placed(5, 0));
    model->advancePast(left);
    model->setModelMatrix(1, placed(6, 0));
    EXPECT_EQ(previous(left), placed(5, 0));
    EXPECT_EQ(previous(right), start);
    EXPECT_EQ(previous(nullptr), start);
    model->advanceFrame();
    EXPECT_EQ(previous(nullptr), placed(6, 0));
    EXPECT_EQ(previous(right), start) << "of the others nothing is lost";
    EXPECT_EQ(previous(model->makePast()), placed(6, 0)) << "a new one has seen no move";

    // Marks of culling too.
    QMatrix4x4 away;
    away.translate(1000, 0, 0);
    model->usePast(right);
    model->advanceFrame();
    model->frustumCull(away);
    EXPECT_EQ(model->culledCount(), model->itemCount());
    model->usePast(left);
    EXPECT_EQ(model->culledCount(), 0);
    EXPECT_EQ(model->previousModelMatrix(1), placed(5, 0));
    model->usePast(nullptr);
    EXPECT_EQ(model->culledCount(), 0);

    // One that is in force is kept; one of another model is refused.
    model->usePast(right);
    right.reset();
    EXPECT_EQ(model->culledCount(), model->itemCount());
    const QSharedPointer<GPUModel> other = grid.builder.build();
    other->usePast(left);
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains("another model")) << qPrintable(lines[0]);
    model->usePast(nullptr);
    EXPECT_EQ(model->culledCount(), 0);
}

TEST_F(GPUModelTest, countsItsMovesAndHasANumberOfItsOwn)
{
    const Grid grid(3);
    QSharedPointer<GPUModel> model = grid.builder.build();
    const quint64 revision = model->matrixRevision();
    model->setModelMatrix(1, model->modelMatrix(1));
    EXPECT_EQ(model->matrixRevision(), revision) << "where it was";
    model->setModelMatrix(1, placed(5, 0));
    const quint64 moved = model->matrixRevision();
    EXPECT_GT(moved, revision);
    model->advanceFrame();
    EXPECT_EQ(model->matrixRevision(), moved);

    const quint64 number = model->serialNumber();
    EXPECT_GT(number, 0U);
    model = grid.builder.build();
    EXPECT_NE(model->serialNumber(), number);
}

TEST_F(GPUModelTest, changedRowsAreUploadedBeforeTheNextDraw)
{
    const Grid grid(16);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    RenderTarget target(16, 17, GL_RGBA32F);
    const auto program = makeItemProgram(materialColor);
    draw(*model, *program, 16, 17);
    // Rows out of order: some adjacent, some far apart, some repeated.
    for (const int item : {200, 3, 4, 201, 255, 3, 60})
        model->setModelMatrix(item, placed(float(item % 16), 16));
    target.clear();
    draw(*model, *program, 16, 17);
    const Image image = target.read();
    for (const int item : {200, 3, 4, 201, 255, 60}) {
        EXPECT_EQ(image.pixel(item % 16, item / 16), QVector4D()) << item;
    }
    EXPECT_EQ(image.pixel(3, 16).toVector3D(), Grid::colorOf(3));
    EXPECT_EQ(image.pixel(9, 16).toVector3D(), Grid::colorOf(201));
    EXPECT_EQ(image.pixel(15, 16).toVector3D(), Grid::colorOf(255));
    EXPECT_EQ(image.pixel(5, 0).toVector3D(), Grid::colorOf(5));
}

TEST_F(GPUModelTest, objectAndMaterialDataNeedNoProgramAndFollowMoves)
{
    const Grid grid(4);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    EXPECT_FALSE(model->objectData(1));
    EXPECT_FALSE(model->objectData(-1));
    EXPECT_FALSE(model->materialData(1));
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    const auto program = makeProgram({
        {GL_VERTEX_SHADER,
            QStringLiteral("#version 150\nin vec3 va_Vertex;\n"
                           "void main() { gl_Position = vec4(va_Vertex, 1.0); }\n")},
        {GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
#instancedata "OBJMaterial"
out vec4 out_FragColor;
int kvzDrawIndex() { return int(gl_FragCoord.x); }
void main() { out_FragColor = vec4(getModelMatrix()[3].xy, getKd().xy); }
)")},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("InstanceInfo")).glslc()},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("OBJMaterial")).glslc()},
    });
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    RenderTarget target(17, 1, GL_RGBA32F);
    model->setModelMatrix(5, placed(50, 60));
    for (int round = 0; round < 2; ++round) {
        AutoBinder objects(model->objectData(0));
        AutoBinder materials(model->materialData(0));
        AutoBinder programBinder(program.get());
        AutoBinder quadBinder(quad);
        EXPECT_TRUE(quad->draw());
        const Image image = target.read();
        EXPECT_EQ(image.pixel(6, 0), QVector4D(2, 1, Grid::colorOf(6).x(), Grid::colorOf(6).y()));
        EXPECT_EQ(image.pixel(5, 0).toVector2D(), QVector2D(50, 60));
        EXPECT_EQ(image.pixel(16, 0), QVector4D()); // Beyond the last row.
    }
}

TEST_F(GPUModelTest, collectionStandsInForTheModelsRows)
{
    const Grid grid(4);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    const auto program = makeItemProgram(materialColor);
    InstanceDataCollection collection(QStringLiteral("InstanceInfo"));
    collection.setRowCount(16);
    for (int row = 0; row < 16; ++row)
        EXPECT_TRUE(collection.setModelMatrix(row, placed(float(row % 4), float(3 - row / 4))));
    RenderTarget target(4, 4, GL_RGBA32F);

    collection.bind(program.get(), nullptr);
    EXPECT_TRUE(InstanceDataCollection::isBound(QStringLiteral("InstanceInfo")));
    EXPECT_FALSE(InstanceDataCollection::isBound(QStringLiteral("TavoInstance")));
    draw(*model, *program, 4, 4);
    Image image = target.read();
    EXPECT_EQ(image.pixel(1, 3).toVector3D(), Grid::colorOf(1));
    EXPECT_EQ(image.pixel(1, 0).toVector3D(), Grid::colorOf(13));

    // A change while bound takes effect at the next bind; an item beyond the last row collapses under a zero matrix.
    collection.unbind(program.get(), nullptr);
    EXPECT_FALSE(InstanceDataCollection::isBound(QStringLiteral("InstanceInfo")));
    collection.setRowCount(4);
    collection.bind(nullptr, nullptr);
    target.clear();
    draw(*model, *program, 4, 4);
    image = target.read();
    EXPECT_EQ(image.pixel(1, 3).toVector3D(), Grid::colorOf(1));
    EXPECT_EQ(image.pixel(1, 0), QVector4D());
    collection.unbind(nullptr, nullptr);

    target.clear();
    draw(*model, *program, 4, 4);
    grid.expectPixels(target.read());
}

TEST_F(GPUModelTest, selectionByFeatureFlags)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    const quint64 flags[] = {0, GPUModel::DoubleSided, GPUModel::NoShadowA, GPUModel::NoShadowB | 5, 0};
    for (int i = 0; i < 5; ++i) {
        MaterialData material;
        material.kd = {float(i + 1), 0, 0};
        builder.addMaterial(material);
        builder.addItem(0, i, placed(float(i), 0), flags[i]);
    }
    const QSharedPointer<GPUModel> model = builder.build();
    EXPECT_EQ(model->itemFeatureFlags(3), GPUModel::NoShadowB | 5);
    EXPECT_EQ(model->itemFeatureFlags(5), 0u);
    const auto program = makeItemProgram(materialColor);
    const auto drawn = [&](quint64 value, quint64 mask) {
        RenderTarget target(5, 1, GL_RGBA32F);
        AutoBinder binder(program.get());
        program->setUniform(QStringLiteral("u_ProjectionMatrix"), pixelProjection(5, 1));
        program->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
        model->draw(program.get(), nullptr, value, mask);
        const Image image = target.read();
        QString columns;
        for (int x = 0; x < 5; ++x)
            columns += image.pixel(x, 0).x() == float(x + 1) ? QLatin1Char('#') : QLatin1Char('.');
        EXPECT_EQ(model->isDrawEmpty(value, mask), !columns.contains(QLatin1Char('#')));
        return columns;
    };
    EXPECT_EQ(drawn(0, 0), QStringLiteral("#####"));
    EXPECT_EQ(drawn(0, 0xD000000000000000), QStringLiteral("#...#"));
    EXPECT_EQ(drawn(0x1000000000000000, 0xD000000000000000), QStringLiteral(".#..."));
    EXPECT_EQ(drawn(0, 0xC000000000000000), QStringLiteral("##..#"));
    EXPECT_EQ(drawn(5, 7), QStringLiteral("...#."));
    EXPECT_EQ(drawn(1, 0), QStringLiteral("....."));
    EXPECT_EQ(drawn(2, 7), QStringLiteral("....."));
}

TEST_F(GPUModelTest, cullingDoesNotAffectIsDrawEmpty)
{
    const Grid grid(2);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    QMatrix4x4 elsewhere;
    elsewhere.translate(100, 0, 0);
    model->frustumCull(elsewhere);
    EXPECT_EQ(model->culledCount(), 4);
    EXPECT_FALSE(model->isDrawEmpty(0, 0));
    RenderTarget target(2, 2, GL_RGBA32F);
    const auto program = makeItemProgram(materialColor);
    draw(*model, *program, 2, 2);
    EXPECT_EQ(target.read().pixel(1, 1), QVector4D());
    draw(*model, *program, 2, 2, true);
    grid.expectPixels(target.read());
}

TEST_F(GPUModelTest, windingAndMirroredItems)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    QMatrix4x4 mirrored = placed(2, 0);
    mirrored.scale(-1, 1, 1);
    builder.addItem(0, 0, placed(0, 0));
    builder.addItem(0, 0, mirrored); // Covers pixel 1.
    builder.addItem(0, 0, placed(2, 0));
    const QSharedPointer<GPUModel> model = builder.build();
    const auto program = makeItemProgram(QStringLiteral("vec4(gl_FrontFacing ? 1.0 : 0.5)"));
    AutoEnabler cullFace(GL_CULL_FACE);
    for (const GLenum found : {GL_CW, GL_CCW}) {
        RenderTarget target(3, 1, GL_RGBA32F);
        AutoBinder binder(program.get());
        program->setUniform(QStringLiteral("u_ProjectionMatrix"), pixelProjection(3, 1));
        program->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
        glFrontFace(found);
        model->draw(program.get(), 0, 0, WindingCounterClockwise, false);
        EXPECT_EQ(glInteger(GL_FRONT_FACE), int(found));
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(target.read().pixel(x, 0).x(), 1.0f) << x;
        target.clear();
        model->draw(program.get(), 0, 0, WindingClockwise, false);
        EXPECT_EQ(glInteger(GL_FRONT_FACE), int(found));
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(target.read().pixel(x, 0).x(), 0.0f) << x;
    }
    // Mirroring by a later move counts too.
    model->setModelMatrix(0, [] {
        QMatrix4x4 matrix = placed(1, 0);
        matrix.scale(-1, 1, 1);
        return matrix;
    }());
    RenderTarget target(3, 1, GL_RGBA32F);
    draw(*model, *program, 3, 1);
    EXPECT_EQ(target.read().pixel(0, 0).x(), 1.0f);
}

TEST_F(GPUModelTest, unindexedModelDraws)
{
    GPUModelBuilder builder;
    for (int i = 0; i < 2; ++i) {
        MeshData mesh;
        const float x = float(i);
        mesh.positions = {{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}, {x, 1, 0}, {x + 1, 0, 0}, {x + 1, 1, 0}};
        MaterialData material;
        material.kd = {float(i + 1), 0, 0};
        builder.addItem(builder.addMesh(mesh), builder.addMaterial(material));
    }
    const QSharedPointer<GPUModel> model = builder.build();
    RenderTarget target(2, 1, GL_RGBA32F);
    const auto program = makeItemProgram(materialColor);
    draw(*model, *program, 2, 1);
    EXPECT_EQ(target.read().pixel(0, 0).x(), 1.0f);
    EXPECT_EQ(target.read().pixel(1, 0).x(), 2.0f);
}

TEST_F(GPUModelTest, primitiveNumbersStartAtEachItem)
{
    const Grid grid(2);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    RenderTarget target(2, 2, GL_RGBA32F);
    const auto program = makeItemProgram(QStringLiteral("vec4(gl_PrimitiveID, 1.0, 1.0, 1.0)"));
    AutoBinder binder(program.get());
    QMatrix4x4 slightlyLeft = pixelProjection(2, 2);
    slightlyLeft.translate(-0.25f, -0.25f, 0); // Puts pixel centres in the second triangle.
    program->setUniform(QStringLiteral("u_ProjectionMatrix"), slightlyLeft);
    program->setUniform(QStringLiteral("u_CameraMatrix"), QMatrix4x4());
    model->draw(program.get(), 0, 0, WindingCounterClockwise, false);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(target.read().pixel(i % 2, i / 2), QVector4D(1, 1, 1, 1)) << i;
}

TEST_F(GPUModelTest, trianglesGoOutAsPatchesToTessellation)
{
    if (epoxy_gl_version() < 40)
        GTEST_SKIP() << "this context has no tessellation";
    const Grid grid(2);
    const QSharedPointer<GPUModel> model = grid.builder.build();
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    const auto program = makeProgram({
        {GL_VERTEX_SHADER, QStringLiteral(R"(#version 400
#instancedata "InstanceInfo"
in vec3 va_Vertex;
void main() { gl_Position = getModelMatrix() * vec4(va_Vertex, 1.0); }
)")},
        {GL_VERTEX_SHADER, registry.getPlan(QStringLiteral("InstanceInfo")).glslc()},
        {GL_VERTEX_SHADER, QStringLiteral("@KvzUtilities.glslc")},
        {GL_TESS_CONTROL_SHADER, QStringLiteral(R"(#version 400
layout(vertices = 3) out;
void main()
{
    gl_out[gl_InvocationID].gl_Position = gl_in[gl_InvocationID].gl_Position;
    gl_TessLevelInner[0] = 1.0;
    gl_TessLevelOuter[0] = 1.0;
    gl_TessLevelOuter[1] = 1.0;
    gl_TessLevelOuter[2] = 1.0;
}
)")},
        {GL_TESS_EVALUATION_SHADER, QStringLiteral(R"(#version 400
layout(triangles, equal_spacing, ccw) in;
uniform mat4 u_ProjectionMatrix;
void main()
{
    gl_Position = u_ProjectionMatrix * (gl_TessCoord.x * gl_in[0].gl_Position
        + gl_TessCoord.y * gl_in[1].gl_Position + gl_TessCoord.z * gl_in[2].gl_Position);
}
)")},
        {GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 400
#instancedata "OBJMaterial"
out vec4 out_FragColor;
void main() { out_FragColor = vec4(getKd(), getD()); }
)")},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("OBJMaterial")).glslc()},
        {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
    });
    RenderTarget target(2, 2, GL_RGBA32F);
    draw(*model, *program, 2, 2);
    grid.expectPixels(target.read());
}

TEST_F(GPUModelTest, drawPutsItsBindingsBack)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    builder.addItem(0, 0);
    const QSharedPointer<GPUModel> model = builder.build();
    RenderTarget target(2, 2, GL_RGBA32F);
    const auto program = makeItemProgram(materialColor);
    GLuint vao = 0;
    glGenVertexArrays(1, &vao);
    glBindVertexArray(vao);
    glActiveTexture(GL_TEXTURE3);
    draw(*model, *program, 2, 2);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), int(vao));
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    int bound = 0;
    for (int unit = 0; unit < glInteger(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS); ++unit) {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        bound += glInteger(GL_TEXTURE_BINDING_BUFFER) + glInteger(GL_TEXTURE_BINDING_2D_ARRAY);
    }
    EXPECT_EQ(bound, 0);
    glDeleteVertexArrays(1, &vao);
}

TEST_F(GPUModelTest, whatCannotBeDrawnIsNotDrawn)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    builder.addMaterial({});
    builder.addItem(0, 0);
    const QSharedPointer<GPUModel> model = builder.build();
    model->draw(nullptr, 0, 0, WindingCounterClockwise, false);
    ShaderProgram unlinked(nullptr);
    model->draw(&unlinked, nullptr, 0, 0);
    FramebufferObject incomplete(nullptr);
    AutoBinder binder(&incomplete);
    model->draw(makeItemProgram(materialColor).get(), nullptr, 0, 0);
    EXPECT_TRUE(takeGLErrors().isEmpty()); // The driver may comment on the framebuffer.
}

TEST_F(GPUModelTest, boundsFollowItems)
{
    GPUModelBuilder builder;
    builder.addMesh(cube());
    builder.addMaterial({});
    QMatrix4x4 turned;
    turned.rotate(45, 0, 0, 1);
    builder.addItem(0, 0, placed(10, 0, 0, 2));
    builder.addItem(0, 0, turned);
    const QSharedPointer<GPUModel> model = builder.build();
    EXPECT_TRUE(model->hasFeatureFlags(GPUModel::HasSceneBounds));
    EXPECT_TRUE(model->hasFeatureFlags(8));
    EXPECT_TRUE(model->hasFeatureFlags(0));
    EXPECT_FALSE(model->hasFeatureFlags(9));
    EXPECT_EQ(model->itemBounds(0).first, QVector3D(8, -2, -2));
    EXPECT_EQ(model->itemBounds(0).second, QVector3D(12, 2, 2));
    EXPECT_LT((model->itemBounds(1).second - QVector3D(std::sqrt(2.0f), std::sqrt(2.0f), 1)).length(), 1e-5f);
    EXPECT_LT((model->sceneBounds().first - QVector3D(-std::sqrt(2.0f), -2, -2)).length(), 1e-5f);
    model->setModelMatrix(0, placed(-10, 0));
    EXPECT_EQ(model->sceneBounds().first, QVector3D(-11, model->itemBounds(1).first.y(), -1));
    EXPECT_EQ(model->itemBounds(2), (QPair<QVector3D, QVector3D>()));
}

TEST_F(GPUModelTest, badMovesAreRefused)
{
    GPUModelBuilder builder;
    builder.addMesh(cube());
    builder.addMaterial({});
    builder.addItem(0, 0);
    const QSharedPointer<GPUModel> model = builder.build();
    model->setModelMatrix(1, QMatrix4x4());
    model->setModelMatrix(-1, QMatrix4x4());
    QMatrix4x4 bad;
    bad(0, 0) = std::nanf("");
    model->setModelMatrix(0, bad);
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].contains(QLatin1String("Item 1 cannot be moved: the model has 1 items")));
    EXPECT_TRUE(lines[2].contains(QLatin1String("Item 0 cannot be moved: its matrix is not finite")));
    EXPECT_EQ(model->modelMatrix(0), QMatrix4x4());
}

} // namespace

} // namespace Velmora::Kvz
