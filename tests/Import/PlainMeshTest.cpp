// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QFileInfo>
#include <QtCore/QtEndian>
#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

namespace Velmora::Kvz {

namespace {

template <typename T> void put(QByteArray *bytes, T value, bool isBig = false)
{
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    if (isBig)
        std::reverse(raw, raw + sizeof(T));
    bytes->append(raw, int(sizeof(T)));
}

struct Ball
{
    QVector<QVector3D> positions;
    QVector<quint32> indices;
};

/// A ball with a flat bottom, whose edge is hard. Some of its coordinates are -0.
Ball ball(int rows)
{
    Ball result;
    const int columns = 2 * rows;
    for (int row = 0; row <= rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const double latitude = M_PI * (double(row) / rows - 0.5) * 0.99;
            const double longitude = 2 * M_PI * column / columns;
            const double x = std::cos(latitude) * std::sin(longitude);
            const QVector3D at(column == 0 ? -0.0f : float(x), float(std::max(std::sin(latitude), -0.5)),
                float(std::cos(latitude) * std::cos(longitude)));
            result.positions.append(at);
        }
    }
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const auto a = quint32(row * columns + column);
            const auto b = quint32(row * columns + (column + 1) % columns);
            const auto c = a + quint32(columns), d = b + quint32(columns);
            result.indices << a << b << d << a << d << c;
        }
    }
    return result;
}

QByteArray stl(const Ball &ball)
{
    QByteArray bytes(80, ' ');
    put(&bytes, quint32(ball.indices.size() / 3));
    for (int i = 0; i < ball.indices.size(); ++i) {
        if (i % 3 == 0)
            bytes += QByteArray(12, '\0');
        const QVector3D at = ball.positions[int(ball.indices[i])];
        for (const float value : {at.x(), at.y(), at.z()})
            put(&bytes, value);
        if (i % 3 == 2)
            bytes += QByteArray(2, '\0');
    }
    return bytes;
}

/// Faces that say their corners as bytes and shorts and have a number of their own.
QByteArray ply(const Ball &ball, bool isBig, const QByteArray &properties,
    const std::function<void(QByteArray *, const QVector3D &)> &vertex)
{
    QByteArray bytes = QByteArray("ply\nformat binary_") + (isBig ? "big" : "little")
        + "_endian 1.0\ncomment made by a test\nelement vertex " + QByteArray::number(ball.positions.size()) + "\n"
        + properties + "element face " + QByteArray::number(ball.indices.size() / 3)
        + "\nproperty uint8 flags\nproperty list uchar ushort vertex_indices\nend_header\n";
    for (const QVector3D &at : ball.positions)
        vertex(&bytes, at);
    for (int i = 0; i < ball.indices.size(); ++i) {
        if (i % 3 == 0)
            bytes += "\x07\x03";
        put(&bytes, quint16(ball.indices[i]), isBig);
    }
    return bytes;
}

QByteArray positionsPly(const Ball &ball)
{
    return ply(ball, false, "property float x\nproperty float y\nproperty float z\n",
        [](QByteArray *bytes, const QVector3D &at) {
            for (const float value : {at.x(), at.y(), at.z()})
                put(bytes, value);
        });
}

/// All that is taken of vertices, in types and an order that are unlike those in memory, with something between.
QByteArray richPly(const Ball &ball, bool isBig)
{
    return ply(ball, isBig,
        "property double z\nproperty float nx\nproperty float ny\nproperty float nz\nproperty uchar red\n"
        "property uchar green\nproperty uchar blue\nproperty uchar alpha\nproperty float quality\nproperty float s\n"
        "property float t\nproperty float y\nproperty float x\n",
        [&](QByteArray *bytes, const QVector3D &at) {
            const QVector3D n = at.normalized();
            put(bytes, double(at.z()), isBig);
            for (const float value : {n.x(), n.y(), n.z()})
                put(bytes, value, isBig);
            for (const float value : {at.x(), at.y(), at.z(), 1.0f})
                put(bytes, quint8(127.5f + 127.5f * value));
            for (const float value : {9.0f, at.x() + at.z(), at.y(), at.y(), at.x()})
                put(bytes, value, isBig);
        });
}

/// Assimp reads a file's bytes once more: not within this limit.
ImportOptions withoutAssimp(const QString &file)
{
    ImportOptions options;
    options.limits.bytes = QFileInfo(file).size() + 8;
    return options;
}

