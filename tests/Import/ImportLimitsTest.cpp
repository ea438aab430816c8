// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Import/ModelFormats.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QtEndian>

#include <cstring>

namespace Velmora::Kvz {

namespace {

const QByteArray triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
const QByteArray texturedTriangle = "mtllib a.mtl\nusemtl a\n" + triangle;

} // namespace

TEST(ImportLimitsTest, headersThatDeclareMoreThanTheirFileHoldsAreRefusedBeforeALoaderMakesRoom)
{
    TemporaryFolder folder;
    EXPECT_EQ(refusal(folder.write("a.off", "OFF\n# so many\n353535235358 6 0\n0 0 0\n")),
        "its header declares 353535235358 vertices, more than its 37 bytes can hold");
    EXPECT_EQ(refusal(folder.write("b.off", "OFF 3 99999999999999999999 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n")),
        "its header declares 9223372036854775807 faces, more than its 55 bytes can hold");
    EXPECT_EQ(refusal(folder.write("c.ply",
                  "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\nproperty float x\nend_header\n")),
        "its header declares 4000000000 elements, more than its 90 bytes can hold");
    EXPECT_EQ(importScene(folder.write("d.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n")).items.size(), 1);
}

/// Loaders make room for as many items as a list declares.
TEST(ImportLimitsTest, listsOfPlyThatAreLongerThanTheFileAreRefused)
{
    TemporaryFolder folder;
    const auto header = [](const char *format, const char *length) {
        return QByteArray("ply\nformat ") + format
            + " 1.0\nelement vertex 3\nproperty uchar x\nproperty uchar y\nproperty uchar z\nelement face 2\n"
              "property list "
            + length + " int vertex_indices\nend_header\n";
    };
    const QByteArray vertices("\0\0\0\1\0\0\0\1\0", 9);
    const QByteArray face("\3\0\0\0\0\1\0\0\0\2\0\0\0", 13);
    EXPECT_EQ(
        refusal(folder.write("a.ply", header("ascii", "uint") + "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n4000000000 0 1 2\n")),
        "damaged or truncated: element \"face\" number 1 declares a list of 4000000000 items, and its line holds 3 at "
        "most");
    EXPECT_EQ(refusal(folder.write("b.ply", header("ascii", "int") + "0 0 0\n1 0 0\n0 1 0\n-1 0 1 2\n3 0 1 2\n")),
        "damaged or truncated: element \"face\" number 0 declares a list of -1 items, and its line holds 3 at most");
    EXPECT_EQ(refusal(folder.write(
                  "c.ply", header("binary_little_endian", "uchar") + vertices + face + "\xff" + face.mid(1))),
        "damaged or truncated: element \"face\" number 1 declares a list of 255 items, and the rest of the file holds "
        "3 "
        "at most");
    EXPECT_EQ(refusal(folder.write(
                  "d.ply", header("binary_big_endian", "uint") + vertices + QByteArray("\x7f\0\0\0", 4) + face + face)),
        "damaged or truncated: element \"face\" number 0 declares a list of 2130706432 items, and the rest of the file "
        "holds 6 at most");
    EXPECT_EQ(importScene(folder.write("e.ply",
                              header("ascii", "uint") + "0 0 0\n1 0 0\n0 1 0\n\ncomment so\n3  0 1 2\n3 0 2 1\n"))
                  .items.size(),
        1);
}

/// Two strips, one of them with a restart: of four triangles, of two and one.
TEST(PlyStripsTest, triangleStripsAreRead)
{
    const QVector<QVector3D> positions = {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}, {2, 0, 0}, {2, 1, 0}};
    const QVector<QVector<int>> strips = {{1, 0, 3, 2, 5, 4}, {0, 1, 2, 3, -1, 2, 3, 4}};
    TemporaryFolder folder;
    for (const char *format : {"ascii", "binary_little_endian", "binary_big_endian"}) {
        QByteArray bytes = QByteArray("ply\nformat ") + format
            + " 1.0\nelement vertex 6\nproperty float x\nproperty float y\nproperty float z\nelement tristrips 2\n"
              "property list int int vertex_indices\nend_header\n";
        const auto put = [&](quint32 bits, const QByteArray &word) {
            char raw[4];
            if (std::strstr(format, "big"))
                qToBigEndian(bits, raw);
            else
                qToLittleEndian(bits, raw);
            bytes += format[0] == 'a' ? word + ' ' : QByteArray(raw, 4);
        };
        const QByteArray lineEnd = format[0] == 'a' ? "\n" : "";
        for (const QVector3D &at : positions) {
            for (const float value : {at.x(), at.y(), at.z()}) {
                quint32 bits;
                std::memcpy(&bits, &value, 4);
                put(bits, QByteArray::number(double(value)));
            }
            bytes += lineEnd;
        }
        for (const QVector<int> &strip : strips) {
            put(quint32(strip.size()), QByteArray::number(strip.size()));
            for (const int corner : strip)
                put(quint32(corner), QByteArray::number(corner));
            bytes += lineEnd;
        }
        const ImportedScene scene = importScene(folder.write("a.ply", bytes));
        EXPECT_EQ(scene.warnings, QStringList());
        ASSERT_EQ(scene.meshes.size(), 1) << format;
        const ImportedMesh &mesh = scene.meshes[0];
        ASSERT_EQ(mesh.indices.size(), 21) << format;
        float areas[2] = {};
        for (int i = 0; i < mesh.indices.size(); i += 3) {
            const auto corner = [&](int number) { return mesh.positions[int(mesh.indices[i + number])]; };
            const float area = QVector3D::crossProduct(corner(1) - corner(0), corner(2) - corner(0)).z() / 2;
            areas[area < 0] += area;
        }
        EXPECT_EQ(areas[0], 2) << format << ": the first strip winds one way";
        EXPECT_EQ(areas[1], -1.5f) << format << ": the second winds the other";
    }
}

