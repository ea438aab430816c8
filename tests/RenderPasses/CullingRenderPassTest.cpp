// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/DoubleMatrix.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"

#include <GL/GLStatistics.h>
#include <RenderPasses/CullingRenderPass.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace Velmora::Kvz {

namespace {

struct View
{
    QMatrix4x4 projection;
    QMatrix4x4 camera;
};

const QSize frameSize(96, 72);

class CullingRenderPassTest : public GLTest
{
protected:
    using Port = CullingRenderPass;

    CullingRenderPass pass;
    ForwardRenderPass drawing;
    QSharedPointer<GPUModel> model;

    void TearDown() override
    {
        model.clear();
        GLTest::TearDown();
    }

    void setFlags(const QVariant &frustum, const QVariant &visibility)
    {
        pass.setInput(Port::FrustumCullingEnabled, frustum);
        pass.setInput(Port::VisibilityCullingEnabled, visibility);
    }
    void setView(const View &view)
    {
        pass.setInput(Port::CameraMatrix, view.camera);
        pass.setInput(Port::ProjectionMatrix, view.projection);
    }
    void setModel() { pass.setInput(Port::Geometry, QVariant::fromValue(model.data())); }

    /// Boxes at these places, each of a different colour.
    void makeBoxes(const QVector<QMatrix4x4> &places)
    {
        GPUModelBuilder builder;
        const int mesh = builder.addMesh(boxMesh());
        for (int i = 0; i < places.size(); ++i) {
            MaterialData material;
            material.kd = QVector3D(float(i % 7 + 1) / 7, float(i % 5 + 1) / 5, float(i % 3 + 1) / 3);
            builder.addItem(mesh, builder.addMaterial(material), places[i]);
        }
        model = builder.build();
        setModel();
    }

    /// Draws this pass's output with a later pass.
    Image draw(ForwardRenderPass &forward, const View &view, const QVariant &geometry)
    {
        forward.setInput(ForwardRenderPass::Viewport, QRect(QPoint(0, 0), frameSize));
        forward.setInput(ForwardRenderPass::ProjectionMatrix, view.projection);
        forward.setInput(ForwardRenderPass::CameraMatrix, view.camera);
        forward.setInput(ForwardRenderPass::Geometry, geometry);
        glViewport(0, 0, frameSize.width(), frameSize.height());
        forward.start(nullptr);
        glFinish();
        return readTexture(forward.output(ForwardRenderPass::Frame).value<Texture *>());
    }
    /// A frame as a chain makes it: this pass, then one that draws.
    Image frame(const View &view)
    {
        setView(view);
        pass.start(nullptr);
        return draw(drawing, view, pass.output(0));
    }
    /// The same with one drawing pass per camera; the first camera culls.
    QVector<Image> frame(const QVector<View> &views, std::vector<std::unique_ptr<ForwardRenderPass>> &passes)
    {
        setView(views[0]);
        pass.start(nullptr);
        QVector<Image> images;
        for (int i = 0; i < views.size(); ++i)
            images.append(draw(*passes[size_t(i)], views[i], pass.output(0)));
        return images;
    }
    /// The picture with nothing culled, drawn from a second model with the same places, so that marks and queries stay
    /// as they are.
    Image everything(const View &view) const
    {
        GPUModelBuilder builder;
        const int mesh = builder.addMesh(boxMesh());
        for (int i = 0; i < model->itemCount(); ++i) {
            MaterialData material;
            material.kd = QVector3D(float(i % 7 + 1) / 7, float(i % 5 + 1) / 5, float(i % 3 + 1) / 3);
            builder.addItem(mesh, builder.addMaterial(material), model->modelMatrix(i));
        }
        const QSharedPointer<GPUModel> whole = builder.build();
        ForwardRenderPass forward;
        return const_cast<CullingRenderPassTest *>(this)->draw(forward, view, QVariant::fromValue(whole.data()));
    }
};

QMatrix4x4 placed(const QVector3D &position, const QVector3D &scale = QVector3D(1, 1, 1))
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.scale(scale);
    return matrix;
}

