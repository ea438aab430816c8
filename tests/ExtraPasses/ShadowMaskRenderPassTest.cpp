// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/ShadowMaskRenderPass.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QtMath>
#include <QtGui/QVector2D>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;
using RenderData = ShadowMapManager::RenderData;

const QSize size(48, 36);
const QSize mapSize(24, 20);
constexpr float empty = 1e9f;

/// The moments of all layers, one layer after the other.
using Moments = QVector<float>;

std::unique_ptr<Texture> makeArray(const Moments &moments, int layers)
{
    auto texture = std::make_unique<Texture>(nullptr);
    texture->setTarget(GL_TEXTURE_2D_ARRAY);
    AutoBinder binder(texture.get());
    glTexImage3D(GL_TEXTURE_2D_ARRAY, 0, GL_RG32F, mapSize.width(), mapSize.height(), layers, 0, GL_RG, GL_FLOAT,
        moments.constData());
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    return texture;
}

/// The mask computed in doubles by the formulas in the class's documentation.
struct Reference
{
    QVector<Light *> lights;
    const RenderData *data;
    const Moments *moments;
    DoubleMatrix clipToWorld;
    DoubleMatrix cameraToWorldDirections; ///< Of a rigid camera.
    bool hasNormals = true;
    double reduction = 0.2;
    double ambient = 0.25;
    int cascade = -1;

    std::array<double, 2> texel(int layer, int x, int y, double depth) const
    {
        x = std::clamp(x, 0, mapSize.width() - 1);
        y = std::clamp(y, 0, mapSize.height() - 1);
        const int index = 2 * ((layer * mapSize.height() + y) * mapSize.width() + x);
        const double mean = double((*moments)[index]);
        if (mean > 1)
            return {depth, depth * depth};
        return {mean, double((*moments)[index + 1])};
    }

    double visibilityIn(int layer, const Vector3d &device) const
    {
        const double x = (device[0] / 2 + 0.5) * mapSize.width() - 0.5;
        const double y = (device[1] / 2 + 0.5) * mapSize.height() - 0.5;
        const int left = int(std::floor(x));
        const int bottom = int(std::floor(y));
        std::array<double, 2> mixed = {};
        for (int i = 0; i < 4; ++i) {
            const double weight = (i & 1 ? x - left : 1 - (x - left)) * (i & 2 ? y - bottom : 1 - (y - bottom));
            const auto sample = texel(layer, left + (i & 1), bottom + (i >> 1), device[2]);
            mixed[0] += weight * sample[0];
            mixed[1] += weight * sample[1];
        }
        if (device[2] <= mixed[0])
            return 1;
        const double variance = std::max(mixed[1] - mixed[0] * mixed[0], 1e-7);
        const double bound = variance / (variance + std::pow(device[2] - mixed[0], 2));
        return std::clamp((bound - reduction) / (1 - reduction), 0.0, 1.0);
    }

    /// Clip coordinates of the point 1.5 texels above a surface, without normals of the surface itself.
    Vector4d clip(int layer, const Vector3d &world, const Vector3d &normal) const
    {
        const QMatrix4x4 matrix = QMatrix4x4(data->transforms[layer].matrix).transposed();
        const Vector4d onSurface = DoubleMatrix(matrix) * withW(world, 1);
        const double texel = 2.0 / mapSize.width() * onSurface[3] / double(matrix.row(0).toVector3D().length());
        return hasNormals ? DoubleMatrix(matrix) * withW(world + normal * (1.5 * texel), 1) : onSurface;
    }

    static bool isShown(const Vector4d &clip)
    {
        return clip[3] > 0 && std::abs(clip[0]) <= clip[3] && std::abs(clip[1]) <= clip[3] && clip[2] > 0
            && clip[2] <= clip[3];
    }

