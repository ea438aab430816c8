// SPDX-License-Identifier: MIT
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/RayCast.h"

#include <Chain/ScenePicker.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <Host/Camera.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QSet>

#include <epoxy/gl.h>

#include <algorithm>
#include <array>
#include <random>

namespace Velmora::Kvz {

namespace {

const QSize size(200, 150);

std::array<double, 3> componentsOf(const QVector3D &vector)
{
    return {double(vector.x()), double(vector.y()), double(vector.z())};
}

} // namespace

class ScenePickerTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        context();
        GPUModelBuilder builder;
        const std::array<MeshData, 2> meshes{sphereMesh(6), boxMesh(2)};
        for (const MeshData &mesh : meshes)
            builder.addMesh(mesh);
        for (int i = 0; i < 3; ++i)
            builder.addMaterial(MaterialData());
        for (int i = 0; i < 7; ++i) {
            QMatrix4x4 matrix;
            matrix.translate(1.1f * float(i % 3) - 1, 0.9f * float(i / 3) - 0.9f, 0.8f * float((i * 5) % 3) - 0.8f);
            matrix.rotate(25 * float(i), 1, 1, 0.3f);
            matrix.scale(i == 4 ? -0.6f : 0.6f, 0.6f, 0.4f); // One is mirrored.
            builder.addItem(i % 2, i % 3, matrix, i == 6 ? quint64(GPUModel::Transparent) : 0);
            items.append({meshes[size_t(i % 2)], matrix});
        }
        model = builder.build();
        ASSERT_TRUE(model);
        look(CameraView());
        picker.setModel(model.data());
    }

    void TearDown() override
    {
        picker.releaseContext();
        model.clear();
        GLTest::TearDown();
    }

    void look(const CameraView &view)
    {
        camera = frameScene(model->sceneBounds(), view, size);
        picker.setView(camera.cameraMatrix, camera.projectionMatrix, size);
    }

    /// The answer to a question, for which it waits.
    ScenePick pick(const QPoint &pixel, int radius = 0)
    {
        ScenePick found;
        int answers = 0;
        EXPECT_TRUE(picker.pick(pixel, radius, [&](const ScenePick &pick) {
            found = pick;
            ++answers;
        })) << qPrintable(picker.errorString());
        picker.wait();
        EXPECT_EQ(answers, 1);
        return found;
    }

    QVector<RayCastItem> items;
    QSharedPointer<GPUModel> model;
    Camera camera;
    ScenePicker picker;
};

TEST_F(ScenePickerTest, findsWhatARayMeets)
{
    std::mt19937 random(7);
    for (const bool isOrthographic : {false, true}) {
        CameraView view;
        view.isOrthographic = isOrthographic;
        view.azimuth = 50;
        look(view);
        const RayCaster rays(items, camera.projectionMatrix, camera.cameraMatrix, size);
        int hits = 0, misses = 0, edges = 0;
        for (int i = 0; i < 5000; ++i) {
            const QPoint pixel(int(random() % unsigned(size.width())), int(random() % unsigned(size.height())));
            const double x = pixel.x() + 0.5;
            const double y = size.height() - pixel.y() - 0.5;
            const RayHit expected = rays.cast(x, y);
            // Within a twentieth of a pixel of an edge both sides are right.
            bool isEdge = false;
            for (const auto &[dx, dy] : {std::pair(0.05, 0.05), {-0.05, 0.05}, {0.05, -0.05}, {-0.05, -0.05}})
                isEdge = isEdge || !rays.cast(x + dx, y + dy).isOnSameTriangle(expected);
            const ScenePick found = pick(pixel);
            if (isEdge) {
                ++edges;
                continue;
            }
            ASSERT_EQ(found.item, expected.item) << pixel.x() << ' ' << pixel.y();
            if (!found.isHit()) {
                ++misses;
                continue;
            }
            ++hits;
            EXPECT_EQ(found.triangle, expected.triangle);
            EXPECT_EQ(found.pixel, pixel);
            EXPECT_EQ(found.mesh, found.item % 2);
            EXPECT_EQ(found.material, found.item % 3);
            const Vector3d place = rays.pointOf(x, y, expected);
            for (size_t axis = 0; axis < 3; ++axis)
                EXPECT_NEAR(componentsOf(found.position)[axis], place[axis], 2e-4) << pixel.x() << ' ' << pixel.y();
            const MeshData &mesh = items[found.item].mesh;
            std::array<QVector3D, 3> corners;
            for (size_t corner = 0; corner < 3; ++corner)
                corners[corner] = items[found.item].modelMatrix.map(
                    mesh.positions[int(mesh.indices[found.triangle * 3 + int(corner)])]);
            const QVector3D normal = QVector3D::normal(corners[0], corners[1], corners[2]);
            EXPECT_NEAR(std::abs(QVector3D::dotProduct(normal, found.normal)), 1, 1e-4);
            const QVector3D eye = camera.cameraMatrix.inverted().map(QVector3D());
            const QVector3D towards =
                isOrthographic ? camera.cameraMatrix.inverted().mapVector(QVector3D(0, 0, 1)) : eye - found.position;
            EXPECT_GT(QVector3D::dotProduct(found.normal, towards), 0) << "on the side that is seen";
        }
        EXPECT_GT(hits, 500);
        EXPECT_GT(misses, 500);
        EXPECT_LT(edges, 500);
    }
}

