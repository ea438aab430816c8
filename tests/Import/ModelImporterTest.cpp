// SPDX-License-Identifier: MIT
#include "support/GLTest.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Import/ModelImporter.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QtEndian>
#include <QtCore/QtMath>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QByteArray triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";

ImportedScene import(const QString &file)
{
    ImportedScene scene;
    QString error;
    EXPECT_TRUE(importModel(file, &scene, &error)) << qPrintable(error);
    return scene;
}

/// A file with one item, without its warnings.
MaterialData importMaterial(const QString &file)
{
    const ImportedScene scene = import(file);
    return scene.items.size() == 1 ? scene.materials.value(scene.items[0].material) : MaterialData();
}

QVector3D faceNormal(const MeshData &mesh, int firstIndex)
{
    const QVector3D a = mesh.positions[int(mesh.indices[firstIndex])];
    const QVector3D b = mesh.positions[int(mesh.indices[firstIndex + 1])];
    const QVector3D c = mesh.positions[int(mesh.indices[firstIndex + 2])];
    return QVector3D::normal(a, b, c);
}

/// A ball of unit radius as OBJ with positions alone.
QByteArray ballObj(int columns, int rows)
{
    QByteArray obj;
    for (int row = 0; row <= rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const double latitude = M_PI * (double(row) / rows - 0.5);
            const double longitude = 2 * M_PI * column / columns;
            obj += QStringLiteral("v %1 %2 %3\n")
                       .arg(std::cos(latitude) * std::sin(longitude), 0, 'f', 6)
                       .arg(std::sin(latitude), 0, 'f', 6)
                       .arg(std::cos(latitude) * std::cos(longitude), 0, 'f', 6)
                       .toLatin1();
        }
    }
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const int a = row * columns + column + 1;
            const int b = row * columns + (column + 1) % columns + 1;
            obj += QStringLiteral("f %1 %2 %3 %4\n").arg(a).arg(b).arg(b + columns).arg(a + columns).toLatin1();
        }
    }
    return obj;
}

QByteArray metallicGltf(double metallic, double roughness)
{
    const QJsonObject values{
        {"baseColorFactor", QJsonArray{1, 0.5, 0.25, 1}}, {"metallicFactor", metallic}, {"roughnessFactor", roughness}};
    return gltfBytes(squareGltf({QJsonObject{{"mesh", 0}}}, {{"name", "metal"}, {"pbrMetallicRoughness", values}}));
}

void expectNear(const QVector3D &actual, const QVector3D &expected, float tolerance = 1e-5f)
{
    EXPECT_LE((actual - expected).length(), tolerance)
        << actual.x() << " " << actual.y() << " " << actual.z() << " in the place of " << expected.x() << " "
        << expected.y() << " " << expected.z();
}

} // namespace

TEST(ModelImporterTest, materialLibraryGivesMaterialsAndTextures)
{
    TemporaryFolder folder;
    QDir(folder.path(".")).mkdir("maps");
    folder.write("maps/kd.png", pngBytes(plainImage(4, 2, Qt::red)));
    folder.write("ks.png", pngBytes(plainImage(3, 3, Qt::blue)));
    folder.write("a.mtl",
        "newmtl shiny\nKd 0.1 0.2 0.3\nKs 0.4 0.5 0.6\nNs 77\nd 0.25\nmap_Kd maps\\kd.png\nmap_Ks ks.png\n"
        "newmtl veil\nKd 1 0 0\nKs 1 1 1\nTr 0.25\n"
        "newmtl unused\nmap_Kd nowhere.png\n");
    const ImportedScene scene = import(folder.write("a.obj",
        "mtllib a.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0.25 0.75\nvn 0 0.6 0.8\n"
        "o first\nusemtl shiny\nf 1/1/1 2/1/1 3/1/1\no second\nusemtl veil\nf 1 2 3\n"));

    EXPECT_EQ(scene.warnings, QStringList()) << "nothing is said of materials that nothing uses";
    ASSERT_EQ(scene.items.size(), 2);
    EXPECT_EQ(scene.items[0].name, "first");
    EXPECT_EQ(scene.items[1].name, "second");
    ASSERT_EQ(scene.materials.size(), 2);

    const MaterialData &shiny = scene.materials[scene.items[0].material];
    expectNear(shiny.kd, {0.1f, 0.2f, 0.3f});
    expectNear(shiny.ks, {0.4f, 0.5f, 0.6f});
    EXPECT_FLOAT_EQ(shiny.ns, 77);
    EXPECT_FLOAT_EQ(shiny.d, 0.25f);
    EXPECT_EQ(shiny.mapKd.size(), QSize(4, 2));
    EXPECT_EQ(shiny.mapKd.pixelColor(0, 0), QColor(Qt::red));
    EXPECT_EQ(shiny.mapKs.size(), QSize(3, 3));
    EXPECT_EQ(scene.items[0].featureFlags, quint64(ImportedScene::Transparent));
    const MeshData &mesh = scene.meshes[scene.items[0].mesh];
    EXPECT_EQ(mesh.texCoords, QVector<QVector2D>(3, QVector2D(0.25f, 0.75f)));
    EXPECT_EQ(mesh.normals, QVector<QVector3D>(3, QVector3D(0, 0.6f, 0.8f))) << "normals of the file stay";

    const MaterialData &veil = scene.materials[scene.items[1].material];
    EXPECT_FLOAT_EQ(veil.d, 0.75f);
    EXPECT_EQ(veil.ks, QVector3D()) << "no exponent, no highlight";
    EXPECT_TRUE(veil.mapKd.isNull());
}

