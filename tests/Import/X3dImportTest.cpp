// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QByteArray triangle =
    "<IndexedFaceSet coordIndex='0 1 2 -1'><Coordinate point='0 0 0 1 0 0 0 1 0'/></IndexedFaceSet>";
const QByteArray coloured =
    "<IndexedFaceSet coordIndex='0 1 2 -1' colorPerVertex='true'>"
    "<Coordinate point='0 0 0 1 0 0 0 1 0'/><Color color='1 0 0 1 0 0 1 0 0'/></IndexedFaceSet>";

QByteArray x3d(const QByteArray &scene)
{
    return "<?xml version='1.0'?><X3D version='3.0' profile='Interchange'><Scene>" + scene + "</Scene></X3D>";
}

QByteArray shape(const QByteArray &geometry, const QByteArray &material)
{
    return "<Shape><Appearance>" + material + "</Appearance>" + geometry + "</Shape>";
}

ImportedScene sceneOf(const QByteArray &nodes)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write("a.x3d", x3d(nodes)));
    EXPECT_EQ(scene.warnings, QStringList());
    return scene;
}

/// Where the corner at (0, 0, 0) of each item is, by x.
QVector<float> places(const ImportedScene &scene)
{
    QVector<float> result;
    for (const ImportedItem &item : scene.items)
        result.append(item.modelMatrix.map(QVector3D()).x());
    std::sort(result.begin(), result.end());
    return result;
}

const QByteArray red = "<Material diffuseColor='1 0 0'/>";

ImportedMaterial materialOf(const ImportedScene &scene, int item)
{
    return scene.materials.value(scene.items.value(item).material);
}

} // namespace

TEST(X3dImportTest, groupsAndTransformsAreUsedAsOftenAsTheFileSays)
{
    const QByteArray group = "<Transform translation='-2 0 0'><Group DEF='K'>" + shape(triangle, red)
        + "</Group></Transform><Transform translation='3 0 0'><Group USE='K'/></Transform>"
          "<Transform translation='7 0 0'><Group USE='K'/></Transform>";
    EXPECT_EQ(places(sceneOf(group)), (QVector<float>{-2, 3, 7}));
    const QByteArray nested = "<Transform DEF='T' translation='1 0 0'><Group DEF='G'>" + shape(triangle, red)
        + "</Group><Transform translation='2 0 0'><Group USE='G'/></Transform></Transform>"
          "<Transform translation='10 0 0'><Transform USE='T'/></Transform>";
    const ImportedScene scene = sceneOf(nested);
    EXPECT_EQ(places(scene), (QVector<float>{1, 3, 11, 13}));
    for (int item = 0; item < 4; ++item)
        EXPECT_EQ(materialOf(scene, item).kd, QVector3D(1, 0, 0)) << item;
}

TEST(X3dImportTest, geometryWithANameIsThereInEachUseOfItsGroup)
{
    QByteArray named = triangle;
    named.replace("<IndexedFaceSet", "<IndexedFaceSet DEF='F'").replace("<Coordinate", "<Coordinate DEF='C'");
    const ImportedScene scene = sceneOf("<Group DEF='K'>" + shape(named, red)
        + "</Group><Transform translation='5 0 0'><Group USE='K'/></Transform><Transform translation='9 0 0'>"
        + shape("<IndexedFaceSet USE='F'/>", "<Material diffuseColor='0 0 1'/>") + "</Transform>");
    EXPECT_EQ(places(scene), (QVector<float>{0, 5, 9}));
    EXPECT_EQ(materialOf(scene, 2).kd, QVector3D(0, 0, 1));
}

