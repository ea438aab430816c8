// SPDX-License-Identifier: MIT
#include <Import/SceneFacts.h>

#include <QtCore/QSet>

#include <algorithm>
#include <set>
#include <utility>

namespace Velmora::Kvz {

namespace {

constexpr qint64 vertexBytes = 2 * sizeof(QVector3D) + sizeof(QVector2D);
constexpr qint64 extraBytes = 8; // a vertex's colour, second texture coordinates or tangent
constexpr qint64 itemBytes = 3 * 16 * sizeof(float) // model, normal and previous matrix
    + (12 + 40) * sizeof(float) // material, for the basic passes and for those that light surfaces
    + 5 * sizeof(quint32); // draw command

void include(const QVector<QVector3D> &positions, const QMatrix4x4 &modelMatrix, SceneFacts *facts)
{
    for (const QVector3D &position : positions) {
        const QVector3D point = modelMatrix.map(position);
        if (!facts->hasBounds)
            facts->low = facts->high = point;
        facts->hasBounds = true;
        for (int axis = 0; axis < 3; ++axis) {
            facts->low[axis] = std::min(facts->low[axis], point[axis]);
            facts->high[axis] = std::max(facts->high[axis], point[axis]);
        }
    }
}

/// An image as RGBA8 with all mip levels.
qint64 imageBytes(const QImage &image)
{
    qint64 bytes = 0;
    QSize size = image.size();
    while (!size.isEmpty()) {
        bytes += 4 * qint64(size.width()) * size.height();
        if (size == QSize(1, 1))
            break;
        size = QSize(std::max(1, size.width() / 2), std::max(1, size.height() / 2));
    }
    return bytes;
}

} // namespace

SceneFacts factsOf(const ImportedScene &scene)
{
    SceneFacts facts;
    std::set<std::pair<int, int>> placed; // what takes room: a mesh, per material where that changes its coordinates
    QSet<int> materials;
    for (const ImportedItem &item : scene.items) {
        const ImportedMesh &mesh = scene.meshes[item.mesh];
        facts.triangles += mesh.indices.size() / 3;
        facts.vertices += mesh.positions.size();
        include(mesh.positions, item.modelMatrix, &facts);
        const ImportedTexture &texture = scene.materials[item.material].baseColourTexture;
        const bool isPlain = texture.image < 0 || (texture.uvSet == 0 && texture.transform.isIdentity());
        placed.insert({item.mesh, isPlain ? -1 : item.material});
        materials.insert(item.material);
    }
    for (const ImportedPrimitives &set : scene.pointSets)
        facts.points += set.indices.size();
    for (const ImportedPrimitives &set : scene.lineSets)
        facts.lines += set.indices.size() / 2;
    if (scene.items.isEmpty()) {
        for (const QVector<ImportedPrimitives> *sets : {&scene.pointSets, &scene.lineSets}) {
            for (const ImportedPrimitives &set : *sets)
                include(set.positions, set.modelMatrix, &facts);
        }
    }

    facts.gpuBytes = itemBytes * scene.items.size();
    qint64 vertices = 0;
    bool hasColours = false;
    bool hasTexCoords1 = false;
    bool hasTangents = false;
    for (const std::pair<int, int> &place : placed) {
        const ImportedMesh &mesh = scene.meshes[place.first];
        vertices += mesh.positions.size();
        facts.gpuBytes += qint64(sizeof(quint32)) * mesh.indices.size();
        hasColours |= !mesh.colours.isEmpty();
        hasTexCoords1 |= !mesh.texCoords1.isEmpty();
        hasTangents |= !mesh.tangents.isEmpty();
    }
    // What one mesh has of these, all vertices of the model have room for.
    facts.gpuBytes += vertices * (vertexBytes + extraBytes * (int(hasColours) + int(hasTexCoords1) + int(hasTangents)));
    QSet<qint64> images; // one that several materials share is there once
    for (const int number : qAsConst(materials)) {
        const ImportedMaterial &material = scene.materials[number];
        const int emission = material.emissionTexture.image;
        const QImage mapEmission =
            emission >= 0 && emission < scene.images.size() ? scene.images[emission].image : QImage();
        for (const QImage &image : {material.mapKd, material.mapKs, mapEmission}) {
            if (image.isNull() || images.contains(image.cacheKey()))
                continue;
            images.insert(image.cacheKey());
            facts.gpuBytes += imageBytes(image);
        }
    }
    return facts;
}

} // namespace Velmora::Kvz
