// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QByteArray plyHeader = "ply\nformat ascii 1.0\n";
const QByteArray plyPosition = "property float x\nproperty float y\nproperty float z\n";

/// A cube as STL, each facet with corners of its own.
QByteArray cubeStl()
{
    const QVector3D axes[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    QByteArray stl = "solid cube\n";
    for (int axis = 0; axis < 3; ++axis) {
        for (const int sign : {-1, 1}) {
            const QVector3D n = axes[axis] * sign;
            const QVector3D u = axes[(axis + 1) % 3];
            const QVector3D v = QVector3D::crossProduct(n, u);
            const QVector3D corners[] = {n - u - v, n + u - v, n + u + v, n - u + v};
            for (const int first : {1, 2}) {
                stl += "facet normal 0 0 0\nouter loop\n";
                for (const QVector3D &corner : {corners[0], corners[first], corners[first + 1]})
                    stl +=
                        QStringLiteral("vertex %1 %2 %3\n").arg(corner.x()).arg(corner.y()).arg(corner.z()).toLatin1();
                stl += "endloop\nendfacet\n";
            }
        }
    }
    return stl + "endsolid cube\n";
}

} // namespace

/// A triangle of joints that stand at (0, 5, 0), where the skin has it, and at (0, `other`, 0), in a frame at (10, 0, 0).
static QByteArray skinnedX(float other)
{
    const auto place = [](float x, float y) {
        return "1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, " + QByteArray::number(double(x)) + ", "
            + QByteArray::number(double(y)) + ", 0, 1;;";
    };
    const auto frame = [&](const char *name, float x, float y, const QByteArray &content) {
        return "Frame " + QByteArray(name) + " { FrameTransformMatrix { " + place(x, y) + " } " + content + "}\n";
    };
    const auto weights = [&](const char *joint) {
        return "SkinWeights { \"" + QByteArray(joint) + "\"; 3; 0, 1, 2; 0.5, 0.5, 0.5; " + place(0, 0) + " }\n";
    };
    return "xof 0303txt 0032\n"
        + frame("Root", 0, 0,
            frame("Body", 10, 0,
                "Mesh { 3; 0;0;0;, 1;0;0;, 0;1;0;; 1; 3;0,1,2;;\nXSkinMeshHeader { 2; 2; 2; }\n" + weights("Arm")
                    + weights("Hand") + "}\n")
                + frame("Arm", 0, 5, "") + frame("Hand", 0, other, ""));
}

TEST(SceneDataTest, skinnedMeshesStandInBindPose)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.x", skinnedX(5));
    const ImportedScene scene = importScene(file);
    ASSERT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.items[0].modelMatrix.map(QVector3D()), QVector3D(0, 5, 0));
    EXPECT_EQ(scene.warnings, QStringList(file + ": skins are not animated: their meshes stay in bind pose"));

    // Joints in another pose than that in which they were bound say nothing of the mesh.
    const ImportedScene posed = importScene(folder.write("b.x", skinnedX(6)));
    ASSERT_EQ(posed.items.size(), 1);
    EXPECT_EQ(posed.items[0].modelMatrix.map(QVector3D()), QVector3D(10, 0, 0));
}

TEST(SceneDataTest, vertexColoursOfPlyAndObjAreKept)
{
    TemporaryFolder folder;
    const ImportedScene ply = importScene(folder.write("a.ply",
        plyHeader + "element vertex 3\n" + plyPosition
            + "property uchar red\nproperty uchar green\nproperty uchar blue\n"
            + "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
              "0 0 0 255 0 0\n1 0 0 0 255 0\n0 1 0 0 0 51\n3 0 1 2\n"));
    const ImportedScene obj =
        importScene(folder.write("a.obj", "v 0 0 0 1 0 0\nv 1 0 0 0 1 0\nv 0 1 0 0 0 0.2\nf 1 2 3\n"));
    for (const ImportedScene &scene : {ply, obj}) {
        ASSERT_EQ(scene.meshes.size(), 1);
        const ImportedMesh &mesh = scene.meshes[0];
        ASSERT_EQ(mesh.colours.size(), 3);
        for (int v = 0; v < 3; ++v) {
            const QVector4D expected = mesh.positions[v].x() > 0 ? QVector4D(0, 1, 0, 1)
                : mesh.positions[v].y() > 0                      ? QVector4D(0, 0, 0.2f, 1)
                                                                 : QVector4D(1, 0, 0, 1);
            EXPECT_NEAR((mesh.colours[v] - expected).length(), 0, 1e-5) << v;
        }
    }
    EXPECT_EQ(ply.materials.value(0).kd, QVector3D(1, 1, 1)) << "no material dims the colours";
}