TEST(ImportProgressTest, theHostIsToldOfTheFileOfMeshesAndOfImages)
{
    TemporaryFolder folder;
    folder.write("a.png", pngBytes(plainImage(2, 2, Qt::white)));
    folder.write("a.mtl", "newmtl a\nmap_Kd a.png\nnewmtl b\nmap_Kd gone.png\n");
    const QString file = folder.write(
        "a.obj", "mtllib a.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\no one\nusemtl a\nf 1 2 3\no two\nusemtl b\nf 1 3 2\n");
    QVector<QPair<int, int>> told[3];
    ImportOptions options;
    options.progress = [&told](const ImportProgress &progress) {
        told[progress.step].append({progress.done, progress.total});
    };
    importScene(file, options);
    EXPECT_EQ(told[ImportProgress::Meshes], (QVector<QPair<int, int>>{{1, 2}, {2, 2}}));
    EXPECT_EQ(told[ImportProgress::Images], (QVector<QPair<int, int>>{{1, 0}, {2, 0}})) << "missing ones too";
    ASSERT_FALSE(told[ImportProgress::File].isEmpty());
    for (int i = 0; i < told[ImportProgress::File].size(); ++i) {
        const QPair<int, int> share = told[ImportProgress::File][i];
        EXPECT_TRUE(share.first >= 0 && share.first <= 100 && share.second == 100) << share.first;
    }
}

TEST(ImportLimitsTest, eachLimitOfTheHostIsNamedByTheRefusal)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.obj", triangle);
    ImportOptions options;
    options.limits.bytes = triangle.size() - 1;
    EXPECT_EQ(refusal(file, options), "reading it takes more than the limit of 31 bytes");
    options.limits.bytes = 0;
    options.limits.vertices = 2;
    EXPECT_EQ(refusal(file, options), "it has more than the limit of 2 vertices");
    options.limits.vertices = 3;
    EXPECT_EQ(importScene(file, options).items.size(), 1);
    options.limits.seconds = 1e-9;
    EXPECT_EQ(refusal(file, options), "reading it takes more than the limit of 1e-09 s");
}

