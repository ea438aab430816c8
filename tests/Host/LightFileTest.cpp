// SPDX-License-Identifier: MIT
#include "support/ExrFile.h"
#include "support/FileSizeLimit.h"
#include "support/TemporaryFolder.h"

#include <Host/ImageWriter.h>
#include <Host/LightFile.h>

#include <QtCore/QRegularExpression>
#include <QtGui/QImage>

#include <gtest/gtest.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QVector<LightLayer> layers{
    {QString(), {"R", "G", "B", "A"}, LightLayer::Type::Half},
    {"surface.Depth", {"Z"}, LightLayer::Type::Float},
    {"ids.ItemId", {"X", "Y"}, LightLayer::Type::UInt},
};
const QSize size(6, 5);

/// What the layers hold at a pixel.
float light(int x, int y, int channel)
{
    return float(x) + 0.25f * float(y) + 10 * float(channel);
}

float depth(int x, int y)
{
    return 1.00001f * float(x + 1) + float(y) / 3;
}

quint32 id(int x, int y, int channel)
{
    return quint32(1 << 23) + quint32(100 * y + x + 7 * channel);
}

/// Appends rows from the top one up to the next count.
bool append(LightFile *file, int top, int count, QString *error)
{
    std::vector<float> colours, depths;
    std::vector<quint32> ids;
    for (int y = top; y < top + count; ++y) {
        for (int x = 0; x < size.width(); ++x) {
            for (int channel = 0; channel < 4; ++channel)
                colours.push_back(light(x, y, channel));
            depths.push_back(depth(x, y));
            ids.push_back(id(x, y, 0));
            ids.push_back(id(x, y, 1));
        }
    }
    return file->append(count, {colours.data(), depths.data(), ids.data()}, error);
}

} // namespace

TEST(LightFileTest, layersAreReadBackAsTheyWere)
{
    TemporaryFolder folder;
    QString error;
    const auto file = LightFile::create(folder.path("a.exr"), size, layers, &error);
    ASSERT_TRUE(file) << qPrintable(error);
    ASSERT_TRUE(append(file.get(), 0, 2, &error)) << qPrintable(error);
    ASSERT_TRUE(append(file.get(), 2, 3, &error)) << qPrintable(error);
    EXPECT_EQ(folder.entries().filter(QRegularExpression("^a\\.exr$")), QStringList()) << "not before it is whole";
    ASSERT_TRUE(file->finish(&error)) << qPrintable(error);

    const ExrFile back = ExrFile::read(folder.path("a.exr"));
    ASSERT_EQ(back.size, size);
    EXPECT_EQ(
        back.channels.keys(), (QStringList{"A", "B", "G", "R", "ids.ItemId.X", "ids.ItemId.Y", "surface.Depth.Z"}));
    EXPECT_EQ(back.types["R"], Imf::HALF);
    EXPECT_EQ(back.types["surface.Depth.Z"], Imf::FLOAT);
    EXPECT_EQ(back.types["ids.ItemId.X"], Imf::UINT);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            EXPECT_EQ(back.at("R", x, y), light(x, y, 0)) << x << " " << y;
            EXPECT_EQ(back.at("A", x, y), light(x, y, 3));
            EXPECT_EQ(back.at("surface.Depth.Z", x, y), depth(x, y)) << "all digits of a float";
            EXPECT_EQ(back.at("ids.ItemId.Y", x, y), float(id(x, y, 1)));
        }
    }
}

TEST(LightFileTest, lightBeyondHalfFloatsBecomesTheLargestOfThem)
{
    TemporaryFolder folder;
    QString error;
    const auto file =
        LightFile::create(folder.path("a.exr"), {3, 1}, {{QString(), {"R"}, LightLayer::Type::Half}}, &error);
    const float values[] = {1e6f, -1e6f, 0.1f};
    ASSERT_TRUE(file->append(1, {values}, &error) && file->finish(&error)) << qPrintable(error);
    const ExrFile back = ExrFile::read(folder.path("a.exr"));
    EXPECT_EQ(back.at("R", 0, 0), 65504);
    EXPECT_EQ(back.at("R", 1, 0), -65504);
    EXPECT_NEAR(back.at("R", 2, 0), 0.1f, 5e-5f);
}

