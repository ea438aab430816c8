// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/RayCastScene.h"

#include <GL/GLStatistics.h>
#include <GL/ShaderProgram.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ModelRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

using ModelRenderPassTest = PassTest<ModelRenderPass>;

QImage randomImage(int width, int height, unsigned int seed)
{
    std::mt19937 random(seed);
    QImage image(width, height, QImage::Format_ARGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, random());
    }
    return image;
}

QImage flatImage(const QColor &color)
{
    QImage image(4, 4, QImage::Format_ARGB32);
    image.fill(color);
    return image;
}

/// Whether an image is magnified at a pixel, well clear of where drivers switch to mip levels, which the reference does
/// not have.
bool isMagnifiedAt(const RayCaster &caster, int x, int y, const QImage &image)
{
    return image.isNull() || caster.texelsPerPixel(x + 0.5, y + 0.5, image.size()) <= 0.7;
}

struct Buffers
{
    Image diffuse;
    Image specular;
    Image normal;
    Image depth;
    Image id;
};

/// How far the buffers may be from a reference in doubles: single precision adds less than 1e-5 to each, and images are
/// filtered with weights of 8 bits. Drivers that interpolate from vertices that they moved by up to 1/512 pixel get a
/// little more room.
constexpr double colorTolerance = 2.0 / 255;
constexpr double normalTolerance = 2e-4;
constexpr double depthTolerance = 2e-6;

/// Checks the five buffers against the ray cast of the scene, at all pixels clear of edges.
void compareWithRayCast(const Buffers &buffers, const RayCastScene &scene, const QMatrix4x4 &projection,
    const QMatrix4x4 &camera, double leastShare, int leastGeometry, const QVector<int> &leastPerItem)
{
    const QSize size(buffers.id.width, buffers.id.height);
    const RayCaster caster(scene.items(), projection, camera, size);
    const DoubleMatrix normalMatrix = DoubleMatrix(camera).inverted().transposed();
    QVector<DoubleMatrix> modelNormalMatrices;
    for (const RayCastItem &item : scene.items())
        modelNormalMatrices.append(DoubleMatrix(item.modelMatrix).inverted().transposed());

    QVector<int> seen(scene.items().size(), 0);
    double diffuseError = 0;
    double specularError = 0;
    double normalError = 0;
    double depthError = 0;
    int wrongIds = 0;
    int wrongMaterials = 0;
    int minified = 0;
    const RayCastCoverage coverage =
        caster.compareClearPixels(leastShare, leastGeometry, [&](int x, int y, const RayHit &hit) {
            const float *diffuse = buffers.diffuse.at(x, y);
            const float *specular = buffers.specular.at(x, y);
            const float *normal = buffers.normal.at(x, y);
            depthError = std::max(depthError, std::abs(hit.depth - double(*buffers.depth.at(x, y))));
            wrongIds += *buffers.id.at(x, y) == float(hit.triangle + 1) ? 0 : 1;
            if (!hit.isGeometry()) {
                for (const float *cleared : {diffuse, specular, normal}) {
                    for (int i = 0; i < 3; ++i)
                        wrongMaterials += cleared[i] == 0 ? 0 : 1;
                }
                wrongMaterials += diffuse[3] == 0 && specular[3] == 0 ? 0 : 1;
                return;
            }
            ++seen[hit.item];
            const MaterialData &material = scene.material(hit);
            const bool isMagnified =
                isMagnifiedAt(caster, x, y, material.mapKd) && isMagnifiedAt(caster, x, y, material.mapKs);
            minified += isMagnified ? 0 : 1;
            const Vector4d mapKd = sampleRepeating(material.mapKd, hit.texCoord);
            const Vector4d mapKs = sampleRepeating(material.mapKs, hit.texCoord);
            const Vector3d expectedNormal =
                normalized(xyz(normalMatrix * (modelNormalMatrices[hit.item] * withW(hit.normal, 1))));
            for (int i = 0; i < 3; ++i) {
                const auto k = size_t(i);
                if (isMagnified) {
                    diffuseError =
                        std::max(diffuseError, std::abs(double(material.kd[i]) * mapKd[k] - double(diffuse[i])));
                    specularError =
                        std::max(specularError, std::abs(double(material.ks[i]) * mapKs[k] - double(specular[i])));
                }
                normalError = std::max(normalError, std::abs(expectedNormal[k] - double(normal[i])));
            }
            wrongMaterials += diffuse[3] == material.d && specular[3] == material.ns ? 0 : 1;
        });
    EXPECT_EQ(wrongIds, 0);
    EXPECT_EQ(wrongMaterials, 0);
    EXPECT_LE(diffuseError, colorTolerance);
    EXPECT_LE(specularError, colorTolerance);
    EXPECT_LE(normalError, normalTolerance);
    EXPECT_LE(depthError, depthTolerance);
    EXPECT_LE(minified, coverage.geometry / 20) << "too few colours are compared";
    for (int i = 0; i < seen.size(); ++i)
        EXPECT_GE(seen[i], leastPerItem[i]) << "item " << i << " is hardly seen";
}

