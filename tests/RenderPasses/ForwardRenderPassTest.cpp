// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/RayCastScene.h"

#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <RenderPasses/ModelDeferredPass.h>
#include <RenderPasses/ModelRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize sceneSize(320, 240);
const QMatrix4x4 sceneCamera = lookAt(QVector3D(1.2f, 2.2f, 6), QVector3D(0, 0.1f, 0));
const QMatrix4x4 sceneProjection = perspective(sceneSize, 0.5f, 40);

class ForwardRenderPassTest : public PassTest<ForwardRenderPass>
{
protected:
    Image drawScene(const QSharedPointer<GPUModel> &model, const QMatrix4x4 &camera = sceneCamera)
    {
        setViewport(sceneSize);
        setModel(model);
        pass->setInput(Port::ProjectionMatrix, sceneProjection);
        pass->setInput(Port::CameraMatrix, camera);
        pass->start(nullptr);
        return image(Port::Frame);
    }
};

QMatrix4x4 placed(const QVector3D &position, float angle = 0, const QVector3D &scale = QVector3D(1, 1, 1))
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.rotate(angle, 0.2f, 1, 0.1f);
    matrix.scale(scale);
    return matrix;
}

MaterialData coloured(const QVector3D &kd, const QVector3D &ks, float ns)
{
    MaterialData material;
    material.kd = kd;
    material.ks = ks;
    material.ns = ns;
    return material;
}

/// The normal that a pixel gets from the vertex stage.
Vector3d cameraNormal(const RayHit &hit, const RayCastScene &scene, const QMatrix4x4 &camera)
{
    const DoubleMatrix model(scene.items()[hit.item].modelMatrix);
    const DoubleMatrix normalMatrix = (DoubleMatrix(camera) * model).inverted().transposed();
    return xyz(normalMatrix * withW(hit.normal, 1));
}

/// The light of a pixel, clamped to the range of the target; alpha is the material's opacity.
Vector4d lit(const RayHit &hit, const MaterialData &material, const Vector3d &normal)
{
    const Vector3d light = normalized({100, 100, 100});
    const Vector3d half = normalized(light + Vector3d{0, 0, 1});
    const double lambert = std::max(0.0, dot(normal, light));
    const double highlight = std::pow(std::max(0.0, dot(normal, half)), double(material.ns));
    const Vector4d mapKd = sampleRepeating(material.mapKd, hit.texCoord);
    const Vector4d mapKs = sampleRepeating(material.mapKs, hit.texCoord);
    Vector4d color;
    for (int i = 0; i < 3; ++i) {
        const double kd = double(material.kd[i]) * mapKd[size_t(i)];
        const double ks = double(material.ks[i]) * mapKs[size_t(i)];
        color[size_t(i)] = std::clamp(lambert * kd + highlight * ks, 0.0, 1.0);
    }
    color[3] = double(material.d);
    return color;
}

double difference(const float *pixel, const Vector4d &expected)
{
    double largest = 0;
    for (size_t i = 0; i < 4; ++i)
        largest = std::max(largest, std::abs(double(pixel[i]) - expected[i]));
    return largest;
}

/// The frame of the geometry and the deferred pass together.
Image drawDeferred(const QSharedPointer<GPUModel> &model, const QMatrix4x4 &camera = sceneCamera)
{
    const QRect viewport(QPoint(0, 0), sceneSize);
    ModelRenderPass geometry;
    geometry.setInput(ModelRenderPass::Viewport, viewport);
    geometry.setInput(ModelRenderPass::ProjectionMatrix, sceneProjection);
    geometry.setInput(ModelRenderPass::CameraMatrix, camera);
    geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
    glViewport(0, 0, viewport.width(), viewport.height());
    geometry.start(nullptr);
    ModelDeferredPass shading;
    shading.setInput(ModelDeferredPass::Viewport, viewport);
    shading.setInput(ModelDeferredPass::Diffuse, geometry.output(ModelRenderPass::Diffuse));
    shading.setInput(ModelDeferredPass::Specular, geometry.output(ModelRenderPass::Specular));
    shading.setInput(ModelDeferredPass::Normal, geometry.output(ModelRenderPass::Normal));
    shading.start(nullptr);
    return readTexture(shading.output(ModelDeferredPass::Frame).value<Texture *>());
}

/// Half a step of the target's 8 bits, plus what is added where texels and normals change fast by vertices that the
/// rasteriser moves by 1/512 pixel and by image filters with weights of 8 bits.
constexpr double halfStep = 0.5 / 255;
constexpr double tolerance = halfStep + 0.004;

} // namespace

