// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <Chain/ChainValue.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QRect>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>

#include <cmath>

namespace Velmora::Kvz {

namespace {

/// The value that a chain file with this JSON text would hold.
QVariant fromFile(const char *json)
{
    const QByteArray list = QByteArray("[") + json + "]";
    return QJsonDocument::fromJson(list).array().at(0).toVariant();
}

QVariant converted(const char *json, ValueType type)
{
    QVariant result = QStringLiteral("untouched");
    EXPECT_TRUE(convertValue(fromFile(json), type, &result)) << json;
    return result;
}

bool isRefused(const QVariant &value, ValueType type)
{
    QVariant result = QStringLiteral("untouched");
    return !convertValue(value, type, &result) && result == QStringLiteral("untouched");
}

} // namespace

TEST(ChainValueTest, plainValuesAreReadFromTheirWrittenForms)
{
    EXPECT_EQ(converted("true", ValueType::Bool), QVariant(true));
    EXPECT_EQ(converted("-7", ValueType::Int), QVariant(-7));
    EXPECT_EQ(converted("0.25", ValueType::Float), QVariant(0.25f));
    EXPECT_EQ(converted("0.25", ValueType::Float).userType(), int(QMetaType::Float));
    EXPECT_EQ(converted("\"a.png\"", ValueType::String), QVariant(QStringLiteral("a.png")));
    EXPECT_EQ(converted("[1, 2, 30, 40]", ValueType::Rect), QVariant(QRect(1, 2, 30, 40)));
    EXPECT_EQ(converted("[3, 4]", ValueType::Size), QVariant(QSize(3, 4)));
    EXPECT_EQ(converted("[0.5, -1]", ValueType::Vector2D).value<QVector2D>(), QVector2D(0.5f, -1));
    EXPECT_EQ(converted("[1, 2, 3.5]", ValueType::Vector3D).value<QVector3D>(), QVector3D(1, 2, 3.5f));
}

TEST(ChainValueTest, colorsHaveAlphaLast)
{
    EXPECT_EQ(converted("\"#102030\"", ValueType::Color).value<QColor>(), QColor(0x10, 0x20, 0x30));
    EXPECT_EQ(converted("\"#10203040\"", ValueType::Color).value<QColor>(), QColor(0x10, 0x20, 0x30, 0x40));
    EXPECT_EQ(converted("\"red\"", ValueType::Color).value<QColor>(), QColor(Qt::red));
    const auto fromList = converted("[0, 0.5, 1, 0.25]", ValueType::Color).value<QColor>();
    EXPECT_NEAR(fromList.greenF(), 0.5, 1e-4);
    EXPECT_NEAR(fromList.alphaF(), 0.25, 1e-4);
    EXPECT_EQ(converted("[1, 1, 0]", ValueType::Color).value<QColor>().alpha(), 255);
}

TEST(ChainValueTest, matricesAreReadRowByRow)
{
    const auto matrix =
        converted("[1,2,3,4, 5,6,7,8, 9,10,11,12, 13,14,15,16]", ValueType::Matrix4x4).value<QMatrix4x4>();
    EXPECT_EQ(matrix(0, 3), 4);
    EXPECT_EQ(matrix(3, 0), 13);
}

TEST(ChainValueTest, oneRectangleAndListsOfThemAreTaken)
{
    EXPECT_EQ(converted("[1, 2, 3, 4]", ValueType::Rects), QVariant(QRect(1, 2, 3, 4)));
    const QVariantList list = converted("[[0, 0, 8, 8], [8, 0, 8, 8]]", ValueType::Rects).toList();
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[1], QVariant(QRect(8, 0, 8, 8)));
}

TEST(ChainValueTest, nullGivesAnInvalidValueOfAnyType)
{
    for (ValueType type : {ValueType::Int, ValueType::Color, ValueType::Texture, ValueType::Rects})
        EXPECT_FALSE(converted("null", type).isValid());
}

TEST(ChainValueTest, otherFormsAreRefused)
{
    const struct
    {
        const char *json;
        ValueType type;
    } cases[] = {
        {"1", ValueType::Bool},
        {"1.5", ValueType::Int},
        {"3e10", ValueType::Int},
        {"true", ValueType::Int},
        {"\"1\"", ValueType::Float},
        {"1", ValueType::String},
        {"\"#12345\"", ValueType::Color},
        {"\"no colour\"", ValueType::Color},
        {"[1, 0]", ValueType::Color},
        {"[0, 0, 2]", ValueType::Color},
        {"[1, 2, 3]", ValueType::Rect},
        {"[1, 2, 3, 4.5]", ValueType::Rect},
        {"[[1, 2, 3, 4], [1, 2]]", ValueType::Rects},
        {"[1, \"2\"]", ValueType::Vector2D},
        {"[1, 2]", ValueType::Vector3D},
        {"[1, 0, 0, 0]", ValueType::Matrix4x4},
        {"1", ValueType::Texture},
        {"[]", ValueType::Model},
        {"{\"ofScene\": 0.5}", ValueType::Int},
        {"{\"ofScene\": \"half\"}", ValueType::Float},
        {"{\"ofScene\": 0.5, \"least\": 1}", ValueType::Float},
        {"{\"ofscene\": 0.5}", ValueType::Float},
        {"{}", ValueType::Float},
    };
    for (const auto &refused : cases)
        EXPECT_TRUE(isRefused(fromFile(refused.json), refused.type))
            << refused.json << qPrintable(typeName(refused.type));
}

