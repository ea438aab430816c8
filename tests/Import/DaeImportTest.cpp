// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

#include <cmath>

namespace Velmora::Kvz {

namespace {

/// A COLLADA file with some polygons of the corners that are given, whose normals are up.
QByteArray dae(const QByteArray &positions, const QByteArray &polygons, const QByteArray &colour = "1 0 0 1")
{
    const QByteArray count = QByteArray::number(positions.simplified().count(' ') + 1);
    return R"(<?xml version="1.0"?><COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1"><asset/>
<library_effects><effect id="e"><profile_COMMON><technique sid="c"><lambert><diffuse><color>)"
        + colour + R"(</color></diffuse></lambert></technique></profile_COMMON></effect></library_effects>
<library_materials><material id="m" name="paint"><instance_effect url="#e"/></material></library_materials>
<library_geometries><geometry id="g"><mesh>
<source id="p"><float_array id="pa" count=")"
        + count + R"(">)" + positions + R"(</float_array><technique_common><accessor source="#pa" count=")"
        + QByteArray::number(count.toInt() / 3)
        + R"(" stride="3"><param name="X" type="float"/><param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
<source id="n"><float_array id="na" count="3">0 0 1</float_array><technique_common><accessor source="#na" count="1" stride="3"><param name="X" type="float"/><param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
<vertices id="v"><input semantic="POSITION" source="#p"/></vertices>
<polygons count="1" material="paint"><input semantic="NORMAL" source="#n" offset="0"/><input semantic="VERTEX" source="#v" offset="1"/>)"
        + polygons + R"(</polygons></mesh></geometry></library_geometries>
<library_visual_scenes><visual_scene id="w"><node id="n0"><instance_geometry url="#g"><bind_material><technique_common>
<instance_material symbol="paint" target="#m"/></technique_common></bind_material></instance_geometry></node></visual_scene>
</library_visual_scenes><scene><instance_visual_scene url="#w"/></scene></COLLADA>)";
}

QByteArray corners(const QByteArray &vertices)
{
    QByteArray list;
    for (const QByteArray &vertex : vertices.split(' '))
        list += (list.isEmpty() ? "0 " : " 0 ") + vertex;
    return list;
}

/// The sum of the triangles' areas seen from z, those that face away negative.
double areaOf(const ImportedMesh &mesh)
{
    double sum = 0;
    for (int i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const QVector3D a = mesh.positions[int(mesh.indices[i])];
        const QVector3D b = mesh.positions[int(mesh.indices[i + 1])];
        const QVector3D c = mesh.positions[int(mesh.indices[i + 2])];
        const double area = double(QVector3D::crossProduct(b - a, c - a).z()) / 2;
        EXPECT_GE(area, 0);
        sum += area;
    }
    return sum;
}

/// Whether any triangle covers a point.
bool covers(const ImportedMesh &mesh, const QVector3D &point)
{
    for (int i = 0; i + 2 < mesh.indices.size(); i += 3) {
        bool isInside = true;
        for (int k = 0; k < 3; ++k) {
            const QVector3D a = mesh.positions[int(mesh.indices[i + k])];
            const QVector3D b = mesh.positions[int(mesh.indices[i + (k + 1) % 3])];
            isInside &= QVector3D::crossProduct(b - a, point - a).z() >= 0;
        }
        if (isInside)
            return true;
    }
    return false;
}

// A square of 10, squares of 2 at (1, 1) and (6, 6), and a triangle at (1, 6).
const QByteArray sheet =
    "0 0 0 10 0 0 10 10 0 0 10 0  1 1 0 3 1 0 3 3 0 1 3 0  6 6 0 8 6 0 8 8 0 6 8 0  1 6 0 3 6 0 2 8 0";

} // namespace