    double visibility(int index, const Vector3d &world, const Vector3d &normal) const
    {
        const auto projector = data->projectors[index];
        const int end = projector.firstLayer + projector.layerCount;
        if (lights[index]->type == Light::Point) {
            // The face of the axis along which the point is farthest from the light.
            const Vector3d way = world - toDouble(lights[index]->position);
            int face = 0;
            for (int axis = 0; axis < 3; ++axis) {
                const auto along = [&](int other) { return std::abs(way[size_t(other)]); };
                if (along(axis) >= along((axis + 1) % 3) && along(axis) >= along((axis + 2) % 3))
                    face = 2 * axis + (way[size_t(axis)] < 0 ? 1 : 0);
            }
            const Vector4d c = clip(projector.firstLayer + face, world, normal);
            return isShown(c) ? visibilityIn(projector.firstLayer + face, xyz(c) * (1 / c[3])) : 1;
        }
        int first = projector.firstLayer;
        int last = end;
        if (lights[index]->type == Light::Directional && cascade >= 0) {
            first = std::min(first + cascade, end - 1);
            last = first + 1;
        }
        double result = 0;
        double left = 1;
        for (int layer = first; layer < last; ++layer) {
            const Vector4d c = clip(layer, world, normal);
            if (!isShown(c))
                continue;
            const Vector3d device = xyz(c) * (1 / c[3]);
            const double edge = 1 - std::max(std::abs(device[0]), std::abs(device[1]));
            const double part = layer == last - 1 ? 1 : std::clamp(edge / 0.1, 0.0, 1.0);
            result += left * part * visibilityIn(layer, device);
            left -= left * part;
        }
        return result + left;
    }

    double contribution(int index, const Vector3d &world, const Vector3d &normal) const
    {
        const Light &light = *lights[index];
        Vector3d toLight = normalized(toDouble(light.direction)) * -1;
        double strongest = 0;
        for (const Light *other : lights)
            strongest = std::max(strongest, double(other->intensity));
        double result = double(light.intensity) / strongest;
        if (light.type != Light::Directional) {
            const Vector3d way = toDouble(light.position) - world;
            const double distance = std::sqrt(dot(way, way));
            toLight = way * (1 / distance);
            result *= std::pow(std::clamp(1 - std::pow(distance / double(light.range), 4), 0.0, 1.0), 2);
        }
        if (light.type == Light::Spot) {
            const double half = qDegreesToRadians(double(light.coneAngle)) / 2;
            const double cosine = -dot(toLight, normalized(toDouble(light.direction)));
            const double outer = std::cos(half);
            const double t = std::clamp((cosine - outer) / (std::cos(0.8 * half) - outer), 0.0, 1.0);
            result *= t * t * (3 - 2 * t);
        }
        return hasNormals ? result * std::max(dot(normal, toLight), 0.0) : result;
    }

    double mask(double x, double y, double depth, const QVector3D &cameraNormal) const
    {
        if (depth >= 1)
            return 1;
        const Vector4d point = clipToWorld * Vector4d{2 * x - 1, 2 * y - 1, 2 * depth - 1, 1};
        const Vector3d world = xyz(point) * (1 / point[3]);
        const Vector3d normal = xyz(cameraToWorldDirections * withW(toDouble(cameraNormal), 0));
        double given = 0;
        double arriving = 0;
        for (int i = 0; i < lights.size(); ++i) {
            const double contributed = contribution(i, world, normal);
            given += contributed;
            arriving += contributed * (i < data->projectors.size() ? visibility(i, world, normal) : 1);
        }
        return ambient + (1 - ambient) * arriving / std::max(given, 0.1);
    }
};

class ShadowMaskRenderPassTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        camera = lookAt({4, 5, 9}, {0, 0.5f, 0});
        projection = perspective(size, 1, 30);
        sun.direction = {-0.4f, -1, -0.3f};
        sun.cascades = 3;
        sun.intensity = 0.8f;
        spot.type = Light::Spot;
        spot.position = {-3, 6, 2};
        spot.direction = {0.5f, -1, -0.3f};
        spot.coneAngle = 50;
        spot.range = 14;
        lamp.type = Light::Point;
        lamp.position = {0.5f, 1.5f, 1};
        lamp.range = 9;
        lamp.intensity = 0.5f;
        setUpImages();
    }

    /// A floor of 9 by 9 units, steps of several heights on it, and normals in all directions.
    void setUpImages()
    {
        depthImage = Image(size.width(), size.height(), 1);
        normalImage = Image(size.width(), size.height(), 4);
        const QMatrix4x4 toClip = projection * camera;
        const QMatrix4x4 toWorld = toClip.inverted();
        std::mt19937 random(7);
        std::uniform_real_distribution<float> lean(-0.6f, 0.6f);
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const QVector2D place(
                    2 * (float(x) + 0.5f) / float(size.width()) - 1, 2 * (float(y) + 0.5f) / float(size.height()) - 1);
                const QVector3D from = toWorld.map(QVector3D(place, -1));
                const QVector3D ray = toWorld.map(QVector3D(place, 1)) - from;
                const float height = 0.5f * float((x / 6 + y / 5) % 4);
                const QVector3D world = from + ray * ((height - from.y()) / ray.y());
                const bool isFloor = std::abs(world.x()) < 4.5f && std::abs(world.z()) < 4.5f;
                *depthImage.at(x, y) = isFloor ? toClip.map(world).z() / 2 + 0.5f : 1;
                const QVector3D upwards = QVector3D(lean(random), 1, lean(random)).normalized();
                normalImage.setPixel(x, y, QVector4D(camera.mapVector(upwards), 1));
            }
        }
        depth = makeTexture(depthImage, GL_DEPTH_COMPONENT32F);
        normal = makeTexture(normalImage, GL_RGBA32F);
    }

    /// Fills the lights' layers with moments of every kind: single surfaces, spread ones, and empty texels as both
    /// shadow passes leave them.
    void fillMaps(const QVector<Light *> &list)
    {
        lights = list;
        QVariantList variants;
        for (Light *light : lights)
            variants.append(QVariant::fromValue(light));
        lightList = variants;
        ShadowMapManager::processLights(lightList, data, &projection, &camera, &bounds);
        moments.clear();
        std::mt19937 random(3);
        std::uniform_real_distribution<float> part(0, 1);
        for (int i = 0; i < data.layerCount * mapSize.width() * mapSize.height(); ++i) {
            const float mean = 0.2f + 0.8f * part(random);
            const float kind = part(random);
            if (kind < 0.15f)
                moments << empty << (kind < 0.07f ? empty : empty * empty);
            else
                moments << mean << mean * mean + (kind < 0.5f ? 0 : 0.05f * part(random));
        }
        array = makeArray(moments, data.layerCount);
        data.setProjectionTexture(array.get());
    }

    /// Fills all layers with one surface at this depth.
    void fillMaps(const QVector<Light *> &list, float mean)
    {
        fillMaps(list);
        for (int i = 0; i < moments.size(); i += 2) {
            moments[i] = mean;
            moments[i + 1] = mean * mean;
        }
        array = makeArray(moments, data.layerCount);
        data.setProjectionTexture(array.get());
    }

    void setInputs(ShadowMaskRenderPass *pass, const QVariant &shadowData)
    {
        pass->setInput(ShadowMaskRenderPass::Viewport, QRect(QPoint(0, 0), size));
        pass->setInput(ShadowMaskRenderPass::ProjectionMatrix, projection);
        pass->setInput(ShadowMaskRenderPass::CameraMatrix, camera);
        pass->setInput(ShadowMaskRenderPass::Depth, QVariant::fromValue(depth.get()));
        pass->setInput(ShadowMaskRenderPass::Normal, QVariant::fromValue(normal.get()));
        pass->setInput(ShadowMaskRenderPass::Lights, lightList);
        pass->setInput(ShadowMaskRenderPass::ShadowMapData, shadowData);
        pass->setNumOutputUsers(ShadowMaskRenderPass::ShadowMask, 1);
    }

    /// Runs the pass and returns its mask.
    Image run(ShadowMaskRenderPass *pass)
    {
        pass->start(nullptr);
        auto *const mask = pass->output(ShadowMaskRenderPass::ShadowMask).value<Texture *>();
        const Image image = mask ? readTexture(mask) : Image();
        TextureManager::Instance()->releaseTempTextureRef(mask, 1);
        return image;
    }

    Image maskOf(const QVariant &shadowData)
    {
        ShadowMaskRenderPass pass;
        setInputs(&pass, shadowData);
        return run(&pass);
    }
    Image maskOf() { return maskOf(QVariant::fromValue(&data)); }

    Reference reference() const
    {
        Reference result;
        result.lights = lights;
        result.data = &data;
        result.moments = &moments;
        result.clipToWorld = (DoubleMatrix(projection) * DoubleMatrix(camera)).inverted();
        result.cameraToWorldDirections = DoubleMatrix(camera).inverted();
        return result;
    }

    /// Compares a mask with the reference. Half a step of 8 bits is 0.002; the rest is single precision, magnified by a
    /// variance of 1e-7. A point on the border of a layer or face may fall on either side: one pixel in 200.
    void expectMask(const Image &mask, const Reference &expected, double leastSpread = 0.3)
    {
        ASSERT_EQ(mask.width, size.width());
        ASSERT_EQ(mask.height, size.height());
        int wrong = 0;
        double low = 1;
        double high = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const double value = expected.mask((x + 0.5) / size.width(), (y + 0.5) / size.height(),
                    double(*depthImage.at(x, y)), normalImage.pixel(x, y).toVector3D());
                const QVector4D found = mask.pixel(x, y);
                EXPECT_EQ(found.x(), found.y());
                EXPECT_EQ(found.x(), found.z());
                EXPECT_EQ(found.w(), 1);
                low = std::min(low, value);
                high = std::max(high, value);
                if (std::abs(double(found.x()) - value) > 0.006 && ++wrong <= 5)
                    std::printf("at %d %d: expected %.4f, found %.4f\n", x, y, value, double(found.x()));
            }
        }
        EXPECT_LE(wrong, size.width() * size.height() / 200);
        EXPECT_GE(high - low, leastSpread) << "the mask shows too little";
    }

    QMatrix4x4 camera;
    QMatrix4x4 projection;
    const QPair<QVector3D, QVector3D> bounds{{-5, -0.5f, -5}, {5, 3, 5}};
    Light sun;
    Light spot;
    Light lamp;
    QVector<Light *> lights;
    QVariant lightList;
    RenderData data;
    Moments moments;
    std::unique_ptr<Texture> array;
    Image depthImage;
    Image normalImage;
    std::unique_ptr<Texture> depth;
    std::unique_ptr<Texture> normal;
};

