// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "ZipArchive.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QMap>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QByteArray relations =
    "<?xml version=\"1.0\"?><Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"s\" Type=\"http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail\" "
    "Target=\"/Metadata/plate.png\"/>"
    "<Relationship Id=\"r\" Type=\"http://schemas.microsoft.com/3dmanufacturing/2013/01/3dmodel\" "
    "Target=\"/3D/main.model\"/></Relationships>";

QByteArray model(const QByteArray &resources, const QByteArray &build, const QByteArray &attributes = QByteArray())
{
    return "<?xml version=\"1.0\"?><model" + attributes
        + " xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\" "
          "xmlns:x=\"http://schemas.microsoft.com/3dmanufacturing/material/2015/02\" "
          "xmlns:p=\"http://schemas.microsoft.com/3dmanufacturing/production/2015/06\"><resources>"
        + resources + "</resources><build>" + build + "</build></model>";
}

/// Two triangles in the plane of x and z, from x = 0 and from x = 2. Their attributes follow their corners.
QByteArray mesh(const QByteArray &first = QByteArray(), const QByteArray &second = QByteArray())
{
    QByteArray text = "<mesh><vertices>";
    for (const int x : {0, 2}) {
        const QByteArray near = QByteArray::number(x), far = QByteArray::number(x + 1);
        text += "<vertex x=\"" + near + "\" y=\"0\" z=\"0\"/><vertex x=\"" + far + "\" y=\"0\" z=\"0\"/><vertex x=\""
            + near + "\" y=\"0\" z=\"1\"/>";
    }
    return text + "</vertices><triangles><triangle v1=\"0\" v2=\"1\" v3=\"2\" " + first
        + "/><triangle v1=\"3\" v2=\"4\" v3=\"5\" " + second + "/></triangles></mesh>";
}

QByteArray object(const QByteArray &id, const QByteArray &content, const QByteArray &attributes = QByteArray())
{
    return "<object id=\"" + id + "\" type=\"model\" " + attributes + ">" + content + "</object>";
}

const QByteArray item = "<item objectid=\"1\"/>";
const QByteArray bases = "<basematerials id=\"7\"><base name=\"Red\" displaycolor=\"#FF0000\"/>"
                         "<base name=\"Glass\" displaycolor=\"#00FF0080\"/></basematerials>";
const QByteArray colours = "<x:colorgroup id=\"8\"><x:color color=\"#FF0000\"/><x:color color=\"#0000FFFF\"/>"
                           "</x:colorgroup>";

QString archive(
    const TemporaryFolder &folder, const QByteArray &main, const QVector<QPair<QByteArray, QByteArray>> &others = {})
{
    return folder.write("a.3mf",
        zipArchive(QVector<QPair<QByteArray, QByteArray>>{
                       {"3D/a.model", "<decoy/>"}, {"_rels/.rels", relations}, {"3D/main.model", main}}
            + others));
}

/// The colours at corners of the world's x, as they are drawn.
QMap<int, QVector4D> coloursByPlace(const ImportedScene &scene)
{
    QMap<int, QVector4D> found;
    for (const ImportedItem &drawn : scene.items) {
        const ImportedMesh &geometry = scene.meshes[drawn.mesh];
        const ImportedMaterial &material = scene.materials[drawn.material];
        for (int v = 0; v < geometry.positions.size(); ++v) {
            const QVector4D colour = geometry.colours.isEmpty() ? QVector4D(1, 1, 1, 1) : geometry.colours[v];
            found.insert(
                qRound(drawn.modelMatrix.map(geometry.positions[v]).x()), colour * QVector4D(material.kd, material.d));
        }
    }
    return found;
}

bool isNear(const QVector4D &a, const QVector4D &b)
{
    return (a - b).length() < 0.003f;
}

} // namespace

TEST(ThreeMfImportTest, unitAndAxisAreTold)
{
    const TemporaryFolder folder;
    for (const QByteArray &unit : {QByteArray(), QByteArray(" unit=\"inch\"")}) {
        const ImportedScene scene = importScene(archive(folder, model(object("1", mesh()), item, unit)));
        EXPECT_FLOAT_EQ(scene.unit, unit.isEmpty() ? 1e-3f : 0.0254f);
        EXPECT_EQ(scene.upAxis, "z");
        ASSERT_EQ(scene.items.size(), 1);
        const QVector3D up = scene.items[0].modelMatrix.map(QVector3D(0, 0, 1));
        EXPECT_LT((up - QVector3D(0, 1, 0)).length(), 1e-6f);
        EXPECT_EQ(scene.materials[scene.items[0].material].kd, QVector3D(0.8f, 0.8f, 0.8f));
    }
}