TEST(DaeImportTest, holesOfPolygonsAreCut)
{
    TemporaryFolder folder;
    const auto hole = [](const QByteArray &vertices) { return "<h>" + corners(vertices) + "</h>"; };
    const QByteArray outline = "<p>" + corners("0 1 2 3") + "</p>";
    const struct
    {
        QByteArray holes;
        double area;
    } cases[] = {{hole("4 7 6 5"), 96}, {hole("4 5 6 7"), 96}, {hole("4 7 6 5") + hole("8 11 10 9"), 92},
        {hole("12 13 14") + hole("8 9 10 11") + hole("4 7 6 5"), 90}};
    for (const auto &test : cases) {
        SCOPED_TRACE(test.holes.constData());
        const ImportedScene scene =
            importScene(folder.write("a.dae", dae(sheet, "<ph>" + outline + test.holes + "</ph>")));
        EXPECT_EQ(scene.warnings, QStringList());
        const ImportedMesh mesh = scene.meshes.value(0);
        EXPECT_NEAR(areaOf(mesh), test.area, 1e-4);
        EXPECT_TRUE(covers(mesh, {5, 5, 0}));
        EXPECT_TRUE(covers(mesh, {9.5f, 0.5f, 0}));
        EXPECT_EQ(covers(mesh, {2, 2.1f, 0}), !test.holes.contains("0 4"));
        EXPECT_EQ(covers(mesh, {7, 7.1f, 0}), !test.holes.contains("0 8"));
        EXPECT_EQ(covers(mesh, {2, 7, 0}), !test.holes.contains("0 12"));
        for (const QVector3D &normal : mesh.normals)
            EXPECT_EQ(normal, QVector3D(0, 0, 1)) << "of the corner, as the file has it";
    }
}

TEST(DaeImportTest, polygonsWithAndWithoutHolesStandBesideEachOther)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write(
        "a.dae", dae(sheet, "<p>" + corners("8 9 10 11") + "</p><ph><p>" + corners("4 5 6 7") + "</p></ph>")));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_NEAR(areaOf(scene.meshes.value(0)), 8, 1e-5);
}

TEST(DaeImportTest, holesThatCannotBeCutAreFilledAndSaid)
{
    TemporaryFolder folder;
    const QString file = folder.write(
        "a.dae", dae(sheet, "<ph><p>" + corners("4 5 6 7") + "</p><h>" + corners("8 11 10 9") + "</h></ph>"));
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings, QStringList(file + ": holes of polygons are filled, as they cannot be cut (1)"))
        << "it lies outside";
    EXPECT_NEAR(areaOf(scene.meshes.value(0)), 4, 1e-5);
}

TEST(DaeImportTest, aWrongNumberOfPolygonsChangesNothing)
{
    TemporaryFolder folder;
    for (const char *count : {"0", "1", "7"}) {
        QByteArray text = dae(sheet, "<p>" + corners("8 9 10 11") + "</p><p>" + corners("4 5 6 7") + "</p>");
        text.replace("<polygons count=\"1\"", QByteArray("<polygons count=\"") + count + '"');
        EXPECT_NEAR(areaOf(importScene(folder.write("a.dae", text)).meshes.value(0)), 8, 1e-5) << count;
    }
}

TEST(DaeImportTest, blanksAroundNumbersAreNothing)
{
    TemporaryFolder folder;
    const QByteArray square = "<p>" + corners("0 1 2 3") + "</p>";
    for (const char *colour : {"\n    0 0.5 1 1\n  ", "\t0 0.5 1 1 ", " 0 0.5 1 1"}) {
        const ImportedScene scene = importScene(folder.write("a.dae", dae(sheet, square, colour)));
        EXPECT_EQ(scene.warnings, QStringList());
        EXPECT_EQ(scene.materials.value(0).kd, QVector3D(0, 0.5f, 1)) << colour;
    }
}

TEST(DaeImportTest, noReasonHasALineBreakOrAWordOfTheReadersOwn)
{
    TemporaryFolder folder;
    const QString reason =
        refusal(folder.write("a.dae", dae(sheet, "<p>" + corners("0 1 2 3") + "</p>", "red\n\nof course")));
    EXPECT_EQ(reason,
        "damaged, or of a kind that its reader does not know: \"red of course\" stands where it expects a number");
}

} // namespace Velmora::Kvz
