// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportedScene.h>

struct aiMaterial;
struct aiMesh;

namespace Velmora::Kvz {

/// A mesh and what was found on the way.
struct MeshReading
{
    ImportedMesh mesh; ///< No indices: there is no triangle with an area.
    int cutFaces = 0; ///< Faces with fewer than three corners.
    QString remark; ///< What was turned; empty: nothing.
};

/// The triangles of a mesh that have an area, with normals and texture coordinates that are made where the mesh has none. Corners
/// that share no vertices are welded where they agree, and such meshes are ordered for the vertex cache. Normals of
/// facets say nothing that the triangles do not: they are made again, smooth. Indices and positions are to be checked before.
MeshReading readMesh(const aiMesh &source, const aiMaterial &material, bool hasFacetNormals);

} // namespace Velmora::Kvz