/// What two readers made of the same triangles.
void expectSameMesh(const ImportedScene &actual, const ImportedScene &expected)
{
    EXPECT_EQ(actual.warnings, QStringList());
    EXPECT_EQ(expected.warnings, QStringList());
    ASSERT_EQ(actual.meshes.size(), 1);
    ASSERT_EQ(expected.meshes.size(), 1);
    const ImportedMesh &mesh = actual.meshes[0];
    EXPECT_EQ(mesh.positions, expected.meshes[0].positions);
    EXPECT_EQ(mesh.normals, expected.meshes[0].normals);
    EXPECT_EQ(mesh.texCoords, expected.meshes[0].texCoords);
    EXPECT_EQ(mesh.texCoords1, expected.meshes[0].texCoords1);
    EXPECT_EQ(mesh.colours, expected.meshes[0].colours);
    EXPECT_EQ(mesh.indices, expected.meshes[0].indices);
}

void expectSameSurface(const ImportedScene &actual, const ImportedScene &expected)
{
    EXPECT_EQ(actual.format, expected.format);
    ASSERT_EQ(actual.items.size(), 1);
    ASSERT_EQ(expected.items.size(), 1);
    EXPECT_EQ(actual.items[0].modelMatrix, expected.items[0].modelMatrix);
    EXPECT_EQ(actual.items[0].featureFlags, expected.items[0].featureFlags);
    ASSERT_EQ(actual.materials.size(), 1);
    const ImportedMaterial &material = actual.materials[0];
    const ImportedMaterial &other = expected.materials.value(0);
    EXPECT_EQ(material.name, other.name);
    EXPECT_EQ(material.kd, other.kd);
    EXPECT_EQ(material.ks, other.ks);
    EXPECT_EQ(material.baseColour, other.baseColour);
    EXPECT_EQ(material.isDoubleSided, other.isDoubleSided);
    EXPECT_EQ(material.saysSides, other.saysSides);
    EXPECT_EQ(material.alphaMode, other.alphaMode);
}

Ball facetsOf(const Ball &shared)
{
    Ball facets;
    for (const quint32 index : shared.indices) {
        facets.indices.append(quint32(facets.positions.size()));
        facets.positions.append(shared.positions[int(index)]);
    }
    return facets;
}

/// The scene as assimp reads it, which gets a PLY file under a suffix that says nothing.
ImportedScene byAssimp(const TemporaryFolder &folder, const QByteArray &ply)
{
    const QString file = folder.write("a.unknown", ply);
    EXPECT_TRUE(refusal(file, withoutAssimp(file)).contains("more than the limit")) << "assimp reads this one";
    return importScene(file);
}

} // namespace

TEST(PlainMeshTest, plyIsReadAsAssimpReadsIt)
{
    TemporaryFolder folder;
    const Ball model = ball(24);
    Ball facets = facetsOf(ball(12));
    for (const QByteArray &content :
        {positionsPly(model), richPly(model, false), richPly(model, true), positionsPly(facets)}) {
        const QString file = folder.write("a.PLY", content);
        const ImportedScene ours = importScene(file, withoutAssimp(file));
        const ImportedScene theirs = byAssimp(folder, content);
        expectSameMesh(ours, theirs);
        expectSameSurface(ours, theirs);
        EXPECT_GT(ours.meshes.value(0).indices.size(), 1000);
    }
    EXPECT_EQ(importScene(folder.write("b.ply", richPly(model, false))).items.value(0).featureFlags,
        quint64(GPUModel::DoubleSided));
}

TEST(PlainMeshTest, coloursOfPlyMayBeCalledDiffuse)
{
    const TemporaryFolder folder;
    const QByteArray usual = richPly(ball(8), false);
    QByteArray diffuse = usual;
    for (const char *const colour : {"red", "green", "blue"})
        diffuse.replace(QByteArray("uchar ") + colour, QByteArray("uchar diffuse_") + colour);
    ASSERT_EQ(diffuse.size(), usual.size() + 3 * 8);
    const QString file = folder.write("a.ply", diffuse);
    const ImportedScene scene = importScene(file, withoutAssimp(file));
    EXPECT_GT(scene.meshes.value(0).colours.size(), 10);
    expectSameMesh(scene, importScene(folder.write("b.ply", usual)));
}