TEST_F(ForwardRenderPassTest, matchesARayCast)
{
    // Balls, boxes, a mirrored item, one without indices, and images on both colours.
    RayCastScene scene;
    MaterialData material = coloured({0.7f, 0.2f, 0.1f}, {0.5f, 0.5f, 0.5f}, 24);
    material.mapKd = checkerImage(8, QColor(255, 230, 200), QColor(140, 160, 255));
    scene.add(sphereMesh(8), material, placed({-1.5f, 0, 0}, 20));
    material = coloured({0.1f, 0.3f, 0.6f}, {0.4f, 0.3f, 0.2f}, 5.5f);
    material.mapKs = checkerImage(6, QColor(255, 255, 255), QColor(60, 0, 30));
    material.d = 0.4f;
    scene.add(boxMesh(2), material, placed({1.4f, -0.1f, 0.6f}, 40, {0.8f, 0.9f, 0.7f}));
    scene.add(withoutIndices(sphereMesh(9)), coloured({0.2f, 0.6f, 0.3f}, {0.2f, 0.2f, 0.2f}, 8),
        placed({0.2f, 1.1f, -0.6f}, 25, {-1.2f, 0.7f, 0.9f}));
    material = coloured({0.9f, 0.9f, 0.9f}, {}, 1);
    material.mapKd = checkerImage(16, QColor(200, 200, 190), QColor(70, 80, 95));
    scene.add(groundMesh(), material, placed({0, -1, 0}, 0, {4, 4, 4}));
    const QSharedPointer<GPUModel> model = scene.build();
    const RayCaster caster(scene.items(), sceneProjection, sceneCamera, sceneSize);

    for (const bool isCulling : {false, true}) {
        if (isCulling)
            glEnable(GL_CULL_FACE);
        const Image frame = drawScene(model);
        const Image id = image(Port::Id);
        if (!isCulling)
            saveForViewing(frame, QStringLiteral("forward-scene"));
        double largest = 0;
        double sum = 0;
        int wrongIds = 0;
        int shown = 0;
        int minified = 0;
        QVector<int> litPixels(scene.items().size(), 0);
        caster.compareClearPixels(0.9, 30000, [&](int x, int y, const RayHit &hit) {
            wrongIds += id.pixel(x, y) == (hit.isGeometry() ? QVector4D(1, 1, 1, 1) : QVector4D()) ? 0 : 1;
            if (!hit.isGeometry()) {
                EXPECT_EQ(frame.pixel(x, y), QVector4D()) << x << ' ' << y;
                return;
            }
            const MaterialData &itemMaterial = scene.material(hit);
            // The reference has no mip levels.
            const QSize imageSize = itemMaterial.mapKd.size().expandedTo(itemMaterial.mapKs.size());
            if (!imageSize.isEmpty() && caster.texelsPerPixel(x + 0.5, y + 0.5, imageSize) > 1) {
                ++minified;
                return;
            }
            const Vector4d expected = lit(hit, itemMaterial, cameraNormal(hit, scene, sceneCamera));
            const double error = difference(frame.at(x, y), expected);
            largest = std::max(largest, error);
            sum += error;
            ++shown;
            litPixels[hit.item] += expected[0] > 0.05 && expected[0] < 1 ? 1 : 0;
        });
        std::printf("[ COMPARED ] largest error %.4f, mean %.5f\n", largest, sum / shown);
        EXPECT_EQ(wrongIds, 0);
        EXPECT_LE(largest, tolerance);
        EXPECT_LE(sum / shown, halfStep);
        EXPECT_LT(minified, 300) << "of the images, outlines of the ball alone";
        for (int i = 0; i < litPixels.size(); ++i)
            EXPECT_GE(litPixels[i], 1000) << "item " << i << " is hardly lit";
    }
}

