// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"
#include "support/RayCastScene.h"

#include <GL/AutoBinder.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <RenderPasses/TransparencyRenderPass.h>

#include <QtCore/QPointer>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize sceneSize(240, 180);
const QMatrix4x4 sceneCamera = lookAt(QVector3D(1.2f, 1.6f, 6), QVector3D(0, 0.1f, 0));
const QMatrix4x4 sceneProjection = perspective(sceneSize, 0.5f, 40);
const QVector4D background(0.125f, 0.25f, 0.5f, 0.75f);

class TransparencyRenderPassTest : public PassTest<TransparencyRenderPass>
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        glDepthFunc(GL_LESS);
        glClearColor(background.x(), background.y(), background.z(), background.w());
    }
    Image draw(const QSharedPointer<GPUModel> &model, const QSize &size = sceneSize,
        const QMatrix4x4 &camera = sceneCamera, const QMatrix4x4 &projection = sceneProjection)
    {
        glClearColor(background.x(), background.y(), background.z(), background.w());
        setViewport(size);
        setModel(model);
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
        pass->start(nullptr);
        return image(Port::Frame);
    }
    /// A pixel of walls that face the viewer, without perspective: a wall at z has a window depth of (1 - z) / 2.
    QVector4D drawWalls(const QVector<QPair<float, MaterialData>> &walls)
    {
        RayCastScene scene;
        for (const auto &wall : walls) {
            QMatrix4x4 matrix;
            matrix.translate(0, 0, wall.first);
            scene.add(wallMesh(), wall.second, matrix);
        }
        QMatrix4x4 projection;
        projection.ortho(-1, 1, -1, 1, -1, 1);
        return draw(scene.build(), QSize(4, 4), QMatrix4x4(), projection).pixel(1, 2);
    }
};

QMatrix4x4 placed(const QVector3D &position, float angle = 0, const QVector3D &scale = QVector3D(1, 1, 1))
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.rotate(angle, 0, 1, 0.1f);
    matrix.scale(scale);
    return matrix;
}

MaterialData coloured(const QVector3D &kd, float d, const QVector3D &ks = {}, float ns = 16)
{
    MaterialData material;
    material.kd = kd;
    material.ks = ks;
    material.ns = ns;
    material.d = d;
    return material;
}

Vector3d lit(const RayHit &hit, const RayCastScene &scene, const QMatrix4x4 &camera)
{
    const DoubleMatrix model(scene.items()[hit.item].modelMatrix);
    const DoubleMatrix normalMatrix = (DoubleMatrix(camera) * model).inverted().transposed();
    const Vector3d normal = xyz(normalMatrix * withW(hit.normal, 1));
    const Vector3d light = normalized({100, 100, 100});
    const Vector3d half = normalized(light + Vector3d{0, 0, 1});
    const MaterialData &material = scene.material(hit);
    const Vector4d mapKd = sampleRepeating(material.mapKd, hit.texCoord);
    const Vector4d mapKs = sampleRepeating(material.mapKs, hit.texCoord);
    const double lambert = std::max(0.0, dot(normal, light));
    const double highlight = std::pow(std::max(0.0, dot(normal, half)), double(material.ns));
    Vector3d color;
    for (int i = 0; i < 3; ++i)
        color[size_t(i)] =
            lambert * double(material.kd[i]) * mapKd[size_t(i)] + highlight * double(material.ks[i]) * mapKs[size_t(i)];
    return color;
}

struct Blended
{
    Vector4d color = {};
    double depth = 1; ///< Of the opaque surface.
    int layers = 0; ///< In front of it.
};

