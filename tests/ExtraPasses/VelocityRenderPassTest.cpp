// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/PooledTextures.h"

#include <Chain/RenderChain.h>
#include <ExtraPasses/MultisampleForwardRenderPass.h>
#include <ExtraPasses/VelocityRenderPass.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/CameraJitterRenderPass.h>
#include <RenderPasses/ModelRenderPass.h>
#include <Scene/GPUModel.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>
#include <functional>
#include <iterator>

namespace Velmora::Kvz {

namespace {

using Port = VelocityRenderPass;

const QSize size(160, 120);
const QMatrix4x4 projection = perspective(size, 0.5f, 40);
const QMatrix4x4 camera = lookAt(QVector3D(0, 1, 6), QVector3D());

QMatrix4x4 at(float x, float y, float z, float scale = 1)
{
    QMatrix4x4 matrix;
    matrix.translate(x, y, z);
    matrix.scale(scale);
    return matrix;
}

/// A wall far behind, a ball on the left and one on the right.
QSharedPointer<GPUModel> makeModel()
{
    GPUModelBuilder builder;
    const int material = builder.addMaterial({});
    builder.addItem(builder.addMesh(wallMesh()), material, at(0, 0, -6, 3));
    const int ball = builder.addMesh(sphereMesh(8));
    builder.addItem(ball, material, at(-1.5f, 0, 0));
    builder.addItem(ball, material, at(1.5f, 0, 0));
    return builder.build();
}

class VelocityRenderPassTest : public GLTest
{
protected:
    /// Draws a frame: the model's depth, then its velocity.
    Image frame(GPUModel *model, const QMatrix4x4 &view = camera, const QMatrix4x4 &lens = projection)
    {
        geometry.setInput(ModelRenderPass::Viewport, QRect(QPoint(), size));
        geometry.setInput(ModelRenderPass::ProjectionMatrix, lens);
        geometry.setInput(ModelRenderPass::CameraMatrix, view);
        geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model));
        glViewport(0, 0, size.width(), size.height());
        geometry.start(nullptr);
        ids = readTexture(geometry.output(ModelRenderPass::Id).value<Texture *>());
        depth = readTexture(geometry.output(ModelRenderPass::Depth).value<Texture *>());
        return velocity(geometry.output(ModelRenderPass::Depth), model, view, lens);
    }
    Image velocity(const QVariant &depthImage, GPUModel *model, const QMatrix4x4 &view, const QMatrix4x4 &lens)
    {
        pass->setInput(Port::Viewport, QRect(QPoint(2, 3), size));
        pass->setInput(Port::Depth, depthImage);
        pass->setInput(Port::ProjectionMatrix, lens);
        pass->setInput(Port::CameraMatrix, view);
        pass->setInput(Port::Geometry, QVariant::fromValue(model));
        pass->setNumOutputUsers(0, 1);
        pass->start(nullptr);
        model->advanceFrame();
        auto *const texture = pass->output(0).value<Texture *>();
        EXPECT_EQ(texture->internalFormat(0), GL_RGBA16F);
        Image image = readTexture(texture);
        TextureManager::Instance()->releaseTempTextureRef(texture, 1);
        return image;
    }

    ModelRenderPass geometry;
    Image ids; ///< Of the last frame.
    Image depth;
    std::unique_ptr<VelocityRenderPass> pass = std::make_unique<VelocityRenderPass>();
    PooledTextures textures;
};

/// Where a point of this frame's depth image was in the last frame, in clip space of `before`.
Vector4d previousOf(const Vector4d &present, const DoubleMatrix &before, const DoubleMatrix &now)
{
    return before * (now.inverted() * present);
}

Vector4d deviceOf(const Image &depth, int x, int y)
{
    return {2 * (x + 0.5) / depth.width - 1, 2 * (y + 0.5) / depth.height - 1, 2 * double(depth.at(x, y)[0]) - 1, 1};
}

/// Whether a pixel of a depth image lies on a sphere; the radius includes a margin.
class OnBall
{
public:
    OnBall(const Image &depth, const DoubleMatrix &view, const QVector3D &centre, double radius)
        : m_depth(&depth),
          m_back(view.inverted()),
          m_centre{double(centre.x()), double(centre.y()), double(centre.z())},
          m_radius(radius)
    { }

