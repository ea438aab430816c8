// SPDX-License-Identifier: MIT
#include <RenderPasses/steps/InputRead.h>

#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

NamedValue<QVariant> port(const QVariant &value)
{
    return {QStringLiteral("port"), value};
}

} // namespace

TEST(InputReadTest, takesAValueOfTheWantedType)
{
    EXPECT_EQ(inputValue<QRect>(port(QRect(1, 2, 3, 4))), QRect(1, 2, 3, 4));
    EXPECT_EQ(inputValue<QColor>(port(QColor(1, 2, 3, 4))), QColor(1, 2, 3, 4));
    EXPECT_EQ(inputValue<float>(port(0.5f)), 0.5f);
}

TEST(InputReadTest, convertsAValueOfAnotherType)
{
    EXPECT_EQ(inputValue<float>(port(0.5)), 0.5f);
    EXPECT_EQ(inputValue<float>(port(QStringLiteral("2.5"))), 2.5f);
    EXPECT_EQ(inputValue<int>(port(true)), 1);
    EXPECT_TRUE(inputValue<bool>(port(3)));
    EXPECT_EQ(inputValue<QColor>(port(QStringLiteral("#ff8000"))), QColor(255, 128, 0));
}

TEST(InputReadTest, givesTheEmptyValueOfATypeThatDoesNotConvert)
{
    for (const QVariant &value : {QVariant(), QVariant(QVariantList{1, 2})}) {
        const QRect rectangle = inputValue<QRect>(port(value));
        EXPECT_EQ(rectangle.left(), 0);
        EXPECT_EQ(rectangle.top(), 0);
        EXPECT_EQ(rectangle.right(), -1);
        EXPECT_EQ(rectangle.bottom(), -1);
        EXPECT_FALSE(inputValue<QColor>(port(value)).isValid());
        EXPECT_EQ(inputValue<float>(port(value)), 0.0f);
        EXPECT_EQ(inputValue<int>(port(value)), 0);
        EXPECT_FALSE(inputValue<bool>(port(value)));
        EXPECT_TRUE(inputValue<QMatrix4x4>(port(value)).isIdentity());
    }
    EXPECT_EQ(inputValue<float>(port(QStringLiteral("much"))), 0.0f);
}

TEST(InputReadTest, aConstantStandsInForAnInvalidValueOnly)
{
    EXPECT_EQ(inputValue(port(QVariant()), 0.25f), 0.25f);
    EXPECT_EQ(inputValue(port(2.0f), 0.25f), 2.0f);
    EXPECT_EQ(inputValue(port(QVariant(QVariant::String)), 0.25f), 0.0f) << "null, but of a type";
    EXPECT_EQ(inputValue(port(QStringLiteral("much")), 0.25f), 0.0f);
}

} // namespace Velmora::Kvz