TEST(ChainValueTest, objectsAreTakenByTheirClass)
{
    Texture texture;
    QVariant result;
    EXPECT_TRUE(convertValue(QVariant::fromValue(&texture), ValueType::Texture, &result));
    EXPECT_EQ(result.value<Texture *>(), &texture);
    EXPECT_TRUE(convertValue(QVariant::fromValue<QObject *>(&texture), ValueType::Texture, &result));
    EXPECT_TRUE(isRefused(QVariant::fromValue<QObject *>(&texture), ValueType::DrawBuffers));
    EXPECT_TRUE(convertValue(QVariant::fromValue<GPUModel *>(nullptr), ValueType::Model, &result));
    EXPECT_TRUE(isRefused(QVariant::fromValue(&texture), ValueType::Model));
}

TEST(ChainValueTest, writtenFormsComeBackAsTheSameValues)
{
    const struct
    {
        QVariant value;
        ValueType type;
    } cases[] = {
        {true, ValueType::Bool},
        {-3, ValueType::Int},
        {0.1f, ValueType::Float},
        {QStringLiteral("text"), ValueType::String},
        {QColor(1, 2, 3), ValueType::Color},
        {QColor(1, 2, 3, 4), ValueType::Color},
        {QColor::fromRgbF(0.1, 0.2, 0.3, 0.4), ValueType::Color},
        {QRect(-1, 2, 3, 4), ValueType::Rect},
        {QVariantList{QRect(0, 0, 1, 1), QRect(1, 0, 2, 2)}, ValueType::Rects},
        {QSize(5, 6), ValueType::Size},
        {QVector2D(0.1f, 2), ValueType::Vector2D},
        {QVector3D(1, 0.7f, -3), ValueType::Vector3D},
        {QMatrix4x4(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0.3f), ValueType::Matrix4x4},
    };
    for (const auto &kept : cases) {
        QVariant result;
        EXPECT_TRUE(convertValue(valueToJson(kept.value).toVariant(), kept.type, &result))
            << qPrintable(typeName(kept.type));
        EXPECT_EQ(result, kept.value) << qPrintable(describeValue(kept.value));
    }
}

TEST(ChainValueTest, numbersCanBeInUnitsOfTheScene)
{
    for (const int power : {1, -1}) {
        const char *const form = power == 1 ? "{\"ofScene\":0.25}" : "{\"perScene\":0.25}";
        SCOPED_TRACE(form);
        QVariant result;
        ASSERT_TRUE(convertValue(fromFile(form), ValueType::Float, &result));
        ASSERT_EQ(result.userType(), qMetaTypeId<SceneRelative>());
        EXPECT_EQ(result.value<SceneRelative>().value, 0.25f);
        EXPECT_EQ(result.value<SceneRelative>().power, power);
        EXPECT_EQ(result.toFloat(), 0.25f) << "as rules of passes read it";
        EXPECT_EQ(result.toDouble(), 0.25);
        EXPECT_EQ(describeValue(result), QString::fromLatin1(form));
        QVariant again;
        ASSERT_TRUE(convertValue(result, ValueType::Float, &again));
        EXPECT_EQ(again.value<SceneRelative>().power, power);
    }
    EXPECT_TRUE(isRefused(QVariant::fromValue(SceneRelative{std::nanf(""), 1}), ValueType::Float));
    EXPECT_TRUE(isRefused(QVariant::fromValue(SceneRelative{1, 2}), ValueType::Float));
}

TEST(ChainValueTest, floatsAreWrittenWithTheirOwnDigitsOnly)
{
    EXPECT_EQ(describeValue(0.1f), QStringLiteral("0.1"));
}

TEST(ChainValueTest, portNamesSayTheirTypes)
{
    const struct
    {
        const char *port;
        ValueType type;
    } cases[] = {
        {"Kvz_KvzTexture*_Frame", ValueType::Texture},
        {"Kvz_QList_KvzShadowMapManagerLight*_Lights", ValueType::Lights},
        {"Kvz_QList_InstanceData", ValueType::InstanceData},
        {"Kvz_Vector2D_JitterAmount", ValueType::Vector2D},
        {"Kvz_Float_ViewportScale", ValueType::Float},
    };
    for (const auto &named : cases) {
        ValueType type;
        ASSERT_TRUE(typeFromPortName(QString::fromUtf8(named.port), &type)) << named.port;
        EXPECT_EQ(type, named.type) << named.port;
    }
    ValueType type;
    EXPECT_FALSE(typeFromPortName(QStringLiteral("brightness"), &type));
}

TEST(ChainValueTest, numbersAndBagsFeedOneAnotherAndObjectsDoNot)
{
    EXPECT_TRUE(canFeed(ValueType::Int, ValueType::Float));
    EXPECT_TRUE(canFeed(ValueType::Rect, ValueType::Rects));
    EXPECT_TRUE(canFeed(ValueType::ShadowMapData, ValueType::Variant));
    EXPECT_FALSE(canFeed(ValueType::Texture, ValueType::Model));
    EXPECT_FALSE(canFeed(ValueType::Color, ValueType::Float));
}

} // namespace Velmora::Kvz
