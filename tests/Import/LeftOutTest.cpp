// SPDX-License-Identifier: MIT
// What changes the look of a file is either taken or said to be left out.
#include "GltfDocument.h"
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QMap>
#include <QtCore/QtMath>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QByteArray offSquare = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n";

/// The one colour of all corners of each triangle, by the place of its first corner that no other has.
QMap<float, QVector4D> coloursByHeight(const ImportedMesh &mesh)
{
    QMap<float, QVector4D> colours;
    for (int i = 0; i + 2 < mesh.indices.size(); i += 3) {
        QVector3D middle;
        for (int corner = 0; corner < 3; ++corner) {
            const int v = int(mesh.indices[i + corner]);
            middle += mesh.positions[v] / 3;
            EXPECT_EQ(mesh.colours.value(v), mesh.colours.value(int(mesh.indices[i])))
                << "a corner of triangle " << i / 3;
        }
        colours.insert(std::round(middle.y() * 3), mesh.colours.value(int(mesh.indices[i])));
    }
    return colours;
}

/// A COLLADA file of a triangle with these inputs of its corners beside their positions, all of three or four numbers, and with
/// a material whose effect has these parts.
QByteArray dae(
    const QByteArray &inputs, const QByteArray &effect = QByteArray(), const QByteArray &bindings = QByteArray())
{
    return R"(<?xml version="1.0"?><COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1">
<asset><up_axis>Y_UP</up_axis></asset><library_images><image id="i"><init_from>map.png</init_from></image></library_images>
<library_effects><effect id="e"><profile_COMMON>
<newparam sid="s"><surface type="2D"><init_from>i</init_from></surface></newparam>
<newparam sid="t"><sampler2D><source>s</source></sampler2D></newparam>
<technique sid="common"><phong>)"
        + effect + R"(</phong></technique></profile_COMMON></effect></library_effects>
<library_materials><material id="m" name="paint"><instance_effect url="#e"/></material></library_materials>
<library_geometries><geometry id="g"><mesh>
<source id="p"><float_array id="pa" count="9">0 0 0 1 0 0 0 1 0</float_array><technique_common><accessor source="#pa" count="3" stride="3"><param name="X" type="float"/><param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
<source id="c"><float_array id="ca" count="9">1 0 0 0 1 0 0 0 1</float_array><technique_common><accessor source="#ca" count="3" stride="3"><param name="R" type="float"/><param name="G" type="float"/><param name="B" type="float"/></accessor></technique_common></source>
<source id="u"><float_array id="ua" count="6">0 0 1 0 0 1</float_array><technique_common><accessor source="#ua" count="3" stride="2"><param name="S" type="float"/><param name="T" type="float"/></accessor></technique_common></source>
<vertices id="v"><input semantic="POSITION" source="#p"/></vertices>
<triangles count="1" material="paint"><input semantic="VERTEX" source="#v" offset="0"/>)"
        + inputs + R"(<p>0 1 2</p></triangles></mesh></geometry></library_geometries>
<library_visual_scenes><visual_scene id="w"><node id="n"><instance_geometry url="#g"><bind_material><technique_common>
<instance_material symbol="paint" target="#m">)"
        + bindings
        + R"(</instance_material></technique_common></bind_material></instance_geometry></node></visual_scene>
</library_visual_scenes><scene><instance_visual_scene url="#w"/></scene></COLLADA>)";
}

} // namespace

TEST(LeftOutTest, coloursOfOffFacesAreThoseOfTheirCorners)
{
    TemporaryFolder folder;
    const QVector4D red(1, 0, 0, 1), blue(0, 0, 0.2f, 1), grey(0.8f, 0.8f, 0.8f, 1);
    const QPair<QByteArray, QVector4D> cases[] = {{"3 0 1 2 255 0 0\n3 1 3 2 0 0 51\n", blue},
        {"3 0 1 2  1.0 0 0\n3 1 3 2 0 0 0.2 # a comment\n", blue},
        {"3 0 1 2 255 0 0 255\n\n3 1 3 2 0 0 51 255\n", blue}, {"3 0 1 2 255 0 0\n3 1 3 2\n", grey},
        {"3 0 1 2 1 0 0\n3 1 3 2\n", grey}};
    for (const auto &[faces, second] : cases) {
        const ImportedScene scene = importScene(folder.write("a.off", "OFF\n# made\n4 2 0\n" + offSquare + faces));
        EXPECT_EQ(scene.warnings, QStringList()) << faces.toStdString();
        ASSERT_EQ(scene.meshes.size(), 1);
        const QMap<float, QVector4D> colours = coloursByHeight(scene.meshes[0]);
        ASSERT_EQ(colours.size(), 2);
        EXPECT_LT((colours[1] - red).length(), 1e-5f) << faces.toStdString();
        EXPECT_LT((colours[2] - second).length(), 1e-5f) << faces.toStdString();
        EXPECT_EQ(scene.materials.value(0).kd, QVector3D(1, 1, 1)) << "no material dims the colours";
        for (const QVector3D &normal : scene.meshes[0].normals)
            EXPECT_EQ(normal, QVector3D(0, 0, 1));
    }
}

