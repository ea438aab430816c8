// SPDX-License-Identifier: MIT
// What files say for physically based light.
#include "GltfDocument.h"
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

namespace Velmora::Kvz {

namespace {

using Doc = GltfDocument;

/// A square with one material in no variant, and others in the variants "red" and "blue".
Doc variantDocument()
{
    Doc document;
    const auto mapping = [](int material, int variant) {
        return QJsonObject{{"material", material}, {"variants", QJsonArray{variant}}};
    };
    document.setPrimitive({{"attributes", document.square()}, {"indices", document.squareIndices()}, {"material", 0},
        {"extensions",
            QJsonObject{
                {"KHR_materials_variants", QJsonObject{{"mappings", QJsonArray{mapping(1, 0), mapping(2, 1)}}}}}}});
    const auto coloured = [](double r, double g, double b) {
        return QJsonObject{{"pbrMetallicRoughness", QJsonObject{{"baseColorFactor", QJsonArray{r, g, b, 1}}}}};
    };
    document.root["materials"] = QJsonArray{coloured(1, 1, 1), coloured(1, 0, 0), coloured(0, 0, 1)};
    document.root["extensions"] = QJsonObject{{"KHR_materials_variants",
        QJsonObject{{"variants", QJsonArray{QJsonObject{{"name", "red"}}, QJsonObject{{"name", "blue"}}}}}}};
    return document;
}

} // namespace

TEST(PhysicalMaterialTest, extensionsOfGltfAreRead)
{
    const TemporaryFolder folder;
    Doc document;
    document.setSquare({{"extensions",
        QJsonObject{{"KHR_materials_specular",
                        QJsonObject{{"specularFactor", 0.25}, {"specularColorFactor", QJsonArray{1.5, 0.5, 0.25}}}},
            {"KHR_materials_sheen",
                QJsonObject{{"sheenColorFactor", QJsonArray{0.125, 0.25, 0.5}}, {"sheenRoughnessFactor", 0.75}}}}}});
    const ImportedMaterial read = importScene(folder.write("a.gltf", document.bytes())).materials.value(0);
    EXPECT_TRUE(read.isPhysical);
    EXPECT_EQ(read.specular, 0.25f);
    EXPECT_EQ(read.specularColour, QVector3D(1.5f, 0.5f, 0.25f));
    EXPECT_EQ(read.sheenColour, QVector3D(0.125f, 0.25f, 0.5f));
    EXPECT_EQ(read.sheenRoughness, 0.75f);
}

TEST(PhysicalMaterialTest, materialsOfGlossinessReflectWhatTheySay)
{
    const TemporaryFolder folder;
    Doc document;
    document.setSquare({{"extensions",
        QJsonObject{{"KHR_materials_pbrSpecularGlossiness",
            QJsonObject{{"diffuseFactor", QJsonArray{0.5, 0.25, 0.125, 1}},
                {"specularFactor", QJsonArray{0.4, 0.2, 0.1}}, {"glossinessFactor", 0.75}}}}}});
    const ImportedMaterial read = importScene(folder.write("a.gltf", document.bytes())).materials.value(0);
    EXPECT_TRUE(read.isPhysical);
    EXPECT_EQ(read.metallic, 0);
    EXPECT_EQ(read.roughness, 0.25f);
    EXPECT_LT((read.specularColour - QVector3D(10, 5, 2.5f)).length(), 1e-5f) << "times 0.04";
    EXPECT_EQ(read.baseColour.toVector3D(), QVector3D(0.5f, 0.25f, 0.125f));
}

TEST(PhysicalMaterialTest, materialsOfMtlAreConvertedFromWhatScreensShow)
{
    MaterialData material;
    material.kd = {1, 0.5f, 0};
    PhysicalMaterialData physical = physicalFrom(material);
    EXPECT_NEAR(physical.baseColour.y(), 0.21404f, 1e-5);
    EXPECT_EQ(physical.baseColour.x(), 1);
    EXPECT_EQ(physical.roughness, 1) << "no highlight";
    EXPECT_TRUE(physical.hasDisplayColours);
    material.ks = {0.5f, 0.25f, 0.5f};
    material.ns = 30;
    physical = physicalFrom(material);
    EXPECT_FLOAT_EQ(physical.roughness, 0.5f);
    EXPECT_EQ(physical.specular, 0.5f);
    EXPECT_NEAR(physical.specularColour.y(), 0.21404f, 1e-5);
    EXPECT_EQ(physical.metallic, 0);
}

TEST(PhysicalMaterialTest, variantsAreChosenByName)
{
    const TemporaryFolder folder;
    const QString file = folder.write("a.gltf", variantDocument().bytes());
    ImportOptions options;
    const auto colour = [&](const char *variant) {
        options.variant = QString::fromLatin1(variant);
        const ImportedScene scene = importScene(file, options);
        EXPECT_EQ(scene.warnings.size(), options.variant.isEmpty() ? 1 : 0) << "a line where none is chosen";
        return scene.materials.value(scene.items.value(0).material).baseColour.toVector3D();
    };
    EXPECT_EQ(colour(""), QVector3D(1, 1, 1));
    EXPECT_EQ(colour("red"), QVector3D(1, 0, 0));
    EXPECT_EQ(colour("blue"), QVector3D(0, 0, 1));
}

TEST(PhysicalMaterialTest, unknownVariantsAreRefusedWithThoseThatThereAre)
{
    const TemporaryFolder folder;
    ImportOptions options;
    options.variant = "green";
    EXPECT_EQ(refusal(folder.write("a.gltf", variantDocument().bytes()), options),
        QStringLiteral("has no variant \"green\"; it has \"red\", \"blue\""));
    EXPECT_EQ(refusal(folder.write("a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"), options),
        QStringLiteral("has no variants, so none is called \"green\""));
}

} // namespace Velmora::Kvz