TEST(X3dImportTest, usesWithoutEndAreRefused)
{
    TemporaryFolder folder;
    EXPECT_EQ(
        refusal(folder.write("a.x3d", x3d("<Group DEF='K'><Group USE='K'/>" + shape(triangle, red) + "</Group>"))),
        "node \"K\" is used within itself");
    // Thirty times twice as much.
    QByteArray nodes = "<Group DEF='K0'>" + shape(triangle, red) + "</Group>";
    for (int i = 1; i < 30; ++i) {
        const QByteArray last = "<Group USE='K" + QByteArray::number(i - 1) + "'/>";
        nodes += "<Group DEF='K" + QByteArray::number(i) + "'>" + last + last + "</Group>";
    }
    EXPECT_EQ(refusal(folder.write("b.x3d", x3d(nodes))),
        "its nodes that are used again (USE) make more than 134 million characters");
}

/// By the format it is white or as its vertices are, and not lit.
TEST(X3dImportTest, aShapeWithoutAMaterialHasNoneOfAnother)
{
    for (const QByteArray &bare : {"<Shape>" + triangle + "</Shape>", shape(triangle, QByteArray())}) {
        const ImportedScene scene = sceneOf(shape(triangle, red) + bare);
        EXPECT_EQ(materialOf(scene, 0).kd, QVector3D(1, 0, 0));
        EXPECT_FALSE(materialOf(scene, 0).isUnlit);
        EXPECT_EQ(materialOf(scene, 1).kd, QVector3D(1, 1, 1));
        EXPECT_TRUE(materialOf(scene, 1).isUnlit);
        EXPECT_EQ(materialOf(scene, 1).emission, QVector3D());
    }
    const ImportedScene scene = sceneOf("<Shape>" + coloured + "</Shape>");
    EXPECT_EQ(scene.meshes.value(0).colours.value(0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(materialOf(scene, 0).kd, QVector3D(1, 1, 1));
    EXPECT_TRUE(materialOf(scene, 0).isUnlit);
}

TEST(X3dImportTest, coloursOfVerticesTakeThePlaceOfTheDiffuseColour)
{
    const QByteArray green = "<Material DEF='M' diffuseColor='0 1 0' transparency='0.25'/>";
    const ImportedScene scene = sceneOf(
        shape(coloured, green) + shape(triangle, "<Material USE='M'/>") + shape(coloured, "<Material USE='M'/>"));
    ASSERT_EQ(scene.items.size(), 3);
    for (const int item : {0, 2}) {
        EXPECT_EQ(materialOf(scene, item).kd, QVector3D(1, 1, 1)) << item;
        EXPECT_EQ(materialOf(scene, item).d, 0.75f) << item;
        EXPECT_FALSE(materialOf(scene, item).isUnlit) << item;
    }
    EXPECT_EQ(materialOf(scene, 1).kd, QVector3D(0, 1, 0)) << "the same material, where there are none";
}

TEST(X3dImportTest, newerMaterialsAreReadByTheirColours)
{
    EXPECT_EQ(materialOf(sceneOf(shape(triangle, "<PhysicalMaterial baseColor='0 0 1'/>")), 0).kd, QVector3D(0, 0, 1));
    const ImportedMaterial unlit = materialOf(sceneOf(shape(triangle, "<UnlitMaterial emissiveColor='0 1 0'/>")), 0);
    EXPECT_EQ(unlit.kd, QVector3D(0, 1, 0));
    EXPECT_TRUE(unlit.isUnlit);
}

TEST(X3dImportTest, geometryThatIsNotDrawnIsNamed)
{
    const QByteArray text = shape("<Text string='Hello'/>", red);
    TemporaryFolder folder;
    const QString file = folder.write("a.x3d", x3d(shape(triangle, red) + text + text + shape("<QuadSet/>", red)));
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.warnings,
        (QStringList{file + ": shapes of the kind QuadSet are not drawn (1)",
            file + ": shapes of the kind Text are not drawn (2)"}));
    EXPECT_EQ(refusal(folder.write("b.x3d", x3d(text))), "no triangles; shapes of the kind Text are not drawn (1)");
}

} // namespace Velmora::Kvz