TEST(ModelImporterTest, opacityImagesMakeItemsTransparentAndBecomeTheAlphaOfTheDiffuseImage)
{
    TemporaryFolder folder;
    QImage leaf = plainImage(2, 1, Qt::green).convertToFormat(QImage::Format_ARGB32);
    QImage full = leaf;
    leaf.setPixelColor(1, 0, QColor(0, 255, 0, 51));
    QImage mask = plainImage(2, 1, Qt::white);
    mask.setPixelColor(0, 0, QColor(102, 102, 102));
    folder.write("leaf.png", pngBytes(leaf));
    folder.write("full.png", pngBytes(full));
    folder.write("mask.png", pngBytes(mask));
    folder.write("white.png", pngBytes(plainImage(2, 1, Qt::white)));
    folder.write("a.mtl",
        "newmtl alpha\nmap_Kd leaf.png\n"
        "newmtl unused-alpha\nmap_Kd full.png\n"
        "newmtl mask\nmap_d mask.png\n"
        "newmtl both\nmap_Kd full.png\nmap_d mask.png\n"
        "newmtl same\nmap_Kd leaf.png\nmap_d leaf.png\n"
        "newmtl white\nmap_Kd full.png\nmap_d white.png\n"
        "newmtl absent\nmap_d nowhere.png\n");
    QByteArray obj = "mtllib a.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\n";
    const QStringList names{"alpha", "unused-alpha", "mask", "both", "same", "white", "absent"};
    for (const QString &name : names)
        obj += QStringLiteral("o %1\nusemtl %1\nf 1 2 3\n").arg(name).toLatin1();
    const ImportedScene scene = import(folder.write("a.obj", obj));
    ASSERT_EQ(scene.items.size(), names.size());

    const bool transparent[] = {true, false, true, true, true, false, false};
    const int alphas[][2] = {{255, 51}, {255, 255}, {102, 255}, {102, 255}, {255, 51}, {255, 255}, {255, 255}};
    for (int i = 0; i < names.size(); ++i) {
        EXPECT_EQ(scene.items[i].featureFlags, transparent[i] ? quint64(ImportedScene::Transparent) : 0)
            << names[i].toStdString();
        const MaterialData &material = scene.materials[scene.items[i].material];
        EXPECT_FLOAT_EQ(material.d, 1) << names[i].toStdString();
        for (int x = 0; x < 2 && !material.mapKd.isNull(); ++x) {
            const QColor expected = names[i] == "mask" ? Qt::white : Qt::green;
            const QColor pixel = material.mapKd.pixelColor(x, 0);
            EXPECT_EQ(pixel.alpha(), alphas[i][x]) << names[i].toStdString() << " at " << x;
            EXPECT_EQ(pixel.rgb(), expected.rgb()) << names[i].toStdString() << " at " << x;
        }
    }
    EXPECT_TRUE(scene.materials[scene.items[6].material].mapKd.isNull());
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].contains("nowhere.png"));
}

TEST(ModelImporterTest, theTransparentBitMeetsNoneOfTheModelsOwn)
{
    const quint64 own = GPUModel::DoubleSided | GPUModel::NoShadowA | GPUModel::NoShadowB | GPUModel::HasSceneBounds;
    EXPECT_EQ(ImportedScene::Transparent & own, 0u);
}

TEST(ModelImporterTest, meshesWithoutMaterialAreLightGrey)
{
    TemporaryFolder folder;
    const QStringList files{folder.write("a.obj", triangle),
        folder.write("a.stl",
            "solid x\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\n"
            "endsolid x\n"),
        folder.write("a.ply",
            "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
            "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"),
        folder.write("a.gltf", gltfBytes([] {
            QJsonObject document = squareGltf({QJsonObject{{"mesh", 0}}}, {});
            QJsonArray meshes = document["meshes"].toArray();
            QJsonObject primitive = meshes[0].toObject()["primitives"].toArray()[0].toObject();
            primitive.remove("material");
            document["meshes"] = QJsonArray{QJsonObject{{"primitives", QJsonArray{primitive}}}};
            return document;
        }()))};
    for (const QString &file : files) {
        const MaterialData material = importMaterial(file);
        EXPECT_EQ(material.kd, QVector3D(0.8f, 0.8f, 0.8f)) << qPrintable(file);
        EXPECT_EQ(material.ks, QVector3D(0.2f, 0.2f, 0.2f)) << qPrintable(file);
        EXPECT_FLOAT_EQ(material.d, 1) << qPrintable(file);
    }
}