    bool operator()(int x, int y) const
    {
        const Vector4d world = m_back * deviceOf(*m_depth, x, y);
        Vector3d way;
        for (size_t i = 0; i < 3; ++i)
            way[i] = world[i] / world[3] - m_centre[i];
        return std::sqrt(dot(way, way)) < m_radius;
    }

private:
    const Image *m_depth;
    DoubleMatrix m_back;
    Vector3d m_centre;
    double m_radius;
};

/// The largest error of the velocities, in units of what storage allows, over the pixels that count: those of a surface
/// that `before` took to the screen in the last frame and `now` does in this one.
double worst(const Image &velocity, const Image &depth, const DoubleMatrix &before, const DoubleMatrix &now,
    const std::function<bool(int, int)> &counts, int *pixels)
{
    double difference = 0;
    *pixels = 0;
    for (int y = 0; y < depth.height; ++y) {
        for (int x = 0; x < depth.width; ++x) {
            if (!counts(x, y))
                continue;
            ++*pixels;
            const Vector4d present = deviceOf(depth, x, y);
            const Vector4d previous = previousOf(present, before, now);
            for (size_t i = 0; i < 2; ++i) {
                const double way = 0.5 * (present[i] - previous[i] / previous[3]);
                // Half floats keep 11 bits; depth is single precision.
                const double tolerance = std::abs(way) / 1024 + 2e-5;
                difference = std::max(difference, std::abs(double(velocity.at(x, y)[i]) - way) / tolerance);
            }
        }
    }
    return difference;
}

const auto everywhere = [](int, int) { return true; };

} // namespace

TEST_F(VelocityRenderPassTest, nothingMovesInTheFirstFrameAndInAStillOne)
{
    const QSharedPointer<GPUModel> model = makeModel();
    for (int i = 0; i < 3; ++i) {
        const Image still = frame(model.data());
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x)
                ASSERT_LT(still.pixel(x, y).toVector2D().length(), 1e-7f) << x << ' ' << y;
        }
    }
}

TEST_F(VelocityRenderPassTest, aMovingCameraMovesWhatItSeesByDepth)
{
    const QSharedPointer<GPUModel> model = makeModel();
    frame(model.data());
    QMatrix4x4 moved = lookAt(QVector3D(0.4f, 1.2f, 5.7f), QVector3D(0.2f, 0, 0));
    QMatrix4x4 zoomed;
    zoomed.perspective(46, float(size.width()) / float(size.height()), 0.5f, 40);
    const Image image = frame(model.data(), moved, zoomed);
    saveForViewing(image, QStringLiteral("velocity-camera"));
    int pixels = 0;
    EXPECT_LT(worst(image, depth, DoubleMatrix(projection) * DoubleMatrix(camera),
                  DoubleMatrix(zoomed) * DoubleMatrix(moved), everywhere, &pixels),
        1);
    EXPECT_EQ(pixels, size.width() * size.height()) << "the far plane moves too";
    // Near things move more than distant ones.
    EXPECT_GT((image.pixel(40, 55) - image.pixel(80, 62)).length(), 0.01f);
}

TEST_F(VelocityRenderPassTest, theCameraMayLookAlongAnyAxis)
{
    const QSharedPointer<GPUModel> model = makeModel();
    QMatrix4x4 onItsSide;
    onItsSide.rotate(90, 0, 0, 1);
    const QMatrix4x4 views[] = {lookAt(QVector3D(6, 1, 0.3f), QVector3D()), lookAt(QVector3D(-0.2f, 6, 1), QVector3D()),
        lookAt(QVector3D(0.4f, 1, -4), QVector3D()), onItsSide * camera};
    for (size_t i = 0; i < std::size(views); ++i) {
        SCOPED_TRACE(i);
        frame(model.data(), views[i]);
        QMatrix4x4 moved = views[i];
        moved.translate(0.1f, 0.05f, -0.1f);
        const Image image = frame(model.data(), moved);
        int pixels = 0;
        EXPECT_LT(worst(image, depth, DoubleMatrix(projection) * DoubleMatrix(views[i]),
                      DoubleMatrix(projection) * DoubleMatrix(moved), everywhere, &pixels),
            1);
        EXPECT_GT(image.pixel(80, 60).toVector2D().length(), 0.001f) << "it moves";
    }
}

