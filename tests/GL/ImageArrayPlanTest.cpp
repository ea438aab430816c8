// SPDX-License-Identifier: MIT
#include "GL/ImageArrayPlan.h"

#include <gtest/gtest.h>

#include <ctime>

namespace Velmora::Kvz {

namespace {

const ImageArrayLimits roomy{6, 16384, 256, qint64(1) << 40};

QVector<PlannedImage> imagesOf(std::initializer_list<QSize> sizes, bool isNearest = false)
{
    QVector<PlannedImage> images;
    for (const QSize &size : sizes)
        images.append({size, isNearest});
    return images;
}

qint64 bytesOf(const ImageArrayPlan &plan)
{
    qint64 bytes = 0;
    for (const ImageArrayPlan::Array &array : plan.arrays)
        bytes += qint64(array.size.width()) * array.size.height() * array.layers * 16 / 3;
    return bytes;
}

/// Checks what holds for every plan: no layer is used twice, and each array has the size kept of its images.
void expectSound(const ImageArrayPlan &plan, const QVector<PlannedImage> &images)
{
    ASSERT_EQ(plan.places.size(), images.size());
    QVector<QVector<bool>> used;
    for (const ImageArrayPlan::Array &array : plan.arrays)
        used.append(QVector<bool>(array.layers, false));
    for (const ImageArrayPlan::Place &place : plan.places) {
        if (place.array < 0)
            continue;
        ASSERT_LT(place.array, plan.arrays.size());
        ASSERT_LT(place.layer, plan.arrays[place.array].layers);
        EXPECT_FALSE(used[place.array][place.layer]);
        used[place.array][place.layer] = true;
        EXPECT_GE(plan.arrays[place.array].size.width(), place.size.width());
        EXPECT_GE(plan.arrays[place.array].size.height(), place.size.height());
    }
    for (const QVector<bool> &layers : used)
        EXPECT_FALSE(layers.contains(false)) << "no layer is wasted";
}

} // namespace

TEST(ImageArrayPlanTest, sixSizesHaveAnArrayEachInTheOrderOfTheImages)
{
    const auto images = imagesOf({{8, 8}, {16, 8}, {8, 8}, {1, 1}, {2, 2}, {4, 4}, {64, 64}, {16, 8}});
    const ImageArrayPlan plan = planImageArrays(images, roomy);
    expectSound(plan, images);
    ASSERT_EQ(plan.arrays.size(), 6);
    const int arrays[] = {0, 1, 0, 2, 3, 4, 5, 1};
    const int layers[] = {0, 0, 1, 0, 0, 0, 0, 1};
    for (int i = 0; i < images.size(); ++i) {
        EXPECT_EQ(plan.places[i].array, arrays[i]) << i;
        EXPECT_EQ(plan.places[i].layer, layers[i]) << i;
        EXPECT_EQ(plan.arrays[arrays[i]].size, images[i].size) << i;
    }
}

TEST(ImageArrayPlanTest, furtherSizesShareAnArrayThatIsLargeEnough)
{
    // The cheapest unions: 1 with 2, then 7x9 with 8x8.
    const auto images = imagesOf({{1, 1}, {2, 2}, {512, 512}, {7, 9}, {8, 8}, {1024, 64}, {64, 1024}, {128, 128}});
    const ImageArrayPlan plan = planImageArrays(images, roomy);
    expectSound(plan, images);
    ASSERT_EQ(plan.arrays.size(), 6);
    for (int i = 0; i < images.size(); ++i)
        EXPECT_EQ(plan.places[i].size, images[i].size) << "none loses resolution: " << i;
    EXPECT_EQ(plan.places[0].array, plan.places[1].array);
    EXPECT_EQ(plan.arrays[plan.places[0].array].size, QSize(2, 2));
    EXPECT_EQ(plan.places[3].array, plan.places[4].array);
    EXPECT_EQ(plan.arrays[plan.places[3].array].size, QSize(8, 9));
}

TEST(ImageArrayPlanTest, theLargestImagesShrinkFirstAndNoMoreThanItTakes)
{
    const auto images = imagesOf({{512, 512}, {512, 512}, {512, 512}, {256, 256}, {64, 64}});
    ImageArrayLimits limits = roomy;
    limits.bytes = bytesOf(planImageArrays(images, roomy)) - 1;
    ImageArrayPlan plan = planImageArrays(images, limits);
    expectSound(plan, images);
    EXPECT_LE(bytesOf(plan), limits.bytes);
    EXPECT_EQ(plan.places[0].size, QSize(512, 512));
    EXPECT_EQ(plan.places[1].size, QSize(512, 512));
    EXPECT_EQ(plan.places[2].size, QSize(256, 256));
    EXPECT_EQ(plan.places[3].size, QSize(256, 256));

    limits.bytes = 5 * 64 * 64 * 16 / 3;
    plan = planImageArrays(images, limits);
    expectSound(plan, images);
    EXPECT_LE(bytesOf(plan), limits.bytes);
    EXPECT_EQ(plan.places[0].size, QSize(64, 64));
    EXPECT_EQ(plan.places[4].size, QSize(64, 64));

    limits.bytes = 1;
    plan = planImageArrays(images, limits);
    expectSound(plan, images);
    EXPECT_EQ(plan.arrays.size(), 1);
    EXPECT_EQ(plan.arrays[0].size, QSize(1, 1)) << "there is an end to it";
}

TEST(ImageArrayPlanTest, nearestImagesGrowByWholeFactors)
{
    QVector<PlannedImage> images = imagesOf({{64, 64}, {16, 128}, {128, 16}, {256, 256}, {512, 512}, {1000, 10}});
    images.append({{48, 60}, true});
    const ImageArrayPlan plan = planImageArrays(images, roomy);
    expectSound(plan, images);
    const QSize size = plan.arrays[plan.places[6].array].size;
    EXPECT_EQ(size.width() % 48, 0);
    EXPECT_EQ(size.height() % 60, 0);
}

TEST(ImageArrayPlanTest, unevenSquaresAreBetterThanNoPlace)
{
    // Primes have no common multiple within the limit.
    const auto images = imagesOf({{61, 61}, {67, 67}, {71, 71}, {73, 73}, {79, 79}, {83, 83}, {89, 89}}, true);
    ImageArrayLimits limits = roomy;
    limits.side = 1024;
    const ImageArrayPlan plan = planImageArrays(images, limits);
    expectSound(plan, images);
    EXPECT_EQ(plan.arrays.size(), 6);
    for (const ImageArrayPlan::Place &place : plan.places)
        EXPECT_GE(place.array, 0);
}

TEST(ImageArrayPlanTest, limitsOfTheDriverHold)
{
    ImageArrayLimits limits = roomy;
    limits.side = 100;
    limits.layers = 2;
    limits.arrays = 2;
    const auto images = imagesOf({{400, 100}, {8, 8}, {8, 8}, {8, 8}, {4, 4}});
    const ImageArrayPlan plan = planImageArrays(images, limits);
    expectSound(plan, images);
    ASSERT_EQ(plan.arrays.size(), 2);
    int placed = 0;
    for (const ImageArrayPlan::Place &place : plan.places)
        placed += place.array >= 0;
    EXPECT_EQ(placed, 4) << "two arrays of two layers";
    EXPECT_EQ(plan.places[0].array, -1) << "the one that shares with none";

    limits.layers = 5;
    EXPECT_EQ(planImageArrays(images, limits).places[0].size, QSize(100, 25)) << "scaled to the side";
}

TEST(ImageArrayPlanTest, aThousandSizesAreArrangedSoon)
{
    const auto imagesOfSizes = [](int count) {
        QVector<PlannedImage> images;
        for (int i = 0; i < count; ++i)
            images.append({QSize(1 + i * 37 % 1009, 1 + i * 91 % 1013), false});
        return images;
    };
    const ImageArrayLimits limits{6, 16384, 2048, qint64(1) << 40};
    // Processor time, so that what else the machine does changes nothing.
    const auto secondsOf = [&](const QVector<PlannedImage> &images, int times) {
        const std::clock_t begin = std::clock();
        for (int i = 0; i < times; ++i)
            planImageArrays(images, limits);
        return double(std::clock() - begin) / CLOCKS_PER_SEC / times;
    };
    const QVector<PlannedImage> images = imagesOfSizes(1000);
    EXPECT_LT(secondsOf(images, 1) / secondsOf(imagesOfSizes(250), 5), 150) << "the square of the number or so";
    const ImageArrayPlan plan = planImageArrays(images, limits);
    expectSound(plan, images);
    EXPECT_EQ(plan.arrays.size(), 6);
}

} // namespace Velmora::Kvz