TEST(ModelImporterTest, unnamedMaterialsOfTheFileAreKept)
{
    TemporaryFolder folder;
    const QJsonObject red{
        {"pbrMetallicRoughness", QJsonObject{{"baseColorFactor", QJsonArray{1, 0, 0, 1}}, {"metallicFactor", 0}}}};
    const MaterialData material =
        importMaterial(folder.write("a.gltf", gltfBytes(squareGltf({QJsonObject{{"mesh", 0}}}, red))));
    EXPECT_EQ(material.kd, QVector3D(1, 0, 0));
}

TEST(ModelImporterTest, madeNormalsAreHardAtTheEdgesOfACube)
{
    TemporaryFolder folder;
    const ImportedScene scene = import(folder.write("cube.obj", cubeObj()));
    ASSERT_EQ(scene.meshes.size(), 1);
    const MeshData &mesh = scene.meshes[0];
    EXPECT_EQ(mesh.indices.size(), 36);
    EXPECT_EQ(mesh.positions.size(), 24) << "four corners a side, each with the normal of its side";
    for (int i = 0; i < mesh.indices.size(); ++i)
        expectNear(mesh.normals[int(mesh.indices[i])], faceNormal(mesh, i / 3 * 3));
}

TEST(ModelImporterTest, madeNormalsAreSmoothOnABall)
{
    TemporaryFolder folder;
    const ImportedScene scene = import(folder.write("ball.obj", ballObj(48, 24)));
    const MeshData &mesh = scene.meshes[0];
    ASSERT_GT(mesh.positions.size(), 1000);
    for (int i = 0; i < mesh.positions.size(); ++i)
        expectNear(mesh.normals[i], mesh.positions[i].normalized(), 0.01f);
}

TEST(ModelImporterTest, madeNormalsOfAPointWithManyTrianglesTakeLinearTime)
{
    const int count = 50000;
    QByteArray obj = "v 0 1 0\n";
    for (int i = 0; i < count; ++i)
        obj += QStringLiteral("v %1 0 %2\n")
                   .arg(std::sin(2 * M_PI * i / count))
                   .arg(std::cos(2 * M_PI * i / count))
                   .toLatin1();
    for (int i = 0; i < count; ++i)
        obj += QStringLiteral("f 1 %1 %2\n").arg(i + 2).arg((i + 1) % count + 2).toLatin1();
    TemporaryFolder folder;
    QElapsedTimer timer;
    timer.start();
    const MeshData mesh = import(folder.write("cone.obj", obj)).meshes.value(0);
    EXPECT_LT(timer.elapsed(), 10000);
    EXPECT_GT(mesh.positions.size(), count);
    for (int i = 0; i < mesh.positions.size(); ++i) {
        if (mesh.positions[i] == QVector3D(0, 1, 0)) {
            expectNear(mesh.normals[i], {0, 1, 0}, 0.01f);
        }
    }
}

TEST(ModelImporterTest, trianglesWithoutAreaAreLeftOut)
{
    TemporaryFolder folder;
    const MeshData mesh = import(folder.write("a.obj", triangle + "f 1 2 2\nf 3 3 3\n")).meshes.value(0);
    EXPECT_EQ(mesh.indices.size(), 3);
    for (const QVector3D &normal : mesh.normals)
        EXPECT_EQ(normal, QVector3D(0, 0, 1));
}

TEST(ModelImporterTest, madeTextureCoordinatesCoverEachSideOfACubeOnce)
{
    TemporaryFolder folder;
    const MeshData mesh = import(folder.write("cube.obj", cubeObj())).meshes.value(0);
    ASSERT_EQ(mesh.texCoords.size(), mesh.positions.size());
    for (int i = 0; i < mesh.indices.size(); i += 3) {
        const QVector2D a = mesh.texCoords[int(mesh.indices[i])];
        const QVector2D b = mesh.texCoords[int(mesh.indices[i + 1])];
        const QVector2D c = mesh.texCoords[int(mesh.indices[i + 2])];
        for (const QVector2D &corner : {a, b, c}) {
            EXPECT_TRUE(corner.x() == 0 || corner.x() == 1) << corner.x();
            EXPECT_TRUE(corner.y() == 0 || corner.y() == 1) << corner.y();
        }
        // Half a square, counter-clockwise as the triangle is: not mirrored.
        const QVector2D u = b - a;
        const QVector2D v = c - a;
        EXPECT_FLOAT_EQ(u.x() * v.y() - u.y() * v.x(), 1);
        // On the four upright sides v goes up.
        if (std::abs(faceNormal(mesh, i).y()) < 0.5f) {
            EXPECT_FLOAT_EQ(a.y(), (mesh.positions[int(mesh.indices[i])].y() + 1) / 2);
        }
    }
}

TEST(ModelImporterTest, tinyModelsKeepTheirShape)
{
    TemporaryFolder folder;
    QByteArray obj = cubeObj();
    obj.replace('1', "1e-6");
    obj = obj.left(obj.indexOf('f')) + cubeObj().mid(cubeObj().indexOf('f'));
    const MeshData mesh = import(folder.write("tiny.obj", obj)).meshes.value(0);
    EXPECT_EQ(mesh.positions.size(), 24);
    EXPECT_EQ(mesh.indices.size(), 36);
    for (const QVector3D &normal : mesh.normals)
        EXPECT_NEAR(normal.length(), 1, 1e-5);
}

