// SPDX-License-Identifier: MIT
// Shadows in a chain's picture compared with rays cast to the lights.
#include "support/Cameras.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"
#include "support/RayCastScene.h"

#include <Chain/ChainLibrary.h>
#include <Chain/LightDescription.h>
#include <Chain/RenderChain.h>
#include <Scene/GPUModel.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QtMath>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

const QSize size(320, 240);

/// Pixels to either side of a border between light and shadow that are left out: the penumbra. It is wider than the
/// filter of the maps (three texels of 1024) and the interpolation between texels (one more) appear on this scene's
/// floor.
constexpr int penumbra = 3;

/// The share of pixels outside the penumbra that may disagree.
constexpr double disagreement = 0.001;

QMatrix4x4 placed(const QVector3D &position, const QVector3D &scale, float turn = 0)
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.rotate(turn, 0, 1, 0);
    matrix.scale(scale);
    return matrix;
}

RayCastScene stage()
{
    RayCastScene scene;
    MaterialData grey;
    grey.ks = {0, 0, 0};
    scene.add(groundMesh(), grey, placed({0, 0, 0}, {4, 1, 4}));
    scene.add(boxMesh(), grey, placed({-1.2f, 0.6f, 0.3f}, {0.5f, 0.6f, 0.5f}, 30));
    scene.add(boxMesh(), grey, placed({1.1f, 0.5f, -0.6f}, {0.05f, 0.5f, 0.8f}, -20));
    scene.add(boxMesh(), grey, placed({0.2f, 1.6f, 0.2f}, {0.6f, 0.05f, 0.15f}, 50));
    scene.add(sphereMesh(6), grey, placed({0.6f, 0.45f, 1.2f}, {0.45f, 0.45f, 0.45f}));
    return scene;
}

class ShadowChainsTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        model = scene.build();
        ASSERT_TRUE(model);
        camera = lookAt({1.8f, 3.2f, 4.2f}, {0, 0.4f, 0.2f});
        projection = perspective(size, 1, 20);
    }

    void load(const char *name)
    {
        ChainDescription description;
        QString error;
        ASSERT_TRUE(loadChain(QString::fromUtf8(name), &description, &error)) << qPrintable(error);
        chain = std::make_unique<RenderChain>();
        ASSERT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        chain->setViewport(QRect(QPoint(0, 0), size));
        chain->setCamera(camera, projection);
        chain->setModel(model.data());
        chain->setFramebuffer(nullptr);
        ASSERT_TRUE(chain->setEnabled(QStringLiteral("screen"), false));
        const auto addExport = [this](const char *pass, const char *port) {
            ASSERT_TRUE(chain->addExport(QString::fromUtf8(pass), {QString::fromUtf8(pass), QString::fromUtf8(port)}))
                << qPrintable(chain->errorString());
        };
        addExport("mask", "Kvz_KvzTexture*_ShadowMask");
        addExport("shading", "Kvz_KvzTexture*_Frame");
        addExport("background", "Kvz_KvzTexture*_Frame");
        addExport("over", "Kvz_KvzTexture*_Frame");
    }

    /// The lit surfaces without shadows: what `deferred` shows, with a headlight or without.
    Image litWithoutShadows(bool hasHeadlight)
    {
        ChainDescription description;
        QString error;
        EXPECT_TRUE(loadChain(QStringLiteral("deferred"), &description, &error)) << qPrintable(error);
        RenderChain deferred;
        EXPECT_TRUE(deferred.setDescription(description)) << qPrintable(deferred.errorString());
        deferred.setViewport(QRect(QPoint(0, 0), size));
        deferred.setCamera(camera, projection);
        deferred.setModel(model.data());
        if (!hasHeadlight)
            deferred.setFrameValue(FrameValues::headlightIntensity, 0.0f);
        EXPECT_TRUE(deferred.setEnabled(QStringLiteral("screen"), false));
        return renderOutputs(&deferred, {{QStringLiteral("shading"), QStringLiteral("Kvz_KvzTexture*_Frame")}})[0];
    }

    Image exported(const char *name)
    {
        Texture *const texture = chain->exportedTexture(QString::fromUtf8(name));
        EXPECT_NE(texture, nullptr) << name;
        return texture ? readTexture(texture) : Image(size.width(), size.height());
    }

    /// Whether light arrives where a ray through a pixel ends: 1 yes, 0 no, -1 nothing is there. A surface that gets
    /// less than a twentieth of the light counts as in shadow, since that is where the mask is at half.
    QVector<int> castShadows(const Light &light) const
    {
        const RayCaster rays(scene.items(), projection, camera, size);
        QVector<int> lit(size.width() * size.height(), -1);
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const RayHit hit = rays.cast(x + 0.5, y + 0.5);
                if (!hit.isGeometry())
                    continue;
                const Vector3d point = rays.pointOf(x + 0.5, y + 0.5, hit);
                const DoubleMatrix normalMatrix =
                    DoubleMatrix(scene.items()[hit.item].modelMatrix).inverted().transposed();
                const Vector3d normal = normalized(xyz(normalMatrix * withW(hit.normal, 0)));
                lit[y * size.width() + x] = isLit(rays, light, point, normal) ? 1 : 0;
            }
        }
        return lit;
    }

    static bool isLit(const RayCaster &rays, const Light &light, const Vector3d &point, const Vector3d &normal)
    {
        const Vector3d axis = normalized(toDouble(light.direction));
        Vector3d source = point - axis * 100;
        double strength = 1;
        if (light.type != Light::Directional) {
            source = toDouble(light.position);
            const Vector3d way = point - source;
            const double distance = std::sqrt(dot(way, way));
            strength = std::pow(std::clamp(1 - std::pow(distance / double(light.range), 4), 0.0, 1.0), 2);
            if (light.type == Light::Spot) {
                const double half = qDegreesToRadians(double(light.coneAngle)) / 2;
                const double outer = std::cos(half);
                const double t = (dot(way, axis) / distance - outer) / (std::cos(0.8 * half) - outer);
                const double s = std::clamp(t, 0.0, 1.0);
                strength *= s * s * (3 - 2 * s);
            }
        }
        strength *= dot(normal, normalized(source - point));
        return strength > 0.05 && !rays.isBlocked(point + normal * 1e-3, source);
    }

    /// Pixels of the scene without a border of light, shadow or scene within `penumbra` pixels.
    static QVector<bool> outsidePenumbra(const QVector<int> &lit)
    {
        QVector<bool> result(lit.size());
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const int here = lit[y * size.width() + x];
                bool isClear = here >= 0;
                for (int dy = -penumbra; dy <= penumbra && isClear; ++dy) {
                    for (int dx = -penumbra; dx <= penumbra && isClear; ++dx) {
                        const int column = x + dx;
                        const int row = y + dy;
                        if (column >= 0 && row >= 0 && column < size.width() && row < size.height())
                            isClear = lit[row * size.width() + column] == here;
                    }
                }
                result[y * size.width() + x] = isClear;
            }
        }
        return result;
    }

    void compareWithRays(const Light &light)
    {
        const QVector<int> lit = castShadows(light);
        const QVector<bool> clear = outsidePenumbra(lit);
        const Image open = litWithoutShadows(true);
        const Image ambient = litWithoutShadows(false);
        const struct
        {
            const char *name;
            int filter;
        } cases[] = {{"shadows", 3}, {"shadows", 1}, {"shadows", 2}, {"shadows", 0}, {"shadows-layered", 3},
            {"shadows-layered", 0}};
        for (const auto &c : cases) {
            const char *const name = c.name;
            SCOPED_TRACE(name);
            SCOPED_TRACE(c.filter);
            load(name);
            ASSERT_TRUE(chain->setValue(QStringLiteral("maps"), QStringLiteral("Kvz_int_FilterType"), c.filter));
            chain->setFrameValue(FrameValues::lights, QVariantList{QVariant::fromValue(const_cast<Light *>(&light))});
            ASSERT_TRUE(chain->setValue(QStringLiteral("mask"), QStringLiteral("Kvz_float_AmbientLight"), 0.0f));
            ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
            const Image mask = exported("mask");
            const Image shading = exported("shading");
            const Image picture = exported("over");
            const Image background = exported("background");
            saveForViewing(picture, QStringLiteral("%1-%2").arg(QString::fromUtf8(name)).arg(light.type));
            saveForViewing(mask, QStringLiteral("%1-%2-mask").arg(QString::fromUtf8(name)).arg(light.type));

            int compared = 0;
            int shadowed = 0;
            int wrong = 0;
            for (int y = 0; y < size.height(); ++y) {
                for (int x = 0; x < size.width(); ++x) {
                    // The mask takes from the headlight alone. Each image is rounded to 8 bits.
                    const QVector4D shaded = shading.pixel(x, y);
                    const float share = mask.pixel(x, y).x();
                    for (int channel = 0; channel < 3; ++channel) {
                        const float left = ambient.pixel(x, y)[channel];
                        EXPECT_NEAR(shaded[channel], left + share * (open.pixel(x, y)[channel] - left), 2.01 / 255);
                        EXPECT_NEAR(picture.pixel(x, y)[channel],
                            shaded[channel] + (1 - shaded.w()) * background.pixel(x, y)[channel], 0.004);
                    }
                    const int index = y * size.width() + x;
                    if (!clear[index])
                        continue;
                    ++compared;
                    shadowed += lit[index] == 0 ? 1 : 0;
                    wrong += (mask.pixel(x, y).x() > 0.5f) == (lit[index] == 1) ? 0 : 1;
                }
            }
            std::printf("[ COMPARED ] %s, filter %d: %d pixels, %d of them in shadow, %d disagree: %.3f percent\n",
                name, c.filter, compared, shadowed, wrong, 100.0 * wrong / compared);
            EXPECT_GE(compared, size.width() * size.height() / 4);
            EXPECT_GE(shadowed, 1000);
            EXPECT_LE(wrong, disagreement * compared);
        }
    }

    const RayCastScene scene = stage();
    QSharedPointer<GPUModel> model;
    QMatrix4x4 camera;
    QMatrix4x4 projection;
    std::unique_ptr<RenderChain> chain;
};