TEST(ImportLimitsTest, filesThatTheModelNamesCountAgainstItsBytes)
{
    TemporaryFolder folder;
    folder.write("a.mtl", "newmtl a\n" + QByteArray(100000, '#') + "\n");
    const QString file = folder.write("a.obj", texturedTriangle);
    ImportOptions options;
    options.limits.bytes = 100000;
    EXPECT_EQ(refusal(file, options), "reading it takes more than the limit of 100000 bytes");
    EXPECT_EQ(importScene(file).items.size(), 1);
}

/// Loaders that give up leave their files open.
TEST(ImportLimitsTest, refusedFilesAreClosed)
{
    const TemporaryFolder folder;
    const auto openFiles = [&] {
        int count = 0;
        const QDir descriptors(QStringLiteral("/proc/self/fd"));
        for (const QString &name : descriptors.entryList(QDir::Files | QDir::System))
            count += QFile::symLinkTarget(descriptors.filePath(name))
                         .startsWith(QFileInfo(folder.path(".")).canonicalFilePath());
        return count;
    };
    int refused = 0;
    for (const FileFormat &format : modelFormats()) {
        for (const QString &suffix : format.suffixes) {
            if (suffix == QLatin1String("zgl")) // its loader leaves memory of zlib's too, which the sanitizers find
                continue;
            for (const QByteArray &content :
                {QByteArray(400, '\x02'), QByteArray("no such thing\n").repeated(50), QByteArray("x")}) {
                ImportedScene scene;
                QString error;
                refused += !importModel(folder.write("a." + suffix, content), &scene, &error);
                EXPECT_EQ(openFiles(), 0) << qPrintable(suffix) << ' ' << content.left(2).constData();
            }
        }
    }
    EXPECT_GT(refused, 100);
    QFile control(folder.path("a.obj"));
    ASSERT_TRUE(control.open(QIODevice::ReadOnly));
    EXPECT_EQ(openFiles(), 1);
}

TEST(ImportLimitsTest, standardLimitsGrowWithTheFile)
{
    const ImportLimits small = ImportLimits::forFileSize(0);
    const ImportLimits large = ImportLimits::forFileSize(qint64(1) << 30);
    EXPECT_GT(small.vertices, 0);
    EXPECT_GT(large.vertices, 3 * (qint64(1) << 30) / 50) << "binary STL, three vertices in 50 bytes";
    EXPECT_GT(small.seconds, 0);
    EXPECT_GT(large.seconds, small.seconds);
    EXPECT_GT(small.bytes, 0);
    EXPECT_GT(large.bytes, qint64(1) << 30);
    EXPECT_GT(small.imageSide, 0);
}

TEST(ImportLimitsTest, largeImagesAreScaledWithAWarning)
{
    TemporaryFolder folder;
    folder.write("wide.png", pngBytes(plainImage(64, 32, Qt::red)));
    folder.write("a.mtl", "newmtl a\nmap_Kd wide.png\n");
    const QString file = folder.write("a.obj", texturedTriangle);
    ImportOptions options;
    options.limits.imageSide = 16;
    const ImportedScene scene = importScene(file, options);
    ASSERT_EQ(scene.materials.size(), 1);
    EXPECT_EQ(scene.materials[0].mapKd.size(), QSize(16, 8));
    EXPECT_EQ(scene.materials[0].mapKd.pixelColor(8, 4), QColor(Qt::red));
    EXPECT_EQ(scene.warnings,
        QStringList(file + ": material \"a\": texture \"wide.png\" has 64x32 pixels and is scaled to 16x8"));
    options.limits.imageSide = 64;
    EXPECT_EQ(importScene(file, options).materials.value(0).mapKd.size(), QSize(64, 32));
}

TEST(ImportLimitsTest, ktx2ImagesAreRefusedByName)
{
    TemporaryFolder folder;
    folder.write("a.ktx2", QByteArray("\xabKTX 20\xbb\r\n\x1a\n") + QByteArray(100, '\0'));
    folder.write("a.mtl", "newmtl a\nmap_Kd a.ktx2\n");
    const QString file = folder.write("a.obj", texturedTriangle);
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.warnings,
        QStringList(
            file + ": material \"a\": texture \"a.ktx2\" is a KTX2 image, a type that is not read; white is used"));
}