TEST(SceneDataTest, pointsAndLinesOfAnyFormatAreSetsOfTheirOwn)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 5 5 5\nf 1 2 3\nl 1 2 4\np 3 4\n");
    const ImportedScene scene = importScene(file);
    int lineEnds = 0;
    for (const ImportedPrimitives &set : scene.lineSets)
        lineEnds += set.indices.size();
    EXPECT_EQ(lineEnds, 4) << "two lines";
    int points = 0;
    bool hasFar = false;
    for (const ImportedPrimitives &set : scene.pointSets) {
        points += set.indices.size();
        hasFar |= set.positions.contains(QVector3D(5, 5, 5));
    }
    EXPECT_EQ(points, 2);
    EXPECT_TRUE(hasFar);
    EXPECT_EQ(scene.warnings, QStringList(file + ": 2 points and 2 lines are not drawn: triangles alone are"));

    QByteArray cloud = plyHeader + "element vertex 12000\n" + plyPosition + "end_header\n";
    for (int i = 0; i < 12000; ++i)
        cloud += "1 2 3\n";
    EXPECT_EQ(refusal(folder.write("b.ply", cloud)), "no triangles; 12,000 points are not drawn: triangles alone are");
}

TEST(SceneDataTest, facetsWeldToSmoothSurfacesWithHardEdges)
{
    TemporaryFolder folder;
    const ImportedMesh mesh = importScene(folder.write("a.stl", cubeStl())).meshes.value(0);
    EXPECT_EQ(mesh.indices.size(), 36);
    EXPECT_EQ(mesh.positions.size(), 24) << "of 36 corners: four for each side";
    for (int i = 0; i < mesh.indices.size(); i += 3) {
        const QVector3D a = mesh.positions[int(mesh.indices[i])];
        const QVector3D b = mesh.positions[int(mesh.indices[i + 1])];
        const QVector3D c = mesh.positions[int(mesh.indices[i + 2])];
        for (int corner = 0; corner < 3; ++corner)
            EXPECT_NEAR((mesh.normals[int(mesh.indices[i + corner])] - QVector3D::normal(a, b, c)).length(), 0, 1e-5);
    }
}

TEST(SceneDataTest, indexedVerticesKeepTheirOrder)
{
    // A grid of 4 by 4 vertices with normals and texture coordinates, from the last to the first, and one that nothing uses.
    QByteArray vertices;
    QVector<QVector3D> expected;
    for (int v = 15; v >= 0; --v) {
        vertices += QStringLiteral("%1 %2 0 0 0 1 0 0\n").arg(v % 4).arg(v / 4).toLatin1();
        expected.append(QVector3D(v % 4, v / 4, 0));
        if (v == 8)
            vertices += "9 9 9 0 0 1 0 0\n";
    }
    const auto number = [](int x, int y) { return 15 - (4 * y + x) + (4 * y + x < 8 ? 1 : 0); };
    QByteArray faces;
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x)
            faces += QStringLiteral("4 %1 %2 %3 %4\n")
                         .arg(number(x, y))
                         .arg(number(x + 1, y))
                         .arg(number(x + 1, y + 1))
                         .arg(number(x, y + 1))
                         .toLatin1();
    }
    TemporaryFolder folder;
    const ImportedMesh mesh = importScene(
        folder.write("a.ply",
            plyHeader + "element vertex 17\n" + plyPosition
                + "property float nx\nproperty float ny\nproperty float nz\nproperty float s\nproperty float t\n"
                  "element face 9\nproperty list uchar int vertex_indices\nend_header\n"
                + vertices + faces))
                                  .meshes.value(0);
    EXPECT_EQ(mesh.positions, expected) << "but the one that no triangle uses";
    EXPECT_EQ(mesh.indices.size(), 54);
}

