// SPDX-License-Identifier: MIT
// Models in several contexts of one share group, which share buffers and textures, and neither vertex arrays nor queries.
#include "SceneFixtures.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>
#include <GL/VertexArrayObject.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<HeadlessContext> makeSharing(HeadlessContext &with)
{
    HeadlessContext::Options options;
    options.shareWith = &with;
    QString error;
    std::unique_ptr<HeadlessContext> made = HeadlessContext::create(options, &error);
    EXPECT_TRUE(made) << qPrintable(error);
    return made;
}

bool isArrayEnabled(int location)
{
    GLint isEnabled = 0;
    glGetVertexAttribiv(GLuint(location), GL_VERTEX_ATTRIB_ARRAY_ENABLED, &isEnabled);
    return isEnabled != 0;
}

} // namespace

class SeveralContextsTest : public GLTest
{
protected:
    static constexpr int side = 32;

    void SetUp() override
    {
        GLTest::SetUp();
        context();
        projection.perspective(60, 1, 0.5f, 100);
        camera.lookAt({0, 0, 10}, {0, 0, 0}, {0, 1, 0});
    }

    void TearDown() override
    {
        context().makeCurrent();
        model.clear();
        GLTest::TearDown();
    }

    /// A large cube and a small one behind it, which it hides.
    void makeModel()
    {
        GPUModelBuilder builder;
        builder.addMesh(cube());
        for (int i = 0; i < 2; ++i) {
            MaterialData material;
            material.kd = {i == 0 ? 1.0f : 0.5f, i == 0 ? 0.25f : 1.0f, 0};
            builder.addItem(0, builder.addMaterial(material), i == 0 ? placed(0, 0, 3, 2) : placed(0, 0, -3));
        }
        model = builder.build();
        ASSERT_TRUE(model);
    }

    /// What the current context draws of it.
    Image draw()
    {
        const std::unique_ptr<ShaderProgram> program = makeItemProgram(QStringLiteral("vec4(getKd(), 1.0)"));
        const RenderTarget target(side, side, GL_RGBA8);
        glEnable(GL_DEPTH_TEST);
        {
            AutoBinder binder(program.get());
            program->setUniform(QStringLiteral("u_ProjectionMatrix"), projection);
            program->setUniform(QStringLiteral("u_CameraMatrix"), camera);
        }
        model->draw(program.get(), TextureManager::Instance(), 0, 0);
        glDisable(GL_DEPTH_TEST);
        return target.read();
    }

    QSharedPointer<GPUModel> model;
    QMatrix4x4 projection;
    QMatrix4x4 camera;
};

TEST_F(SeveralContextsTest, aModelIsDrawnInEachAndOutlivesThem)
{
    makeModel();
    const Image expected = draw();
    EXPECT_EQ(expected.pixel(side / 2, side / 2), QVector4D(1, 64 / 255.0f, 0, 1));
    const GLObjectCounts before = glObjectCounts();
    for (int i = 0; i < 5; ++i) {
        const std::unique_ptr<HeadlessContext> other = makeSharing(context());
        ASSERT_TRUE(other);
        EXPECT_EQ(draw().data, expected.data);
        ASSERT_TRUE(context().makeCurrent());
        EXPECT_EQ(draw().data, expected.data);
        ASSERT_TRUE(other->makeCurrent());
        EXPECT_EQ(draw().data, expected.data) << "a second time";
        EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays + 1);
    }
    ASSERT_TRUE(context().makeCurrent());
    EXPECT_EQ(draw().data, expected.data);
    // Those of contexts that are gone are forgotten when the next one needs an array.
    const std::unique_ptr<HeadlessContext> last = makeSharing(context());
    EXPECT_EQ(draw().data, expected.data);
    EXPECT_EQ(glObjectCounts().vertexArrays, before.vertexArrays + 1);
}

TEST_F(SeveralContextsTest, aModelOutlivesTheContextThatBuiltIt)
{
    std::unique_ptr<HeadlessContext> builder = makeSharing(context());
    ASSERT_TRUE(builder);
    makeModel();
    const Image expected = draw();
    ASSERT_TRUE(context().makeCurrent());
    EXPECT_EQ(draw().data, expected.data);
    builder->makeCurrent();
    builder.reset();
    ASSERT_TRUE(context().makeCurrent());
    EXPECT_EQ(draw().data, expected.data);
}

