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
        "eye=0,0,0", // at the centre
        "eye=0.2,0.3,0.1", // inside
        "eye=0,0,9:target=0,0,20", // facing away from the scene
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

TEST(CameraTest, aTurnGoesAroundTheTargetWithoutReframing)
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
        // A quarter turn: the target's +Z side becomes its +X side.
        const QVector3D from = eyeOf(before) - target;
        expectNear(eyeOf(after) - target, QVector3D(from.z(), from.y(), -from.x()), 1e-4f);
        // The target keeps its position in the picture.
        const QVector3D placeBefore = project(before, target);
        const QVector3D placeAfter = project(after, target);
        EXPECT_NEAR(placeBefore.x(), placeAfter.x(), 1e-5f);
        EXPECT_NEAR(placeBefore.y(), placeAfter.y(), 1e-5f);
        // The planes enclose the scene as it is seen now.
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

/// Uneven scenes: a leaning cone of points, and two clusters far apart.
QVector<QVector3D> unevenScene(int which)
{
    QVector<QVector3D> points;
    if (which == 0) {
        for (int i = 0; i < 200; ++i) {
            const float t = float(i) / 199;
            const float angle = 40 * t;
            points.append({3 + t + (1 - t) * std::cos(angle), 5 * t, -2 + (1 - t) * std::sin(angle)});
        }
    } else {
        for (int i = 0; i < 8; ++i) {
            points.append(corner({QVector3D(-9, 0, 4), QVector3D(-8, 0.5f, 6)}, i));
            points.append(corner({QVector3D(1, -3, -1), QVector3D(2, 7, 0)}, i));
        }
    }
    return points;
}

struct Projected
{
    float low[2] = {9, 9};
    float high[2] = {-9, -9};
};

Projected projectAll(const Camera &camera, const QVector<QVector3D> &points)
{
    Projected all;
    for (const QVector3D &point : points) {
        const QVector3D p = project(camera, point);
        for (int axis : {0, 1}) {
            all.low[axis] = std::min(all.low[axis], p[axis]);
            all.high[axis] = std::max(all.high[axis], p[axis]);
        }
        EXPECT_GE(p.z(), -1.0001f);
        EXPECT_LE(p.z(), 1.0001f);
    }
    return all;
}

TEST(FramingTest, unevenScenesAreCentredAndFilledFromEverySide)
{
    const char *views[] = {"front", "back", "left", "right", "top", "bottom", "iso", "30,20", "-120,-35",
        "75,80:fov=90", "10,5:fov=4", "200,45:fov=60"};
    int tips = 0;
    for (int scene : {0, 1}) {
        const QVector<QVector3D> points = unevenScene(scene);
        for (const QSize &size : {QSize(1280, 720), QSize(300, 900)}) {
            for (const char *view : views) {
                for (const char *kind : {"", ":ortho"}) {
                    const QString text = QString::fromUtf8(view) + QString::fromUtf8(kind);
                    SCOPED_TRACE(text.toStdString());
                    const Camera camera = framePoints(points, parsed(text.toUtf8()), size);
                    const Projected seen = projectAll(camera, points);
                    EXPECT_NEAR(seen.low[0], -seen.high[0], 1.0f / float(size.width()));
                    EXPECT_NEAR(seen.low[1], -seen.high[1], 1.0f / float(size.height()));
                    // The tip of the cone points at these cameras, which keep a distance from it.
                    const bool isTip = scene == 0 && camera.nearPlane < 0.006f * camera.farPlane;
                    tips += isTip;
                    if (!isTip) {
                        EXPECT_NEAR(std::max(seen.high[0], seen.high[1]), 0.95f, 2e-3f);
                    }
                }
            }
        }
    }
    EXPECT_EQ(tips, 3) << "from above in the wide picture, and with 90 degrees in both";
}

TEST(FramingTest, aFartherViewStaysCentred)
{
    const QVector<QVector3D> points = unevenScene(1);
    const QSize size(640, 360);
    for (const char *text : {"30,20,2", "30,20,2:ortho"}) {
        const Projected seen = projectAll(framePoints(points, parsed(text), size), points);
        EXPECT_NEAR(seen.low[0], -seen.high[0], 1.0f / 640) << text;
        EXPECT_NEAR(seen.low[1], -seen.high[1], 1.0f / 360) << text;
        EXPECT_LT(std::max(seen.high[0], seen.high[1]), 0.7f) << text;
    }
    const Projected half = projectAll(framePoints(points, parsed("30,20,2:ortho"), size), points);
    EXPECT_NEAR(std::max(half.high[0], half.high[1]), 0.475f, 1e-3f) << "twice as far shows half as large";
}

TEST(FramingTest, namedDirectionsAreThoseOfTheAxes)
{
    const QVector<QVector3D> cube = unevenScene(0);
    const auto behind = [&](const char *text) {
        return framePoints(cube, parsed(text), QSize(64, 64)).cameraMatrix.inverted().mapVector(QVector3D(0, 0, 1));
    };
    expectNear(behind("front"), {0, 0, 1}, 1e-5f);
    expectNear(behind("back"), {0, 0, -1}, 1e-5f);
    expectNear(behind("left"), {-1, 0, 0}, 1e-5f);
    expectNear(behind("right"), {1, 0, 0}, 1e-5f);
    expectNear(behind("top"), {0, 1, 0}, 1e-5f);
    expectNear(behind("bottom"), {0, -1, 0}, 1e-5f);
    expectNear(behind("iso"), QVector3D(1, 1, 1).normalized(), 1e-5f);
}

