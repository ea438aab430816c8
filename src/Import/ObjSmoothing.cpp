// SPDX-License-Identifier: MIT
#include "ObjSmoothing.h"

#include "FaceNormals.h"

#include <assimp/mesh.h>
#include <assimp/scene.h>

#include <algorithm>
#include <utility>

namespace Velmora::Kvz {

namespace {

constexpr unsigned fewestCorners = 3; // below are points and lines

template <typename T> T *cornersOf(const T *array, const aiMesh &mesh, const std::vector<bool> &taken, unsigned corners)
{
    if (!array)
        return nullptr;
    T *const copy = new T[corners];
    T *to = copy;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        for (unsigned i = 0; taken[f] && i < mesh.mFaces[f].mNumIndices; ++i)
            *to++ = array[mesh.mFaces[f].mIndices[i]];
    }
    return copy;
}

/// Says which kinds of faces a mesh has; assimp takes the word of this for them to be there.
void setPrimitiveTypes(aiMesh *mesh)
{
    mesh->mPrimitiveTypes = 0;
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        const unsigned corners = mesh->mFaces[f].mNumIndices;
        mesh->mPrimitiveTypes |= corners == 1 ? aiPrimitiveType_POINT
            : corners == 2                    ? aiPrimitiveType_LINE
            : corners == 3                    ? aiPrimitiveType_TRIANGLE
                                              : aiPrimitiveType_POLYGON;
    }
}

/// Moves some of the faces of a mesh into a new one, with vertices of their own. Those of the mesh stay where they are.
aiMesh *takeFaces(aiMesh *mesh, const std::vector<bool> &taken)
{
    unsigned corners = 0;
    for (unsigned f = 0; f < mesh->mNumFaces; ++f)
        corners += taken[f] ? mesh->mFaces[f].mNumIndices : 0;
    auto *const result = new aiMesh;
    result->mName = mesh->mName;
    result->mMaterialIndex = mesh->mMaterialIndex;
    result->mNumVertices = corners;
    result->mVertices = cornersOf(mesh->mVertices, *mesh, taken, corners);
    for (unsigned set = 0; set < AI_MAX_NUMBER_OF_COLOR_SETS; ++set)
        result->mColors[set] = cornersOf(mesh->mColors[set], *mesh, taken, corners);
    for (unsigned set = 0; set < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++set) {
        result->mTextureCoords[set] = cornersOf(mesh->mTextureCoords[set], *mesh, taken, corners);
        result->mNumUVComponents[set] = mesh->mNumUVComponents[set];
    }
    result->mNumFaces = unsigned(std::count(taken.begin(), taken.end(), true));
    result->mFaces = new aiFace[result->mNumFaces];
    unsigned corner = 0;
    unsigned moved = 0;
    unsigned kept = 0;
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        aiFace &to = taken[f] ? result->mFaces[moved++] : mesh->mFaces[kept++];
        if (&to != &mesh->mFaces[f]) {
            std::swap(to.mIndices, mesh->mFaces[f].mIndices);
            std::swap(to.mNumIndices, mesh->mFaces[f].mNumIndices);
        }
        for (unsigned i = 0; taken[f] && i < to.mNumIndices; ++i)
            to.mIndices[i] = corner++;
    }
    mesh->mNumFaces = kept;
    setPrimitiveTypes(mesh);
    setPrimitiveTypes(result);
    return result;
}