TEST(ThreeMfImportTest, anObjectHasOneBaseMaterial)
{
    const TemporaryFolder folder;
    const ImportedScene scene =
        importScene(archive(folder, model(bases + object("1", mesh(), "pid=\"7\" pindex=\"1\""), item)));
    ASSERT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.meshes[scene.items[0].mesh].colours.size(), 0);
    const ImportedMaterial &material = scene.materials[scene.items[0].material];
    EXPECT_EQ(material.name, "Glass");
    EXPECT_EQ(material.kd, QVector3D(0, 1, 0));
    EXPECT_NEAR(material.d, 0.5f, 0.003f);
    EXPECT_EQ(material.alphaMode, ImportedMaterial::Blend);
    EXPECT_NE(scene.items[0].featureFlags & ImportedScene::Transparent, 0u);
}

TEST(ThreeMfImportTest, trianglesHaveColoursOfTheirOwn)
{
    const TemporaryFolder folder;
    // By base materials, the second of the object's own; by colours of corners; by both.
    QMap<int, QVector4D> seen = coloursByPlace(importScene(
        archive(folder, model(bases + object("1", mesh("pid=\"7\" p1=\"0\""), "pid=\"7\" pindex=\"1\""), item))));
    EXPECT_TRUE(isNear(seen[0], {1, 0, 0, 1}));
    EXPECT_TRUE(isNear(seen[2], {0, 1, 0, 0.5f}));
    seen = coloursByPlace(importScene(archive(folder,
        model(colours + object("1", mesh("pid=\"8\" p1=\"0\" p2=\"1\" p3=\"0\"", "pid=\"8\" p1=\"1\"")), item))));
    EXPECT_TRUE(isNear(seen[0], {1, 0, 0, 1}));
    EXPECT_TRUE(isNear(seen[1], {0, 0, 1, 1}));
    EXPECT_TRUE(isNear(seen[2], {0, 0, 1, 1}));
    EXPECT_TRUE(isNear(seen[3], {0, 0, 1, 1}));
    seen = coloursByPlace(
        importScene(archive(folder, model(bases + colours + object("1", mesh("pid=\"8\" p1=\"1\"", "")), item))));
    EXPECT_TRUE(isNear(seen[0], {0, 0, 1, 1}));
    EXPECT_TRUE(isNear(seen[2], {0.8f, 0.8f, 0.8f, 1}));
}

TEST(ThreeMfImportTest, texturesLieInTheArchive)
{
    const TemporaryFolder folder;
    const QByteArray texture = "<x:texture2d id=\"4\" path=\"/3D/Textures/t.png\" contenttype=\"image/png\" "
                               "tilestyleu=\"mirror\" tilestylev=\"clamp\" filter=\"nearest\"/>"
                               "<x:texture2dgroup id=\"5\" texid=\"4\"><x:tex2coord u=\"0\" v=\"0\"/>"
                               "<x:tex2coord u=\"1\" v=\"0\"/><x:tex2coord u=\"0.5\" v=\"1\"/></x:texture2dgroup>";
    const QByteArray main =
        model(texture + bases + object("1", mesh("pid=\"5\" p1=\"0\" p2=\"1\" p3=\"2\"", "pid=\"7\" p1=\"0\"")), item);
    const QByteArray image = pngBytes(plainImage(2, 2, Qt::green));
    const ImportedScene scene = importScene(archive(folder, main, {{"3D/Textures/t.png", image}}));
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.items.size(), 2) << "one with the texture and one without";
    const auto textured = std::find_if(scene.items.begin(), scene.items.end(),
        [&](const ImportedItem &drawn) { return !scene.materials[drawn.material].mapKd.isNull(); });
    ASSERT_NE(textured, scene.items.end());
    const ImportedMaterial &material = scene.materials[textured->material];
    EXPECT_EQ(material.mapKd.pixelColor(0, 0), QColor(Qt::green));
    EXPECT_EQ(material.kd, QVector3D(1, 1, 1));
    EXPECT_EQ(material.baseColourTexture.wrapU, ImageSampling::MirroredRepeat);
    EXPECT_EQ(material.baseColourTexture.wrapV, ImageSampling::ClampToEdge);
    EXPECT_EQ(material.baseColourTexture.magnification, ImageSampling::Nearest);
    const ImportedMesh &geometry = scene.meshes[textured->mesh];
    for (int v = 0; v < geometry.positions.size(); ++v) {
        const QVector3D at = geometry.positions[v];
        const QVector2D expected = at.z() > 0 ? QVector2D(0.5f, 1) : QVector2D(at.x(), 0);
        EXPECT_EQ(geometry.texCoords[v], expected) << v;
    }
    const ImportedScene without = importScene(archive(folder, main));
    EXPECT_EQ(without.warnings,
        QStringList(folder.path("a.3mf")
            + ": material \"\": texture \"3D/Textures/t.png\" is not in the archive; white is used"));
}