TEST(SceneDataTest, normalsAgainstTheWindingAreTurned)
{
    TemporaryFolder folder;
    const QString file =
        folder.write("a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nvn 0 0 -1\nf 1//1 2//1 3//1\nf 2//1 4//1 3//1\n");
    const ImportedScene scene = importScene(file);
    ASSERT_EQ(scene.meshes.size(), 1);
    for (const QVector3D &normal : scene.meshes[0].normals)
        EXPECT_EQ(normal, QVector3D(0, 0, 1));
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith("its normals point against its faces and are turned"))
        << qPrintable(scene.warnings[0]);
}

TEST(SceneDataTest, facesThatWindInwardsAgainstTheirNormalsAreTurned)
{
    TemporaryFolder folder;
    QByteArray obj = "v 1 0 0\nv -1 0 0\nv 0 1 0\nv 0 -1 0\nv 0 0 1\nv 0 0 -1\nvn 1 0 0\nvn -1 0 0\nvn 0 1 0\nvn 0 -1 "
                     "0\nvn 0 0 1\nvn 0 0 -1\n";
    for (const int x : {1, 2}) {
        for (const int y : {3, 4}) {
            for (const int z : {5, 6}) {
                const bool isEven = (x + y + z) % 2 != 0; // x, y, z are counter-clockwise from outside
                obj += QStringLiteral("f %1//%1 %2//%2 %3//%3\n")
                           .arg(x)
                           .arg(isEven ? z : y)
                           .arg(isEven ? y : z)
                           .toLatin1();
            }
        }
    }
    const ImportedScene scene = importScene(folder.write("a.obj", obj));
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.indices.size(), 24);
    for (int i = 0; i < mesh.indices.size(); i += 3) {
        const QVector3D a = mesh.positions[int(mesh.indices[i])];
        const QVector3D b = mesh.positions[int(mesh.indices[i + 1])];
        const QVector3D c = mesh.positions[int(mesh.indices[i + 2])];
        EXPECT_GT(QVector3D::dotProduct(QVector3D::crossProduct(b - a, c - a), a + b + c), 0) << "outwards";
    }
    for (int v = 0; v < mesh.positions.size(); ++v)
        EXPECT_EQ(mesh.normals[v], mesh.positions[v]);
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith("its faces wind against its normals and are turned"))
        << qPrintable(scene.warnings[0]);
}

TEST(SceneDataTest, singleFacesThatWindAgainstTheirNormalsAreTurned)
{
    TemporaryFolder folder;
    // A strip of five squares; the normal at the end of the last leans away, which is no reason.
    QByteArray obj = "vn 0 0 1\nvn 0.9 0 -0.1\n";
    for (int x = 0; x < 6; ++x)
        obj += "v " + QByteArray::number(x) + " 0 0\nv " + QByteArray::number(x) + " 1 0\n";
    for (int x = 0; x < 5; ++x) {
        const QByteArray a = QByteArray::number(2 * x + 1) + "//1 ", b = QByteArray::number(2 * x + 2) + "//1 ";
        const QByteArray normal = x == 4 ? "//2 " : "//1 ";
        const QByteArray c = QByteArray::number(2 * x + 3) + normal, d = QByteArray::number(2 * x + 4) + normal;
        obj += x == 1 || x == 2 ? "f " + a + b + c + "\nf " + c + b + d + "\n"
                                : "f " + a + c + b + "\nf " + c + d + b + "\n";
    }
    const QString file = folder.write("a.obj", obj);
    const ImportedScene scene = importScene(file);
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.indices.size(), 30);
    for (int i = 0; i < mesh.indices.size(); i += 3) {
        const QVector3D a = mesh.positions[int(mesh.indices[i])];
        const QVector3D b = mesh.positions[int(mesh.indices[i + 1])];
        const QVector3D c = mesh.positions[int(mesh.indices[i + 2])];
        EXPECT_EQ(QVector3D::crossProduct(b - a, c - a), QVector3D(0, 0, 1)) << i / 3;
    }
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith("4 of its 10 triangles wind against their normals and are turned"))
        << qPrintable(scene.warnings[0]);
}