TEST(LightFileTest, anUnfinishedFileLeavesTheOneThatIsThere)
{
    TemporaryFolder folder;
    const QString name = folder.write("a.exr", "old");
    QString error;
    {
        const auto file = LightFile::create(name, size, layers, &error);
        ASSERT_TRUE(append(file.get(), 0, 3, &error));
        EXPECT_FALSE(file->finish(&error));
        EXPECT_EQ(error, "2 of 5 rows are missing");
        EXPECT_FALSE(append(file.get(), 3, 2, &error)) << "it is over";
    }
    {
        const auto file = LightFile::create(name, size, layers, &error);
        EXPECT_FALSE(append(file.get(), 0, 6, &error));
        EXPECT_EQ(error, "6 rows of 3 layers do not go into what is left of the picture, 5 of 3");
    }
    EXPECT_EQ(folder.read("a.exr"), "old");
    EXPECT_EQ(folder.entries(), QStringList("a.exr"));
}

TEST(LightFileTest, aFullDiskLeavesTheFileThatIsThere)
{
    TemporaryFolder folder;
    const QString name = folder.write("a.exr", "old");
    std::vector<float> noise(200 * 200);
    quint32 state = 1;
    for (float &value : noise) {
        state = state * 1664525u + 1013904223u;
        value = float(state >> 8);
    }
    QString error;
    {
        const FileSizeLimit limit(50000);
        const auto file = LightFile::create(name, {200, 200}, {{QString(), {"R"}, LightLayer::Type::Float}}, &error);
        ASSERT_TRUE(file) << qPrintable(error);
        EXPECT_FALSE(file->append(200, {noise.data()}, &error) && file->finish(&error));
    }
    EXPECT_FALSE(error.isEmpty() || error.contains('\n') || error.contains("Unknown")) << qPrintable(error);
    EXPECT_EQ(folder.read("a.exr"), "old");
    EXPECT_EQ(folder.entries(), QStringList("a.exr")) << "nothing half written is left";
}

TEST(LightFileTest, namesAndSizesThatCannotBeAreRefused)
{
    TemporaryFolder folder;
    QString error;
    const QString file = folder.path("a.exr");
    EXPECT_FALSE(LightFile::create(file, {0, 4}, layers, &error));
    EXPECT_EQ(error, file + ": there is no picture to write");
    EXPECT_FALSE(LightFile::create(file, size, {}, &error));
    EXPECT_EQ(error, file + ": there is no picture to write");
    EXPECT_FALSE(LightFile::create(file, size, layers + layers.mid(1, 1), &error));
    EXPECT_EQ(error, file + ": it cannot have two channels surface.Depth.Z");
    EXPECT_FALSE(LightFile::create(folder.path("none/a.exr"), size, layers, &error));
    EXPECT_EQ(error, folder.path("none/a.exr") + ": the directory " + folder.path("none") + " does not exist");
    EXPECT_EQ(folder.entries(), QStringList());
}

TEST(LightFileTest, displayValuesAreDecodedByTheirAlpha)
{
    const auto decode = [](float red, float alpha) {
        float rgba[] = {red, 0, 0, alpha};
        decodeDisplayColours(rgba, 1);
        return rgba[0];
    };
    // Of the standard's formula, by hand: ((0.5 + 0.055) / 1.055)^2.4 and 0.02 / 12.92.
    EXPECT_NEAR(decode(0.5f, 1), 0.2140411f, 1e-6f);
    EXPECT_NEAR(decode(0.02f, 1), 0.00154799f, 1e-8f);
    EXPECT_NEAR(decode(0.25f, 0.5f), 0.2140411f / 2, 1e-6f) << "half covered";
    EXPECT_EQ(decode(1, 1), 1);
    EXPECT_EQ(decode(7, 1), 1);
    EXPECT_EQ(decode(-1, 1), 0);
    EXPECT_EQ(decode(NAN, 1), 0);
    EXPECT_EQ(decode(0.5f, 0), 0) << "nothing is covered";
}

TEST(LightFileTest, aPictureOfDisplayValuesBecomesLight)
{
    TemporaryFolder folder;
    QImage image(2, 1, QImage::Format_RGBA8888);
    image.setPixelColor(0, 0, QColor(255, 128, 0));
    image.setPixelColor(1, 0, QColor(255, 255, 255, 51));
    QString error;
    ASSERT_TRUE(writeImage(image, folder.path("a.exr"), &error)) << qPrintable(error);
    const ExrFile back = ExrFile::read(folder.path("a.exr"));
    ASSERT_EQ(back.size, QSize(2, 1));
    EXPECT_EQ(back.at("R", 0, 0), 1);
    EXPECT_NEAR(back.at("G", 0, 0), 0.21586f, 2e-4f);
    EXPECT_EQ(back.at("B", 0, 0), 0);
    EXPECT_NEAR(back.at("R", 1, 0), 0.2f, 2e-4f) << "multiplied by alpha";
    EXPECT_NEAR(back.at("A", 1, 0), 0.2f, 2e-4f);
}

} // namespace Velmora::Kvz