View viewFrom(const QVector3D &eye, const QVector3D &center)
{
    return {perspective(frameSize, 0.5f, 60), lookAt(eye, center)};
}

std::vector<std::unique_ptr<ForwardRenderPass>> makePasses(int count)
{
    std::vector<std::unique_ptr<ForwardRenderPass>> passes;
    for (int i = 0; i < count; ++i)
        passes.push_back(std::make_unique<ForwardRenderPass>());
    return passes;
}

QVector<int> culledItems(const GPUModel &model)
{
    QVector<int> items;
    for (int i = 0; i < model.itemCount(); ++i) {
        if (model.isCulled(i))
            items.append(i);
    }
    return items;
}

/// Places all around the origin, turned and stretched.
QVector<QMatrix4x4> randomPlaces(int count, float spread, unsigned int seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(-1, 1);
    QVector<QMatrix4x4> places;
    for (int i = 0; i < count; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(unit(random) * spread, unit(random) * spread, unit(random) * spread);
        matrix.rotate(180 * unit(random), unit(random), unit(random), unit(random) + 1.5f);
        matrix.scale(0.55f + 0.5f * unit(random), 0.55f + 0.5f * unit(random), 0.55f + 0.5f * unit(random));
        places.append(matrix);
    }
    return places;
}

/// How far the box lies beyond the plane that it lies furthest beyond, in world units: above 0 all its corners are
/// outside that plane.
double distanceOutside(const QPair<QVector3D, QVector3D> &bounds, const DoubleMatrix &viewProjection)
{
    double furthest = -std::numeric_limits<double>::infinity();
    for (int plane = 0; plane < 6; ++plane) {
        Vector4d factors;
        for (int i = 0; i < 4; ++i) {
            const double row = viewProjection.at(plane / 2, i);
            factors[size_t(i)] = viewProjection.at(3, i) + (plane % 2 == 0 ? row : -row);
        }
        const double length = std::sqrt(dot(xyz(factors), xyz(factors)));
        double innermost = -std::numeric_limits<double>::infinity();
        for (int corner = 0; corner < 8; ++corner) {
            const Vector3d point = {double((corner & 1 ? bounds.first : bounds.second).x()),
                double((corner & 2 ? bounds.first : bounds.second).y()),
                double((corner & 4 ? bounds.first : bounds.second).z())};
            innermost = std::max(innermost, (dot(xyz(factors), point) + factors[3]) / length);
        }
        furthest = std::max(furthest, -innermost);
    }
    return furthest;
}

} // namespace