TEST(ModelImporterTest, nodesPlaceSharedMeshes)
{
    TemporaryFolder folder;
    const QJsonArray nodes{
        QJsonObject{{"name", "parent"}, {"translation", QJsonArray{0, 0, 5}}, {"scale", QJsonArray{2, 2, 2}},
            {"children", QJsonArray{1}}},
        QJsonObject{{"name", "child"}, {"mesh", 0}, {"translation", QJsonArray{1, 0, 0}}},
        QJsonObject{{"name", "other"}, {"mesh", 0}, {"scale", QJsonArray{-1, 1, 1}}},
    };
    const QJsonObject material{{"name", "m"}, {"doubleSided", true}};
    const ImportedScene scene = import(folder.write("a.gltf", gltfBytes(squareGltf(nodes, material))));
    EXPECT_EQ(scene.meshes.size(), 1);
    ASSERT_EQ(scene.items.size(), 2);
    EXPECT_EQ(scene.items[0].name, "child");
    expectNear(scene.items[0].modelMatrix.map(QVector3D(1, 1, 0)), {4, 2, 5});
    EXPECT_EQ(scene.items[1].name, "other");
    expectNear(scene.items[1].modelMatrix.map(QVector3D(1, 1, 0)), {-1, 1, 0});
    for (const ImportedItem &item : scene.items)
        EXPECT_EQ(item.featureFlags, quint64(GPUModel::DoubleSided));
}

TEST(ModelImporterTest, textureCoordinatesOfGltfCountFromTheLowerLeft)
{
    TemporaryFolder folder;
    const MeshData mesh =
        import(folder.write("a.gltf", gltfBytes(squareGltf({QJsonObject{{"mesh", 0}}}, {})))).meshes.value(0);
    ASSERT_EQ(mesh.positions.size(), 4);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(mesh.texCoords[i], mesh.positions[i].toVector2D());
}

TEST(ModelImporterTest, opacityOfGltfCountsWhenItsAlphaModeIsBlend)
{
    TemporaryFolder folder;
    const QJsonObject values{{"baseColorFactor", QJsonArray{1, 1, 1, 0.5}}, {"metallicFactor", 0}};
    for (const char *mode : {"OPAQUE", "MASK", "BLEND"}) {
        const QJsonObject material{{"name", "m"}, {"alphaMode", mode}, {"pbrMetallicRoughness", values}};
        const ImportedScene scene =
            import(folder.write("a.gltf", gltfBytes(squareGltf({QJsonObject{{"mesh", 0}}}, material))));
        const bool blend = mode == QByteArray("BLEND");
        EXPECT_FLOAT_EQ(scene.materials.value(0).d, blend ? 0.5f : 1) << mode;
        EXPECT_EQ(scene.items.value(0).featureFlags, blend ? quint64(ImportedScene::Transparent) : 0) << mode;
    }
}

TEST(ModelImporterTest, metallicMaterialsFollowTheDocumentedFormulas)
{
    TemporaryFolder folder;
    const QVector3D base(1, 0.5f, 0.25f);
    {
        const MaterialData plastic = importMaterial(folder.write("a.gltf", metallicGltf(0, 0.5)));
        expectNear(plastic.kd, base);
        EXPECT_NEAR(plastic.ns, 30, 1e-3);
        expectNear(plastic.ks, QVector3D(0.04f, 0.04f, 0.04f) * 0.5f * (38.0f / 8));
    }
    {
        const MaterialData metal = importMaterial(folder.write("b.gltf", metallicGltf(1, 0.25)));
        expectNear(metal.kd, base / 2);
        EXPECT_NEAR(metal.ns, 510, 0.1);
        expectNear(metal.ks, base * 0.75f); // the strongest channel of F is 1 already
    }
    {
        const MaterialData rough = importMaterial(folder.write("c.gltf", metallicGltf(0, 1)));
        EXPECT_FLOAT_EQ(rough.ns, 1);
        expectNear(rough.ks, {});
    }
    EXPECT_FLOAT_EQ(importMaterial(folder.write("d.gltf", metallicGltf(0, 0))).ns, 1024);
}

TEST(ModelImporterTest, mapsOfMetallicAndRoughnessCountByTheirMean)
{
    TemporaryFolder folder;
    QImage map = plainImage(2, 1, QColor(0, 255, 0));
    map.setPixelColor(1, 0, QColor(0, 0, 255)); // roughness and metallic 0.5 in the mean
    folder.write("map.png", pngBytes(map));
    const QJsonObject values{
        {"metallicFactor", 1}, {"roughnessFactor", 1}, {"metallicRoughnessTexture", QJsonObject{{"index", 0}}}};
    const MaterialData material = importMaterial(folder.write("a.gltf",
        gltfBytes(squareGltf(
            {QJsonObject{{"mesh", 0}}}, {{"name", "m"}, {"pbrMetallicRoughness", values}}, {{"uri", "map.png"}}))));
    expectNear(material.kd, {0.75f, 0.75f, 0.75f}, 1e-3f);
    EXPECT_NEAR(material.ns, 30, 0.2);
    EXPECT_TRUE(material.mapKd.isNull()) << "the map is no colour";
}