TEST(ThreeMfImportTest, componentsAndItemsPlaceObjects)
{
    const TemporaryFolder folder;
    // The second number of the transform is how much of x goes into y.
    const QByteArray parts = object("1", mesh())
        + object("2",
            "<components><component objectid=\"1\" transform=\"2 0 0 0 1 0 0 0 1 10 0 0\"/>"
            "<component objectid=\"1\"/></components>");
    const QByteArray build = "<item objectid=\"2\" transform=\"0 1 0 -1 0 0 0 0 1 0 0 100\"/>" + item;
    const ImportedScene scene = importScene(archive(folder, model(parts, build)));
    ASSERT_EQ(scene.items.size(), 3);
    EXPECT_EQ(scene.meshes.size(), 1) << "shared";
    const auto place = [&](int number) { return scene.items[number].modelMatrix.map(QVector3D(1, 0, 0)); };
    // y is -z of the file, z its y.
    EXPECT_LT((place(0) - QVector3D(0, 100, -12)).length(), 1e-4f);
    EXPECT_LT((place(1) - QVector3D(0, 100, -1)).length(), 1e-4f);
    EXPECT_LT((place(2) - QVector3D(1, 0, 0)).length(), 1e-4f);
    EXPECT_EQ(importScene(archive(folder, model(parts, ""))).items.size(), 2) << "what no component places";
}

TEST(ThreeMfImportTest, objectsLieInPartsOfTheirOwn)
{
    const TemporaryFolder folder;
    const QByteArray main = model(
        bases + object("2", "<components><component p:path=\"/3D/Objects/o.model\" objectid=\"1\"/></components>"),
        "<item objectid=\"2\"/>");
    // The ids are those of the part.
    const QByteArray part =
        model("<basematerials id=\"7\"><base name=\"Blue\" displaycolor=\"#0000FF\"/></basematerials>"
                + object("1", mesh(), "pid=\"7\" pindex=\"0\""),
            "");
    const ImportedScene scene = importScene(archive(folder, main, {{"3D/Objects/o.model", part}}));
    ASSERT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.materials[scene.items[0].material].name, "Blue");
    EXPECT_EQ(refusal(archive(folder, main)), "damaged: its part \"3D/Objects/o.model\" is not in the archive");
}

TEST(ThreeMfImportTest, whatIsNotReadIsNamed)
{
    const TemporaryFolder folder;
    const QByteArray mixed = "<x:multiproperties id=\"9\" pids=\"7 8\"><x:multi pindices=\"0 0\"/></x:multiproperties>";
    const QString file = archive(folder,
        model(bases + mixed + object("1", mesh("pid=\"9\" p1=\"0\"", "pid=\"77\" p1=\"0\" paint_color=\"4\"")), item));
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings,
        (QStringList{file + ": the property group 77, which triangles name, is not there; grey is used",
            file + ": resources of these kinds are not read: multiproperties",
            file + ": colours that a slicer has painted onto triangles are not read"}));
    EXPECT_TRUE(isNear(coloursByPlace(scene)[0], {0.8f, 0.8f, 0.8f, 1}));
    const QString missing = archive(folder, model(object("1", mesh()), item + "<item objectid=\"5\"/>"));
    EXPECT_EQ(importScene(missing).warnings, QStringList(missing + ": object 5, which it places, is not there"));
}

TEST(ThreeMfImportTest, damagedFilesAreRefused)
{
    const TemporaryFolder folder;
    EXPECT_EQ(refusal(folder.write("b.3mf", "no archive")), "damaged or truncated: it is no ZIP archive");
    EXPECT_EQ(refusal(folder.write("b.3mf", zipArchive({{"readme.txt", "x"}}))),
        "damaged or truncated: its archive holds no model");
    EXPECT_EQ(refusal(archive(folder, "<html/>")), "damaged or truncated: \"3D/main.model\" is no model");
    EXPECT_EQ(refusal(archive(folder, model(object("1", mesh()), item).chopped(20))),
        "3D/main.model, line 1: its XML is damaged or truncated");
    QByteArray far = mesh();
    far.replace("v3=\"5\"", "v3=\"6\"");
    EXPECT_EQ(refusal(archive(folder, model(object("1", far), item))),
        "3D/main.model, line 1: a triangle has index 6, past the end of 6 vertices");
    far.replace("v3=\"6\"", "");
    EXPECT_EQ(
        refusal(archive(folder, model(object("1", far), item))), "3D/main.model, line 1: a triangle lacks a corner");
    far.replace("v2=\"4\"", "v2=\"-1\"");
    EXPECT_EQ(refusal(archive(folder, model(object("1", far), item))),
        "3D/main.model, line 1: v2=\"-1\" stands where a number is needed");
    far = mesh();
    far.replace("z=\"1\"", "z=\"nan\"");
    EXPECT_EQ(refusal(archive(folder, model(object("1", far), item))),
        "3D/main.model, line 1: z=\"nan\" stands where a number is needed");
    EXPECT_EQ(
        refusal(archive(folder, model(object("1", "<components><component objectid=\"1\"/></components>"), item))),
        "object 1 holds itself");
    EXPECT_EQ(refusal(archive(folder, model("", ""))), "no triangles");
    ImportOptions options;
    options.limits.vertices = 5;
    EXPECT_TRUE(refusal(archive(folder, model(object("1", mesh()), item)), options).contains("vertices"));
}

} // namespace Velmora::Kvz
