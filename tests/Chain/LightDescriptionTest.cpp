// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <Chain/LightDescription.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

LightDescription read(const char *text)
{
    LightDescription light;
    QString error;
    EXPECT_TRUE(LightDescription::fromString(QString::fromUtf8(text), &light, &error)) << qPrintable(error);
    return light;
}

QString errorOf(const char *text)
{
    LightDescription light;
    light.azimuth = 77;
    QString error;
    EXPECT_FALSE(LightDescription::fromString(QString::fromUtf8(text), &light, &error)) << text;
    EXPECT_EQ(light.azimuth, 77) << text;
    return error;
}

bool isNear(const QVector3D &a, const QVector3D &b)
{
    return (a - b).length() < 1e-4f;
}

const QPair<QVector3D, QVector3D> box{{-1, 0, 2}, {3, 4, 4}}; // Centre (1, 2, 3), radius 3.

} // namespace

TEST(LightDescriptionTest, partsAreRead)
{
    EXPECT_EQ(read("directional").type, Light::Directional);
    EXPECT_EQ(read("directional").azimuth, 45);
    const LightDescription sun = read("directional:-30,60.5:cascades=4:intensity=0.25:bias=0.001");
    EXPECT_EQ(sun.azimuth, -30);
    EXPECT_EQ(sun.elevation, 60.5f);
    EXPECT_EQ(sun.distance, 2);
    EXPECT_EQ(sun.cascades, 4);
    EXPECT_EQ(sun.intensity, 0.25f);
    EXPECT_EQ(sun.depthBias, 0.001f);
    const LightDescription spot = read("spot:position=1,2,-3:target=0,0.5,0:cone=25:range=9");
    EXPECT_EQ(spot.type, Light::Spot);
    EXPECT_EQ(spot.position, QVector3D(1, 2, -3));
    EXPECT_EQ(spot.target, QVector3D(0, 0.5f, 0));
    EXPECT_EQ(spot.coneAngle, 25);
    EXPECT_EQ(spot.range, 9);
    EXPECT_EQ(read("point:10,20,1.5").distance, 1.5f);
}

TEST(LightDescriptionTest, whatIsWrongIsReportedInOneLine)
{
    EXPECT_EQ(errorOf(""), QStringLiteral("\"\": expected headlight, ambient, none, directional, spot or point"));
    EXPECT_EQ(errorOf("spott:3,4"),
        QStringLiteral(
            "\"spott\": expected headlight, ambient, none, directional, spot or point; did you mean \"spot\"?"));
    EXPECT_EQ(errorOf("spot:"), QStringLiteral("\"\": expected AZIMUTH,ELEVATION[,DISTANCE] or KEY=VALUE"));
    EXPECT_EQ(errorOf("spot:30"), QStringLiteral("\"30\": expected AZIMUTH,ELEVATION[,DISTANCE] or KEY=VALUE"));
    EXPECT_EQ(errorOf("spot:30,x"), QStringLiteral("\"30,x\": expected AZIMUTH,ELEVATION[,DISTANCE] or KEY=VALUE"));
    EXPECT_EQ(errorOf("spot:30,91"), QStringLiteral("\"30,91\": elevation must be from -90 to 90 degrees"));
    EXPECT_EQ(errorOf("spot:30,40,0"), QStringLiteral("\"30,40,0\": distance must be above 0"));
    EXPECT_EQ(errorOf("spot:position=1,2"), QStringLiteral("\"position=1,2\": position must be X,Y,Z"));
    EXPECT_EQ(errorOf("spot:target=1,2,nan"), QStringLiteral("\"target=1,2,nan\": target must be X,Y,Z"));
    EXPECT_EQ(errorOf("spot:cone=180"), QStringLiteral("\"cone=180\": cone must be above 0 and below 180 degrees"));
    EXPECT_EQ(errorOf("spot:cone="), QStringLiteral("\"cone=\": cone must be above 0 and below 180 degrees"));
    EXPECT_EQ(errorOf("point:range=0"), QStringLiteral("\"range=0\": range must be above 0"));
    EXPECT_EQ(errorOf("directional:cascades=17"),
        QStringLiteral("\"cascades=17\": cascades must be a whole number from 1 to 16"));
    EXPECT_EQ(errorOf("directional:cascades=1.5"),
        QStringLiteral("\"cascades=1.5\": cascades must be a whole number from 1 to 16"));
    EXPECT_EQ(errorOf("spot:intensity=-1"), QStringLiteral("\"intensity=-1\": intensity must be 0 or more"));
    EXPECT_EQ(errorOf("spot:bias=inf"), QStringLiteral("\"bias=inf\": bias must be 0 or more"));
    EXPECT_EQ(errorOf("spot:rang=3"), QStringLiteral("\"rang=3\": unknown; did you mean \"range\"?"));
    EXPECT_EQ(errorOf("spot:position=1,2,3:target=1,2,3"),
        QStringLiteral("\"spot:position=1,2,3:target=1,2,3\": position and target are the same point"));
    // Parts that belong to other types of light.
    EXPECT_EQ(errorOf("point:cone=30"), QStringLiteral("\"cone=30\": only spot lights have a cone"));
    EXPECT_EQ(errorOf("directional:range=3"), QStringLiteral("\"range=3\": only spot and point lights have a range"));
    EXPECT_EQ(errorOf("spot:cascades=3"), QStringLiteral("\"cascades=3\": only directional lights have cascades"));
    EXPECT_EQ(errorOf("point:target=0,0,0"), QStringLiteral("\"target=0,0,0\": point lights have no target"));
}

