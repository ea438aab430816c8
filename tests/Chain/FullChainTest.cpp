// SPDX-License-Identifier: MIT
// The ready chain of a whole frame: the part of each stage in the picture, and that frames settle.
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"
#include "support/PooledTextures.h"
#include "support/RayCastScene.h"
#include "support/VisibilityLists.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/LightDescription.h>
#include <GL/GLStatistics.h>

#include <QtGui/QImage>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(160, 120);
const QSize small(80, 60); // For many frames.
const QString full = QStringLiteral("full-basic");
const QString projection = QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix");

/// The passes that draw with the jittered projection or read images drawn with it.
const char *const jitteredPasses[] = {
    "culling", "geometry", "mask", "positions", "obscurance", "sky", "lists", "layers"};

ChainOutput output(const char *pass, const char *port = "Kvz_KvzTexture*_Frame")
{
    return {QString::fromUtf8(pass), QString::fromUtf8(port)};
}

QMatrix4x4 placed(const QVector3D &position, const QVector3D &scale)
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.scale(scale);
    return matrix;
}

CameraView view()
{
    CameraView view;
    view.azimuth = 20;
    view.elevation = 12;
    return view;
}

/// Like meanError(), but the root of the mean square, in which edges count more than the rounding to 8 bits.
double rootMeanSquare(const Image &a, const Image &b)
{
    double sum = 0;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.width; ++x)
            sum += double((a.pixel(x, y) - b.pixel(x, y)).toVector3D().lengthSquared());
    }
    return 255 * std::sqrt(sum / (3.0 * a.width * a.height));
}

/// A box on a floor, a pane of glass, and something behind the pane.
class FullChainTest : public GLTest
{
protected:
    enum Item { Floor, Box, Behind, Pane };

    void SetUp() override
    {
        GLTest::SetUp();
        buildScene({0.8f, 0.1f, 0.1f});
    }

    void buildScene(const QVector3D &behind)
    {
        GPUModelBuilder builder;
        items.clear();
        const auto add = [&](const MeshData &mesh, const QMatrix4x4 &matrix, const QVector3D &kd, float d = 1) {
            MaterialData material;
            material.kd = kd;
            material.ks = QVector3D();
            material.d = d;
            builder.addItem(builder.addMesh(mesh), builder.addMaterial(material), matrix,
                d < 1 ? quint64(ImportedScene::Transparent) : 0);
            items.append({mesh, matrix});
        };
        add(groundMesh(), placed({0, 0, 0}, {3, 1, 3}), {0.8f, 0.8f, 0.8f});
        add(boxMesh(), placed({-0.6f, 0.6f, 0}, {0.6f, 0.6f, 0.6f}), {0.7f, 0.5f, 0.2f});
        add(boxMesh(), placed({1.2f, 0.4f, -0.5f}, {0.4f, 0.4f, 0.4f}), behind);
        add(wallMesh(), placed({1.4f, 0.7f, 0.8f}, {0.6f, 0.6f, 1}), {0.1f, 0.3f, 0.4f}, 0.4f);
        model = builder.build();
    }

    /// Sets maps of a quarter of the side length, which software draws faster.
    static void makeFast(RenderChain *chain)
    {
        EXPECT_TRUE(chain->setValue(
            QStringLiteral("maps"), QStringLiteral("Kvz_QSize_MapSize"), QVariant::fromValue(QSize(256, 256))));
    }
    std::unique_ptr<ModelChain> makeChain(const QSize &pictureSize = size)
    {
        auto chain = std::make_unique<ModelChain>(full, model, pictureSize);
        makeFast(&chain->chain);
        chain->look(view());
        return chain;
    }

    /// Switches the passes of the transparent items. Clearing their lists in each frame takes software the longest.
    static void setTransparencyEnabled(RenderChain *chain, bool enabled)
    {
        for (const char *const pass : {"lists", "visible", "sorted", "layers", "through", "composed"})
            EXPECT_TRUE(chain->setEnabled(QString::fromUtf8(pass), enabled));
    }

    QSharedPointer<GPUModel> model;
    QVector<RayCastItem> items;
};

} // namespace