/// A pixel by the formulas, from all hits of its ray.
Blended blended(const QVector<RayHit> &hits, const RayCastScene &scene, const QMatrix4x4 &camera)
{
    Blended result;
    Vector4d behind = {double(background.x()), double(background.y()), double(background.z()), double(background.w())};
    for (const RayHit &hit : hits) {
        if (scene.material(hit).d >= 1 && hit.depth < result.depth) {
            result.depth = hit.depth;
            behind = withW(lit(hit, scene, camera), double(scene.material(hit).d));
        }
    }
    Vector3d colors = {};
    double weights = 0;
    double revealage = 1;
    for (const RayHit &hit : hits) {
        const double alpha = double(scene.material(hit).d);
        if (alpha >= 1 || hit.depth >= result.depth)
            continue;
        const double weight = std::pow(hit.depth, -5);
        colors = colors + lit(hit, scene, camera) * weight;
        weights += alpha * weight;
        revealage *= 1 - alpha;
        ++result.layers;
    }
    const Vector3d mean = colors * (1 / std::clamp(weights, 1e-4, 5e4));
    for (size_t i = 0; i < 4; ++i)
        result.color[i] = (i < 3 ? mean[i] : revealage) * (1 - revealage) + behind[i] * revealage;
    return result;
}

/// The light of one channel of a wall that faces the viewer.
double facing(double kd)
{
    return kd / std::sqrt(3.0);
}

/// Image filters have weights of 8 bits, and where normals or texels change fast a vertex that the rasteriser moves by
/// 1/512 pixel shows. Relative for values above 1: a low opacity divides the light.
constexpr double tolerance = 0.004;

} // namespace

TEST_F(TransparencyRenderPassTest, matchesTheFormulasAlongRays)
{
    // Opaque things behind, between and in front; a ball, a box and intersecting sheets, with and without images; a
    // stack of 60 layers.
    RayCastScene scene;
    MaterialData material = coloured({0.8f, 0.8f, 0.8f}, 1, {0.2f, 0.2f, 0.2f}, 8);
    material.mapKd = checkerImage(8, QColor(200, 200, 190), QColor(90, 100, 120));
    scene.add(groundMesh(), material, placed({0, -1, 0}, 0, {4, 4, 4}));
    scene.add(boxMesh(), coloured({0.7f, 0.3f, 0.2f}, 1), placed({-1.6f, -0.2f, -1.5f}, 30, {0.7f, 0.8f, 0.7f}));
    scene.add(sphereMesh(6), coloured({0.2f, 0.5f, 0.3f}, 1, {0.4f, 0.4f, 0.4f}),
        placed({-1.2f, -0.6f, 2}, 0, {0.4f, 0.4f, 0.4f}));
    scene.add(boxMesh(2), coloured({0.1f, 0.5f, 0.6f}, 0.35f, {0.5f, 0.5f, 0.5f}, 40),
        placed({-1, 0.2f, 0.4f}, 20, {0.8f, 0.9f, 0.1f}));
    material = coloured({0.9f, 0.6f, 0.3f}, 0.6f, {0.3f, 0.3f, 0.3f}, 6);
    material.mapKd = checkerImage(4, QColor(255, 230, 200), QColor(140, 160, 255));
    material.mapKs = checkerImage(4, QColor(255, 255, 255), QColor(60, 0, 30));
    scene.add(wallMesh(), material, placed({0.4f, 0.2f, 0.3f}, 35));
    scene.add(wallMesh(), coloured({0.5f, 0.8f, 0.1f}, 0.5f), placed({0.4f, 0.2f, 0.3f}, -25));
    scene.add(sphereMesh(5), coloured({0.6f, 0.6f, 0.9f}, 0.25f, {0.9f, 0.9f, 0.9f}, 30),
        placed({0.2f, 0, 1.6f}, 0, {0.5f, 0.5f, 0.5f}));
    for (int layer = 0; layer < 60; ++layer) {
        const QVector3D kd(layer % 3 == 0 ? 0.6f : 0.1f, layer % 3 == 1 ? 0.6f : 0.1f, 0.2f);
        scene.add(wallMesh(), coloured(kd * 0.05f, 0.03f + 0.001f * float(layer)),
            placed({1.9f, 0, 0.5f - 0.02f * float(layer)}, 10, {0.4f, 0.7f, 1}));
    }
    const QSharedPointer<GPUModel> model = scene.build();
    const Image frame = draw(model);
    const Image depth = image(Port::Depth);
    saveForViewing(frame, QStringLiteral("transparency-scene"));

    const RayCaster caster(scene.items(), sceneProjection, sceneCamera, sceneSize);
    double largest = 0;
    double sum = 0;
    double largestDepth = 0;
    int compared = 0;
    QVector<int> byLayers(80, 0);
    caster.compareClearLists(0.75, 20000, [&](int x, int y, const QVector<RayHit> &hits) {
        const Blended expected = blended(hits, scene, sceneCamera);
        ++compared;
        ++byLayers[expected.layers];
        largestDepth = std::max(largestDepth, std::abs(double(*depth.at(x, y)) - expected.depth));
        for (size_t i = 0; i < 4; ++i) {
            const double error =
                std::abs(double(frame.at(x, y)[i]) - expected.color[i]) / std::max(1.0, std::abs(expected.color[i]));
            largest = std::max(largest, error);
            sum += error / 4;
        }
    });
    std::printf("[ COMPARED ] largest error %.6f, mean %.7f, depth %.8f; %d, %d, %d, %d and %d pixels of 0, 1, 2, 3 "
                "and 60 layers\n",
        largest, sum / compared, largestDepth, byLayers[0], byLayers[1], byLayers[2], byLayers[3], byLayers[60]);
    EXPECT_LE(largest, tolerance);
    EXPECT_LE(sum / compared, 2e-4);
    EXPECT_LE(largestDepth, 2e-6);
    for (const int layers : {0, 1, 2, 60})
        EXPECT_GT(byLayers[layers], 400) << layers << " layers";
}

