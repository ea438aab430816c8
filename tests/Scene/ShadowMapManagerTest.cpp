// SPDX-License-Identifier: MIT
#include "SceneFixtures.h"

#include <Scene/ShadowMapManager.h>

#include <QtCore/QVariantList>
#include <QtGui/QVector4D>

#include <cmath>
#include <functional>
#include <limits>
#include <random>

namespace Velmora::Kvz {

namespace {

using Bounds = QPair<QVector3D, QVector3D>;
using Light = ShadowMapManager::Light;
using RenderData = ShadowMapManager::RenderData;

/// The position of a point in a layer, in normalised device coordinates.
QVector3D shown(const RenderData &data, int layer, const QVector3D &point)
{
    QMatrix4x4 matrix(data.transforms[layer].matrix);
    return (matrix.transposed() * QVector4D(point, 1)).toVector3DAffine();
}

bool isInside(const QVector3D &ndc)
{
    return std::abs(ndc.x()) <= 1 && std::abs(ndc.y()) <= 1 && ndc.z() > 0 && ndc.z() <= 1;
}

bool isNear(const QVector3D &a, const QVector3D &b, float tolerance = 1e-4f)
{
    return (a - b).length() < tolerance;
}

QVariantList listOf(const QVector<Light *> &lights)
{
    QVariantList list;
    for (Light *light : lights)
        list.append(QVariant::fromValue(light));
    return list;
}

QVector3D corner(const Bounds &bounds, int number)
{
    return {number & 1 ? bounds.second.x() : bounds.first.x(), number & 2 ? bounds.second.y() : bounds.first.y(),
        number & 4 ? bounds.second.z() : bounds.first.z()};
}

class ShadowMapManagerTest : public GLTest
{
protected:
    ShadowMapManagerTest()
    {
        projection.perspective(60, 1.5f, 0.1f, 200);
        camera.lookAt({0, 5, 20}, {0, 0, 0}, {0, 1, 0});
    }

    /// The point at clip-space x and y and this distance along the camera's view.
    QVector3D viewPoint(float x, float y, float distance) const
    {
        const float height = distance * std::tan(30 * float(M_PI) / 180);
        return camera.inverted() * QVector3D(x * 1.5f * height, y * height, -distance);
    }