/// Balls, boxes and a wall: placed, turned, stretched and mirrored, with and without images.
RayCastScene makeScene()
{
    RayCastScene scene;
    MaterialData material;
    material.kd = QVector3D(0.9f, 0.7f, 0.5f);
    material.ks = QVector3D(0.4f, 0.3f, 0.2f);
    material.ns = 20;
    material.mapKd = randomImage(4, 4, 1);
    QMatrix4x4 matrix;
    matrix.translate(-1.4f, 0.3f, 0);
    scene.add(sphereMesh(8), material, matrix);

    material = MaterialData();
    material.ks = QVector3D(1, 0.8f, 0.6f);
    material.ns = 3.5f;
    material.d = 0.4f;
    material.mapKs = randomImage(5, 3, 2);
    matrix.setToIdentity();
    matrix.translate(1.3f, -0.2f, 0.5f);
    matrix.rotate(40, 0.3f, 1, 0.2f);
    matrix.scale(0.5f, 1.1f, 0.8f);
    scene.add(boxMesh(2), material, matrix);

    // Mirrored and stretched: normals show whether the inverse is transposed.
    material = MaterialData();
    material.kd = QVector3D(0.1f, 0.5f, 0.9f);
    matrix.setToIdentity();
    matrix.translate(0.1f, 1.2f, -0.4f);
    matrix.rotate(25, 0, 0, 1);
    matrix.scale(-1.2f, 0.4f, 0.7f);
    scene.add(withoutIndices(sphereMesh(9)), material, matrix);

    // A wall that shows its front, with both images.
    material = MaterialData();
    material.mapKd = randomImage(8, 8, 3);
    material.mapKs = randomImage(2, 4, 4);
    material.ks = QVector3D(0.5f, 0.5f, 0.5f);
    matrix.setToIdentity();
    matrix.translate(0, 0, -1.6f);
    matrix.scale(2.4f, 1.7f, 1);
    scene.add(wallMesh(), material, matrix);
    return scene;
}

const QSize sceneSize(320, 240);
const QVector3D sceneEye(0.9f, 1.1f, 4.6f);
const QVector3D sceneCenter(0, 0.2f, 0);

} // namespace

TEST_F(ModelRenderPassTest, matchesARayCast)
{
    const RayCastScene scene = makeScene();
    const QSharedPointer<GPUModel> model = scene.build();
    const QMatrix4x4 camera = lookAt(sceneEye, sceneCenter);
    const QMatrix4x4 projection = perspective(sceneSize, 0.5f, 30);
    setViewport(sceneSize);
    setModel(model);
    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    // Closed meshes look the same with their backs culled, the mirrored one included, and the wall shows its front.
    for (const bool isCulling : {false, true}) {
        if (isCulling)
            glEnable(GL_CULL_FACE);
        pass->start(nullptr);
        const Buffers buffers = {
            image(Port::Diffuse), image(Port::Specular), image(Port::Normal), image(Port::Depth), image(Port::Id)};
        if (!isCulling) {
            saveForViewing(buffers.diffuse, QStringLiteral("model-diffuse"));
            saveForViewing(buffers.specular, QStringLiteral("model-specular"));
            saveForViewing(buffers.normal, QStringLiteral("model-normal"));
        }
        compareWithRayCast(buffers, scene, projection, camera, 0.95, 35000, {3000, 2000, 2000, 7000});
    }
}

