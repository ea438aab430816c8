// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/RayCast.h"

#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>
#include <RenderPasses/GBufferRenderPass.h>
#include <RenderPasses/PrimitiveBuilderRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

class GBufferRenderPassTest : public PassTest<GBufferRenderPass>
{
protected:
    void setViewport(int width, int height) { pass->setInput(Port::Viewport, QRect(0, 0, width, height)); }
    void setGeometry(DrawBuffers *drawBuffers) { pass->setInput(Port::Geometry, QVariant::fromValue(drawBuffers)); }
};

MeshData moved(MeshData mesh, const QVector3D &offset)
{
    for (QVector3D &position : mesh.positions)
        position += offset;
    return mesh;
}

/// How far the buffers may be from a reference in doubles: single precision adds less than 1e-5 to each. Drivers that
/// interpolate from vertices that they moved by up to 1/512 pixel get a little more room.
constexpr double normalTolerance = 2e-4;
constexpr double texCoordTolerance = 2e-4;
constexpr double depthTolerance = 2e-6;

struct Buffers
{
    Image normal;
    Image texCoord;
    Image depth;
    Image id;
};

/// Checks the four buffers against the ray cast of the same drawables, at all pixels clear of edges.
void compareWithRayCast(const Buffers &buffers, const RayCaster &caster, double leastShare, int leastGeometry)
{
    double normalError = 0;
    double texCoordError = 0;
    double depthError = 0;
    int wrongIds = 0;
    caster.compareClearPixels(leastShare, leastGeometry, [&](int x, int y, const RayHit &hit) {
        const float *normal = buffers.normal.at(x, y);
        const float *texCoord = buffers.texCoord.at(x, y);
        for (size_t i = 0; i < 3; ++i)
            normalError = std::max(normalError, std::abs(hit.normal[i] - double(normal[i])));
        for (size_t i = 0; i < 2; ++i)
            texCoordError = std::max(texCoordError, std::abs(hit.texCoord[i] - double(texCoord[i])));
        depthError = std::max(depthError, std::abs(hit.depth - double(*buffers.depth.at(x, y))));
        wrongIds += *buffers.id.at(x, y) == float(hit.triangle + 1) ? 0 : 1;
    });
    EXPECT_EQ(wrongIds, 0);
    EXPECT_LE(normalError, normalTolerance);
    EXPECT_LE(texCoordError, texCoordTolerance);
    EXPECT_LE(depthError, depthTolerance);
}

} // namespace

TEST_F(GBufferRenderPassTest, matchesARayCastOfPrimitives)
{
    const QSize size(320, 240);
    PrimitiveBuilderRenderPass builder;
    builder.addCube(2, QVector3D(-1.5f, 0.2f, 0));
    builder.addQuad(1.2f, QVector3D(1.2f, 0.1f, -1.5f));
    builder.addCube(1.1f, QVector3D(0.6f, -0.4f, 1.0f));
    builder.addCube(0.7f, QVector3D(0.3f, 1.3f, 0.4f));
    builder.start(nullptr);
    const QVariant geometry = builder.output(PrimitiveBuilderRenderPass::Geometry);
    const QMatrix4x4 camera = lookAt(QVector3D(2.5f, 2.2f, 5), QVector3D(0, 0.2f, 0));
    const QMatrix4x4 projection = perspective(size, 0.5f, 20);

    setViewport(size.width(), size.height());
    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    pass->setInput(Port::Geometry, geometry);
    pass->start(nullptr);

    const RayCaster caster({{readMesh(*geometry.value<DrawBuffers *>()), QMatrix4x4()}}, projection, camera, size);
    const Buffers buffers = {image(Port::Normal), image(Port::TexCoord), image(Port::Depth), image(Port::Id)};
    saveForViewing(buffers.normal, QStringLiteral("gbuffer-primitives-normal"));
    compareWithRayCast(buffers, caster, 0.98, 20000);
}

TEST_F(GBufferRenderPassTest, matchesARayCastOfAListOfDrawables)
{
    const QSize size(301, 223);
    // A ball cut by a wall that lies in it, and a floor that reaches behind the camera. The depth test sorts them.
    const MeshData ball = moved(sphereMesh(10), QVector3D(0.3f, 0.4f, -0.2f));
    const MeshData wall = withoutIndices(moved(wallMesh(), QVector3D(-0.3f, 0.5f, 0)));
    MeshData floor = groundMesh();
    for (QVector3D &position : floor.positions)
        position = position * 30 - QVector3D(0, 0.7f, 0);
    const std::unique_ptr<DrawBuffers> ballBuffers = makeDrawBuffers(ball);
    const std::unique_ptr<DrawBuffers> wallBuffers = makeDrawBuffers(wall);
    const std::unique_ptr<DrawBuffers> floorBuffers = makeDrawBuffers(floor);
    const QMatrix4x4 camera = lookAt(QVector3D(-1.5f, 1.8f, 3.5f), QVector3D(0, 0.3f, 0));
    const QMatrix4x4 projection = perspective(size, 0.3f, 50);

    setViewport(size.width(), size.height());
    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    pass->setInput(Port::Geometry,
        QVariantList{QVariant::fromValue(floorBuffers.get()), QVariant::fromValue<QObject *>(ballBuffers.get()),
            QVariant::fromValue(wallBuffers.get())});
    pass->start(nullptr);

    const RayCaster caster(
        {{floor, QMatrix4x4()}, {ball, QMatrix4x4()}, {wall, QMatrix4x4()}}, projection, camera, size);
    const Buffers buffers = {image(Port::Normal), image(Port::TexCoord), image(Port::Depth), image(Port::Id)};
    saveForViewing(buffers.normal, QStringLiteral("gbuffer-list-normal"));
    compareWithRayCast(buffers, caster, 0.97, 50000);
}

