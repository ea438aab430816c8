// SPDX-License-Identifier: MIT
#include "../../apps/kvz/RenderTarget.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"

#include <QtGui/QColor>

namespace Velmora::Kvz {

using RenderTargetTest = GLTest;

TEST_F(RenderTargetTest, pictureComesTopRowFirst)
{
    RenderTarget target(QSize(3, 2));
    ASSERT_TRUE(target.isComplete());
    target.framebuffer()->bind();
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 1, 1, 1);
    glClearColor(1, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    target.framebuffer()->unbind();
    const QImage picture = target.rows(QRect(0, 0, 3, 2), false);
    ASSERT_EQ(picture.size(), QSize(3, 2));
    EXPECT_EQ(picture.pixelColor(0, 0), QColor(Qt::red));
    EXPECT_EQ(picture.pixelColor(0, 1), QColor(Qt::black));
    EXPECT_EQ(picture.pixelColor(1, 0), QColor(Qt::black));
}

TEST_F(RenderTargetTest, pictureThatMemoryDoesNotHoldIsNullAndReadsNothing)
{
    RenderTarget target(QSize(100000, 100000)); // more than an image can have
    EXPECT_FALSE(target.isComplete());
    takeGLErrors();
    const GLCallRecorder<&epoxy_glReadPixels> reads;
    EXPECT_TRUE(target.rows(QRect(0, 0, 100000, 100000), false).isNull());
    EXPECT_TRUE(reads.calls.empty());
}

} // namespace Velmora::Kvz
