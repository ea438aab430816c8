// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cmath>

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

namespace {

/// Two squares that meet at an angle of 53 degrees, like a roof along z, with these attributes and further parts.
QByteArray roof(const QByteArray &attributes, const QByteArray &parts = QByteArray())
{
    return shape("<IndexedFaceSet solid='false' coordIndex='0 3 4 1 -1 1 4 5 2 -1' " + attributes
            + "><Coordinate DEF='C' point='0 0 0, 1 0.5 0, 2 0 0, 0 0 1, 1 0.5 1, 2 0 1'/>" + parts
            + "</IndexedFaceSet>",
        red);
}

/// The x of the normals at the ridge.
QVector<float> ridgeNormals(const ImportedScene &scene)
{
    QVector<float> found;
    for (const ImportedMesh &mesh : scene.meshes) {
        for (int v = 0; v < mesh.positions.size(); ++v) {
            if (mesh.positions[v].x() == 1)
                found.append(std::round(mesh.normals[v].x() * 1000) / 1000);
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

} // namespace

TEST(X3dImportTest, facesAreFlatUnlessTheCreaseAngleSaysElse)
{
    const QVector<float> flat{-0.447f, 0.447f}, smooth{0};
    EXPECT_EQ(ridgeNormals(sceneOf(roof(""))), flat);
    EXPECT_EQ(ridgeNormals(sceneOf(roof("creaseAngle='0.9'"))), flat) << "52 degrees";
    EXPECT_EQ(ridgeNormals(sceneOf(roof("creaseAngle='0.95'"))), smooth);
    EXPECT_EQ(ridgeNormals(sceneOf(roof("creaseAngle='3.2'"))), smooth);
    const QByteArray vertical = "<Normal vector='0 1 0 0 1 0 0 1 0 0 1 0 0 1 0 0 1 0'/>";
    EXPECT_EQ(ridgeNormals(sceneOf(roof("", vertical))), smooth) << "normals of the file come first";
    // What another set uses by its name has to stay.
    const ImportedScene scene = sceneOf(roof("") + "<Transform translation='5 0 0'>"
        + shape("<IndexedFaceSet coordIndex='0 3 4 1 -1'><Coordinate USE='C'/></IndexedFaceSet>", red)
        + "</Transform>");
    EXPECT_EQ(scene.items.size(), 2);
}

TEST(X3dImportTest, facesHaveColoursAndNormalsOfTheirOwn)
{
    const QByteArray colours = "<Color color='0 1 0 0 0 1'/>";
    for (const QByteArray &attributes :
        {QByteArray("colorPerVertex='false'"), QByteArray("colorPerVertex='false' colorIndex='1 0' creaseAngle='2'")}) {
        const bool isTurned = attributes.contains("colorIndex");
        const ImportedMesh mesh = sceneOf(roof(attributes, colours)).meshes.value(0);
        ASSERT_EQ(mesh.indices.size(), 12);
        for (int i = 0; i < mesh.indices.size(); i += 3) {
            float x = 0;
            for (int corner = 0; corner < 3; ++corner)
                x += mesh.positions[int(mesh.indices[i + corner])].x() / 3;
            const QVector4D expected = (x < 1) != isTurned ? QVector4D(0, 1, 0, 1) : QVector4D(0, 0, 1, 1);
            for (int corner = 0; corner < 3; ++corner)
                EXPECT_EQ(mesh.colours.value(int(mesh.indices[i + corner])), expected) << attributes.constData();
        }
    }
    const QByteArray normals = "<Normal vector='-0.6 0.8 0 0.6 0.8 0'/>";
    EXPECT_EQ(ridgeNormals(sceneOf(roof("normalPerVertex='false'", normals))), (QVector<float>{-0.6f, 0.6f}));
    // Lists of their own for colours and texture coordinates of vertices go along.
    const QByteArray lists = "colorIndex='0 0 0 0 -1 1 1 1 1 -1' texCoordIndex='0 1 1 0 -1 1 0 0 1 -1'";
    const ImportedMesh mesh =
        sceneOf(roof(lists, colours + "<TextureCoordinate point='0.25 0.5 0.75 1'/>")).meshes.value(0);
    ASSERT_EQ(mesh.positions.size(), 8);
    for (int v = 0; v < 8; ++v) {
        const bool isLeft = mesh.normals[v].x() < 0;
        EXPECT_EQ(mesh.colours.value(v), isLeft ? QVector4D(0, 1, 0, 1) : QVector4D(0, 0, 1, 1));
        const bool isFirst = isLeft ? mesh.positions[v].z() == 0 : mesh.positions[v].z() == 1;
        EXPECT_EQ(mesh.texCoords.value(v), isFirst ? QVector2D(0.25f, 0.5f) : QVector2D(0.75f, 1)) << v;
    }
}

TEST(X3dImportTest, conesStandOnTheirBase)
{
    const auto cornersAt = [](const ImportedScene &scene, float y) {
        int count = 0;
        for (const ImportedMesh &mesh : scene.meshes) {
            for (const quint32 index : mesh.indices) {
                const QVector3D at = mesh.positions[int(index)];
                count += at.y() == y && at.x() * at.x() + at.z() * at.z() > 1e-6f;
            }
        }
        return count;
    };
    const ImportedScene cone = sceneOf(shape("<Cone bottomRadius='3' height='4'/>", red));
    EXPECT_GT(cornersAt(cone, -2), 90) << "the rim, of sides and base";
    EXPECT_EQ(cornersAt(cone, 2), 0) << "the tip";
    EXPECT_LT(cornersAt(sceneOf(shape("<Cone bottomRadius='3' height='4' bottom='false'/>", red)), -2), 70);
    const ImportedScene tube =
        sceneOf(shape("<Cylinder DEF='T' radius='3' height='4' top='false' bottom='false'/>", red)
            + "<Transform translation='9 0 0'>" + shape("<Cylinder USE='T'/>", red) + "</Transform>");
    EXPECT_EQ(tube.items.size(), 2);
    for (const ImportedMesh &mesh : tube.meshes) {
        for (int v = 0; v < mesh.positions.size(); ++v) {
            const QVector3D at = mesh.positions[v];
            const QVector3D outwards = QVector3D(at.x(), 0, at.z()) / 3;
            EXPECT_NEAR(outwards.length(), 1, 1e-5);
            EXPECT_EQ(std::abs(at.y()), 2);
            EXPECT_LT((mesh.normals[v] - outwards).length(), 1e-4f) << "smooth, and closed";
        }
    }
    EXPECT_EQ(cornersAt(sceneOf(shape("<Cylinder side='false'/>", red)), 1), 90) << "a lid of 32 corners";
}

} // namespace Velmora::Kvz
