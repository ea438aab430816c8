// SPDX-License-Identifier: MIT
#include "Scene/SceneMath.h"
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FixedTextureUnits.h>
#include <GL/OpenGLDeviceContext.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtGui/QColor>
#include <QtGui/QVector4D>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Type = InstanceDataPlan::Type;

class InstanceDataTest : public GLTest
{
protected:
    void expectOneWarning(const char *part)
    {
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].contains(QLatin1String(part))) << qPrintable(lines[0]);
    }

    InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
};

TEST_F(InstanceDataTest, plansThatAreThereFromTheStart)
{
    for (const char *name : {"InstanceInfo", "TavoInstance"}) {
        const InstanceDataPlan &plan = registry.getPlan(QLatin1String(name));
        EXPECT_EQ(plan.name(), QLatin1String(name));
        EXPECT_EQ(plan.samplerName(), QStringLiteral("kvz_%1Rows").arg(QLatin1String(name)));
        EXPECT_GT(FixedTextureUnits::unitOf(plan.samplerName()), 0);
        EXPECT_EQ(plan.stride(), 12);
        EXPECT_EQ(plan.offset(QStringLiteral("getModelMatrix")), 0);
        EXPECT_EQ(plan.offset(QStringLiteral("getModelNormalMatrix")), 16);
        EXPECT_EQ(plan.offset(QStringLiteral("getPreviousModelMatrix")), 32);
        EXPECT_EQ(plan.offset(QStringLiteral("getKd")), -1);
    }
    const InstanceDataPlan &physical = registry.getPlan(QStringLiteral("PhysicalMaterial"));
    EXPECT_EQ(physical.stride(), 16);
    EXPECT_EQ(physical.offset(QStringLiteral("getReflectance")), 12);
    EXPECT_EQ(physical.offset(QStringLiteral("getPhysicalId")), 23);
    EXPECT_EQ(physical.offset(QStringLiteral("getPhysicalEmissionMap")), 60);
    const InstanceDataPlan &material = registry.getPlan(QStringLiteral("OBJMaterial"));
    EXPECT_EQ(material.stride(), 3);
    EXPECT_EQ(material.offset(QStringLiteral("getD")), 3);
    EXPECT_EQ(material.offset(QStringLiteral("getKs")), 4);
    EXPECT_EQ(material.offset(QStringLiteral("getMap_Ks")), 9);
    EXPECT_EQ(material.offset(QStringLiteral("getMaterialId")), 10);
    EXPECT_EQ(material.declarations(),
        QStringLiteral("vec3 getKd();\nfloat getD();\nvec3 getKs();\nfloat getNs();\nint getMap_Kd();\nint "
                       "getMap_Ks();\nint getMaterialId();\n"));
}

TEST_F(InstanceDataTest, noFieldStraddlesATexel)
{
    const InstanceDataPlan plan(QStringLiteral("Layout"),
        {{QStringLiteral("getA"), Type::Float}, {QStringLiteral("getB"), Type::Vec4},
            {QStringLiteral("getC"), Type::Vec2}, {QStringLiteral("getD"), Type::Vec3},
            {QStringLiteral("getE"), Type::Int}, {QStringLiteral("getF"), Type::Float},
            {QStringLiteral("getG"), Type::Mat4}});
    EXPECT_EQ(plan.offset(QStringLiteral("getA")), 0);
    EXPECT_EQ(plan.offset(QStringLiteral("getB")), 4);
    EXPECT_EQ(plan.offset(QStringLiteral("getC")), 8);
    EXPECT_EQ(plan.offset(QStringLiteral("getD")), 12);
    EXPECT_EQ(plan.offset(QStringLiteral("getE")), 15);
    EXPECT_EQ(plan.offset(QStringLiteral("getF")), 16);
    EXPECT_EQ(plan.offset(QStringLiteral("getG")), 20);
    EXPECT_EQ(plan.stride(), 9);
}