TEST_F(TransparencyRenderPassTest, drawsLayersInAnyOrderAlike)
{
    QVector<QPair<float, MaterialData>> walls;
    for (int i = 0; i < 12; ++i)
        walls.append({0.8f - 0.1f * float(i),
            coloured({0.1f * float(i % 4), 0.3f, 0.05f * float(i)}, 0.1f + 0.05f * float(i % 5))});
    const QVector4D forwards = drawWalls(walls);
    std::reverse(walls.begin(), walls.end());
    const QVector4D backwards = drawWalls(walls);
    std::rotate(walls.begin(), walls.begin() + 5, walls.end());
    const QVector4D rotated = drawWalls(walls);
    EXPECT_LE((forwards - backwards).length(), 1e-6f * forwards.length());
    EXPECT_LE((forwards - rotated).length(), 1e-6f * forwards.length());
    // Nearer layers have more weight: exchanging the colours changes the picture.
    for (int i = 0; i < 6; ++i)
        std::swap(walls[i].first, walls[11 - i].first);
    EXPECT_GT((drawWalls(walls) - forwards).length(), 0.01f);
}

TEST_F(TransparencyRenderPassTest, leavesOpaqueModelsAsTheyAre)
{
    RayCastScene scene;
    scene.add(sphereMesh(8), coloured({0.7f, 0.4f, 0.2f}, 1, {0.5f, 0.5f, 0.5f}), placed({-0.7f, 0, 0}));
    scene.add(boxMesh(), coloured({0.2f, 0.4f, 0.7f}, 1), placed({1, 0, -0.5f}, 30));
    const Image frame = draw(scene.build());
    const RayCaster caster(scene.items(), sceneProjection, sceneCamera, sceneSize);
    double largest = 0;
    caster.compareClearPixels(0.9, 3000, [&](int x, int y, const RayHit &hit) {
        if (!hit.isGeometry()) {
            EXPECT_EQ(frame.pixel(x, y), background) << x << ' ' << y;
            return;
        }
        // A revealage below 1 would show in alpha.
        EXPECT_EQ(frame.pixel(x, y).w(), 1.0f) << x << ' ' << y;
        const Vector3d expected = lit(hit, scene, sceneCamera);
        for (size_t i = 0; i < 3; ++i)
            largest = std::max(largest, std::abs(double(frame.at(x, y)[i]) - expected[i]));
    });
    EXPECT_LE(largest, tolerance);
}