/// What assimp reads: text, and binary files with more than triangles.
TEST(PlainMeshTest, coloursCalledDiffuseAreReadOfAllPly)
{
    const TemporaryFolder folder;
    const QByteArray place = "property float x\nproperty float y\nproperty float z\n";
    const QByteArray faces = "element face 1\nproperty list uchar int vertex_indices\nproperty uchar red\nend_header\n";
    const QByteArray diffuse =
        "property uchar diffuse_red\r\nproperty uchar diffuse_green\nproperty uchar diffuse_blue\n";
    const QByteArray alphas[] = {"", "property uchar alpha\n", "property uchar diffuse_alpha\n"};
    for (const QByteArray &alpha : alphas) {
        const QByteArray a = alpha.isEmpty() ? "" : " 51";
        const QByteArray text = "ply\nformat ascii 1.0\nelement vertex 3\n" + place + diffuse + alpha + faces
            + "0 0 0 255 0 0" + a + "\n1 0 0 255 0 0" + a + "\n\n0 1 0 255 0 0" + a + "\n3 0 1 2 9\n";
        const ImportedScene scene = importScene(folder.write("a.ply", text));
        ASSERT_EQ(scene.meshes.value(0).colours.size(), 3) << alpha.constData();
        for (const QVector4D &colour : scene.meshes[0].colours)
            EXPECT_EQ(colour, QVector4D(1, 0, 0, alpha.isEmpty() ? 1 : 0.2f)) << alpha.constData();
    }
    // Colours by the usual name come first.
    const ImportedScene both = importScene(folder.write("b.ply",
        "ply\nformat ascii 1.0\nelement vertex 3\n" + place + diffuse + QByteArray(diffuse).replace("diffuse_", "")
            + faces + "0 0 0 255 0 0 0 0 255\n1 0 0 255 0 0 0 0 255\n0 1 0 255 0 0 0 0 255\n3 0 1 2 9\n"));
    EXPECT_EQ(both.meshes.value(0).colours.value(0), QVector4D(0, 0, 1, 1));
}

TEST(PlainMeshTest, stlIsReadLikeFacetsOfAnyFormat)
{
    TemporaryFolder folder;
    const Ball model = ball(24);
    const QString file = folder.write("a.stl", stl(model));
    const ImportedScene ours = importScene(file, withoutAssimp(file));
    expectSameMesh(ours, byAssimp(folder, positionsPly(facetsOf(model))));
    EXPECT_LT(ours.meshes.value(0).positions.size(), model.indices.size() / 3) << "welded";
    const ImportedScene text = importScene(folder.write("b.stl",
        "solid x\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\n"
        "endsolid x\n"));
    expectSameSurface(ours, text);
}

/// A tube around z whose first and last column are where sine says: at 0 and at some rounding error of it.
TEST(PlainMeshTest, seamsOfRoundingErrorsAreClosed)
{
    const TemporaryFolder folder;
    const auto tube = [](bool isExact) {
        constexpr int columns = 16;
        Ball result;
        for (int column = 0; column <= columns; ++column) {
            const double angle = 2 * M_PI * column / columns;
            for (const float z : {1.0f, 2.0f, 3.0f})
                result.positions.append(
                    {float(std::cos(angle)), isExact && column == columns ? 0 : float(std::sin(angle)), z});
        }
        for (quint32 i = 0; i < 3 * columns; ++i) {
            if (i % 3 < 2)
                result.indices << i << i + 3 << i + 1 << i + 1 << i + 3 << i + 4;
        }
        return result;
    };
    EXPECT_NE(tube(false).positions.last().y(), 0.0f);
    const ImportedScene closed = importScene(folder.write("a.stl", stl(tube(true))));
    QByteArray text = "solid t\n";
    const Ball open = tube(false);
    for (int i = 0; i < open.indices.size(); ++i) {
        const QVector3D at = open.positions[int(open.indices[i])];
        text += i % 3 == 0 ? "facet normal 0 0 0\nouter loop\n" : "";
        text += "vertex";
        for (int axis = 0; axis < 3; ++axis)
            text += ' ' + QByteArray::number(double(at[axis]), 'g', 9);
        text += i % 3 == 2 ? "\nendloop\nendfacet\n" : "\n";
    }
    expectSameMesh(importScene(folder.write("b.stl", stl(open))), closed);
    expectSameSurface(importScene(folder.write("c.stl", text + "endsolid t\n")), closed);
    // Vertices of an indexed file stay; their normals are those of their place.
    const ImportedMesh indexed = importScene(folder.write("d.ply", positionsPly(open))).meshes.value(0);
    int atSeam = 0;
    for (int v = 0; v < indexed.positions.size(); ++v) {
        if (indexed.positions[v].x() < 0.999f)
            continue;
        ++atSeam;
        EXPECT_NEAR((indexed.normals[v] - QVector3D(1, 0, 0)).length(), 0, 1e-5);
    }
    EXPECT_GE(atSeam, 6);
}