TEST_F(ForwardRenderPassTest, differsFromTheDeferredWayByTheLengthOfNormals)
{
    // Both ways use the same light. The deferred one normalises the normal of each pixel; this pass takes it as
    // interpolated, with the length that the inverse transpose of the matrices gave it.
    enum Item { Turned, Ball, Halved, Stretched, Ground };
    RayCastScene scene;
    scene.add(boxMesh(), coloured({0.6f, 0.3f, 0.2f}, {0.3f, 0.3f, 0.3f}, 10), placed({-2.1f, 0, 0}, 50));
    // Between the corners of a triangle the interpolated normal is shorter than at the corners.
    scene.add(sphereMesh(2), coloured({0.2f, 0.5f, 0.8f}, {0.3f, 0.3f, 0.3f}, 12), placed({0, -0.1f, 1}, 15));
    // Scaled to half the size, so normals are twice as long.
    scene.add(boxMesh(), coloured({0.3f, 0.2f, 0.1f}, {0, 0, 0}, 1), placed({1.8f, -0.4f, 1}, 30, {0.5f, 0.5f, 0.5f}));
    // Normals along y are half as long, the others longer.
    scene.add(boxMesh(), coloured({0.5f, 0.5f, 0.2f}, {0, 0, 0}, 1), placed({1.9f, -1, -1.5f}, 0, {0.8f, 2, 0.8f}));
    // Enlarged in its positions, so that its matrix leaves the normals as they are.
    MeshData ground = groundMesh();
    for (QVector3D &position : ground.positions)
        position *= 4;
    scene.add(ground, coloured({0.7f, 0.7f, 0.7f}, {0.2f, 0.2f, 0.2f}, 4), placed({0, -1, 0}));
    const QSharedPointer<GPUModel> model = scene.build();
    const Image forward = drawScene(model);
    const Image deferred = drawDeferred(model);
    saveForViewing(forward, QStringLiteral("forward-beside-deferred-1"));
    saveForViewing(deferred, QStringLiteral("forward-beside-deferred-2"));

    struct Counts
    {
        int same = 0;
        int darker = 0;
        int brighter = 0;
    };
    QVector<Counts> counts(scene.items().size());
    double forwardError = 0;
    double deferredError = 0;
    double largestWhereSame = 0;
    const RayCaster caster(scene.items(), sceneProjection, sceneCamera, sceneSize);
    caster.compareClearPixels(0.9, 20000, [&](int x, int y, const RayHit &hit) {
        if (!hit.isGeometry())
            return;
        const Vector3d normal = cameraNormal(hit, scene, sceneCamera);
        const Vector4d expectedForward = lit(hit, scene.material(hit), normal);
        const Vector4d expectedDeferred = lit(hit, scene.material(hit), normalized(normal));
        forwardError = std::max(forwardError, difference(forward.at(x, y), expectedForward));
        deferredError = std::max(deferredError, difference(deferred.at(x, y), expectedDeferred));
        Counts &count = counts[hit.item];
        const double length = std::sqrt(dot(normal, normal));
        if (std::abs(length - 1) < 1e-5) {
            ++count.same;
            for (int i = 0; i < 4; ++i)
                largestWhereSame =
                    std::max(largestWhereSame, std::abs(double(forward.at(x, y)[i]) - double(deferred.at(x, y)[i])));
        }
        const double offset = double(forward.at(x, y)[0]) - double(deferred.at(x, y)[0]);
        if (std::abs(offset) > 0.03) {
            EXPECT_EQ(offset > 0, length > 1) << x << ' ' << y;
            ++(offset > 0 ? count.brighter : count.darker);
        }
    });
    EXPECT_LE(forwardError, tolerance);
    EXPECT_LE(deferredError, tolerance);
    // One step of 8 bits, where the two round to different sides.
    EXPECT_LE(largestWhereSame, 1.01 / 255);

    for (const int item : {Turned, Ground}) {
        EXPECT_GT(counts[item].same, 1500);
        EXPECT_EQ(counts[item].darker + counts[item].brighter, 0);
    }
    EXPECT_GT(counts[Ball].darker, 800);
    EXPECT_EQ(counts[Ball].brighter, 0);
    EXPECT_EQ(counts[Halved].same, 0);
    EXPECT_GT(counts[Halved].brighter, 500);
    EXPECT_EQ(counts[Halved].darker, 0);
    EXPECT_GT(counts[Stretched].darker, 80);
    EXPECT_GT(counts[Stretched].brighter, 80);
}

TEST_F(ForwardRenderPassTest, differsFromTheDeferredWayForAFlattenedItem)
{
    // This pass inverts the product of camera and model matrix in each vertex. A flattening model matrix has no
    // inverse, and the light is 0. The model's own normal matrix, which the deferred way uses, stays the identity.
    RayCastScene scene;
    scene.add(wallMesh(), coloured({0.8f, 0.8f, 0.8f}, {}, 1), placed({0, 0, 0}, 0, {2, 2, 0}));
    const QSharedPointer<GPUModel> model = scene.build();
    const QMatrix4x4 camera = lookAt(QVector3D(0, 0, 6), QVector3D());
    const QVector4D forward = drawScene(model, camera).pixel(160, 120);
    const QVector4D deferred = drawDeferred(model, camera).pixel(160, 120);
    EXPECT_EQ(forward.w(), 1.0f);
    EXPECT_EQ(deferred.w(), 1.0f);
    EXPECT_NEAR(deferred.x(), 0.8 / std::sqrt(3.0), halfStep + 1e-4);
    EXPECT_GT(std::abs(forward.x() - deferred.x()), 0.2f);
}