TEST(SceneDataTest, colladaKeepsItsAxisUnlessToldOtherwise)
{
    const QByteArray dae =
        "<?xml version=\"1.0\"?><COLLADA xmlns=\"http://www.collada.org/2005/11/COLLADASchema\" version=\"1.4.1\">"
        "<asset><unit meter=\"0.5\"/><up_axis>Z_UP</up_axis></asset>"
        "<library_geometries><geometry id=\"g\"><mesh><source id=\"p\"><float_array id=\"pa\" count=\"9\">"
        "0 0 0 2 0 0 0 0 2</float_array><technique_common><accessor source=\"#pa\" count=\"3\" stride=\"3\">"
        "<param name=\"X\" type=\"float\"/><param name=\"Y\" type=\"float\"/><param name=\"Z\" "
        "type=\"float\"/></accessor>"
        "</technique_common></source><vertices id=\"v\"><input semantic=\"POSITION\" source=\"#p\"/></vertices>"
        "<triangles count=\"1\"><input semantic=\"VERTEX\" source=\"#v\" offset=\"0\"/><p>0 1 2</p></triangles></mesh>"
        "</geometry></library_geometries><library_visual_scenes><visual_scene id=\"s\"><node id=\"n\">"
        "<instance_geometry url=\"#g\"/></node></visual_scene></library_visual_scenes>"
        "<scene><instance_visual_scene url=\"#s\"/></scene></COLLADA>";
    TemporaryFolder folder;
    const QString file = folder.write("a.dae", dae);
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.upAxis, "z");
    EXPECT_NEAR((scene.items.value(0).modelMatrix.map(QVector3D(0, 0, 2)) - QVector3D(0, 1, 0)).length(), 0, 1e-5)
        << "two units of half a metre";
    ImportOptions options;
    options.up = "y";
    const ImportedScene kept = importScene(file, options);
    EXPECT_NEAR((kept.items.value(0).modelMatrix.map(QVector3D(0, 0, 2)) - QVector3D(0, 0, 1)).length(), 0, 1e-5);
}

TEST(SceneDataTest, materialsOfMtlKeepMoreThanThePassesShade)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("a.mtl", "newmtl m\nKd 0.5 0.25 1\nKe 1 0.5 0.25\nNi 1.25\nd 0.5\nmap_Kd map.png\nnorm map.png\n");
    const ImportedScene scene =
        importScene(folder.write("a.obj", "mtllib a.mtl\nusemtl m\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"));
    ASSERT_EQ(scene.materials.size(), 1);
    const ImportedMaterial &material = scene.materials[0];
    EXPECT_EQ(material.name, "m");
    EXPECT_EQ(material.baseColour, QVector4D(0.5f, 0.25f, 1, 0.5f));
    EXPECT_EQ(material.emission, QVector3D(1, 0.5f, 0.25f));
    EXPECT_FLOAT_EQ(material.refractiveIndex, 1.25f);
    EXPECT_EQ(material.alphaMode, ImportedMaterial::Blend);
    EXPECT_FALSE(material.isMetallicRoughness);
    EXPECT_FALSE(material.saysSides) << "MTL knows no sides";
    ASSERT_EQ(scene.images.size(), 1);
    EXPECT_EQ(material.baseColourTexture.image, 0);
    EXPECT_EQ(material.normalTexture.image, 0);
    EXPECT_EQ(scene.images[0].uses, ImportedImage::Colour | ImportedImage::Data);
}

