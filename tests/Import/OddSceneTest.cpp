// SPDX-License-Identifier: MIT
// Files that are legal or nearly so, and that used to give a wrong picture or none without a word.
#include "GltfDocument.h"
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <limits>

namespace Velmora::Kvz {

namespace {

using Doc = GltfDocument;

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

struct Imported
{
    ImportedScene scene;
    QStringList warnings; ///< Without the name of the file.

    ImportedMaterial material() const { return scene.materials.value(0); }
};

Imported importBytes(const TemporaryFolder &folder, const char *name, const QByteArray &bytes)
{
    const QString file = folder.write(name, bytes);
    Imported result{importScene(file), {}};
    for (const QString &line : qAsConst(result.scene.warnings)) {
        EXPECT_TRUE(line.startsWith(file + QStringLiteral(": "))) << qPrintable(line);
        result.warnings.append(line.mid(file.size() + 2));
    }
    return result;
}

Imported importDocument(const Doc &document)
{
    const TemporaryFolder folder;
    return importBytes(folder, "a.gltf", document.bytes());
}

Imported importMaterial(const QJsonObject &material)
{
    Doc document;
    document.setSquare(material);
    return importDocument(document);
}

QJsonObject colour(double red, double green, double blue, double alpha)
{
    return {{"baseColorFactor", QJsonArray{red, green, blue, alpha}}};
}

QJsonObject withExtension(const char *name, const QJsonObject &extension)
{
    return {{"extensions", QJsonObject{{name, extension}}}};
}

} // namespace

TEST(OddSceneTest, coloursThatAreNotFiniteAreWhite)
{
    Doc document;
    QJsonObject attributes = document.square();
    attributes["COLOR_0"] =
        document.addAccessor(Doc::bytesOf<float>({1, 0, 0, 0, notANumber, 0, 0, 0, 1, 1, 1, 0}), Doc::Float, 4, "VEC3");
    document.setPrimitive({{"attributes", attributes}, {"indices", document.squareIndices()}});
    const Imported imported = importDocument(document);
    EXPECT_EQ(imported.warnings, QStringList("mesh 0: colours that are not finite numbers are white (1)"));
    const ImportedMesh mesh = imported.scene.meshes.value(0);
    ASSERT_EQ(mesh.colours.size(), 4);
    for (int v = 0; v < 4; ++v) {
        const QVector3D position = mesh.positions[v];
        const QVector4D expected = position.x() > 0
            ? (position.y() > 0 ? QVector4D(0, 0, 1, 1) : QVector4D(1, 1, 1, 1))
            : (position.y() > 0 ? QVector4D(1, 1, 0, 1) : QVector4D(1, 0, 0, 1));
        EXPECT_EQ(mesh.colours[v], expected) << v;
    }
}

TEST(OddSceneTest, tangentsThatAreNotFiniteAreLeftOut)
{
    for (const bool isFinite : {false, true}) {
        Doc document;
        QJsonObject attributes = document.square();
        attributes["NORMAL"] =
            document.addAccessor(Doc::bytesOf<float>({0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1}), Doc::Float, 4, "VEC3");
        attributes["TANGENT"] = document.addAccessor(
            Doc::bytesOf<float>({1, 0, 0, 1, 1, 0, 0, 1, isFinite ? 1 : notANumber, 0, 0, 1, 1, 0, 0, 1}), Doc::Float,
            4, "VEC4");
        document.setPrimitive({{"attributes", attributes}, {"indices", document.squareIndices()}});
        const Imported imported = importDocument(document);
        EXPECT_EQ(imported.scene.meshes.value(0).tangents.size(), isFinite ? 4 : 0);
        EXPECT_EQ(imported.warnings,
            isFinite ? QStringList() : QStringList("mesh 0: its tangents are not all finite numbers and are left out"));
    }
}

TEST(OddSceneTest, factorsOutOfReachOfFloatsCountAsTheirDefault)
{
    const ImportedMaterial material = importMaterial(
        {{"emissiveFactor", QJsonArray{1e39, 0.5, 0}},
            {"pbrMetallicRoughness",
                colour(1e39, 0.5, 0, 1)}}).material();
    EXPECT_EQ(material.emission, QVector3D(0, 0.5f, 0));
    EXPECT_EQ(material.baseColour, QVector4D(1, 0.5f, 0, 1));
}

TEST(OddSceneTest, unlitMaterialsShowTheirBaseColourHoweverMetallicTheyAre)
{
    const QVector3D base(0.5f, 0.25f, 0.75f);
    for (const char *const other : {"KHR_materials_unlit", "KHR_materials_pbrSpecularGlossiness"}) {
        QJsonObject material{{"pbrMetallicRoughness", colour(0.5, 0.25, 0.75, 1)}};
        material["extensions"] = QJsonObject{{"KHR_materials_unlit", QJsonObject()},
            {other, QJsonObject{{"diffuseFactor", QJsonArray{0.5, 0.25, 0.75, 1}}}}};
        const ImportedMaterial read = importMaterial(material).material();
        EXPECT_TRUE(read.isUnlit);
        EXPECT_EQ(read.kd, base) << other;
        EXPECT_EQ(read.ks, QVector3D()) << other;
    }
    const ImportedMaterial lit = importMaterial({{"pbrMetallicRoughness", colour(0.5, 0.25, 0.75, 1)}}).material();
    EXPECT_NE(lit.kd, base) << "a metal";
}

TEST(OddSceneTest, scenesOfWhichNothingCanBeSeenAreSaidToBeSo)
{
    const auto square = [](const QJsonObject &material, const QJsonArray &scale) {
        Doc document;
        document.setSquare(material);
        document.setNodes({QJsonObject{{"mesh", 0}, {"scale", scale}}}, {0});
        return importDocument(document).warnings;
    };
    const QJsonArray whole{1, 1, 1};
    const QJsonObject clear{{"alphaMode", "BLEND"}, {"pbrMetallicRoughness", colour(1, 1, 1, 0)}};
    const QJsonObject cut{{"alphaMode", "MASK"}, {"pbrMetallicRoughness", colour(1, 1, 1, 0.4)}};
    const QString scaled = QStringLiteral("nothing of it can be seen: its nodes scale it to nothing");
    EXPECT_EQ(square({}, {0, 0, 0}), QStringList(scaled));
    EXPECT_EQ(square({}, {1, 0, 0}), QStringList(scaled));
    EXPECT_EQ(square(clear, whole), QStringList("nothing of it can be seen: its materials are wholly transparent"));
    EXPECT_EQ(
        square(cut, whole), QStringList("nothing of it can be seen: its materials cut all of it away by their mask"));

    EXPECT_EQ(square({}, {1, 1, 0}), QStringList()) << "flat, and to be seen";
    EXPECT_EQ(square({}, {1e-9, 1e-9, 1e-9}), QStringList()) << "small, and framed";
    EXPECT_EQ(square({{"alphaMode", "BLEND"}, {"pbrMetallicRoughness", colour(1, 1, 1, 0.1)}}, whole), QStringList());
    EXPECT_EQ(square({{"alphaMode", "MASK"}, {"pbrMetallicRoughness", colour(1, 1, 1, 0.6)}}, whole), QStringList());
    EXPECT_EQ(square({{"pbrMetallicRoughness", colour(1, 1, 1, 0)}}, whole), QStringList()) << "opaque";
}

TEST(OddSceneTest, imagesAndOtherFormatsCanHideAllToo)
{
    const TemporaryFolder folder;
    QImage image(2, 2, QImage::Format_ARGB32);
    image.fill(QColor(255, 0, 0, 0));
    folder.write("clear.png", pngBytes(image));
    image.setPixelColor(1, 1, QColor(255, 0, 0, 20));
    folder.write("faint.png", pngBytes(image));
    for (const bool isClear : {true, false}) {
        Doc document;
        QJsonObject pbr{{"baseColorTexture", QJsonObject{{"index", 0}}}};
        document.setSquare({{"alphaMode", "BLEND"}, {"pbrMetallicRoughness", pbr}});
        document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
        document.root["images"] = QJsonArray{QJsonObject{{"uri", isClear ? "clear.png" : "faint.png"}}};
        EXPECT_EQ(importBytes(folder, "a.gltf", document.bytes()).warnings.size(), isClear ? 1 : 0);
    }
    folder.write("a.mtl", "newmtl m\nd 0\n");
    EXPECT_EQ(importBytes(folder, "a.obj", "mtllib a.mtl\nusemtl m\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n").warnings,
        QStringList("nothing of it can be seen: its materials are wholly transparent"));
}

TEST(OddSceneTest, transmissionIsDrawnAsTransparency)
{
    const QJsonObject half = withExtension("KHR_materials_transmission", {{"transmissionFactor", 0.5}});
    QJsonObject glass = half;
    glass["pbrMetallicRoughness"] = QJsonObject{{"metallicFactor", 0}};
    const Imported imported = importMaterial(glass);
    EXPECT_EQ(imported.material().alphaMode, ImportedMaterial::Blend);
    EXPECT_FLOAT_EQ(imported.material().d, 0.6f);
    EXPECT_EQ(imported.scene.items.value(0).featureFlags & ImportedScene::Transparent, ImportedScene::Transparent);
    EXPECT_EQ(imported.warnings,
        QStringList("surfaces that transmit light (KHR_materials_transmission) are drawn as transparent ones"));
    EXPECT_EQ(importMaterial(half).material().alphaMode, ImportedMaterial::Opaque) << "metals transmit nothing";
    glass["alphaMode"] = "MASK";
    EXPECT_EQ(importMaterial(glass).material().alphaMode, ImportedMaterial::Mask);
}

TEST(OddSceneTest, imagesOfTransmissionCountByThePixel)
{
    const TemporaryFolder folder;
    QImage map(2, 1, QImage::Format_RGB32);
    map.setPixel(0, 0, qRgb(255, 0, 0));
    map.setPixel(1, 0, qRgb(0, 255, 255));
    folder.write("map.png", pngBytes(map));
    Doc document;
    QJsonObject material = withExtension(
        "KHR_materials_transmission", {{"transmissionFactor", 1}, {"transmissionTexture", QJsonObject{{"index", 0}}}});
    material["pbrMetallicRoughness"] = QJsonObject{{"metallicFactor", 0}};
    document.setSquare(material);
    document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    document.root["images"] = QJsonArray{QJsonObject{{"uri", "map.png"}}};
    const ImportedMaterial read = importBytes(folder, "a.gltf", document.bytes()).material();
    EXPECT_FLOAT_EQ(read.d, 1);
    EXPECT_EQ(read.mapKd.pixel(0, 0), qRgba(255, 255, 255, 51));
    EXPECT_EQ(read.mapKd.pixel(1, 0), qRgba(255, 255, 255, 255));
}

TEST(OddSceneTest, extensionsThatAreNotDrawnAreNamedInOneLine)
{
    const QJsonObject material{
        {"extensions",
            QJsonObject{{"KHR_materials_sheen", QJsonObject{{"sheenColorFactor", QJsonArray{0, 0.5, 0}}}},
                {"KHR_materials_anisotropy", QJsonObject{{"anisotropyStrength", 1}}},
                {"KHR_materials_diffuse_transmission", QJsonObject{{"diffuseTransmissionFactor", 0.5}}},
                {"KHR_materials_iridescence", QJsonObject{{"iridescenceFactor", 0}}},
                {"KHR_materials_ior", QJsonObject{{"ior", 1.2}}}}},
    };
    EXPECT_EQ(importMaterial(material).warnings,
        QStringList("the glTF extensions KHR_materials_anisotropy, KHR_materials_diffuse_transmission are not drawn"));
    EXPECT_EQ(
        importMaterial(withExtension("KHR_materials_clearcoat", {{"clearcoatFactor", 1}})).warnings, QStringList());
    EXPECT_EQ(importMaterial(withExtension("KHR_materials_clearcoat",
                                 {{"clearcoatFactor", 1}, {"clearcoatTexture", QJsonObject{{"index", 0}}}}))
                  .warnings,
        QStringList("images are not drawn, their factors are: clearcoatTexture of KHR_materials_clearcoat"));

    for (const bool isUsed : {true, false}) {
        Doc document;
        QJsonObject square{{"attributes", document.square()}, {"indices", document.squareIndices()}};
        const QJsonObject mapping{{"material", 0}, {"variants", QJsonArray{1}}};
        if (isUsed)
            square["extensions"] =
                QJsonObject{{"KHR_materials_variants", QJsonObject{{"mappings", QJsonArray{mapping}}}}};
        document.setPrimitive(square);
        document.root["materials"] = QJsonArray{QJsonObject()};
        document.root["extensions"] = QJsonObject{{"KHR_materials_variants",
            QJsonObject{{"variants", QJsonArray{QJsonObject{{"name", "red"}}, QJsonObject{{"name", "blue"}}}}}}};
        const QString line =
            QStringLiteral("its variants (KHR_materials_variants) are left out: the materials drawn are those of none");
        EXPECT_EQ(importDocument(document).warnings, isUsed ? QStringList(line) : QStringList());
    }
}

TEST(OddSceneTest, trianglesOfGltfWithoutNormalsAreFlat)
{
    // A roof of two triangles that meet at less than the angle that other formats keep hard.
    Doc document;
    const QJsonObject attributes{{"POSITION",
        document.addAccessor(Doc::bytesOf<float>({0, 0, 0, 0, 0, 1, 1, 0.5f, 0, -1, 0.5f, 0}), Doc::Float, 4, "VEC3")}};
    document.setPrimitive({{"attributes", attributes},
        {"indices", document.addAccessor(Doc::bytesOf<quint16>({0, 1, 2, 1, 0, 3}), Doc::UnsignedShort, 6, "SCALAR")}});
    const ImportedMesh mesh = importDocument(document).scene.meshes.value(0);
    ASSERT_EQ(mesh.indices.size(), 6);
    EXPECT_EQ(mesh.positions.size(), 6) << "the triangles share no vertices";
    for (int i = 0; i < 6; i += 3) {
        const auto at = [&](int corner) { return int(mesh.indices[i + corner]); };
        const QVector3D face = QVector3D::normal(mesh.positions[at(0)], mesh.positions[at(1)], mesh.positions[at(2)]);
        for (int corner = 0; corner < 3; ++corner)
            EXPECT_LT((mesh.normals[at(corner)] - face).length(), 1e-5f) << i + corner;
    }

    Doc square;
    square.setSquare();
    EXPECT_EQ(importDocument(square).scene.meshes.value(0).positions.size(), 4) << "shared where they lie in a plane";
}

TEST(OddSceneTest, numbersPastTheEndAreNamed)
{
    EXPECT_EQ(
        importMaterial(
            {{"name", "m"}, {"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", QJsonObject{{"index", 5}}}}}})
            .warnings,
        QStringList("material \"m\": texture \"5\" does not exist; white is used"));
    Doc document;
    document.setPrimitive({{"attributes", document.square()}, {"indices", document.squareIndices()}, {"material", 7}});
    EXPECT_EQ(
        importDocument(document).warnings, QStringList("material 7 does not exist; what asks for it is light grey"));
    Doc empty;
    empty.setSquare(
        {{"name", "m"}, {"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", QJsonObject{{"index", 0}}}}}});
    empty.root["textures"] = QJsonArray{QJsonObject()};
    EXPECT_EQ(importDocument(empty).warnings,
        QStringList("material \"m\": texture \"0\" has no image that is read; white is used"));
}

