// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <Host/Camera.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

using Bounds = QPair<QVector3D, QVector3D>;

const Bounds unitBox{QVector3D(-1, -1, -1), QVector3D(1, 1, 1)};

QVector3D corner(const Bounds &bounds, int i)
{
    return {i & 1 ? bounds.second.x() : bounds.first.x(), i & 2 ? bounds.second.y() : bounds.first.y(),
        i & 4 ? bounds.second.z() : bounds.first.z()};
}

QVector3D eyeOf(const Camera &camera)
{
    return camera.cameraMatrix.inverted().map(QVector3D());
}

QVector3D project(const Camera &camera, const QVector3D &point)
{
    return (camera.projectionMatrix * camera.cameraMatrix).map(point);
}

CameraView parsed(const char *text)
{
    CameraView view;
    QString error;
    EXPECT_TRUE(CameraView::fromString(text, &view, &error)) << qPrintable(error);
    return view;
}

void expectNear(const QVector3D &actual, const QVector3D &expected, float tolerance)
{
    EXPECT_LE((actual - expected).length(), tolerance)
        << actual.x() << " " << actual.y() << " " << actual.z() << " instead of " << expected.x() << " " << expected.y()
        << " " << expected.z();
}

} // namespace

TEST(CameraTest, boundsFillThePictureFromEverySide)
{
    const Bounds boxes[] = {unitBox, {QVector3D(10, 0, -3), QVector3D(12, 0.1f, 50)},
        {QVector3D(-1e-3f, 0, 0), QVector3D(0, 2e-3f, 1e-3f)}, {QVector3D(0, 0, 0), QVector3D(1e4f, 1, 1)}};
    const QSize sizes[] = {QSize(1280, 720), QSize(300, 900), QSize(16, 16)};
    for (const Bounds &box : boxes) {
        for (const QSize &size : sizes) {
            for (const char *text : {"0,0", "30,20", "200,-60", "-90,90", "45,-90:fov=90", "10,5:fov=2"}) {
                const Camera camera = frameScene(box, parsed(text), size);
                QVector3D low(9, 9, 9);
                QVector3D high = -low;
                for (int i = 0; i < 8; ++i) {
                    const QVector3D p = project(camera, corner(box, i));
                    for (int axis = 0; axis < 3; ++axis) {
                        low[axis] = std::min(low[axis], p[axis]);
                        high[axis] = std::max(high[axis], p[axis]);
                    }
                }
                const float free = 1 - std::max(high.x(), high.y());
                EXPECT_GT(free, 0.04f) << text << ": a margin";
                EXPECT_LT(free, 0.08f) << text << ": and no more";
                const int tight = high.x() > high.y() ? 0 : 1;
                EXPECT_NEAR(low[tight], -high[tight], 2e-3) << text << ": the same on both sides";
                EXPECT_GT(low[1 - tight], -0.96f) << text;
                EXPECT_GE(low.z(), -1.0001f) << text << ": nothing before the near plane";
                EXPECT_LE(high.z(), 1.0001f) << text << ": nothing beyond the far plane";
            }
        }
    }
}

TEST(CameraTest, anglesTurnAroundTheCentre)
{
    const QSize size(100, 100);
    const Bounds box{QVector3D(4, 4, 4), QVector3D(6, 6, 6)};
    const QVector3D centre(5, 5, 5);
    const auto direction = [&](const char *text) {
        return (eyeOf(frameScene(box, parsed(text), size)) - centre).normalized();
    };
    expectNear(direction("0,0"), {0, 0, 1}, 1e-5f);
    expectNear(direction("90,0"), {1, 0, 0}, 1e-5f);
    expectNear(direction("180,0"), {0, 0, -1}, 1e-5f);
    expectNear(direction("0,90"), {0, 1, 0}, 1e-5f);
    expectNear(direction("0,-90"), {0, -1, 0}, 1e-5f);
    const QVector3D up = frameScene(box, parsed("37,20"), size).cameraMatrix.mapVector(QVector3D(0, 1, 0));
    EXPECT_NEAR(up.x(), 0, 1e-6) << "the horizon is level";
    EXPECT_GT(up.y(), 0.9f);
}

