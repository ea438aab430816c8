// SPDX-License-Identifier: MIT
// What the anti-aliasing chains are worth: their error against a picture of 256 samples, and what stays of things that moved.
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/Samples.h"

#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>
#include <Host/Camera.h>
#include <Host/ChainLibrary.h>
#include <Host/ModelImporter.h>
#include <Host/RenderChain.h>
#include <Host/SubsampleTable.h>
#include <RenderPasses/CameraJitterRenderPass.h>

#include <QtCore/QFile>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(320, 180);
const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

QMatrix4x4 movedByPixels(const QMatrix4x4 &projection, double x, double y)
{
    QMatrix4x4 matrix;
    matrix.translate(float(2 * x / size.width()), float(2 * y / size.height()));
    return matrix * projection;
}

class AntiAliasingTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        ImportedScene scene;
        QString error;
        ASSERT_TRUE(importModel(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj"), &scene, &error))
            << qPrintable(error);
        stillLife = scene.build();
        CameraView view;
        view.azimuth = 25;
        view.elevation = 18;
        view.distance = 0.85f;
        camera = frameScene(stillLife->sceneBounds(), view, size);
    }

    static ChainDescription ready(const char *name)
    {
        ChainDescription description;
        QString error;
        EXPECT_TRUE(loadChain(QString::fromUtf8(name), &description, &error)) << qPrintable(error);
        for (const ChainFinding &finding : validateChain(description))
            ADD_FAILURE() << name << qPrintable(finding.toString());
        return description;
    }

    /// Makes a chain of the description less what puts the picture on the screen; `pass` gives the picture.
    std::unique_ptr<RenderChain> makeChain(ChainDescription description, const char *pass, GPUModel *model)
    {
        description.passes.removeAt(description.findPass(QStringLiteral("screen")));
        auto chain = std::make_unique<RenderChain>();
        EXPECT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        EXPECT_TRUE(chain->addExport(QStringLiteral("picture"), {QString::fromUtf8(pass), frame}));
        chain->setViewport(QRect(QPoint(), size));
        chain->setCamera(camera.cameraMatrix, camera.projectionMatrix);
        chain->setModel(model);
        return chain;
    }

    static Image render(RenderChain *chain)
    {
        EXPECT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        return readTexture(chain->exportedTexture(QStringLiteral("picture")));
    }

    /// The mean of 16 by 16 samples in each pixel.
    Image reference(const ChainDescription &description, const char *pass)
    {
        const auto chain = makeChain(description, pass, stillLife.data());
        QVector<double> sum(size.width() * size.height() * 4, 0.0);
        for (int i = 0; i < 256; ++i) {
            chain->setCamera(camera.cameraMatrix,
                movedByPixels(camera.projectionMatrix, (i % 16 + 0.5) / 16 - 0.5, (i / 16 + 0.5) / 16 - 0.5));
            const Image image = render(chain.get());
            for (int k = 0; k < sum.size(); ++k)
                sum[k] += double(image.data[k]);
        }
        return meanOf(sum);
    }

    static Image meanOf(const QVector<double> &sumOf256)
    {
        Image mean(size.width(), size.height());
        for (int k = 0; k < sumOf256.size(); ++k)
            mean.data[k] = float(sumOf256[k] / 256);
        return mean;
    }

    /// The same of frames of several samples, of which the first is looked at.
    Image multisampledReference()
    {
        const auto chain = makeChain(ready("smaa-s2x"), "frame", stillLife.data());
        const QPointF place = subsamplePosition(-1, 0);
        QVector<double> sum(size.width() * size.height() * 4, 0.0);
        for (int i = 0; i < 256; ++i) {
            chain->setCamera(camera.cameraMatrix,
                movedByPixels(
                    camera.projectionMatrix, place.x() - (i % 16 + 0.5) / 16, place.y() - (i / 16 + 0.5) / 16));
            EXPECT_TRUE(chain->renderFrame());
            const Image image = readSample(chain->exportedTexture(QStringLiteral("picture")), 0);
            for (int k = 0; k < sum.size(); ++k)
                sum[k] += double(image.data[k]);
        }
        return meanOf(sum);
    }

    QSharedPointer<GPUModel> stillLife;
    Camera camera;
};

/// The mean difference of the three colours, in steps of 8 bits.
double meanError(const Image &image, const Image &reference)
{
    double sum = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            for (int i = 0; i < 3; ++i)
                sum += std::abs(double(image.at(x, y)[i]) - double(reference.at(x, y)[i]));
        }
    }
    return 255 * sum / (3.0 * image.width * image.height);
}

} // namespace