TEST_F(TransparencyRenderPassTest, hidesWhatLiesBehindOpaqueSurfaces)
{
    const MaterialData opaque = coloured({0.3f, 0.3f, 0.3f}, 1);
    const MaterialData glass = coloured({0.9f, 0.1f, 0.1f}, 0.5f);
    for (const bool isDrawnFirst : {false, true}) {
        QVector<QPair<float, MaterialData>> walls = {{0.1f, opaque}, {-0.3f, glass}, {-0.4f, glass}};
        if (isDrawnFirst)
            std::reverse(walls.begin(), walls.end());
        const QVector4D hidden = drawWalls(walls);
        EXPECT_NEAR(hidden.x(), facing(0.3), 1e-5);
        EXPECT_EQ(hidden.w(), 1.0f);
        EXPECT_GT(drawWalls({{0.1f, opaque}, {0.3f, glass}}).x(), facing(0.3) + 0.1);
    }
}

TEST_F(TransparencyRenderPassTest, showsASurfaceAloneAsItsLightWhateverItsOpacity)
{
    for (const float d : {0.1f, 0.5f, 0.9f, 0.999f}) {
        const QVector4D pixel = drawWalls({{0, coloured({0.6f, 0.4f, 0.2f}, d)}});
        const double r = 1 - double(d);
        EXPECT_NEAR(double(pixel.x()), facing(0.6) + r * double(background.x()), 1e-5) << d;
        EXPECT_NEAR(double(pixel.y()), facing(0.4) + r * double(background.y()), 1e-5) << d;
        EXPECT_NEAR(double(pixel.w()), r * (1 - r) + r * double(background.w()), 1e-5) << d;
    }
}

TEST_F(TransparencyRenderPassTest, fragmentsWithoutOpacityAddTheirColourToTheSumAlone)
{
    const MaterialData clear = coloured({0.6f, 0.3f, 0.9f}, 0);
    // Alone: the lower clamp decides the mean, but with a revealage of 1 none of it shows.
    EXPECT_LE((drawWalls({{0, clear}}) - background).length(), 1e-6f);
    // In front of another layer: its colour is in the sum, while its opacity adds nothing to the divisor.
    const QVector4D both = drawWalls({{0.2f, clear}, {-0.2f, coloured({0.2f, 0.2f, 0.2f}, 0.5f)}});
    const double nearWeight = std::pow(0.4, -5);
    const double farWeight = std::pow(0.6, -5);
    const double mean = (facing(0.6) * nearWeight + facing(0.2) * farWeight) / (0.5 * farWeight);
    EXPECT_NEAR(double(both.x()), mean * 0.5 + double(background.x()) * 0.5, 1e-4 * mean);
}

TEST_F(TransparencyRenderPassTest, clampsTheDivisorAlone)
{
    // At a depth of 0.05 the weight is 3.2 million: the upper clamp applies to the divisor, not to the sum.
    const double weight = std::pow(0.05, -5);
    const QVector4D bright = drawWalls({{0.9f, coloured({0.3f, 0.3f, 0.3f}, 0.5f)}});
    const double expected = facing(0.3) * weight / 5e4 * 0.5;
    EXPECT_NEAR(double(bright.y()), expected + 0.5 * double(background.y()), 1e-3 * expected);
    // With an opacity of a millionth the lower clamp applies to the divisor.
    const double faint = 1e-6;
    const QVector4D dim = drawWalls({{-1.0f + 1e-3f, coloured({0.6f, 0.6f, 0.6f}, float(faint))}});
    EXPECT_NEAR(double(dim.x()), facing(0.6) / 1e-4 * faint + double(background.x()), 2e-3);
    EXPECT_LT(double(dim.x()), facing(0.6) * 0.5 + double(background.x())) << "without the clamp it would be its light";
}

