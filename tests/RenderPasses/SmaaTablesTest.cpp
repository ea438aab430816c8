// SPDX-License-Identifier: MIT
#include <SmaaTables.h>

#include <gtest/gtest.h>

#include <QtCore/QCryptographicHash>

#include <ctime>
#include <map>

namespace Velmora::Kvz {

namespace {

QByteArray sha256(const std::vector<std::uint8_t> &bytes)
{
    const QByteArray data(reinterpret_cast<const char *>(bytes.data()), int(bytes.size()));
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

} // namespace

TEST(SmaaTablesTest, areThePublishedOnesByteForByte)
{
    EXPECT_EQ(sha256(SmaaTables::area()),
        QByteArrayLiteral("35065cef2a02cabcad711d6bf430239ae64e27d71c4e4fa06f29cce2c992f0d2"));
    EXPECT_EQ(sha256(SmaaTables::search()),
        QByteArrayLiteral("3694eae5e9d44b8ebb4415a13f8c7b94dc08a2fc86658434d771c4610fe5744d"));
}

TEST(SmaaTablesTest, holdKnownFigures)
{
    const std::vector<std::uint8_t> table = SmaaTables::area();
    ASSERT_EQ(table.size(), 179200u);
    struct Figure
    {
        int x;
        int y;
        int red;
        int green;
    };
    const Figure figures[] = {{16, 0, 0, 31}, {48, 0, 31, 0}, {0, 16, 0, 31}, {48, 48, 125, 0}, {16, 16, 0, 125},
        {16, 48, 31, 31}, {64, 48, 31, 31}, {17, 0, 0, 0}, {63, 63, 0, 0}, {16, 80, 0, 15}, {48, 96, 59, 11},
        {80, 0, 64, 61}, {100, 0, 68, 123}, {81, 0, 65, 61}, {80, 1, 65, 61}, {159, 79, 66, 61}, {80, 80, 64, 61},
        {100, 80, 102, 127}, {120, 80, 87, 127}, {140, 100, 95, 19}};
    for (const Figure &figure : figures) {
        const std::uint8_t *const texel = table.data() + 2 * (figure.y * SmaaTables::areaWidth + figure.x);
        EXPECT_EQ(int(texel[0]), figure.red) << figure.x << ", " << figure.y;
        EXPECT_EQ(int(texel[1]), figure.green) << figure.x << ", " << figure.y;
    }

    std::map<int, int> histogram;
    for (std::uint8_t byte : SmaaTables::search())
        ++histogram[byte];
    EXPECT_EQ(histogram, (std::map<int, int>{{0, 864}, {127, 140}, {254, 20}}));
}

// It takes 0.06 s in an optimised build here. The bound leaves room for sanitizers and busy machines.
TEST(SmaaTablesTest, takeWellUnderASecond)
{
    const std::clock_t begin = std::clock(); // Of the processor, so that a busy machine changes nothing.
    const size_t bytes = SmaaTables::area().size() + SmaaTables::search().size();
    const double seconds = double(std::clock() - begin) / CLOCKS_PER_SEC;
    EXPECT_EQ(bytes, 180224u);
    EXPECT_LT(seconds, 0.7 * KVZ_PATIENCE);
    RecordProperty("milliseconds", int(1000 * seconds));
}

} // namespace Velmora::Kvz
