// SPDX-License-Identifier: MIT
#pragma once

#include <assimp/vector3.h>

struct aiMesh;

namespace Velmora::Kvz {

/// The normal of a face of any number of corners, as long as twice its area.
aiVector3D areaNormal(const aiMesh &mesh, unsigned face);

/// Whether no two faces of a mesh share a vertex, and all vertices have normals: then a face can have normals of its own.
bool hasNormalsByFace(const aiMesh &mesh);

/// Gives the corners of a face its own normal.
void makeFlat(aiMesh *mesh, unsigned face);

} // namespace Velmora::Kvz