TEST(FramingTest, parallelRaysShowTheSameSizeAtEveryDepth)
{
    const Camera camera = framePoints(unevenScene(1), parsed("front:ortho"), QSize(200, 100));
    const float nearWidth = project(camera, {1, 0, 6}).x() - project(camera, {0, 0, 6}).x();
    const float farWidth = project(camera, {1, 0, -1}).x() - project(camera, {0, 0, -1}).x();
    EXPECT_NEAR(nearWidth, farWidth, 1e-6f);
    const float height = project(camera, {0, 1, 0}).y() - project(camera, {0, 0, 0}).y();
    EXPECT_NEAR(height, 2 * nearWidth, 1e-5f) << "square pixels";
    // With an eye given, too, the whole scene is in the picture.
    const Projected seen =
        projectAll(framePoints(unevenScene(1), parsed("eye=30,20,30:ortho"), QSize(200, 100)), unevenScene(1));
    EXPECT_NEAR(std::max({seen.high[0], seen.high[1], -seen.low[0], -seen.low[1]}), 0.95f, 1e-3f);
}

TEST(FramingTest, turntablesNeitherWobbleNorPump)
{
    QVector<float> turns;
    for (int i = 0; i < 36; ++i)
        turns.append(float(10 * i));
    const QSize size(640, 480);
    for (int scene : {0, 1}) {
        const QVector<QVector3D> points = unevenScene(scene);
        QVector3D low = points.first();
        QVector3D high = low;
        for (const QVector3D &point : points) {
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], point[axis]);
                high[axis] = std::max(high[axis], point[axis]);
            }
        }
        const QVector3D centre = (low + high) / 2;
        for (const char *text : {"30,20", "front", "0,-40:fov=80", "iso:ortho"}) {
            SCOPED_TRACE(text);
            const QVector<Camera> cameras = frameTurntable(points, parsed(text), turns, size);
            ASSERT_EQ(cameras.size(), turns.size());
            Projected all;
            float distance = 0;
            for (const Camera &camera : cameras) {
                for (float height : {low.y(), centre.y(), high.y()}) {
                    const QVector3D onAxis(centre.x(), height, centre.z());
                    const QVector3D place = project(camera, onAxis);
                    const QVector3D first = project(cameras.first(), onAxis);
                    EXPECT_NEAR(place.x(), first.x(), 0.2f / 640) << "a tenth of a pixel";
                    EXPECT_NEAR(place.y(), first.y(), 0.2f / 480);
                    EXPECT_NEAR(place.x(), 0, 0.2f / 640);
                }
                const Projected seen = projectAll(camera, points);
                for (int axis : {0, 1}) {
                    all.low[axis] = std::min(all.low[axis], seen.low[axis]);
                    all.high[axis] = std::max(all.high[axis], seen.high[axis]);
                }
                const float now = (eyeOf(camera) - centre).length();
                distance = distance > 0 ? distance : now;
                EXPECT_NEAR(now, distance, 1e-4f * distance);
            }
            EXPECT_NEAR(all.low[1], -all.high[1], 1.0f / 480) << "centred in height over the whole turn";
            const float reach = std::max({-all.low[0], all.high[0], all.high[1]});
            EXPECT_NEAR(reach, 0.95f, 2e-3f) << "as close as no picture is cut";
        }
    }
}

TEST(FramingTest, aTurntableAroundATargetKeepsItInTheMiddle)
{
    const QVector<QVector3D> points = unevenScene(0);
    const QVector3D target(3, 2, -2);
    for (const char *text : {"30,20:target=3,2,-2", "eye=12,9,3:target=3,2,-2"}) {
        const QVector<Camera> cameras = frameTurntable(points, parsed(text), {0, 45, 200}, QSize(320, 200));
        for (const Camera &camera : cameras) {
            EXPECT_NEAR(project(camera, target).x(), 0, 1e-5f) << text;
            EXPECT_NEAR(project(camera, target).y(), 0, 1e-5f) << text;
        }
    }
    EXPECT_TRUE(frameTurntable(points, CameraView(), {}, QSize(320, 200)).isEmpty());
}

TEST(FramingTest, scenesWithoutExtentAreOneUnitAcross)
{
    const Camera none = framePoints({}, CameraView(), QSize(64, 64));
    const Camera unit =
        frameScene({QVector3D(-0.5f, -0.5f, -0.5f), QVector3D(0.5f, 0.5f, 0.5f)}, CameraView(), QSize(64, 64));
    EXPECT_EQ(none.cameraMatrix, unit.cameraMatrix);
    EXPECT_EQ(none.projectionMatrix, unit.projectionMatrix);
}

} // namespace Velmora::Kvz
