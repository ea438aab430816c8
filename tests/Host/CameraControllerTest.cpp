// SPDX-License-Identifier: MIT
#include <Host/CameraController.h>
#include <Host/CameraInput.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

using View = CameraController::NamedView;

const QSizeF size(640, 400);
const QPair<QVector3D, QVector3D> scene{QVector3D(-2, 0, -1), QVector3D(4, 3, 1)};

CameraController controller(CameraController::Mode mode = CameraController::Mode::Turntable)
{
    CameraController made;
    made.setMode(mode);
    made.setViewport(size);
    made.setScene(scene);
    made.fit();
    return made;
}

QVector3D corner(int i)
{
    return {i & 1 ? scene.second.x() : scene.first.x(), i & 2 ? scene.second.y() : scene.first.y(),
        i & 4 ? scene.second.z() : scene.first.z()};
}

/// Where the matrices of the camera show a point, in the unit of the viewport, from the upper left.
QPointF shown(const CameraController &of, const QVector3D &point)
{
    const Camera camera = of.camera();
    const QVector3D device = camera.projectionMatrix.map(camera.cameraMatrix.map(point));
    return {(double(device.x()) + 1) / 2 * size.width(), (1 - double(device.y())) / 2 * size.height()};
}

void expectNear(const QPointF &a, const QPointF &b, double tolerance = 0.05)
{
    EXPECT_NEAR(a.x(), b.x(), tolerance);
    EXPECT_NEAR(a.y(), b.y(), tolerance);
}

void expectNear(const QVector3D &a, const QVector3D &b, float tolerance = 1e-4f)
{
    EXPECT_LE((a - b).length(), tolerance)
        << a.x() << ' ' << a.y() << ' ' << a.z() << " is not " << b.x() << ' ' << b.y() << ' ' << b.z();
}

QVector3D direction(const CameraController &of)
{
    return of.pose().rotation.rotatedVector(QVector3D(0, 0, 1));
}

QVector3D right(const CameraController &of)
{
    return of.pose().rotation.rotatedVector(QVector3D(1, 0, 0));
}

} // namespace

TEST(CameraControllerTest, theMatricesAreThoseOfThePose)
{
    for (const bool isOrthographic : {false, true}) {
        CameraController camera = controller();
        camera.setOrthographic(isOrthographic);
        camera.show(37, 21);
        for (int i = 0; i < 8; ++i)
            expectNear(shown(camera, corner(i)), camera.positionOf(corner(i)));
        const QPointF place(123, 321);
        expectNear(shown(camera, camera.pointAt(place)), place);
        expectNear(shown(camera, camera.pose().pivot), QPointF(size.width() / 2, size.height() / 2));
    }
}

TEST(CameraControllerTest, fittingFillsThePictureInTheTighterDirection)
{
    for (const bool isOrthographic : {false, true}) {
        for (const float azimuth : {0.0f, 30.0f, 90.0f, 200.0f}) {
            for (const float elevation : {-90.0f, -20.0f, 0.0f, 45.0f, 90.0f}) {
                CameraController camera = controller();
                camera.setOrthographic(isOrthographic);
                camera.show(azimuth, elevation);
                std::array<double, 4> ends{1e9, -1e9, 1e9, -1e9};
                for (int i = 0; i < 8; ++i) {
                    const QPointF at = shown(camera, corner(i));
                    ends = {std::min(ends[0], at.x()), std::max(ends[1], at.x()), std::min(ends[2], at.y()),
                        std::max(ends[3], at.y())};
                    const Camera matrices = camera.camera();
                    const float depth = -matrices.cameraMatrix.map(corner(i)).z();
                    EXPECT_GT(depth, matrices.nearPlane);
                    EXPECT_LT(depth, matrices.farPlane);
                }
                const double width = (ends[1] - ends[0]) / size.width();
                const double height = (ends[3] - ends[2]) / size.height();
                EXPECT_NEAR(std::max(width, height), 0.95, 0.002) << azimuth << ' ' << elevation;
                EXPECT_NEAR(ends[0] + ends[1], size.width(), 0.2) << "centred";
                EXPECT_NEAR(ends[2] + ends[3], size.height(), 0.2) << "centred";
            }
        }
    }
}