TEST_F(VelocityRenderPassTest, holdsTheChangeOfTheJitter)
{
    const QSharedPointer<GPUModel> model = makeModel();
    CameraJitterPass jitter;
    jitter.setInput(CameraJitterPass::Viewport, QRect(QPoint(), size));
    jitter.setInput(CameraJitterPass::ProjectionMatrix, projection);
    jitter.setInput(CameraJitterPass::Mode, int(JitterAntiDiagonal));
    QVector2D previous;
    for (int i = 0; i < 4; ++i) {
        jitter.start(nullptr);
        const auto amount = jitter.output(CameraJitterPass::JitterAmount).value<QVector2D>();
        const Image image =
            frame(model.data(), camera, jitter.output(CameraJitterPass::ProjectionMatrixOut).value<QMatrix4x4>());
        const QVector2D expected = i == 0 ? QVector2D() : 0.5f * (amount - previous);
        // The resolve adds half of the previous jitter less the present one, which cancels this to a 250th of a pixel.
        for (int y = 0; y < size.height(); y += 7) {
            for (int x = 0; x < size.width(); x += 7) {
                EXPECT_NEAR(image.pixel(x, y).x(), expected.x(), 0.004 / size.width());
                EXPECT_NEAR(image.pixel(x, y).y(), expected.y(), 0.004 / size.height());
            }
        }
        previous = amount;
    }
}

TEST_F(VelocityRenderPassTest, aMovingItemHasItsOwnMotion)
{
    const QSharedPointer<GPUModel> model = makeModel();
    frame(model.data());
    const QMatrix4x4 before = model->modelMatrix(1);
    QMatrix4x4 now = at(-1.1f, 0.3f, 0.4f);
    now.rotate(20, 0, 1, 0);
    model->setModelMatrix(1, now);
    const Image image = frame(model.data());
    saveForViewing(image, QStringLiteral("velocity-item"));

    const DoubleMatrix view = DoubleMatrix(projection) * DoubleMatrix(camera);
    const DoubleMatrix back = DoubleMatrix(before) * DoubleMatrix(now).inverted();
    // Primitive numbers start over with each item, so the ball is identified by its position.
    const QVector3D centre(-1.1f, 0.3f, 0.4f);
    const OnBall onBall(depth, view, centre, 1.01);
    const OnBall nearBall(depth, view, centre, 1.2);
    int pixels = 0;
    EXPECT_LT(worst(image, depth, view * back, view, onBall, &pixels), 1.5);
    EXPECT_GT(pixels, 1000);
    EXPECT_LT(worst(
                  image, depth, view, view, [&](int x, int y) { return !nearBall(x, y); }, &pixels),
        1)
        << "the rest stands still";
    EXPECT_GT(pixels, 10000);

    // The ball stands still again, and so does its image.
    const Image still = frame(model.data());
    EXPECT_LT(worst(still, depth, view, view, everywhere, &pixels), 1);
}

TEST_F(VelocityRenderPassTest, stateThatItFindsDoesNotMatter)
{
    const auto motion = [&](bool isStateHostile) {
        pass = std::make_unique<VelocityRenderPass>();
        const QSharedPointer<GPUModel> model = makeModel();
        frame(model.data());
        model->setModelMatrix(1, at(-1.1f, 0.3f, 0.4f));
        // The geometry comes first, in state that suits it.
        geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(model.data()));
        geometry.start(nullptr);
        if (isStateHostile) {
            glDepthMask(GL_FALSE);
            glDepthFunc(GL_GREATER);
            glClearDepth(0.25);
            glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
            glEnable(GL_CULL_FACE);
            glCullFace(GL_FRONT_AND_BACK);
            glEnable(GL_SCISSOR_TEST);
            glScissor(0, 0, 3, 3);
            glEnable(GL_STENCIL_TEST);
            glStencilFunc(GL_NEVER, 0, 0xff);
            glEnable(GL_BLEND);
        }
        const Image image = velocity(geometry.output(ModelRenderPass::Depth), model.data(), camera, projection);
        // What the pass does not set, for the tests that follow.
        glCullFace(GL_BACK);
        glStencilFunc(GL_ALWAYS, 0, 0xff);
        return image;
    };
    const Image expected = motion(false);
    EXPECT_GT(maximumDifference(expected, Image(size.width(), size.height())), 0.01) << "something moves";
    EXPECT_EQ(maximumDifference(motion(true), expected), 0);
}