TEST_F(ShadowMaskRenderPassTest, eachLightAloneMatchesTheReference)
{
    for (Light *light : {&sun, &spot, &lamp}) {
        SCOPED_TRACE(light->type);
        fillMaps({light});
        const Image mask = maskOf();
        saveForViewing(mask, QStringLiteral("shadow-mask-%1").arg(light->type));
        expectMask(mask, reference());
    }
}

TEST_F(ShadowMaskRenderPassTest, lightsTogetherMatchTheReferenceInBothFormsOfTheData)
{
    fillMaps({&spot, &lamp, &sun});
    const Image mask = maskOf(QVariant::fromValue(&data));
    saveForViewing(mask, QStringLiteral("shadow-mask"));
    expectMask(mask, reference());
    const QVariant asObject = QVariant::fromValue<QObject *>(&data);
    ASSERT_EQ(asObject.userType(), int(QMetaType::QObjectStar));
    EXPECT_EQ(maximumDifference(maskOf(asObject), mask), 0);
}

TEST_F(ShadowMaskRenderPassTest, valuesOfInputsMatchTheReference)
{
    fillMaps({&spot, &lamp, &sun});
    for (const float reduction : {0.0f, 0.5f}) {
        for (const float ambient : {0.0f, 0.6f}) {
            for (const int cascade : {0, 1, 7}) {
                SCOPED_TRACE(cascade);
                ShadowMaskRenderPass pass;
                setInputs(&pass, QVariant::fromValue(&data));
                pass.setInput(ShadowMaskRenderPass::LightBleedingReduction, reduction);
                pass.setInput(ShadowMaskRenderPass::AmbientLight, ambient);
                pass.setInput(ShadowMaskRenderPass::Cascade, cascade);
                Reference expected = reference();
                expected.reduction = double(reduction);
                expected.ambient = double(ambient);
                expected.cascade = cascade;
                expectMask(run(&pass), expected, 0.15);
            }
        }
    }
}