TEST(CameraControllerTest, namedViewsLookFromTheirSides)
{
    CameraController camera = controller();
    const auto expectFrom = [&](View view, const QVector3D &from) {
        camera.show(view);
        expectNear(direction(camera), from.normalized());
    };
    expectFrom(View::Front, {0, 0, 1});
    expectFrom(View::Back, {0, 0, -1});
    expectFrom(View::Right, {1, 0, 0});
    expectFrom(View::Left, {-1, 0, 0});
    expectFrom(View::Top, {0, 1, 0});
    expectFrom(View::Bottom, {0, -1, 0});
    expectFrom(View::Iso, {1, 1, 1});

    camera.setUpAxis(QVector3D(0, 0, 2));
    expectNear(camera.upAxis(), {0, 0, 1});
    expectFrom(View::Top, {0, 0, 1});
    camera.show(View::Front);
    expectNear(camera.pose().rotation.rotatedVector(QVector3D(0, 1, 0)), {0, 0, 1});
    camera.setUpAxis(QVector3D());
    expectNear(camera.upAxis(), {0, 0, 1});
}

TEST(CameraControllerTest, aTurntableStaysLevelAndStopsAtThePoles)
{
    CameraController camera = controller();
    camera.show(0, 0);
    const QVector3D pivot = camera.pose().pivot;
    const float distance = camera.pose().distance;
    // Half of the shorter side is a quarter of a turn; the scene follows the pointer.
    camera.turn(QPointF(320, 200), QPointF(320 + 200, 200));
    expectNear(direction(camera), {-1, 0, 0});
    camera.turn(QPointF(320, 200), QPointF(320, 200 + 100));
    expectNear(direction(camera), QVector3D(-1, 1, 0).normalized());
    expectNear(right(camera), {0, 0, 1});
    for (int i = 0; i < 3; ++i)
        camera.turn(QPointF(0, 0), QPointF(0, 390));
    expectNear(direction(camera), {0, 1, 0});
    expectNear(right(camera), {0, 0, 1}, 1e-3f);
    camera.turn(QPointF(0, 0), QPointF(-200, -200)); // It still knows its azimuth.
    expectNear(direction(camera), {0, 0, 1}, 1e-3f);
    EXPECT_EQ(camera.pose().pivot, pivot);
    EXPECT_EQ(camera.pose().distance, distance);

    camera.setMode(CameraController::Mode::Trackball);
    camera.roll(40);
    EXPECT_GT(std::abs(right(camera).y()), 0.5f);
    camera.setMode(CameraController::Mode::Turntable);
    camera.roll(10);
    EXPECT_GT(std::abs(right(camera).y()), 0.5f) << "it levels with the next turn";
    camera.turn(QPointF(0, 0), QPointF(1, 0));
    EXPECT_NEAR(right(camera).y(), 0, 1e-5f);
    EXPECT_NEAR(direction(camera).z(), 1, 1e-3f);
}

TEST(CameraControllerTest, aTrackballKeepsTheBallUnderThePointer)
{
    CameraController camera = controller(CameraController::Mode::Trackball);
    camera.show(20, 30);
    // From the middle to half of the radius: asin(1/2) of the sphere.
    const QVector3D before = direction(camera);
    camera.turn(QPointF(320, 200), QPointF(320 + 100, 200));
    EXPECT_NEAR(QVector3D::dotProduct(before, direction(camera)), std::cos(M_PI / 6), 1e-4);
    camera.turn(QPointF(320 + 100, 200), QPointF(320, 200));
    expectNear(direction(camera), before);
    // A turn past a pole goes on where a turntable stops.
    for (int i = 0; i < 8; ++i)
        camera.turn(QPointF(320, 200), QPointF(320, 300));
    EXPECT_LT(camera.pose().rotation.rotatedVector(QVector3D(0, 1, 0)).y(), 0) << "upside down";
    camera.roll(90);
    EXPECT_NEAR(camera.pose().rotation.length(), 1, 1e-5f);
    // Far outside it rolls.
    camera.show(0, 0);
    camera.turn(QPointF(320 + 5000, 200), QPointF(320, 200 + 5000));
    EXPECT_NEAR(std::abs(right(camera).y()), 1, 0.05f);
}

