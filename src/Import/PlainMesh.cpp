// SPDX-License-Identifier: MIT
#include "PlainMesh.h"

#include "FormatNames.h"
#include "ImportBudget.h"
#include "MaterialModel.h"
#include "MeshCompletion.h"
#include "NodePose.h"
#include "PlyReader.h"
#include "PositionTable.h"
#include "StlReader.h"
#include "ZeroRounding.h"

#include <assimp/cimport.h>
#include <assimp/importerdesc.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <vector>

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

/// Joins vertices of one position in a mesh that has nothing else.
void joinPositions(ImportedMesh *mesh)
{
    const int count = mesh->positions.size();
    PositionTable table{size_t(count)};
    std::vector<quint32> numbers;
    numbers.reserve(size_t(count));
    for (int v = 0; v < count; ++v) {
        table.prefetch(mesh->positions.at(std::min(v + 16, count - 1)));
        numbers.push_back(table.numberOf(mesh->positions.at(v)));
    }
    if (table.positions().size() == numbers.size())
        return;
    mesh->positions.resize(int(table.positions().size()));
    std::copy(table.positions().begin(), table.positions().end(), mesh->positions.begin());
    for (quint32 &index : mesh->indices)
        index = numbers[index];
}

/// Takes coordinates for zero that are so but for rounding errors; returns whether there are any.
bool roundToZero(ImportedMesh *mesh)
{
    auto *const coordinates = reinterpret_cast<float *>(mesh->positions.data());
    const auto count = size_t(mesh->positions.size());
    return ZeroRounding(coordinates, count).apply(coordinates, count);
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
    const bool isUnshared = !isDistinct && mesh.positions.size() > mesh.indices.size() / 3;
    const bool hasRounded = (isDistinct || isUnshared) && roundToZero(&mesh);
    if (isUnshared)
        weld(&mesh);
    else if (hasRounded)
        joinPositions(&mesh);
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
