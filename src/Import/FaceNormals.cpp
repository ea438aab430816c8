// SPDX-License-Identifier: MIT
#include "FaceNormals.h"

#include <assimp/mesh.h>

#include <QtCore/QtGlobal>

namespace Velmora::Kvz {

aiVector3D areaNormal(const aiMesh &mesh, unsigned number)
{
    const aiFace &face = mesh.mFaces[number];
    aiVector3D sum;
    for (unsigned i = 1; i + 1 < face.mNumIndices; ++i) {
        const aiVector3D &origin = mesh.mVertices[face.mIndices[0]];
        sum += (mesh.mVertices[face.mIndices[i]] - origin) ^ (mesh.mVertices[face.mIndices[i + 1]] - origin);
    }
    return sum;
}

bool hasNormalsByFace(const aiMesh &mesh)
{
    quint64 corners = 0;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f)
        corners += mesh.mFaces[f].mNumIndices;
    return mesh.mNormals && corners == mesh.mNumVertices;
}

void makeFlat(aiMesh *mesh, unsigned number)
{
    aiVector3D normal = areaNormal(*mesh, number);
    if (normal.SquareLength() > 0)
        normal.Normalize();
    const aiFace &face = mesh->mFaces[number];
    for (unsigned i = 0; i < face.mNumIndices; ++i)
        mesh->mNormals[face.mIndices[i]] = normal;
}

} // namespace Velmora::Kvz
