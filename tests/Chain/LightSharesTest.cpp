// SPDX-License-Identifier: MIT
// What shadows and corners take in the ready chains: from light that falls on surfaces, never from their own.
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"
#include "support/RayCastScene.h"

#include <Chain/ChainLibrary.h>
#include <Scene/ShadowMapManager.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

const QSize size(160, 120);
const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");
const ChainOutput shading{QStringLiteral("shading"), frame};
const ChainOutput mask{QStringLiteral("mask"), QStringLiteral("Kvz_KvzTexture*_ShadowMask")};
const ChainOutput obscurance{QStringLiteral("blur-y"), QStringLiteral("Kvz_KvzTexture*_Obscurance")};

/// The colour of what shines by itself and of what is unlit.
const QVector3D own(0.2f, 0.6f, 0.4f);

/// What the mask of these chains leaves where no light arrives.
constexpr float shadeOfMask = 0.3f;

QMatrix4x4 placed(const QVector3D &position, const QVector3D &scale)
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.scale(scale);
    return matrix;
}

MaterialData matte(const QVector3D &kd)
{
    MaterialData material;
    material.kd = kd;
    material.ks = {};
    return material;
}

enum Item { Ground, BackWall, SideWall, Emissive, Unlit };

/// A corner of two walls on a ground that reaches far beyond them. Two tiles lie where all three meet.
RayCastScene corner()
{
    const MaterialData grey = matte({0.8f, 0.8f, 0.8f});
    MaterialData emissive = matte({});
    emissive.emission = own;
    MaterialData unlit = matte(own);
    unlit.isUnlit = true;
    RayCastScene scene;
    scene.add(groundMesh(), grey, placed({0, 0, 0}, {3, 1, 3}));
    scene.add(boxMesh(), grey, placed({0.4f, 0.6f, -0.6f}, {0.6f, 0.6f, 0.05f}));
    scene.add(boxMesh(), grey, placed({-0.25f, 0.6f, 0}, {0.05f, 0.6f, 0.65f}));
    scene.add(groundMesh(), emissive, placed({-0.05f, 0.005f, -0.4f}, {0.14f, 1, 0.14f}));
    scene.add(groundMesh(), unlit, placed({0.3f, 0.005f, -0.4f}, {0.14f, 1, 0.14f}));
    return scene;
}

ChainDescription ready(const QString &name)
{
    ChainDescription description;
    QString error;
    EXPECT_TRUE(loadChain(name, &description, &error)) << qPrintable(error);
    for (ChainPass &pass : description.passes) {
        pass.connections.remove(QStringLiteral("Kvz_KvzTexture*_Background")); // Another one in each chain.
        if (pass.className.startsWith(QLatin1String("ShadowMap")) && pass.name == QLatin1String("maps"))
            pass.values[QStringLiteral("Kvz_QSize_MapSize")] = QSize(256, 256); // Fast to draw.
    }
    // The references are cast without jitter.
    const int jitter = description.findPass(QStringLiteral("jitter"));
    if (jitter >= 0)
        description.passes.removeAt(jitter);
    return description;
}

} // namespace

class LightSharesTest : public GLTest, public testing::WithParamInterface<std::string>
{
protected:
    const QString chainName = QString::fromStdString(GetParam());
    const bool hasShadows = chainName != QLatin1String("ambient-obscurance");
    const bool hasObscurance = chainName == QLatin1String("ambient-obscurance") || chainName == QLatin1String("full");

    void SetUp() override
    {
        GLTest::SetUp();
        model = scene.build();
        // From behind both walls, so that the corner lies in their shadow.
        light.direction = {0.5f, -0.7f, 0.6f};
        view.hasEye = true;
        view.eye = {1.3f, 1.9f, 2.1f};
        view.hasTarget = true;
        view.target = {0.1f, 0.1f, -0.1f};
    }

    std::unique_ptr<ModelChain> load(const QString &name)
    {
        auto chain = std::make_unique<ModelChain>(ready(name), model, size);
        if (hasShadows && name != QLatin1String("deferred"))
            chain->chain.setFrameValue(FrameValues::lights, QVariantList{QVariant::fromValue(&light)});
        chain->look(view);
        chain->render(); // In the first frame the normals do not yet have the filters that the blur sets.
        return chain;
    }

