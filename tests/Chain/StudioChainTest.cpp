// SPDX-License-Identifier: MIT
// The chain for product pictures as a whole: that light is neither lost nor made, that cut-outs are what they seem, and what its
// options change.
#include "ExtraPasses/PhysicalFixture.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"

#include <Chain/ChainBackground.h>
#include <Chain/ChainLibrary.h>
#include <Chain/ChainLook.h>
#include <GL/TextureManager.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(160, 90);
constexpr float step = 1.0f / 255;

ChainDescription studio(const ChainLook &look = {})
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(loadChain(QStringLiteral("studio"), &chain, &error)) << qPrintable(error);
    EXPECT_TRUE(look.apply(&chain, &error)) << qPrintable(error);
    return chain;
}

ImportedMaterial material(const QVector3D &colour, float metallic, float roughness, float opacity = 1)
{
    ImportedMaterial made;
    made.isPhysical = true;
    made.baseColour = QVector4D(colour, opacity);
    made.d = opacity;
    made.metallic = metallic;
    made.roughness = roughness;
    if (opacity < 1)
        made.alphaMode = MaterialData::Blend;
    return made;
}

/// Adds a sphere of radius 0.45 in a row and column of a sheet, row 0 at the bottom.
void addSphere(ImportedScene *scene, int column, int row, const ImportedMaterial &material)
{
    if (scene->meshes.isEmpty()) {
        ImportedMesh sphere;
        static_cast<MeshData &>(sphere) = sphereMesh(12);
        scene->meshes.append(sphere);
    }
    scene->materials.append(material);
    ImportedItem item;
    item.material = scene->materials.size() - 1;
    item.modelMatrix.translate(float(column), float(row), 0);
    item.modelMatrix.scale(0.45f);
    if (material.baseColour.w() < 1)
        item.featureFlags |= ImportedScene::Transparent;
    scene->items.append(item);
}

QSharedPointer<GPUModel> built(const ImportedScene &scene)
{
    SceneBuildOptions options;
    options.forPhysicalPasses = true;
    return scene.build(options);
}

/// White spheres of roughness 0 to 1, dielectrics below and metals above.
ImportedScene whiteSpheres()
{
    ImportedScene scene;
    for (int column = 0; column < 6; ++column) {
        for (int row = 0; row < 2; ++row)
            addSphere(&scene, column, row, material(QVector3D(1, 1, 1), float(row), float(column) / 5));
    }
    return scene;
}

/// An opaque sphere, one of glass before a part of it, and one apart.
ImportedScene glassBeforeClay()
{
    ImportedScene scene;
    addSphere(&scene, 0, 0, material(QVector3D(0.7f, 0.2f, 0.1f), 0, 0.5f));
    addSphere(&scene, 1, 0, material(QVector3D(0.1f, 0.4f, 0.7f), 0, 0.1f, 0.3f));
    scene.items.last().modelMatrix.translate(-1, 0, 1);
    addSphere(&scene, 2, 0, material(QVector3D(0.9f, 0.9f, 0.9f), 1, 0.3f));
    return scene;
}

ChainLook furnace(const QString &environment)
{
    ChainLook look;
    look.environment = environment;
    look.environmentAsBackground = true;
    look.toneMapping = ChainLook::ToneMapping::None;
    look.exposure = -0.5f;
    return look;
}

class StudioChainTest : public GLTest
{
protected:
    /// What a chain shows of a model after some frames.
    static Image picture(const ChainDescription &description, const QSharedPointer<GPUModel> &model, int frames = 1)
    {
        ModelChain chain(description, model, size);
        for (int i = 0; i < frames; ++i)
            chain.render();
        return chain.picture();
    }

    TemporaryFolder folder;
};

} // namespace

TEST_F(StudioChainTest, aFurnaceStaysWhite)
{
    const QSharedPointer<GPUModel> model = built(whiteSpheres());
    const QString constant = folder.write(
        QStringLiteral("constant.hdr"), radianceFile(64, 32, [](const QVector3D &) { return QVector3D(1, 1, 1); }));
    const auto white = float(1.055 * std::pow(std::exp2(-0.5), 1 / 2.4) - 0.055);
    for (const QString &environment : {QStringLiteral("white"), constant}) {
        for (const bool hasGround : {true, false}) {
            ChainLook look = furnace(environment);
            if (!hasGround)
                look.ground = false;
            const Image seen = picture(studio(look), model);
            saveForViewing(seen, QStringLiteral("studio-furnace-%1").arg(hasGround));
            float darkest = 1;
            float brightest = 0;
            for (int i = 0; i < seen.data.size(); ++i) {
                if (i % 4 == 3)
                    continue;
                darkest = std::min(darkest, seen.data[i]);
                brightest = std::max(brightest, seen.data[i]);
            }
            EXPECT_GE(darkest, white - 2 * step) << qPrintable(environment) << hasGround;
            EXPECT_LE(brightest, white + 2 * step) << qPrintable(environment) << hasGround;
        }
    }
    // The spheres are there: as soon as they are grey they are seen.
    ImportedScene grey = whiteSpheres();
    for (ImportedMaterial &changed : grey.materials)
        changed.baseColour = QVector4D(0.5f, 0.5f, 0.5f, 1);
    const Image seen = picture(studio(furnace(QStringLiteral("white"))), built(grey));
    int darker = 0;
    for (int i = 0; i < seen.data.size(); i += 4)
        darker += seen.data[i] < white - 20 * step;
    EXPECT_GT(darker, size.width() * size.height() / 5);
}