TEST_F(FullChainTest, jittersWhatIsDrawnAndNothingElse)
{
    const auto chain = makeChain();
    chain->render();
    for (const ChainFinding &finding : chain->chain.findings())
        ADD_FAILURE() << qPrintable(finding.toString());
    using Kind = RenderChain::InputSource::Kind;
    for (const char *const pass : jitteredPasses) {
        const RenderChain::InputSource source = chain->chain.inputSource(QString::fromUtf8(pass), projection);
        EXPECT_EQ(source.kind, Kind::Output) << pass;
        EXPECT_EQ(source.pass, QStringLiteral("jitter")) << pass;
    }
    // Maps that followed the jitter would make shadows flicker, and a mean that saw the jitter would start over in each
    // frame.
    for (const char *const pass : {"jitter", "maps", "accumulate"})
        EXPECT_EQ(chain->chain.inputSource(QString::fromUtf8(pass), projection).kind, Kind::FrameValue) << pass;
    const ChainDescription description = chain->chain.description();
    for (const ChainPass &pass : description.passes) {
        EXPECT_TRUE(pass.enabled) << qPrintable(pass.name);
        EXPECT_NE(chain->chain.pass(pass.name), nullptr) << qPrintable(pass.name);
    }
}

TEST_F(FullChainTest, eachStageDoesItsPart)
{
    const auto chain = makeChain();
    // A frame without jitter after the first one, in which the normals do not yet have the filters that the blur of the
    // obscurance sets.
    chain->render();
    enum { Shading, Depth, Mask, Shadowed, Obscurance, Sky, Layers, Composed, Smooth, Accumulated };
    const QVector<Image> images = chain->render(
        {output("shading"), output("geometry", "Kvz_KvzTexture*_Depth"), output("mask", "Kvz_KvzTexture*_ShadowMask"),
            output("shadowed"), output("blur-y", "Kvz_KvzTexture*_Obscurance"), output("sky"), output("layers"),
            output("composed"), output("smooth"), output("accumulate")});
    const Image picture = chain->picture();
    saveForViewing(picture, QStringLiteral("chain-full"));
    // The sky is drawn into the image of the pass before it.
    ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("sky"), false));
    const Image applied = chain->render({output("apply")})[0];

    const QImage panorama(QStringLiteral(":/Media/Environments/sky.png"));
    ASSERT_FALSE(panorama.isNull());
    const QMatrix4x4 camera = chain->camera.cameraMatrix;
    const RayCaster rays(items.mid(0, Pane), chain->camera.projectionMatrix, camera, size);
    const RayCaster casters(items, chain->camera.projectionMatrix, camera, size);
    ShadowMapManager::Light sun;
    ASSERT_EQ(chain->chain.description().lights.size(), 2u);
    chain->chain.description().lights[0].place(model->sceneBounds(), &sun);
    ASSERT_EQ(sun.type, ShadowMapManager::Light::Directional);
    QMatrix4x4 rotation = camera;
    rotation.setColumn(3, QVector4D(0, 0, 0, 1));
    const QMatrix4x4 toWorld = (chain->camera.projectionMatrix * rotation).inverted();

    double inSun = 0, inShadow = 0, skyError = 0;
    int sunny = 0, shadowed = 0, skyPixels = 0, layered = 0, changedByEdges = 0;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            SCOPED_TRACE(testing::Message() << x << ' ' << y);
            const RayHit hit = rays.cast(x + 0.5, y + 0.5);
            const QVector4D shading = images[Shading].pixel(x, y);
            const QVector4D sky = images[Sky].pixel(x, y);
            const QVector4D layers = images[Layers].pixel(x, y);
            const bool isOpaque = *images[Depth].at(x, y) < 1;
            ASSERT_EQ(shading.w(), isOpaque ? 1 : 0) << "nothing that is transparent is in the opaque frame";
            for (int k = 0; k < 3; ++k) {
                // Each image has at least 8 bits.
                const float mask = images[Mask].pixel(x, y)[k];
                ASSERT_NEAR(images[Shadowed].pixel(x, y)[k], shading[k] * mask, 0.005);
                ASSERT_NEAR(
                    applied.pixel(x, y)[k], images[Shadowed].pixel(x, y)[k] * images[Obscurance].pixel(x, y)[k], 0.005);
                if (isOpaque) {
                    ASSERT_EQ(sky[k], applied.pixel(x, y)[k]);
                }
                ASSERT_NEAR(images[Composed].pixel(x, y)[k], layers[k] + layers.w() * sky[k], 0.005);
                ASSERT_NEAR(images[Accumulated].pixel(x, y)[k], std::min(1.0f, images[Smooth].pixel(x, y)[k]), 0.003);
                ASSERT_NEAR(picture.pixel(x, y)[k], images[Accumulated].pixel(x, y)[k], 0.003);
            }
            ASSERT_EQ(sky.w(), 1);
            layered += layers.w() < 0.99f;
            changedByEdges += (images[Smooth].pixel(x, y) - images[Composed].pixel(x, y)).toVector3D().length() > 0.02f;

            if (!isOpaque) {
                const QVector3D ray = toWorld
                                          .map(QVector3D(2 * (float(x) + 0.5f) / float(size.width()) - 1,
                                              2 * (float(y) + 0.5f) / float(size.height()) - 1, 1))
                                          .normalized();
                const Vector4d expected = sampleRepeating(panorama,
                    {0.5 + std::atan2(double(ray.x()), double(-ray.z())) / (2 * M_PI),
                        0.5 + std::asin(double(ray.y())) / M_PI});
                for (int k = 0; k < 3; ++k)
                    skyError += std::abs(expected[size_t(k)] - double(sky[k])) / 3;
                ++skyPixels;
            } else if (hit.item == Floor) {
                const Vector3d point = rays.pointOf(x + 0.5, y + 0.5, hit);
                Vector3d far = point;
                for (size_t i = 0; i < 3; ++i)
                    far[i] -= 100 * double(sun.direction[int(i)]);
                const bool isShadowed = casters.isBlocked(point, far);
                (isShadowed ? inShadow : inSun) += double(images[Mask].pixel(x, y).x());
                ++(isShadowed ? shadowed : sunny);
            }
        }
    }
    std::printf("mask %.3f in the sun, %.3f in its shadow; sky off by %.5f; %d pixels with layers, %d at edges\n",
        inSun / sunny, inShadow / shadowed, skyError / skyPixels, layered, changedByEdges);
    // The other light is weaker than the sun and has shadows of its own in the sunlit part.
    ASSERT_GT(sunny, 1000);
    ASSERT_GT(shadowed, 80);
    EXPECT_GT(inSun / sunny, 0.9);
    EXPECT_LT(inShadow / shadowed, 0.65);
    ASSERT_GT(skyPixels, 3000);
    EXPECT_LT(skyError / skyPixels, 0.005);
    EXPECT_GT(layered, 400);
    EXPECT_GT(changedByEdges, 100);
    EXPECT_LT(changedByEdges, 3000);

    const auto at = [&](const Image &image, const QVector3D &point) {
        const QVector3D device = (chain->camera.projectionMatrix * camera).map(point);
        return image.pixel(
            int((device.x() + 1) / 2 * float(size.width())), int((device.y() + 1) / 2 * float(size.height())));
    };
    EXPECT_LT(at(images[Obscurance], {-0.6f, 0, 0.65f}).x(), 0.85f) << "where the box meets the floor";
    EXPECT_GT(at(images[Obscurance], {-0.6f, 0, 2}).x(), 0.97f) << "on the open floor";
    if (hasVisibilityLists()) {
        EXPECT_NEAR(double(at(images[Layers], {1.4f, 0.7f, 0.8f}).w()), 0.6, 0.01);
    }
}