/// The loader counts a node for each group and makes that of the last alone.
TEST(ImportLimitsTest, rawFilesOfSeveralGroupsKeepAll)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write(
        "a.raw", "Red\n1 0 0 0 0 0 0 1 0 1 0 0\nGreen\n0 1 0 0 0 1 0 1 1 1 0 1\nBlue\n0 0 1 0 0 2 0 1 2 1 0 2\n"));
    QVector<float> heights;
    for (const ImportedItem &item : scene.items)
        heights.append(item.modelMatrix.map(scene.meshes[item.mesh].positions.value(0)).z());
    std::sort(heights.begin(), heights.end());
    EXPECT_EQ(heights, (QVector<float>{0, 1, 2}));
}

struct OddObj
{
    const char *label;
    QByteArray content;
};

void PrintTo(const OddObj &file, std::ostream *stream)
{
    *stream << file.label;
}

class OddObjTest : public ::testing::TestWithParam<OddObj>
{ };

/// Each says the same triangle.
TEST_P(OddObjTest, isReadRightly)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write("a.obj", GetParam().content));
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.meshes.size(), 1);
    const MeshData &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.indices.size(), 3);
    const QVector<QVector3D> expected = {{1, 0.5f, 0}, {0, 1, -0.25f}, {0, 0, 0}};
    // Any corner may come first.
    int first = 0;
    while (first < 3 && mesh.positions[int(mesh.indices[first])] != expected[0])
        ++first;
    for (int corner = 0; corner < 3; ++corner)
        EXPECT_EQ(mesh.positions[int(mesh.indices[(first + corner) % 3])], expected[corner]) << "corner " << corner;
}

namespace {

QByteArray utf16(const QByteArray &text, bool bigEndian)
{
    QByteArray wide = bigEndian ? "\xfe\xff" : "\xff\xfe";
    for (const char c : text)
        wide += bigEndian ? QByteArray(1, '\0') + c : c + QByteArray(1, '\0');
    return wide;
}

const QByteArray plainTriangle = "v 1 0.5 0\nv 0 1 -0.25\nv 0 0 0\nf 1 2 3\n";

} // namespace

INSTANTIATE_TEST_SUITE_P(All, OddObjTest,
    ::testing::Values(OddObj{"plain", plainTriangle},
        OddObj{"leadingPoint", "v 1 .5 0\nv 0 1 -.25\nv 0 0 .0\nf 1 2 3\n"},
        OddObj{"trailingPoint", "v 1. +0.5 0\nv 0. 1. -0.25\nv 0 0 0.\nf 1 2 3\n"},
        OddObj{"exponents", "v 1e0 5e-1 0\nv 0 1E+0 -.25e0\nv 0 0 0\nf 1 2 3\n"},
        OddObj{"tabs", "v\t1\t0.5\t0\nv\t0\t1 \t-0.25\nv 0 0\t0\nf\t1\t2\t3\n"},
        OddObj{"leadingSpaces", "  v 1 0.5 0\n\tv 0 1 -0.25\n v 0 0 0\n    f 1 2 3\n"},
        OddObj{"trailingSpaces", "v 1 0.5 0  \nv 0 1 -0.25\t\nv 0 0 0 \nf 1 2 3 \n"},
        OddObj{"continuedLines", "v 1 \\\n 0.5 0\nv 0 1 -0.25\nv 0 0 0\nf 1 \\\n2 \\\n3\n"},
        OddObj{"continuedWithLeadingPoint", "v 1 \\\n .5 0\nv 0 1 \\\n-.25\nv 0 0 0\nf 1 \\\n2 \\\n3"},
        OddObj{"carriageReturns", "v 1 0.5 0\r\nv 0 1 \\\r\n-0.25\r\nv 0 0 0\r\nf 1 2 3\r\n"},
        OddObj{"commentsBehindValues", "v 1 0.5 0 # first\nv 0 1 -0.25\nv 0 0 0\nf 1 2 3 # all\n"},
        OddObj{"negativeIndices", "v 9 9 9\nv 1 0.5 0\nv 0 1 -0.25\nv 0 0 0\nf -3 -2 -1\n"},
        OddObj{"noLastNewline", plainTriangle.chopped(1)},
        OddObj{"oneTextureCoordinate", "v 1 0.5 0\nv 0 1 -0.25\nv 0 0 0\nvt .5\nf 1/1 2/1 3/1\n"},
        OddObj{"colours", "v 1 0.5 0 1 0 0\nv 0 1 -0.25 0 1 0\nv 0 0 0 .5 .5 .5\nf 1 2 3\n"},
        OddObj{"utf8Mark", "\xef\xbb\xbf" + plainTriangle}, OddObj{"utf16LittleEndian", utf16(plainTriangle, false)},
        OddObj{"utf16BigEndian", utf16(plainTriangle, true)}),
    [](const auto &test) { return std::string(test.param.label); });