TEST(CameraControllerTest, whatIsUnderThePointerStaysThereInPansAndZooms)
{
    const QPointF from(200, 150);
    const QPointF to(390, 111);
    for (const bool isOrthographic : {false, true}) {
        for (const std::optional<QVector3D> &grabbed :
            {std::optional<QVector3D>(), std::optional<QVector3D>({3, 2, 1})}) {
            CameraController camera = controller();
            camera.show(33, 12);
            camera.setOrthographic(isOrthographic);
            const QVector3D point = grabbed.value_or(camera.pointAt(from));
            const QPointF start = camera.positionOf(point);
            const QQuaternion rotation = camera.pose().rotation;
            camera.pan(start, start + to - from, grabbed);
            expectNear(shown(camera, point), start + to - from);
            const float before = camera.pose().distance;
            for (const float factor : {1.2f, 5.0f, 0.3f}) {
                const QPointF at = camera.positionOf(point);
                camera.zoom(factor, at, grabbed);
                expectNear(shown(camera, point), at, 0.2);
            }
            EXPECT_NEAR(camera.pose().distance, before / 1.8f, 1e-3f * before);
            EXPECT_EQ(camera.pose().rotation, rotation);
        }
    }
    CameraController camera = controller();
    const float before = camera.pose().distance;
    camera.zoom(0, from);
    camera.zoom(-1, from);
    camera.zoom(std::numeric_limits<float>::quiet_NaN(), from);
    EXPECT_EQ(camera.pose().distance, before);
    for (int i = 0; i < 300; ++i)
        camera.zoom(2, QPointF(320, 200));
    EXPECT_GT(camera.pose().distance, 0);
    EXPECT_TRUE(std::isfinite(shown(camera, camera.pose().pivot).x()));
}

TEST(CameraControllerTest, parallelRaysAndFieldsOfViewKeepTheSizeAtThePivot)
{
    CameraController camera = controller();
    camera.show(10, 10);
    const QVector3D aside = camera.pointAt(QPointF(100, 350));
    camera.setOrthographic(true);
    expectNear(shown(camera, aside), QPointF(100, 350));
    const Camera near = camera.camera();
    EXPECT_EQ(near.projectionMatrix(3, 2), 0);
    camera.setOrthographic(false);
    camera.setFieldOfView(80);
    EXPECT_EQ(camera.pose().fieldOfView, 80);
    expectNear(shown(camera, aside), QPointF(100, 350));
    camera.setFieldOfView(0);
    camera.setFieldOfView(180);
    EXPECT_EQ(camera.pose().fieldOfView, 80);
    // The scene is before the eye however close a parallel view is.
    camera.setOrthographic(true);
    camera.zoom(50, QPointF(320, 200));
    for (int i = 0; i < 8; ++i)
        EXPECT_GT(-camera.camera().cameraMatrix.map(corner(i)).z(), camera.camera().nearPlane);
}

TEST(CameraControllerTest, transitionsLeadThereAndMotionsEndThem)
{
    CameraController camera = controller();
    camera.show(0, 0);
    const CameraPose start = camera.pose();
    camera.show(90, 0, 0.5);
    EXPECT_TRUE(camera.isMoving());
    expectNear(camera.pose().eye(), start.eye());
    const quint64 revision = camera.revision();
    EXPECT_TRUE(camera.advance(0.25));
    EXPECT_GT(camera.revision(), revision);
    expectNear(direction(camera), QVector3D(1, 0, 1).normalized());
    EXPECT_TRUE(camera.advance(0.2));
    const float slow = QVector3D::dotProduct(direction(camera), {1, 0, 0});
    EXPECT_GT(slow, 0.98f) << "slow at the end";
    EXPECT_FALSE(camera.advance(0.1));
    EXPECT_FALSE(camera.isMoving());
    expectNear(direction(camera), {1, 0, 0});
    EXPECT_FALSE(camera.advance(1));

    camera.fit(1.0);
    camera.advance(0.1);
    camera.turn(QPointF(0, 0), QPointF(20, 0));
    EXPECT_FALSE(camera.isMoving());
    camera.show(View::Top, 1.0);
    camera.fit({QVector3D(0, 0, 0), QVector3D(1, 1, 1)}, 1.0); // In the direction that was asked for.
    while (camera.advance(0.1)) { }
    expectNear(direction(camera), {0, 1, 0});
    const QPointF low = shown(camera, {0, 1, 0});
    EXPECT_GT(low.x(), 0);
    EXPECT_LT(shown(camera, {1, 1, 1}).x() - low.x(), size.height());
}