TEST_F(ModelRenderPassTest, givesNormalsAWOfOne)
{
    // With affine matrices the w of the normal has no effect. The last row of this camera's matrix gives it one.
    const RayCastScene scene = makeScene();
    const QSharedPointer<GPUModel> model = scene.build();
    QMatrix4x4 camera = lookAt(sceneEye, sceneCenter);
    camera(3, 0) = 0.05f;
    camera(3, 1) = -0.04f;
    camera(3, 2) = 0.03f;
    const QMatrix4x4 projection = perspective(sceneSize, 0.5f, 30);
    setViewport(sceneSize);
    setModel(model);
    pass->setInput(Port::ProjectionMatrix, projection);
    pass->setInput(Port::CameraMatrix, camera);
    pass->start(nullptr);
    const Buffers buffers = {
        image(Port::Diffuse), image(Port::Specular), image(Port::Normal), image(Port::Depth), image(Port::Id)};
    compareWithRayCast(buffers, scene, projection, camera, 0.95, 35000, {3000, 2000, 2000, 7000});

    // The error that a w of 0 would have caused.
    const DoubleMatrix normalMatrix = DoubleMatrix(camera).inverted().transposed();
    const Vector3d difference =
        normalized(xyz(normalMatrix * Vector4d{0, 0, 1, 1})) - normalized(xyz(normalMatrix * Vector4d{0, 0, 1, 0}));
    EXPECT_GT(std::sqrt(dot(difference, difference)), 10 * normalTolerance);
}

TEST_F(ModelRenderPassTest, readsAMissingMatrixAsTheIdentity)
{
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(8, 8));
    setModel(model);
    pass->start(nullptr);
    EXPECT_EQ(*image(Port::Depth).at(3, 3), 0.5f);
    EXPECT_EQ(image(Port::Normal).at(3, 3)[2], 1.0f);
    EXPECT_EQ(*image(Port::Id).at(1, 1), 1.0f);
    EXPECT_EQ(*image(Port::Id).at(6, 6), 2.0f);
}

TEST_F(ModelRenderPassTest, countsTrianglesFromOneInEachItem)
{
    RayCastScene scene;
    QMatrix4x4 matrix;
    matrix.translate(-0.5f, 0);
    matrix.scale(0.5f, 1, 1);
    scene.add(wallMesh(), MaterialData(), matrix);
    matrix.setToIdentity();
    matrix.translate(0.5f, 0);
    matrix.scale(0.5f, 1, 1);
    scene.add(wallMesh(), MaterialData(), matrix);
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(8, 4));
    setModel(model);
    pass->start(nullptr);
    const Image id = image(Port::Id);
    EXPECT_EQ(*id.at(0, 0), 1.0f);
    EXPECT_EQ(*id.at(3, 3), 2.0f);
    EXPECT_EQ(*id.at(4, 0), 1.0f);
    EXPECT_EQ(*id.at(7, 3), 2.0f);
}