TEST(LeftOutTest, polygonsOfOffKeepTheColoursOfTheirFaces)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write(
        "a.off", "OFF 6 2 0\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n1 2 0\n0 2 0\n4 0 1 2 3 0 255 0\n4 3 2 4 5 0 0 255 0\n"));
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    EXPECT_EQ(mesh.indices.size(), 12);
    EXPECT_EQ(mesh.positions.size(), 8) << "two squares that share no vertex";
    for (int v = 0; v < mesh.positions.size(); ++v) {
        if (mesh.positions[v].y() == 0) {
            EXPECT_EQ(mesh.colours[v], QVector4D(0, 1, 0, 1));
        } else if (mesh.positions[v].y() == 2) {
            EXPECT_EQ(mesh.colours[v], QVector4D(0, 0, 1, 0));
        }
    }
    EXPECT_EQ(scene.items.value(0).featureFlags & ImportedScene::Transparent, quint64(ImportedScene::Transparent));
}

TEST(LeftOutTest, opacityOfVerticesLetsLightThroughUnlessItIsNothingEverywhere)
{
    TemporaryFolder folder;
    const QPair<QByteArray, bool> cases[] = {{"255", false}, {"128", true}, {"0", false}};
    for (const auto &[alpha, isTranslucent] : cases) {
        const QByteArray rows = "0 0 0 9 9 9 " + alpha + "\n1 0 0 9 9 9 " + alpha + "\n0 1 0 9 9 9 " + alpha + "\n";
        const ImportedScene ply = importScene(folder.write("a.ply",
            "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
            "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\n"
            "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
                + rows + "3 0 1 2\n"));
        const ImportedScene off = importScene(folder.write("a.off", "COFF\n3 1 0\n" + rows + "3 0 1 2\n"));
        for (const ImportedScene &scene : {ply, off}) {
            EXPECT_EQ((scene.items.value(0).featureFlags & ImportedScene::Transparent) != 0, isTranslucent)
                << alpha.toStdString();
        }
    }
}

TEST(LeftOutTest, whatOffLosesIsSaid)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.off", "OFF\n4 2 0\n" + offSquare + "3 0 1 2 7\n3 1 3 2 7\n");
    EXPECT_EQ(importScene(file).warnings,
        QStringList(file + ": colours of faces that are numbers of a colour map are not read (2)"));
    const QString both = folder.write(
        "b.off", "COFF\n3 1 0\n0 0 0 255 0 0 255\n1 0 0 255 0 0 255\n0 1 0 255 0 0 255\n3 0 1 2 0 0 255\n");
    const ImportedScene scene = importScene(both);
    EXPECT_EQ(scene.warnings, QStringList(both + ": the colours of its faces are left out: its vertices have colours"));
    EXPECT_EQ(scene.meshes.value(0).colours.value(0), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(refusal(folder.write("c.off", "OFF\n4 2 0\n" + offSquare + "3 0 1 2\n3 1 3 4\n")),
        "line 8: a face has index 4, past the end of 4 vertices");
    EXPECT_TRUE(refusal(folder.write("d.off", "OFF\n4 3 0\n" + offSquare + "3 0 1 2 255 0 0\n3 1 3 2 0 0 255\n"))
                    .endsWith("face 2 has no corners; is the file truncated?"));
}