TEST_F(SeveralContextsTest, arraysThatOneEnablesAreEnabledInTheOther)
{
    const std::unique_ptr<HeadlessContext> other = makeSharing(context());
    ASSERT_TRUE(context().makeCurrent());
    const std::unique_ptr<ShaderProgram> program = makeItemProgram(QStringLiteral("vec4(vo_TexCoord, 0.0, 1.0)"));
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    const auto makeBuffer = [&] {
        const QSharedPointer<BufferObject> buffer = device->createBufferObject();
        const float zeros[12] = {};
        buffer->upload(zeros, 12, GL_STATIC_DRAW);
        return buffer;
    };
    const int vertex = program->attributeLocation(QStringLiteral("va_Vertex"));
    const int texCoord = program->attributeLocation(QStringLiteral("va_TexCoord"));
    ASSERT_GE(vertex, 0);
    ASSERT_GE(texCoord, 0);
    VertexArrayObject array;
    array.upload(QStringLiteral("va_Vertex"), makeBuffer(), 3, GL_FLOAT);
    {
        AutoBinder binder(&array);
        array.enableShaderProgramArrays(program.get());
    }
    ASSERT_TRUE(other->makeCurrent());
    array.bind();
    EXPECT_TRUE(isArrayEnabled(vertex));
    EXPECT_FALSE(isArrayEnabled(texCoord));
    array.upload(QStringLiteral("va_TexCoord"), makeBuffer(), 2, GL_FLOAT);
    array.enableShaderProgramArrays(program.get());
    EXPECT_TRUE(isArrayEnabled(texCoord));
    array.unbind();
    ASSERT_TRUE(context().makeCurrent());
    array.bind();
    EXPECT_TRUE(isArrayEnabled(texCoord));
    array.unbind();

    // Another buffer under a name that is enabled reaches both.
    const QSharedPointer<BufferObject> exchanged = makeBuffer();
    array.upload(QStringLiteral("va_Vertex"), exchanged, 3, GL_FLOAT);
    array.bind();
    array.enableShaderProgramArrays(program.get());
    array.unbind();
    ASSERT_TRUE(other->makeCurrent());
    array.bind();
    GLint buffer = 0;
    glGetVertexAttribiv(GLuint(vertex), GL_VERTEX_ATTRIB_ARRAY_BUFFER_BINDING, &buffer);
    EXPECT_EQ(GLuint(buffer), exchanged->getBO());
    array.unbind();
    ASSERT_TRUE(context().makeCurrent());
}

TEST_F(SeveralContextsTest, aNameThatIsLeftInAnotherIsDeletedThereLater)
{
    const std::unique_ptr<HeadlessContext> other = makeSharing(context());
    auto array = std::make_unique<VertexArrayObject>();
    const GLuint name = array->getVAO();
    array->bind();
    array->unbind();
    EXPECT_TRUE(glIsVertexArray(name));
    ASSERT_TRUE(context().makeCurrent());
    array->bind();
    array->unbind();
    const GLObjectCounts both = glObjectCounts();
    array.reset();
    EXPECT_EQ(glObjectCounts().vertexArrays, both.vertexArrays - 2);
    ASSERT_TRUE(other->makeCurrent());
    EXPECT_TRUE(glIsVertexArray(name));
    VertexArrayObject next;
    next.bind(); // The driver may give it the number that has become free.
    next.unbind();
    EXPECT_TRUE(!glIsVertexArray(name) || next.getVAO() == name);
    ASSERT_TRUE(context().makeCurrent());
}

TEST_F(SeveralContextsTest, eachHasItsOwnOcclusionQueries)
{
    makeModel();
    const std::unique_ptr<HeadlessContext> other = makeSharing(context());
    const auto expectHidden = [this] {
        for (int round = 0; round < 2; ++round) {
            model->visibilityCull();
            draw();
            glFinish();
        }
        model->visibilityCull();
        EXPECT_FALSE(model->isCulled(0));
        EXPECT_TRUE(model->isCulled(1));
        draw();
    };
    for (HeadlessContext *each : {&context(), other.get(), &context()}) {
        ASSERT_TRUE(each->makeCurrent());
        expectHidden();
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
    model->resetCulling();
    EXPECT_FALSE(model->isCulled(1));
}

TEST_F(SeveralContextsTest, itemsSayWhatTheyAreMadeOf)
{
    GPUModelBuilder builder;
    builder.addMesh(unitSquare());
    MeshData loose = cube();
    builder.addMesh(loose);
    builder.addMaterial(MaterialData());
    builder.addMaterial(MaterialData());
    builder.addItem(1, 0, placed(1, 2, 3, 2));
    builder.addItem(0, 1);
    model = builder.build();
    ASSERT_TRUE(model);
    EXPECT_EQ(model->itemMesh(0), 1);
    EXPECT_EQ(model->itemMesh(1), 0);
    EXPECT_EQ(model->itemMaterial(0), 0);
    EXPECT_EQ(model->itemMaterial(1), 1);
    EXPECT_EQ(model->itemMesh(2), -1);
    EXPECT_EQ(model->itemMaterial(-1), -1);

    const auto cornersOf = [](const MeshData &mesh, int triangle, const QMatrix4x4 &matrix) {
        QVector<QVector3D> corners;
        for (int i = 0; i < 3; ++i)
            corners.append(matrix.map(mesh.positions[int(mesh.indices[triangle * 3 + i])]));
        return corners;
    };
    const std::unique_ptr<HeadlessContext> other = makeSharing(context());
    for (int triangle = 0; triangle < 12; ++triangle)
        EXPECT_EQ(model->triangleCorners(0, triangle), cornersOf(cube(), triangle, placed(1, 2, 3, 2))) << triangle;
    EXPECT_EQ(model->triangleCorners(1, 1), cornersOf(unitSquare(), 1, QMatrix4x4()));
    EXPECT_TRUE(model->triangleCorners(1, 2).isEmpty());
    EXPECT_TRUE(model->triangleCorners(2, 0).isEmpty());
    EXPECT_TRUE(model->triangleCorners(0, -1).isEmpty());
    ASSERT_TRUE(context().makeCurrent());
}

} // namespace Velmora::Kvz