TEST(ModelImporterTest, texturesAreFoundInTheFileAndBesideIt)
{
    const QJsonObject textured{
        {"name", "m"}, {"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", QJsonObject{{"index", 0}}}}}};
    const QJsonArray nodes{QJsonObject{{"mesh", 0}}};
    const QImage image = plainImage(5, 7, Qt::green);

    TemporaryFolder folder;
    folder.write("my map.png", pngBytes(image));
    folder.write("bare.png", pngBytes(image));
    const QStringList files{
        folder.write("binary.glb", glbBytes(squareGltf(nodes, textured), image)),
        folder.write("data.gltf",
            gltfBytes(squareGltf(
                nodes, textured, {{"uri", QString("data:image/png;base64," + pngBytes(image).toBase64())}}))),
        folder.write("encoded.gltf", gltfBytes(squareGltf(nodes, textured, {{"uri", "my%20map.png"}}))),
        folder.write("elsewhere.gltf", gltfBytes(squareGltf(nodes, textured, {{"uri", "/gone/textures/bare.png"}}))),
    };
    for (const QString &file : files) {
        const ImportedScene scene = import(file);
        EXPECT_EQ(scene.warnings, QStringList());
        const MaterialData material = scene.materials.value(0);
        EXPECT_EQ(material.mapKd.size(), QSize(5, 7)) << qPrintable(file);
        EXPECT_EQ(material.mapKd.pixelColor(2, 2), QColor(Qt::green)) << qPrintable(file);
    }
}

TEST(ModelImporterTest, missingTextureGivesOneWarningAndWhite)
{
    TemporaryFolder folder;
    folder.write("a.mtl", "newmtl one\nmap_Kd gone.png\nnewmtl two\nKd 1 0 0\nmap_Kd gone.png\n");
    const QString file =
        folder.write("a.obj", "mtllib a.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl one\nf 1 2 3\nusemtl two\nf 1 2 3\n");
    const ImportedScene scene = import(file);
    EXPECT_EQ(
        scene.warnings, QStringList{file + ": material \"one\": texture \"gone.png\" is not there; white is used"});
    ASSERT_EQ(scene.materials.size(), 2);
    EXPECT_TRUE(scene.materials[0].mapKd.isNull());
    EXPECT_EQ(scene.materials[1].kd, QVector3D(1, 0, 0));
}

TEST(ModelImporterTest, unreadableTextureGivesOneWarningAndWhite)
{
    TemporaryFolder folder;
    folder.write("map.png", "this is no picture");
    folder.write("a.mtl", "newmtl one\nmap_Kd map.png\n");
    const ImportedScene scene = import(folder.write("a.obj", "mtllib a.mtl\nusemtl one\n" + triangle));
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].contains("material \"one\": texture \"map.png\" cannot be read"))
        << qPrintable(scene.warnings[0]);
    EXPECT_TRUE(scene.materials.value(0).mapKd.isNull());
}

TEST(ModelImporterTest, eachMissingMaterialLibraryGivesOneWarningAndGrey)
{
    TemporaryFolder folder;
    const auto warning = [](const QString &file, const QString &library, const QString &standIn) {
        return QStringLiteral("%1: material library \"%2\" cannot be opened; %3 is used").arg(file, library, standIn);
    };
    const QString one = folder.write("a.obj", "mtllib gone.mtl\nusemtl one\n" + triangle);
    const ImportedScene scene = import(one);
    EXPECT_EQ(scene.warnings, QStringList(warning(one, "gone.mtl", "grey")));
    const QVector3D kd = scene.materials.value(0).kd;
    EXPECT_EQ(kd, QVector3D(kd.x(), kd.x(), kd.x()));
    EXPECT_GT(kd.x(), 0.4f);
    EXPECT_LT(kd.x(), 0.9f);

    const QString own = folder.write("own.obj", "mtllib own.mtl\nusemtl one\n" + triangle);
    EXPECT_EQ(import(own).warnings, QStringList(warning(own, "own.mtl", "grey")));

    folder.write("there.mtl", "newmtl one\nKd 1 0 0\n");
    const QString several = folder.write("several.obj",
        "mtllib gone.mtl\nmtllib maps/gone#2.txt \nmtllib there.mtl\nmtllib several.mtl\nmtllib gone.mtl\nusemtl "
        "one\n"
            + triangle);
    EXPECT_EQ(import(several).warnings,
        (QStringList{warning(several, "gone.mtl", "grey"), warning(several, "maps/gone#2.txt", "grey"),
            warning(several, "several.mtl", "grey")}));
}

TEST(ModelImporterTest, libraryOfTheModelsNameStandsInForAMissingOne)
{
    TemporaryFolder folder;
    folder.write("a.mtl", "newmtl one\nKd 1 0 0\n");
    const QString file = folder.write("a.obj", "mtllib gone.mtl\nusemtl one\n" + triangle);
    const ImportedScene scene = import(file);
    EXPECT_EQ(
        scene.warnings, QStringList(file + ": material library \"gone.mtl\" cannot be opened; \"a.mtl\" is used"));
    EXPECT_EQ(scene.materials.value(0).kd, QVector3D(1, 0, 0));
}

