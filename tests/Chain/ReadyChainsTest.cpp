// SPDX-License-Identifier: MIT
// The ready chains on real passes.
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModelBuilder.h>

#include <QtGui/QVector3D>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const int width = 320;
const int height = 240;
const char frame[] = "Kvz_KvzTexture*_Frame";

/// A square at this z, facing the camera.
int addSquare(GPUModelBuilder *builder, const QVector2D &centre, float half, const MaterialData &material)
{
    MeshData mesh;
    for (const QVector2D &corner : {QVector2D(-1, -1), QVector2D(1, -1), QVector2D(1, 1), QVector2D(-1, 1)}) {
        mesh.positions.append(QVector3D(centre + half * corner, 0));
        mesh.normals.append(QVector3D(0, 0, 1));
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    return builder->addItem(builder->addMesh(mesh), builder->addMaterial(material));
}

} // namespace

class ReadyChainsTest : public GLTest
{
protected:
    void load(const char *name)
    {
        ChainDescription description;
        QString error;
        ASSERT_TRUE(loadChain(QString::fromUtf8(name), &description, &error)) << qPrintable(error);
        ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
        target = std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA8, width, height, 0, nullptr);
        target->bind();
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        target->unbind();
        framebuffer.bind();
        framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
        framebuffer.setDrawBuffers();
        framebuffer.unbind();
        chain.setViewport(QRect(0, 0, width, height));
        chain.setFramebuffer(&framebuffer);
        camera.translate(0, 0, -4);
        projection.perspective(45, float(width) / height, 0.1f, 50);
        chain.setCamera(camera, projection);
    }

    /// The output of a pass as floats, before another pass draws into it.
    Image output(const char *pass, const char *port)
    {
        return renderOutputs(&chain, {{QString::fromUtf8(pass), QString::fromUtf8(port)}})[0];
    }

    /// The pixel that shows a point in world space.
    QPoint pixelOf(const QVector3D &point) const
    {
        const QVector3D device = (projection * camera).map(point);
        return QPoint(int((device.x() + 1) / 2 * width), int((device.y() + 1) / 2 * height));
    }

    RenderChain chain;
    std::unique_ptr<Texture> target;
    FramebufferObject framebuffer;
    QMatrix4x4 camera;
    QMatrix4x4 projection;
};

TEST_F(ReadyChainsTest, theBasicDeferredChainLaysAModelOverAGradient)
{
    load("deferred-basic");
    GPUModelBuilder builder;
    MaterialData opaque;
    opaque.kd = {0.9f, 0.3f, 0.1f};
    opaque.ks = {0.5f, 0.5f, 0.5f};
    MaterialData clear = opaque;
    clear.d = 0.4f;
    addSquare(&builder, QVector2D(-0.8f, 0), 0.6f, opaque);
    addSquare(&builder, QVector2D(0.8f, 0), 0.6f, clear);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);
    chain.setModel(model.data());

    const Image background = output("background", frame);
    const Image shading = output("shading", frame);
    const Image over = output("over", frame);
    const Image screen = readTexture(target.get());
    ASSERT_EQ(over.width, width);
    saveForViewing(screen, QStringLiteral("chain-deferred"));

    // The light comes from (1, 1, 1) in camera space on a normal of (0, 0, 1).
    const double lambert = 1 / std::sqrt(3.0);
    const QVector3D halfway = (QVector3D(1, 1, 1).normalized() + QVector3D(0, 0, 1)).normalized();
    const double specular = std::pow(double(halfway.z()), 32.0) * 0.5;
    const QPoint middle = pixelOf(QVector3D(-0.8f, 0, 0));
    const QVector4D lit = over.pixel(middle.x(), middle.y());
    EXPECT_NEAR(lit.x(), lambert * 0.9 + specular, 0.005);
    EXPECT_NEAR(lit.y(), lambert * 0.3 + specular, 0.005);
    EXPECT_NEAR(lit.w(), 1, 0.001);

    int empty = 0, covered = 0, translucent = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const QVector4D s = shading.pixel(x, y);
            const QVector4D d = background.pixel(x, y);
            const float a = s.w();
            (a == 0 ? empty : a == 1 ? covered : translucent) += 1;
            const QVector4D expected = s * a + d * (1 - a);
            const QVector4D found = over.pixel(x, y);
            const QVector4D shown = screen.pixel(x, y);
            for (int channel = 0; channel < 3; ++channel) {
                ASSERT_NEAR(found[channel], expected[channel], 0.002) << x << ' ' << y;
                ASSERT_NEAR(shown[channel], found[channel], 0.003) << x << ' ' << y;
            }
        }
    }
    // Two squares of 1.2 units at a distance of 4 in a picture that is 2 * 4 * tan(22.5 degrees) units high.
    const double side = 1.2 / (8 * std::tan(22.5 * M_PI / 180)) * height;
    EXPECT_NEAR(covered, side * side, 4 * side);
    EXPECT_NEAR(translucent, side * side, 4 * side);
    EXPECT_EQ(empty, width * height - covered - translucent);

    // Dark grey at the top, lighter at the bottom.
    EXPECT_NEAR(screen.pixel(2, height - 1).x(), 64 / 255.0, 0.01);
    EXPECT_NEAR(screen.pixel(2, 0).x(), 153 / 255.0, 0.01);
}

