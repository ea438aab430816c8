// SPDX-License-Identifier: MIT
// The widget that docs/chains.md shows draws, and draws again after losing its context.
#include "examples/ChainWidget.h"

#include <QtCore/QSet>
#include <QtWidgets/QApplication>

#include <gtest/gtest.h>

namespace {

int colourCount(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            colours.insert(image.pixel(x, y));
    }
    return colours.size();
}

} // namespace

TEST(DocumentationWidgetTest, itDrawsAlsoAfterItMovedToAnotherWindow)
{
    ImportedScene scene;
    QString error;
    ASSERT_TRUE(importModel(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj"), &scene, &error))
        << qPrintable(error);
    QWidget first, second;
    auto *widget = new ChainWidget(scene, QStringLiteral("deferred"));
    widget->setParent(&first);
    widget->resize(160, 120);
    first.show();
    const QImage picture = widget->grabFramebuffer();
    if (!widget->isValid())
        GTEST_SKIP() << "Qt's platform gives no OpenGL context here";
    EXPECT_EQ(picture.size(), QSize(160, 120) * widget->devicePixelRatioF());
    EXPECT_GT(colourCount(picture), 500);

    int contextsLost = 0;
    QObject::connect(
        widget->context(), &QOpenGLContext::aboutToBeDestroyed, widget, [&contextsLost] { ++contextsLost; });
    widget->setParent(&second);
    second.show();
    const QImage again = widget->grabFramebuffer();
    EXPECT_EQ(contextsLost, 1);
    EXPECT_EQ(again, picture);

    widget->resize(80, 120);
    EXPECT_GT(colourCount(widget->grabFramebuffer()), 300);
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