TEST(ModelImporterTest, indicesOfObjFilesMayCountFromEitherEnd)
{
    TemporaryFolder folder;
    const ImportedScene scene = import(folder.write("a.obj",
        "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1\t0\nvn 0 0 1\n"
        "f 1/1/1 2/2/1\t3/3/1\n" // the third coordinate comes below
        "vt 0.25 0.75\nf -3/-3/-1 -2/-2/-1 -1/-1/-1\n"));
    EXPECT_EQ(scene.warnings, QStringList());
    const MeshData mesh = scene.meshes.value(0);
    EXPECT_EQ(mesh.indices.size(), 6);
    EXPECT_TRUE(mesh.texCoords.contains(QVector2D(0.25f, 0.75f)));
}

TEST(ModelImporterTest, cutLastFaceGivesAWarning)
{
    TemporaryFolder folder;
    const ImportedScene scene = import(folder.write("a.obj", triangle + "f 1 2"));
    EXPECT_EQ(scene.meshes.value(0).indices.size(), 3);
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith("is the file truncated?")) << qPrintable(scene.warnings[0]);
}

struct BadFile
{
    const char *label;
    const char *name;
    QByteArray content;
    const char *reason; ///< Part of the line.
};

void PrintTo(const BadFile &file, std::ostream *stream)
{
    *stream << file.label;
}

class BadModelFileTest : public ::testing::TestWithParam<BadFile>
{ };

TEST_P(BadModelFileTest, isRefusedInOneLine)
{
    TemporaryFolder folder;
    const QString file = folder.write(GetParam().name, GetParam().content);
    ImportedScene scene;
    scene.warnings.append("untouched");
    QString error;
    EXPECT_FALSE(importModel(file, &scene, &error));
    EXPECT_TRUE(error.startsWith(file + ": ")) << qPrintable(error);
    EXPECT_TRUE(error.contains(GetParam().reason)) << qPrintable(error);
    EXPECT_FALSE(error.contains('\n')) << qPrintable(error);
    EXPECT_EQ(scene.warnings, QStringList("untouched"));
    EXPECT_FALSE(importModel(file, &scene, nullptr)) << "the reason need not be wanted";
}

namespace {

const QByteArray plyHeader = "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                             "property float z\nelement face 2\nproperty list uchar int vertex_indices\nend_header\n";
const QByteArray plyVertices = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n";

QByteArray gltfWithIndexPastTheEnd()
{
    QJsonObject document = squareGltf({QJsonObject{{"mesh", 0}}}, {});
    QJsonObject buffer = document["buffers"].toArray()[0].toObject();
    const QByteArray prefix = "data:application/octet-stream;base64,";
    QByteArray bytes = QByteArray::fromBase64(buffer["uri"].toString().toLatin1().mid(prefix.size()));
    bytes[bytes.size() - 2] = char(200);
    buffer["uri"] = QString(prefix + bytes.toBase64());
    document["buffers"] = QJsonArray{buffer};
    return gltfBytes(document);
}

QByteArray binaryStl(int triangles, int written)
{
    QByteArray stl(80, ' ');
    const quint32 count = qToLittleEndian(quint32(triangles));
    stl.append(reinterpret_cast<const char *>(&count), 4);
    return stl + QByteArray(50 * written, '\0');
}

} // namespace