TEST_F(VelocityRenderPassTest, cameraAndItemMoveTogether)
{
    const QSharedPointer<GPUModel> model = makeModel();
    frame(model.data());
    // The item moves with the camera, so it stands still on the screen while everything else moves.
    QMatrix4x4 step;
    step.translate(0.5f, 0, 0);
    model->setModelMatrix(2, step * model->modelMatrix(2));
    const QMatrix4x4 moved = camera * step.inverted();
    const Image image = frame(model.data(), moved);
    EXPECT_LT(image.pixel(118, 58).toVector2D().length(), 2e-5f) << "the ball on the right";
    EXPECT_GT(image.pixel(20, 58).toVector2D().length(), 0.01f);
}

TEST_F(VelocityRenderPassTest, aHiddenItemLeavesNoTrace)
{
    const QSharedPointer<GPUModel> model = makeModel();
    model->setModelMatrix(2, at(0, 0, -9));
    frame(model.data());
    model->setModelMatrix(2, at(0.5f, 0, -9)); // Behind the wall.
    const Image image = frame(model.data());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            ASSERT_LT(image.pixel(x, y).toVector2D().length(), 1e-7f) << x << ' ' << y;
    }
}

TEST_F(VelocityRenderPassTest, whatWasBehindTheCameraHasNoPast)
{
    const QSharedPointer<GPUModel> model = makeModel();
    frame(model.data(), lookAt(QVector3D(0, 0, -3), QVector3D(0, 0, -8)));
    const Image image = frame(model.data());
    EXPECT_EQ(image.pixel(40, 55).toVector2D(), QVector2D(1, 1)) << "the ball";
    EXPECT_NE(image.pixel(80, 62).toVector2D(), QVector2D(1, 1)) << "the wall";
}

TEST_F(VelocityRenderPassTest, takesDepthOfSeveralSamples)
{
    const QSharedPointer<GPUModel> model = makeModel();
    MultisampleForwardRenderPass shading;
    shading.setInput(MultisampleForwardRenderPass::Viewport, QRect(QPoint(), size));
    shading.setInput(MultisampleForwardRenderPass::ProjectionMatrix, projection);
    shading.setInput(MultisampleForwardRenderPass::CameraMatrix, camera);
    shading.setInput(MultisampleForwardRenderPass::Geometry, QVariant::fromValue(model.data()));
    shading.setNumOutputUsers(MultisampleForwardRenderPass::Depth, 1);
    const auto sampled = [&] {
        shading.start(nullptr);
        return velocity(shading.output(MultisampleForwardRenderPass::Depth), model.data(), camera, projection);
    };
    sampled();
    model->setModelMatrix(1, at(-1.4f, 0, 0));
    const Image image = sampled();
    // The ball moved by 0.1 units at a distance of about 5: a pixel inside it moved by a few pixels, the wall not at
    // all.
    const float expected = 0.5f
        * (projection.map(camera.map(QVector3D(-1.4f, 0, 1))) - projection.map(camera.map(QVector3D(-1.5f, 0, 1)))).x();
    const QVector3D middle = projection.map(camera.map(QVector3D(-1.4f, 0, 1)));
    const QVector4D inner =
        image.pixel(int((middle.x() + 1) / 2 * size.width()), int((middle.y() + 1) / 2 * size.height()));
    EXPECT_NEAR(inner.x(), expected, expected / 20);
    EXPECT_LT(image.pixel(80, 62).toVector2D().length(), 1e-6f);
    EXPECT_EQ(PooledTextures::allReferences(), 0) << "the depth image was given back";
}