TEST_F(StudioChainTest, unlitSurfacesShowTheColourOfTheFile)
{
    ImportedScene scene;
    ImportedMaterial flat = material(QVector3D(0.5f, 0.25f, 0.02f), 0, 1);
    flat.isUnlit = true;
    addSphere(&scene, 0, 0, flat);
    ChainLook look;
    look.toneMapping = ChainLook::ToneMapping::None;
    const Image seen = picture(studio(look), built(scene));
    const auto encoded = [](double linear) { return float(1.055 * std::pow(linear, 1 / 2.4) - 0.055); };
    const QVector4D middle = seen.pixel(size.width() / 2, size.height() / 2);
    EXPECT_NEAR(middle.x(), encoded(0.5), 0.51f * step);
    EXPECT_NEAR(middle.y(), encoded(0.25), 0.51f * step);
    EXPECT_NEAR(middle.z(), encoded(0.02), 0.51f * step);
}

TEST_F(StudioChainTest, aCutOutLaidOverAColourIsThePictureOverIt)
{
    const QSharedPointer<GPUModel> model = built(glassBeforeClay());
    const QColor colours[] = {QColor(255, 255, 255), QColor(0, 0, 0), QColor(40, 120, 220)};
    const QString modes[] = {QString(), QStringLiteral("fxaa"), QStringLiteral("smaa-1x"), QStringLiteral("smaa-t2x")};
    for (const QString &mode : modes) {
        for (const int frames : {1, 5}) {
            SCOPED_TRACE(qPrintable(QStringLiteral("%1, %2 frames").arg(mode).arg(frames)));
            const auto over = [&](const QColor &colour) {
                ChainDescription chain = studio();
                ChainPass &smooth = chain.passes[chain.findPass(QStringLiteral("smooth"))];
                if (mode.isEmpty()) {
                    smooth.enabled = false;
                    chain.passes[chain.findPass(QStringLiteral("grounded"))]
                        .connections[QStringLiteral("Kvz_KvzTexture*_Frame")] =
                        ChainSource::output(QStringLiteral("tones"), QStringLiteral("Kvz_KvzTexture*_Frame"));
                } else {
                    smooth.options[QStringLiteral("mode")] = mode;
                }
                QString error;
                EXPECT_TRUE(setBackground(&chain, colour, &error)) << qPrintable(error);
                return picture(chain, model, frames);
            };
            const Image cutOut = over(QColor(0, 0, 0, 0));
            saveForViewing(cutOut, QStringLiteral("studio-cut-out-%1-%2").arg(mode).arg(frames));
            int empty = 0;
            int partial = 0;
            for (int i = 3; i < cutOut.data.size(); i += 4) {
                empty += cutOut.data[i] == 0;
                partial += cutOut.data[i] > 0 && cutOut.data[i] < 1;
            }
            EXPECT_GT(empty, 500);
            EXPECT_GT(partial, 1000) << "glass and the shadow on the ground";
            for (const QColor &colour : colours) {
                const Image laid = over(colour);
                const QVector4D behind(float(colour.redF()), float(colour.greenF()), float(colour.blueF()), 1);
                float worst = 0;
                for (int y = 0; y < size.height(); ++y) {
                    for (int x = 0; x < size.width(); ++x) {
                        const QVector4D front = cutOut.pixel(x, y);
                        const QVector4D composed = front + (1 - front.w()) * behind;
                        // In 8 bits, as a program that composes pictures has it.
                        for (int k = 0; k < 4; ++k)
                            worst =
                                std::max(worst, std::abs(std::round(255 * composed[k]) / 255 - laid.pixel(x, y)[k]));
                    }
                }
                EXPECT_LE(worst, 1.01f * step) << qPrintable(colour.name());
            }
        }
    }
}