// The order that the published results give: each filter is better than none, the shapes of SMAA better than FXAA, two
// samples better than one, whether they come from one frame or from two, and all four of 4x best. The mean of 64 frames has no
// such bound: its sum is rounded to 8 bits in each frame.
TEST_F(AntiAliasingTest, filtersComeInTheOrderOfTheirQuality)
{
    const ChainDescription plain = ready("fxaa");
    const Image truth = reference(plain, "over");
    const Image sampledTruth = multisampledReference();
    EXPECT_LT(meanError(truth, sampledTruth), 0.15) << "the two ways of shading agree";
    const auto errorOf = [&](const ChainDescription &description, const char *pass, int frames, const Image &against) {
        const auto chain = makeChain(description, pass, stillLife.data());
        Image image;
        for (int i = 0; i < frames; ++i)
            image = render(chain.get());
        saveForViewing(image, QStringLiteral("quality-%1-%2").arg(description.name, QString::fromUtf8(pass)));
        const double error = meanError(image, against);
        std::printf("[ QUALITY  ] %-10s %s: mean error %.4f / 255\n", qPrintable(description.name), pass, error);
        return error;
    };
    const double none = errorOf(plain, "over", 1, truth);
    const double fxaa = errorOf(plain, "smooth", 1, truth);
    const double once = errorOf(ready("smaa-1x"), "smooth", 1, truth);
    const double samples = errorOf(ready("smaa-s2x"), "smooth", 1, sampledTruth);
    const double frames = errorOf(ready("smaa-t2x"), "smooth", 6, truth);
    const double both = errorOf(ready("smaa-4x"), "smooth", 6, sampledTruth);
    const double mean = errorOf(ready("temporal"), "accumulate", 65, truth);
    EXPECT_LT(fxaa, 0.85 * none);
    EXPECT_LT(once, 0.95 * fxaa);
    EXPECT_LT(samples, 0.8 * once);
    EXPECT_LT(frames, 0.8 * once);
    EXPECT_LT(both, 0.9 * std::min(samples, frames));
    EXPECT_LT(mean, none);

    // Another jitter, or none to know of, puts edges of T2x where they are not.
    ChainDescription antiDiagonal = ready("smaa-t2x");
    antiDiagonal.name = QStringLiteral("t2x, anti-diagonal");
    antiDiagonal.passes.removeAt(antiDiagonal.findPass(QStringLiteral("place")));
    antiDiagonal.passes[0].values[QStringLiteral("Kvz_int_JitterMode")] = int(JitterAntiDiagonal);
    ChainDescription noIndex = ready("smaa-t2x");
    noIndex.name = QStringLiteral("t2x, no index");
    noIndex.passes[noIndex.findPass(QStringLiteral("smooth"))].connections[QStringLiteral("Kvz_int_JitterIndex")] =
        ChainSource();
    EXPECT_LT(frames, 0.85 * errorOf(antiDiagonal, "smooth", 6, truth));
    EXPECT_LT(frames, 0.85 * errorOf(noIndex, "smooth", 6, truth));
}

namespace {

/// A bright box before a dark floor, which is what shows a ghost best.
QSharedPointer<GPUModel> boxOnFloor()
{
    GPUModelBuilder builder;
    MaterialData bright, dark;
    bright.kd = QVector3D(1, 1, 1);
    dark.kd = QVector3D(0.05f, 0.05f, 0.05f);
    QMatrix4x4 floor;
    floor.translate(0, -1, 0);
    floor.scale(6);
    builder.addItem(builder.addMesh(groundMesh()), builder.addMaterial(dark), floor);
    QMatrix4x4 box;
    box.scale(0.5f);
    builder.addItem(builder.addMesh(boxMesh()), builder.addMaterial(bright), box);
    return builder.build();
}

/// How far colours lie outside of what they may be.
struct Residual
{
    double worst = 0;
    double mean = 0; ///< Over all pixels, in steps of 8 bits.
};

/// How far the three colours of a pixel lie outside of what its neighbourhood of three by three has in the reference. A
/// mixture of neighbours, which anti-aliasing makes, lies within; what comes from elsewhere does not.
Residual ghost(const Image &image, const Image &reference)
{
    Residual residual;
    for (int y = 1; y + 1 < image.height; ++y) {
        for (int x = 1; x + 1 < image.width; ++x) {
            for (int channel = 0; channel < 3; ++channel) {
                float least = 1e9f, most = -1e9f;
                for (int i = 0; i < 9; ++i) {
                    const float value = reference.at(x + i % 3 - 1, y + i / 3 - 1)[channel];
                    least = std::min(least, value);
                    most = std::max(most, value);
                }
                const float value = image.at(x, y)[channel];
                const double outside = std::max({0.0, double(least - value), double(value - most)});
                residual.worst = std::max(residual.worst, outside);
                residual.mean += outside * 255 / (3.0 * image.width * image.height);
            }
        }
    }
    return residual;
}

} // namespace