TEST_F(ScenePickerTest, aRadiusFindsTheNearestPixel)
{
    const RayCaster rays(items, camera.projectionMatrix, camera.cameraMatrix, size);
    const auto isHit = [&](const QPoint &pixel) {
        return rays.cast(pixel.x() + 0.5, size.height() - pixel.y() - 0.5).isGeometry();
    };
    // Along a row from the left border to the first item.
    const int row = size.height() / 2;
    int first = 0;
    while (!isHit(QPoint(first, row)))
        ++first;
    ASSERT_GT(first, 6);
    EXPECT_FALSE(pick(QPoint(first - 6, row), 2).isHit());
    const ScenePick found = pick(QPoint(first - 6, row), 12);
    ASSERT_TRUE(found.isHit());
    const QPoint away = found.pixel - QPoint(first - 6, row);
    EXPECT_LE(QPoint::dotProduct(away, away), 36 + 12);
    EXPECT_TRUE(isHit(found.pixel));
    for (int y = -12; y <= 12; ++y) {
        for (int x = -12; x <= 12; ++x) {
            if (x * x + y * y < QPoint::dotProduct(away, away)) {
                EXPECT_FALSE(isHit(QPoint(first - 6 + x, row + y))) << x << ' ' << y;
            }
        }
    }
    // Beside the border the area ends there.
    pick(QPoint(0, 0), 64);
    pick(QPoint(size.width() - 1, size.height() - 1), 1000);
}

TEST_F(ScenePickerTest, anAreaNamesTheItemsThatAreSeenInIt)
{
    const QRect area(40, 30, 90, 70);
    const RayCaster rays(items, camera.projectionMatrix, camera.cameraMatrix, size);
    QSet<int> possible;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const int item = rays.cast(x + 0.5, size.height() - y - 0.5).item;
            if (item >= 0)
                possible.insert(item);
        }
    }
    QVector<int> found;
    ASSERT_TRUE(picker.pickArea(area, [&](const QVector<int> &seen) { found = seen; }));
    picker.wait();
    EXPECT_GE(found.size(), 3);
    EXPECT_LT(found.size(), items.size() + 1);
    EXPECT_EQ(found.size(), possible.size());
    for (const int item : found)
        EXPECT_TRUE(possible.contains(item)) << item;
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    ASSERT_TRUE(picker.pickArea(QRect(QPoint(500, 500), QPoint(-10, -10)), [&](const QVector<int> &seen) {
        found = seen;
    })) << "corners in any order";
    picker.wait();
    EXPECT_GE(found.size(), 6);
}

