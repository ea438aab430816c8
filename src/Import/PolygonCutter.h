// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QVector3D>

#include <vector>

struct aiMesh;

namespace Velmora::Kvz {

/// Cuts the concave polygons of a mesh into triangles, by ears (G. H. Meisters, "Polygons Have Ears", 1975), in the plane that fits
/// a polygon best. Assimp's own cutter fills notches whose corner lies on a diagonal. Convex polygons stay as they are, and so do those
/// of more than 1,024 corners, or in which no ear is found, since their edges cross.
void cutConcavePolygons(aiMesh *mesh);

/// The corners of a polygon with holes in an order that makes it one without: each hole is joined by the shortest seam that crosses
/// nothing, there and back. The first loop is the outline; loops are numbers of corners. Empty where holes lie outside or cross it, or
/// beyond 1,024 corners.
std::vector<unsigned> joinedLoops(
    const std::vector<QVector3D> &corners, const std::vector<std::vector<unsigned>> &loops);

} // namespace Velmora::Kvz
