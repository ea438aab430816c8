// SPDX-License-Identifier: MIT
#pragma once

struct aiMesh;

namespace Velmora::Kvz {

/// Cuts the concave polygons of a mesh into triangles, by ears (G. H. Meisters, "Polygons Have Ears", 1975), in the plane that fits
/// a polygon best. Assimp's own cutter fills notches whose corner lies on a diagonal. Convex polygons stay as they are, and so do those
/// of more than 1,024 corners, or in which no ear is found, since their edges cross.
void cutConcavePolygons(aiMesh *mesh);

} // namespace Velmora::Kvz
