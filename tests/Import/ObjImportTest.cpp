// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QHash>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QByteArray square = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvn 0 0 1\n";
const QByteArray face = "f 1/1/1 2/2/1 3/3/1 4/4/1\n";

/// The scene of a square whose material has these lines.
ImportedScene sceneOf(const QByteArray &material, QStringList *lines = nullptr)
{
    TemporaryFolder folder;
    folder.write("t.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("my t.png", pngBytes(plainImage(2, 2, Qt::green)));
    folder.write("a.mtl", "newmtl other\nKd 0 0 0\nnewmtl m\n" + material + "newmtl last\nKd 1 0 0\n");
    const QString file = folder.write("a.obj", "mtllib a.mtl\n" + square + "usemtl m\n" + face);
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.materials.size(), 1);
    if (lines) {
        for (const QString &line : scene.warnings)
            lines->append(line.mid(file.size() + 2));
    } else {
        EXPECT_EQ(scene.warnings, QStringList()) << material.constData();
    }
    return scene;
}

QPair<QVector2D, QVector2D> texCoordBounds(const ImportedMesh &mesh)
{
    QVector2D low = mesh.texCoords.value(0);
    QVector2D high = low;
    for (const QVector2D &at : mesh.texCoords) {
        low = {std::min(low.x(), at.x()), std::min(low.y(), at.y())};
        high = {std::max(high.x(), at.x()), std::max(high.y(), at.y())};
    }
    return {low, high};
}

} // namespace

TEST(MtlTest, illuminationOfColourAloneIsUnlit)
{
    const ImportedMaterial unlit = sceneOf("Kd 0.2 0.4 0.6\nKs 1 1 1\nNs 20\nillum 0\n").materials.value(0);
    EXPECT_TRUE(unlit.isUnlit);
    EXPECT_EQ(unlit.kd, QVector3D(0.2f, 0.4f, 0.6f)) << "as it is";
    EXPECT_EQ(unlit.ks, QVector3D());
    for (const char *lines : {"Kd 1 0 0\n", "Kd 1 0 0\nillum 1\n", "Kd 1 0 0\nillum 2\n", "illum 4\nKd 1 0 0\n"})
        EXPECT_FALSE(sceneOf(lines).materials.value(0).isUnlit) << lines;
}

TEST(MtlTest, aLineWithoutItsNumbersIsLeftOutAndNamed)
{
    QStringList lines;
    const ImportedMaterial material =
        sceneOf("Kd xyz\nKs 0 0\tnan\nNs\nd 0.5z\nKe .25 # the rest\n", &lines).materials.value(0);
    const QString line =
        "material library \"a.mtl\", line %1: \"%2\" has no number where one is needed and is left out";
    EXPECT_EQ(lines,
        (QStringList{line.arg(4).arg("Kd xyz"), line.arg(5).arg("Ks 0 0 nan"), line.arg(6).arg("Ns"),
            line.arg(7).arg("d 0.5z")}));
    EXPECT_EQ(material.emission, QVector3D(0.25f, 0.25f, 0.25f))
        << "the first number stands for those that are not there";
    EXPECT_EQ(material.d, 1);
    EXPECT_EQ(sceneOf("Kd 0.2\nNs 10.5 #\nillum 2\nd -halo 0.5\n").materials.value(0).kd, QVector3D(0.2f, 0.2f, 0.2f));
}

/// What makes the holes of a mask: alpha that is the same everywhere says nothing, as in what usual programs write.
TEST(MtlTest, masksAreReadByGreyUnlessTheirAlphaSaysMore)
{
    const auto alphaOf = [](const QImage &mask) {
        TemporaryFolder folder;
        folder.write("m.png", pngBytes(mask));
        folder.write("a.mtl", "newmtl m\nmap_d m.png\n");
        const ImportedScene scene = importScene(folder.write("a.obj", "mtllib a.mtl\n" + square + "usemtl m\n" + face));
        const QImage image = scene.materials.value(0).mapKd;
        return qMakePair(qAlpha(image.pixel(0, 0)), qAlpha(image.pixel(1, 0)));
    };
    QImage mask(2, 1, QImage::Format_ARGB32);
    mask.setPixel(0, 0, qRgba(255, 255, 255, 255));
    mask.setPixel(1, 0, qRgba(0, 0, 0, 255));
    EXPECT_EQ(alphaOf(mask), qMakePair(255, 0)) << "grey with an alpha that says nothing";
    EXPECT_EQ(alphaOf(mask.convertToFormat(QImage::Format_RGB32)), qMakePair(255, 0));
    mask.setPixel(0, 0, qRgba(0, 0, 0, 255));
    mask.setPixel(1, 0, qRgba(255, 255, 255, 51));
    EXPECT_EQ(alphaOf(mask), qMakePair(255, 51)) << "alpha";
    mask.setPixel(0, 0, qRgba(255, 255, 255, 128));
    mask.setPixel(1, 0, qRgba(0, 0, 0, 128));
    EXPECT_EQ(alphaOf(mask), qMakePair(255, 0)) << "grey, whatever the same alpha is";
}

