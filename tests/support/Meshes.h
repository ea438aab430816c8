// SPDX-License-Identifier: MIT
#pragma once

#include <GL/DrawBuffers.h>
#include <Scene/GPUModelBuilder.h>

#include <memory>

namespace Velmora::Kvz {

/// The box from -1 to 1: each face has `divisions` by `divisions` squares, one flat normal, and texture coordinates from 0
/// to 1. Its triangles are counter-clockwise from outside.
MeshData boxMesh(int divisions = 1);
/// The sphere of radius 1: a box projected onto it, with smooth normals.
MeshData sphereMesh(int divisions);
/// The square from -1 to 1 in the plane y = 0, facing +y, texture coordinates from 0 to 1.
MeshData groundMesh();
/// The square from -1 to 1 in the plane z = 0, facing +z, texture coordinates from 0 to 1.
MeshData wallMesh();
/// The same triangles without an index buffer.
MeshData withoutIndices(const MeshData &mesh);

/// A drawable of the mesh, with indices if the mesh has any.
std::unique_ptr<DrawBuffers> makeDrawBuffers(const MeshData &mesh);
/// The content of a drawable's buffers.
MeshData readMesh(const DrawBuffers &drawBuffers);

} // namespace Velmora::Kvz
