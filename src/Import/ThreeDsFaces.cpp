// SPDX-License-Identifier: MIT
#include "ThreeDsFaces.h"

#include "FaceNormals.h"

#include <assimp/scene.h>

#include <QtCore/QtEndian>

#include <algorithm>
#include <array>
#include <map>

namespace Velmora::Kvz {

namespace {

enum Chunk : quint16 {
    mainChunk = 0x4d4d,
    editorChunk = 0x3d3d,
    objectChunk = 0x4000,
    meshChunk = 0x4100,
    facesChunk = 0x4120,
    materialChunk = 0x4130,
    smoothingChunk = 0x4150
};

constexpr int chunkHeader = 6;
constexpr int faceSize = 8; // three corners and flags

template <typename T> T littleEndian(const QByteArray &content, int at)
{
    return qFromLittleEndian<T>(content.constData() + at);
}

/// Calls `function(kind, begin, end)` for each chunk in a range.
template <typename Function> void eachChunk(const QByteArray &content, int begin, int end, Function function)
{
    while (begin + chunkHeader <= end) {
        const quint32 size = littleEndian<quint32>(content, begin + 2);
        if (size < chunkHeader || size > quint32(end - begin))
            return;
        function(littleEndian<quint16>(content, begin), begin + chunkHeader, begin + int(size));
        begin += int(size);
    }
}

/// The place behind a text that ends with a zero.
int behindText(const QByteArray &content, int begin, int end)
{
    const int zero = content.indexOf('\0', begin);
    return zero < 0 || zero >= end ? end : zero + 1;
}

struct Corner
{
    aiMesh *mesh;
    unsigned face;
    unsigned vertex;
    quint32 smoothing;
};

/// Normals of faces that share a position and a group are one.
void setNormals(const std::vector<Corner> &corners)
{
    std::map<std::array<float, 3>, std::vector<size_t>> places;
    for (size_t c = 0; c < corners.size(); ++c) {
        const aiVector3D &at = corners[c].mesh->mVertices[corners[c].vertex];
        places[{at.x, at.y, at.z}].push_back(c);
    }
    for (const auto &place : places) {
        for (const size_t c : place.second) {
            aiVector3D sum;
            for (const size_t other : place.second) {
                if (other == c || (corners[other].smoothing & corners[c].smoothing) != 0)
                    sum += areaNormal(*corners[other].mesh, corners[other].face);
            }
            if (sum.SquareLength() > 0)
                corners[c].mesh->mNormals[corners[c].vertex] = sum.Normalize();
        }
    }
}

} // namespace

ThreeDsFaces::ThreeDsFaces(const QByteArray &content)
{
    readChunks(content, 0, content.size(), 0);
}

void ThreeDsFaces::readChunks(const QByteArray &content, int begin, int end, int depth)
{
    static constexpr quint16 path[] = {mainChunk, editorChunk, objectChunk, meshChunk, facesChunk};
    eachChunk(content, begin, end, [&](quint16 kind, int from, int to) {
        if (kind != path[depth])
            return;
        if (kind == facesChunk)
            readFaces(content, from, to);
        else
            readChunks(content, kind == objectChunk ? behindText(content, from, to) : from, to, depth + 1);
    });
}

void ThreeDsFaces::readFaces(const QByteArray &content, int begin, int end)
{
    if (end - begin < 2)
        return;
    const size_t count = littleEndian<quint16>(content, begin);
    begin += 2 + faceSize * int(count);
    if (count == 0 || begin > end)
        return;
    Mesh mesh;
    mesh.smoothing.assign(count, 0);
    std::vector<bool> hasMaterial(count);
    eachChunk(content, begin, end, [&](quint16 kind, int from, int to) {
        if (kind == smoothingChunk) {
            for (size_t f = 0; f < count && from + 4 * int(f + 1) <= to; ++f)
                mesh.smoothing[f] = littleEndian<quint32>(content, from + 4 * int(f));
        } else if (kind == materialChunk) {
            const int behind = behindText(content, from, to);
            Group group;
            group.material = content.mid(from, behind - from - 1);
            for (int at = behind + 2; at + 2 <= to; at += 2) {
                const size_t face = littleEndian<quint16>(content, at);
                if (face < count && !hasMaterial[face]) {
                    hasMaterial[face] = true;
                    group.faces.push_back(face);
                }
            }
            std::sort(group.faces.begin(), group.faces.end());
            mesh.groups.push_back(group);
        }
    });
    Group rest;
    for (size_t f = 0; f < count; ++f) {
        if (!hasMaterial[f])
            rest.faces.push_back(f);
    }
    mesh.groups.push_back(rest);
    mesh.groups.erase(
        std::remove_if(mesh.groups.begin(), mesh.groups.end(), [](const Group &group) { return group.faces.empty(); }),
        mesh.groups.end());
    m_meshes.push_back(mesh);
}

/// Assimp makes a mesh for each material of one of the file, in the order of these.
void ThreeDsFaces::complete(const aiScene *scene) const
{
    unsigned next = 0;
    for (const Mesh &mesh : m_meshes) {
        std::vector<bool> isTaken(mesh.groups.size());
        std::vector<Corner> corners;
        for (size_t g = 0; g < mesh.groups.size(); ++g, ++next) {
            if (next >= scene->mNumMeshes)
                return;
            aiMesh *const part = scene->mMeshes[next];
            const aiString name = scene->mMaterials[part->mMaterialIndex]->GetName();
            const auto fits = [&](size_t group) {
                return !isTaken[group] && mesh.groups[group].faces.size() == part->mNumFaces;
            };
            // Faces without a material may be given another of the file's.
            size_t found = mesh.groups.size();
            for (size_t group = 0; group < mesh.groups.size(); ++group) {
                if (fits(group) && (found == mesh.groups.size() || mesh.groups[group].material == name.C_Str()))
                    found = group;
            }
            if (found == mesh.groups.size() || !hasNormalsByFace(*part))
                return; // of another order than is known
            isTaken[found] = true;
            for (unsigned f = 0; f < part->mNumFaces; ++f) {
                for (unsigned i = 0; i < part->mFaces[f].mNumIndices; ++i)
                    corners.push_back(
                        {part, f, part->mFaces[f].mIndices[i], mesh.smoothing[mesh.groups[found].faces[f]]});
            }
        }
        if (std::find(mesh.smoothing.begin(), mesh.smoothing.end(), 0u) != mesh.smoothing.end())
            setNormals(corners);
    }
}

} // namespace Velmora::Kvz