TEST(ObjLibrariesTest, oneLineMayNameSeveral)
{
    TemporaryFolder folder;
    folder.write("a.mtl", "newmtl aa\nKd 1 0 0\n");
    folder.write("my b.MTL", "newmtl bb\nKd 0 0 1\n");
    ImportedScene scene = importScene(
        folder.write("a.obj", "mtllib a.mtl my b.MTL\n" + square + "usemtl aa\n" + face + "usemtl bb\n" + face));
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.materials.size(), 2);
    EXPECT_EQ(scene.materials[0].kd, QVector3D(1, 0, 0));
    EXPECT_EQ(scene.materials[1].kd, QVector3D(0, 0, 1));
    const QString file = folder.write("b.obj", "mtllib a.mtl gone.mtl\n" + square + "usemtl aa\n" + face);
    scene = importScene(file);
    EXPECT_EQ(scene.materials.value(0).kd, QVector3D(1, 0, 0));
    EXPECT_EQ(scene.warnings, QStringList(file + ": material library \"gone.mtl\" cannot be opened; grey is used"));
}

TEST(ObjLibrariesTest, materialsThatNoLibraryHasAreNamed)
{
    TemporaryFolder folder;
    folder.write("a.mtl", "newmtl m\nKd 1 0 0\nnewmtl d\xe4k\nKd 1 1 1\nnewmtl two  words\nKd 0 1 0\n");
    const QString file = folder.write("a.obj",
        "mtllib a.mtl\n" + square + "usemtl d\xe4k\n" + face + "usemtl zz\n" + face + "usemtl m\n" + face
            + "usemtl two  words\n" + face + "usemtl zz\n" + face);
    EXPECT_EQ(
        importScene(file).warnings, QStringList(file + ": material \"zz\" is in no material library; grey is used"));
}

TEST(MtlTest, opacityIsReadInAllItsForms)
{
    for (const char *lines : {"Kd 1 0 0\nd 0.5\n", "Kd 1 0 0\nd -halo 0.5\n", "Kd 1 0 0\nTr 0.5\n",
             "Kd 1 0 0\nd 0.5\nTr 1\n", "Kd 1 0 0\nTr 1\nd 0.5\n"}) {
        EXPECT_EQ(sceneOf(lines).materials.value(0).d, 0.5f) << lines;
    }
}

TEST(MtlTest, namesOfImagesAreReadInAllTheirForms)
{
    for (const char *name :
        {"t.png", "t.png  \t", "\"t.png\"", "-blendu on -bm 1 t.png", "-mm 0 1 t.png", "-o 0 t.png"})
        EXPECT_EQ(sceneOf(QByteArray("Kd 1 1 1\nmap_Kd ") + name + "\n").materials.value(0).mapKd.pixelColor(0, 0),
            QColor(Qt::red))
            << name;
    EXPECT_EQ(sceneOf("Kd 1 1 1\r\nmap_Kd -s 2 2 my t.png \r\n").materials.value(0).mapKd.pixelColor(0, 0),
        QColor(Qt::green));
}

TEST(MtlTest, anImageWithoutAColourShowsInFull)
{
    EXPECT_EQ(sceneOf("map_Kd t.png\n").materials.value(0).kd, QVector3D(1, 1, 1));
    EXPECT_EQ(sceneOf("map_Kd t.png\nKd 0.5 1 0\n").materials.value(0).kd, QVector3D(0.5f, 1, 0));
}

TEST(MtlTest, modelsWithoutHighlightHaveNone)
{
    const QByteArray shiny = "Kd 1 0.5 0\nKs 1 1 1\nNs 10\n";
    EXPECT_EQ(sceneOf(shiny + "illum 2\n").materials.value(0).ks, QVector3D(1, 1, 1));
    EXPECT_EQ(sceneOf(shiny + "illum 1\n").materials.value(0).ks, QVector3D());
    EXPECT_EQ(sceneOf("illum 1\n" + shiny + "map_Ks t.png\n").materials.value(0).ks, QVector3D());
}