TEST_F(ReadyChainsTest, theDeferredChainWithoutAModelShowsTheGradient)
{
    load("deferred");
    ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    const Image screen = readTexture(target.get());
    EXPECT_NEAR(screen.pixel(width / 2, height - 1).y(), 64 / 255.0, 0.01);
    EXPECT_NEAR(screen.pixel(width / 2, height / 2).y(), 108.5 / 255.0, 0.01);
    EXPECT_NEAR(screen.pixel(width / 2, height / 2).w(), 1, 0.01);
}

TEST_F(ReadyChainsTest, thePrimitivesChainShowsQuadsAndCubes)
{
    load("primitives");
    const Image ids = output("geometry", "Kvz_KvzTexture*_Id");
    const Image shading = output("shading", frame);
    const Image screen = readTexture(target.get());
    ASSERT_EQ(ids.width, width);
    saveForViewing(screen, QStringLiteral("chain-primitives"));
    EXPECT_LE(maximumDifference(shading, screen), 0.003);

    const auto idAt = [&](const QVector3D &point) {
        const QPoint pixel = pixelOf(point);
        return int(*ids.at(pixel.x(), pixel.y()));
    };
    // Triangles are numbered from 1: two of the quad, then twelve of each cube. Front faces are the second ones of a
    // cube.
    const int quad = idAt({0.9f, 0.7f, -0.5f});
    EXPECT_TRUE(quad == 1 || quad == 2) << quad;
    const int first = idAt({-0.8f, -0.5f, 0.5f});
    EXPECT_TRUE(first == 5 || first == 6) << first;
    const int second = idAt({0.5f, -0.6f, 0.7f});
    EXPECT_TRUE(second == 17 || second == 18) << second;
    const int third = idAt({-0.5f, 0.7f, 0.8f});
    EXPECT_TRUE(third == 29 || third == 30) << third;
    EXPECT_EQ(int(*ids.at(0, 0)), 0);

    // The front of a cube faces the light at (100, 100, 100), the quad's back does not.
    const QPoint front = pixelOf({-0.8f, -0.5f, 0.5f});
    EXPECT_GT(screen.pixel(front.x(), front.y()).x(), 0.3);
    const QPoint back = pixelOf({0.9f, 0.7f, -0.5f});
    EXPECT_EQ(screen.pixel(back.x(), back.y()).x(), 0);
}

TEST_F(ReadyChainsTest, theBasicForwardChainLaysAModelOverAGradient)
{
    load("forward-basic");
    GPUModelBuilder builder;
    MaterialData opaque;
    opaque.kd = {0.9f, 0.3f, 0.1f};
    opaque.ks = {0, 0, 0};
    MaterialData clear = opaque;
    clear.d = 0.4f;
    addSquare(&builder, QVector2D(-0.8f, 0), 0.6f, opaque);
    addSquare(&builder, QVector2D(0.8f, 0), 0.6f, clear);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);
    chain.setModel(model.data());

    const Image background = output("background", frame);
    const Image over = output("over", frame);
    const Image screen = readTexture(target.get());
    ASSERT_EQ(over.width, width);
    saveForViewing(screen, QStringLiteral("chain-forward"));

    // The light comes from (1, 1, 1) in camera space on a normal of (0, 0, 1).
    const QVector3D lit = float(1 / std::sqrt(3.0)) * QVector3D(0.9f, 0.3f, 0.1f);
    const auto expectMixed = [&](const QVector3D &point, float opacity) {
        const QPoint pixel = pixelOf(point);
        const QVector4D behind = background.pixel(pixel.x(), pixel.y());
        for (const Image *image : {&over, &screen}) {
            const QVector4D found = image->pixel(pixel.x(), pixel.y());
            for (int channel = 0; channel < 3; ++channel) {
                EXPECT_NEAR(found[channel], opacity * lit[channel] + (1 - opacity) * behind[channel], 0.006)
                    << point.x() << ' ' << channel;
            }
        }
    };
    expectMixed({-0.8f, 0, 0}, 1);
    expectMixed({0.8f, 0, 0}, 0.4f);
    expectMixed({0, 0, 0}, 0);
    expectMixed({0, 1.2f, 0}, 0);
}