TEST(PlainMeshTest, theAxisThatPointsUpIsHonoured)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.stl", stl(ball(4)));
    ImportOptions options = withoutAssimp(file);
    options.up = "z";
    const ImportedScene scene = importScene(file, options);
    ASSERT_EQ(scene.items.size(), 1);
    EXPECT_LT((scene.items[0].modelMatrix.map(QVector3D(0, 0, 1)) - QVector3D(0, 1, 0)).length(), 1e-6f);
    options.up = "w";
    options.limits.bytes = 0;
    EXPECT_EQ(refusal(file, options), "\"w\" is no axis; x, y and z are, and each with a minus");
}

TEST(PlainMeshTest, facetsOfPlyThatShareNoVerticesAreWelded)
{
    const Ball shared = ball(8);
    const Ball facets = facetsOf(shared);
    TemporaryFolder folder;
    const QString file = folder.write("a.ply", positionsPly(facets));
    const QString plain = folder.write("b.ply", positionsPly(shared));
    EXPECT_EQ(importScene(file, withoutAssimp(file)).meshes.value(0).positions.size(),
        importScene(plain, withoutAssimp(plain)).meshes.value(0).positions.size());
}

namespace {

struct OtherFile
{
    const char *label;
    const char *name;
    QByteArray content;
    const char *refusal; ///< Null: assimp reads it.
};

void PrintTo(const OtherFile &file, std::ostream *stream)
{
    *stream << file.label;
}

class OtherMeshTest : public ::testing::TestWithParam<OtherFile>
{ };

QByteArray withFloat(QByteArray bytes, int offset, float value)
{
    std::memcpy(bytes.data() + offset, &value, sizeof(value));
    return bytes;
}

/// Four corners a face.
const QByteArray quadPly = [] {
    QByteArray bytes = "ply\nformat binary_little_endian 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
                       "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
    for (const float value : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 1.f, 1.f, 0.f, 0.f, 1.f, 0.f})
        put(&bytes, value);
    bytes += '\4';
    for (const int index : {0, 1, 2, 3})
        put(&bytes, index);
    return bytes;
}();

const int plyHeaderSize = positionsPly(ball(4)).indexOf("end_header\n") + 11;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

QByteArray withLastIndex(quint16 index)
{
    QByteArray bytes = positionsPly(ball(4)).chopped(2);
    put(&bytes, index);
    return bytes;
}

} // namespace

/// What is not plain is assimp's to read or to refuse.
TEST_P(OtherMeshTest, isForAssimp)
{
    TemporaryFolder folder;
    const QString file = folder.write(GetParam().name, GetParam().content);
    EXPECT_TRUE(refusal(file, withoutAssimp(file)).contains("more than the limit"));
    if (GetParam().refusal) {
        EXPECT_TRUE(refusal(file).contains(GetParam().refusal)) << qPrintable(refusal(file));
        return;
    }
    const ImportedScene scene = importScene(file);
    ASSERT_EQ(scene.meshes.size(), 1);
    EXPECT_GT(scene.meshes[0].indices.size(), 3);
}

INSTANTIATE_TEST_SUITE_P(All, OtherMeshTest,
    ::testing::Values(OtherFile{"quads", "a.ply", quadPly, nullptr},
        OtherFile{"stlWithAPositionThatIsNoNumber", "a.stl", withFloat(stl(ball(4)), 84 + 12, nan),
            "the position of vertex 0 is not a finite number"},
        OtherFile{"plyWithAPositionThatIsNoNumber", "a.ply", withFloat(positionsPly(ball(4)), plyHeaderSize + 12, nan),
            "the position of vertex 1 is not a finite number"},
        OtherFile{"plyIndexPastTheEnd", "a.ply", withLastIndex(1000), "has index 1000, past the end of 40 vertices"},
        OtherFile{"plyWithAnotherElement", "a.ply",
            QByteArray(positionsPly(ball(4))).replace("end_header", "element edge 0\nproperty int vertex1\nend_header"),
            nullptr},
        OtherFile{"plyOfFlatTriangles", "a.ply",
            QByteArray(quadPly).replace(
                QByteArray("\4\0\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0", 17), QByteArray("\3\0\0\0\0\1\0\0\0\1\0\0\0", 13)),
            "no triangles"}),
    [](const auto &test) { return std::string(test.param.label); });