TEST(SceneDataTest, coloursOfOffFilesAreKept)
{
    TemporaryFolder folder;
    for (const char *const rows : {"0 0 0 255 0 0 255\n1 0 0 0 255 0 255\n0 1 0 0 0 51 255\n",
             "0 0 0 1.0 0.0 0.0 1.0\n1 0 0 0.0 1.0 0.0 1.0\n0 1 0 0.0 0.0 0.2 1.0\n"}) {
        const ImportedScene scene =
            importScene(folder.write("a.off", QByteArray("COFF\n3 1 0\n") + rows + "3 0 1 2\n"));
        ASSERT_EQ(scene.meshes.size(), 1);
        const ImportedMesh &mesh = scene.meshes[0];
        ASSERT_EQ(mesh.colours.size(), 3) << rows;
        for (int v = 0; v < 3; ++v) {
            const QVector4D expected = mesh.positions[v].x() > 0 ? QVector4D(0, 1, 0, 1)
                : mesh.positions[v].y() > 0                      ? QVector4D(0, 0, 0.2f, 1)
                                                                 : QVector4D(1, 0, 0, 1);
            EXPECT_LT((mesh.colours[v] - expected).length(), 1e-5f) << v;
        }
    }
}

TEST(SceneDataTest, emissiveImagesShineWhereTheFileGivesNoColour)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("a.mtl", "newmtl a\nmap_Ke map.png\nnewmtl b\nKe 0.5 0.25 0\nmap_Ke map.png\nnewmtl c\nKd 1 1 1\n");
    const ImportedScene scene = importScene(folder.write(
        "a.obj", "mtllib a.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl a\nf 1 2 3\nusemtl b\nf 1 2 3\nusemtl c\nf 1 2 3\n"));
    ASSERT_EQ(scene.items.size(), 3);
    EXPECT_EQ(scene.materials[scene.items[0].material].emission, QVector3D(1, 1, 1));
    EXPECT_EQ(scene.materials[scene.items[1].material].emission, QVector3D(0.5f, 0.25f, 0));
    EXPECT_EQ(scene.materials[scene.items[2].material].emission, QVector3D());
}

TEST(SceneDataTest, masksAreToldOf)
{
    ImportedScene scene;
    scene.materials.resize(2);
    scene.materials[1].alphaMode = MaterialData::Mask;
    EXPECT_FALSE(scene.hasMasks());
    scene.items.resize(1);
    EXPECT_FALSE(scene.hasMasks()) << "no item has it";
    scene.items[0].material = 1;
    EXPECT_TRUE(scene.hasMasks());
}