TEST_F(FullChainTest, glassShowsWhatIsBehindIt)
{
    const auto red = makeChain();
    const QVector<Image> before = red->render({output("layers"), output("sky")});
    const Image redPicture = red->picture();
    buildScene({0.1f, 0.7f, 0.1f});
    const auto green = makeChain();
    const Image greenSky = green->render({output("sky")})[0];
    const Image greenPicture = green->picture();
    int seen = 0;
    for (int y = 1; y + 1 < size.height(); ++y) {
        for (int x = 1; x + 1 < size.width(); ++x) {
            const float through = before[0].pixel(x, y).w();
            const float difference = (greenSky.pixel(x, y) - before[1].pixel(x, y)).toVector3D().length();
            if (through > 0.99f || difference < 0.1f)
                continue;
            const QVector3D shown = (greenPicture.pixel(x, y) - redPicture.pixel(x, y)).toVector3D();
            // Filtered edges mix a pixel with its neighbours.
            seen += std::abs(shown.length() - through * difference) < 0.02f;
        }
    }
    EXPECT_GT(seen, 100);
}

TEST_F(FullChainTest, framesOfAStillViewSettleOnTheirMean)
{
    const auto makeStill = [this] {
        auto chain = makeChain(small);
        setTransparencyEnabled(&chain->chain, false);
        chain->render();
        EXPECT_TRUE(chain->chain.setValue(QStringLiteral("maps"), QStringLiteral("Kvz_bool_Dirty"), false));
        return chain;
    };
    // The reference: 8 by 8 positions in each pixel, by projections that are set instead of jittered ones.
    Image truth(small.width(), small.height());
    {
        const auto chain = makeStill();
        ASSERT_TRUE(chain->chain.addExport(QStringLiteral("frame"), output("smooth")));
        for (int i = 0; i < 64; ++i) {
            QMatrix4x4 shift;
            shift.translate(2 * ((float(i % 8) + 0.5f) / 8 - 0.5f) / float(small.width()),
                2 * ((float(i / 8) + 0.5f) / 8 - 0.5f) / float(small.height()));
            for (const char *const pass : jitteredPasses) {
                ASSERT_TRUE(chain->chain.setValue(
                    QString::fromUtf8(pass), projection, QVariant::fromValue(shift * chain->camera.projectionMatrix)));
            }
            ASSERT_TRUE(chain->chain.renderFrame()) << qPrintable(chain->chain.errorString());
            const Image frame = readTexture(chain->chain.exportedTexture(QStringLiteral("frame")));
            for (int k = 0; k < truth.data.size(); ++k)
                truth.data[k] += frame.data[k] / 64;
        }
    }
    saveForViewing(truth, QStringLiteral("chain-full-truth"));

    const auto errors = [&](bool isJittered, int frames) {
        const auto chain = makeStill();
        EXPECT_TRUE(chain->chain.setEnabled(QStringLiteral("jitter"), isJittered));
        QVector<double> result = {rootMeanSquare(chain->picture(), truth)};
        while (result.size() < frames) {
            chain->render();
            result.append(rootMeanSquare(chain->picture(), truth));
        }
        saveForViewing(chain->picture(), QStringLiteral("chain-full-%1").arg(isJittered ? "settled" : "still"));
        return result;
    };
    const QVector<double> jittered = errors(true, 32);
    const QVector<double> still = errors(false, 3);
    std::printf("[ QUALITY  ] error / 255, root mean square: %.4f after 1 frame, %.4f after 8, %.4f after 32; without "
                "jitter %.4f after 3\n",
        jittered[0], jittered[7], jittered[31], still[2]);
    EXPECT_LT(jittered[31], 0.6 * jittered[0]);
    EXPECT_LT(jittered[31], jittered[7]);
    EXPECT_NEAR(still[2], still[0], 0.02 * still[0]) << "without jitter nothing gets better";
}