TEST_F(TransparencyRenderPassTest, takesAnOpacityAboveOneAsOpaque)
{
    const QVector4D pixel = drawWalls({{0, coloured({0.6f, 0.6f, 0.6f}, 1.5f)}, {-0.5f, coloured({1, 1, 1}, 0.5f)}});
    EXPECT_NEAR(double(pixel.x()), facing(0.6), 1e-5);
    EXPECT_EQ(pixel.w(), 1.5f);
}

TEST_F(TransparencyRenderPassTest, clearsWithoutAModelAndDoesNotResolve)
{
    setViewport(QSize(7, 5));
    glBlendFunc(GL_ONE, GL_DST_COLOR);
    GLCallRecorder<&epoxy_glDrawArrays> arrays;
    GLCallRecorder<&epoxy_glDrawElements> elements;
    GLCallRecorder<&epoxy_glClear> clears;
    pass->start(nullptr);
    EXPECT_TRUE(arrays.calls.empty());
    EXPECT_TRUE(elements.calls.empty());
    ASSERT_EQ(clears.calls.size(), 2u);
    EXPECT_EQ(std::get<0>(clears.calls[0]), GLbitfield(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT));
    EXPECT_EQ(std::get<0>(clears.calls[1]), GLbitfield(GL_COLOR_BUFFER_BIT));
    EXPECT_EQ(glInteger(GL_BLEND_SRC_RGB), GL_ONE);
    EXPECT_EQ(glInteger(GL_BLEND_DST_RGB), GL_DST_COLOR);
    const Image frame = image(Port::Frame);
    const Image depth = image(Port::Depth);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 7; ++x) {
            EXPECT_EQ(frame.pixel(x, y), background);
            EXPECT_EQ(*depth.at(x, y), 1.0f);
        }
    }
    GLfloat color[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, color);
    EXPECT_EQ(std::vector<GLfloat>(color, color + 4), std::vector<GLfloat>(4, 0.0f));
}

TEST_F(TransparencyRenderPassTest, makesAWhiteTexelOnItsFirstFrame)
{
    setViewport(QSize(7, 5));
    QVector<GLuint> names;
    {
        GLCallRecorder<&epoxy_glTexImage2D> uploads;
        uploads.onCall = [&](GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height, GLint,
                             GLenum format, GLenum type, const void *bits) {
            if (width != 1 || height != 1)
                return;
            EXPECT_EQ(target, GLenum(GL_TEXTURE_2D));
            EXPECT_EQ(level, 0);
            EXPECT_EQ(internalFormat, GL_RGBA);
            EXPECT_EQ(format, GLenum(GL_BGRA));
            EXPECT_EQ(type, GLenum(GL_UNSIGNED_BYTE));
            EXPECT_EQ(QByteArray(static_cast<const char *>(bits), 4), QByteArray(4, '\xff'));
            names.append(GLuint(glInteger(GL_TEXTURE_BINDING_2D)));
        };
        pass->start(nullptr);
        pass->start(nullptr);
    }
    ASSERT_EQ(names.size(), 1) << "once";

    glBindTexture(GL_TEXTURE_2D, names[0]);
    const auto level = [](GLenum name) {
        GLint value = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, name, &value);
        return value;
    };
    EXPECT_EQ(level(GL_TEXTURE_WIDTH), 1);
    EXPECT_EQ(level(GL_TEXTURE_HEIGHT), 1);
    for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
        GLint value = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, filter, &value);
        EXPECT_EQ(value, GL_NEAREST);
    }
    std::array<unsigned char, 4> texel = {};
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, texel.data());
    EXPECT_EQ(texel, (std::array<unsigned char, 4>{255, 255, 255, 255}));
    glBindTexture(GL_TEXTURE_2D, 0);
    pass.reset();
    EXPECT_FALSE(glIsTexture(names[0]));
}