    QMatrix4x4 projection;
    QMatrix4x4 camera;
    RenderData data;
    const Bounds bounds{{-10, 0, -10}, {10, 8, 10}};
};

TEST_F(ShadowMapManagerTest, directionalLightWithoutCameraCoversTheBounds)
{
    Light light;
    light.direction = {0, -3, 0};
    light.depthBias = 0.125f;
    ShadowMapManager::processLights(listOf({&light}), data, nullptr, nullptr, &bounds);
    ASSERT_EQ(data.layerCount, 1);
    ASSERT_EQ(data.transforms.size(), 1);
    ASSERT_EQ(data.projectors.size(), 1);
    EXPECT_EQ(data.projectors[0].firstLayer, 0);
    EXPECT_EQ(data.projectors[0].layerCount, 1);
    EXPECT_EQ(data.depthBiases, QVector<float>({0.125f}));
    for (int i = 0; i < 8; ++i) {
        const QVector3D ndc = shown(data, 0, corner(bounds, i));
        EXPECT_TRUE(isInside(ndc)) << i;
        EXPECT_GT(std::abs(ndc.x()), 0.95f); // The map shows no more than that.
        EXPECT_GT(std::abs(ndc.y()), 0.95f);
    }
    // Depth increases along the light, linearly, and begins above 0.
    const float top = shown(data, 0, {0, 8, 0}).z();
    const float middle = shown(data, 0, {0, 4, 0}).z();
    const float bottom = shown(data, 0, {0, 0, 0}).z();
    EXPECT_GT(top, 0);
    EXPECT_LT(top, 0.02f);
    EXPECT_NEAR(middle, 0.5f, 1e-4f);
    EXPECT_GT(bottom, 0.98f);
    EXPECT_LT(bottom, 1);
}

TEST_F(ShadowMapManagerTest, directionalLightWithNothingCoversTheUnitCube)
{
    Light light;
    light.direction = {1, -2, 0.5f};
    const QMatrix4x4 singular(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    struct Case
    {
        const QMatrix4x4 *projection;
        const QMatrix4x4 *camera;
    };
    for (const Case &c : {Case{nullptr, nullptr}, Case{&projection, nullptr}, Case{nullptr, &camera},
             Case{&singular, &camera}, Case{&projection, &singular}}) {
        ShadowMapManager::processLights(listOf({&light}), data, c.projection, c.camera, nullptr);
        ASSERT_EQ(data.layerCount, 1);
        for (int i = 0; i < 8; ++i)
            EXPECT_TRUE(isInside(shown(data, 0, corner({{-1, -1, -1}, {1, 1, 1}}, i))));
        EXPECT_FALSE(isInside(shown(data, 0, {3, 0, 0})));
    }
}

TEST_F(ShadowMapManagerTest, cascadesCoverTheViewAndTheCasters)
{
    const QVector<QVector3D> directions{{0, -1, 0}, {1, -1, 0.5f}, {0, -0.001f, 1}, {0.3f, 1, 0}};
    for (const QVector3D &direction : directions) {
        Light light;
        light.direction = direction;
        light.cascades = 4;
        ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &bounds);
        ASSERT_EQ(data.layerCount, 4);
        ASSERT_EQ(data.depthBiases.size(), 4);
        EXPECT_EQ(data.projectors[0].layerCount, 4);

        // Every visible point within the bounds is in some layer.
        for (float x = -1; x <= 1; x += 0.25f) {
            for (float y = -1; y <= 1; y += 0.25f) {
                for (float distance = 1; distance < 60; distance += 1.5f) {
                    const QVector3D point = viewPoint(x, y, distance);
                    if (point.x() < -10 || point.x() > 10 || point.y() < 0 || point.y() > 8 || point.z() < -10
                        || point.z() > 10)
                        continue;
                    bool isCovered = false;
                    for (int layer = 0; layer < 4; ++layer)
                        isCovered |= isInside(shown(data, layer, point));
                    EXPECT_TRUE(isCovered) << x << ' ' << y << ' ' << distance;
                }
            }
        }
        // Every possible caster lies within the depth range of every layer.
        for (int layer = 0; layer < 4; ++layer) {
            for (int i = 0; i < 8; ++i) {
                const float depth = shown(data, layer, corner(bounds, i)).z();
                EXPECT_GT(depth, 0);
                EXPECT_LT(depth, 1);
            }
        }
        // Depth increases along the light.
        const QVector3D step = direction.normalized();
        EXPECT_GT(shown(data, 0, step).z(), shown(data, 0, QVector3D()).z());
    }
}

TEST_F(ShadowMapManagerTest, nearCascadesAreFiner)
{
    Light light;
    light.direction = {0.2f, -1, 0.1f};
    light.cascades = 3;
    const Bounds wide{{-500, 0, -500}, {500, 20, 500}};
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &wide);
    float previous = 0;
    for (int layer = 0; layer < 3; ++layer) {
        const float scale = 1 / (shown(data, layer, {1, 0, 0}) - shown(data, layer, {0, 0, 0})).length();
        EXPECT_GT(scale, 1.2f * previous);
        previous = scale;
    }
}

/// By how many texels of a map of 512 by 512 a point of the world has moved relative to the grid of texels.
double swimming(const QVector3D &before, const QVector3D &now)
{
    double worst = 0;
    for (int axis = 0; axis < 2; ++axis) {
        const double shift = (double(now[axis]) - double(before[axis])) * 256;
        worst = std::max(worst, std::abs(shift - std::round(shift)));
    }
    return worst;
}

/// World units per texel of a map of 512 by 512.
float texelOf(const RenderData &data, int layer)
{
    const QVector3D axes[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    float square = 0;
    for (const QVector3D &axis : axes) {
        const float x = shown(data, layer, axis).x() - shown(data, layer, {}).x();
        square += x * x;
    }
    return 1 / (256 * std::sqrt(square));
}

TEST_F(ShadowMapManagerTest, cascadesDoNotShimmerWhileTheCameraMovesAndTurns)
{
    Light light;
    light.direction = {0.4f, -1, 0.3f};
    light.cascades = 3;
    const Bounds wide{{-500, -1, -500}, {500, 5, 500}}; // The view ends before the scene does.
    struct Path
    {
        const char *name;
        const Bounds *bounds;
        std::function<QMatrix4x4(float)> camera; ///< From 0 to 1.
    };
    const auto look = [](const QVector3D &eye, const QVector3D &center) {
        QMatrix4x4 matrix;
        matrix.lookAt(eye, center, {0, 1, 0});
        return matrix;
    };
    const QVector3D center(0, 4, 0); // The centre of `bounds`.
    const Path paths[] = {
        {"walking in a wide scene", &wide,
            [&](float t) {
                return look({10 * t, 5, 20 - 7 * t}, {10 * t, 0, -7 * t});
            }},
        {"looking around in a wide scene", &wide,
            [&](float t) {
                return look({0, 5, 20}, QVector3D(std::sin(6 * t), 5 - t, 20 - std::cos(6 * t)));
            }},
        {"going around a small scene", &bounds,
            [&](float t) { return look(center + QVector3D(25 * std::sin(6 * t), 3, 25 * std::cos(6 * t)), center); }},
        {"looking around beside a small scene", &bounds,
            [&](float t) {
                return look({0, 5, 20}, QVector3D(std::sin(t), 5 - t, 20 - std::cos(t)));
            }},
        {"looking around without bounds", nullptr,
            [&](float t) {
                return look({0, 5, 20}, QVector3D(std::sin(6 * t), 5 - t, 20 - std::cos(6 * t)));
            }},
    };
    for (const Path &path : paths) {
        SCOPED_TRACE(path.name);
        QVector<QVector3D> before;
        QVector<float> texels;
        double moved = 0;
        for (int step = 0; step <= 200; ++step) {
            const QMatrix4x4 view = path.camera(float(step) / 200);
            ShadowMapManager::processLights(listOf({&light}), data, &projection, &view, path.bounds);
            ASSERT_EQ(data.layerCount, 3);
            for (int layer = 0; layer < 3; ++layer) {
                const QVector3D point = shown(data, layer, {1, 0, 2});
                if (step == 0) {
                    before.append(point);
                    texels.append(texelOf(data, layer));
                    continue;
                }
                // The texel keeps its size but for the last bits, and the point its position within it.
                ASSERT_NEAR(texelOf(data, layer) / texels[layer], 1, 1e-4) << layer << ' ' << step;
                ASSERT_LT(swimming(before[layer], point), 0.02) << layer << ' ' << step;
                moved = std::max(moved, double((point - before[layer]).length()) * 256);
            }
        }
        // The maps must have moved on the first path, otherwise it shows nothing. A small scene fits into one map,
        // which stays.
        if (path.bounds != &bounds) {
            EXPECT_GT(moved, 20);
        }
    }
}

TEST_F(ShadowMapManagerTest, stepsAreWholeTexelsOfOtherMapSizesToo)
{
    Light light;
    light.direction = {0.4f, -1, 0.3f};
    light.cascades = 1;
    const Bounds wide{{-500, -1, -500}, {500, 5, 500}};
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &wide);
    const QVector3D before = shown(data, 0, {1, 0, 2});
    for (int step = 1; step <= 50; ++step) {
        QMatrix4x4 moved = camera;
        moved.translate(0.13f * float(step), 0, 0.29f * float(step));
        ShadowMapManager::processLights(listOf({&light}), data, &projection, &moved, &wide);
        const QVector3D now = shown(data, 0, {1, 0, 2});
        for (const int size : {64, 192, 256, 640, 1024}) {
            for (int axis = 0; axis < 2; ++axis) {
                const double shift = (double(now[axis]) - double(before[axis])) * size / 2;
                EXPECT_NEAR(shift, std::round(shift), 0.04) << size << ' ' << step;
            }
        }
    }
}

TEST_F(ShadowMapManagerTest, cascadesGrowInFewStepsWhileTheCameraBacksAway)
{
    Light light;
    light.direction = {0.4f, -1, 0.3f};
    light.cascades = 3;
    const Bounds broad{{-40, 0, -40}, {40, 8, 40}};
    int changes = 0;
    float last = 0;
    for (int step = 0; step <= 400; ++step) {
        QMatrix4x4 view;
        view.lookAt({0, 8, 20 + 0.1f * float(step)}, {0, 4, 0}, {0, 1, 0});
        ShadowMapManager::processLights(listOf({&light}), data, &projection, &view, &broad);
        const float texel = texelOf(data, 0);
        if (step > 0 && std::abs(texel / last - 1) > 1e-4f) {
            ++changes;
            EXPECT_NEAR(std::abs(std::log2(texel / last)) * 8, std::round(std::abs(std::log2(texel / last)) * 8), 0.01);
        }
        last = texel;
    }
    // 400 positions give a handful of sizes.
    EXPECT_GE(changes, 2);
    EXPECT_LE(changes, 12);
}

TEST_F(ShadowMapManagerTest, cascadesAreNoWiderThanTheirSlicesAndTheScene)
{
    Light light;
    light.direction = {0.4f, -1, 0.3f};
    light.cascades = 4;
    const Bounds wide{{-500, -1, -500}, {500, 5, 500}};
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &wide);
    // A slice is at most as wide as the sphere through its far corners, plus one step of size and one of position.
    const float slack = 1.0906f * 1.02f;
    const float openness = std::sqrt(1 + 1.5f * 1.5f) * std::tan(30 * float(M_PI) / 180);
    const float reach = 200 * std::sqrt(1 + openness * openness);
    EXPECT_LT(texelOf(data, 3) * 256, reach * slack);
    // The first slice takes an eighth of the view by the share that is split by distance; the share split by logarithm
    // takes far less.
    EXPECT_LT(texelOf(data, 0) * 256, reach * slack * 0.15f);
    // Seen as a whole from far away, the scene makes no cascade wider than itself.
    QMatrix4x4 away;
    away.lookAt({0, 20, 80}, {0, 4, 0}, {0, 1, 0});
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &away, &bounds);
    const float sphere = QVector3D(10, 4, 10).length();
    for (int layer = 0; layer < 4; ++layer)
        EXPECT_LT(texelOf(data, layer) * 256, sphere * slack) << layer;
}