TEST_F(FullChainTest, aChangeOfTheViewStartsOver)
{
    const auto chain = makeChain();
    for (int i = 0; i < 6; ++i)
        chain->render();
    const Image before = chain->picture();
    CameraView other = view();
    other.azimuth = -25;
    chain->look(other);
    chain->render();
    const auto fresh = makeChain();
    fresh->look(other);
    fresh->render();
    fresh->render(); // Replaces the first frame.
    EXPECT_EQ(maximumDifference(chain->picture(), fresh->picture()), 0);
    EXPECT_GT(meanError(chain->picture(), before), 5);
}

TEST_F(FullChainTest, keepsNothingOverManyFramesWithPassesOffAndOn)
{
    const auto chain = makeChain(small);
    struct Totals
    {
        int references;
        qint64 bytes;
        GLObjectCounts objects;
    };
    const auto totals = [] {
        const TextureManager::PoolStatistics pool = TextureManager::Instance()->poolStatistics();
        return Totals{pool.references, pool.bytes, glObjectCounts()};
    };
    Totals before{};
    for (int frame = 0; frame < 50; ++frame) {
        setTransparencyEnabled(&chain->chain, frame % 10 == 0);
        ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("smooth"), frame % 2 == 0));
        ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("obscurance"), frame % 3 != 1));
        ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("maps"), frame % 5 != 2));
        ASSERT_TRUE(chain->chain.renderFrame()) << qPrintable(chain->chain.errorString());
        ASSERT_EQ(glGetError(), GLenum(GL_NO_ERROR)) << frame;
        if (frame == 10)
            before = totals();
        if (frame > 10) {
            ASSERT_EQ(totals().references, before.references) << frame;
        }
        // The picture stays complete: a disabled pass never leaves it black.
        const Image picture = chain->picture();
        ASSERT_GT(picture.pixel(small.width() / 2, small.height() - 2).z(), 0.3f) << "sky, frame " << frame;
        ASSERT_GT(picture.pixel(small.width() / 2, 10).x(), 0.1f) << "floor, frame " << frame;
    }
    const Totals after = totals();
    EXPECT_GT(before.bytes, 0);
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_TRUE(after.objects == before.objects);
}

