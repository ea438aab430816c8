// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "ZipArchive.h"
#include "support/TemporaryFolder.h"

#include <algorithm>

namespace Velmora::Kvz {

namespace {

QByteArray amf(const QByteArray &content, const QByteArray &unit = QByteArray())
{
    return "<?xml version=\"1.0\"?><amf" + (unit.isEmpty() ? QByteArray() : " unit=\"" + unit + '"') + '>' + content
        + "</amf>";
}

QByteArray colour(const QByteArray &r, const QByteArray &g, const QByteArray &b, const QByteArray &a = QByteArray())
{
    return "<color><r>" + r + "</r><g>" + g + "</g><b>" + b + "</b>" + (a.isEmpty() ? QByteArray() : "<a>" + a + "</a>")
        + "</color>";
}

const QByteArray red = colour("1", "0", "0");
const QByteArray green = colour("0", "1", "0");
const QByteArray blue = colour("0", "0", "1");

QByteArray vertex(int x, int y, const QByteArray &more = QByteArray())
{
    return "<vertex><coordinates><x>" + QByteArray::number(x) + "</x><y>" + QByteArray::number(y)
        + "</y><z> 0 </z></coordinates>" + more + "</vertex>";
}

/// Two triangles beside each other, from x = 0 and from x = 2.
const QByteArray vertices = "<vertices>" + vertex(0, 0) + vertex(1, 0) + vertex(0, 1) + vertex(2, 0) + vertex(3, 0)
    + vertex(2, 1) + "</vertices>";

QByteArray triangle(int first, const QByteArray &more = QByteArray())
{
    return "<triangle>" + more + "<v1>" + QByteArray::number(first) + "</v1><v2>" + QByteArray::number(first + 1)
        + "</v2><v3>" + QByteArray::number(first + 2) + "</v3></triangle>";
}

QByteArray object(const QByteArray &id, const QByteArray &volumes, const QByteArray &more = QByteArray())
{
    return "<object id=\"" + id + "\">" + more + "<mesh>" + vertices + volumes + "</mesh></object>";
}

/// The base colours of items, by the x of their first corner in the file's space.
QMap<int, QVector4D> coloursOf(const ImportedScene &scene)
{
    QMap<int, QVector4D> colours;
    for (const ImportedItem &item : scene.items) {
        float low = 1e9f;
        for (const QVector3D &position : scene.meshes[item.mesh].positions)
            low = std::min(low, item.modelMatrix.map(position).x());
        colours.insert(qRound(low), scene.materials[item.material].baseColour);
    }
    return colours;
}

QByteArray zipped(const QByteArray &name, const QByteArray &content)
{
    return zipArchive({{name, content}});
}

} // namespace

TEST(AmfImportTest, allVolumesOfAnObjectAreReadWithTheirMaterials)
{
    TemporaryFolder folder;
    const QByteArray materials = "<material id=\"1\">" + red
        + "</material><material id=\"2\"><metadata type=\"name\">Sky"
          "</metadata>"
        + colour("0", "0", "1", "0.5") + "</material>";
    const QByteArray volumes =
        "<volume materialid=\"1\">" + triangle(0) + "</volume><volume materialid=\"2\">" + triangle(3) + "</volume>";
    const ImportedScene scene = importScene(folder.write("a.amf", amf(materials + object("1", volumes))));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(coloursOf(scene), (QMap<int, QVector4D>{{0, {1, 0, 0, 1}}, {2, {0, 0, 1, 0.5f}}}));
    EXPECT_EQ(scene.materials.value(1).name, "Sky");
    EXPECT_EQ(scene.materials.value(1).alphaMode, ImportedMaterial::Blend);
    EXPECT_EQ(scene.items.value(1).featureFlags & ImportedScene::Transparent, ImportedScene::Transparent);
}

TEST(AmfImportTest, theInnermostColourCounts)
{
    TemporaryFolder folder;
    const auto only = [&](const QByteArray &content) {
        const ImportedScene scene = importScene(folder.write("a.amf", amf(content)));
        EXPECT_EQ(scene.items.size(), 1);
        const ImportedMesh mesh = scene.meshes.value(0);
        return mesh.colours.isEmpty() ? scene.materials.value(0).baseColour : mesh.colours.value(0);
    };
    const QVector4D greenValue(0, 1, 0, 1);
    const QByteArray material = "<material id=\"1\">" + red + "</material>";
    EXPECT_EQ(only(material + object("1", "<volume materialid=\"1\">" + triangle(0) + "</volume>", green)), greenValue)
        << "of the object";
    EXPECT_EQ(only(object("1", "<volume>" + green + triangle(0) + "</volume>", red)), greenValue) << "of the volume";
    EXPECT_EQ(only(object("1", "<volume>" + red + triangle(0, green) + "</volume>")), greenValue) << "of the triangle";
    const QByteArray byVertex = "<object id=\"1\"><mesh><vertices>" + vertex(0, 0, green) + vertex(1, 0, green)
        + vertex(0, 1, green) + "</vertices><volume>" + red + triangle(0) + "</volume></mesh></object>";
    EXPECT_EQ(only(byVertex), greenValue) << "of vertices";
    EXPECT_EQ(only(object("1", "<volume>" + triangle(0) + "</volume>")).toVector3D(), MaterialData().kd) << "none";
}

TEST(AmfImportTest, constellationsPlaceObjects)
{
    const auto instance = [](const QByteArray &id, const QByteArray &x, const QByteArray &rz) {
        return "<instance objectid=\"" + id + "\"><deltax>" + x + "</deltax><rz>" + rz + "</rz></instance>";
    };
    TemporaryFolder folder;
    const QByteArray volume = "<volume>" + triangle(0) + "</volume>";
    const QByteArray content = object("1", volume, red) + object("2", volume, blue) + "<constellation id=\"3\">"
        + instance("1", "10", "0") + instance("1", "21", "90") + "</constellation>" + "<constellation id=\"4\">"
        + instance("3", "100", "0") + "</constellation>";
    const ImportedScene scene = importScene(folder.write("a.amf", amf(content)));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(coloursOf(scene), (QMap<int, QVector4D>{{0, {0, 0, 1, 1}}, {110, {1, 0, 0, 1}}, {120, {1, 0, 0, 1}}}))
        << "what nothing places stands as it is";
    const QString file = folder.write("b.amf",
        amf(object("1", volume) + "<constellation id=\"3\">" + instance("1", "0", "0") + instance("9", "0", "0")
            + "</constellation>"));
    EXPECT_EQ(importScene(file).warnings, QStringList(file + ": object 9, which a constellation places, is not there"));
    EXPECT_EQ(
        refusal(folder.write("c.amf",
            amf(object("1", volume) + "<constellation id=\"3\">" + instance("3", "0", "0") + "</constellation>"))),
        "constellation 3 holds itself");
}

TEST(AmfImportTest, unitAndAxisAreTold)
{
    TemporaryFolder folder;
    const QByteArray content = object("1", "<volume>" + triangle(0) + "</volume>");
    const struct
    {
        const char *unit;
        float metres;
    } cases[] = {{"", 1e-3f}, {"millimeter", 1e-3f}, {"inch", 0.0254f}, {"feet", 0.3048f}, {"meter", 1},
        {"micron", 1e-6f}, {"parsec", 0}};
    for (const auto &test : cases) {
        const ImportedScene scene = importScene(folder.write("a.amf", amf(content, test.unit)));
        EXPECT_FLOAT_EQ(scene.unit, test.metres) << test.unit;
        EXPECT_EQ(scene.upAxis, "z");
        const QVector3D up = scene.items.value(0).modelMatrix.map(QVector3D(0, 0, 1));
        EXPECT_LT((up - QVector3D(0, 1, 0)).length(), 1e-6f);
    }
    ImportOptions options;
    options.up = "y";
    EXPECT_TRUE(importScene(folder.path("a.amf"), options).items.value(0).modelMatrix.isIdentity());
}

TEST(AmfImportTest, packedFilesAreRead)
{
    TemporaryFolder folder;
    const QByteArray content = amf(object("1", "<volume>" + triangle(0) + "</volume>"), "inch");
    EXPECT_FLOAT_EQ(importScene(folder.write("a.amf", zipped("model.amf", content))).unit, 0.0254f);
    EXPECT_EQ(
        refusal(folder.write("b.amf", zipped("readme.txt", content))), "damaged: its archive holds no AMF document");
    EXPECT_EQ(refusal(folder.write("c.amf", zipped("model.amf", content).left(200))),
        "damaged: its archive holds no AMF document");
}

TEST(AmfImportTest, whatIsWrongIsNamed)
{
    TemporaryFolder folder;
    const auto reason = [&](const QByteArray &content) { return refusal(folder.write("a.amf", content)); };
    EXPECT_EQ(reason(amf(object("1", "<volume>" + triangle(5) + "</volume>"))),
        "line 1: a triangle has index 6, past the end of 6 vertices");
    EXPECT_EQ(reason(amf(QByteArray(object("1", "<volume>" + triangle(0) + "</volume>")).replace("<x>1<", "<x>one<"))),
        "line 1: \"one\" stands where a number is needed");
    EXPECT_EQ(reason("<amf>\n<object>\n"), "damaged: line 3 of its XML cannot be parsed");
    EXPECT_EQ(reason("<stl/>"), "damaged: it is no AMF document");
    EXPECT_EQ(reason(amf(QByteArray())), "no triangles");
    const QString file = folder.write("b.amf",
        amf(object("1", "<volume materialid=\"1\">" + triangle(0) + "</volume>") + "<material id=\"1\">"
            + colour("x", "0", "0") + "</material><texture id=\"1\">AAAA</texture>"));
    EXPECT_EQ(importScene(file).warnings,
        (QStringList{file + ": colours that are formulas are left out", file + ": its textures are not read"}));
}

} // namespace Velmora::Kvz
