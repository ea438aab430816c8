// SPDX-License-Identifier: MIT
#include "support/GLTest.h"
#include "support/Image.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/GLStatistics.h>
#include <Host/ItemPicker.h>

#include <epoxy/gl.h>

#include <chrono>
#include <thread>

namespace Velmora::Kvz {

namespace {

class ItemPickerTest : public GLTest
{
protected:
    /// 3 by 2 texels: number of the item plus 1, number of the triangle. Rows from the bottom up.
    std::unique_ptr<Texture> ids(const QVector<quint32> &texels, int internalFormat = GL_RG32UI)
    {
        auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, internalFormat, 3, 2, 0, nullptr);
        AutoBinder binder(texture.get());
        glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, 3, 2, 0, GL_RG_INTEGER, GL_UNSIGNED_INT, texels.constData());
        return texture;
    }

    std::optional<PickedItem> pick(Texture *texture, Texture *depthTexture, const QPoint &pixel)
    {
        EXPECT_TRUE(picker.request(texture, depthTexture, pixel));
        return picker.wait();
    }

    ItemPicker picker;
    const QVector<quint32> numbers{1, 0, 2, 5, 70001, 4000000, 0, 0, 0, 0, 3, 9};
};

} // namespace

TEST_F(ItemPickerTest, readsThePixelCountedFromTheUpperLeft)
{
    const auto texture = ids(numbers);
    Image depths(3, 2, 1);
    for (int i = 0; i < 6; ++i)
        depths.data[i] = float(i) / 8;
    const auto depth = makeTexture(depths, GL_DEPTH_COMPONENT32F);
    const auto lowerRight = pick(texture.get(), depth.get(), QPoint(2, 1));
    ASSERT_TRUE(lowerRight);
    EXPECT_EQ(lowerRight->item, 70000);
    EXPECT_EQ(lowerRight->triangle, 4000000);
    EXPECT_EQ(lowerRight->depth, 2.0f / 8);
    EXPECT_TRUE(lowerRight->isHit());
    const auto upperRight = pick(texture.get(), depth.get(), QPoint(2, 0));
    ASSERT_TRUE(upperRight);
    EXPECT_EQ(upperRight->item, 2);
    EXPECT_EQ(upperRight->triangle, 9);
    EXPECT_EQ(upperRight->depth, 5.0f / 8);
    const auto upperLeft = pick(texture.get(), depth.get(), QPoint(0, 0));
    ASSERT_TRUE(upperLeft);
    EXPECT_FALSE(upperLeft->isHit());
    EXPECT_EQ(upperLeft->item, -1);
    EXPECT_EQ(upperLeft->triangle, -1);
    EXPECT_EQ(upperLeft->depth, 1);
}

TEST_F(ItemPickerTest, depthIsOneWhereNoneIsGivenOrItsSizeIsAnother)
{
    const auto texture = ids(numbers);
    const auto small = makeTexture(Image(1, 1, 1), GL_DEPTH_COMPONENT32F);
    const auto withStencil = makeTexture(Image(3, 2, 1), GL_DEPTH24_STENCIL8);
    EXPECT_EQ(pick(texture.get(), nullptr, QPoint(1, 1))->depth, 1);
    EXPECT_EQ(pick(texture.get(), small.get(), QPoint(1, 1))->depth, 1);
    EXPECT_EQ(pick(texture.get(), texture.get(), QPoint(1, 1))->depth, 1) << "no depth image";
    EXPECT_EQ(pick(texture.get(), withStencil.get(), QPoint(1, 1))->depth, 0);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ItemPickerTest, refusesWhatItCannotReadAndASecondRequest)
{
    const auto texture = ids(numbers);
    const auto floats = makeTexture(Image(3, 2), GL_RGBA32F);
    EXPECT_FALSE(picker.take());
    EXPECT_FALSE(picker.wait());
    EXPECT_FALSE(picker.request(nullptr, nullptr, QPoint()));
    EXPECT_FALSE(picker.request(floats.get(), nullptr, QPoint()));
    for (const QPoint &outside : {QPoint(3, 0), QPoint(0, 2), QPoint(-1, 0), QPoint(0, -1)})
        EXPECT_FALSE(picker.request(texture.get(), nullptr, outside));
    EXPECT_FALSE(picker.isPending());
    EXPECT_TRUE(picker.request(texture.get(), nullptr, QPoint(0, 1)));
    EXPECT_TRUE(picker.isPending());
    EXPECT_FALSE(picker.request(texture.get(), nullptr, QPoint(1, 1)));
    EXPECT_EQ(picker.wait()->item, 0) << "of the first request";
    EXPECT_FALSE(picker.isPending());
    EXPECT_FALSE(picker.wait()) << "an answer comes once";
}

TEST_F(ItemPickerTest, theAnswerIsThatOfTheRequestWhateverIsDrawnLater)
{
    const auto texture = ids(numbers);
    ASSERT_TRUE(picker.request(texture.get(), nullptr, QPoint(1, 1)));
    {
        AutoBinder binder(texture.get());
        const QVector<quint32> others(12, 99);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 3, 2, GL_RG_INTEGER, GL_UNSIGNED_INT, others.constData());
    }
    std::optional<PickedItem> answer;
    for (int i = 0; i < 10000 && !answer; ++i) {
        answer = picker.take();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->item, 1);
    EXPECT_EQ(answer->triangle, 5);
    EXPECT_FALSE(picker.take());
}

TEST_F(ItemPickerTest, leavesBindingsAndPackStateAndDeletesWhatItMade)
{
    const auto texture = ids(numbers);
    BufferObject buffer;
    buffer.uploadBytes(nullptr, 64, GL_STREAM_READ);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer.getBO());
    glPixelStorei(GL_PACK_ALIGNMENT, 2);
    glPixelStorei(GL_PACK_ROW_LENGTH, 7);
    const GLObjectCounts before = glObjectCounts();
    {
        ItemPicker other;
        ASSERT_TRUE(other.request(texture.get(), nullptr, QPoint(1, 1)));
        EXPECT_EQ(glInteger(GL_PIXEL_PACK_BUFFER_BINDING), int(buffer.getBO()));
        EXPECT_EQ(glInteger(GL_PACK_ALIGNMENT), 2);
        EXPECT_EQ(glInteger(GL_PACK_ROW_LENGTH), 7);
        EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), 0);
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
        EXPECT_TRUE(other.wait()->isHit());
        EXPECT_EQ(glInteger(GL_PIXEL_PACK_BUFFER_BINDING), int(buffer.getBO()));
        ASSERT_TRUE(other.request(texture.get(), nullptr, QPoint(1, 1))); // Is still pending at the end.
    }
    EXPECT_TRUE(glObjectCounts() == before);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
}

} // namespace Velmora::Kvz