TEST_F(FullChainTest, takesTheOtherFilterInThePlaceOfSmaa)
{
    const auto chain = makeChain();
    ChainDescription description = chain->chain.description();
    ChainPass &filter = description.passes[description.findPass(QStringLiteral("smooth"))];
    filter.className = QStringLiteral("FastApproximateAntiAliasingRenderPass");
    filter.values.clear();
    for (const ChainFinding &finding : validateChain(description))
        ADD_FAILURE() << qPrintable(finding.toString());
    ASSERT_TRUE(chain->chain.setDescription(description)) << qPrintable(chain->chain.errorString());
    const QVector<Image> images = chain->render({output("composed"), output("smooth")});
    const double change = meanError(images[1], images[0]);
    EXPECT_GT(change, 0.05);
    EXPECT_LT(change, 3);
    EXPECT_LT(meanError(chain->picture(), images[1]), 0.5);
}

TEST_F(FullChainTest, rendersWhatComesFromFiles)
{
    struct Scene
    {
        const char *file;
        bool hasGlass;
    };
    // scripts/setup installs the scanned model.
    for (const Scene &scene : {Scene{KVZ_SOURCE_DIR "/Media/Models/glass.obj", true},
             Scene{KVZ_SOURCE_DIR "/Media/Models/still-life.obj", true},
             Scene{"/usr/share/glmark2/models/bunny.obj", false}}) {
        SCOPED_TRACE(scene.file);
        model = importScene(QString::fromUtf8(scene.file)).build();
        ASSERT_TRUE(model);
        const auto chain = makeChain();
        const QVector<Image> images =
            chain->render({output("geometry", "Kvz_KvzTexture*_Depth"), output("layers"), output("sky")});
        const Image first = chain->picture();
        ASSERT_TRUE(chain->chain.setValue(QStringLiteral("maps"), QStringLiteral("Kvz_bool_Dirty"), false));
        // A new value, so that four still frames come first.
        for (int i = 0; i < 5; ++i)
            chain->render();
        const Image last = chain->picture();
        int opaque = 0, layered = 0;
        double sum = 0, squares = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                opaque += *images[0].at(x, y) < 1;
                layered += images[1].pixel(x, y).w() < 0.99f;
                const QVector4D colour = last.pixel(x, y);
                const double luma = double(colour.x() + colour.y() + colour.z()) / 3;
                sum += luma;
                squares += luma * luma;
            }
        }
        const int pixels = size.width() * size.height();
        const double mean = sum / pixels;
        EXPECT_GT(opaque, pixels / 20);
        EXPECT_LT(opaque, 3 * pixels / 4);
        EXPECT_EQ(layered > 200, scene.hasGlass);
        EXPECT_GT(mean, 0.2);
        EXPECT_LT(mean, 0.7);
        EXPECT_GT(std::sqrt(squares / pixels - mean * mean), 0.08);
        const double refined = meanError(last, first);
        EXPECT_GT(refined, 0.02) << "jittered frames came in";
        EXPECT_LT(refined, 2) << "the picture stays where it is";
    }
}

} // namespace Velmora::Kvz