TEST_F(TransparencyRenderPassTest, leavesTheClearColourBlackAndTheBlendFunctionOfTheResolve)
{
    RayCastScene scene;
    scene.add(wallMesh(), coloured({1, 1, 1}, 0.5f));
    const QSharedPointer<GPUModel> model = scene.build();
    setModel(model);
    pass->setInput(Port::Viewport, QRect(20, 30, 12, 10));
    glViewport(2, 3, 5, 4);
    for (const bool isEnabled : {false, true}) {
        glClearColor(0, 0, 1, 0.25f);
        glBlendFunc(GL_DST_COLOR, GL_ZERO);
        for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND})
            isEnabled ? glEnable(capability) : glDisable(capability);
        GLCallRecorder<&epoxy_glViewport> viewports;
        GLCallRecorder<&epoxy_glBlendFuncSeparate> separate;
        GLCallRecorder<&epoxy_glDepthMask> masks;
        pass->start(nullptr);
        EXPECT_TRUE(viewports.calls.empty());
        ASSERT_EQ(separate.calls.size(), 1u);
        EXPECT_EQ(separate.calls[0],
            (std::tuple<GLenum, GLenum, GLenum, GLenum>(GL_ONE, GL_ONE, GL_ZERO, GL_ONE_MINUS_SRC_ALPHA)));
        ASSERT_GE(masks.calls.size(), 2u);
        EXPECT_EQ(std::get<0>(masks.calls.front()), GLboolean(GL_FALSE));
        EXPECT_EQ(std::get<0>(masks.calls.back()), GLboolean(GL_TRUE));
        for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND})
            EXPECT_EQ(glFlag(capability), isEnabled);
    }
    for (const GLenum source : {GL_BLEND_SRC_RGB, GL_BLEND_SRC_ALPHA})
        EXPECT_EQ(glInteger(source), GL_ONE_MINUS_SRC_ALPHA);
    for (const GLenum destination : {GL_BLEND_DST_RGB, GL_BLEND_DST_ALPHA})
        EXPECT_EQ(glInteger(destination), GL_SRC_ALPHA);
    GLfloat color[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, color);
    EXPECT_EQ(std::vector<GLfloat>(color, color + 4), std::vector<GLfloat>(4, 0.0f));
    EXPECT_EQ(glInteger(GL_DEPTH_WRITEMASK), GL_TRUE);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    // The pass cleared everything and drew within the viewport that GL had.
    const Image frame = image(Port::Frame);
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 12; ++x)
            EXPECT_EQ(frame.pixel(x, y) == QVector4D(0, 0, 1, 0.25f), !(x >= 2 && x < 7 && y >= 3 && y < 7))
                << x << ' ' << y;
    }
}