TEST(CameraControllerTest, badValuesAreIgnoredEachByItself)
{
    CameraController camera = controller();
    const CameraPose before = camera.pose();
    const quint64 revision = camera.revision();
    camera.setViewport(QSizeF(0, 10));
    camera.setScene({QVector3D(std::numeric_limits<float>::infinity(), 0, 0), QVector3D()});
    camera.setViewport(size);
    camera.setScene(scene);
    EXPECT_EQ(camera.revision(), revision);
    CameraPose bad;
    bad.pivot = QVector3D(std::numeric_limits<float>::quiet_NaN(), 0, 0);
    bad.rotation = QQuaternion(0, 0, 0, 0);
    bad.distance = -1;
    bad.fieldOfView = 200;
    camera.setPose(bad);
    EXPECT_EQ(camera.pose().pivot, before.pivot);
    EXPECT_EQ(camera.pose().rotation, before.rotation);
    EXPECT_EQ(camera.pose().distance, before.distance);
    EXPECT_EQ(camera.pose().fieldOfView, before.fieldOfView);
    // A scene that is a point is seen all the same.
    camera.setScene({QVector3D(1, 1, 1), QVector3D(1, 1, 1)});
    camera.fit();
    EXPECT_GT(camera.pose().distance, 0.5f);
    expectNear(shown(camera, {1, 1, 1}), QPointF(320, 200), 60);
    EXPECT_GT(camera.camera().nearPlane, 0);
}

TEST(CameraInputTest, buttonsTurnPanAndZoom)
{
    CameraController camera = controller();
    CameraInput input(&camera);
    const auto drag = [&](Qt::MouseButton button, Qt::KeyboardModifiers modifiers) {
        const CameraPose before = camera.pose();
        input.press(button, modifiers, QPointF(300, 200));
        EXPECT_TRUE(input.move(QPointF(300, 160)));
        EXPECT_TRUE(input.isDragging());
        EXPECT_FALSE(input.release(button)) << "no click";
        EXPECT_FALSE(input.isDragging());
        const CameraPose &after = camera.pose();
        return (before.rotation != after.rotation ? 1 : 0) + (before.pivot != after.pivot ? 2 : 0)
            + (before.distance != after.distance ? 4 : 0);
    };
    EXPECT_EQ(drag(Qt::LeftButton, Qt::NoModifier), 1);
    EXPECT_EQ(drag(Qt::MiddleButton, Qt::NoModifier), 2);
    EXPECT_EQ(drag(Qt::RightButton, Qt::NoModifier), 2);
    EXPECT_EQ(drag(Qt::LeftButton, Qt::ShiftModifier), 2);
    EXPECT_EQ(drag(Qt::LeftButton, Qt::ControlModifier) & 4, 4);
}

TEST(CameraInputTest, aPressThatHardlyMovesIsAClick)
{
    CameraController camera = controller();
    CameraInput input(&camera);
    const quint64 revision = camera.revision();
    input.press(Qt::LeftButton, Qt::NoModifier, QPointF(10, 10));
    EXPECT_FALSE(input.move(QPointF(12, 11)));
    EXPECT_FALSE(input.release(Qt::RightButton)) << "not the button that was pressed";
    EXPECT_TRUE(input.release(Qt::LeftButton));
    EXPECT_FALSE(input.move(QPointF(100, 100)));
    EXPECT_EQ(camera.revision(), revision);
    // The first button counts, and none without a meaning moves anything.
    input.press(Qt::LeftButton, Qt::NoModifier, QPointF(10, 10));
    input.press(Qt::MiddleButton, Qt::NoModifier, QPointF(10, 10));
    const QVector3D pivot = camera.pose().pivot;
    EXPECT_TRUE(input.move(QPointF(60, 10)));
    EXPECT_EQ(camera.pose().pivot, pivot);
    EXPECT_FALSE(input.release(Qt::LeftButton));
    input.press(Qt::BackButton, Qt::NoModifier, QPointF(10, 10));
    EXPECT_FALSE(input.move(QPointF(60, 10)));
    EXPECT_TRUE(input.release(Qt::BackButton));
}

