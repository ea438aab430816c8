// SPDX-License-Identifier: MIT
#include "SceneReader.h"

#include "AssimpTypes.h"
#include "ImportBudget.h"
#include "MeshReader.h"

#include <assimp/material.h>
#include <assimp/scene.h>

namespace Velmora::Kvz {

QString findProblem(const aiScene *source)
{
    bool hasTriangles = false;
    for (unsigned m = 0; m < source->mNumMeshes; ++m) {
        const aiMesh &mesh = *source->mMeshes[m];
        for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
            if (!isFinite(toQVector(mesh.mVertices[v])))
                return QStringLiteral("%1: the position of vertex %2 is not a finite number")
                    .arg(meshName(mesh), QString::number(v));
        }
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace &face = mesh.mFaces[f];
            hasTriangles |= face.mNumIndices >= 3;
            if (face.mNumIndices == 0)
                return QStringLiteral("%1: face %2 has no corners; is the file truncated?")
                    .arg(meshName(mesh), QString::number(f));
            for (unsigned i = 0; i < face.mNumIndices; ++i) {
                if (face.mIndices[i] >= mesh.mNumVertices)
                    return QStringLiteral("%1: face %2 has index %3, past the end of %4 vertices")
                        .arg(meshName(mesh), QString::number(f), QString::number(int(face.mIndices[i])),
                            QString::number(mesh.mNumVertices));
            }
        }
        if (mesh.mMaterialIndex >= source->mNumMaterials)
            return QStringLiteral("%1: material %2 does not exist")
                .arg(meshName(mesh), QString::number(mesh.mMaterialIndex));
    }
    return hasTriangles ? QString() : noTriangles;
}

SceneReader::SceneReader(const aiScene *source, const QString &file, ImportBudget *budget)
    : m_source(source),
      m_file(file),
      m_budget(budget),
      m_materials(source, file, budget, &m_scene.warnings)
{ }

ImportedScene SceneReader::read()
{
    struct Placed
    {
        const aiNode *node;
        QMatrix4x4 parent;
    };
    // A stack of its own: files nest nodes deeper than a thread's stack reaches.
    QVector<Placed> open{{m_source->mRootNode, QMatrix4x4()}};
    while (!open.isEmpty() && m_budget->isTimeLeft()) {
        const Placed placed = open.takeLast();
        const QMatrix4x4 matrix = placed.parent * toQMatrix(placed.node->mTransformation);
        readNode(*placed.node, matrix);
        for (unsigned c = placed.node->mNumChildren; c-- > 0;)
            open.append({placed.node->mChildren[c], matrix});
    }
    return m_scene;
}

void SceneReader::readNode(const aiNode &node, const QMatrix4x4 &matrix)
{
    for (unsigned m = 0; m < node.mNumMeshes; ++m) {
        const int mesh = node.mMeshes[m] < m_source->mNumMeshes ? meshNumber(node.mMeshes[m]) : -1;
        if (mesh < 0)
            continue;
        const unsigned sourceMaterial = m_source->mMeshes[node.mMeshes[m]]->mMaterialIndex;
        ImportedItem item;
        item.name = toQString(node.mName);
        item.mesh = mesh;
        item.material = materialNumber(sourceMaterial);
        item.modelMatrix = matrix;
        int twoSided = 0;
        m_source->mMaterials[sourceMaterial]->Get(AI_MATKEY_TWOSIDED, twoSided);
        if (twoSided)
            item.featureFlags |= GPUModel::DoubleSided;
        if (m_transparent[item.material])
            item.featureFlags |= ImportedScene::Transparent;
        m_scene.items.append(item);
    }
}

int SceneReader::meshNumber(unsigned sourceNumber)
{
    const auto known = m_meshNumbers.constFind(sourceNumber);
    if (known != m_meshNumbers.constEnd())
        return known.value();
    const aiMesh &source = *m_source->mMeshes[sourceNumber];
    int cut = 0;
    const MeshData mesh = readMesh(source, *m_source->mMaterials[source.mMaterialIndex], &cut);
    // In a mesh of triangles alone a face with fewer corners was cut off; elsewhere the file has points and lines.
    constexpr unsigned pointsAndLines = aiPrimitiveType_POINT | aiPrimitiveType_LINE;
    if (cut > 0 && !(source.mPrimitiveTypes & pointsAndLines))
        m_scene.warnings.append(
            QStringLiteral("%1: %2: faces with fewer than 3 corners are left out (%3); is the file truncated?")
                .arg(m_file, meshName(source), QString::number(cut)));
    int number = -1;
    if (!mesh.indices.isEmpty()) {
        number = m_scene.meshes.size();
        m_scene.meshes.append(mesh);
    }
    m_meshNumbers.insert(sourceNumber, number);
    return number;
}

int SceneReader::materialNumber(unsigned sourceNumber)
{
    const auto known = m_materialNumbers.constFind(sourceNumber);
    if (known != m_materialNumbers.constEnd())
        return known.value();
    const int number = m_scene.materials.size();
    const aiMaterial &source = *m_source->mMaterials[sourceNumber];
    const MaterialData material = m_materials.read(source);
    m_scene.materials.append(material);
    m_transparent.append(isTransparent(source, material));
    m_materialNumbers.insert(sourceNumber, number);
    return number;
}

} // namespace Velmora::Kvz
