// SPDX-License-Identifier: MIT
// The ready chains of depth of field and of weighted blending, on small scenes.
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <QtGui/QVector2D>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(320, 240);
const char frame[] = "Kvz_KvzTexture*_Frame";
const char depthPort[] = "Kvz_KvzTexture*_Depth";
const QString stillLife = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");
const QString glass = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/glass.obj");
const QString bunny = QStringLiteral("/usr/share/glmark2/models/bunny.obj");

ChainOutput output(const char *pass, const char *port = frame)
{
    return {QString::fromUtf8(pass), QString::fromUtf8(port)};
}

float largestDifference(const QVector4D &a, const QVector4D &b)
{
    return std::max({std::abs(a.x() - b.x()), std::abs(a.y() - b.y()), std::abs(a.z() - b.z())});
}

/// A square that faces +z, 0.8 wide around its centre.
void addSquare(GPUModelBuilder *builder, const QVector3D &centre, const QVector3D &kd, float d)
{
    MeshData mesh;
    for (const QVector2D &corner : {QVector2D(-1, -1), QVector2D(1, -1), QVector2D(1, 1), QVector2D(-1, 1)}) {
        mesh.positions.append(centre + 0.4f * QVector3D(corner, 0));
        mesh.normals.append(QVector3D(0, 0, 1));
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    MaterialData material;
    material.kd = kd;
    material.d = d;
    builder->addItem(builder->addMesh(mesh), builder->addMaterial(material));
}

} // namespace

class LensAndGlassChainsTest : public GLTest
{ };

TEST_F(LensAndGlassChainsTest, bothDrawSteadyFrames)
{
    ModelChain lens(QStringLiteral("depth-of-field"), importScene(stillLife).build(), size);
    lens.expectSteadyFrames();
    ModelChain blending(QStringLiteral("transparency-weighted"), importScene(glass).build(), size);
    blending.expectSteadyFrames();
}

TEST_F(LensAndGlassChainsTest, theLensIsSharpWhereItFocuses)
{
    for (const QString &file : {stillLife, bunny}) {
        SCOPED_TRACE(qPrintable(file));
        ModelChain lens(QStringLiteral("depth-of-field"), importScene(file).build(), size);
        const QString pass = QStringLiteral("lens");
        int pictures = 0;
        QVector<Image> before;
        for (const QPoint &point : {QPoint(160, 120), QPoint(150, 60), QPoint(170, 160)}) {
            ASSERT_TRUE(lens.chain.setValue(pass, QStringLiteral("Kvz_QVector2D_Focus"),
                QVector2D((float(point.x()) + 0.5f) / float(size.width()),
                    (float(point.y()) + 0.5f) / float(size.height()))));
            ASSERT_TRUE(lens.chain.setValue(pass, QStringLiteral("Kvz_bool_AutoFocus"), true));
            const QVector<Image> images = lens.render({output("over"), output("geometry", depthPort), output("lens")});
            saveForViewing(images[2], QStringLiteral("lens-%1").arg(pictures++));
            const float focused = *images[1].at(point.x(), point.y());
            int sharp = 0;
            int blurred = 0;
            double sharpChange = 0;
            for (int y = 0; y < size.height(); ++y) {
                for (int x = 0; x < size.width(); ++x) {
                    const float change = largestDifference(images[0].pixel(x, y), images[2].pixel(x, y));
                    // The blur is 8.3 / 2 times the difference in window depth, and where it is below 0.05 the pixel is
                    // copied.
                    if (std::abs(*images[1].at(x, y) - focused) < 0.01f) {
                        ++sharp;
                        sharpChange = std::max(sharpChange, double(change));
                    }
                    blurred += change > 0.01f ? 1 : 0;
                }
            }
            EXPECT_GT(sharp, 100);
            EXPECT_LT(sharpChange, 1e-3) << "half floats between neighbours";
            EXPECT_GT(blurred, 2000);
            if (!before.isEmpty()) {
                EXPECT_GT(maximumDifference(before[2], images[2]), 0.05) << "another point, another picture";
            }
            before = images;

            // The same distance given as a number.
            ASSERT_TRUE(lens.chain.setValue(pass, QStringLiteral("Kvz_bool_AutoFocus"), false));
            ASSERT_TRUE(
                lens.chain.setValue(pass, QStringLiteral("Kvz_float_FocalDepth"), 10 / (100 - 99.9f * focused)));
            const Image byNumber = lens.render({output("lens")})[0];
            int differing = 0;
            for (int y = 0; y < size.height(); ++y) {
                for (int x = 0; x < size.width(); ++x)
                    differing += largestDifference(byNumber.pixel(x, y), images[2].pixel(x, y)) > 0.005f ? 1 : 0;
            }
            EXPECT_LT(differing, 50) << "but for pixels at the threshold";
        }
    }
}