TEST_F(ForwardRenderPassTest, keepsItsLightWithTheCamera)
{
    // A ball that moves along with the camera looks the same from everywhere.
    GPUModelBuilder builder;
    builder.addItem(
        builder.addMesh(sphereMesh(12)), builder.addMaterial(coloured({0.5f, 0.4f, 0.3f}, {0.4f, 0.4f, 0.4f}, 20)));
    const QSharedPointer<GPUModel> model = builder.build();
    const QMatrix4x4 inFront = placed({0, 0, -4});
    Image first;
    for (const QVector3D &eye :
        {QVector3D(0, 0, 5), QVector3D(4, 3, -2), QVector3D(-1, -6, 1), QVector3D(-5, 0.5f, 0)}) {
        const QMatrix4x4 camera = lookAt(eye, QVector3D(0.3f, 0, 0));
        model->setModelMatrix(0, camera.inverted() * inFront);
        const Image frame = drawScene(model, camera);
        if (first.data.isEmpty())
            first = frame;
        // Outlines may differ by a pixel; the lit interior may not.
        for (int y = 90; y < 150; ++y) {
            for (int x = 130; x < 190; ++x)
                ASSERT_LE((frame.pixel(x, y) - first.pixel(x, y)).length(), 2.5f / 255) << x << ' ' << y;
        }
    }
    EXPECT_GT(first.pixel(172, 135).x(), first.pixel(145, 100).x() + 0.2f) << "the light comes from the upper right";

    // A wall that stays changes its light when the camera moves around it.
    GPUModelBuilder wallBuilder;
    wallBuilder.addItem(wallBuilder.addMesh(wallMesh()), wallBuilder.addMaterial(coloured({0.8f, 0.8f, 0.8f}, {}, 1)));
    const QSharedPointer<GPUModel> wall = wallBuilder.build();
    for (const float x : {-4.0f, 0.0f, 4.0f}) {
        const QMatrix4x4 camera = lookAt(QVector3D(x, 0, 4), QVector3D());
        const Vector3d normal = xyz(DoubleMatrix(camera) * Vector4d{0, 0, 1, 0});
        const double expected = 0.8 * std::max(0.0, dot(normal, normalized({1, 1, 1})));
        EXPECT_NEAR(double(drawScene(wall, camera).pixel(160, 120).x()), expected, halfStep + 1e-4);
    }
}

TEST_F(ForwardRenderPassTest, isTransparentBlackWithoutAModel)
{
    RayCastScene scene;
    scene.add(wallMesh(), coloured({1, 1, 1}, {}, 1));
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(8, 8));
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<GPUModel *>(nullptr), QVariant(5)}) {
        setModel(model);
        pass->start(nullptr);
        EXPECT_EQ(image(Port::Id).pixel(3, 3), QVector4D(1, 1, 1, 1));
        EXPECT_EQ(image(Port::Frame).pixel(3, 3).w(), 1.0f);
        pass->setInput(Port::Geometry, nothing);
        glClearColor(1, 0.5f, 0.25f, 1);
        pass->start(nullptr);
        EXPECT_EQ(maximumDifference(image(Port::Frame), Image(8, 8)), 0);
        EXPECT_EQ(maximumDifference(image(Port::Id), Image(8, 8)), 0);
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ForwardRenderPassTest, sortsByDepthAndReadsAMissingMatrixAsTheIdentity)
{
    // In clip space -0.5 is nearer than 0.5; the second half of the items is drawn in the opposite order.
    RayCastScene scene;
    const MaterialData red = coloured({1, 0, 0}, {}, 1);
    const MaterialData green = coloured({0, 1, 0}, {}, 1);
    scene.add(wallMesh(), red, placed({-0.5f, 0, -0.5f}, 0, {0.5f, 1, 1}));
    scene.add(wallMesh(), green, placed({-0.5f, 0, 0.5f}, 0, {0.5f, 1, 1}));
    scene.add(wallMesh(), green, placed({0.5f, 0, 0.5f}, 0, {0.5f, 1, 1}));
    scene.add(wallMesh(), red, placed({0.5f, 0, -0.5f}, 0, {0.5f, 1, 1}));
    const QSharedPointer<GPUModel> model = scene.build();
    setViewport(QSize(8, 8));
    setModel(model);
    pass->setInput(Port::CameraMatrix, QStringLiteral("no matrix"));
    pass->start(nullptr);
    const Image frame = image(Port::Frame);
    for (int i = 0; i < 64; ++i) {
        EXPECT_GT(frame.pixel(i % 8, i / 8).x(), 0.5f);
        EXPECT_EQ(frame.pixel(i % 8, i / 8).y(), 0.0f);
    }
}