TEST_F(ShadowChainsTest, directionalShadowsAgreeWithRays)
{
    Light light;
    light.direction = {0.9f, -0.8f, 0.4f};
    compareWithRays(light);
}

TEST_F(ShadowChainsTest, spotShadowsAgreeWithRays)
{
    Light light;
    light.type = Light::Spot;
    light.position = {-2.5f, 4, 2};
    light.direction = {2.4f, -3.6f, -1.9f};
    light.coneAngle = 60;
    light.range = 20;
    compareWithRays(light);
}

TEST_F(ShadowChainsTest, pointShadowsAgreeWithRays)
{
    Light light;
    light.type = Light::Point;
    light.position = {-0.2f, 2.6f, 1.4f};
    light.range = 20;
    compareWithRays(light);
}

TEST_F(ShadowChainsTest, theTwoShadowPassesGiveTheSamePicture)
{
    Image first;
    for (const char *name : {"shadows", "shadows-layered"}) {
        load(name);
        ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        const Image picture = exported("over");
        saveForViewing(picture, QString::fromUtf8(name));
        if (first.width == 0) {
            first = picture;
            continue;
        }
        // Depths differ in their last bits, which shows where the bound is steep along a border.
        int different = 0;
        for (int i = 0; i < picture.data.size(); ++i)
            different += std::abs(picture.data[i] - first.data[i]) > 0.02f ? 1 : 0;
        EXPECT_LE(different, picture.data.size() / 500);
    }
}

TEST_F(ShadowChainsTest, lightsOfAChainFollowTheSceneUnlessTheHostSetsOthers)
{
    load("shadows");
    ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
    const Image own = exported("over");
    const auto lights = ShadowMapManager::lightsIn(chain->frameValue(FrameValues::lights));
    ASSERT_EQ(lights.size(), 3);
    EXPECT_EQ(lights[0]->type, Light::Directional);
    EXPECT_EQ(lights[1]->type, Light::Spot);
    EXPECT_EQ(lights[2]->type, Light::Point);
    const QVector3D before = lights[1]->position;
    // The spot light is 1.5 radii away from the centre.
    const auto bounds = model->sceneBounds();
    EXPECT_NEAR((before - (bounds.first + bounds.second) / 2).length(),
        1.5f * (bounds.second - bounds.first).length() / 2, 1e-3);

    chain->setFrameValue(FrameValues::sceneBoundsMin, QVector3D(-40, 0, -40));
    chain->setFrameValue(FrameValues::sceneBoundsMax, QVector3D(40, 2, 40));
    EXPECT_GT((ShadowMapManager::lightsIn(chain->frameValue(FrameValues::lights))[1]->position - before).length(), 20);
    chain->setFrameValue(FrameValues::sceneBoundsMin, QVariant());
    EXPECT_EQ(ShadowMapManager::lightsIn(chain->frameValue(FrameValues::lights)).size(), 3);
    chain->setFrameValue(FrameValues::sceneBoundsMax, QVariant());

    Light sun;
    chain->setFrameValue(FrameValues::lights, QVariantList{QVariant::fromValue(&sun)});
    ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
    EXPECT_NE(exported("over").data, own.data);
    EXPECT_EQ(ShadowMapManager::lightsIn(chain->frameValue(FrameValues::lights)), QVector<Light *>{&sun});
    // Once they are removed, the chain's lights come back.
    chain->setFrameValue(FrameValues::lights, QVariant());
    ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
    EXPECT_EQ(exported("over").data, own.data);
    // The same chain without lights has none.
    ChainDescription dark = chain->description();
    dark.lights.clear();
    ASSERT_TRUE(chain->setDescription(dark));
    EXPECT_FALSE(chain->frameValue(FrameValues::lights).isValid());
}

} // namespace

} // namespace Velmora::Kvz