TEST_F(ReadyChainsTest, theWireframeChainOutlinesTheTrianglesOfTheShadedModel)
{
    load("wireframe-overlay");
    GPUModelBuilder builder;
    MaterialData material;
    material.kd = {0.9f, 0.9f, 0.9f};
    material.ks = {0, 0, 0};
    addSquare(&builder, QVector2D(0, 0), 1, material);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);
    chain.setModel(model.data());

    const Image over = output("over", frame);
    const Image ids = output("geometry", "Kvz_KvzTexture*_Id");
    const Image wires = output("wires", frame);
    const Image screen = readTexture(target.get());
    saveForViewing(screen, QStringLiteral("chain-wireframe-overlay"));

    // The two triangles meet in the diagonal from the lower left to the upper right corner.
    const QPoint below = pixelOf({0.5f, -0.5f, 0});
    const QPoint above = pixelOf({-0.5f, 0.5f, 0});
    EXPECT_EQ(int(*ids.at(below.x(), below.y())), 1);
    EXPECT_EQ(int(*ids.at(above.x(), above.y())), 2);

    // Inside the triangles and beside the model the frame is unchanged; on their edges it is mixed with the wire
    // colour.
    for (const QPoint &plain : {below, above, QPoint(10, 10), QPoint(width - 10, height / 2)}) {
        EXPECT_EQ(wires.pixel(plain.x(), plain.y()), QVector4D()) << plain.x() << ' ' << plain.y();
        EXPECT_NEAR(screen.pixel(plain.x(), plain.y()).y(), over.pixel(plain.x(), plain.y()).y(), 0.003);
    }
    for (const QVector3D &edge :
        {QVector3D(0, 0, 0), QVector3D(0.5f, 0.5f, 0), QVector3D(-1, 0.2f, 0), QVector3D(0.3f, 1, 0)}) {
        const QPoint pixel = pixelOf(edge);
        const float strength = wires.pixel(pixel.x(), pixel.y()).w();
        EXPECT_GT(strength, 0.3f) << edge.x() << ' ' << edge.y();
        const float green = 0x18 / 255.0f * strength + over.pixel(pixel.x(), pixel.y()).y() * (1 - strength);
        EXPECT_NEAR(screen.pixel(pixel.x(), pixel.y()).y(), green, 0.006) << edge.x() << ' ' << edge.y();
    }
}

TEST_F(ReadyChainsTest, theToonChainFlattensTonesAndInksEdges)
{
    load("toon");
    chain.setFrameValue(FrameValues::fixedLight, true);
    GPUModelBuilder builder;
    MaterialData material;
    material.kd = {0.9f, 0.45f, 0.9f};
    material.ks = {0, 0, 0};
    addSquare(&builder, QVector2D(0, 0), 1, material);
    const QSharedPointer<GPUModel> model = builder.build();
    ASSERT_TRUE(model);
    chain.setModel(model.data());

    const Image background = output("background", frame);
    const Image toon = output("over", frame);
    saveForViewing(toon, QStringLiteral("chain-toon"));
    // The luminance under the light of (1, 1, 1) is 0.33: of four tones, 0.5.
    const QVector3D weights(0.2126f, 0.7152f, 0.0722f);
    const QVector3D kd(0.9f, 0.45f, 0.9f);
    const QVector3D flat = kd * (0.5f / QVector3D::dotProduct(kd, weights));
    const QPoint middle = pixelOf({0.1f, 0, 0});
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(toon.pixel(middle.x(), middle.y())[channel], flat[channel], 0.005) << channel;
    for (const QPoint &edge : {pixelOf({-1, 0, 0}), pixelOf({1, 0.3f, 0}), pixelOf({0, 1, 0})}) {
        EXPECT_NEAR(toon.pixel(edge.x(), edge.y()).x(), 0x20 / 255.0, 0.003) << edge.x() << ' ' << edge.y();
        EXPECT_NEAR(toon.pixel(edge.x(), edge.y()).z(), 0x10 / 255.0, 0.003) << edge.x() << ' ' << edge.y();
    }
    EXPECT_NEAR(toon.pixel(5, height / 2).x(), background.pixel(5, height / 2).x(), 0.003);

    // Its uniforms are inputs of the pass.
    ASSERT_TRUE(chain.setValue("toon", "u_Tones", 1)) << qPrintable(chain.errorString());
    const Image bright = output("over", frame);
    EXPECT_GT(bright.pixel(middle.x(), middle.y()).y(), 1.5f * flat.y());
}