    /// Calls `compare` for the pixels whose neighbours show the same item.
    static void inside(const RayCaster &rays, const std::function<void(int x, int y, const RayHit &hit)> &compare)
    {
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const RayHit hit = rays.cast(x + 0.5, y + 0.5);
                bool isInside = hit.isGeometry();
                for (const QPoint &step : {QPoint(1, 0), QPoint(-1, 0), QPoint(0, 1), QPoint(0, -1)})
                    isInside = isInside && rays.cast(x + 0.5 + step.x(), y + 0.5 + step.y()).item == hit.item;
                if (isInside)
                    compare(x, y, hit);
            }
        }
    }

    const RayCastScene scene = corner();
    QSharedPointer<GPUModel> model;
    Light light;
    CameraView view;
};

TEST_P(LightSharesTest, ownLightStaysAndTheRestDarkens)
{
    const auto deferred = load(QStringLiteral("deferred"));
    const Image open = deferred->render({shading})[0];
    const auto chain = load(chainName);
    const Image lit = chain->render({shading})[0];
    const Image picture = chain->picture();
    saveForViewing(picture, QStringLiteral("shares-%1").arg(chainName));
    const Image shares = hasShadows ? chain->render({mask})[0] : filled(size.width(), size.height(), {1, 1, 1, 1});
    const Image corners =
        hasObscurance ? chain->render({obscurance})[0] : filled(size.width(), size.height(), {1, 1, 1, 1});

    const RayCaster rays(scene.items(), chain->camera.projectionMatrix, chain->camera.cameraMatrix, size);
    int tiles[2] = {}, untouched = 0, shadowed = 0, dimmed = 0;
    double inShadow = 0, withoutShadow = 0, inCorner = 0, withoutCorner = 0, largestOwn = 0, largestOpen = 0;
    inside(rays, [&](int x, int y, const RayHit &hit) {
        const float arriving = shares.pixel(x, y).x();
        const float around = corners.pixel(x, y).x();
        const QVector3D shown = lit.pixel(x, y).toVector3D();
        if (hit.item == Emissive || hit.item == Unlit) {
            // The test means something only where light is taken.
            EXPECT_TRUE(!hasShadows || arriving < shadeOfMask + 0.02f) << x << ' ' << y;
            EXPECT_TRUE(!hasObscurance || around < 0.9f) << x << ' ' << y;
            ++tiles[hit.item == Emissive ? 0 : 1];
            for (int k = 0; k < 3; ++k)
                largestOwn = std::max(largestOwn, std::abs(double(picture.pixel(x, y)[k] - own[k])));
            return;
        }
        const double lost = double(shown.x());
        const double had = double(open.pixel(x, y).x());
        if (arriving == 1 && around == 1) {
            ++untouched;
            largestOpen = std::max(largestOpen, std::abs(lost - had));
        }
        if (hit.item == Ground && arriving < shadeOfMask + 0.02f && around > 0.97f) {
            ++shadowed;
            inShadow += lost;
            withoutShadow += had;
        }
        if (hit.item == Ground && arriving > 0.97f && around < 0.7f) {
            ++dimmed;
            inCorner += lost;
            withoutCorner += had;
        }
    });
    std::printf(
        "[ SHARES   ] %s: %d and %d pixels of tiles, off by %.2f of 255; %d in the open, off by %.2f; ground in "
        "shadow %.3f of the open one (%d), in corners %.3f (%d)\n",
        qPrintable(chainName), tiles[0], tiles[1], 255 * largestOwn, untouched, 255 * largestOpen,
        inShadow / std::max(withoutShadow, 1e-9), shadowed, inCorner / std::max(withoutCorner, 1e-9), dimmed);
    EXPECT_GT(tiles[0], 50);
    EXPECT_GT(tiles[1], 50);
    EXPECT_LE(largestOwn, 2.0 / 255);
    EXPECT_GT(untouched, 500);
    EXPECT_LE(largestOpen, 2.0 / 255);
    if (hasShadows) {
        // Seen at 45 degrees, ground keeps 0.15 + 0.3 * 0.6 of 0.75.
        ASSERT_GT(shadowed, 100);
        EXPECT_LT(inShadow, 0.55 * withoutShadow);
        EXPECT_GT(inShadow, 0.3 * withoutShadow) << "the ambient share is left";
    }
    if (hasObscurance && !hasShadows) {
        ASSERT_GT(dimmed, 20);
        EXPECT_LT(inCorner, 0.7 * withoutCorner);
    }
}

