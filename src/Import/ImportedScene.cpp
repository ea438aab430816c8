// SPDX-License-Identifier: MIT
#include <Import/ImportedScene.h>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

QVector<QVector3D> ImportedScene::points() const
{
    QVector<QVector3D> points;
    for (const ImportedItem &item : items) {
        for (const QVector3D &position : meshes[item.mesh].positions)
            points.append(item.modelMatrix.map(position));
    }
    return points;
}

QSharedPointer<GPUModel> ImportedScene::build() const
{
    GPUModelBuilder builder;
    for (const MeshData &mesh : meshes)
        builder.addMesh(mesh);
    for (const MaterialData &material : materials)
        builder.addMaterial(material);
    for (const ImportedItem &item : items)
        builder.addItem(item.mesh, item.material, item.modelMatrix, item.featureFlags);
    return builder.build();
}

void addFloor(ImportedScene *scene)
{
    constexpr float most = std::numeric_limits<float>::max();
    QVector3D low(most, most, most);
    QVector3D high = -low;
    const QVector<QVector3D> points = scene->points();
    for (const QVector3D &point : points) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], point[axis]);
            high[axis] = std::max(high[axis], point[axis]);
        }
    }
    const QVector3D extent = high - low;
    const float half = std::max(extent.x(), extent.z()) / 2 + std::max(extent.y(), 0.0f);
    if (scene->items.isEmpty() || half <= 0)
        return;

    MeshData mesh;
    for (const QVector2D &corner : {QVector2D(-1, 1), QVector2D(1, 1), QVector2D(1, -1), QVector2D(-1, -1)}) {
        mesh.positions.append(
            {(low.x() + high.x()) / 2 + corner.x() * half, low.y(), (low.z() + high.z()) / 2 + corner.y() * half});
        mesh.normals.append({0, 1, 0});
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    MaterialData material;
    material.kd = {0.75f, 0.75f, 0.75f};

    ImportedItem item;
    item.name = QStringLiteral("floor");
    item.mesh = scene->meshes.size();
    item.material = scene->materials.size();
    scene->meshes.append(mesh);
    scene->materials.append(material);
    scene->items.append(item);
}

} // namespace Velmora::Kvz