TEST_F(ShadowMaskRenderPassTest, withoutNormalsEverySurfaceFacesEveryLight)
{
    fillMaps({&spot, &lamp, &sun});
    ShadowMaskRenderPass pass;
    setInputs(&pass, QVariant::fromValue(&data));
    pass.setInput(ShadowMaskRenderPass::Normal, QVariant());
    Reference expected = reference();
    expected.hasNormals = false;
    expectMask(run(&pass), expected);
}

TEST_F(ShadowMaskRenderPassTest, surfacesBeforeAndBehindTheOccluder)
{
    // An occluder farther than everything hides nothing; one nearer than everything leaves only the ambient light.
    fillMaps({&sun}, 1);
    const Image lit = maskOf();
    fillMaps({&sun}, 1e-6f);
    const Image dark = maskOf();
    fillMaps({&sun}, empty);
    const Image none = maskOf();
    int floor = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            EXPECT_EQ(lit.pixel(x, y).x(), 1) << x << ' ' << y;
            EXPECT_EQ(none.pixel(x, y).x(), 1) << x << ' ' << y;
            // Beside the floor there is nothing to hide.
            const bool isFloor = *depthImage.at(x, y) < 1;
            floor += isFloor ? 1 : 0;
            EXPECT_NEAR(dark.pixel(x, y).x(), isFloor ? 0.25 : 1, 0.003) << x << ' ' << y;
        }
    }
    EXPECT_GT(floor, size.width() * size.height() / 4);
    EXPECT_LT(floor, size.width() * size.height());
}

TEST_F(ShadowMaskRenderPassTest, withoutDataLightsFallOffAndHideNothing)
{
    fillMaps({&spot});
    const RenderData nothing;
    data.setProjectionTexture(nullptr);
    const Image withoutTexture = maskOf();
    const Image withoutData = maskOf(QVariant());
    const Image strange = maskOf(QStringLiteral("data"));
    EXPECT_EQ(maximumDifference(withoutTexture, withoutData), 0);
    EXPECT_EQ(maximumDifference(withoutTexture, strange), 0);
    Reference expected = reference();
    expected.data = &nothing;
    expectMask(withoutData, expected);
}

TEST_F(ShadowMaskRenderPassTest, lightsBeyondTheDataHideNothing)
{
    // As after adding a light while the shadow pass is told that nothing changed.
    fillMaps({&sun});
    lights = {&sun, &lamp};
    lightList = QVariantList{QVariant::fromValue(&sun), QVariant::fromValue(&lamp)};
    expectMask(maskOf(), reference());
}

TEST_F(ShadowMaskRenderPassTest, withoutLightsTheMaskIsOne)
{
    fillMaps({&sun}, 1e-6f);
    const Image white = filled(size.width(), size.height(), {1, 1, 1, 1});
    for (const QVariant &list : {QVariant(), QVariant(QVariantList()), QVariant(5)}) {
        lightList = list;
        EXPECT_EQ(maximumDifference(maskOf(), white), 0);
    }
    // With lights of intensity 0 everything is in shadow.
    sun.intensity = 0;
    lightList = QVariant::fromValue(&sun);
    EXPECT_NEAR(maskOf().pixel(20, 20).x(), 0.25, 0.003);
}

TEST_F(ShadowMaskRenderPassTest, senselessValuesAreTaken)
{
    fillMaps({&spot});
    const Image usual = maskOf();
    const float nan = std::nanf("");
    spot.intensity = nan;
    EXPECT_EQ(maximumDifference(maskOf(), usual), 0);
    spot.intensity = -3;
    EXPECT_EQ(maximumDifference(maskOf(), usual), 0);
    spot.intensity = 1;
    ShadowMaskRenderPass pass;
    setInputs(&pass, QVariant::fromValue(&data));
    pass.setInput(ShadowMaskRenderPass::LightBleedingReduction, 5.0f);
    pass.setInput(ShadowMaskRenderPass::AmbientLight, 7.0f);
    const Image white = filled(size.width(), size.height(), {1, 1, 1, 1});
    EXPECT_EQ(maximumDifference(run(&pass), white), 0);
}

