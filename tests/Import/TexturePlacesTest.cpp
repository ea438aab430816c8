// SPDX-License-Identifier: MIT
#include "GltfDocument.h"
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

namespace Velmora::Kvz {

namespace {

const QByteArray triangle =
    "mtllib a.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\nusemtl m\nf 1/1 2/2 3/3\n";

/// An X3D file of a triangle with an image at these places, as the attribute has them.
QByteArray x3d(const QByteArray &url, const QByteArray &head = QByteArray())
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<X3D profile='Immersive' version='3.2'><Scene>" + head
        + "<Shape><Appearance><ImageTexture DEF = 'image' url = " + url
        + " repeatS='false'/></Appearance>"
          "<IndexedFaceSet coordIndex='0 1 2 -1' texCoordIndex='0 1 2 -1'><Coordinate point='0 0 0 1 0 0 0 1 0'/>"
          "<TextureCoordinate point='0 0 1 0 0 1'/></IndexedFaceSet></Shape></Scene></X3D>\n";
}

QColor colourOf(const ImportedScene &scene)
{
    const QImage image = scene.materials.value(0).mapKd;
    return image.isNull() ? QColor() : image.pixelColor(0, 0);
}

} // namespace

TEST(TexturePlacesTest, theFirstImageOfAnX3dListThatCanBeReadIsTaken)
{
    TemporaryFolder folder;
    folder.write("red.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("my blue.png", pngBytes(plainImage(2, 2, Qt::blue)));
    folder.write("damaged.png", "no picture");
    const QByteArray red[] = {"'\"red.png\"'", "'\"red.png\" \"my blue.png\"'", "'\"gone.png\" \"red.png\"'",
        "'\"gone.png\"\n \"also gone.png\" \"red.png\" \"https://example.com/red.png\"'", "'red.png'", "\"red.png\"",
        "\"&quot;red.png&quot;\"", "'\"damaged.png\",\"red.png\"'"};
    for (const QByteArray &url : red) {
        const ImportedScene scene = importScene(folder.write("a.x3d", x3d(url)));
        EXPECT_EQ(scene.warnings, QStringList()) << url.toStdString();
        EXPECT_EQ(colourOf(scene), QColor(Qt::red)) << url.toStdString();
        EXPECT_EQ(scene.materials.value(0).baseColourTexture.wrapU, ImportedTexture::ClampToEdge);
    }
    EXPECT_EQ(colourOf(importScene(folder.write("a.x3d", x3d("'\"my blue.png\" \"red.png\"'")))), QColor(Qt::blue));

    const QString file = folder.write("b.x3d", x3d("'\"gone.png\" \"lost.png\"'"));
    EXPECT_EQ(importScene(file).warnings,
        QStringList(file + ": material \"\": texture \"gone.png\", \"lost.png\" is not there; white is used"));
}

TEST(TexturePlacesTest, escapedNamesAreFoundBesideTheModelToo)
{
    TemporaryFolder folder;
    folder.write("te x.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("a.mtl", "newmtl m\nmap_Kd no/such/te%20x.png\n");
    const ImportedScene scene = importScene(folder.write("a.obj", triangle));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(colourOf(scene), QColor(Qt::red));
}

TEST(TexturePlacesTest, listsElsewhereInX3dDoNotKeepItFromBeingRead)
{
    TemporaryFolder folder;
    folder.write("red.png", pngBytes(plainImage(2, 2, Qt::red)));
    const QString file = folder.write("a.x3d",
        x3d("'\"red.png\"'",
            "<MetadataSet name='a'><MetadataString name='b' value='\"one\"'/></MetadataSet>"
            "<Inline url='\"part.x3d\"'/>"));
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings, QStringList(file + ": its part \"part.x3d\" is not there and is left out"));
    EXPECT_EQ(scene.items.size(), 1);

    folder.write("part.x3d",
        "<X3D><Scene><Shape><IndexedFaceSet coordIndex='0 1 2 -1'><Coordinate point='0 0 5 1 0 5 0 1 5'/>"
        "</IndexedFaceSet></Shape></Scene></X3D>");
    const ImportedScene whole = importScene(file);
    EXPECT_EQ(whole.warnings, QStringList());
    EXPECT_EQ(whole.items.size(), 2);
}

TEST(TexturePlacesTest, namesThatDifferByCaseAloneAreFoundWhereTheyAreClear)
{
    TemporaryFolder folder;
    QDir(folder.path(".")).mkpath("Maps/Wood");
    folder.write("Maps/Wood/Oak.PNG", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("beside.png", pngBytes(plainImage(2, 2, Qt::blue)));
    folder.write("Blank%20Name.png", pngBytes(plainImage(2, 2, Qt::green)));
    const QString file = folder.write("a.obj", triangle);
    const QPair<QByteArray, QColor> cases[] = {{"maps/wood/oak.png", Qt::red}, {"MAPS\\Wood\\Oak.png", Qt::red},
        {"Beside.PNG", Qt::blue}, {"C:\\Users\\Me\\Textures\\BESIDE.png", Qt::blue},
        {"\\\\server\\share\\beside.png", Qt::blue}, {"D:/textures/beside.png", Qt::blue},
        {"maps/gone/Beside.png", Qt::blue}, {"./maps/../MAPS/wood/oak.PNG", Qt::red}, {"blank%20name.PNG", Qt::green}};
    for (const auto &[name, colour] : cases) {
        folder.write("a.mtl", "newmtl m\nmap_Kd " + name + "\n");
        const ImportedScene scene = importScene(file);
        EXPECT_EQ(scene.warnings, QStringList()) << name.toStdString();
        EXPECT_EQ(colourOf(scene), colour) << name.toStdString();
    }
}

TEST(TexturePlacesTest, severalFilesThatDifferByCaseAloneAreNamed)
{
    TemporaryFolder folder;
    folder.write("Oak.png", pngBytes(plainImage(2, 2, Qt::red)));
    folder.write("OAK.png", pngBytes(plainImage(2, 2, Qt::blue)));
    folder.write("a.mtl", "newmtl m\nmap_Kd oak.png\n");
    const QString file = folder.write("a.obj", triangle);
    EXPECT_EQ(importScene(file).warnings,
        QStringList(file
            + ": material \"m\": texture \"oak.png\" is not there, and \"OAK.png\", \"Oak.png\" differ from it by "
              "upper and lower case alone; white is used"));
    folder.write("a.mtl", "newmtl m\nmap_Kd OAK.png\n");
    EXPECT_EQ(colourOf(importScene(file)), QColor(Qt::blue)) << "the name as it is comes first";
}

TEST(TexturePlacesTest, texturesBySetsOfCoordinatesThatAreNotReadAreLeftOut)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    const auto textured = [&](const QJsonObject &texture) {
        GltfDocument document;
        document.setSquare({{"name", "wall"}, {"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", texture}}},
            {"emissiveTexture", QJsonObject{{"index", 0}}}, {"emissiveFactor", QJsonArray{1, 1, 1}}});
        document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
        document.root["images"] = QJsonArray{QJsonObject{{"uri", "map.png"}}};
        return folder.write("a.gltf", document.bytes());
    };
    const QJsonObject transformed{{"KHR_texture_transform", QJsonObject{{"texCoord", 3}}}};
    const QJsonObject textures[] = {
        {{"index", 0}, {"texCoord", 3}}, {{"index", 0}, {"texCoord", 1}, {"extensions", transformed}}};
    for (const QJsonObject &texture : textures) {
        const QString file = textured(texture);
        const ImportedScene scene = importScene(file);
        EXPECT_EQ(scene.warnings,
            QStringList(file
                + ": material \"wall\": texture \"map.png\" is laid out by set 3 of the texture coordinates, and sets "
                  "0 "
                  "and 1 alone are read; white is used"));
        const ImportedMaterial material = scene.materials.value(0);
        EXPECT_EQ(material.baseColourTexture.image, -1);
        EXPECT_TRUE(material.mapKd.isNull());
        EXPECT_EQ(material.emissionTexture.image, 0) << "the same image by set 0";
    }
    const QString file = textured({{"index", 0}, {"texCoord", 1}});
    EXPECT_EQ(importScene(file).warnings,
        QStringList(file
            + ": material \"wall\": texture \"map.png\" is laid out by a second set of texture coordinates, which a "
              "mesh "
              "does not have"));
}

} // namespace Velmora::Kvz