INSTANTIATE_TEST_SUITE_P(All, BadModelFileTest,
    ::testing::Values(BadFile{"empty", "a.obj", "", ": the file is empty"},
        BadFile{"unknownType", "a.xyz", "hello\n", "unknown type"}, BadFile{"noSuffix", "a", "hello\n", "unknown type"},
        // Readers that take a file for their own by a word in it do not get to say what is wrong with it.
        BadFile{"vrml", "a.wrl", "#VRML V2.0 utf8\n# exported from BLENDER\nShape {}\n",
            ": it is VRML, which is not read; convert it to glTF or X3D"},
        BadFile{"wordOfAReader", "a.xyz", "made by BLENDER\n", "unknown type"},
        BadFile{"glbOfVersion1", "a.glb", QByteArray("glTF\1\0\0\0\x1c\0\0\0\2\0\0\0\0\0\0\0{}", 22),
            ": it is binary glTF (GLB) of version 1, which is not read; convert it to glTF 2"},
        BadFile{"gltfOfARequiredExtension", "a.gltf",
            R"({"asset": {"version": "2.0"}, "extensionsRequired": ["KHR_techniques_webgl"],
                "bufferViews": [{"buffer": 3}], "accessors": [{}]})",
            ": it requires the glTF extension KHR_techniques_webgl, which is not read"},
        BadFile{"gltfWithoutAUri", "a.gltf", R"({"asset": {"version": "2.0"}, "buffers": [{"byteLength": 4}]})",
            ": buffer 0 names no file: its uri is missing"},
        BadFile{"cloudOfPointsNowhere", "a.ply",
            QByteArray(plyHeader).replace("element face 2\nproperty list uchar int vertex_indices\n", "")
                + "0 0 0\nnan nan nan\n1 0 0\n0 1 0\n",
            ": no triangles; 3 points are not drawn: triangles alone are"},
        BadFile{"wordWhereANumberIsExpected", "a.nff", "nff\nversion 2\nviewpos 0 0 zero\n",
            ": damaged, or of a kind that its reader does not know: \"zero\" stands where it expects a number"},
        BadFile{"terrainCut", "a.ter", "TERRAGENTERRAIN SIZE\1",
            ": damaged, or of a kind that its reader does not know: it ends in the middle of its data"},
        BadFile{"irrlichtOfMissingMeshes", "a.irr",
            "<?xml version=\"1.0\"?>\n<irr_scene>\n<node type=\"mesh\"><attributes><string name=\"Name\" value=\"m\"/>"
            "<string name=\"Mesh\" value=\"gone.3ds\"/></attributes></node>\n</irr_scene>\n",
            ": no triangles; files that it names are not there: \"gone.3ds\""},
        BadFile{"readerThatQuotesTheFile", "a.x",
            "xof 0303txt 0032\nFrame A { FrameTransformMatrix { " + QByteArray(4000, 'x') + " } }\n",
            "xxxxxxxxxxxxxxxxxxxx\" stands where it expects a number"},
        BadFile{"objWithoutFaces", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n", "no triangles"},
        BadFile{"objOfTrianglesWithoutArea", "a.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\nf 1 1 2\n", "no triangles"},
        BadFile{"objOfLines", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nl 1 2\n", "no triangles"},
        BadFile{"objIndexPastTheEnd", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n",
            "line 4: a face has vertex 4, past the end of 3"},
        BadFile{"objIndexBeforeTheStart", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 -4\n",
            "line 4: a face has vertex -4, past the end of 3"},
        BadFile{"objIndexZero", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 0 1 2\n",
            "line 4: a face has vertex 0, and OBJ counts from 1"},
        BadFile{"objShortVertex", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1\nf 1 2 3\n",
            "line 3: a vertex has 2 of its three numbers"},
        BadFile{"objTexCoordPastTheEnd", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/9\n",
            "line 5: a face has texture coordinate 9, past the end of 1"},
        BadFile{"objTexCoordBeforeTheStart", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/-1 3/-2\n",
            "line 5: a face has texture coordinate -2, past the end of 1"},
        BadFile{"objNormalPastTheEnd", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 1\nf 1//1 2//1 \\\n 3//2\n",
            "line 6: a face has normal 2, past the end of 1"},
        BadFile{"objNormalsMissing", "a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1/1 2/1/2 3/1/3\n",
            "line 5: a face has normal 3, past the end of 0"},
        BadFile{"objCutInItsVertices", "a.obj", cubeObj().left(60), "line 7: a vertex has 0 of its three numbers"},
        BadFile{"nanPosition", "a.obj", "v 0 0 nan\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", "vertex 0 is not a finite"},
        BadFile{"infinitePosition", "a.obj", "v 0 0 0\nv inf 0 0\nv 0 1 0\nf 1 2 3\n", "vertex 1 is not a finite"},
        BadFile{"plyIndexPastTheEnd", "a.ply", plyHeader + plyVertices + "3 0 1 2\n3 1 3 7\n",
            "face 1 has index 7, past the end of 4 vertices"},
        BadFile{"plyNegativeIndex", "a.ply", plyHeader + plyVertices + "3 0 1 2\n3 1 3 -2\n",
            "face 1 has index -2, past the end of 4 vertices"},
        BadFile{"plyCutInItsHeader", "a.ply", plyHeader.left(60), "truncated"},
        BadFile{"plyCutInItsVertices", "a.ply", plyHeader + plyVertices.left(10), "triangles"},
        BadFile{"binaryPlyCut", "a.ply",
            QByteArray(plyHeader).replace("ascii", "binary_little_endian") + QByteArray(4 * 12 + 1, '\0'),
            ": damaged or truncated: its header declares 50 bytes of data, and 49 are there"},
        BadFile{"gltfIndexPastTheEnd", "a.gltf", gltfWithIndexPastTheEnd(), "index past the end"},
        BadFile{"gltfCut", "a.gltf", gltfWithIndexPastTheEnd().left(400), "damaged or truncated glTF: "},
        BadFile{"gltfMatrixNotFinite", "a.gltf",
            gltfBytes(squareGltf({QJsonObject{{"mesh", 0}, {"name", "far"}, {"scale", QJsonArray{1e39, 1, 1}}}}, {})),
            "node \"far\" has a matrix that is not finite"},
        BadFile{"glbCut", "a.glb", glbBytes(squareGltf({QJsonObject{{"mesh", 0}}}, {}), QImage()).chopped(40),
            "damaged or truncated glTF: "},
        BadFile{"stlCut", "a.stl", binaryStl(3, 1),
            ": damaged or truncated: it is not text, and its size is not that of the facets that it declares"}),
    [](const auto &test) { return std::string(test.param.label); });

