// SPDX-License-Identifier: MIT
// The viewport in real windows. ctest runs this program on a virtual X server, at several scale factors.
#include "support/Meshes.h"

#include <Chain/RenderChain.h>
#include <GL/GLStatistics.h>
#include <GL/Texture.h>
#include <Host/ModelContext.h>
#include <Import/ImportedScene.h>
#include <Scene/GPUModelBuilder.h>
#include <Widgets/ViewportWidget.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QMimeData>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtGui/QDropEvent>
#include <QtGui/QMouseEvent>
#include <QtGui/QPainter>
#include <QtGui/QScreen>
#include <QtGui/QWindow>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDockWidget>
#include <QtWidgets/QMainWindow>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>

namespace Velmora::Kvz {

namespace {

/// Handles events until something holds, or a time in milliseconds is over. Whether it held.
bool waitFor(const std::function<bool()> &holds, int limit = 20000)
{
    QElapsedTimer clock;
    clock.start();
    while (!holds()) {
        if (clock.elapsed() > limit)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    }
    return true;
}

void handleEvents(int milliseconds)
{
    // Something has to wake the loop.
    QTimer timer;
    timer.start(milliseconds);
    bool isOver = false;
    QObject::connect(&timer, &QTimer::timeout, [&isOver] { isOver = true; });
    while (!isOver)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

/// How often or how long something is done, unless the environment wants more of it.
int countOf(const char *variable, int usual)
{
    return std::max(usual, qEnvironmentVariableIntValue(variable));
}

QImage plain(const QImage &image)
{
    return image.convertToFormat(QImage::Format_RGB32);
}

/// The mean difference of the colours of two pictures in steps of 8 bits; 255 where their sizes differ.
double meanDifference(const QImage &a, const QImage &b)
{
    if (a.size() != b.size() || a.isNull())
        return 255;
    const QImage first = plain(a);
    const QImage second = plain(b);
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = first.pixel(x, y);
            const QRgb q = second.pixel(x, y);
            sum += std::abs(qRed(p) - qRed(q)) + std::abs(qGreen(p) - qGreen(q)) + std::abs(qBlue(p) - qBlue(q));
        }
    }
    return sum / (3.0 * a.width() * a.height());
}

/// Whether a picture is another one but for a pixel to any side: where scales are fractions, corners of widgets lie between pixels.
bool isShifted(const QImage &image, const QImage &from)
{
    const QSize inner = from.size() - QSize(2, 2);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) {
            if (meanDifference(image.copy(QRect(QPoint(x, y), inner)), from.copy(QRect(QPoint(1, 1), inner))) < 2)
                return true;
        }
    }
    return false;
}

void save(const QImage &image, const char *name)
{
    const QString folder = qEnvironmentVariable("KVZ_TEST_IMAGES");
    if (!folder.isEmpty())
        image.save(
            QStringLiteral("%1/widget-%2-%3.png").arg(folder, QString::fromUtf8(name)).arg(qApp->devicePixelRatio()));
}

/// An orange box to the left and a green ball to the right.
ImportedScene makeScene()
{
    ImportedScene scene;
    for (int i = 0; i < 2; ++i) {
        ImportedMesh mesh;
        static_cast<MeshData &>(mesh) = i == 0 ? boxMesh() : sphereMesh(4);
        scene.meshes.append(mesh);
        ImportedMaterial material;
        material.kd = i == 0 ? QVector3D(0.95f, 0.4f, 0.1f) : QVector3D(0.1f, 0.8f, 0.3f);
        scene.materials.append(material);
        ImportedItem item;
        item.mesh = i;
        item.material = i;
        item.modelMatrix.translate(i == 0 ? -1.3f : 1.3f, 0, 0);
        scene.items.append(item);
    }
    return scene;
}

} // namespace

class ViewportWidgetTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!ModelContext::errorString().isEmpty())
            GTEST_SKIP() << qPrintable(ModelContext::errorString());
        window = std::make_unique<QWidget>();
        window->resize(200, 150);
        viewport = new ViewportWidget(window.get());
        viewport->resize(200, 150);
        viewport->setMinimumSize(90, 70);
        QObject::connect(viewport, &ViewportWidget::frameRendered, [this] { ++frames; });
        QObject::connect(viewport, &ViewportWidget::failed, [this](const QString &line) { failures.append(line); });
        viewport->camera().setMode(CameraController::Mode::Turntable);
    }

    void TearDown() override { EXPECT_EQ(failures.join('\n').toStdString(), ""); }

    void show()
    {
        ASSERT_TRUE(viewport->setScene(makeScene())) << qPrintable(viewport->errorString());
        viewport->camera().show(0, 10);
        window->show();
        rest();
    }

    void rest()
    {
        ASSERT_TRUE(waitFor([this] { return viewport->isAtRest(); })) << qPrintable(viewport->errorString());
    }

    /// Where the middle of an item is seen.
    QPointF placeOf(int item) const { return viewport->camera().positionOf({item == 0 ? -1.3f : 1.3f, 0, 0}); }

    void mouse(QEvent::Type type, const QPointF &at, Qt::MouseButton button, Qt::MouseButtons buttons) const
    {
        QMouseEvent event(type, at, viewport->mapToGlobal(at.toPoint()), button, buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(viewport, &event);
    }
    void click(const QPointF &at) const
    {
        mouse(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
        mouse(QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
    }

    /// Compares what is on the screen with a picture of the same camera and size that was rendered apart.
    void expectPicture(const char *name)
    {
        const QImage shown = viewport->grabFramebuffer();
        EXPECT_EQ(shown.size(), viewport->size() * viewport->devicePixelRatioF());
        const QImage expected = viewport->grabImage(shown.size());
        save(shown, name);
        // Sizes in whole units and in pixels may differ by a rounding.
        EXPECT_LT(meanDifference(shown, expected), 1) << name;
        for (int item = 0; item < 2; ++item) {
            const QPointF place = placeOf(item) * viewport->devicePixelRatioF();
            if (!shown.rect().contains(place.toPoint()))
                continue; // In a narrow view that was framed for a wide one.
            const QRgb colour = shown.pixel(place.toPoint());
            EXPECT_GT(item == 0 ? qRed(colour) : qGreen(colour), 100) << name << ", item " << item;
        }
        EXPECT_EQ(qAlpha(shown.pixel(1, 1)), 255) << name;
        EXPECT_TRUE(isOnScreen(shown)) << name << ": the window shows another picture";
    }

    /// Whether the window shows this picture in the place of the viewport, as soon as the window system has put it there.
    bool isOnScreen(const QImage &picture) const
    {
        QWidget *const top = viewport->window();
        top->raise();
        const QPoint corner = viewport->mapTo(top, QPoint());
        return waitFor(
            [&] {
                const QPixmap seen = top->windowHandle()->screen()->grabWindow(
                    top->winId(), corner.x(), corner.y(), viewport->width(), viewport->height());
                return isShifted(seen.toImage().scaled(picture.size()), picture);
            },
            5000);
    }

    std::unique_ptr<QWidget> window;
    ViewportWidget *viewport = nullptr;
    int frames = 0;
    QStringList failures;
};

TEST_F(ViewportWidgetTest, drawsWhatTheChainNeedsAndThenRests)
{
    ASSERT_TRUE(viewport->setChain(QStringLiteral("smaa-t2x")));
    int done = 0;
    QObject::connect(viewport, &ViewportWidget::converged, [&done] { ++done; });
    show();
    handleEvents(200); // The window system may have it painted once more.
    rest();
    EXPECT_TRUE(viewport->chain().converged());
    EXPECT_GE(frames, 4);
    EXPECT_GE(done, 1);
    expectPicture("rest");

    // At rest it costs nothing.
    frames = 0;
    const std::clock_t before = std::clock();
    const int seconds = countOf("KVZ_TEST_IDLE_SECONDS", 1);
    handleEvents(1000 * seconds);
    const double milliseconds = 1000.0 * double(std::clock() - before) / CLOCKS_PER_SEC / seconds;
    EXPECT_EQ(frames, 0);
    EXPECT_LT(milliseconds, 10);
    std::printf("idle for %d s: %.2f ms of CPU in a second\n", seconds, milliseconds);

    // Painted again it shows the picture that it has.
    viewport->update();
    handleEvents(100);
    EXPECT_EQ(frames, 0);

    // A change takes the frames that the chain says.
    ASSERT_TRUE(viewport->chain().setValue("background", "Kvz_QColor_ColorTop", QColor(Qt::darkRed)));
    const int wanted = viewport->chain().framesToConvergence();
    viewport->update();
    rest();
    handleEvents(100);
    EXPECT_EQ(frames, wanted);
}

TEST_F(ViewportWidgetTest, keepsItsPictureWhereverItGoes)
{
    show();
    expectPicture("first");
    auto main = std::make_unique<QMainWindow>();
    main->resize(320, 240);
    main->setCentralWidget(new QWidget);
    auto *const dock = new QDockWidget;
    main->addDockWidget(Qt::LeftDockWidgetArea, dock);
    main->show();
    GLObjectCounts counts;
    const int cycles = countOf("KVZ_TEST_CYCLES", 10);
    for (int cycle = 0; cycle < cycles; ++cycle) {
        SCOPED_TRACE(cycle);
        const auto expectSettled = [&](const char *name) {
            handleEvents(20);
            if (cycle % 2 == 0) {
                viewport->camera().fit();
                viewport->update();
            }
            rest();
            expectPicture(name);
        };
        dock->setWidget(viewport); // Another window, and another context.
        viewport->show();
        expectSettled("docked");
        dock->setFloating(true);
        expectSettled("floating");
        viewport->hide();
        handleEvents(5);
        viewport->show();
        expectSettled("shown again");
        dock->setFloating(false);
        main->resize(320 + 13 * (cycle % 3), 240 + 7 * (cycle % 2));
        expectSettled("resized");
        viewport->setParent(window.get());
        viewport->setGeometry(0, 0, 150 + 11 * (cycle % 4), 110);
        viewport->show();
        expectSettled("alone");
        if (cycle == 3)
            counts = glObjectCounts();
    }
    const GLObjectCounts after = glObjectCounts();
    EXPECT_EQ(after.textures, counts.textures);
    EXPECT_EQ(after.framebuffers, counts.framebuffers);
    EXPECT_EQ(after.programs, counts.programs);
    EXPECT_EQ(after.buffers, counts.buffers);
    EXPECT_EQ(after.vertexArrays, counts.vertexArrays);
}

TEST_F(ViewportWidgetTest, viewportsShareAModel)
{
    show();
    auto *const other = new ViewportWidget;
    other->setParent(window.get());
    other->setGeometry(0, 0, 100, 80);
    ASSERT_TRUE(other->setModel(viewport->model()));
    other->camera().setViewport(other->size());
    other->camera().setScene(viewport->camera().scene());
    other->camera().show(CameraController::NamedView::Top);
    window->resize(320, 150);
    viewport->move(110, 0);
    other->show();
    ASSERT_TRUE(waitFor([&] { return other->isAtRest() && viewport->isAtRest(); }));
    expectPicture("beside");
    const QImage shown = other->grabFramebuffer();
    save(shown, "other");
    EXPECT_LT(meanDifference(shown, other->grabImage(shown.size())), 1);
    // The one goes, and the other stays.
    delete other;
    viewport->camera().show(30, 20);
    viewport->update();
    rest();
    const QSharedPointer<GPUModel> model = viewport->model();
    EXPECT_LT(meanDifference(viewport->grabFramebuffer(), viewport->grabImage(viewport->grabFramebuffer().size())), 1);
}

TEST_F(ViewportWidgetTest, thePointerTurnsZoomsAndPicks)
{
    show();
    QVector<ScenePick> clicks, hovers;
    QObject::connect(viewport, &ViewportWidget::clicked, [&](const ScenePick &pick, Qt::MouseButton button) {
        EXPECT_EQ(button, Qt::LeftButton);
        clicks.append(pick);
    });
    QObject::connect(viewport, &ViewportWidget::hovered, [&](const ScenePick &pick) { hovers.append(pick); });

    click(placeOf(0));
    ASSERT_TRUE(waitFor([&] { return clicks.size() == 1; }));
    EXPECT_EQ(clicks[0].item, 0);
    EXPECT_EQ(clicks[0].mesh, 0);
    EXPECT_NEAR(clicks[0].position.z(), 1, 0.05f);
    EXPECT_NEAR(clicks[0].normal.z(), 1, 1e-3f);
    click(placeOf(1));
    ASSERT_TRUE(waitFor([&] { return clicks.size() == 2; }));
    EXPECT_EQ(clicks[1].item, 1);
    EXPECT_EQ(clicks[1].material, 1);
    click(QPointF(3, 3));
    ASSERT_TRUE(waitFor([&] { return clicks.size() == 3; }));
    EXPECT_FALSE(clicks[2].isHit());
    handleEvents(50);

    viewport->setHoverEnabled(true);
    mouse(QEvent::MouseMove, QPointF(3, 3), Qt::NoButton, Qt::NoButton);
    for (int i = 0; i < 5; ++i)
        mouse(QEvent::MouseMove, placeOf(1) + QPointF(i, 0), Qt::NoButton, Qt::NoButton);
    ASSERT_TRUE(waitFor([&] { return hovers.size() == 2; }));
    EXPECT_EQ(hovers[0].item, -1);
    EXPECT_EQ(hovers[1].item, 1);

    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(viewport, &leave);
    EXPECT_EQ(hovers.size(), 3);
    EXPECT_FALSE(hovers.last().isHit());

    QVector<int> inArea;
    ASSERT_TRUE(viewport->pickArea(QRectF(viewport->rect()), [&](const QVector<int> &items) { inArea = items; }));
    ASSERT_TRUE(waitFor([&] { return !inArea.isEmpty(); }));
    EXPECT_EQ(inArea, (QVector<int>{0, 1}));

    frames = 0;
    const QImage before = viewport->grabFramebuffer();
    mouse(QEvent::MouseButtonPress, QPointF(100, 75), Qt::LeftButton, Qt::LeftButton);
    mouse(QEvent::MouseMove, QPointF(130, 75), Qt::NoButton, Qt::LeftButton);
    mouse(QEvent::MouseButtonRelease, QPointF(130, 75), Qt::LeftButton, Qt::NoButton);
    rest();
    EXPECT_GE(frames, 1);
    EXPECT_EQ(clicks.size(), 3) << "a drag is no click";
    EXPECT_GT(meanDifference(viewport->grabFramebuffer(), before), 2);
    expectPicture("turned");

    const float distance = viewport->camera().pose().distance;
    QKeyEvent key(QEvent::KeyPress, Qt::Key_1, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &key);
    EXPECT_TRUE(viewport->camera().isMoving());
    rest();
    EXPECT_LT((viewport->camera().pose().rotation.rotatedVector({0, 0, 1}) - QVector3D(0, 0, 1)).length(), 1e-3f);
    QKeyEvent plus(QEvent::KeyPress, Qt::Key_Plus, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &plus);
    EXPECT_LT(viewport->camera().pose().distance, distance);
    rest();
}

TEST_F(ViewportWidgetTest, grabsPicturesOfAnySizeWithAlpha)
{
    show();
    const QImage image = viewport->grabImage(QSize(301, 173), QColor(0, 0, 0, 0));
    save(image, "alpha");
    ASSERT_EQ(image.size(), QSize(301, 173)) << qPrintable(viewport->errorString());
    EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0);
    int solid = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            solid += qAlpha(image.pixel(x, y)) == 255 ? 1 : 0;
    }
    EXPECT_GT(solid, 301 * 173 / 5);
    const QImage blue = viewport->grabImage(QSize(40, 30), QColor(10, 20, 200));
    EXPECT_EQ(blue.pixel(0, 0), qRgb(10, 20, 200));
    rest();
    expectPicture("after grabs");

    EXPECT_TRUE(viewport->grabImage(QSize(0, 10)).isNull());
    EXPECT_TRUE(viewport->errorString().contains(QLatin1String("empty"))) << qPrintable(viewport->errorString());
    EXPECT_TRUE(viewport->grabImage(QSize(1000000, 10)).isNull());
    EXPECT_TRUE(viewport->errorString().contains(QLatin1String("each side must be")))
        << qPrintable(viewport->errorString());
    EXPECT_EQ(failures.size(), 2);
    failures.clear();
}