TEST_P(LightSharesTest, noVisibleFaceOfACubeIsBlack)
{
    RayCastScene cube;
    cube.add(boxMesh(), matte({0.8f, 0.8f, 0.8f}));
    model = cube.build();
    ModelChain chain(ready(chainName), model, size);
    float darkest = 1;
    int faces[6] = {}; ///< Pixels of each, in all views.
    for (const float elevation : {-35.0f, 15.0f, 40.0f}) {
        for (int azimuth = 0; azimuth < 360; azimuth += 40) {
            CameraView around;
            around.azimuth = float(azimuth);
            around.elevation = elevation;
            chain.look(around);
            const Image image = chain.render({shading})[0];
            const RayCaster rays(cube.items(), chain.camera.projectionMatrix, chain.camera.cameraMatrix, size);
            inside(rays, [&](int x, int y, const RayHit &hit) {
                ++faces[hit.triangle / 2];
                darkest = std::min(darkest, image.pixel(x, y).x());
            });
        }
    }
    std::printf("[ DARKEST  ] %s: %.1f of 255\n", qPrintable(chainName), 255 * double(darkest));
    for (const int pixels : faces)
        EXPECT_GT(pixels, 1000);
    EXPECT_GE(darkest, 20.0f / 255);
}

TEST_P(LightSharesTest, aChainWhoseStepsAreOffShowsThePictureOfDeferred)
{
    const auto deferred = load(QStringLiteral("deferred"));
    const Image open = deferred->render({shading})[0];
    const auto chain = load(chainName);
    EXPECT_GT(maximumDifference(chain->render({shading})[0], open), 0.1);
    for (const ChainOutput &step : {mask, obscurance}) {
        if (chain->chain.description().findPass(step.pass) >= 0) {
            ASSERT_TRUE(chain->chain.setEnabled(step.pass, false)) << qPrintable(chain->chain.errorString());
        }
    }
    if (hasObscurance) {
        ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("blur-x"), false)) << qPrintable(chain->chain.errorString());
    }
    // Normals that the blur has read have linear filters.
    EXPECT_LE(maximumDifference(chain->render({shading})[0], open), hasObscurance ? 1.01 / 255 : 0);
    chain->render();
    chain->expectSteadyFrames();
    EXPECT_GT(pixelsBeyond(chain->picture(), Image(size.width(), size.height()), 0.05), 10000)
        << "the picture is whole";
}

// The one fixed light has no ambient share: all that it lights is darkened, as in the chains of basic passes.
TEST_P(LightSharesTest, theFixedLightIsDarkenedAsInBasicChains)
{
    const auto fixed = [](const std::unique_ptr<ModelChain> &chain) {
        chain->chain.setFrameValue(FrameValues::fixedLight, true);
        return chain->render({shading})[0];
    };
    const Image open = fixed(load(QStringLiteral("deferred")));
    const auto chain = load(chainName);
    const Image lit = fixed(chain);
    const Image shares = hasShadows ? chain->render({mask})[0] : filled(size.width(), size.height(), {1, 1, 1, 1});
    const Image corners =
        hasObscurance ? chain->render({obscurance})[0] : filled(size.width(), size.height(), {1, 1, 1, 1});
    const RayCaster rays(scene.items(), chain->camera.projectionMatrix, chain->camera.cameraMatrix, size);
    double largest = 0;
    int compared = 0;
    inside(rays, [&](int x, int y, const RayHit &hit) {
        const bool isOwn = hit.item == Emissive || hit.item == Unlit;
        const float share = isOwn ? 1 : shares.pixel(x, y).x() * corners.pixel(x, y).x();
        compared += share < 0.9f && open.pixel(x, y).x() > 0.1f ? 1 : 0;
        for (int k = 0; k < 3; ++k)
            largest = std::max(largest, std::abs(double(lit.pixel(x, y)[k] - share * open.pixel(x, y)[k])));
    });
    EXPECT_GT(compared, 200);
    EXPECT_LE(largest, 2.01 / 255);
}

static std::string caseName(const testing::TestParamInfo<std::string> &chain)
{
    return QString::fromStdString(chain.param).remove(QLatin1Char('-')).toStdString();
}

INSTANTIATE_TEST_SUITE_P(DarkenedChains, LightSharesTest,
    testing::Values("shadows", "shadows-layered", "full", "ambient-obscurance"), caseName);

} // namespace Velmora::Kvz