// Motion of items and of the camera counts from the same frame: the last one that the pass saw.
TEST_F(VelocityRenderPassTest, motionInFramesThatItDidNotSeeCounts)
{
    const auto withoutDepth = [&](GPUModel *model) {
        pass->setInput(Port::Depth, QVariant());
        pass->setInput(Port::Geometry, QVariant::fromValue(model));
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(0).isValid());
    };
    const auto skipped = [&](GPUModel *model) {
        pass->setInput(Port::Depth, QVariant());
        pass->setInput(Port::Geometry, QVariant::fromValue(model));
        pass->skip(nullptr);
    };
    for (const std::function<void(GPUModel *)> &unseen :
        {std::function<void(GPUModel *)>(withoutDepth), std::function<void(GPUModel *)>(skipped)}) {
        for (const bool movesNow : {false, true}) {
            SCOPED_TRACE(testing::Message() << (movesNow ? "moves on" : "stands"));
            pass = std::make_unique<VelocityRenderPass>();
            const QSharedPointer<GPUModel> model = makeModel();
            frame(model.data());
            // The left ball moves in the first two of three frames. The right one moves away and comes back. The wall
            // moves only in the last frame, if at all.
            const QMatrix4x4 wallBefore = model->modelMatrix(0);
            const QMatrix4x4 before = model->modelMatrix(1);
            const QMatrix4x4 right = model->modelMatrix(2);
            const QVector3D places[] = {{-2, 0.4f, 0.1f}, {-1.2f, 0.2f, 0.3f}, {-1.1f, 0.3f, 0.4f}};
            for (int i = 0; i < 3; ++i) {
                if (i < 2) {
                    model->setModelMatrix(1, at(places[i].x(), places[i].y(), places[i].z()));
                    model->setModelMatrix(2, i == 0 ? at(1, 1, 1) : right);
                }
                unseen(model.data());
                model->advanceFrame();
            }
            const QVector3D place = places[movesNow ? 2 : 1];
            if (movesNow) {
                model->setModelMatrix(1, at(place.x(), place.y(), place.z()));
                model->setModelMatrix(0, at(0.3f, -0.1f, -6, 3));
            }
            const QMatrix4x4 now = model->modelMatrix(1);
            const QMatrix4x4 moved = lookAt(QVector3D(0.2f, 1.1f, 5.8f), QVector3D(0.1f, 0, 0));
            const Image image = frame(model.data(), moved);

            const DoubleMatrix lastView = DoubleMatrix(projection) * DoubleMatrix(camera);
            const DoubleMatrix view = DoubleMatrix(projection) * DoubleMatrix(moved);
            const DoubleMatrix back = DoubleMatrix(before) * DoubleMatrix(now).inverted();
            const OnBall onBall(depth, view, place, 1.01);
            const OnBall nearBall(depth, view, place, 1.2);
            const OnBall onRight(depth, view, QVector3D(1.5f, 0, 0), 1.01);
            const OnBall nearRight(depth, view, QVector3D(1.5f, 0, 0), 1.2);
            const auto onWall = [&](int x, int y) {
                return depth.at(x, y)[0] < 1 && !nearBall(x, y) && !nearRight(x, y);
            };
            const DoubleMatrix wallBack = DoubleMatrix(wallBefore) * DoubleMatrix(model->modelMatrix(0)).inverted();
            int pixels = 0;
            EXPECT_LT(worst(image, depth, lastView * back, view, onBall, &pixels), 1.5);
            EXPECT_GT(pixels, 1000);
            const auto standing = [&](int x, int y) { return depth.at(x, y)[0] >= 1 || onRight(x, y); };
            EXPECT_LT(worst(image, depth, lastView, view, standing, &pixels), 1) << "the camera alone moves it";
            EXPECT_GT(pixels, 10000);
            EXPECT_LT(worst(image, depth, lastView * wallBack, view, onWall, &pixels), 1.5);
            EXPECT_GT(pixels, 2000);

            // The next frame has no motion left.
            const Image still = frame(model.data(), moved);
            EXPECT_LT(worst(still, depth, view, view, everywhere, &pixels), 1);
        }
    }
}