TEST(MtlTest, scaleAndOffsetMoveTheTextureCoordinates)
{
    const ImportedScene scene = sceneOf("Kd 1 1 1\nmap_Kd -s 2 4 1 -o .25 -0.5 0 -clamp on t.png\n");
    ASSERT_EQ(scene.meshes.size(), 1);
    const auto [low, high] = texCoordBounds(scene.meshes[0]);
    EXPECT_EQ(high - low, QVector2D(2, 4));
    EXPECT_EQ(scene.materials[0].baseColourTexture.wrapU, ImportedTexture::ClampToEdge);
    EXPECT_EQ(scene.materials[0].baseColourTexture.wrapV, ImportedTexture::ClampToEdge);
    EXPECT_EQ(low, QVector2D(0.25f, -0.5f));
    const ImportedScene repeated = sceneOf("Kd 1 1 1\nmap_Kd -s 2 t.png\nmap_Ke t.png\n");
    EXPECT_EQ(texCoordBounds(repeated.meshes[0]).second, QVector2D(2, 1));
    EXPECT_EQ(repeated.materials[0].baseColourTexture.wrapU, ImportedTexture::Repeat);
    EXPECT_EQ(repeated.materials[0].baseColourTexture.uvSet, 0);
    EXPECT_EQ(repeated.materials[0].emissionTexture.uvSet, 1) << "it is not scaled";
    EXPECT_EQ(repeated.meshes[0].texCoords1.value(2), QVector2D(1, 1));
    EXPECT_EQ(repeated.meshes[0].texCoords.value(2), QVector2D(2, 1));
}

TEST(MtlTest, optionsThatAreNotHonouredAreNamedWhereTheyShow)
{
    QStringList lines;
    sceneOf("Kd 1 1 1\nmap_Kd -mm 0.1 2 -cc on -t 0 0 0 -boost 3 t.png\n", &lines);
    EXPECT_EQ(lines, QStringList("material \"m\": texture \"t.png\": -mm, -cc is not honoured"));
}

TEST(ObjVerticesTest, coloursMayHaveAnAlpha)
{
    TemporaryFolder folder;
    const ImportedScene scene =
        importScene(folder.write("a.obj", "v 0 0 0 1 0 0 1\nv 1 0 0 1 0 0 1\nv 0 1 0 1 0 0 1\nf 1 2 3\n"));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.meshes.value(0).colours, QVector<QVector4D>(3, {1, 0, 0, 1}));
}

TEST(ObjVerticesTest, alphaOfColoursIsRead)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.obj",
        "v 0 0 0 .2 .4 .6 .5\nv 1 0 0 0 0.5 1 0.0 # clear\nv 0 1 0 1 0 .25 1\nv 1 1 0 0.3333 0 1\nv 2 2 0\n"
        "f 1 2 3\nf 2 4 3\nf 4 2 5\n");
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings, QStringList(file + ": some of its vertices have a colour; the others are white (1)"));
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.positions.size(), 5);
    ASSERT_EQ(mesh.colours.size(), 5);
    const QHash<float, QVector4D> expected{{0.0f, {0.2f, 0.4f, 0.6f, 0.5f}}, {1.0f, {0, 0.5f, 1, 0}},
        {10.0f, {1, 0, 0.25f, 1}}, {11.0f, {0.3333f, 0, 1, 1}}, {22.0f, {1, 1, 1, 1}}};
    for (int v = 0; v < 5; ++v) {
        const float name = mesh.positions[v].x() + 10 * mesh.positions[v].y();
        ASSERT_TRUE(expected.contains(name)) << name;
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(mesh.colours[v][i], expected[name][i], i == 3 ? 0.501f / 255 : 1e-4f) << name << ' ' << i;
    }
    EXPECT_EQ(scene.materials.value(0).alphaMode, ImportedMaterial::Blend);
    EXPECT_TRUE(scene.items.value(0).featureFlags & ImportedScene::Transparent);
}

TEST(ObjVerticesTest, thoseWithoutAColourAmongOthersAreWhite)
{
    TemporaryFolder folder;
    const QString file =
        folder.write("a.obj", "v 0 0 0 1 0 0\nv 1 0 0\nv 0 1 0 1.0\nv 1 1 0 .5 0 0\nf 1 2 3\nf 2 4 3\n");
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings, QStringList(file + ": some of its vertices have a colour; the others are white (2)"));
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.colours.size(), mesh.positions.size());
    for (int v = 0; v < mesh.positions.size(); ++v) {
        const QVector3D at = mesh.positions[v];
        const QVector4D expected = at == QVector3D(0, 0, 0) ? QVector4D(1, 0, 0, 1)
            : at == QVector3D(1, 1, 0)                      ? QVector4D(0.5f, 0, 0, 1)
                                                            : QVector4D(1, 1, 1, 1);
        EXPECT_EQ(mesh.colours[v], expected) << v;
    }
}