TEST_F(ShadowMapManagerTest, whateverShowsIsCoveredFromAnywhere)
{
    std::mt19937 random(11);
    const auto between = [&random](float low, float high) {
        return std::uniform_real_distribution<float>(low, high)(random);
    };
    const auto anywhere = [&](float reach) {
        return QVector3D(between(-reach, reach), between(-reach, reach), between(-reach, reach));
    };
    int points = 0;
    for (int config = 0; config < 300; ++config) {
        const float size = std::exp2(between(-6, 8));
        const QVector3D center = anywhere(3 * size);
        const QVector3D half(between(0.01f, 1) * size, between(0.01f, 1) * size, between(0.01f, 1) * size);
        const Bounds box{center - half, center + half};
        // Cameras inside the scene, beside it and far away, looking at it or past it.
        const QVector3D eye = center + anywhere(std::exp2(between(-2, 3)) * size);
        QMatrix4x4 view;
        view.lookAt(eye, center + anywhere(size), anywhere(1));
        QMatrix4x4 lens;
        if (config % 4 == 0)
            lens.ortho(-size, between(0.1f, 2) * size, -size, size, -size, 9 * size);
        else if (config % 4 == 1) // As in tiled or shifted pictures.
            lens.frustum(-0.01f * size, 0.03f * size, 0.005f * size, 0.02f * size, 0.02f * size, 20 * size);
        else
            lens.perspective(between(5, 150), between(0.3f, 3), 0.001f * size, 20 * size);
        Light light;
        light.direction = anywhere(1);
        light.cascades = 1 + config % 5;
        ShadowMapManager::processLights(listOf({&light}), data, &lens, &view, &box);
        ASSERT_EQ(data.layerCount, light.cascades);
        for (int i = 0; i < 200; ++i) {
            const QVector3D point = center + QVector3D(between(-1, 1), between(-1, 1), between(-1, 1)) * half;
            const QVector4D clip = lens * view * QVector4D(point, 1);
            if (std::max({std::abs(clip.x()), std::abs(clip.y()), std::abs(clip.z())}) > clip.w())
                continue;
            ++points;
            bool isCovered = false;
            for (int layer = 0; layer < data.layerCount; ++layer) {
                const QVector3D ndc = shown(data, layer, point);
                isCovered |= isInside(ndc);
                ASSERT_GT(ndc.z(), 0) << config;
                ASSERT_LT(ndc.z(), 1) << config;
            }
            ASSERT_TRUE(isCovered) << config << ' ' << i;
        }
    }
    EXPECT_GT(points, 3000);
}

