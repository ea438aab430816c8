// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSet>
#include <QtCore/QString>

namespace Velmora::Kvz {

struct XmlElement;

/// Rewrites the geometry of an X3D shape that assimp 5.2 reads wrongly.
/// - Colours and normals of faces go to the vertices, which faces share.
/// - The crease angle is passed over: by the format faces are flat unless it says else.
/// - Cones stand on their tip, and cylinders have an overlap where they close.
/// Faces get corners of their own, with normals. Parts whose names others use, of which `used` has all, stay as they are.
void rewriteGeometry(XmlElement *geometry, const QSet<QString> &used);

} // namespace Velmora::Kvz