TEST_F(ReadyChainsTest, everyImageOfAChainCanBeCaptured)
{
    for (const char *name : {"ambient-obscurance", "deferred", "forward", "primitives", "toon", "wireframe-overlay"}) {
        camera = QMatrix4x4();
        projection = QMatrix4x4();
        load(name);
        chain.requestAllCaptures();
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        const QVector<RenderChain::Capture> captures = chain.takeCaptures();
        EXPECT_GE(captures.size(), 5) << name;
        for (const RenderChain::Capture &capture : captures) {
            // Without transparent items there are no layers, and what nothing reads is not drawn.
            const bool isSparse = capture.pass == "forward"
                || (capture.pass == "geometry" && QByteArray(name) != "wireframe-overlay"
                    && QByteArray(name) != "primitives");
            const bool isEmpty = capture.pass == "layers"
                || (isSparse && (capture.port == "Kvz_KvzTexture*_Id" || capture.port == "Kvz_KvzTexture*_Emission"));
            EXPECT_EQ(capture.image.size(), isEmpty ? QSize(0, 0) : QSize(width, height))
                << qPrintable(capture.pass + capture.port);
        }
    }
}

TEST_F(ReadyChainsTest, aDisabledGeometryPassSkipsTheShadingThatNeedsIt)
{
    load("deferred-basic");
    ASSERT_TRUE(chain.setEnabled(QStringLiteral("geometry"), false)) << qPrintable(chain.errorString());
    ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    EXPECT_EQ(log.takeWarnings().size(), 1);
    EXPECT_NEAR(readTexture(target.get()).pixel(2, height - 1).x(), 64 / 255.0, 0.01);
}

TEST_F(ReadyChainsTest, thePickingChainNumbersItemsAndColoursThem)
{
    load("picking");
    GPUModelBuilder builder;
    addSquare(&builder, QVector2D(-0.8f, 0), 0.6f, MaterialData());
    addSquare(&builder, QVector2D(0.8f, 0), 0.6f, MaterialData());
    const QSharedPointer<GPUModel> model = builder.build();
    chain.setModel(model.data());
    const Image ids = output("ids", "Kvz_KvzTexture*_ItemId");
    const Image screen = readTexture(target.get());
    saveForViewing(screen, QStringLiteral("chain-picking"));
    EXPECT_EQ(readTexture(chain.exportedTexture("ids")).data, ids.data);
    EXPECT_EQ(chain.exportedTexture("depth")->width(0), width);

    // The square's second triangle lies above its diagonal.
    const QPoint points[] = {
        pixelOf({-0.9f, 0.2f, 0}), pixelOf({0.7f, 0.2f, 0}), pixelOf({0.9f, -0.2f, 0}), pixelOf({0.9f, -0.3f, 0})};
    const int items[] = {1, 2, 2, 2};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(int(ids.at(points[i].x(), points[i].y())[0]), items[i]) << i;
    EXPECT_EQ(int(ids.at(points[1].x(), points[1].y())[1]), 1);
    EXPECT_EQ(int(ids.at(points[2].x(), points[2].y())[1]), 0);
    const auto colour = [&](const Image &image, int i) { return image.pixel(points[i].x(), points[i].y()); };
    EXPECT_EQ(screen.pixel(2, 2), QVector4D(0, 0, 0, 1));
    EXPECT_GT((colour(screen, 0) - colour(screen, 1)).length(), 0.3f) << "items";
    EXPECT_GT((colour(screen, 1) - colour(screen, 2)).length(), 0.1f) << "triangles of one item";
    EXPECT_EQ(colour(screen, 2), colour(screen, 3)) << "one triangle";
}

TEST_F(ReadyChainsTest, whereThereIsNoSurfaceThePassThatPresentsIsSkippedWithALine)
{
    if (context().platform() == QLatin1String("display"))
        GTEST_SKIP() << "this context may have a surface";
    load("deferred");
    chain.setFramebuffer(nullptr);
    for (int frame = 0; frame < 2; ++frame)
        EXPECT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1) << "once";
    EXPECT_TRUE(lines[0].endsWith("pass \"screen\" is skipped: the context has no surface to present to; set a "
                                  "framebuffer, or disable the pass"))
        << qPrintable(lines[0]);
    chain.setFramebuffer(&framebuffer);
    EXPECT_TRUE(chain.renderFrame());
    EXPECT_NEAR(readTexture(target.get()).pixel(0, 0).x(), 153 / 255.0, 0.01) << "it presents again";
}

} // namespace Velmora::Kvz