TEST_F(ShadowMapManagerTest, endlessCamerasAreServed)
{
    Light light;
    light.direction = {0.4f, -1, 0.3f};
    // The limit of a perspective whose far plane goes to infinity, with normal and with reversed depth.
    const float f = 1 / std::tan(30 * float(M_PI) / 180);
    const QMatrix4x4 endless(f / 1.5f, 0, 0, 0, 0, f, 0, 0, 0, 0, -1, -0.2f, 0, 0, -1, 0);
    const QMatrix4x4 reversed(f / 1.5f, 0, 0, 0, 0, f, 0, 0, 0, 0, 1, 0.2f, 0, 0, -1, 0);
    for (const QMatrix4x4 *matrix : {&endless, &reversed}) {
        for (const Bounds *box : {&bounds, static_cast<const Bounds *>(nullptr)}) {
            ShadowMapManager::processLights(listOf({&light}), data, matrix, &camera, box);
            ASSERT_EQ(data.layerCount, 3);
            for (const QVector3D &point : {QVector3D(0, 0, 0), QVector3D(5, 2, 5), QVector3D(-5, 1, -8)}) {
                bool isCovered = false;
                for (int layer = 0; layer < 3; ++layer)
                    isCovered |= isInside(shown(data, layer, point));
                EXPECT_TRUE(isCovered) << (box ? "with" : "without") << " bounds";
            }
        }
    }
}

TEST_F(ShadowMapManagerTest, cascadesWithoutBoundsCoverTheWholeView)
{
    Light light;
    light.direction = {1, -1, 0};
    light.cascades = 3;
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, nullptr);
    ASSERT_EQ(data.layerCount, 3);
    for (const float distance : {0.11f, 1.0f, 30.0f, 100.0f, 199.0f}) {
        for (int i = 0; i < 4; ++i) {
            const QVector3D point = viewPoint(i & 1 ? 1 : -1, i & 2 ? 1 : -1, distance);
            bool isCovered = false;
            for (int layer = 0; layer < 3; ++layer)
                isCovered |= isInside(shown(data, layer, point));
            EXPECT_TRUE(isCovered) << distance << ' ' << i;
        }
    }
}