TEST_F(ModelRenderPassTest, writesTransparentTexelsUnlessToldToDiscardThem)
{
    // Strips from left to right, over a wall that lies behind: alphas of 0, 0.008, 0.012 and 0.02.
    const QVector<int> alphas = {0, 2, 3, 5};
    RayCastScene scene;
    for (int i = 0; i < alphas.size(); ++i) {
        MaterialData material;
        material.kd = QVector3D(1, 1, 1);
        material.d = 0.5f;
        material.mapKd = flatImage(QColor(255, 51, 0, alphas[i]));
        QMatrix4x4 matrix;
        matrix.translate(-0.75f + 0.5f * float(i), 0, -0.5f);
        matrix.scale(0.25f, 1, 1);
        scene.add(wallMesh(), material, matrix);
    }
    MaterialData behind;
    behind.kd = QVector3D(0, 0, 1);
    scene.add(wallMesh(), behind);
    const QSharedPointer<GPUModel> model = scene.build();

    ModelRenderPass discarding;
    discarding.setDiscardOnDiffuseAlpha(true);
    ModelRenderPass keeping;
    keeping.setDiscardOnDiffuseAlpha(true);
    keeping.setDiscardOnDiffuseAlpha(false);
    for (ModelRenderPass *each : {&keeping, &discarding, pass.get()}) {
        each->setInput(Port::Viewport, QRect(0, 0, 8, 8));
        each->setInput(Port::Geometry, QVariant::fromValue(model.data()));
        glViewport(0, 0, 8, 8);
        each->start(nullptr);
        const auto read = [each](int output) { return readTexture(each->output(output).value<Texture *>()); };
        for (int i = 0; i < alphas.size(); ++i) {
            const bool isDiscarded = each == &discarding && alphas[i] <= 2; // 2 / 255 is below 0.01, 3 / 255 above.
            const int x = 2 * i + 1;
            const QVector4D diffuse = read(Port::Diffuse).pixel(x, 4);
            const QVector4D expected = isDiscarded ? QVector4D(0, 0, 1, 1) : QVector4D(1, 0.2f, 0, 0.5f);
            EXPECT_LT((diffuse - expected).length(), 1e-5f) << "alpha " << alphas[i];
            EXPECT_EQ(*read(Port::Depth).at(x, 4), isDiscarded ? 0.5f : 0.25f) << "alpha " << alphas[i];
            EXPECT_NE(*read(Port::Id).at(x, 4), 0.0f);
            EXPECT_EQ(read(Port::Normal).at(x, 4)[2], 1.0f);
            EXPECT_EQ(read(Port::Specular).at(x, 4)[3], 32.0f);
        }
    }

    // The program is built; the flag has no effect any more.
    const Image before = image(Port::Depth);
    pass->setDiscardOnDiffuseAlpha(true);
    pass->start(nullptr);
    EXPECT_EQ(maximumDifference(image(Port::Depth), before), 0.0);
}

TEST_F(ModelRenderPassTest, leavesClearedTargetsWithoutAModel)
{
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(5, 5));
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<GPUModel *>(nullptr), QVariant(3)}) {
        setModel(model);
        pass->start(nullptr);
        EXPECT_EQ(image(Port::Diffuse).at(2, 2)[3], 1.0f);
        pass->setInput(Port::Geometry, nothing);
        glClearColor(1, 1, 1, 1); // The pass sets its own clear colour.
        glDisable(GL_DEPTH_TEST);
        pass->start(nullptr);
        EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
        for (int output = 0; output < 5; ++output) {
            ASSERT_NE(texture(output), nullptr);
            const Image cleared = image(output);
            const float expected = output == Port::Depth ? 1.0f : 0.0f;
            for (int y = 0; y < 5; ++y) {
                for (int x = 0; x < 5; ++x) {
                    ASSERT_EQ(cleared.at(x, y)[0], expected);
                    if (output <= Port::Specular) {
                        ASSERT_EQ(cleared.at(x, y)[3], 0.0f);
                    }
                }
            }
        }
    }
}

TEST_F(ModelRenderPassTest, drawsWithTheViewportThatItFinds)
{
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> model = scene.build();
    pass->setInput(Port::Viewport, QRect(0, 0, 8, 8));
    setModel(model);
    glViewport(1, 2, 4, 3);
    GLCallRecorder<&epoxy_glViewport> viewports;
    pass->start(nullptr);
    EXPECT_TRUE(viewports.calls.empty());
    const Image id = image(Port::Id);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(*id.at(x, y) > 0, x >= 1 && x < 5 && y >= 2 && y < 5) << x << ' ' << y;
    }
}

TEST_F(ModelRenderPassTest, setsTheDepthTestAndTheClearColour)
{
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(4, 4));
    setModel(model);
    glClearColor(1, 1, 1, 1);
    glEnable(GL_CULL_FACE);
    pass->start(nullptr);
    EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
    EXPECT_TRUE(glFlag(GL_CULL_FACE));
    EXPECT_FALSE(glFlag(GL_BLEND));
    GLfloat color[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, color);
    for (const GLfloat channel : color)
        EXPECT_EQ(channel, 0.0f);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
}