TEST_F(CullingRenderPassTest, handsTheModelOn)
{
    makeBoxes({placed({0, 0, 0})});
    for (const bool isCulling : {false, true}) {
        setFlags(isCulling, isCulling);
        pass.start(nullptr);
        EXPECT_EQ(pass.output(0).userType(), qMetaTypeId<GPUModel *>());
        EXPECT_EQ(pass.output(0).value<GPUModel *>(), model.data());
        pass.skip(nullptr);
        EXPECT_FALSE(pass.output(0).isValid());
        // There is nothing to mark without a model.
        pass.setInput(Port::Geometry, QVariant());
        pass.start(nullptr);
        EXPECT_EQ(pass.output(0).value<GPUModel *>(), nullptr);
        setModel();
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(CullingRenderPassTest, drawsNothingAndMakesNothing)
{
    makeBoxes({placed({0, 0, 0}), placed({100, 0, 0})});
    const GLObjectCounts before = glObjectCounts();
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
    GLCallRecorder<&epoxy_glGenQueries> queries;
    setFlags(true, true);
    setView(viewFrom({0, 0, 10}, {}));
    for (int i = 0; i < 3; ++i)
        pass.start(nullptr);
    EXPECT_EQ(draws.calls.size() + indexedDraws.calls.size() + queries.calls.size(), 0u);
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(CullingRenderPassTest, marksWhatLiesOutsideProjectionTimesCamera)
{
    // The other order of the two matrices would mark other boxes.
    makeBoxes({placed({0, 0, 0}), placed({30, 0, 0}), placed({30, 0, 20}), placed({0, 0, 20}), placed({0, 0, -100})});
    setFlags(true, false);
    setView(viewFrom({30, 0, 10}, {30, 0, 0}));
    pass.start(nullptr);
    EXPECT_EQ(culledItems(*model), (QVector<int>{0, 2, 3, 4}));
    setView(viewFrom({0, 0, 10}, {0, 0, 20}));
    pass.start(nullptr);
    EXPECT_EQ(culledItems(*model), (QVector<int>{0, 1, 2, 4}));
}

TEST_F(CullingRenderPassTest, readsMissingMatricesAsTheIdentity)
{
    // The view is then the cube from -1 to 1.
    makeBoxes({placed({0, 0, 0}), placed({1.9f, 1.9f, -1.9f}), placed({2.1f, 0, 0}), placed({0, 0, -2.1f})});
    setFlags(true, false);
    pass.start(nullptr);
    EXPECT_EQ(culledItems(*model), (QVector<int>{2, 3}));
}

TEST_F(CullingRenderPassTest, leavesTheMarksOfTheLastFrameWithBothFlagsOff)
{
    makeBoxes({placed({0, 0, 0}), placed({100, 0, 0})});
    const View view = viewFrom({0, 0, 10}, {});
    setView(view);
    setFlags(true, false);
    pass.start(nullptr);
    ASSERT_EQ(culledItems(*model), QVector<int>{1});
    for (const QVariant &off : {QVariant(false), QVariant(), QVariant(0), QVariant(QStringLiteral("false"))}) {
        setFlags(off, off);
        setView(viewFrom({100, 0, 10}, {100, 0, 0}));
        pass.start(nullptr);
        EXPECT_EQ(culledItems(*model), QVector<int>{1}) << "nothing resets it";
    }
    // Either flag alone resets the old marks; flags are converted.
    setFlags(QVariant(), 1);
    pass.start(nullptr);
    EXPECT_EQ(model->culledCount(), 0);
    setFlags(QStringLiteral("true"), QVariant());
    pass.start(nullptr);
    EXPECT_EQ(culledItems(*model), QVector<int>{0});
}

TEST_F(CullingRenderPassTest, isUndoneByAPassThatResetsCulling)
{
    makeBoxes({placed({0, 0, 0}), placed({3, 0, 0})});
    const View view = viewFrom({0, 0, 10}, {});
    setFlags(true, false);
    setView(viewFrom({100, 0, 10}, {100, 0, 0}));
    pass.start(nullptr);
    EXPECT_EQ(maximumDifference(draw(drawing, view, pass.output(0)), Image(frameSize.width(), frameSize.height())), 0);
    // The shadow passes reset the marks of the same model like this.
    model->resetCulling();
    EXPECT_EQ(maximumDifference(draw(drawing, view, pass.output(0)), everything(view)), 0);
    EXPECT_GT(readTexture(drawing.output(0).value<Texture *>()).pixel(48, 36).w(), 0);
}

TEST_F(CullingRenderPassTest, bothCullingsAddUp)
{
    // A large box in front of a small one, and one out of sight.
    makeBoxes({placed({0, 0, 3}, {2, 2, 2}), placed({0, 0, -3}), placed({100, 0, 0}), placed({3.5f, 0, 0})});
    const View view = viewFrom({0, 0, 12}, {});
    for (const auto &[frustum, visibility, expected] : {std::tuple{true, true, QVector<int>{1, 2}},
             std::tuple{false, true, QVector<int>{1}}, std::tuple{true, false, QVector<int>{2}}}) {
        setFlags(frustum, visibility);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(maximumDifference(frame(view), everything(view)), 0);
        EXPECT_EQ(culledItems(*model), expected);
    }
}

TEST_F(CullingRenderPassTest, keepsWhatStraddlesAPlane)
{
    // A camera that looks along -z, so that the sides of the boxes are parallel to its axes.
    const QVector3D eye(3, -2, 5);
    const View view = {perspective(frameSize, 2, 40), lookAt(eye, eye - QVector3D(0, 0, 1))};
    const float half = std::tan(25 * float(M_PI) / 180);
    const float aspect = float(frameSize.width()) / float(frameSize.height());
    struct Plane
    {
        const char *name;
        QVector3D point; ///< On the plane, well within the other planes, seen from the eye.
        QVector3D outwards;
    };
    const QVector<Plane> planes = {
        {"left", {-15 * half * aspect, 0, -15}, QVector3D(-1, 0, half * aspect).normalized()},
        {"right", {15 * half * aspect, 0, -15}, QVector3D(1, 0, half * aspect).normalized()},
        {"bottom", {0, -15 * half, -15}, QVector3D(0, -1, half).normalized()},
        {"top", {0, 15 * half, -15}, QVector3D(0, 1, half).normalized()},
        {"near", {0, 0, -2}, {0, 0, 1}},
        {"far", {0, 0, -40}, {0, 0, -1}},
    };
    setFlags(true, false);
    setView(view);
    const QVector3D sides(0.4f, 0.3f, 0.2f);
    for (const Plane &plane : planes) {
        // The distance from the centre of the box to its furthest corner along the plane's normal.
        const float reach = std::abs(plane.outwards.x()) * sides.x() + std::abs(plane.outwards.y()) * sides.y()
            + std::abs(plane.outwards.z()) * sides.z();
        QVector<QMatrix4x4> places;
        const QVector<float> offsets = {-1.5f, -1.01f, -0.5f, 0, 0.5f, 0.99f, 1.01f, 1.5f, 40};
        for (const float offset : offsets)
            places.append(placed(eye + plane.point + plane.outwards * (offset * reach), sides));
        makeBoxes(places);
        pass.start(nullptr);
        for (int i = 0; i < offsets.size(); ++i)
            EXPECT_EQ(model->isCulled(i), offsets[i] > 1) << plane.name << ' ' << offsets[i];
    }
    // A box that encloses the whole view.
    makeBoxes({placed(eye, {500, 500, 500})});
    pass.start(nullptr);
    EXPECT_EQ(model->culledCount(), 0);
}

TEST_F(CullingRenderPassTest, marksBoxesBeyondAPlaneAndNoOthers)
{
    makeBoxes(randomPlaces(2000, 25, 1));
    setFlags(true, false);
    std::mt19937 random(2);
    std::uniform_real_distribution<float> unit(-1, 1);
    int marked = 0;
    int straddling = 0;
    int undecidable = 0;
    const auto check = [&](const View &view) {
        setView(view);
        pass.start(nullptr);
        const DoubleMatrix viewProjection(view.projection * view.camera);
        for (int i = 0; i < model->itemCount(); ++i) {
            const double outside = distanceOutside(model->itemBounds(i), viewProjection);
            // Single precision may decide either way within so small a margin.
            if (std::abs(outside) < 1e-3) {
                ++undecidable;
                continue;
            }
            ASSERT_EQ(model->isCulled(i), outside > 0) << i << ' ' << outside;
            marked += outside > 0 ? 1 : 0;
            straddling += outside < 0 && outside > -1 ? 1 : 0;
        }
    };
    for (int i = 0; i < 40; ++i) {
        const QVector3D eye(20 * unit(random), 20 * unit(random), 20 * unit(random));
        View view = viewFrom(eye, QVector3D(20 * unit(random), 20 * unit(random), 20 * unit(random)));
        if (i % 4 == 1) { // Without perspective.
            view.projection.setToIdentity();
            view.projection.ortho(-8, 9, -6, 7, -5, 30);
        } else if (i % 4 == 2) { // Off axis.
            view.projection.setToIdentity();
            view.projection.frustum(-0.1f, 0.5f, 0.05f, 0.4f, 0.5f, 20);
        } else if (i % 4 == 3) { // Reversed depth, as some hosts have it.
            QMatrix4x4 reverse;
            reverse.scale(1, 1, -1);
            view.projection = reverse * view.projection;
        }
        check(view);
    }
    EXPECT_GT(marked, 20000);
    EXPECT_GT(straddling, 1000);
    EXPECT_LT(undecidable, 100);
}

TEST_F(CullingRenderPassTest, marksNothingByADegenerateMatrix)
{
    makeBoxes({placed({0, 0, 0}), placed({100, 0, 0}), placed({0, 0, -500})});
    setFlags(true, false);
    QMatrix4x4 zero;
    zero.fill(0);
    QMatrix4x4 notANumber;
    notANumber(1, 1) = std::nanf("");
    QMatrix4x4 infinite;
    infinite(0, 3) = std::numeric_limits<float>::infinity();
    for (const QMatrix4x4 &degenerate : {zero, notANumber, infinite}) {
        setView({degenerate, lookAt({0, 0, 10}, {})});
        pass.start(nullptr);
        EXPECT_EQ(model->culledCount(), 0);
    }
    // A matrix that flattens the world to its xy plane still separates left from right.
    setView({placed({}, {0.1f, 0.1f, 0}), QMatrix4x4()});
    pass.start(nullptr);
    EXPECT_EQ(culledItems(*model), QVector<int>{1});
}

TEST_F(CullingRenderPassTest, changesNoPicture)
{
    makeBoxes(randomPlaces(600, 14, 5));
    int byFrustum = 0;
    int byVisibility = 0;
    for (int i = 0; i < 12; ++i) {
        const float angle = float(i) * float(M_PI) / 6;
        const View view = viewFrom({16 * std::sin(angle), float(i) - 6, 16 * std::cos(angle)}, {float(i % 3), 0, 0});
        const Image expected = everything(view);
        setFlags(true, false);
        const Image image = frame(view);
        EXPECT_EQ(maximumDifference(image, expected), 0) << i;
        byFrustum += model->culledCount();
        if (i == 3)
            saveForViewing(image, QStringLiteral("culling-frustum"));
        // The camera stays, so what the previous frame found still holds.
        setFlags(true, true);
        for (int repeat = 0; repeat < 3; ++repeat)
            frame(view);
        EXPECT_EQ(maximumDifference(frame(view), expected), 0) << i;
        byVisibility += model->culledCount();
    }
    std::printf("[ CULLED ] %d of %d by the frustum, %d with occlusion\n", byFrustum, 12 * 600, byVisibility);
    EXPECT_GT(byFrustum, 12 * 600 / 4);
    EXPECT_GT(byVisibility, byFrustum + 12 * 20);
}

TEST_F(CullingRenderPassTest, hiddenItemsComeBackAFrameAfterTheyShow)
{
    makeBoxes({placed({0, 0, 3}, {2, 2, 0.5f}), placed({0, 0, -3})});
    setFlags(false, true);
    const View view = viewFrom({0, 0, 10}, {});
    for (int i = 0; i < 3; ++i)
        frame(view);
    ASSERT_EQ(culledItems(*model), QVector<int>{1});

    // The occluder moves away.
    model->setModelMatrix(0, placed({5, 0, 3}));
    frame(view);
    EXPECT_EQ(maximumDifference(frame(view), everything(view)), 0);
    EXPECT_EQ(model->culledCount(), 0);

    // It comes back, and the camera moves around it.
    model->setModelMatrix(0, placed({0, 0, 3}, {2, 2, 0.5f}));
    for (int i = 0; i < 3; ++i)
        frame(view);
    ASSERT_EQ(culledItems(*model), QVector<int>{1});
    const View behind = viewFrom({0, 1, -12}, {});
    frame(behind);
    EXPECT_EQ(maximumDifference(frame(behind), everything(behind)), 0);

    // The item itself comes out from behind it.
    for (int i = 0; i < 3; ++i)
        frame(view);
    ASSERT_EQ(culledItems(*model), QVector<int>{1});
    model->setModelMatrix(1, placed({6, 0, -3}));
    frame(view);
    EXPECT_EQ(maximumDifference(frame(view), everything(view)), 0);
}

TEST_F(CullingRenderPassTest, keepsWhatAnyOfSeveralCamerasShows)
{
    // A wall between two boxes, each seen by one camera, and a box inside a hollow one, seen by neither.
    enum Item { Wall, Front, Behind, Shell1, Shell2, Enclosed };
    makeBoxes({placed({0, 0, 0}, {3, 3, 0.2f}), placed({0, 0.5f, 3}, {0.5f, 0.5f, 0.5f}),
        placed({0, -0.5f, -3}, {0.5f, 0.5f, 0.5f}), placed({2, 0, 2}, {0.8f, 0.8f, 0.1f}),
        placed({2, 0, 1.2f}, {0.8f, 0.8f, 0.1f}), placed({2, 0, 1.6f}, {0.3f, 0.3f, 0.1f})});
    setFlags(false, true);
    const QVector<View> views = {viewFrom({0, 0, 12}, {}), viewFrom({0, 0, -12}, {})};
    auto passes = makePasses(2);
    const auto checkPictures = [&](const QVector<Image> &images) {
        for (int i = 0; i < views.size(); ++i)
            EXPECT_EQ(maximumDifference(images[i], everything(views[i])), 0) << i;
    };
    for (int i = 0; i < 4; ++i)
        checkPictures(frame(views, passes));
    EXPECT_FALSE(model->isCulled(Wall));
    EXPECT_FALSE(model->isCulled(Front)) << "hidden from the second camera alone";
    EXPECT_FALSE(model->isCulled(Behind)) << "hidden from the first camera alone";
    EXPECT_TRUE(model->isCulled(Enclosed));

    // With one camera alone, items that only the other one showed are culled.
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(maximumDifference(frame(views[0]), everything(views[0])), 0);
    EXPECT_TRUE(model->isCulled(Behind));
    EXPECT_FALSE(model->isCulled(Front));
    // The other camera comes back, and its item one frame later.
    frame(views, passes);
    checkPictures(frame(views, passes));
    EXPECT_FALSE(model->isCulled(Behind));

    // While results are late, the GPU decides for each camera by that camera's own query.
    {
        GLCallRecorder<&epoxy_glGetQueryObjectuiv> reads;
        reads.replacement = [&reads](GLuint query, GLenum name, GLuint *value) {
            if (name == GL_QUERY_RESULT_AVAILABLE)
                *value = GL_FALSE;
            else
                reads.forward(query, name, value);
        };
        GLCallRecorder<&epoxy_glBeginConditionalRender> conditions;
        for (int i = 0; i < 3; ++i)
            checkPictures(frame(views, passes));
        EXPECT_EQ(model->culledCount(), 0);
        EXPECT_EQ(conditions.calls.size(), 3u * 2u) << "the enclosed box, once for each camera";
    }
    for (int i = 0; i < 2; ++i)
        checkPictures(frame(views, passes));
    EXPECT_EQ(culledItems(*model), QVector<int>{Enclosed});
}

TEST_F(CullingRenderPassTest, takesMoreCamerasThanItKeepsResultsOf)
{
    // Boxes on a ring around a large one: each camera outside sees the few in front of it.
    QVector<QMatrix4x4> places = {placed({}, {3, 3, 3})};
    const auto around = [](int i, float radius) {
        const float angle = float(i) * float(M_PI) / 6;
        return QVector3D(radius * std::sin(angle), 0, radius * std::cos(angle));
    };
    for (int i = 0; i < 12; ++i)
        places.append(placed(around(i, 6), {0.5f, 0.5f, 0.5f}));
    makeBoxes(places);
    setFlags(false, true);
    QVector<View> views;
    for (int i = 0; i < 12; ++i)
        views.append(viewFrom(around(i, 20), {}));
    auto passes = makePasses(12);
    for (int repeat = 0; repeat < 4; ++repeat) {
        const QVector<Image> images = frame(views, passes);
        for (int i = 0; i < 12; ++i)
            ASSERT_EQ(maximumDifference(images[i], everything(views[i])), 0) << repeat << ' ' << i;
    }
    EXPECT_EQ(model->culledCount(), 0);

    // A camera that moves while no pass culls does not create queries.
    GLCallRecorder<&epoxy_glGenQueries> queries;
    setFlags(false, false);
    for (int i = 0; i < 200; ++i)
        draw(drawing, viewFrom(around(i, 20 + 0.01f * float(i)), {}), QVariant::fromValue(model.data()));
    EXPECT_EQ(queries.calls.size(), 0u);
}

} // namespace Velmora::Kvz
