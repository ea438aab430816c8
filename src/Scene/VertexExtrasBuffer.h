// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/GPUModel.h>
#include <Scene/ModelData.h>

#include <vector>

namespace Velmora::Kvz {

class VertexArrayObject;

/// A mesh with the number of its first vertex in the model.
struct PlacedMesh
{
    const MeshData *mesh;
    qint64 firstVertex;
};

/// Packs what the meshes have of colours, second texture coordinates and tangents; what one mesh lacks and another has is white,
/// or zeros. Without any of them the result has no buffer.
VertexExtras packVertexExtras(const std::vector<PlacedMesh> &meshes, qint64 vertexCount);

/// Registers the extras as va_Color, va_TexCoord1 and va_Tangent.
void addExtraAttributes(const VertexExtras &extras, VertexArrayObject &vao);

} // namespace Velmora::Kvz