TEST_F(StudioChainTest, theGroundCarriesTheShadowIntoTheCutOut)
{
    const QSharedPointer<GPUModel> model = built(glassBeforeClay());
    const auto covered = [&](bool hasGround) {
        ChainLook look;
        if (!hasGround)
            look.ground = false;
        ChainDescription chain = studio(look);
        QString error;
        EXPECT_TRUE(setBackground(&chain, QColor(0, 0, 0, 0), &error));
        const Image seen = picture(chain, model);
        int dark = 0;
        for (int i = 0; i < seen.data.size(); i += 4)
            dark += seen.data[i] == 0 && seen.data[i + 1] == 0 && seen.data[i + 3] > 0.05f && seen.data[i + 3] < 1;
        return dark;
    };
    EXPECT_GT(covered(true), 300);
    EXPECT_EQ(covered(false), 0);
}

TEST_F(StudioChainTest, surroundingsThatAreSeenLoseTheLightOfTheirGround)
{
    const QSharedPointer<GPUModel> model = built(glassBeforeClay());
    ChainLook look;
    look.environmentAsBackground = true;
    const Image grounded = picture(studio(look), model);
    look.ground = false;
    const Image bare = picture(studio(look), model);
    saveForViewing(grounded, QStringLiteral("studio-surroundings"));
    int darker = 0;
    int brighter = 0;
    for (int i = 0; i < bare.data.size(); i += 4) {
        darker += grounded.data[i] < bare.data[i] - 8 * step;
        brighter += grounded.data[i] > bare.data[i] + 2 * step;
        ASSERT_EQ(grounded.data[i + 3], 1);
    }
    EXPECT_GT(darker, 300);
    EXPECT_LE(brighter, 10) << "where edges are smoothed otherwise";
}

TEST_F(StudioChainTest, glassLetsThroughWhatIsBehindIt)
{
    const QSharedPointer<GPUModel> sorted = built(glassBeforeClay());
    ImportedScene scene = glassBeforeClay();
    scene.items.remove(1);
    const Image with = picture(studio(), sorted);
    ChainLook look;
    look.sortsTransparency = false;
    const Image weighted = picture(studio(look), sorted);
    const Image without = picture(studio(), built(scene));
    saveForViewing(with, QStringLiteral("studio-glass"));
    saveForViewing(weighted, QStringLiteral("studio-glass-weighted"));
    EXPECT_GT(pixelsBeyond(with, without, 0.02), 400) << "the glass is seen";
    // The sides of the glass are two layers, whose order weights guess.
    EXPECT_LT(pixelsBeyond(with, weighted, 0.1), 30);
}

TEST_F(StudioChainTest, shadowMapsRestUntilTheLightTurns)
{
    const QSharedPointer<GPUModel> model = built(glassBeforeClay());
    ModelChain chain(studio(), model, size);
    chain.chain.setTimingEnabled(true);
    const auto rests = [&] {
        chain.chain.resetTimings();
        chain.render();
        chain.chain.finishTimings();
        for (const PassTiming &timing : chain.chain.timings()) {
            if (timing.pass == QLatin1String("maps"))
                return timing.rests;
        }
        ADD_FAILURE() << "no shadow maps";
        return false;
    };
    EXPECT_FALSE(rests());
    EXPECT_TRUE(rests());
    EXPECT_TRUE(rests());
    const QString environment = QStringLiteral("environment");
    ASSERT_TRUE(chain.chain.setValue(environment, QStringLiteral("Kvz_float_EnvironmentRotation"), 120.0f));
    const Image before = chain.picture();
    EXPECT_FALSE(rests());
    EXPECT_TRUE(rests());
    EXPECT_GT(pixelsBeyond(chain.picture(), before, 0.05), 100) << "the shadow is elsewhere";
    ASSERT_TRUE(chain.chain.setValue(environment, QStringLiteral("Kvz_QString_Environment"), QStringLiteral("white")));
    rests();
    EXPECT_FALSE(rests()) << "without a lamp there are none";
}

TEST_F(StudioChainTest, automaticExposureDoesNotMindTheVoid)
{
    ChainLook look;
    look.automaticExposure = true;
    const QSharedPointer<GPUModel> model = built(glassBeforeClay());
    ChainDescription description = studio(look);
    QString error;
    ASSERT_TRUE(setBackground(&description, Qt::black, &error));
    const auto brightness = [&](float distance) {
        ModelChain chain(description, model, size);
        CameraView view;
        view.distance = distance;
        chain.look(view);
        chain.render();
        const Image seen = chain.picture();
        float most = 0;
        for (int i = 1; i < seen.data.size(); i += 4)
            most = std::max(most, seen.data[i]);
        return most;
    };
    const float near = brightness(1);
    EXPECT_GT(near, 0.4f);
    EXPECT_NEAR(brightness(3), near, 0.15f) << "nine times as much of nothing";
}

} // namespace Velmora::Kvz