TEST_F(InstanceDataTest, unknownPlanIsEmptyAndLogged)
{
    const InstanceDataPlan &plan = registry.getPlan(QStringLiteral("Nonsense"));
    expectOneWarning("There is no instance data plan 'Nonsense'");
    EXPECT_EQ(plan.stride(), 0);
    EXPECT_FALSE(registry.hasPlan(QStringLiteral("Nonsense")));
    ShaderProgram program(nullptr);
    program.addShader(GL_VERTEX_SHADER, plan.glslc(), QString());
    EXPECT_TRUE(program.compile()) << qPrintable(program.log());
}

TEST_F(InstanceDataTest, unsoundPlansAreRefused)
{
    const QVector<InstanceDataPlan::Field> fields{{QStringLiteral("getIt"), Type::Float}};
    EXPECT_FALSE(registry.addPlan({QStringLiteral("InstanceInfo"), fields}));
    expectOneWarning("'InstanceInfo' is refused: the name is taken");
    for (const char *name : {"", "2nd", "with space", "gl_Plan", "two__lines"}) {
        EXPECT_FALSE(registry.addPlan({QLatin1String(name), fields}));
        expectOneWarning("its name is no identifier");
    }
    EXPECT_FALSE(registry.addPlan({QStringLiteral("Empty"), {}}));
    expectOneWarning("it has no fields");
    EXPECT_FALSE(registry.addPlan({QStringLiteral("Twice"), fields + fields}));
    expectOneWarning("its getter 'getIt' comes twice");
    EXPECT_FALSE(registry.addPlan({QStringLiteral("Bad"), {{QStringLiteral("get it"), Type::Float}}}));
    expectOneWarning("its getter 'get it' is no identifier");
    EXPECT_FALSE(registry.hasPlan(QStringLiteral("Twice")));
}