/// Assimp drops faces of more than nine corners.
TEST(LeftOutTest, facesOfOffMayHaveManyCorners)
{
    const TemporaryFolder folder;
    constexpr int corners = 24;
    // A star with its notches between two triangles of other colours. Its area is that of the fan around its middle.
    QByteArray positions;
    QByteArray star = QByteArray::number(corners);
    double area = 0;
    for (int i = 0; i < corners; ++i) {
        const double radius = i % 2 == 0 ? 1 : 0.4;
        const double angle = 2 * M_PI * i / corners;
        positions +=
            QByteArray::number(radius * std::cos(angle)) + ' ' + QByteArray::number(radius * std::sin(angle)) + " 0\n";
        star += ' ' + QByteArray::number(i);
        area += 0.4 * std::sin(2 * M_PI / corners) / 2;
    }
    const QByteArray counts = QByteArray::number(corners + 3) + " 3 0\n";
    positions += "0 0 5\n1 0 5\n0 1 5\n";
    const QByteArray faces = "3 24 25 26 1 0 0\n" + star + " 0 1 0\n3 24 26 25 0 0 1\n";
    QByteArray coloured = "COFF\n" + counts;
    for (const QByteArray &line : positions.trimmed().split('\n'))
        coloured += line + " 0 1 0 1\n";
    for (const QByteArray &text : {"OFF\n" + counts + positions + faces,
             "OFF # a comment\n" + counts + "\n" + positions + faces, coloured + faces}) {
        const QString file = folder.write("a.off", text);
        const ImportedScene scene = importScene(file);
        ASSERT_EQ(scene.meshes.size(), 1);
        const ImportedMesh &mesh = scene.meshes[0];
        double covered = 0;
        for (int i = 0; i + 2 < mesh.indices.size(); i += 3) {
            const auto at = [&](int corner) { return mesh.positions[int(mesh.indices[i + corner])]; };
            if (at(0).z() > 0)
                continue;
            covered += double(QVector3D::crossProduct(at(1) - at(0), at(2) - at(0)).z()) / 2;
            for (int corner = 0; corner < 3; ++corner)
                EXPECT_EQ(mesh.colours.value(int(mesh.indices[i + corner])), QVector4D(0, 1, 0, 1));
        }
        EXPECT_NEAR(covered, area, 1e-5) << text.constData();
        EXPECT_EQ(mesh.indices.size(), 3 * (corners - 2 + 2));
    }
    // Lines that are no faces, more of them than there are faces, crashed assimp.
    EXPECT_EQ(importScene(folder.write("c.off", "OFF\n4 3 0\n" + offSquare + "0\n3 0 1 2\nx 1 2\n0\n0\n0\n0\n"))
                  .meshes.value(0)
                  .indices.size(),
        3);
    EXPECT_EQ(
        refusal(folder.write("d.off", "OFF\n4 1 0\n" + offSquare + "-1 0\n" + star + "\n0\n0\n")), "no triangles");
    EXPECT_EQ(refusal(folder.write("b.off", "OFF\n4 1 0\n" + offSquare + "12 0 1 2 3\n")),
        "line 7: a face has 4 of its 12 corners; is the file truncated?");
}

TEST(LeftOutTest, coloursOfPlyFacesAreSaidToBeLeftOut)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.ply",
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
        "element face 1\nproperty list uchar int vertex_indices\nproperty uchar red\nproperty uchar green\n"
        "property uchar blue\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2 255 0 0\n");
    EXPECT_EQ(importScene(file).warnings, QStringList(file + ": the colours of its faces are not read"));
}

/// Faces may have one more word, and lines may be longer than what counts.
TEST(LeftOutTest, offFilesThatAreOddAreReadAsBefore)
{
    TemporaryFolder folder;
    for (const QByteArray &content :
        {"OFF\r\n4 2 0\r\n0 0 0\r\n1 0 0\r\n0 1 0\r\n1 1 0\r\n3 0 1 2\r\n3 1 3 2\r\n" + QByteArray(),
            "# head\nOFF 4 2 0 # counts\n\n" + offSquare + "\n3 0 1 2\n# between\n3 1 3 2",
            "4 2 0\n" + offSquare + "3 0 1 2 1 2\n3 1 3 2 1 2 3 4 5\n"}) {
        const ImportedScene scene = importScene(folder.write("a.off", content));
        EXPECT_EQ(scene.warnings, QStringList());
        EXPECT_EQ(scene.meshes.value(0).indices.size(), 6) << content.toStdString();
        EXPECT_TRUE(scene.meshes.value(0).colours.isEmpty());
    }
}

TEST(LeftOutTest, texturesThatNothingDrawsAreNamed)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("a.mtl", "newmtl m\nmap_Kd map.png\ndisp bumps.png\nnewmtl unused\ndisp other.png\n");
    const QString file = folder.write("a.obj", "mtllib a.mtl\nusemtl m\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_EQ(importScene(file).warnings,
        QStringList(file + ": material \"m\": texture \"bumps.png\" displaces the surface and is left out"));

    const QString mirror = folder.write("a.dae",
        dae(R"(<input semantic="TEXCOORD" source="#u" offset="0" set="0"/>)",
            R"(<reflective><texture texture="t" texcoord="set0"/></reflective>)"));
    EXPECT_EQ(importScene(mirror).warnings,
        QStringList(mirror + ": material \"paint\": texture \"map.png\" is reflected by the surface and is left out"));
}