TEST(OddTextTest, stlMayBeInCapitals)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write("a.stl",
        "SOLID X\nFACET NORMAL 0 0 1\nOUTER LOOP\nVERTEX 0 0 0\nVERTEX 1E0 0 0\nVERTEX 0 1 0\nENDLOOP\nENDFACET\n"
        "ENDSOLID X\n"));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.meshes.value(0).indices.size(), 3);
}

TEST(OddTextTest, mayBeUtf16)
{
    const QByteArray dae =
        "<?xml version=\"1.0\" encoding=\"utf-16\"?><COLLADA xmlns=\"http://www.collada.org/2005/11/COLLADASchema\" "
        "version=\"1.4.1\"><library_geometries><geometry id=\"g\"><mesh><source id=\"p\"><float_array id=\"pa\" "
        "count=\"9\">0 0 0 1 0 0 0 1 0</float_array><technique_common><accessor source=\"#pa\" count=\"3\" "
        "stride=\"3\">"
        "<param name=\"X\" type=\"float\"/><param name=\"Y\" type=\"float\"/><param name=\"Z\" type=\"float\"/>"
        "</accessor></technique_common></source><vertices id=\"v\"><input semantic=\"POSITION\" source=\"#p\"/>"
        "</vertices><triangles count=\"1\"><input semantic=\"VERTEX\" source=\"#v\" offset=\"0\"/><p>0 1 "
        "2</p></triangles>"
        "</mesh></geometry></library_geometries><library_visual_scenes><visual_scene id=\"s\"><node id=\"n\">"
        "<instance_geometry url=\"#g\"/></node></visual_scene></library_visual_scenes>"
        "<scene><instance_visual_scene url=\"#s\"/></scene></COLLADA>";
    TemporaryFolder folder;
    for (const bool isBig : {false, true}) {
        EXPECT_EQ(importScene(folder.write("a.off", utf16("OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", isBig)))
                      .meshes.value(0)
                      .indices.size(),
            3);
        EXPECT_EQ(importScene(folder.write("a.dae", utf16(dae, isBig))).meshes.value(0).indices.size(), 3);
    }
}

TEST(OddObjTest, namesWithOtherLettersAreKept)
{
    TemporaryFolder folder;
    const QByteArray name = QStringLiteral("Größe").toUtf8();
    folder.write("a.mtl", "newmtl " + name + "\nKd 0.25 0.5 1\n");
    const ImportedScene scene =
        importScene(folder.write("a.obj", "mtllib a.mtl\no " + name + "\n  usemtl " + name + "\n" + plainTriangle));
    ASSERT_EQ(scene.items.size(), 1);
    EXPECT_EQ(scene.items[0].name, QStringLiteral("Größe"));
    EXPECT_EQ(scene.materials.value(0).kd, QVector3D(0.25f, 0.5f, 1));
}

} // namespace Velmora::Kvz