TEST(OddSceneTest, missingImagesOfEmissionDoNotGlow)
{
    Doc document;
    document.setSquare(
        {{"name", "m"}, {"emissiveFactor", QJsonArray{1, 1, 1}}, {"emissiveTexture", QJsonObject{{"index", 0}}}});
    document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    document.root["images"] = QJsonArray{QJsonObject{{"uri", "none.png"}}};
    const Imported gltf = importDocument(document);
    EXPECT_EQ(gltf.material().emission, QVector3D());
    EXPECT_EQ(gltf.warnings, QStringList("material \"m\": texture \"none.png\" is not there; nothing is emitted"));

    const TemporaryFolder folder;
    folder.write("a.mtl", "newmtl m\nKd 1 0 0\nKe 1 1 1\nmap_Ke none.png\nmap_Kd gone.png\n");
    const Imported obj = importBytes(folder, "a.obj", "mtllib a.mtl\nusemtl m\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_EQ(obj.material().emission, QVector3D());
    EXPECT_TRUE(obj.warnings.contains("material \"m\": texture \"none.png\" is not there; nothing is emitted"));
    EXPECT_TRUE(obj.warnings.contains("material \"m\": texture \"gone.png\" is not there; white is used"));
}

TEST(OddSceneTest, coloursThatALoaderMadeUpDoNotBlackenAMesh)
{
    const TemporaryFolder folder;
    const auto amf = [&](const QByteArray &colour) {
        QByteArray vertices;
        for (const char *const place :
            {"<x>0</x><y>0</y><z>0</z>", "<x>1</x><y>0</y><z>0</z>", "<x>0</x><y>1</y><z>0</z>"})
            vertices += "<vertex><coordinates>" + QByteArray(place) + "</coordinates>" + colour + "</vertex>";
        return importBytes(folder, "a.amf",
            "<?xml version=\"1.0\" encoding=\"utf-8\"?><amf><object id=\"1\"><mesh><vertices>" + vertices
                + "</vertices><volume><triangle><v1>0</v1><v2>1</v2><v3>2</v3></triangle></volume></mesh></object></"
                  "amf>");
    };
    EXPECT_TRUE(amf("").scene.meshes.value(0).colours.isEmpty());
    const QVector<QVector4D> red = amf("<color><r>1</r><g>0</g><b>0</b><a>1</a></color>").scene.meshes.value(0).colours;
    ASSERT_EQ(red.size(), 3);
    EXPECT_EQ(red[0], QVector4D(1, 0, 0, 1));
}

} // namespace Velmora::Kvz
