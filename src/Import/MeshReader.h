// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/GPUModelBuilder.h>

struct aiMesh;
struct aiMaterial;

namespace Velmora::Kvz {

/// The triangles of a mesh that have an area, with normals and texture coordinates that are made where the mesh has none.
/// No indices: there is no such triangle. `cut` is set to the number of faces with fewer than three corners. Indices,
/// positions and the material are to be checked before.
MeshData readMesh(const aiMesh &source, const aiMaterial &material, int *cut);

} // namespace Velmora::Kvz