TEST(LeftOutTest, nodesOfAFileWithoutMeshesAreNotDrawnAsBones)
{
    TemporaryFolder folder;
    EXPECT_EQ(
        refusal(folder.write("a.dae",
            "<?xml version=\"1.0\"?><COLLADA xmlns=\"http://www.collada.org/2005/11/COLLADASchema\" "
            "version=\"1.4.1\"><asset><up_axis>Y_UP</up_axis></asset><library_visual_scenes><visual_scene id=\"s\">"
            "<node id=\"a\"><translate>1 2 3</translate><node id=\"b\"><translate>4 0 0</translate></node></node>"
            "</visual_scene></library_visual_scenes><scene><instance_visual_scene url=\"#s\"/></scene></COLLADA>")),
        "no triangles");
}

TEST(LeftOutTest, colladaWithoutAWordOnSidesShowsBoth)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write("a.dae", dae("")));
    ASSERT_EQ(scene.materials.size(), 1);
    EXPECT_FALSE(scene.materials[0].saysSides);
}

TEST(LeftOutTest, aThirdTextureCoordinateChangesNothing)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(
        folder.write("a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0 0\nvt 1 0 0.5\nvt 0 1 0\nf 1/1 2/2 3/3\n"));
    EXPECT_EQ(scene.warnings, QStringList()) << "images are flat";
    for (int v = 0; v < 3; ++v)
        EXPECT_EQ(scene.meshes.value(0).texCoords.value(v), scene.meshes.value(0).positions.value(v).toVector2D());
}

TEST(LeftOutTest, aSecondSetOfVertexColoursIsSaidToBeLeftOut)
{
    TemporaryFolder folder;
    const QByteArray first = R"(<input semantic="COLOR" source="#c" offset="0" set="0"/>)";
    const QByteArray second = R"(<input semantic="COLOR" source="#c" offset="0" set="1"/>)";
    EXPECT_EQ(importScene(folder.write("a.dae", dae(first))).warnings, QStringList());
    const ImportedScene scene = importScene(folder.write("b.dae", dae(first + second)));
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith(": of its sets of vertex colours the first alone is read"))
        << qPrintable(scene.warnings[0]);

    GltfDocument document;
    QJsonObject attributes = document.square();
    const QByteArray colours = GltfDocument::bytesOf<float>({1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1});
    attributes["COLOR_0"] = document.addAccessor(colours, GltfDocument::Float, 4, "VEC3");
    attributes["COLOR_1"] = document.addAccessor(colours, GltfDocument::Float, 4, "VEC3");
    document.setPrimitive({{"attributes", attributes}, {"indices", document.squareIndices()}});
    const QString file = folder.write("a.gltf", document.bytes());
    EXPECT_EQ(importScene(file).warnings,
        QStringList(file + ": mesh 0: of its sets of vertex colours the first alone is read"));
}

TEST(LeftOutTest, ofThreeSetsOfTextureCoordinatesTheThirdIsSaidToBeLeftOut)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    QByteArray inputs, bindings;
    for (const char set : {'0', '1', '2'}) {
        inputs += QByteArray(R"(<input semantic="TEXCOORD" source="#u" offset="0" set=")") + set + "\"/>";
        bindings += QByteArray(R"(<bind_vertex_input semantic="set)") + set
            + R"(" input_semantic="TEXCOORD" input_set=")" + set + "\"/>";
    }
    const auto effect = [](char emission, char diffuse, char specular) {
        const auto texture = [](const QByteArray &name, char set) {
            return "<" + name + "><texture texture=\"t\" texcoord=\"set" + QByteArray(1, set) + "\"/></" + name + ">";
        };
        return texture("emission", emission) + texture("diffuse", diffuse) + texture("specular", specular)
            + "<shininess><float>20</float></shininess>";
    };
    const ImportedScene two = importScene(folder.write("a.dae", dae(inputs, effect('2', '0', '2'), bindings)));
    EXPECT_EQ(two.warnings, QStringList());
    EXPECT_EQ(two.materials.value(0).emissionTexture.uvSet, 1);
    EXPECT_EQ(two.materials.value(0).specularTexture.uvSet, 1);
    const QString file = folder.write("b.dae", dae(inputs, effect('2', '0', '1'), bindings));
    const ImportedScene three = importScene(file);
    EXPECT_EQ(three.warnings,
        QStringList(file
            + ": material \"paint\": texture \"map.png\" is laid out by set 1 of the texture coordinates, and of this "
              "material sets 0 and 2 are read; white is used"));
    EXPECT_EQ(three.materials.value(0).emissionTexture.uvSet, 1);
    EXPECT_EQ(three.materials.value(0).specularTexture.image, -1);
}

} // namespace Velmora::Kvz
