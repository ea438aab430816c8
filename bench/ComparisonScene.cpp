// SPDX-License-Identifier: MIT
#include "ComparisonScene.h"

#include "Scenery.h"

#include <Import/ModelImporter.h>

#include <QtGui/QColor>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString bunnyFile = QStringLiteral("/usr/share/glmark2/models/bunny.obj");
constexpr float fullTurn = 6.28318531f;

QMatrix4x4 placed(const QVector3D &position, const QVector3D &scale)
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.scale(scale);
    return matrix;
}

/// A closed tube around a trefoil.
MeshData knot(int along, int around)
{
    const auto centre = [](float turn) {
        const float angle = fullTurn * turn;
        const float reach = 2 + std::cos(3 * angle);
        return QVector3D(reach * std::cos(2 * angle), reach * std::sin(2 * angle), std::sin(3 * angle));
    };
    return gridMesh(along, around, [centre](float column, float row) {
        const QVector3D tangent = (centre(column + 0.001f) - centre(column - 0.001f)).normalized();
        const QVector3D side = QVector3D::crossProduct(tangent, QVector3D(0, 0, 1)).normalized();
        const QVector3D up = QVector3D::crossProduct(side, tangent);
        const float angle = -fullTurn * row;
        const QVector3D normal = std::cos(angle) * side + std::sin(angle) * up;
        return GridVertex{centre(column) + 0.5f * normal, normal};
    });
}

/// A turned pot, open at its top.
MeshData pot(int around, int rows)
{
    return gridMesh(around, rows, [](float column, float row) {
        const float angle = fullTurn * column;
        const auto radius = [](float r) { return 0.25f + 0.75f * std::sin(0.9f * (r + 0.06f) * fullTurn / 2); };
        const float slope = (radius(row + 0.001f) - radius(row - 0.001f)) / 0.002f;
        const QVector3D outwards(std::sin(angle), 0, std::cos(angle));
        return GridVertex{radius(row) * outwards + QVector3D(0, 1.4f * (1 - row), 0),
            (outwards * 1.4f + QVector3D(0, slope, 0)).normalized()};
    });
}

/// From -1 to 1.
MeshData box()
{
    MeshData mesh;
    for (int side = 0; side < 6; ++side) {
        QVector3D normal;
        normal[side / 2] = side % 2 == 0 ? 1 : -1;
        const QVector3D right(normal.y(), normal.z(), normal.x());
        const QVector3D up = QVector3D::crossProduct(normal, right);
        const auto first = quint32(mesh.positions.size());
        for (const QVector2D &corner : {QVector2D(-1, -1), QVector2D(1, -1), QVector2D(1, 1), QVector2D(-1, 1)}) {
            mesh.positions.append(normal + corner.x() * right + corner.y() * up);
            mesh.normals.append(normal);
        }
        mesh.indices << first << first + 1 << first + 2 << first << first + 2 << first + 3;
    }
    return mesh;
}

MeshData ground()
{
    MeshData mesh;
    mesh.positions = {{-4, 0, 4}, {4, 0, 4}, {4, 0, -4}, {-4, 0, -4}};
    mesh.normals = QVector<QVector3D>(4, QVector3D(0, 1, 0));
    mesh.indices = {0, 1, 2, 0, 2, 3};
    return mesh;
}

} // namespace

bool ComparisonScene::loadWhole(QString *error)
{
    ImportedScene file;
    if (!importModel(bunnyFile, &file, error))
        return false;
    *this = ofFewTriangles();
    const QVector<QVector3D> corners = file.points();
    QVector3D low = corners.first();
    QVector3D high = low;
    for (const QVector3D &corner : corners) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], corner[axis]);
            high[axis] = std::max(high[axis], corner[axis]);
        }
    }
    const float scale = 2.2f / (high.y() - low.y());
    const QVector3D foot = scale * QVector3D((low.x() + high.x()) / 2, low.y(), (low.z() + high.z()) / 2);
    for (const ImportedItem &item : qAsConst(file.items)) {
        items.append(
            {file.meshes[item.mesh], {0.75f, 0.6f, 0.5f}, placed(-foot, {scale, scale, scale}) * item.modelMatrix});
    }
    items.append({knot(362, 66), {0.3f, 0.55f, 0.45f}, placed({-2.1f, 1, -0.6f}, {0.3f, 0.3f, 0.3f})});
    items.append({pot(31, 16), {0.45f, 0.5f, 0.75f}, placed({2, 0, 0.8f}, {0.7f, 0.7f, 0.7f})});
    return true;
}

ComparisonScene ComparisonScene::ofFewTriangles()
{
    ComparisonScene scene;
    scene.items.append({ground(), {0.7f, 0.7f, 0.7f}, QMatrix4x4()});
    constexpr int boxes = 23;
    for (int i = 0; i < boxes; ++i) {
        const float angle = fullTurn * float(i) / boxes;
        const float height = 0.2f + 0.5f * std::abs(std::sin(5 * angle));
        const QColor colour = QColor::fromHsvF(double(i) / boxes, 0.4, 0.8);
        scene.items.append({box(), {float(colour.redF()), float(colour.greenF()), float(colour.blueF())},
            placed({3.3f * std::sin(angle), height, 3.3f * std::cos(angle)}, {0.25f, height, 0.25f})});
    }
    return scene;
}

int ComparisonScene::triangles() const
{
    int count = 0;
    for (const Item &item : items)
        count += item.mesh.indices.size() / 3;
    return count;
}

QVector<QVector3D> ComparisonScene::points() const
{
    QVector<QVector3D> points;
    for (const Item &item : items) {
        for (const QVector3D &position : item.mesh.positions)
            points.append(item.modelMatrix.map(position));
    }
    return points;
}

} // namespace Velmora::Kvz