TEST(CameraInputTest, theWheelZoomsToThePointerAndFingersPinch)
{
    CameraController camera = controller();
    CameraInput input(&camera);
    const float before = camera.pose().distance;
    const QVector3D grabbed(3, 2, 1);
    const QPointF at = camera.positionOf(grabbed);
    input.wheel(QPoint(0, 240), at, grabbed);
    EXPECT_NEAR(camera.pose().distance, before / 1.44f, 1e-3f);
    expectNear(shown(camera, grabbed), at);
    input.wheel(QPoint(0, -240), at, grabbed);
    EXPECT_NEAR(camera.pose().distance, before, 1e-3f);

    const QVector3D point = camera.pointAt(QPointF(100, 100));
    input.pinch(QPointF(100, 100), QPointF(150, 130), 2);
    EXPECT_NEAR(camera.pose().distance, before / 2, 1e-3f);
    expectNear(shown(camera, point), QPointF(150, 130));

    // A point that becomes known during a pan is kept from then on.
    input.press(Qt::MiddleButton, Qt::NoModifier, camera.positionOf(grabbed));
    input.setGrabbed(grabbed);
    const QPointF target = camera.positionOf(grabbed) + QPointF(40, 20);
    EXPECT_TRUE(input.move(target));
    expectNear(shown(camera, grabbed), target);
}

TEST(CameraInputTest, keysShowViews)
{
    CameraController camera = controller();
    CameraInput input(&camera);
    input.setTransitionSeconds(0);
    const auto expectFrom = [&](int key, Qt::KeyboardModifiers modifiers, const QVector3D &from) {
        EXPECT_TRUE(input.key(key, modifiers));
        expectNear(direction(camera), from.normalized(), 1e-3f);
    };
    expectFrom(Qt::Key_1, Qt::NoModifier, {0, 0, 1});
    expectFrom(Qt::Key_1, Qt::ControlModifier, {0, 0, -1});
    expectFrom(Qt::Key_3, Qt::NoModifier, {1, 0, 0});
    expectFrom(Qt::Key_3, Qt::ControlModifier, {-1, 0, 0});
    expectFrom(Qt::Key_7, Qt::NoModifier, {0, 1, 0});
    expectFrom(Qt::Key_7, Qt::ControlModifier, {0, -1, 0});
    expectFrom(Qt::Key_Home, Qt::NoModifier, {1, 1, 1});
    EXPECT_TRUE(input.key(Qt::Key_5, Qt::NoModifier));
    EXPECT_TRUE(camera.pose().isOrthographic);
    camera.show(0, 0);
    const float distance = camera.pose().distance;
    for (int i = 0; i < 6; ++i)
        EXPECT_TRUE(input.key(Qt::Key_Right, Qt::NoModifier));
    expectNear(direction(camera), {-1, 0, 0}, 1e-3f);
    EXPECT_TRUE(input.key(Qt::Key_Left, Qt::NoModifier));
    EXPECT_TRUE(input.key(Qt::Key_Down, Qt::NoModifier));
    EXPECT_NEAR(direction(camera).y(), std::sin(M_PI / 12), 1e-3);
    EXPECT_TRUE(input.key(Qt::Key_Up, Qt::NoModifier));
    EXPECT_NEAR(direction(camera).y(), 0, 1e-3);
    EXPECT_TRUE(input.key(Qt::Key_Plus, Qt::NoModifier));
    EXPECT_NEAR(camera.pose().distance, distance / 1.2f, 1e-3f);
    EXPECT_TRUE(input.key(Qt::Key_Minus, Qt::NoModifier));
    EXPECT_TRUE(input.key(Qt::Key_F, Qt::NoModifier));
    EXPECT_FALSE(input.key(Qt::Key_Q, Qt::NoModifier));
    EXPECT_FALSE(input.key(Qt::Key_F, Qt::ControlModifier)) << "a shortcut of the program";
    EXPECT_FALSE(input.key(Qt::Key_1, Qt::AltModifier));
}

} // namespace Velmora::Kvz