TEST(ModelImporterTest, missingFileIsRefused)
{
    ImportedScene scene;
    QString error;
    EXPECT_FALSE(importModel("/nowhere/a.obj", &scene, &error));
    EXPECT_EQ(error, "/nowhere/a.obj: no such file");
}

TEST(ModelImporterTest, directoryIsRefused)
{
    TemporaryFolder folder;
    ImportedScene scene;
    QString error;
    EXPECT_FALSE(importModel(folder.path("."), &scene, &error));
    EXPECT_EQ(error, folder.path(".") + ": is a directory, not a model file");
}

TEST(ModelImporterTest, scannedModelIsReadWhole)
{
    const ImportedScene scene = import("/usr/share/glmark2/models/bunny.obj");
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.meshes.size(), 1);
    const MeshData &mesh = scene.meshes[0];
    EXPECT_EQ(mesh.indices.size(), 3 * 69666);
    EXPECT_LT(mesh.positions.size(), mesh.indices.size() / 4) << "corners are shared";
    for (const QVector3D &normal : mesh.normals)
        ASSERT_NEAR(normal.length(), 1, 1e-4);
}

TEST(ModelImporterTest, threeDsNamesNoAxisAndIsTurnedOnlyWhenTold)
{
    const QString horse = QStringLiteral("/usr/share/glmark2/models/horse.3ds");
    const ImportedScene scene = import(horse);
    ASSERT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.upAxis, QString());
    expectNear(scene.items[0].modelMatrix.map(QVector3D(0, 0, 1)), {0, 0, 1});
    expectNear(scene.items[0].modelMatrix.map(QVector3D(0, 1, 0)), {0, 1, 0});

    ImportOptions options;
    options.up = QStringLiteral("z");
    ImportedScene turned;
    ASSERT_TRUE(importModel(horse, options, &turned, nullptr));
    ASSERT_EQ(turned.items.size(), 1);
    expectNear(turned.items[0].modelMatrix.map(QVector3D(0, 0, 1)), {0, 1, 0});
}

TEST(ModelImporterTest, hundredThousandNodesAreReadInTimeThatGrowsWithTheirNumber)
{
    TemporaryFolder folder;
    QJsonArray nodes;
    for (int i = 0; i < 100000; ++i)
        nodes.append(QJsonObject{{"mesh", 0}, {"translation", QJsonArray{i, 0, 0}}});
    const QString file = folder.write("a.gltf", gltfBytes(squareGltf(nodes, {})));
    QElapsedTimer timer;
    timer.start();
    const ImportedScene scene = import(file);
    EXPECT_LT(timer.elapsed(), 20000) << "half a second where nothing is quadratic";
    EXPECT_EQ(scene.meshes.size(), 1);
    ASSERT_EQ(scene.items.size(), 100000);
    EXPECT_EQ(scene.items[99999].modelMatrix.column(3).x(), 99999);
}

TEST(ModelImporterTest, ownSceneHasMaterialsTexturesAndTransparentParts)
{
    const ImportedScene scene = import(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.items.size(), 12);
    EXPECT_EQ(scene.materials.size(), 12);
    int transparent = 0;
    for (const ImportedItem &item : scene.items)
        transparent += item.featureFlags == quint64(ImportedScene::Transparent);
    EXPECT_EQ(transparent, 5);
    int diffuseMaps = 0;
    int specularMaps = 0;
    for (const MaterialData &material : scene.materials) {
        diffuseMaps += !material.mapKd.isNull();
        specularMaps += !material.mapKs.isNull();
    }
    EXPECT_EQ(diffuseMaps, 2);
    EXPECT_EQ(specularMaps, 1);
    for (const MeshData &mesh : scene.meshes) {
        for (int i = 0; i < mesh.indices.size(); i += 3)
            ASSERT_GT(QVector3D::dotProduct(faceNormal(mesh, i), mesh.normals[int(mesh.indices[i])]), 0)
                << "fronts are counter-clockwise";
    }
}

TEST(ModelImporterTest, glassSceneHasSixtyLayersAmongOtherTransparentAndOpaqueParts)
{
    const ImportedScene scene = import(KVZ_SOURCE_DIR "/Media/Models/glass.obj");
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.items.size(), 18);
    EXPECT_EQ(scene.materials.size(), 17);
    int transparent = 0;
    int transparentWithImage = 0;
    int layerTriangles = 0;
    for (const ImportedItem &item : scene.items) {
        const MaterialData &material = scene.materials[item.material];
        EXPECT_EQ(item.featureFlags, material.d < 1 ? quint64(ImportedScene::Transparent) : 0)
            << item.name.toStdString();
        transparent += material.d < 1;
        transparentWithImage += material.d < 1 && !material.mapKd.isNull();
        if (qFuzzyCompare(material.d, 0.04f))
            layerTriangles += scene.meshes[item.mesh].indices.size() / 3;
    }
    EXPECT_EQ(transparent, 12);
    EXPECT_EQ(transparentWithImage, 1);
    EXPECT_EQ(layerTriangles, 2 * 60);
}

} // namespace Velmora::Kvz
