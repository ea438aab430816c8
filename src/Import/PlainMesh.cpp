// SPDX-License-Identifier: MIT
#include "PlainMesh.h"

#include "FormatNames.h"
#include "ImportBudget.h"
#include "MaterialModel.h"
#include "MeshCompletion.h"
#include "NodePose.h"
#include "PlyReader.h"
#include "StlReader.h"
#include "ZeroRounding.h"

#include <assimp/cimport.h>
#include <assimp/importerdesc.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace Velmora::Kvz {

namespace {

/// The material that assimp makes up for these formats.
ImportedMaterial materialOf(const ImportedMesh &mesh, bool isStl)
{
    ImportedMaterial material = standInMaterial(vertexColoursOf(mesh.colours));
    if (isStl) {
        material.name = QStringLiteral("DefaultMaterial");
        return material;
    }
    material.saysSides = true;
    material.isDoubleSided = true;
    return material;
}

} // namespace

bool readPlainMesh(QFile *file, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene)
{
    const QString suffix = QFileInfo(file->fileName()).suffix().toLower();
    const bool isStl = suffix == QLatin1String("stl");
    QMatrix4x4 root;
    if ((!isStl && suffix != QLatin1String("ply")) || !options.animation.isEmpty() || options.time >= 0
        || (!options.up.isEmpty() && !upMatrix(options.up, &root)))
        return false;
    ImportedMesh mesh;
    if (!(isStl ? readBinaryStl(file, budget, &mesh) : readBinaryPly(file, budget, &mesh)))
        return false;
    const bool isDistinct = isStl && mesh.colours.isEmpty();
    bool isUnshared = !isDistinct && mesh.positions.size() > mesh.indices.size() / 3;
    if (isDistinct || isUnshared) {
        auto *const coordinates = reinterpret_cast<float *>(mesh.positions.data());
        const auto count = size_t(mesh.positions.size());
        isUnshared |= ZeroRounding(coordinates, count).apply(coordinates, count);
    }
    if (isUnshared)
        weld(&mesh);
    const QString remark = completeMesh(&mesh, isDistinct ? Positions::Distinct : Positions::Any);
    if (mesh.indices.isEmpty())
        return false;
    if (isStl || isUnshared)
        orderForCache(&mesh);

    ImportedScene result;
    result.format = formatNameOf(aiGetImporterDesc(isStl ? "stl" : "ply")->mName);
    result.materials.append(materialOf(mesh, isStl));
    result.meshes.append(mesh);
    result.nodes.append(ImportedNode());
    ImportedItem item;
    item.node = 0;
    item.modelMatrix = root;
    item.featureFlags = ItemFlags().of(result, 0, 0);
    result.items.append(item);
    if (!remark.isEmpty())
        result.warnings.append(QStringLiteral("%1: a mesh: %2").arg(file->fileName(), remark));
    *scene = result;
    return true;
}

} // namespace Velmora::Kvz