namespace {

/// The colours of the corners of some triangles beside each other, each with an attribute.
QVector<QVector4D> stlColours(const QByteArray &header, const QVector<quint16> &attributes)
{
    QByteArray bytes = header.leftJustified(80, ' ');
    put(&bytes, quint32(attributes.size()));
    for (int facet = 0; facet < attributes.size(); ++facet) {
        const float x = float(3 * facet);
        for (const float value : {0.f, 0.f, 1.f, x, 0.f, 0.f, x + 1, 0.f, 0.f, x, 1.f, 0.f})
            put(&bytes, value);
        put(&bytes, attributes[facet]);
    }
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write("a.stl", bytes));
    EXPECT_EQ(scene.warnings, QStringList());
    EXPECT_EQ(scene.meshes.size(), 1);
    const ImportedMesh mesh = scene.meshes.value(0);
    QVector<QVector4D> colours(mesh.colours.isEmpty() ? 0 : attributes.size());
    for (int v = 0; v < mesh.colours.size(); ++v)
        colours[int(mesh.positions[v].x()) / 3] = mesh.colours[v];
    return colours;
}

constexpr quint16 valid = 0x8000;
const QVector4D red(1, 0, 0, 1);
const QVector4D blue(0, 0, 1, 1);

} // namespace

TEST(PlainMeshTest, facetsOfStlHaveBlueInTheLowestBits)
{
    EXPECT_EQ(stlColours("", {valid | 31 << 10, valid | 31}), (QVector<QVector4D>{red, blue}));
    EXPECT_EQ(stlColours("", {valid | 31 << 10, 31}), (QVector<QVector4D>{red, {0.8f, 0.8f, 0.8f, 1}}))
        << "one that has none";
    EXPECT_EQ(stlColours("", {31, 0}), QVector<QVector4D>()) << "none at all";
}

TEST(PlainMeshTest, facetsOfStlHaveRedInTheLowestBitsBesideAColourOfTheWhole)
{
    const QByteArray header = QByteArray("made somewhere COLOR=") + '\0' + '\xff' + '\0' + '\xff' + ",MATERIAL=";
    const QVector4D green(0, 1, 0, 1);
    EXPECT_EQ(stlColours(header, {31, 31 << 10, valid | 31}), (QVector<QVector4D>{red, blue, green}));
    EXPECT_EQ(stlColours(header, {0, 31}), (QVector<QVector4D>{{0, 0, 0, 1}, red})) << "black is a colour";
    EXPECT_EQ(stlColours(header, {0, 0}), (QVector<QVector4D>{green, green})) << "attributes that nobody wrote";
    EXPECT_EQ(stlColours(QByteArray(74, 'x') + "COLOR=", {0, 0}), QVector<QVector4D>())
        << "cut off by the header's end";
}

TEST(PlainMeshTest, facetsOfStlWithColoursAreWeldedAndSmooth)
{
    QByteArray bytes = stl(ball(12));
    for (int end = 84 + 50; end <= bytes.size(); end += 50)
        bytes[end - 1] = char(0x80 | 0x7c);
    TemporaryFolder folder;
    const ImportedScene plain = importScene(folder.write("a.stl", stl(ball(12))));
    const ImportedScene scene = importScene(folder.write("b.stl", bytes));
    EXPECT_EQ(scene.meshes.value(0).positions.size(), plain.meshes.value(0).positions.size());
    EXPECT_EQ(scene.meshes.value(0).colours.value(0), red);
}

TEST(PlainMeshTest, limitsHold)
{
    TemporaryFolder folder;
    const QString file = folder.write("a.stl", stl(ball(4)));
    ImportOptions options;
    options.limits.vertices = 100;
    EXPECT_EQ(refusal(file, options), "it has more than the limit of 100 vertices");
    options = ImportOptions();
    options.limits.seconds = 1e-9;
    EXPECT_EQ(refusal(file, options), "reading it takes more than the limit of 1e-09 s");
}

} // namespace Velmora::Kvz