TEST(ObjVerticesTest, verticesAloneArePoints)
{
    TemporaryFolder folder;
    EXPECT_EQ(refusal(folder.write("a.obj", square)), "no triangles; 4 points are not drawn: triangles alone are");
}

TEST(ObjCurvesTest, areCounted)
{
    TemporaryFolder folder;
    const QByteArray curve = "cstype bspline\ndeg 3\ncurv 0 1 1 2 3 4\nparm u 0 0 0 0 1 1 1 1\nend\n";
    const QString file = folder.write("a.obj", square + face + curve + curve);
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.warnings, QStringList(file + ": 2 curves are not drawn: triangles alone are"));
    EXPECT_EQ(
        refusal(folder.write("b.obj", square + curve)), "no triangles; 1 curve is not drawn: triangles alone are");
}

TEST(ObjImportTest, concavePolygonsKeepTheirNotches)
{
    // Each as rings of corners; the L's inner corner lies on a diagonal, whichever corner comes first.
    const QVector<QVector<QVector2D>> shapes = {
        {{0, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}},
        {{0, 0}, {4, 0}, {4, 3}, {3, 3}, {3, 1}, {1, 1}, {1, 3}, {0, 3}},
        {{0, 0}, {2, 1}, {4, 0}, {3, 2}, {4, 4}, {2, 3}, {0, 4}, {1, 2}},
        {{0, 0}, {1, 0}, {2, 0}, {2, 2}, {1, 1}, {0, 2}, {0, 1}},
    };
    const auto turn = [](const QVector2D &a, const QVector2D &b) { return a.x() * b.y() - a.y() * b.x(); };
    TemporaryFolder folder;
    for (const QVector<QVector2D> &shape : shapes) {
        const int count = shape.size();
        float area = 0;
        for (int i = 0; i < count; ++i)
            area += turn(shape[i], shape[(i + 1) % count]) / 2;
        for (int start = 0; start < count; ++start) {
            for (const bool isReversed : {false, true}) {
                QByteArray text;
                QByteArray face = "f";
                for (int i = 0; i < count; ++i) {
                    const QVector2D &corner = shape[(start + (isReversed ? count - i : i)) % count];
                    // In a slanted plane.
                    text += QStringLiteral("v %1 %2 %3\n").arg(corner.x()).arg(corner.y()).arg(corner.x() / 2).toUtf8();
                    face += ' ' + QByteArray::number(i + 1);
                }
                const ImportedScene scene = importScene(folder.write("a.obj", text + face + '\n'));
                ASSERT_EQ(scene.meshes.size(), 1);
                const ImportedMesh &mesh = scene.meshes[0];
                float covered = 0;
                for (int t = 0; t + 2 < mesh.indices.size(); t += 3) {
                    const auto corner = [&](int k) { return mesh.positions[int(mesh.indices[t + k])].toVector2D(); };
                    const float triangle = turn(corner(1) - corner(0), corner(2) - corner(0)) / 2;
                    EXPECT_GT(isReversed ? -triangle : triangle, 0) << "the winding stays";
                    covered += std::abs(triangle);
                }
                EXPECT_NEAR(covered, area, 1e-5) << count << " corners from " << start;
            }
        }
    }
}

namespace {

/// A roof of two slopes at an angle of 53 degrees, which are smooth by themselves, with these lines before each.
QByteArray roof(const QByteArray &first, const QByteArray &second)
{
    return "v 0 0 0\nv 1 0.5 0\nv 2 0 0\nv 0 0 1\nv 1 0.5 1\nv 2 0 1\n" + first + "f 1 4 5 2\n" + second
        + "f 2 5 6 3\n";
}

/// Whether all normals are those of their triangles.
bool isFlat(const ImportedScene &scene)
{
    for (const ImportedMesh &mesh : scene.meshes) {
        for (int i = 0; i < mesh.indices.size(); ++i) {
            const auto at = [&](int corner) { return mesh.positions[int(mesh.indices[i / 3 * 3 + corner])]; };
            const QVector3D own = QVector3D::normal(at(0), at(1), at(2));
            if ((mesh.normals[int(mesh.indices[i])] - own).length() > 1e-4f)
                return false;
        }
    }
    return !scene.meshes.isEmpty();
}

} // namespace