TEST_F(GBufferRenderPassTest, takesDrawablesInEveryFormOfList)
{
    const std::unique_ptr<DrawBuffers> wall = makeDrawBuffers(wallMesh());
    setViewport(4, 4);
    const QVariant forms[] = {QVariant::fromValue(wall.get()), QVariantList{QVariant::fromValue(wall.get())},
        QVariant::fromValue(QVector<DrawBuffers *>{wall.get()}), QVariant::fromValue(QList<DrawBuffers *>{wall.get()})};
    for (const QVariant &form : forms) {
        SCOPED_TRACE(form.typeName());
        pass->setInput(Port::Geometry, QVariantList());
        pass->start(nullptr);
        EXPECT_EQ(*image(Port::Id).at(1, 2), 0);
        pass->setInput(Port::Geometry, form);
        pass->start(nullptr);
        EXPECT_GT(*image(Port::Id).at(1, 2), 0);
    }
}

TEST_F(GBufferRenderPassTest, sortsByDepthWhateverTheOrder)
{
    const std::unique_ptr<DrawBuffers> nearWall = makeDrawBuffers(moved(wallMesh(), QVector3D(0, 0, -0.5f)));
    const std::unique_ptr<DrawBuffers> farWall = makeDrawBuffers(wallMesh());
    setViewport(8, 8);
    for (const bool isNearFirst : {true, false}) {
        QVariantList list = {QVariant::fromValue(nearWall.get()), QVariant::fromValue(farWall.get())};
        if (!isNearFirst)
            list.swapItemsAt(0, 1);
        pass->setInput(Port::Geometry, list);
        pass->start(nullptr);
        const Image depth = image(Port::Depth);
        for (const float value : depth.data)
            ASSERT_EQ(value, 0.25f);
    }
}

TEST_F(GBufferRenderPassTest, makesTargetsOfItsFormats)
{
    setViewport(5, 4);
    pass->start(nullptr);
    const QVector<int> formats = {GL_RGB32F, GL_RG32F, GL_DEPTH_COMPONENT32F, GL_R32F};
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(texture(i), nullptr);
        EXPECT_EQ(texture(i)->internalFormat(0), formats[i]);
        EXPECT_EQ(texture(i)->width(0), 5);
        EXPECT_EQ(texture(i)->height(0), 4);
        texture(i)->bind();
        GLint filter = 0;
        for (const GLenum parameter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
            glGetTexParameteriv(GL_TEXTURE_2D, parameter, &filter);
            EXPECT_EQ(filter, GL_NEAREST);
        }
        texture(i)->unbind();
    }
}

TEST_F(GBufferRenderPassTest, clearsWhereNothingIsDrawn)
{
    // The content of the last frame's targets must be gone.
    const std::unique_ptr<DrawBuffers> wall = makeDrawBuffers(wallMesh());
    setViewport(6, 6);
    setGeometry(wall.get());
    pass->start(nullptr);
    EXPECT_EQ(*image(Port::Id).at(1, 1), 1.0f);
    EXPECT_EQ(*image(Port::Id).at(4, 4), 2.0f);

    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<DrawBuffers *>(nullptr), QVariant(QVariantList()),
             QVariant(7), QVariant(QVariantList{QVariant(), QVariant::fromValue<DrawBuffers *>(nullptr)})}) {
        pass->setInput(Port::Geometry, nothing);
        pass->start(nullptr);
        for (const int output : {Port::Normal, Port::TexCoord, Port::Id}) {
            const Image cleared = image(output);
            for (int y = 0; y < 6; ++y) {
                for (int x = 0; x < 6; ++x)
                    ASSERT_EQ(*cleared.at(x, y), 0.0f);
            }
        }
        const Image depth = image(Port::Depth);
        for (const float value : depth.data)
            ASSERT_EQ(value, 1.0f);
        pass->setInput(Port::Geometry, QVariant::fromValue(wall.get()));
        pass->start(nullptr);
    }
}