class GhostTest : public AntiAliasingTest
{
protected:
    struct Result
    {
        Residual moving; ///< Against the same frame without any past.
        double after; ///< Two frames after the motion, against one that never moved.
    };

    /// Moves for some frames, by several pixels in each, then stops.
    Result run(const ChainDescription &description, bool movesCamera, bool movesItem)
    {
        const QSharedPointer<GPUModel> model = boxOnFloor();
        const auto step = [&](RenderChain *chain, int i) {
            QMatrix4x4 box;
            box.translate(movesItem ? 0.12f * float(i) - 0.4f : 0.3f, 0, 0);
            box.scale(0.5f);
            if (model->modelMatrix(1) != box)
                model->setModelMatrix(1, box);
            QMatrix4x4 view;
            const float x = movesCamera ? 0.15f * float(i) : 0.5f;
            view.lookAt(QVector3D(x, 1.2f, 5), QVector3D(x, 0, 0), QVector3D(0, 1, 0));
            QMatrix4x4 lens;
            lens.perspective(40, float(size.width()) / float(size.height()), 0.5f, 40);
            chain->setCamera(view, lens);
        };
        const auto still = [&](int i, int frames) {
            const auto chain = makeChain(description, "smooth", model.data());
            step(chain.get(), i);
            model->advanceFrame();
            Image image;
            for (int k = 0; k < frames; ++k)
                image = render(chain.get());
            return image;
        };
        const Image expectedMoving = still(6, 1); // Frames 0 and 6 have the same jitter.
        const Image expectedAfter = still(7, 4);
        const auto chain = makeChain(description, "smooth", model.data());
        Image image;
        for (int i = 0; i <= 6; ++i) {
            step(chain.get(), i);
            image = render(chain.get());
        }
        saveForViewing(image, QStringLiteral("ghost-%1-%2%3").arg(description.name).arg(movesCamera).arg(movesItem));
        Result result{ghost(image, expectedMoving), 0};
        for (int i = 0; i < 3; ++i) {
            step(chain.get(), 7);
            image = render(chain.get());
        }
        result.after = maximumDifference(image, expectedAfter);
        return result;
    }
};

TEST_F(GhostTest, temporalModesLeaveNoneBehindWhatMoves)
{
    for (const char *name : {"smaa-t2x", "smaa-4x"}) {
        for (const auto &[movesCamera, movesItem] : {std::pair{true, false}, {false, true}, {true, true}}) {
            SCOPED_TRACE(testing::Message() << name << (movesCamera ? " camera" : "") << (movesItem ? " item" : ""));
            const Result followed = run(ready(name), movesCamera, movesItem);
            ChainDescription blind = ready(name);
            // Velocity that says that nothing moves.
            ChainPass &velocity = blind.passes[blind.findPass(QStringLiteral("velocity"))];
            velocity.values[QStringLiteral("Kvz_QMatrix4x4_CameraMatrix")] = QMatrix4x4();
            velocity.values[QStringLiteral("Kvz_KvzGPUModel*_Geometry")] = QVariant();
            const Result ghosted = run(blind, movesCamera, movesItem);
            std::printf(
                "[ RESIDUAL ] %s%s%s: worst %.4f, mean %.4f / 255 while it moves (without velocity %.4f, %.4f), "
                "%.5f after\n",
                name, movesCamera ? " camera" : "", movesItem ? " item" : "", followed.moving.worst,
                followed.moving.mean, ghosted.moving.worst, ghosted.moving.mean, followed.after);
            // Where a camera's motion bares what was hidden, speeds hardly differ, by which the resolve tells surfaces apart:
            // there the last frame shows through for one frame.
            EXPECT_LT(followed.moving.mean, 0.25 * ghosted.moving.mean);
            EXPECT_GT(ghosted.moving.worst, 0.1) << "there would be a ghost";
            // The depth of several samples leaves a fringe of a pixel around an item without the item's motion.
            if (!movesCamera) {
                EXPECT_LT(followed.moving.worst, QLatin1String(name) == QLatin1String("smaa-4x") ? 0.25 : 0.03);
            }
            EXPECT_LT(followed.after, 0.5 / 255);
        }
    }
}

} // namespace Velmora::Kvz