TEST_F(ShadowMapManagerTest, parallelAndReversedCamerasAreServed)
{
    Light light;
    light.direction = {0.5f, -1, 0.2f};
    QMatrix4x4 parallel;
    parallel.ortho(-15, 15, -10, 10, 0.1f, 50);
    QMatrix4x4 reverse;
    reverse.scale(1, 1, -1);
    const QMatrix4x4 reversed = reverse * projection;
    for (const QMatrix4x4 &view : {parallel, reversed}) {
        ShadowMapManager::processLights(listOf({&light}), data, &view, &camera, &bounds);
        ASSERT_EQ(data.layerCount, 3);
        for (const QVector3D &point : {QVector3D(0, 0, 0), QVector3D(5, 2, 5), QVector3D(-5, 1, -8)}) {
            bool isCovered = false;
            for (int layer = 0; layer < 3; ++layer)
                isCovered |= isInside(shown(data, layer, point));
            EXPECT_TRUE(isCovered);
        }
    }
}

TEST_F(ShadowMapManagerTest, fewerThanOneCascadeCountsAsOne)
{
    Light light;
    for (const int cascades : {1, 0, -3}) {
        light.cascades = cascades;
        ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &bounds);
        EXPECT_EQ(data.layerCount, 1);
    }
}

TEST_F(ShadowMapManagerTest, flatBoundsKeepAThickness)
{
    Light light;
    light.direction = {0, -1, 0};
    const Bounds flat{{-5, 2, -5}, {5, 2, 5}};
    for (const bool withCamera : {false, true}) {
        ShadowMapManager::processLights(listOf({&light}), data, withCamera ? &projection : nullptr, &camera, &flat);
        EXPECT_GT(data.layerCount, 0);
        for (int layer = 0; layer < data.layerCount; ++layer) {
            const float depth = shown(data, layer, {0, 2, 0}).z();
            EXPECT_GT(depth, 0.1f);
            EXPECT_LT(depth, 0.9f);
        }
    }
}

TEST_F(ShadowMapManagerTest, spotLightIsOnePyramid)
{
    Light light;
    light.type = Light::Spot;
    light.position = {1, 10, 2};
    light.direction = {0, -2, 0};
    light.coneAngle = 90;
    light.range = 50;
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, nullptr);
    ASSERT_EQ(data.layerCount, 1);
    EXPECT_EQ(data.depthBiases, QVector<float>({light.depthBias}));
    EXPECT_TRUE(isNear(shown(data, 0, {1, 10 - 50, 2}), {0, 0, 1}));
    EXPECT_TRUE(isNear(shown(data, 0, {1, 10 - 1, 2}), {0, 0, 0})); // A fiftieth of the range.
    EXPECT_GT(shown(data, 0, {1, 10 - 1.1f, 2}).z(), 0);
    // The edge lies 45 degrees to the side, at any distance.
    for (const float distance : {1.0f, 10.0f, 40.0f}) {
        const QVector3D edge = shown(data, 0, {1 + distance, 10 - distance, 2});
        EXPECT_NEAR(std::max(std::abs(edge.x()), std::abs(edge.y())), 1, 1e-4f);
        EXPECT_NEAR(std::min(std::abs(edge.x()), std::abs(edge.y())), 0, 1e-4f);
    }
    EXPECT_GT(shown(data, 0, {1, -10, 2}).z(), shown(data, 0, {1, 0, 2}).z());
}