TEST_F(ForwardRenderPassTest, leavesOutMarkedItems)
{
    RayCastScene scene;
    scene.add(wallMesh(), coloured({1, 0, 0}, {}, 1), placed({-0.5f, 0, 0}, 0, {0.4f, 1, 1}));
    scene.add(wallMesh(), coloured({1, 0, 0}, {}, 1), placed({0.5f, 0, 0}, 0, {0.4f, 1, 1}));
    const QSharedPointer<GPUModel> model = scene.build();
    QMatrix4x4 rightHalf;
    rightHalf.ortho(0, 1, -1, 1, -1, 1);
    model->frustumCull(rightHalf);
    setViewport(QSize(8, 8));
    setModel(model);
    pass->start(nullptr);
    EXPECT_EQ(image(Port::Id).pixel(2, 4), QVector4D());
    EXPECT_EQ(image(Port::Id).pixel(6, 4), QVector4D(1, 1, 1, 1));
}

TEST_F(ForwardRenderPassTest, makesTargetsOfItsFormats)
{
    setViewport(QSize(5, 4));
    pass->start(nullptr);
    for (const int output : {Port::Frame, Port::Id}) {
        EXPECT_EQ(texture(output)->internalFormat(0), GL_RGBA);
        EXPECT_EQ(texture(output)->width(0), 5);
        EXPECT_EQ(texture(output)->height(0), 4);
        texture(output)->bind();
        for (const GLenum parameter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
            GLint filter = 0;
            glGetTexParameteriv(GL_TEXTURE_2D, parameter, &filter);
            EXPECT_EQ(filter, GL_NEAREST);
        }
        texture(output)->unbind();
    }
}

TEST_F(ForwardRenderPassTest, remakesItsTargetsWhenTheSizeChanges)
{
    expectTexturesFollowTheViewport(2, 3); // The depth texture included.
}

TEST_F(ForwardRenderPassTest, publishesNullWithoutAViewport)
{
    pass->start(nullptr);
    for (const int output : {Port::Frame, Port::Id}) {
        EXPECT_EQ(pass->output(output).userType(), qMetaTypeId<Texture *>());
        EXPECT_EQ(texture(output), nullptr);
    }
    // A framebuffer without texels cannot be cleared.
    EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
}

TEST_F(ForwardRenderPassTest, setsTheClearColourAndNothingElse)
{
    RayCastScene scene;
    scene.add(wallMesh(), coloured({1, 1, 1}, {}, 1));
    const QSharedPointer<GPUModel> model = scene.build();
    pass->setInput(Port::Viewport, QRect(20, 30, 12, 10));
    setModel(model);
    glViewport(2, 3, 5, 4);
    glClearColor(0.25f, 0.5f, 0.75f, 1);
    for (const bool isEnabled : {false, true}) {
        for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND})
            isEnabled ? glEnable(capability) : glDisable(capability);
        GLCallRecorder<&epoxy_glViewport> viewports;
        pass->start(nullptr);
        EXPECT_TRUE(viewports.calls.empty());
        for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND})
            EXPECT_EQ(glFlag(capability), isEnabled);
    }
    GLfloat color[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, color);
    for (const GLfloat channel : color)
        EXPECT_EQ(channel, 0.0f);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    // The pass drew within the viewport that GL had.
    const Image id = image(Port::Id);
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 12; ++x)
            EXPECT_EQ(id.pixel(x, y).x() == 1, x >= 2 && x < 7 && y >= 3 && y < 7) << x << ' ' << y;
    }
}

TEST_F(ForwardRenderPassTest, countsNoReferencesAndSkipClearsTheOutputs)
{
    setViewport(QSize(4, 4));
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(texture(Port::Frame)), -1);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    Texture *const frame = texture(Port::Frame);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_FALSE(pass->output(Port::Id).isValid());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Frame), frame);
}

TEST_F(ForwardRenderPassTest, takesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    setViewport(QSize(4, 4));
    pass->start(nullptr);
    EXPECT_EQ(glObjectCounts().textures, before.textures + 3);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
