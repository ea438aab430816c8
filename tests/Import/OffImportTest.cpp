// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

namespace Velmora::Kvz {

namespace {

struct OffKind
{
    const char *keyword;
    const char *beforeColour; ///< Of a vertex, behind its position.
    const char *colour;
    const char *behind;
    bool hasNormals;
    bool hasTexCoords;
};

void PrintTo(const OffKind &kind, std::ostream *stream)
{
    *stream << kind.keyword;
}

class OffKindTest : public ::testing::TestWithParam<OffKind>
{ };

QByteArray triangle(const QByteArray &keyword, const QByteArray &vertexEnd, bool isHomogeneous)
{
    const QByteArray positions[] = {isHomogeneous ? "0 0 0 2" : "0 0 0", isHomogeneous ? "2 0 0 2" : "1 0 0",
        isHomogeneous ? "0 0.5 0 0.5" : "0 1 0"};
    QByteArray text = keyword + "\n3 1 0\n";
    for (const QByteArray &position : positions)
        text += position + ' ' + vertexEnd + '\n';
    return text + "3 0 1 2\n";
}

} // namespace

/// A vertex is a position, a normal, a colour and texture coordinates, whatever the order of the letters that announce them.
TEST_P(OffKindTest, allThatVerticesHaveIsRead)
{
    const OffKind kind = GetParam();
    TemporaryFolder folder;
    const QByteArray keyword = kind.keyword;
    const QByteArray end = QByteArray(kind.beforeColour) + ' ' + kind.colour + ' ' + kind.behind;
    const ImportedScene scene = importScene(folder.write("a.off", triangle(keyword, end, keyword.contains('4'))));
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.positions.size(), 3);
    QVector3D high;
    for (int v = 0; v < 3; ++v) {
        high = {std::max(high.x(), mesh.positions[v].x()), std::max(high.y(), mesh.positions[v].y()), 0};
        // A face in the plane of z has its normal in the file alone.
        const QVector3D normal = kind.hasNormals ? QVector3D(0.6f, 0, 0.8f) : QVector3D(0, 0, 1);
        EXPECT_LT((mesh.normals[v] - normal).length(), 1e-5f);
        if (kind.hasTexCoords) {
            EXPECT_EQ(mesh.texCoords.value(v), QVector2D(0.25f, 0.75f));
        }
        EXPECT_EQ(mesh.colours.isEmpty(), *kind.colour == '\0');
        for (const QVector4D &colour : mesh.colours)
            EXPECT_LT((colour - QVector4D(1, 0, 0.2f, 0.4f)).length(), 1e-5f);
    }
    EXPECT_EQ(high, QVector3D(1, 1, 0));
}

INSTANTIATE_TEST_SUITE_P(All, OffKindTest,
    ::testing::Values(OffKind{"OFF", "", "", "", false, false}, OffKind{"COFF", "", "255 0 51 102", "", false, false},
        OffKind{"COFF", "", "1.0 0 0.2 0.4", "", false, false}, OffKind{"NOFF", "0.6 0 0.8", "", "", true, false},
        OffKind{"CNOFF", "0.6 0 0.8", "255 0 51 102", "", true, false},
        OffKind{"NCOFF", "0.6 0 0.8", "1 0 0.2 0.4", "", true, false},
        OffKind{"STOFF", "", "", "0.25 0.75", false, true},
        OffKind{"STCOFF", "", "255 0 51 102", "0.25 0.75", false, true},
        OffKind{"STNOFF", "0.6 0 0.8", "", "0.25 0.75", true, true},
        OffKind{"STCNOFF", "0.6 0 0.8", "255 0 51 102", "0.25 0.75", true, true},
        OffKind{"4OFF", "", "", "", false, false}, OffKind{"C4OFF", "", "255 0 51 102", "", false, false},
        OffKind{"STCN4OFF", "0.6 0 0.8", "255 0 51 102", "0.25 0.75", true, true}));

TEST(OffImportTest, coloursOfThreeNumbersAreOpaque)
{
    TemporaryFolder folder;
    const ImportedScene scene =
        importScene(folder.write("a.off", triangle("STCNOFF", "0.6 0 0.8 255 0 51 0.25 0.75", false)));
    EXPECT_EQ(scene.meshes.value(0).colours.value(0), QVector4D(1, 0, 0.2f, 1));
    EXPECT_EQ(scene.meshes.value(0).texCoords.value(0), QVector2D(0.25f, 0.75f));
}

TEST(OffImportTest, theNumberOfDimensionsIsThree)
{
    TemporaryFolder folder;
    EXPECT_EQ(importScene(folder.write("a.off", triangle("nOFF\n3", "", false))).meshes.size(), 1);
    EXPECT_EQ(importScene(folder.write("a.off", triangle("# a comment\nCnOFF 3", "1 0 0", false)))
                  .meshes.value(0)
                  .colours.value(2),
        QVector4D(1, 0, 0, 1));
    EXPECT_EQ(refusal(folder.write("b.off", triangle("nOFF\n4", "0", false))),
        "its vertices have 4 dimensions, and three are read");
}

TEST(OffImportTest, whatIsMissingIsNamed)
{
    TemporaryFolder folder;
    EXPECT_EQ(refusal(folder.write("a.off", triangle("CNOFF", "0 0 1", false))),
        "line 3: a vertex has 6 numbers, and its kind of OFF has 9 or more");
    EXPECT_EQ(refusal(folder.write("a.off", "COFF\n3 1 0\n0 0 0 1 1 1\n")),
        "damaged or truncated: it declares 3 vertices, and 1 are there");
    EXPECT_EQ(refusal(folder.write("a.off", "OFF\n2 0 0\n0 0 0\n1 1 1\n")),
        "no triangles; 2 points are not drawn: triangles alone are");
    EXPECT_EQ(refusal(folder.write("a.off", "OFF BINARY\n") + QString()),
        "it is binary OFF, which is not read; save it as text");
}

} // namespace Velmora::Kvz
