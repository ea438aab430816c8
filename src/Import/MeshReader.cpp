// SPDX-License-Identifier: MIT
#include "MeshReader.h"

#include "AssimpTypes.h"
#include "MeshCompletion.h"
#include "PositionTable.h"
#include "ZeroRounding.h"

#include <assimp/material.h>
#include <assimp/mesh.h>

#include <meshoptimizer.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr unsigned unusedVertex = ~0u; // one that no triangle has

/// What is taken of a mesh; null for what it has not.
struct Arrays
{
    const aiVector3D *positions;
    const aiVector3D *normals;
    const aiVector3D *texCoords;
    const aiVector3D *texCoords1;
    const aiColor4D *colours;
    const aiVector3D *tangents;
    const aiVector3D *bitangents;

    std::vector<meshopt_Stream> streams() const
    {
        std::vector<meshopt_Stream> all{{positions, sizeof(QVector3D), sizeof(aiVector3D)}};
        for (const aiVector3D *array : {normals, tangents, bitangents}) {
            if (array)
                all.push_back({array, sizeof(QVector3D), sizeof(aiVector3D)});
        }
        for (const aiVector3D *array : {texCoords, texCoords1}) {
            if (array)
                all.push_back({array, sizeof(QVector2D), sizeof(aiVector3D)});
        }
        if (colours)
            all.push_back({colours, sizeof(QVector4D), sizeof(aiColor4D)});
        return all;
    }
};

Arrays arraysOf(const aiMesh &mesh, const aiMaterial &material, bool hasFacetNormals)
{
    const TextureSets sets = textureSetsOf(material);
    const bool hasBase = sets.base < AI_MAX_NUMBER_OF_TEXTURECOORDS && mesh.HasTextureCoords(unsigned(sets.base));
    const bool hasOther = sets.other < AI_MAX_NUMBER_OF_TEXTURECOORDS && mesh.HasTextureCoords(unsigned(sets.other));
    const int set = hasBase ? sets.base : 0;
    const int other = hasOther ? sets.other : set == 0 ? 1 : 0;
    const bool hasTangents = mesh.mTangents && mesh.mBitangents && mesh.mNormals && !hasFacetNormals;
    return {mesh.mVertices, hasFacetNormals ? nullptr : mesh.mNormals, mesh.mTextureCoords[set],
        mesh.mTextureCoords[set] ? mesh.mTextureCoords[other] : nullptr, mesh.mColors[0],
        hasTangents ? mesh.mTangents : nullptr, hasTangents ? mesh.mBitangents : nullptr};
}

QVector2D toTexCoord(const aiVector3D &value)
{
    return {value.x, value.y};
}

QVector4D toColour(const aiColor4D &value)
{
    return {value.r, value.g, value.b, value.a};
}

/// Copies `from` to the places that `remap` says, or one by one where it is empty.
template <typename From, typename To>
void copyArray(const From *from, QVector<To> *to, const std::vector<unsigned> &remap, int count, int total,
    To (*convert)(const From &))
{
    if (!from)
        return;
    to->resize(count);
    To *const target = to->data();
    for (int v = 0; v < total; ++v) {
        const unsigned place = remap.empty() ? unsigned(v) : remap[size_t(v)];
        if (place != unusedVertex)
            target[place] = convert(from[v]);
    }
}

ImportedMesh copy(const Arrays &arrays, const std::vector<unsigned> &remap, int count, int total)
{
    ImportedMesh mesh;
    copyArray(arrays.positions, &mesh.positions, remap, count, total, toQVector);
    copyArray(arrays.normals, &mesh.normals, remap, count, total, toQVector);
    copyArray(arrays.texCoords, &mesh.texCoords, remap, count, total, toTexCoord);
    copyArray(arrays.texCoords1, &mesh.texCoords1, remap, count, total, toTexCoord);
    copyArray(arrays.colours, &mesh.colours, remap, count, total, toColour);
    if (!arrays.tangents)
        return mesh;
    mesh.tangents.resize(count);
    for (int v = 0; v < total; ++v) {
        const QVector3D tangent = toQVector(arrays.tangents[v]);
        const QVector3D across = QVector3D::crossProduct(toQVector(arrays.normals[v]), tangent);
        const bool isMirrored = QVector3D::dotProduct(across, toQVector(arrays.bitangents[v])) < 0;
        const unsigned place = remap.empty() ? unsigned(v) : remap[size_t(v)];
        if (place != unusedVertex)
            mesh.tangents[int(place)] = QVector4D(tangent, isMirrored ? -1 : 1);
    }
    return mesh;
}

/// Numbers vertices by their positions in the order of their first use, as meshoptimizer does, with less waiting for memory.
size_t numberPositions(const QVector<quint32> &indices, const aiVector3D *positions, std::vector<unsigned> *remap)
{
    std::fill(remap->begin(), remap->end(), unusedVertex);
    PositionTable table(remap->size() / 6); // of the corners of a closed surface
    const quint32 *const begin = indices.constData();
    const int last = indices.size() - 1;
    for (int i = 0; i <= last; ++i) {
        table.prefetch(toQVector(positions[begin[std::min(i + 16, last)]]));
        unsigned &number = (*remap)[begin[i]];
        if (number == unusedVertex)
            number = table.numberOf(toQVector(positions[begin[i]]));
    }
    return table.positions().size();
}

} // namespace

MeshReading readMesh(const aiMesh &source, const aiMaterial &material, bool hasFacetNormals)
{
    MeshReading result;
    QVector<quint32> indices;
    indices.resize(int(source.mNumFaces) * 3);
    quint32 *last = indices.data();
    for (unsigned f = 0; f < source.mNumFaces; ++f) {
        const aiFace &face = source.mFaces[f];
        if (face.mNumIndices == 3)
            last = std::copy(face.mIndices, face.mIndices + 3, last);
        else
            ++result.cutFaces;
    }
    indices.resize(int(last - indices.data()));
    if (indices.isEmpty())
        return result;

    const Arrays arrays = arraysOf(source, material, hasFacetNormals);
    const int total = int(source.mNumVertices);
    // Loaders of formats without shared vertices make some for each face: three for a triangle, four for two.
    const bool isUnshared = total > indices.size() / 3;
    std::vector<unsigned> remap;
    int count = total;
    Positions positions = Positions::Any;
    if (isUnshared) {
        // Vertices are told apart by their bytes.
        auto *const coordinates = reinterpret_cast<float *>(source.mVertices);
        ZeroRounding(coordinates, size_t(total)).apply(coordinates, size_t(total));
        remap.resize(size_t(total));
        const std::vector<meshopt_Stream> streams = arrays.streams();
        count = int(streams.size() == 1 ? numberPositions(indices, source.mVertices, &remap)
                                        : meshopt_generateVertexRemapMulti(remap.data(), indices.constData(),
                                            size_t(indices.size()), size_t(total), streams.data(), streams.size()));
        meshopt_remapIndexBuffer(indices.data(), indices.constData(), size_t(indices.size()), remap.data());
        if (streams.size() == 1)
            positions = Positions::Distinct;
    }
    result.mesh = copy(arrays, remap, count, total);
    result.mesh.name = toQString(source.mName);
    result.mesh.indices = indices;
    result.remark = completeMesh(&result.mesh, positions);
    if (isUnshared && !result.mesh.indices.isEmpty())
        orderForCache(&result.mesh);
    return result;
}

} // namespace Velmora::Kvz