TEST_F(TransparencyRenderPassTest, remakesItsTargetsWhenTheSizeChanges)
{
    // Glass everywhere, and a wall that hides it in front of the left half.
    RayCastScene scene;
    scene.add(wallMesh(), coloured({0.6f, 0.6f, 0.6f}, 0.5f));
    scene.add(wallMesh(), coloured({0.3f, 0.3f, 0.3f}, 1), placed({-0.5f, 0, 0.4f}, 0, {0.5f, 1, 1}));
    const QSharedPointer<GPUModel> model = scene.build();
    QMatrix4x4 projection;
    projection.ortho(-1, 1, -1, 1, -1, 1);
    const auto drawAt = [&](const QSize &size) { return draw(model, size, QMatrix4x4(), projection); };
    drawAt(QSize(8, 6));
    const GLObjectCounts counts = glObjectCounts();
    QPointer<Texture> frame = texture(Port::Frame);
    QPointer<Texture> depth = texture(Port::Depth);
    EXPECT_EQ(frame->internalFormat(0), GL_RGBA32F);
    EXPECT_EQ(depth->internalFormat(0), GL_DEPTH_COMPONENT32F);
    for (Texture *const target : {frame.data(), depth.data()}) {
        AutoBinder binder(target);
        for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
            GLint value = 0;
            glGetTexParameteriv(GL_TEXTURE_2D, filter, &value);
            EXPECT_EQ(value, GL_NEAREST);
        }
    }
    drawAt(QSize(8, 6));
    EXPECT_EQ(texture(Port::Frame), frame);
    // The width changes alone, then the height.
    for (const QSize &size : {QSize(10, 6), QSize(10, 9)}) {
        SCOPED_TRACE(::testing::Message() << size.width() << " by " << size.height());
        const Image larger = drawAt(size);
        EXPECT_TRUE(frame.isNull());
        EXPECT_TRUE(depth.isNull());
        frame = texture(Port::Frame);
        depth = texture(Port::Depth);
        for (const Texture *const target : {frame.data(), depth.data()})
            EXPECT_EQ(QSize(target->width(0), target->height(0)), size);
        EXPECT_TRUE(glObjectCounts() == counts);
        // The accumulation uses the new depth: the wall hides the glass behind it, and everything else is as before.
        for (int y = 0; y < size.height(); ++y) {
            EXPECT_NEAR(double(larger.pixel(2, y).x()), facing(0.3), 1e-5);
            EXPECT_EQ(larger.pixel(2, y).w(), 1.0f);
            EXPECT_NEAR(double(larger.pixel(7, y).x()), facing(0.6) + 0.5 * double(background.x()), 1e-5);
        }
        auto resized = std::move(pass);
        pass = std::make_unique<TransparencyRenderPass>();
        EXPECT_EQ(maximumDifference(larger, drawAt(size)), 0);
        pass = std::move(resized);
    }
}

TEST_F(TransparencyRenderPassTest, publishesNullWithoutAViewport)
{
    for (const bool hasModel : {false, true}) {
        RayCastScene scene;
        scene.add(wallMesh(), coloured({0.6f, 0.6f, 0.6f}, 0.5f));
        const QSharedPointer<GPUModel> model = scene.build();
        if (hasModel)
            setModel(model);
        pass->start(nullptr);
        for (const int output : {Port::Frame, Port::Depth}) {
            EXPECT_EQ(pass->output(output).userType(), qMetaTypeId<Texture *>());
            EXPECT_EQ(texture(output), nullptr);
        }
        // A framebuffer without texels cannot be cleared.
        EXPECT_EQ(takeGLErrors(), QVector<unsigned int>{GL_INVALID_FRAMEBUFFER_OPERATION});
        pass->setInput(Port::Geometry, QVariant());
    }
}

TEST_F(TransparencyRenderPassTest, countsNoReferencesReadsNoImageAndSkipClearsTheOutputs)
{
    PooledTextures pool;
    Texture *const unread = pool.take(TextureFormat::HighDynamicRange, 2, 2, 3);
    pass->setInput(Port::SourceTexture, QVariant::fromValue(unread));
    const QVector4D with = drawWalls({{0, coloured({0.6f, 0.4f, 0.2f}, 0.5f)}});
    EXPECT_EQ(PooledTextures::references(unread), 3);
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), -1) << "it is not the pool's";
    pass->skip(nullptr);
    EXPECT_EQ(PooledTextures::references(unread), 2);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_FALSE(pass->output(Port::Depth).isValid());
    pass->setInput(Port::SourceTexture, QVariant());
    EXPECT_EQ(drawWalls({{0, coloured({0.6f, 0.4f, 0.2f}, 0.5f)}}), with);
}

TEST_F(TransparencyRenderPassTest, takesItsObjectsAlong)
{
    setViewport(QSize(4, 4));
    pass->start(nullptr); // Creates what the device keeps.
    const GLObjectCounts before = glObjectCounts();
    {
        TransparencyRenderPass other;
        other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().textures, before.textures + 5) << "four targets and one that is bound nowhere";
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 2);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 3);
        other.teardown(nullptr);
        other.teardownContextData(nullptr);
    }
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