TEST_F(ShadowMapManagerTest, pointLightHasTheFacesOfACubeMap)
{
    Light light;
    light.type = Light::Point;
    light.position = {3, 4, 5};
    light.range = 20;
    ShadowMapManager::processLights(listOf({&light}), data, nullptr, nullptr, nullptr);
    ASSERT_EQ(data.layerCount, 6);
    EXPECT_EQ(data.projectors[0].layerCount, 6);
    // The axis of each face, its right and its up direction.
    const QVector3D faces[6][3] = {
        {{1, 0, 0}, {0, 0, -1}, {0, -1, 0}},
        {{-1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
        {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}},
        {{0, -1, 0}, {1, 0, 0}, {0, 0, -1}},
        {{0, 0, 1}, {1, 0, 0}, {0, -1, 0}},
        {{0, 0, -1}, {-1, 0, 0}, {0, -1, 0}},
    };
    for (int face = 0; face < 6; ++face) {
        const QVector3D axis = faces[face][0];
        EXPECT_TRUE(isNear(shown(data, face, light.position + 20 * axis), {0, 0, 1})) << face;
        EXPECT_TRUE(isNear(shown(data, face, light.position + 0.4f * axis), {0, 0, 0})) << face;
        const QVector3D right = shown(data, face, light.position + 10 * (axis + 0.5f * faces[face][1]));
        EXPECT_TRUE(isNear(right, {0.5f, 0, right.z()})) << face;
        const QVector3D top = shown(data, face, light.position + 10 * (axis + 0.5f * faces[face][2]));
        EXPECT_TRUE(isNear(top, {0, 0.5f, top.z()})) << face;
    }
    // Every direction falls into exactly one face.
    for (int i = 0; i < 200; ++i) {
        const float longitude = float(i) * 2.39996f;
        const float y = -0.995f + float(i) * 0.00995f;
        const float across = std::sqrt(1 - y * y);
        const QVector3D point =
            light.position + 5 * QVector3D(across * std::cos(longitude), y, across * std::sin(longitude));
        int faceCount = 0;
        for (int face = 0; face < 6; ++face)
            faceCount += isInside(shown(data, face, point));
        EXPECT_EQ(faceCount, 1) << i;
    }
}

TEST_F(ShadowMapManagerTest, depthsOfSpotAndPointLightsFitTheScene)
{
    struct Case
    {
        const char *name;
        Light::Type type;
        QVector3D position;
        float range;
    };
    const Case cases[] = {
        {"a spot above the scene", Light::Spot, {1, 30, 2}, 100},
        {"a spot within", Light::Spot, {1, 7, 2}, 100},
        {"a lamp within", Light::Point, {1, 4, 2}, 100},
        {"a lamp on the floor", Light::Point, {0, 0, 0}, 100},
        {"a lamp beside the scene", Light::Point, {60, 4, 2}, 100},
        {"a spot of short range", Light::Spot, {1, 30, 2}, 25},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Light light;
        light.type = c.type;
        light.position = c.position;
        light.direction = {0.1f, -1, 0.05f};
        light.coneAngle = 80;
        light.range = c.range;
        ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &bounds);
        // Every point of the scene that is in range and visible in a layer lies within its depth range, except those
        // nearer to the light than a fiftieth of its range.
        float lowest = 1;
        float highest = 0;
        for (int i = 0; i < 21 * 17 * 21; ++i) {
            const QVector3D point(float(i % 21) - 10, float(i / 21 % 17) / 2, float(i / 357) - 10);
            for (int layer = 0; layer < data.layerCount; ++layer) {
                const QMatrix4x4 matrix = QMatrix4x4(data.transforms[layer].matrix).transposed();
                const QVector4D clip = matrix * QVector4D(point, 1);
                const QVector3D ndc = clip.toVector3DAffine();
                if (clip.w() <= 0 || std::abs(ndc.x()) > 1 || std::abs(ndc.y()) > 1
                    || (point - c.position).length() > c.range || clip.w() < 0.022f * 100)
                    continue;
                EXPECT_GT(ndc.z(), 0) << point.x() << ' ' << point.y() << ' ' << point.z();
                EXPECT_LT(ndc.z(), 1) << point.x() << ' ' << point.y() << ' ' << point.z();
                lowest = std::min(lowest, ndc.z());
                highest = std::max(highest, ndc.z());
            }
        }
        EXPECT_GT(highest, 0.9f);
        if (c.position.y() > 10) {
            EXPECT_LT(lowest, 0.25f);
        }
    }
}

TEST_F(ShadowMapManagerTest, lightsThatDoNotMeetTheSceneKeepTheirLayers)
{
    Light spot;
    spot.type = Light::Spot;
    spot.position = {0, 50, 0};
    spot.direction = {0, 1, 0}; // Away from the scene.
    spot.range = 30;
    Light lamp;
    lamp.type = Light::Point;
    lamp.position = {500, 0, 0};
    lamp.range = 20;
    ShadowMapManager::processLights(listOf({&spot, &lamp}), data, &projection, &camera, &bounds);
    ASSERT_EQ(data.layerCount, 7);
    EXPECT_TRUE(isNear(shown(data, 0, {0, 80, 0}), {0, 0, 1}));
    EXPECT_TRUE(isNear(shown(data, 1, {520, 0, 0}), {0, 0, 1}));
}

