// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QtEndian>

#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

namespace {

QByteArray word(quint16 value)
{
    QByteArray bytes(2, '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

QByteArray longWord(quint32 value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

QByteArray chunk(quint16 kind, const QByteArray &content)
{
    return word(kind) + longWord(quint32(content.size() + 6)) + content;
}

QByteArray material(const QByteArray &name)
{
    const QByteArray red("\xff\0\0", 3);
    return chunk(0xafff, chunk(0xa000, name + '\0') + chunk(0xa020, chunk(0x0011, red)));
}

/// Faces of a material.
QByteArray group(const QByteArray &name, const QVector<quint16> &faces)
{
    QByteArray content = name + '\0' + word(quint16(faces.size()));
    for (const quint16 face : faces)
        content += word(face);
    return chunk(0x4130, content);
}

QByteArray smoothing(const QVector<quint32> &groups)
{
    QByteArray content;
    for (const quint32 bits : groups)
        content += longWord(bits);
    return chunk(0x4150, content);
}

/// A 3DS file with strips of four triangles, like the sides of a tent that is folded along x = 1, 2 and 3: the first and third go
/// up, the others down.
QByteArray tents(const QVector<QByteArray> &chunksOfFaces)
{
    QByteArray objects;
    for (int o = 0; o < chunksOfFaces.size(); ++o) {
        QByteArray points = word(10);
        for (int v = 0; v < 10; ++v) {
            const float xyz[3] = {float(v / 2), float(v % 2 + 3 * o), v / 2 % 2 ? 1.f : 0.f};
            for (const float value : xyz) {
                quint32 bits;
                std::memcpy(&bits, &value, 4);
                points += longWord(bits);
            }
        }
        QByteArray faces = word(8);
        for (int f = 0; f < 8; ++f) {
            const int v = 2 * (f / 2);
            const int even[3] = {v, v + 2, v + 1};
            const int odd[3] = {v + 1, v + 2, v + 3};
            for (int i = 0; i < 3; ++i)
                faces += word(quint16(f % 2 ? odd[i] : even[i]));
            faces += word(7);
        }
        objects += chunk(0x4000,
            "tent" + QByteArray::number(o) + '\0'
                + chunk(0x4100, chunk(0x4110, points) + chunk(0x4120, faces + chunksOfFaces[o])));
    }
    return chunk(0x4d4d, chunk(0x3d3d, material("a") + material("b") + objects));
}

/// How far normals are from those of their triangles, by the number of the fold, 1 to 3: the largest angle of the corners on it.
QVector<double> anglesByFold(const ImportedScene &scene, int tent = 0)
{
    QVector<double> angles(5);
    for (const ImportedItem &item : scene.items) {
        const ImportedMesh &mesh = scene.meshes[item.mesh];
        for (int i = 0; i + 2 < mesh.indices.size(); ++i) {
            const int first = i / 3 * 3;
            const auto at = [&](int corner) {
                return item.modelMatrix.map(mesh.positions[int(mesh.indices[first + corner])]);
            };
            const QVector3D face = QVector3D::normal(at(0), at(1), at(2));
            const QVector3D place = at(i % 3);
            if (std::floor(place.y() / 3) != tent)
                continue;
            const QVector3D normal = item.modelMatrix.mapVector(mesh.normals[int(mesh.indices[i])]).normalized();
            double &angle = angles[qRound(place.x())];
            angle = std::max(angle, std::acos(std::min(double(QVector3D::dotProduct(face, normal)), 1.0)));
        }
    }
    return angles;
}

ImportedScene sceneOf(const QVector<QByteArray> &chunksOfFaces)
{
    TemporaryFolder folder;
    const ImportedScene scene = importScene(folder.write("a.3ds", tents(chunksOfFaces)));
    EXPECT_EQ(scene.warnings, QStringList());
    return scene;
}

void expectFolds(const QVector<double> &angles, const QVector<bool> &areSmooth)
{
    for (int fold = 1; fold <= 3; ++fold) { // of 90 degrees
        if (areSmooth[fold - 1]) {
            EXPECT_GT(angles[fold], 0.4) << "fold " << fold;
        } else {
            EXPECT_LT(angles[fold], 0.01) << "fold " << fold;
        }
    }
}

} // namespace

TEST(FlatFacesTest, facesOf3dsWithoutASmoothingGroupAreFlat)
{
    {
        SCOPED_TRACE("no groups at all");
        expectFolds(anglesByFold(sceneOf({QByteArray()})), {false, false, false});
    }
    {
        SCOPED_TRACE("one group");
        expectFolds(anglesByFold(sceneOf({smoothing({1, 1, 1, 1, 1, 1, 1, 1})})), {true, true, true});
    }
    {
        SCOPED_TRACE("two sides of one group, one of none, one of another");
        expectFolds(anglesByFold(sceneOf({smoothing({1, 1, 1, 1, 0, 0, 2, 2})})), {true, false, false});
    }
    {
        SCOPED_TRACE("groups that share a bit");
        expectFolds(anglesByFold(sceneOf({smoothing({0, 0, 1, 1, 3, 3, 2, 2})})), {false, true, true});
    }
}

TEST(FlatFacesTest, smoothingOf3dsGoesOnAcrossMaterials)
{
    // The faces of a material are not in one piece, and the rest has none.
    const QByteArray groups = group("b", {2, 3, 6, 7}) + group("a", {0, 1});
    const ImportedScene scene = sceneOf({groups + smoothing({1, 1, 1, 1, 0, 0, 0, 0})});
    EXPECT_GE(scene.items.size(), 2);
    expectFolds(anglesByFold(scene), {true, false, false});
}

TEST(FlatFacesTest, eachMeshOf3dsHasItsOwnGroups)
{
    const ImportedScene scene = sceneOf({smoothing({1, 1, 1, 1, 1, 1, 1, 1}),
        group("a", {0, 1, 2, 3}) + smoothing({0, 0, 0, 0, 4, 4, 4, 4}), QByteArray()});
    expectFolds(anglesByFold(scene, 0), {true, true, true});
    expectFolds(anglesByFold(scene, 1), {false, false, true});
    expectFolds(anglesByFold(scene, 2), {false, false, false});
}

/// A file that was cut anywhere is read or refused, in good order.
TEST(FlatFacesTest, damaged3dsFilesDoNoHarm)
{
    TemporaryFolder folder;
    const QByteArray whole = tents({group("b", {2, 3, 6, 7}) + smoothing({1, 1, 1, 1, 0, 0, 0, 0})});
    for (int size = 1; size < whole.size(); size += 11) {
        ImportedScene scene;
        QString error;
        const bool isRead = importModel(folder.write("a.3ds", whole.left(size)), &scene, &error);
        EXPECT_NE(isRead, !error.isEmpty());
    }
}

} // namespace Velmora::Kvz