TEST(ObjSmoothingTest, facesAreFlatWhereTheFileTurnsItOff)
{
    const TemporaryFolder folder;
    for (const char *smooth : {"", "s 1\n", "s on\n"})
        EXPECT_FALSE(isFlat(importScene(folder.write("a.obj", roof(smooth, ""))))) << smooth;
    for (const char *flat : {"s off\n", "s 0\n", " s off # flat\n"}) {
        const ImportedScene scene = importScene(folder.write("a.obj", roof(flat, "")));
        EXPECT_TRUE(isFlat(scene)) << flat;
        EXPECT_EQ(scene.items.size(), 1);
        EXPECT_EQ(scene.warnings, QStringList());
    }
    // Behind points, lines and other objects faces are the same.
    EXPECT_TRUE(isFlat(importScene(folder.write("a.obj", roof("s off\np 1\nl 1 2 3\n", "o b\nusemtl c\n")))));
    // Normals of the file come first.
    const QByteArray normals = "vn 0 1 0\ns off\nf 1//1 4//1 5//1\n";
    EXPECT_FALSE(
        isFlat(importScene(folder.write("a.obj", "v 0 0 0\nv 1 0.5 0\nv 2 0 0\nv 0 0 1\nv 1 0.5 1\n" + normals))));
}

TEST(ObjSmoothingTest, flatAndSmoothFacesStandBesideEachOther)
{
    const TemporaryFolder folder;
    // A second roof behind the first one, with colours and texture coordinates.
    QByteArray text = "v 0 0 0 1 0 0\nv 1 0.5 0 1 0 0\nv 2 0 0 1 0 0\nv 0 0 1 1 0 0\nv 1 0.5 1 1 0 0\nv 2 0 1 1 0 0\n"
                      "v 0 0 5 0 1 0\nv 1 0.5 5 0 1 0\nv 2 0 5 0 1 0\nv 0 0 6 0 1 0\nv 1 0.5 6 0 1 0\nv 2 0 6 0 1 0\n"
                      "vt 0 0\nvt 1 0.25\n";
    text += "s 1\nf 1/1 4/1 5/1 2/1\ns off\nf 7/2 10/2 11/2 8/2\ns 1\nf 2/1 5/1 6/1 3/1\ns off\nf 8/2 11/2 12/2 9/2\n";
    const QString file = folder.write("a.obj", text);
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.meshes.size(), 2);
    ASSERT_EQ(scene.items.size(), 2);
    EXPECT_EQ(scene.items[0].material, scene.items[1].material);
    int flatCorners = 0;
    for (const ImportedMesh &mesh : scene.meshes) {
        EXPECT_EQ(mesh.indices.size(), 12);
        for (int v = 0; v < mesh.positions.size(); ++v) {
            const bool isFlatRoof = mesh.positions[v].z() > 3;
            flatCorners += isFlatRoof;
            EXPECT_EQ(mesh.colours.value(v), isFlatRoof ? QVector4D(0, 1, 0, 1) : QVector4D(1, 0, 0, 1));
            EXPECT_EQ(mesh.texCoords.value(v), isFlatRoof ? QVector2D(1, 0.25f) : QVector2D());
            const float x = mesh.positions[v].x();
            const float slope = isFlatRoof ? 0.447214f : x == 1 ? 0 : 0.447214f;
            EXPECT_NEAR(std::abs(mesh.normals[v].x()), slope, 1e-4) << v;
        }
    }
    EXPECT_EQ(flatCorners, 8);
    // Some are triangles, the others are not.
    for (const QByteArray &faces :
        {QByteArray("s 1\nf 1 4 5 2\ns off\nf 2 5 6\n"), QByteArray("s off\nf 1 4 5 2\ns 1\nf 2 5 6\n")}) {
        const QByteArray corners = "v 0 0 0\nv 1 0.5 0\nv 2 0 0\nv 0 0 1\nv 1 0.5 1\nv 2 0 1\n";
        EXPECT_TRUE(isFlat(importScene(folder.write("c.obj", corners + faces)))) << "each stands alone";
    }
    // Assimp goes on with an object that it knows by name, behind others.
    const QString mixed =
        folder.write("b.obj", roof("o a\nusemtl x\n", "o b\nusemtl y\nf 1 2 4\no a\nusemtl z\ns off\n"));
    EXPECT_EQ(importScene(mixed).warnings,
        QStringList(mixed + ": faces with smoothing off are smooth: parts of an object stand apart"));
}

} // namespace Velmora::Kvz