/// Puts meshes beside those of these numbers, in all nodes.
void addMeshes(aiScene *scene, const std::vector<std::pair<unsigned, aiMesh *>> &meshes)
{
    auto **const all = new aiMesh *[scene->mNumMeshes + meshes.size()];
    aiMesh **end = std::copy(scene->mMeshes, scene->mMeshes + scene->mNumMeshes, all);
    for (const auto &mesh : meshes)
        *end++ = mesh.second;
    std::vector<aiNode *> open{scene->mRootNode};
    while (!open.empty()) {
        aiNode *const node = open.back();
        open.pop_back();
        open.insert(open.end(), node->mChildren, node->mChildren + node->mNumChildren);
        std::vector<unsigned> numbers(node->mMeshes, node->mMeshes + node->mNumMeshes);
        for (size_t added = 0; added < meshes.size(); ++added) {
            const auto beside = std::find(numbers.begin(), numbers.end(), meshes[added].first);
            if (beside != numbers.end())
                numbers.insert(beside + 1, scene->mNumMeshes + unsigned(added));
        }
        if (numbers.size() == node->mNumMeshes)
            continue;
        delete[] node->mMeshes;
        node->mMeshes = new unsigned[numbers.size()];
        std::copy(numbers.begin(), numbers.end(), node->mMeshes);
        node->mNumMeshes = unsigned(numbers.size());
    }
    delete[] scene->mMeshes;
    scene->mMeshes = all;
    scene->mNumMeshes += unsigned(meshes.size());
}

/// Gives each face of a mesh whose faces share no vertices its own normal; false where they do.
bool makeAllFlat(aiMesh *mesh)
{
    mesh->mNormals = new aiVector3D[mesh->mNumVertices];
    const bool isUnshared = hasNormalsByFace(*mesh);
    for (unsigned f = 0; f < mesh->mNumFaces && isUnshared; ++f)
        makeFlat(mesh, f);
    if (isUnshared)
        return true;
    delete[] mesh->mNormals;
    mesh->mNormals = nullptr;
    return false;
}

} // namespace

void ObjSmoothing::addFace(int corners)
{
    m_hasFlat |= m_isFlat;
    if (m_runs.empty() || m_runs.back().isFlat != m_isFlat)
        m_runs.push_back({m_isFlat, 0, 0});
    ++m_runs.back().faces;
    m_runs.back().corners += size_t(corners);
}

void ObjSmoothing::addObject(bool isGroup, const QByteArray &name)
{
    m_isReordered |= !isGroup && m_objects.contains(name);
    m_objects.insert(name);
}

/// Whether the faces of a scene are those that were seen, in their order. Tells which of them are flat, mesh by mesh.
bool ObjSmoothing::matches(const aiScene &scene, std::vector<std::vector<bool>> *flat) const
{
    if (m_isReordered)
        return false;
    auto run = m_runs.begin();
    Run seen{false, 0, 0};
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh &mesh = *scene.mMeshes[m];
        flat->emplace_back(mesh.mNumFaces, false);
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const unsigned corners = mesh.mFaces[f].mNumIndices;
            if (corners < fewestCorners)
                continue;
            if (run != m_runs.end() && seen.faces == run->faces) {
                if (seen.corners != run->corners)
                    return false;
                ++run;
                seen = {false, 0, 0};
            }
            if (run == m_runs.end())
                return false;
            flat->back()[f] = run->isFlat;
            ++seen.faces;
            seen.corners += corners;
        }
    }
    return run != m_runs.end() && run + 1 == m_runs.end() && seen.faces == run->faces && seen.corners == run->corners;
}

void ObjSmoothing::complete(aiScene *scene)
{
    const bool hasNormals = std::all_of(
        scene->mMeshes, scene->mMeshes + scene->mNumMeshes, [](const aiMesh *mesh) { return mesh->mNormals; });
    if (!m_hasFlat || hasNormals)
        return;
    std::vector<std::vector<bool>> flat;
    m_isLost = !matches(*scene, &flat);
    std::vector<std::pair<unsigned, aiMesh *>> added;
    for (unsigned m = 0; m < scene->mNumMeshes && !m_isLost; ++m) {
        aiMesh *mesh = scene->mMeshes[m];
        const auto count = std::count(flat[m].begin(), flat[m].end(), true);
        if (mesh->mNormals || count == 0)
            continue;
        if (unsigned(count) < mesh->mNumFaces) {
            mesh = takeFaces(mesh, flat[m]);
            added.emplace_back(m, mesh);
        }
        m_isLost |= !makeAllFlat(mesh);
    }
    if (!added.empty())
        addMeshes(scene, added);
}

} // namespace Velmora::Kvz