TEST_F(ScenePickerTest, transparentItemsCanBeLookedThrough)
{
    const RayCaster rays(items, camera.projectionMatrix, camera.cameraMatrix, size);
    QPoint glass(-1, -1);
    for (int y = 3; y < size.height() - 3 && glass.x() < 0; ++y) {
        for (int x = 3; x < size.width() - 3 && glass.x() < 0; ++x) {
            bool isInside = true;
            for (int i = 0; i < 9; ++i)
                isInside = isInside && rays.cast(x + i % 3 - 0.5, size.height() - y - 1.5 + i / 3).item == 6;
            if (isInside)
                glass = QPoint(x, y);
        }
    }
    ASSERT_GE(glass.x(), 0);
    EXPECT_EQ(pick(glass).item, 6);
    picker.setOpaqueOnly(true);
    EXPECT_NE(pick(glass).item, 6);
    picker.setOpaqueOnly(false);
    EXPECT_EQ(pick(glass).item, 6);
}

TEST_F(ScenePickerTest, answersComeInOrderAndMayAskAgain)
{
    QVector<int> order;
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(picker.pick(QPoint(20 * i, 50), 0, [&order, i](const ScenePick &) { order.append(i); }));
    EXPECT_EQ(picker.pendingCount(), 5);
    ASSERT_TRUE(picker.pick(QPoint(1, 1), 0, [&](const ScenePick &) {
        order.append(5);
        picker.pick(QPoint(2, 2), 0, [&](const ScenePick &) { order.append(6); });
    }));
    for (int i = 0; i < 1000 && picker.poll() > 0; ++i)
        glFlush();
    EXPECT_EQ(order, (QVector<int>{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(picker.pendingCount(), 0);
}

TEST_F(ScenePickerTest, leavesTheStateOfTheHostAndGrowsNothing)
{
    FramebufferObject framebuffer;
    framebuffer.bind();
    glViewport(1, 2, 3, 4);
    glEnable(GL_BLEND);
    glClearColor(0.25f, 0.5f, 0.75f, 1);
    pick(QPoint(100, 75), 3);
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), int(framebuffer.getFBO()));
    std::array<int, 4> viewport{};
    glGetIntegerv(GL_VIEWPORT, viewport.data());
    EXPECT_EQ(viewport, (std::array<int, 4>{1, 2, 3, 4}));
    EXPECT_TRUE(glFlag(GL_BLEND));
    glDisable(GL_BLEND);
    glClearColor(0, 0, 0, 0);
    framebuffer.unbind();
    const GLObjectCounts before = glObjectCounts();
    for (int i = 0; i < 20; ++i)
        pick(QPoint(100, 75), 3);
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(ScenePickerTest, whatCannotBeAskedIsRefusedAndWhatIsGoneIsNoHit)
{
    int answers = 0;
    const auto count = [&answers](const ScenePick &) { ++answers; };
    for (const QPoint &outside : {QPoint(-1, 0), QPoint(0, -1), QPoint(200, 0), QPoint(0, 150)}) {
        EXPECT_FALSE(picker.pick(outside, 5, count));
        EXPECT_TRUE(picker.errorString().contains(QLatin1String("outside"))) << qPrintable(picker.errorString());
    }
    EXPECT_FALSE(picker.pickArea(QRect(300, 0, 10, 10), [&](const QVector<int> &) { ++answers; }));
    picker.setModel(nullptr);
    EXPECT_FALSE(picker.pick(QPoint(5, 5), 0, count));
    EXPECT_EQ(picker.errorString(), QStringLiteral("no model to pick from"));
    picker.setModel(model.data());
    context().doneCurrent();
    EXPECT_FALSE(picker.pick(QPoint(5, 5), 0, count));
    EXPECT_EQ(picker.errorString(), QStringLiteral("no current OpenGL context"));
    context().makeCurrent();
    EXPECT_EQ(picker.pendingCount(), 0);
    EXPECT_EQ(answers, 0);

    bool isHit = true;
    ASSERT_TRUE(picker.pick(QPoint(100, 75), 60, [&](const ScenePick &pick) { isHit = pick.isHit(); }));
    picker.setModel(nullptr);
    picker.wait();
    EXPECT_FALSE(isHit) << "its model is gone";
    picker.setModel(model.data());
    isHit = true;
    ASSERT_TRUE(picker.pick(QPoint(100, 75), 60, [&](const ScenePick &pick) { isHit = pick.isHit(); }));
    picker.releaseContext();
    EXPECT_FALSE(isHit);
    EXPECT_TRUE(pick(QPoint(100, 75), 60).isHit()) << "it works on";
}

} // namespace Velmora::Kvz