TEST(CameraTest, distanceIsInMultiplesOfTheFittingOne)
{
    const QSize size(200, 100);
    const auto depth = [&](const char *text) {
        return -frameScene(unitBox, parsed(text), size).cameraMatrix.map(QVector3D()).z();
    };
    EXPECT_NEAR(depth("30,20,2.5"), 2.5f * depth("30,20"), 1e-4);
}

TEST(CameraTest, eyeLooksAtItsTarget)
{
    const Camera camera = frameScene(unitBox, parsed("eye=4,3,5:target=0,1,0"), QSize(320, 200));
    expectNear(eyeOf(camera), {4, 3, 5}, 1e-4f);
    const QVector3D target = project(camera, QVector3D(0, 1, 0));
    EXPECT_NEAR(target.x(), 0, 1e-5);
    EXPECT_NEAR(target.y(), 0, 1e-5);
    EXPECT_GT(project(camera, QVector3D(0, 2, 0)).y(), target.y()) << "Y is up";

    const Camera free = frameScene(unitBox, parsed("eye=4,3,5"), QSize(320, 200));
    EXPECT_NEAR(project(free, QVector3D()).x(), 0, 1e-5) << "without a target the centre of the scene";
}

TEST(CameraTest, eyesInOddPlacesGiveFiniteCameras)
{
    const char *views[] = {
        "eye=0,5,0", // above
        "eye=0,-5,0", // below
        "eye=0,0,0", // in the centre
        "eye=0.2,0.3,0.1", // within
        "eye=0,0,9:target=0,0,20", // with its back to the scene
    };
    for (const char *text : views) {
        const Camera camera = frameScene(unitBox, parsed(text), QSize(64, 64));
        for (int i = 0; i < 16; ++i) {
            EXPECT_TRUE(std::isfinite(camera.cameraMatrix.constData()[i])) << text;
            EXPECT_TRUE(std::isfinite(camera.projectionMatrix.constData()[i])) << text;
        }
        EXPECT_NEAR(camera.cameraMatrix.determinant(), 1, 1e-4) << text << ": a rotation and a shift";
        EXPECT_GT(camera.nearPlane, 0) << text;
        EXPECT_GT(camera.farPlane, camera.nearPlane) << text;
    }
}

TEST(CameraTest, viewFromAboveAgreesInBothForms)
{
    const QSize size(64, 64);
    const Camera angles = frameScene(unitBox, parsed("0,90"), size);
    const QVector3D eye = eyeOf(angles);
    const Camera point =
        frameScene(unitBox, parsed(qPrintable(QStringLiteral("eye=0,%1,0").arg(double(eye.y()), 0, 'g', 9))), size);
    expectNear(project(point, QVector3D(1, 0, 0)), project(angles, QVector3D(1, 0, 0)), 1e-3f);
    expectNear(project(point, QVector3D(0, 0, 1)), project(angles, QVector3D(0, 0, 1)), 1e-3f);
}

TEST(CameraTest, targetStaysInTheMiddleOfAPictureThatHasTheWholeScene)
{
    const QVector3D target(0.7f, 1, -0.2f);
    const Camera camera = frameScene(unitBox, parsed("30,20:target=0.7,1,-0.2"), QSize(320, 200));
    EXPECT_NEAR(project(camera, target).x(), 0, 1e-5);
    EXPECT_NEAR(project(camera, target).y(), 0, 1e-5);
    float widest = 0;
    for (int i = 0; i < 8; ++i) {
        const QVector3D p = project(camera, corner(unitBox, i));
        widest = std::max({widest, std::abs(p.x()), std::abs(p.y())});
    }
    EXPECT_LT(widest, 0.96f);
    EXPECT_GT(widest, 0.92f);
}

