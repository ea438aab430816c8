// SPDX-License-Identifier: MIT
#include <Import/ImportedScene.h>

#include <QtCore/QHash>
#include <QtCore/QPair>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// A mesh with the texture coordinates that a texture asks for.
MeshData withCoordinates(const ImportedMesh &mesh, const ImportedTexture &texture)
{
    MeshData result = mesh;
    if (texture.uvSet == 1 && !mesh.texCoords1.isEmpty())
        result.texCoords = mesh.texCoords1;
    if (texture.transform.isIdentity())
        return result;
    for (QVector2D &texCoord : result.texCoords)
        texCoord = QVector2D(texture.transform.map(texCoord.toPointF()));
    return result;
}

/// The material with its textures where a builder takes them.
MaterialData surfaceOf(const ImportedMaterial &material, const QVector<ImportedImage> &images)
{
    MaterialData result = material;
    const int emission = material.emissionTexture.image;
    if (emission >= 0 && emission < images.size())
        result.mapEmission = images[emission].image;
    result.mapKdSampling = material.baseColourTexture;
    result.mapKsSampling = material.specularTexture;
    result.mapEmissionSampling = material.emissionTexture;
    // d says nothing of masks, whose opacity is the base colour's: compared with a cutoff raised by as much.
    if (material.alphaMode == MaterialData::Mask)
        result.alphaCutoff = material.alphaCutoff / std::max(material.baseColour.w(), 1e-6f);
    result.isLitFromBothSides = material.isDoubleSided || !material.saysSides;
    return result;
}

bool isPlain(const ImportedTexture &texture)
{
    return texture.image < 0 || (texture.uvSet == 0 && texture.transform.isIdentity());
}

} // namespace

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
    for (const ImportedMesh &mesh : meshes)
        builder.addMesh(mesh);
    for (const ImportedMaterial &material : materials)
        builder.addMaterial(surfaceOf(material, images));
    QHash<QPair<int, int>, int> placed; // mesh and material to the builder's mesh
    for (const ImportedItem &item : items) {
        const ImportedTexture texture = item.material >= 0 && item.material < materials.size()
            ? materials[item.material].baseColourTexture
            : ImportedTexture();
        int mesh = item.mesh;
        if (mesh >= 0 && mesh < meshes.size() && !isPlain(texture)) {
            const auto key = qMakePair(mesh, item.material);
            const auto known = placed.constFind(key);
            mesh = known != placed.constEnd() ? known.value() : builder.addMesh(withCoordinates(meshes[mesh], texture));
            placed.insert(key, mesh);
        }
        builder.addItem(mesh, item.material, item.modelMatrix, item.featureFlags);
    }
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

    ImportedMesh mesh;
    for (const QVector2D &corner : {QVector2D(-1, 1), QVector2D(1, 1), QVector2D(1, -1), QVector2D(-1, -1)}) {
        mesh.positions.append(
            {(low.x() + high.x()) / 2 + corner.x() * half, low.y(), (low.z() + high.z()) / 2 + corner.y() * half});
        mesh.normals.append({0, 1, 0});
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    ImportedMaterial material;
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