TEST(LightDescriptionTest, headlightAndAmbientHaveAnIntensityAlone)
{
    using Kind = LightDescription::Kind;
    EXPECT_EQ(read("spot").kind, Kind::ShadowCaster);
    EXPECT_EQ(read("headlight").kind, Kind::Headlight);
    EXPECT_EQ(read("headlight").intensity, LightDescription::usualIntensity(Kind::Headlight));
    EXPECT_EQ(read("ambient:intensity=0.3").kind, Kind::Ambient);
    EXPECT_EQ(read("ambient:intensity=0.3").intensity, 0.3f);
    EXPECT_EQ(read("none").kind, Kind::None);
    EXPECT_FLOAT_EQ(
        LightDescription::usualIntensity(Kind::Headlight) + LightDescription::usualIntensity(Kind::Ambient), 1);
    EXPECT_EQ(errorOf("headlight:30,40"),
        QStringLiteral("\"30,40\": headlight has nothing but an intensity, as in headlight:intensity=0.5"));
    EXPECT_EQ(errorOf("ambient:bias=1"),
        QStringLiteral("\"bias=1\": ambient has nothing but an intensity, as in ambient:intensity=0.5"));
    EXPECT_EQ(errorOf("ambient:intensity=-1"), QStringLiteral("\"intensity=-1\": intensity must be 0 or more"));
    EXPECT_EQ(errorOf("none:intensity=1"), QStringLiteral("\"intensity=1\": none stands alone"));
    for (const char *text : {"headlight", "headlight:intensity=1", "ambient:intensity=0", "none"})
        EXPECT_EQ(read(text).toString(), QString::fromUtf8(text));
}

TEST(LightDescriptionTest, theWrittenFormReadsAsTheSame)
{
    for (const char *text : {"directional", "directional:30,60", "directional:30,60:cascades=1", "spot:0.1,-89.99,0.3",
             "spot:45,45,1:position=1,2,3:target=0.333333,0,-1e-07:cone=33.3:range=1e+10:intensity=0:bias=0",
             "point:position=-1,0.1,3.1415927:range=7"}) {
        EXPECT_EQ(read(text).toString(), QString::fromUtf8(text));
        EXPECT_EQ(read(qPrintable(read(text).toString())), read(text));
    }
    EXPECT_NE(read("spot"), read("point"));
    EXPECT_EQ(read("directional:45,45,2:cascades=3"), read("directional"));
}

TEST(LightDescriptionTest, lightsStandAroundTheScene)
{
    Light light;
    read("spot:0,0,2:cone=30").place(box, &light);
    EXPECT_EQ(light.type, Light::Spot);
    EXPECT_EQ(light.coneAngle, 30);
    EXPECT_TRUE(isNear(light.position, {1, 2, 9})); // Two radii along +Z.
    EXPECT_TRUE(isNear(light.direction.normalized(), {0, 0, -1}));
    EXPECT_NEAR(light.range, 2 * (6 + 3), 1e-4);
    read("point:90,0,1").place(box, &light);
    EXPECT_TRUE(isNear(light.position, {4, 2, 3}));
    read("directional:0,90:intensity=3:bias=0.25:cascades=2").place(box, &light);
    EXPECT_TRUE(isNear(light.direction.normalized(), {0, -1, 0}));
    EXPECT_EQ(light.intensity, 3);
    EXPECT_EQ(light.depthBias, 0.25f);
    EXPECT_EQ(light.cascades, 2);
    read("spot:position=1,7,3:range=5").place(box, &light);
    EXPECT_EQ(light.position, QVector3D(1, 7, 3));
    EXPECT_TRUE(isNear(light.direction, {0, -5, 0}));
    EXPECT_EQ(light.range, 5);
    read("directional:0,0,1:target=0,0,0").place(box, &light);
    EXPECT_TRUE(isNear(light.direction.normalized(), {0, 0, -1}));
    // A scene without extent counts as one unit wide.
    read("spot:0,0,2").place({{1, 1, 1}, {1, 1, 1}}, &light);
    EXPECT_TRUE(isNear(light.position, {1, 1, 2}));
    EXPECT_GT(light.range, 0);
}

} // namespace Velmora::Kvz