TEST(CameraTest, aTurnGoesAroundTheTargetWithoutFramingAnew)
{
    const Bounds box{QVector3D(0, 1, 2), QVector3D(4, 2, 3)};
    const QVector3D centre(2, 1.5f, 2.5f);
    for (const char *text : {"30,20", "eye=7,3,9", "30,20,0.7:target=1,1,2", "eye=7,3,9:target=1,1,2"}) {
        SCOPED_TRACE(text);
        CameraView view = parsed(text);
        const QVector3D target = view.hasTarget ? view.target : centre;
        const Camera before = frameScene(box, view, QSize(320, 200));
        view.turn = 90;
        const Camera after = frameScene(box, view, QSize(320, 200));
        // A quarter: what was +Z of the target is +X now.
        const QVector3D from = eyeOf(before) - target;
        expectNear(eyeOf(after) - target, QVector3D(from.z(), from.y(), -from.x()), 1e-4f);
        // The target keeps its place in the picture.
        const QVector3D placeBefore = project(before, target);
        const QVector3D placeAfter = project(after, target);
        EXPECT_NEAR(placeBefore.x(), placeAfter.x(), 1e-5f);
        EXPECT_NEAR(placeBefore.y(), placeAfter.y(), 1e-5f);
        // The planes close around the scene as it is seen now.
        for (int i = 0; i < 8; ++i) {
            const float z = project(after, corner(box, i)).z();
            EXPECT_GE(z, -1.0f);
            EXPECT_LE(z, 1.0f);
        }
        view.turn = 360;
        expectNear(eyeOf(frameScene(box, view, QSize(320, 200))), eyeOf(before), 1e-4f);
    }
}

TEST(CameraTest, planesCloseAroundTheScene)
{
    const Camera camera = frameScene(unitBox, parsed("0,0"), QSize(100, 100));
    const float distance = eyeOf(camera).z();
    EXPECT_NEAR(camera.nearPlane, distance - 1, 0.02f * distance);
    EXPECT_NEAR(camera.farPlane, distance + 1, 0.02f * distance);
}

TEST(CameraTest, boundsWithoutExtentAreASceneOneUnitAcross)
{
    const QVector3D point(7, 8, 9);
    const Camera camera = frameScene({point, point}, CameraView(), QSize(64, 64));
    const Camera unit = frameScene(
        {point - QVector3D(0.5f, 0.5f, 0.5f), point + QVector3D(0.5f, 0.5f, 0.5f)}, CameraView(), QSize(64, 64));
    EXPECT_EQ(camera.cameraMatrix, unit.cameraMatrix);
    EXPECT_EQ(camera.projectionMatrix, unit.projectionMatrix);
}

TEST(CameraTest, textIsReadInAllItsForms)
{
    CameraView view = parsed("-45.5,10");
    EXPECT_FLOAT_EQ(view.azimuth, -45.5f);
    EXPECT_FLOAT_EQ(view.elevation, 10);
    EXPECT_FLOAT_EQ(view.distance, 1);
    EXPECT_FALSE(view.hasEye);
    EXPECT_FALSE(view.hasTarget);
    EXPECT_FLOAT_EQ(view.fieldOfView, 35);

    view = parsed("1,2,3:fov=60:target=4,5,6");
    EXPECT_FLOAT_EQ(view.distance, 3);
    EXPECT_FLOAT_EQ(view.fieldOfView, 60);
    EXPECT_FALSE(view.hasEye);
    EXPECT_TRUE(view.hasTarget);
    EXPECT_EQ(view.target, QVector3D(4, 5, 6));

    view = parsed("eye=1e1,-2,0.5");
    EXPECT_TRUE(view.hasEye);
    EXPECT_EQ(view.eye, QVector3D(10, -2, 0.5f));
}

TEST(CameraTest, badTextIsRefused)
{
    const char *texts[] = {"", "30", "30,", "30,20,", "30,91", "30,-91", "30,20,0", "30,20,-1", "30,20,1,1", "a,b",
        "nan,0", "inf,0", "eye=1,2", "eye=", "target=1,2,x", "fov=0", "fov=180", "fov=-5", "fov=", "fov=1,2",
        "up=1,2,3", "30,20:", "eye=1,2,3:target=1,2,3"};
    for (const char *text : texts) {
        CameraView view;
        view.azimuth = 123;
        QString error;
        EXPECT_FALSE(CameraView::fromString(text, &view, &error)) << text;
        EXPECT_FALSE(error.isEmpty()) << text;
        EXPECT_FALSE(error.contains('\n')) << text;
        EXPECT_FLOAT_EQ(view.azimuth, 123) << text;
    }
}

} // namespace Velmora::Kvz