TEST_F(ViewportWidgetTest, whatCannotBeShownIsSaidAndNothingIsLost)
{
    show();
    EXPECT_FALSE(viewport->setChain(QStringLiteral("forwrad")));
    EXPECT_TRUE(viewport->errorString().contains(QLatin1String("forward"))) << qPrintable(viewport->errorString());
    EXPECT_FALSE(viewport->load(QStringLiteral("/nowhere/car.glb")));
    EXPECT_TRUE(viewport->errorString().contains(QLatin1String("car.glb"))) << qPrintable(viewport->errorString());
    EXPECT_FALSE(viewport->pick(QPointF(-5, 5), 1, [](const ScenePick &) { FAIL(); }));
    EXPECT_EQ(failures.size(), 3);
    failures.clear();
    rest();
    expectPicture("kept");
    ASSERT_TRUE(viewport->setModel(nullptr));
    rest();
    EXPECT_GT(
        meanDifference(viewport->grabFramebuffer(), QImage(viewport->grabFramebuffer().size(), QImage::Format_RGB32)),
        1);
    EXPECT_FALSE(viewport->pick(QPointF(5, 5), 1, [](const ScenePick &) { FAIL(); }));
    EXPECT_EQ(failures.size(), 1);
    failures.clear();
}

TEST_F(ViewportWidgetTest, filesCanBeDropped)
{
    window->show();
    int models = 0;
    QObject::connect(viewport, &ViewportWidget::modelChanged, [&models] { ++models; });
    const auto drop = [&](const QString &file) {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(file)});
        QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(viewport, &enter);
        QDropEvent event(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        if (enter.isAccepted())
            QCoreApplication::sendEvent(viewport, &event);
        return enter.isAccepted();
    };
    EXPECT_FALSE(drop(QStringLiteral("/tmp/letter.txt")));
    EXPECT_TRUE(drop(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj")));
    EXPECT_EQ(models, 1);
    ASSERT_TRUE(viewport->model());
    EXPECT_GT(viewport->model()->itemCount(), 5);
    rest();
    save(viewport->grabFramebuffer(), "dropped");
}

TEST_F(ViewportWidgetTest, anOverlayIsPaintedOverThePicture)
{
    show();
    viewport->setOverlay([this](QPainter *painter) {
        painter->fillRect(QRect(0, 0, viewport->width() / 4, viewport->height() / 4), Qt::blue);
    });
    rest();
    const QImage shown = viewport->grabFramebuffer();
    save(shown, "overlay");
    EXPECT_EQ(shown.pixel(3, 3) & 0xffffff, 0x0000ffu);
    EXPECT_NE(shown.pixel(shown.width() / 2, 3) & 0xffffff, 0x0000ffu);
    EXPECT_EQ(viewport->grabFramebuffer(), shown) << "and again";
    viewport->setOverlay({});
    rest();
    expectPicture("without overlay");
}

TEST(ViewportWithoutSharingTest, saysWhatToSet)
{
    if (QCoreApplication::testAttribute(Qt::AA_ShareOpenGLContexts))
        GTEST_SKIP() << "run with KVZ_TEST_NO_SHARING=1";
    ViewportWidget viewport;
    viewport.resize(300, 200);
    QStringList failures;
    QObject::connect(&viewport, &ViewportWidget::failed, [&](const QString &line) { failures.append(line); });
    EXPECT_FALSE(viewport.setScene(makeScene()));
    ASSERT_EQ(failures.size(), 1);
    EXPECT_TRUE(failures[0].contains(QLatin1String("AA_ShareOpenGLContexts"))) << qPrintable(failures[0]);
    viewport.show();
    handleEvents(300);
    EXPECT_EQ(failures.size(), 1) << "once";
    const QImage shown = viewport.grabFramebuffer();
    save(shown, "no-sharing");
    QSet<QRgb> colours;
    // The middle row may lie between two lines of text.
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x)
            colours.insert(shown.pixel(x, y));
    }
    EXPECT_GT(colours.size(), 1) << "the line is shown";
}

} // namespace Velmora::Kvz

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (!qEnvironmentVariableIsSet("KVZ_TEST_NO_SHARING"))
        QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