TEST_F(ShadowMapManagerTest, degenerateBoundsGiveUsableLayers)
{
    const float large = std::numeric_limits<float>::max();
    const float nan = std::nanf("");
    struct Case
    {
        const char *name;
        Bounds bounds;
    };
    const Case cases[] = {
        {"a point", {{1, 2, 3}, {1, 2, 3}}},
        {"the point of an empty model", {{0, 0, 0}, {0, 0, 0}}},
        {"a line", {{-5, 2, 3}, {5, 2, 3}}},
        {"a floor", {{-5, 0, -5}, {5, 0, 5}}},
        {"a wall", {{-5, 0, 2}, {5, 4, 2}}},
        {"reversed corners", {{5, 4, 5}, {-5, 0, -5}}},
        {"bounds of nothing", {{large, large, large}, {-large, -large, -large}}},
        {"no number", {{nan, nan, nan}, {1, 1, 1}}},
        {"endless", {{-INFINITY, 0, 0}, {1, 1, 1}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto type : {Light::Directional, Light::Spot, Light::Point}) {
            for (const bool withCamera : {false, true}) {
                Light light;
                light.type = type;
                light.position = {1, 20, 2};
                light.direction = {0, -1, 0};
                ShadowMapManager::processLights(listOf({&light}), data, withCamera ? &projection : nullptr,
                    withCamera ? &camera : nullptr, &c.bounds);
                ASSERT_GT(data.layerCount, 0);
                for (int layer = 0; layer < data.layerCount; ++layer) {
                    for (const float value : data.transforms[layer].matrix)
                        EXPECT_TRUE(std::isfinite(value)) << type << ' ' << layer;
                    EXPECT_NE(QMatrix4x4(data.transforms[layer].matrix).determinant(), 0) << type << ' ' << layer;
                }
                const bool isKnown = std::isfinite(c.bounds.second.x() - c.bounds.first.x());
                if (type == Light::Directional && isKnown) {
                    for (int i = 0; i < 8; ++i)
                        EXPECT_TRUE(isInside(shown(data, data.layerCount - 1, corner(c.bounds, i)))) << i;
                }
            }
        }
    }
}

TEST_F(ShadowMapManagerTest, aSceneIsShownAlikeAtAnyScale)
{
    // At a power of two all numbers are as exact. The scene is flat from one side, so that a thickness is added too.
    const auto layersAt = [&](float scale) {
        Light sun, flatSun, spot, point;
        sun.direction = {0.4f, -1, 0.3f};
        sun.cascades = 3;
        flatSun.direction = {1, 0, 0};
        flatSun.cascades = 1;
        for (Light *light : {&spot, &point}) {
            light->position = QVector3D(17, 9, 13) * scale;
            light->direction = {-0.7f, -0.4f, -0.6f};
            light->range = 60 * scale;
        }
        spot.type = Light::Spot;
        point.type = Light::Point;
        QMatrix4x4 scaledProjection;
        scaledProjection.perspective(60, 1.5f, 0.1f * scale, 200 * scale);
        QMatrix4x4 scaledCamera = camera;
        scaledCamera.setColumn(3, QVector4D(camera.column(3).toVector3D() * scale, 1));
        const Bounds scaled{QVector3D(-10, 0, -10) * scale, QVector3D(-10, 8, 10) * scale};
        RenderData layers;
        ShadowMapManager::processLights(
            listOf({&sun, &flatSun, &spot, &point}), layers, &scaledProjection, &scaledCamera, &scaled);
        QVector<QVector3D> places;
        for (int layer = 0; layer < layers.layerCount; ++layer)
            for (const QVector3D &place : {QVector3D(-10, 1, 3), QVector3D(-10, 7, -9), QVector3D(-10, 0, 0)})
                places.append(shown(layers, layer, place * scale));
        return places;
    };
    const QVector<QVector3D> expected = layersAt(1);
    EXPECT_EQ(expected.size(), 3 * (3 + 1 + 1 + 6));
    for (const float scale : {1.0f / 1024, 1024.0f, 65536.0f}) {
        const QVector<QVector3D> found = layersAt(scale);
        ASSERT_EQ(found.size(), expected.size());
        for (int i = 0; i < found.size(); ++i)
            EXPECT_LT((found[i] - expected[i]).length(), 1e-6f * (1 + expected[i].length())) << i << ' ' << scale;
    }
}

TEST_F(ShadowMapManagerTest, projectorsFollowTheLightsThatTheListHolds)
{
    Light sun;
    Light spot;
    spot.type = Light::Spot;
    const QVariantList lights{
        QVariant::fromValue<Light *>(nullptr), QVariant::fromValue(&spot), 5, QVariant::fromValue<QObject *>(&sun)};
    EXPECT_EQ(ShadowMapManager::lightsIn(lights), (QVector<Light *>{&spot, &sun}));
    ShadowMapManager::processLights(lights, data, nullptr, nullptr, nullptr);
    ASSERT_EQ(data.projectors.size(), 2);
    EXPECT_EQ(data.projectors[1].firstLayer, 1);
    EXPECT_TRUE(ShadowMapManager::lightsIn(5).isEmpty());
}

TEST_F(ShadowMapManagerTest, cascadesAreLimited)
{
    Light light;
    light.cascades = 2000000000;
    ShadowMapManager::processLights(listOf({&light}), data, &projection, &camera, &bounds);
    EXPECT_EQ(data.layerCount, 16);
}

TEST_F(ShadowMapManagerTest, lightsTakeConsecutiveLayers)
{
    Light sun;
    sun.cascades = 2;
    Light spot;
    spot.type = Light::Spot;
    spot.depthBias = 0.5f;
    Light lamp;
    lamp.type = Light::Point;
    ShadowMapManager::processLights(listOf({&spot, &lamp, &sun}), data, &projection, &camera, &bounds);
    EXPECT_EQ(data.layerCount, 9);
    ASSERT_EQ(data.projectors.size(), 3);
    EXPECT_EQ(data.transforms.size(), 9);
    ASSERT_EQ(data.depthBiases.size(), 9);
    const int expected[3][2] = {{0, 1}, {1, 6}, {7, 2}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(data.projectors[i].firstLayer, expected[i][0]);
        EXPECT_EQ(data.projectors[i].layerCount, expected[i][1]);
    }
    EXPECT_EQ(data.depthBiases[0], 0.5f);
    EXPECT_EQ(data.depthBiases[1], lamp.depthBias);
}

TEST_F(ShadowMapManagerTest, listsOfEveryKindAndWhatIsLeftOut)
{
    Light light;
    light.type = Light::Spot;
    QObject stranger;
    const auto layersOf = [this](const QVariant &lights) {
        ShadowMapManager::processLights(lights, data, nullptr, nullptr, nullptr);
        EXPECT_EQ(data.transforms.size(), data.layerCount);
        EXPECT_EQ(data.projectors.size(), data.layerCount);
        return data.layerCount;
    };
    EXPECT_EQ(layersOf(QVariant::fromValue(&light)), 1);
    EXPECT_EQ(layersOf(QVariant::fromValue<QObject *>(&light)), 1);
    EXPECT_EQ(layersOf(QVariantList{QVariant::fromValue<QObject *>(&light), QVariant::fromValue(&light)}), 2);
    EXPECT_EQ(layersOf(QVariant::fromValue(QList<QObject *>{&light, &light, &light})), 3);
    EXPECT_EQ(layersOf(QVariantList{QVariant::fromValue<Light *>(nullptr), QVariant::fromValue<QObject *>(nullptr),
                  QVariant(), 5, QStringLiteral("light"), QVariant::fromValue(&stranger), QVariant::fromValue(&light)}),
        1);
    EXPECT_EQ(layersOf(QVariant()), 0);
    EXPECT_EQ(layersOf(QVariantList()), 0);
    EXPECT_EQ(layersOf(5), 0);
    EXPECT_EQ(layersOf(QStringLiteral("light")), 0);
    EXPECT_EQ(layersOf(QVariant::fromValue<QObject *>(nullptr)), 0);
    EXPECT_TRUE(data.depthBiases.isEmpty());
}

TEST_F(ShadowMapManagerTest, senselessValuesFallBackToDefaults)
{
    Light light;
    Light defaults;
    RenderData expected;
    const auto expectDefault = [&] {
        defaults.type = light.type;
        ShadowMapManager::processLights(listOf({&light}), data, nullptr, nullptr, &bounds);
        ShadowMapManager::processLights(listOf({&defaults}), expected, nullptr, nullptr, &bounds);
        ASSERT_EQ(data.layerCount, expected.layerCount);
        for (int i = 0; i < 16; ++i)
            EXPECT_EQ(data.transforms[0].matrix[i], expected.transforms[0].matrix[i]);
        light.direction = defaults.direction;
        light.range = defaults.range;
        light.coneAngle = defaults.coneAngle;
    };
    const float nan = std::nanf("");
    for (const QVector3D &direction : {QVector3D(), QVector3D(nan, 0, 0)}) {
        light.direction = direction;
        expectDefault();
    }
    light.type = Light::Spot;
    for (const float range : {0.0f, -1.0f, nan, INFINITY}) {
        light.range = range;
        expectDefault();
    }
    for (const float angle : {0.0f, -10.0f, 180.0f, 400.0f, nan}) {
        light.coneAngle = angle;
        expectDefault();
    }
}

TEST_F(ShadowMapManagerTest, boundsThatAreNotFiniteCountAsNone)
{
    Light light;
    const Bounds bad{{std::nanf(""), 0, 0}, {1, 1, 1}};
    RenderData expected;
    ShadowMapManager::processLights(listOf({&light}), data, nullptr, nullptr, &bad);
    ShadowMapManager::processLights(listOf({&light}), expected, nullptr, nullptr, nullptr);
    EXPECT_TRUE(std::equal(data.transforms[0].matrix, data.transforms[0].matrix + 16, expected.transforms[0].matrix));
}

TEST_F(ShadowMapManagerTest, renderDataTravelsInVariants)
{
    EXPECT_STREQ(QVariant::fromValue(&data).typeName(), "Velmora::Kvz::ShadowMapManager::RenderData*");
    EXPECT_EQ(QVariant::fromValue<QObject *>(&data).value<RenderData *>(), &data);
    EXPECT_EQ(data.projectionTexture(), nullptr);
    Texture texture(nullptr);
    data.setProjectionTexture(&texture);
    Light light;
    ShadowMapManager::processLights(listOf({&light}), data, nullptr, nullptr, nullptr);
    EXPECT_EQ(data.projectionTexture(), &texture);
    data.setProjectionTexture(nullptr);
    EXPECT_EQ(light.property("coneAngle").toFloat(), 60.0f);
    EXPECT_TRUE(light.setProperty("cascades", 5));
    EXPECT_EQ(light.cascades, 5);
}

} // namespace

} // namespace Velmora::Kvz