TEST_F(ModelRenderPassTest, makesTargetsOfItsFormats)
{
    setViewport(QSize(5, 4));
    pass->start(nullptr);
    const QVector<int> formats = {GL_RGBA32F, GL_RGBA32F, GL_RGB32F, GL_DEPTH_COMPONENT32F, GL_R32F};
    for (int i = 0; i < 5; ++i) {
        ASSERT_NE(texture(i), nullptr);
        EXPECT_EQ(texture(i)->internalFormat(0), formats[i]);
        EXPECT_EQ(texture(i)->target(), unsigned(GL_TEXTURE_2D));
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

TEST_F(ModelRenderPassTest, remakesItsTexturesWhenTheSizeChanges)
{
    expectTexturesFollowTheViewport(5, 5);
}

TEST_F(ModelRenderPassTest, publishesNullWithoutAViewport)
{
    pass->start(nullptr);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(pass->output(i).userType(), qMetaTypeId<Texture *>());
        EXPECT_EQ(texture(i), nullptr);
    }
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
}

TEST_F(ModelRenderPassTest, drawsWithAProgramOfTheHostAndOwnsIt)
{
    const QPointer<ShaderProgram> program = new ShaderProgram(nullptr);
    program->setFragDataLocations(
        {QStringLiteral("out_Kd"), QStringLiteral("out_Ks"), QStringLiteral("out_Normal"), QStringLiteral("out_Id")});
    program->addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nuniform mat4 u_NormalMatrix;\nin vec3 va_Vertex;\nout vec3 vo_Normal;\n"
                       "void main() { gl_Position = vec4(va_Vertex, 1.0); vo_Normal = u_NormalMatrix[1].xyz; }\n"),
        QString());
    program->addShader(GL_FRAGMENT_SHADER,
        QStringLiteral(
            "#version 150\nin vec3 vo_Normal;\nout vec4 out_Kd;\nout vec4 out_Ks;\nout vec3 out_Normal;\n"
            "out vec4 out_Id;\nvoid main() { out_Kd = vec4(1.0); out_Ks = vec4(2.0); out_Normal = vo_Normal;\n"
            "out_Id = vec4(3.0); }\n"),
        QString());
    ASSERT_TRUE(program->compile() && program->link()) << qPrintable(program->log());
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> model = scene.build();
    const GLObjectCounts before = glObjectCounts();

    pass->setShaderProgram(program);
    setViewport(QSize(4, 4));
    setModel(model);
    QMatrix4x4 camera;
    camera(1, 0) = 2;
    pass->setInput(Port::CameraMatrix, camera);
    pass->start(nullptr);
    EXPECT_EQ(glObjectCounts().programs, before.programs) << "the pass's own program is not built";
    EXPECT_EQ(image(Port::Specular).at(2, 2)[0], 2.0f);
    EXPECT_EQ(*image(Port::Id).at(2, 2), 3.0f);
    // The inverse of the camera matrix has -2 at row 1, column 0; transposed, this is the x of column 1.
    EXPECT_EQ(image(Port::Normal).at(2, 2)[0], -2.0f);
    EXPECT_EQ(image(Port::Normal).at(2, 2)[1], 1.0f);
    pass.reset();
    EXPECT_TRUE(program.isNull());
}

TEST_F(ModelRenderPassTest, countsNoReferencesAndSkipClearsTheOutputs)
{
    setViewport(QSize(4, 4));
    for (int i = 0; i < 5; ++i)
        pass->setNumOutputUsers(i, 2);
    pass->start(nullptr);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(texture(i)), -1);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    Texture *const normal = texture(Port::Normal);
    pass->skip(nullptr);
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(pass->output(i).isValid());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Normal), normal);
}

TEST_F(ModelRenderPassTest, takesItsObjectsAlong)
{
    RayCastScene scene;
    scene.add(wallMesh(), MaterialData());
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(4, 4));
    setModel(model);
    pass->start(nullptr); // Creates what the model and the device keep.
    const GLObjectCounts before = glObjectCounts();
    {
        ModelRenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().textures, before.textures + 5);
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