TEST_F(GBufferRenderPassTest, drawsNothingForADrawableWithoutAVertexArray)
{
    DrawBuffers empty(nullptr);
    setViewport(8, 8);
    setGeometry(&empty);
    pass->start(nullptr);
    EXPECT_EQ(maximumDifference(image(Port::Id), Image(8, 8)), 1.0) << "alpha reads as 1, all else as 0";
}

TEST_F(GBufferRenderPassTest, readsAMissingMatrixAsTheIdentity)
{
    const std::unique_ptr<DrawBuffers> wall = makeDrawBuffers(wallMesh());
    setViewport(9, 9);
    setGeometry(wall.get());
    pass->setInput(Port::ProjectionMatrix, QStringLiteral("no matrix"));
    pass->start(nullptr);
    EXPECT_EQ(*image(Port::Depth).at(4, 4), 0.5f);
    EXPECT_NEAR(image(Port::TexCoord).at(0, 8)[1], 8.5 / 9, 1e-6);
}

TEST_F(GBufferRenderPassTest, setsTheViewportAndTheDepthTestAndNothingElse)
{
    const std::unique_ptr<DrawBuffers> wall = makeDrawBuffers(wallMesh());
    glViewport(3, 4, 5, 6);
    glClearColor(0.25f, 0.5f, 0.75f, 1);
    glEnable(GL_CULL_FACE);
    pass->setInput(Port::Viewport, QRect(20, 30, 12, 10));
    setGeometry(wall.get());
    GLCallRecorder<&epoxy_glViewport> viewports;
    pass->start(nullptr);
    ASSERT_EQ(viewports.calls.size(), 1u);
    EXPECT_EQ(viewports.calls[0], std::make_tuple(0, 0, 12, 10));
    EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_CULL_FACE));
    EXPECT_FALSE(glFlag(GL_BLEND));
    GLfloat color[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, color);
    EXPECT_EQ(color[2], 0.75f);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    glClearColor(0, 0, 0, 0);
}

TEST_F(GBufferRenderPassTest, leavesTheDepthTestWithoutGeometry)
{
    setViewport(4, 4);
    pass->setInput(Port::Geometry, QVariantList());
    pass->start(nullptr);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
}

TEST_F(GBufferRenderPassTest, remakesItsTexturesWhenTheSizeChanges)
{
    expectTexturesFollowTheViewport(4, 4);
}

TEST_F(GBufferRenderPassTest, publishesNullWithoutAViewport)
{
    pass->start(nullptr);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(pass->output(i).userType(), qMetaTypeId<Texture *>());
        EXPECT_EQ(texture(i), nullptr);
    }
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
}

TEST_F(GBufferRenderPassTest, drawsWithAProgramOfTheHostAndOwnsIt)
{
    const QPointer<ShaderProgram> program = new ShaderProgram(nullptr);
    program->setFragDataLocations(
        {QStringLiteral("out_Normal"), QStringLiteral("out_TexCoord"), QStringLiteral("out_Id")});
    program->addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
        QString());
    program->addShader(GL_FRAGMENT_SHADER,
        QStringLiteral(
            "#version 150\nout vec3 out_Normal;\nout vec2 out_TexCoord;\nout vec4 out_Id;\n"
            "void main() { out_Normal = vec3(1.0, 2.0, 3.0); out_TexCoord = vec2(4.0); out_Id = vec4(5.0); }\n"),
        QString());
    ASSERT_TRUE(program->compile() && program->link()) << qPrintable(program->log());
    const GLObjectCounts before = glObjectCounts();
    pass->setShaderProgram(program);

    const std::unique_ptr<DrawBuffers> wall = makeDrawBuffers(wallMesh());
    setViewport(4, 4);
    setGeometry(wall.get());
    pass->start(nullptr);
    EXPECT_EQ(glObjectCounts().programs, before.programs) << "the pass's own program is not built";
    EXPECT_EQ(image(Port::Normal).at(2, 2)[2], 3.0f);
    EXPECT_EQ(*image(Port::TexCoord).at(2, 2), 4.0f);
    EXPECT_EQ(*image(Port::Id).at(2, 2), 5.0f);
    pass.reset();
    EXPECT_TRUE(program.isNull());
}

TEST_F(GBufferRenderPassTest, countsNoReferencesAndSkipClearsTheOutputs)
{
    setViewport(4, 4);
    for (int i = 0; i < 4; ++i)
        pass->setNumOutputUsers(i, 2);
    pass->start(nullptr);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(texture(i)), -1);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    Texture *const normal = texture(Port::Normal);
    pass->skip(nullptr);
    for (int i = 0; i < 4; ++i)
        EXPECT_FALSE(pass->output(i).isValid());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Normal), normal);
}

TEST_F(GBufferRenderPassTest, takesItsObjectsAlong)
{
    const std::unique_ptr<DrawBuffers> wall = makeDrawBuffers(wallMesh());
    wall->VAO()->getVAO();
    const GLObjectCounts before = glObjectCounts();
    setViewport(4, 4);
    setGeometry(wall.get());
    pass->start(nullptr);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 4);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
