// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportedScene.h>

#include <vector>

namespace Velmora::Kvz {

/// The direction that a triangle faces, of unit length; zero for one without area. In double precision, since models may be
/// some millionths across.
QVector3D faceNormal(const QVector3D &a, const QVector3D &b, const QVector3D &c);

/// Whether vertices of a mesh are known to have a position each.
enum class Positions { Any, Distinct };

/// Leaves out triangles without area and makes what an indexed mesh lacks: normals where it has none or null ones, texture
/// coordinates where it has none. Vertices are split where triangles disagree, and left out where no triangle uses them; the
/// others keep their order. Where normals and winding disagree, whichever points inwards is turned. Colours that are not finite become
/// white, and such tangents are left out. Returns remarks on all that, apart by semicolons.
QString completeMesh(ImportedMesh *mesh, Positions positions = Positions::Any);

/// Joins vertices that agree in everything.
void weld(ImportedMesh *mesh);

/// Orders triangles for the vertex cache and vertices by their first use. For meshes whose file gives no order of its own.
void orderForCache(ImportedMesh *mesh);

/// Moves the vertices of a mesh: vertex v becomes remap[v], where that is not ~0u, of `count`.
void moveVertices(ImportedMesh *mesh, const std::vector<unsigned> &remap, int count);

} // namespace Velmora::Kvz