TEST_F(VelocityRenderPassTest, aChainThatSwitchesItOnBeginsAnew)
{
    const QSharedPointer<GPUModel> model = makeModel();
    ChainDescription description;
    for (const char *className : {"ModelRenderPass", "VelocityRenderPass"}) {
        ChainPass chainPass;
        chainPass.name = QString::fromUtf8(className);
        chainPass.className = chainPass.name;
        description.passes.append(chainPass);
    }
    const QString name = QStringLiteral("VelocityRenderPass");
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setViewport(QRect(QPoint(), size));
    chain.setModel(model.data());
    chain.setCamera(camera, projection);
    ASSERT_TRUE(chain.renderFrame());

    ASSERT_TRUE(chain.setEnabled(name, false));
    for (int i = 1; i <= 2; ++i) {
        model->setModelMatrix(2, at(1.5f - 0.2f * float(i), 0, 0));
        ASSERT_TRUE(chain.renderFrame());
    }
    ASSERT_TRUE(chain.setEnabled(name, true));
    ASSERT_TRUE(chain.addExport(QStringLiteral("velocity"), {name, pass->outputName(0)}));
    ASSERT_TRUE(chain.addExport(
        QStringLiteral("depth"), {QStringLiteral("ModelRenderPass"), QStringLiteral("Kvz_KvzTexture*_Depth")}));
    // What is behind it has been without it, so nothing that it knows of earlier frames would help.
    model->setModelMatrix(2, at(1, 0, 0));
    ASSERT_TRUE(chain.renderFrame());
    const DoubleMatrix view = DoubleMatrix(projection) * DoubleMatrix(camera);
    int pixels = 0;
    Image image = readTexture(chain.exportedTexture(QStringLiteral("velocity")));
    Image surface = readTexture(chain.exportedTexture(QStringLiteral("depth")));
    EXPECT_LT(worst(image, surface, view, view, everywhere, &pixels), 1);

    const QMatrix4x4 before = model->modelMatrix(2);
    model->setModelMatrix(2, at(1.1f, 0, 0));
    ASSERT_TRUE(chain.renderFrame());
    image = readTexture(chain.exportedTexture(QStringLiteral("velocity")));
    surface = readTexture(chain.exportedTexture(QStringLiteral("depth")));
    const DoubleMatrix back = DoubleMatrix(before) * DoubleMatrix(model->modelMatrix(2)).inverted();
    EXPECT_LT(
        worst(image, surface, view * back, view, OnBall(surface, view, QVector3D(1.1f, 0, 0), 1.01), &pixels), 1.5);
    EXPECT_GT(pixels, 1000);
}

TEST_F(VelocityRenderPassTest, aModelThatWasNotThereStandsStill)
{
    const QSharedPointer<GPUModel> model = makeModel();
    const auto placed = [&](GPUModel *which, float x) {
        which->setModelMatrix(1, at(x, 0, 0));
        return frame(which);
    };
    int pixels = 0;
    const DoubleMatrix view = DoubleMatrix(projection) * DoubleMatrix(camera);
    const auto stands = [&](const Image &image) { return worst(image, depth, view, view, everywhere, &pixels) < 1; };
    EXPECT_TRUE(stands(placed(model.data(), -1.2f))) << "the first frame of all";
    EXPECT_FALSE(stands(placed(model.data(), -1.4f)));
    const QSharedPointer<GPUModel> other = makeModel();
    EXPECT_TRUE(stands(placed(other.data(), -1.2f))) << "the first frame of another model";
    EXPECT_FALSE(stands(placed(other.data(), -1.4f)));
    // What the first model does meanwhile has no effect on the other one.
    model->setModelMatrix(2, at(1.2f, 0, 0));
    pass->setInput(Port::Geometry, QVariant::fromValue(model.data()));
    pass->skip(nullptr);
    model->advanceFrame();
    EXPECT_TRUE(stands(frame(other.data())));
    EXPECT_TRUE(stands(placed(model.data(), -1.0f)));
}

TEST_F(VelocityRenderPassTest, isEmptyWithoutDepthAndForgetsNothing)
{
    const QSharedPointer<GPUModel> model = makeModel();
    frame(model.data());
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<Texture *>(nullptr), QVariant(3)}) {
        pass->setInput(Port::Depth, nothing);
        pass->setInput(Port::CameraMatrix, QMatrix4x4());
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(0).isValid());
    }
    const Image still = frame(model.data());
    EXPECT_LT(still.pixel(40, 55).toVector2D().length(), 1e-7f) << "the frames without depth do not count";
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(VelocityRenderPassTest, handsOnReferencesAndLeavesItsState)
{
    Texture *const depthImage = textures.take(TextureFormat::DepthStencil, size.width(), size.height(), 3);
    pass->setInput(Port::Viewport, QRect(QPoint(), size));
    pass->setInput(Port::Depth, QVariant::fromValue(depthImage));
    pass->setNumOutputUsers(0, 2);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    pass->start(nullptr);
    auto *const velocityImage = pass->output(0).value<Texture *>();
    EXPECT_EQ(PooledTextures::references(velocityImage), 2);
    EXPECT_EQ(PooledTextures::references(depthImage), 2);
    EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
    EXPECT_FALSE(glFlag(GL_BLEND));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    TextureManager::Instance()->releaseTempTextureRef(velocityImage, 2);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(PooledTextures::references(depthImage), 1);

    const GLObjectCounts before = glObjectCounts();
    {
        VelocityRenderPass other;
        other.setInput(Port::Viewport, QRect(QPoint(), size));
        other.setInput(Port::Depth, QVariant::fromValue(depthImage));
        other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    }
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