TEST(SceneDataTest, scenesAreScaledIntoALengthWithAllThatTheyHold)
{
    ImportedScene scene;
    ImportedMesh mesh;
    mesh.positions = {{0, 0, 0}, {4, 0, 0}, {0, 1, 0}};
    mesh.indices = {0, 1, 2};
    scene.meshes = {mesh};
    scene.materials = {ImportedMaterial()};
    scene.unit = 0.5f;
    ImportedNode root;
    root.matrix.translate(1, 2, 3);
    ImportedNode child;
    child.parent = 0;
    child.matrix.scale(2);
    scene.nodes = {root, child};
    ImportedItem item;
    item.node = 1;
    item.modelMatrix = root.matrix * child.matrix;
    scene.items = {item};
    ImportedPrimitives set;
    set.modelMatrix = root.matrix;
    scene.pointSets = {set};
    scene.lineSets = {set};
    ImportedCamera camera;
    camera.worldMatrix.translate(0, 0, 10);
    camera.worldMatrix.rotate(90, 0, 1, 0);
    camera.nearPlane = 1;
    camera.farPlane = 100;
    camera.halfExtent = {2, 3};
    scene.cameras = {camera};
    ImportedLight lamp;
    lamp.worldMatrix.translate(0, 8, 0);
    lamp.range = 20;
    lamp.intensity = 16;
    ImportedLight sun = lamp;
    sun.type = ImportedLight::Directional;
    scene.lights = {lamp, sun};
    ImportedAnimation animation;
    animation.channels.resize(4);
    const int nodes[] = {0, 1, 0, 0};
    const ImportedAnimation::Path paths[] = {ImportedAnimation::Translation, ImportedAnimation::Translation,
        ImportedAnimation::Rotation, ImportedAnimation::Scale};
    for (int c = 0; c < 4; ++c) {
        animation.channels[c].node = nodes[c];
        animation.channels[c].path = paths[c];
        animation.channels[c].values = {QVector4D(4, 8, 12, 1)};
    }
    scene.animations = {animation};

    ImportedScene scaled = scene;
    ASSERT_TRUE(scaleInto(&scaled, 2)); // from 8
    const float f = 0.25f;
    EXPECT_EQ(scaled.items[0].modelMatrix.map(QVector3D(4, 0, 0)), QVector3D(9, 2, 3) * f);
    EXPECT_EQ(scaled.nodes[0].matrix * scaled.nodes[1].matrix, scaled.items[0].modelMatrix);
    EXPECT_EQ(scaled.pointSets[0].modelMatrix.map(QVector3D(1, 1, 1)), QVector3D(2, 3, 4) * f);
    EXPECT_EQ(scaled.lineSets[0].modelMatrix, scaled.pointSets[0].modelMatrix);
    EXPECT_EQ(scaled.unit, 2.0f);
    EXPECT_EQ(scaled.cameras[0].worldMatrix.map(QVector3D()), QVector3D(0, 0, 2.5f));
    EXPECT_NEAR(scaled.cameras[0].worldMatrix.column(0).toVector3D().length(), 1, 1e-6f) << "a view does not stretch";
    EXPECT_EQ(scaled.cameras[0].nearPlane, 0.25f);
    EXPECT_EQ(scaled.cameras[0].farPlane, 25.0f);
    EXPECT_EQ(scaled.cameras[0].halfExtent, QVector2D(0.5f, 0.75f));
    EXPECT_EQ(scaled.lights[0].worldMatrix.map(QVector3D()), QVector3D(0, 2, 0));
    EXPECT_EQ(scaled.lights[0].range, 5.0f);
    EXPECT_EQ(scaled.lights[0].intensity, 1.0f) << "a quarter as far away it would be sixteen times as bright";
    EXPECT_EQ(scaled.lights[1].intensity, 16.0f);
    EXPECT_EQ(scaled.animations[0].channels[0].values[0].toVector3D(), QVector3D(1, 2, 3));
    EXPECT_EQ(scaled.animations[0].channels[1].values[0].toVector3D(), QVector3D(4, 8, 12));
    EXPECT_EQ(scaled.animations[0].channels[2].values[0], QVector4D(4, 8, 12, 1));
    EXPECT_EQ(scaled.animations[0].channels[3].values[0].toVector3D(), QVector3D(1, 2, 3));

    for (const float length : {0.0f, -1.0f, std::nanf(""), INFINITY}) {
        ImportedScene same = scene;
        EXPECT_FALSE(scaleInto(&same, length)) << length;
        EXPECT_EQ(same.items[0].modelMatrix, scene.items[0].modelMatrix);
    }
    ImportedScene empty;
    EXPECT_FALSE(scaleInto(&empty, 1));
}

TEST(SceneDataTest, importScalesAsItsOptionsSay)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.obj", "v 0 0 0\nv 4000 0 0\nv 0 1000 0\nf 1 2 3\n");
    ImportOptions options;
    options.scaleInto = 10;
    const QVector<QVector3D> points = importScene(file, options).points();
    QVector3D high;
    for (const QVector3D &point : points)
        high = {std::max(high.x(), point.x()), std::max(high.y(), point.y()), 0};
    EXPECT_LT((high - QVector3D(10, 2.5f, 0)).length(), 1e-5f);
    options.scaleInto = -3;
    EXPECT_EQ(refusal(file, options), "cannot be scaled to a length of -3");
}

} // namespace Velmora::Kvz