TEST_F(LensAndGlassChainsTest, weightedBlendingLiesOverTheGradient)
{
    GPUModelBuilder builder;
    addSquare(&builder, {-1, 0, 0}, {0.9f, 0.3f, 0.1f}, 1); // opaque
    addSquare(&builder, {0, 0, 0}, {0.1f, 0.3f, 0.6f}, 0.4f); // over the gradient
    addSquare(&builder, {1, 0, -0.2f}, {0.2f, 0.2f, 0.2f}, 1); // behind
    addSquare(&builder, {1, 0, 0}, {0.6f, 0.1f, 0.2f}, 0.7f); // over opaque
    addSquare(&builder, {1, 0, -0.4f}, {5, 5, 5}, 0.5f); // hidden
    ModelChain blending(QStringLiteral("transparency-weighted-basic"), builder.build(), size);
    // Planes far from the items: in the nearest tenth of the depth range the clamp of the divisor would show.
    QMatrix4x4 camera;
    camera.translate(0, 0, -4);
    QMatrix4x4 projection;
    projection.perspective(40, float(size.width()) / float(size.height()), 1, 20);
    blending.chain.setCamera(camera, projection);
    const QVector<Image> images = blending.render({output("background"), output("transparency"), output("over")});
    const Image picture = blending.picture();
    saveForViewing(picture, QStringLiteral("glass-squares"));

    const QMatrix4x4 toClip = projection * camera;
    const auto pixelOf = [&](const QVector3D &point) {
        const QVector3D device = toClip.map(point);
        return QPoint(
            int((device.x() + 1) / 2 * float(size.width())), int((device.y() + 1) / 2 * float(size.height())));
    };
    const float light = 1 / std::sqrt(3.0f);
    const auto expectNear = [&](const QVector3D &point, const QVector3D &expected) {
        const QPoint pixel = pixelOf(point);
        for (const Image &image : {images[2], picture}) {
            const QVector4D shown = image.pixel(pixel.x(), pixel.y());
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(shown[i], expected[i], 1.1f / 255) << point.x() << " channel " << i;
        }
    };
    const auto gradientAt = [&](const QVector3D &point) {
        const QPoint pixel = pixelOf(point);
        return images[0].pixel(pixel.x(), pixel.y()).toVector3D();
    };
    expectNear({-1, 0, 0}, light * QVector3D(0.9f, 0.3f, 0.1f));
    expectNear({0, 0, 0}, 0.4f * light * QVector3D(0.1f, 0.3f, 0.6f) + 0.6f * gradientAt({0, 0, 0}));
    expectNear({1, 0, 0}, light * (0.7f * QVector3D(0.6f, 0.1f, 0.2f) + 0.3f * QVector3D(0.2f, 0.2f, 0.2f)));
    expectNear({0, 0.9f, 0}, gradientAt({0, 0.9f, 0}));
    EXPECT_GT(gradientAt({0, 0, 0}).x(), 0.2f);
}

TEST_F(LensAndGlassChainsTest, thePremultiplyOptionMultipliesColoursOfTheModelAtHand)
{
    // The stack in the glass scene: 60 layers, each with its full light.
    const auto whitePixels = [](const Image &image) {
        int count = 0;
        for (int y = 0; y < image.height; ++y) {
            for (int x = 0; x < image.width; ++x)
                count += image.pixel(x, y) == QVector4D(1, 1, 1, 1) ? 1 : 0;
        }
        return count;
    };
    const QString chainName = QStringLiteral("transparency-weighted-basic");
    CameraView view;
    view.azimuth = 25;
    view.elevation = 18;
    ImportedScene scene = importScene(glass);
    QSharedPointer<GPUModel> model = scene.build();
    ModelChain blending(chainName, model, size);
    blending.look(view);
    blending.render();
    const Image premultiplied = blending.picture();
    saveForViewing(premultiplied, QStringLiteral("glass-premultiplied"));
    EXPECT_LT(whitePixels(premultiplied), 50) << "but for highlights";

    const QString pass = QStringLiteral("transparency");
    ASSERT_TRUE(blending.chain.setOption(pass, QStringLiteral("premultiply"), false))
        << qPrintable(blending.chain.errorString());
    blending.render();
    const Image straight = blending.picture();
    saveForViewing(straight, QStringLiteral("glass-straight"));
    EXPECT_GT(whitePixels(straight), 1000);

    // The same materials, premultiplied in the scene, without the option: the same picture, images and highlights
    // included.
    for (MaterialData &material : scene.materials) {
        material.kd *= material.d;
        material.ks *= material.d;
    }
    const QSharedPointer<GPUModel> multiplied = scene.build();
    blending.chain.setModel(multiplied.data());
    blending.render();
    EXPECT_LE(maximumDifference(blending.picture(), premultiplied), 1.01 / 255);

    // With the option on again, another model has rows of its own, and the first one is unchanged.
    ASSERT_TRUE(blending.chain.setOption(pass, QStringLiteral("premultiply"), true));
    blending.render();
    EXPECT_GT(maximumDifference(blending.picture(), premultiplied), 0.05) << "multiplied twice";
    blending.chain.setModel(model.data());
    blending.render();
    EXPECT_EQ(maximumDifference(blending.picture(), premultiplied), 0);
}

} // namespace Velmora::Kvz