TEST_F(ShadowMaskRenderPassTest, referencesAndStateAfterStart)
{
    fillMaps({&sun});
    const int before = PooledTextures::allReferences();
    PooledTextures pool;
    Texture *const pooledNormal = pool.take(TextureFormat::HighDynamicRange, normalImage, 2);
    ShadowMaskRenderPass pass;
    setInputs(&pass, QVariant::fromValue(&data));
    pass.setInput(ShadowMaskRenderPass::Normal, QVariant::fromValue(pooledNormal));
    pass.setNumOutputUsers(ShadowMaskRenderPass::ShadowMask, 3);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glViewport(1, 2, 3, 4);
    pass.start(nullptr);
    auto *const mask = pass.output(ShadowMaskRenderPass::ShadowMask).value<Texture *>();
    ASSERT_NE(mask, nullptr);
    EXPECT_EQ(mask->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(PooledTextures::references(mask), 3);
    EXPECT_EQ(PooledTextures::references(pooledNormal), 1);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    TextureManager::Instance()->releaseTempTextureRef(mask, 3);
    EXPECT_EQ(PooledTextures::allReferences(), before + 1);
}

TEST_F(ShadowMaskRenderPassTest, withoutDepthThereIsNoMaskAndTheNormalsAreGivenBack)
{
    fillMaps({&sun});
    PooledTextures pool;
    Texture *const pooledNormal = pool.take(TextureFormat::HighDynamicRange, normalImage, 2);
    ShadowMaskRenderPass pass;
    setInputs(&pass, QVariant::fromValue(&data));
    pass.setInput(ShadowMaskRenderPass::Depth, QVariant());
    pass.setInput(ShadowMaskRenderPass::Normal, QVariant::fromValue(pooledNormal));
    pass.start(nullptr);
    EXPECT_FALSE(pass.output(ShadowMaskRenderPass::ShadowMask).isValid());
    EXPECT_EQ(PooledTextures::references(pooledNormal), 1);
}

TEST_F(ShadowMaskRenderPassTest, skipGivesTheImagesBack)
{
    fillMaps({&sun});
    PooledTextures pool;
    Texture *const pooledNormal = pool.take(TextureFormat::HighDynamicRange, normalImage, 2);
    ShadowMaskRenderPass pass;
    setInputs(&pass, QVariant::fromValue(&data));
    pass.setInput(ShadowMaskRenderPass::Normal, QVariant::fromValue(pooledNormal));
    pass.skip(nullptr);
    EXPECT_FALSE(pass.output(ShadowMaskRenderPass::ShadowMask).isValid());
    EXPECT_EQ(PooledTextures::references(pooledNormal), 1);
}

TEST_F(ShadowMaskRenderPassTest, aPassWorksOnAfterTeardownAndAfterOtherLights)
{
    fillMaps({&spot, &lamp, &sun});
    ShadowMaskRenderPass pass;
    setInputs(&pass, QVariant::fromValue(&data));
    const Image first = run(&pass);
    EXPECT_EQ(maximumDifference(run(&pass), first), 0);
    pass.teardownContextData(nullptr);
    EXPECT_EQ(maximumDifference(run(&pass), first), 0);
    // Fewer rows, then as many as before.
    fillMaps({&sun});
    setInputs(&pass, QVariant::fromValue(&data));
    expectMask(run(&pass), reference());
    fillMaps({&spot, &lamp, &sun});
    setInputs(&pass, QVariant::fromValue(&data));
    EXPECT_EQ(maximumDifference(run(&pass), first), 0);
    pass.teardownContextData(nullptr); // Leaves nothing for the destructor.
}

} // namespace

} // namespace Velmora::Kvz