TEST_F(InstanceDataTest, ownPlanReachesShadersThroughACollection)
{
    const QString name = QStringLiteral("OwnPlan");
    ASSERT_TRUE(registry.addPlan({name,
        {{QStringLiteral("getNumber"), Type::Int}, {QStringLiteral("getPair"), Type::Vec2},
            {QStringLiteral("getTriple"), Type::Vec3}, {QStringLiteral("getFactor"), Type::Float},
            {QStringLiteral("getQuad"), Type::Vec4}, {QStringLiteral("getOwnMatrix"), Type::Mat4}}}));
    EXPECT_TRUE(registry.planNames().contains(name));

    InstanceDataCollection collection(name);
    EXPECT_EQ(collection.planName(), name);
    EXPECT_EQ(collection.rowCount(), 0);
    collection.setRowCount(2);
    EXPECT_EQ(collection.rowCount(), 2);
    const QMatrix4x4 matrix(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
    EXPECT_TRUE(collection.setValue(1, QStringLiteral("getNumber"), 16777215));
    EXPECT_TRUE(collection.setValue(1, QStringLiteral("getPair"), QVector2D(1, 2)));
    EXPECT_TRUE(collection.setValue(1, QStringLiteral("getTriple"), QVector3D(3, 4, 5)));
    EXPECT_TRUE(collection.setValue(1, QStringLiteral("getFactor"), 0.5));
    EXPECT_TRUE(collection.setValue(1, QStringLiteral("getQuad"), QVector4D(6, 7, 8, 9)));
    EXPECT_TRUE(collection.setValue(1, QStringLiteral("getOwnMatrix"), matrix));

    const auto program = makeProgram({
        {GL_VERTEX_SHADER,
            QStringLiteral("#version 150\nin vec3 va_Vertex;\n"
                           "void main() { gl_Position = vec4(va_Vertex, 1.0); }\n")},
        {GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 150
#instancedata "OwnPlan"
out vec4 out_FragColor;
void main()
{
    int x = int(gl_FragCoord.x);
    out_FragColor = x == 0 ? vec4(float(getNumber()), getPair(), getFactor())
        : x == 1 ? vec4(getTriple(), getNumber() == 16777215 ? 1.0 : 0.0)
        : x == 2 ? getQuad()
        : getOwnMatrix()[x - 3];
}
)")},
        {GL_FRAGMENT_SHADER, registry.getPlan(name).glslc()},
        {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
    });
    registry.getPlan(name).assertShaderProgram(program.get());
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    RenderTarget target(7, 1, GL_RGBA32F, false);
    AutoBinder programBinder(program.get());
    AutoBinder quadBinder(quad);
    collection.bind(program.get(), nullptr);
    program->setUniform(QStringLiteral("u_DrawID"), 1);
    EXPECT_TRUE(quad->draw());
    Image image = target.read();
    EXPECT_EQ(image.pixel(0, 0), QVector4D(16777215, 1, 2, 0.5f));
    EXPECT_EQ(image.pixel(1, 0), QVector4D(3, 4, 5, 1));
    EXPECT_EQ(image.pixel(2, 0), QVector4D(6, 7, 8, 9));
    for (int column = 0; column < 4; ++column)
        EXPECT_EQ(image.pixel(3 + column, 0), matrix.column(column));
    // Rows that were never set and rows that do not exist are zeros.
    for (const int row : {0, 2, 100000}) {
        program->setUniform(QStringLiteral("u_DrawID"), row);
        EXPECT_TRUE(quad->draw());
        image = target.read();
        for (int x = 0; x < 7; ++x)
            EXPECT_EQ(image.pixel(x, 0), QVector4D()) << row;
    }
    collection.unbind(program.get(), nullptr);
}

TEST_F(InstanceDataTest, badValuesAreRefusedAndChangeNothing)
{
    InstanceDataCollection collection(QStringLiteral("OBJMaterial"));
    collection.setRowCount(1);
    EXPECT_FALSE(collection.setValue(1, QStringLiteral("getD"), 1));
    expectOneWarning("Row 1 of instance data for 'OBJMaterial' cannot be set: there are 1 rows");
    EXPECT_FALSE(collection.setValue(-1, QStringLiteral("getD"), 1));
    expectOneWarning("Row -1");
    EXPECT_FALSE(collection.setValue(0, QStringLiteral("getE"), 1));
    expectOneWarning("'getE' of row 0 of instance data for 'OBJMaterial' cannot be set: the plan has no such getter");
    EXPECT_FALSE(collection.setValue(0, QStringLiteral("getKd"), QStringLiteral("red")));
    expectOneWarning("a value of type 'QString' does not convert");
    EXPECT_FALSE(collection.setModelMatrix(0, QMatrix4x4()));
    expectOneWarning("'getModelMatrix' of row 0");
    collection.setRowCount(-5);
    EXPECT_EQ(collection.rowCount(), 0);

    float row[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const InstanceDataPlan &plan = registry.getPlan(QStringLiteral("OBJMaterial"));
    EXPECT_FALSE(plan.write(row, QStringLiteral("getKd"), QVariant()));
    EXPECT_FALSE(plan.write(row, QStringLiteral("getNs"), QColor(Qt::red)));
    EXPECT_EQ(row[0], 1);
    EXPECT_EQ(row[7], 8);
    EXPECT_TRUE(plan.write(row, QStringLiteral("getNs"), QStringLiteral("2.5")));
    EXPECT_EQ(row[7], 2.5f);
}

TEST_F(InstanceDataTest, collectionOfAnUnknownPlanDoesNothing)
{
    InstanceDataCollection collection(QStringLiteral("Nonsense"));
    expectOneWarning("'Nonsense'");
    collection.setRowCount(3);
    EXPECT_EQ(collection.rowCount(), 0);
    EXPECT_FALSE(collection.setValue(0, QStringLiteral("getIt"), 1));
    collection.bind(nullptr, nullptr);
    EXPECT_FALSE(InstanceDataCollection::isBound(QStringLiteral("Nonsense")));
    collection.unbind(nullptr, nullptr);
}

TEST_F(InstanceDataTest, bindingsNestAndEndWithTheirCollection)
{
    const QString plan = QStringLiteral("TavoInstance");
    const int unit = FixedTextureUnits::unitOf(registry.getPlan(plan).samplerName());
    const auto boundTexture = [unit] {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        const int name = glInteger(GL_TEXTURE_BINDING_BUFFER);
        glActiveTexture(GL_TEXTURE0);
        return name;
    };
    InstanceDataCollection outer(plan);
    outer.bind(nullptr, nullptr);
    const int outerTexture = boundTexture();
    EXPECT_NE(outerTexture, 0);
    InstanceDataCollection inner(plan);
    inner.bind(nullptr, nullptr);
    EXPECT_NE(boundTexture(), outerTexture);
    inner.unbind(nullptr, nullptr);
    EXPECT_EQ(boundTexture(), outerTexture);
    EXPECT_TRUE(InstanceDataCollection::isBound(plan));
    const quint64 bound = InstanceDataCollection::boundRevision(plan);
    inner.bind(nullptr, nullptr);
    EXPECT_NE(InstanceDataCollection::boundRevision(plan), bound) << "the rows of another collection";
    inner.unbind(nullptr, nullptr);
    EXPECT_EQ(InstanceDataCollection::boundRevision(plan), bound);
    outer.setRowCount(2);
    outer.bind(nullptr, nullptr);
    EXPECT_NE(InstanceDataCollection::boundRevision(plan), bound) << "other rows";
    outer.unbind(nullptr, nullptr);
    outer.unbind(nullptr, nullptr);
    outer.unbind(nullptr, nullptr); // One unbind too many.
    EXPECT_EQ(boundTexture(), 0);
    EXPECT_FALSE(InstanceDataCollection::isBound(plan));
    {
        InstanceDataCollection forgotten(plan);
        forgotten.bind(nullptr, nullptr);
    }
    EXPECT_FALSE(InstanceDataCollection::isBound(plan));
    glActiveTexture(GL_TEXTURE0 + GLenum(unit));
    glBindTexture(GL_TEXTURE_BUFFER, 0);
    glActiveTexture(GL_TEXTURE0);

    context().doneCurrent();
    inner.bind(nullptr, nullptr);
    EXPECT_FALSE(InstanceDataCollection::isBound(plan));
    inner.unbind(nullptr, nullptr);
    context().makeCurrent();
}

TEST_F(InstanceDataTest, modelMatrixBringsItsNormalMatrixAndLeavesThePreviousOne)
{
    InstanceDataCollection collection(QStringLiteral("TavoInstance"));
    collection.setRowCount(1);
    QMatrix4x4 matrix;
    matrix.translate(1, 2, 3);
    matrix.scale(2, 4, 8);
    EXPECT_TRUE(collection.setModelMatrix(0, matrix));
    const auto program = makeProgram({
        {GL_VERTEX_SHADER,
            QStringLiteral("#version 150\nin vec3 va_Vertex;\n"
                           "void main() { gl_Position = vec4(va_Vertex, 1.0); }\n")},
        {GL_FRAGMENT_SHADER, QStringLiteral(R"(#version 150
#instancedata "TavoInstance"
out vec4 out_FragColor;
void main()
{
    int y = int(gl_FragCoord.y);
    mat4 matrix = y == 0 ? getModelMatrix() : y == 1 ? getModelNormalMatrix() : getPreviousModelMatrix();
    out_FragColor = matrix[int(gl_FragCoord.x)];
}
)")},
        {GL_FRAGMENT_SHADER, registry.getPlan(QStringLiteral("TavoInstance")).glslc()},
        {GL_FRAGMENT_SHADER, QStringLiteral("@KvzUtilities.glslc")},
    });
    const auto quad = OpenGLDeviceContext::current()->createScreenQuad();
    RenderTarget target(4, 3, GL_RGBA32F, false);
    AutoBinder programBinder(program.get());
    AutoBinder quadBinder(quad);
    collection.bind(program.get(), nullptr);
    EXPECT_TRUE(quad->draw());
    const Image image = target.read();
    const QMatrix4x4 normalMatrix = matrix.inverted().transposed();
    for (int column = 0; column < 4; ++column) {
        EXPECT_EQ(image.pixel(column, 0), matrix.column(column));
        EXPECT_EQ(image.pixel(column, 1), normalMatrix.column(column));
        EXPECT_EQ(image.pixel(column, 2), QVector4D());
    }
    collection.unbind(program.get(), nullptr);
}

TEST(NormalMatrixTest, normalsStandOnWhatAFlatteningMatrixLeaves)
{
    QMatrix4x4 turn;
    turn.translate(3, 4, 5);
    turn.rotate(35, 1, 2, 3);
    for (const QVector3D &scale : {QVector3D(1, 1, 0), QVector3D(1000, 500, 0), QVector3D(1e-4f, 3e-4f, 1e-30f),
             QVector3D(1e-20f, 1e-20f, 0), QVector3D(1, 1, 1e-39f)}) {
        QMatrix4x4 matrix = turn;
        matrix.scale(scale);
        const QVector3D mapped = normalMatrixOf(matrix).mapVector(QVector3D(0.3f, -0.2f, 0.9f)).normalized();
        EXPECT_LT((mapped - turn.mapVector(QVector3D(0, 0, 1))).length(), 1e-5f) << scale.z();
        QMatrix4x4 mirrored = turn;
        mirrored.scale(scale * QVector3D(-1, 1, 1)); // turns the winding
        const QVector3D other = normalMatrixOf(mirrored).mapVector(QVector3D(0.3f, -0.2f, 0.9f)).normalized();
        EXPECT_LT((other + turn.mapVector(QVector3D(0, 0, 1))).length(), 1e-5f) << scale.z();
    }
    for (const QVector3D &scale :
        {QVector3D(1, 1, 1), QVector3D(1000, 1000, 0.001f), QVector3D(1000, -0.001f, 0.001f)}) {
        QMatrix4x4 matrix = turn;
        matrix.scale(scale);
        EXPECT_EQ(normalMatrixOf(matrix), matrix.inverted().transposed()) << scale.y();
    }
    QMatrix4x4 nothing;
    nothing.scale(0);
    EXPECT_TRUE(allFinite(normalMatrixOf(nothing)));
}

TEST_F(InstanceDataTest, assertShaderProgramSaysWhatIsWrong)
{
    const InstanceDataPlan &plan = registry.getPlan(QStringLiteral("InstanceInfo"));
    plan.assertShaderProgram(nullptr);
    ShaderProgram unlinked(nullptr);
    plan.assertShaderProgram(&unlinked);
    QStringList lines = log.takeCriticals();
    ASSERT_EQ(lines.size(), 2);
    for (const QString &line : lines) {
        EXPECT_TRUE(line.startsWith(QLatin1String("[InstanceDataPlan:"))) << qPrintable(line);
        EXPECT_TRUE(
            line.contains(QLatin1String("[ !! ] Assertion 'isLinked' failed: Instance data plan 'InstanceInfo'")))
            << qPrintable(line);
    }

    const auto program = makeItemProgram(QStringLiteral("vec4(getKd(), 1.0)"));
    plan.assertShaderProgram(program.get());
    EXPECT_TRUE(log.takeCriticals().isEmpty());
    glUseProgram(program->programID());
    glUniform1i(program->getUniformLocation(plan.samplerName()), 3);
    glUseProgram(0);
    plan.assertShaderProgram(program.get());
    lines = log.takeCriticals();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QLatin1String("Sampler 'kvz_InstanceInfoRows' of instance data plan 'InstanceInfo' "
                                                "reads texture unit 3")))
        << qPrintable(lines[0]);
}

} // namespace

} // namespace Velmora::Kvz
