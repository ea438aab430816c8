// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportedScene.h>

#include <QtCore/QHash>
#include <QtCore/QPair>

namespace Velmora::Kvz {

/// Whether the vertices of a mesh have colours, and whether light passes through some of them. An opacity of 0 at all vertices says
/// nothing: programs write it that know none.
enum class VertexColours { None, Opaque, Translucent };

VertexColours vertexColoursOf(const QVector<QVector4D> &colours);

/// What stands in for the material of a mesh without one: light grey, or white where the vertices have colours, with a soft
/// highlight.
ImportedMaterial standInMaterial(VertexColours colours = VertexColours::None);

/// Sets kd, ks and ns of a material from its base colour, metallic and roughness. The maps, which may be null, count by the mean
/// of blue and of green. An unlit material shows its base colour alone.
void setPhongFromMetallic(ImportedMaterial *material, const QImage &metallicMap, const QImage &roughnessMap);

/// A colour image with the opacity of another in its alpha: that one's alpha or, without such a channel, its grey. A null
/// colour image is white.
QImage withOpacity(const QImage &colour, const QImage &opacity);

/// A mask as files without a rule for it mean one, of grey or with alpha: without alpha where that is the same at all pixels, since
/// programs write images with one that says nothing.
QImage plainMask(const QImage &mask);

/// The feature bits of items. The images of a material are looked at once, however many items share them.
class ItemFlags
{
public:
    quint64 of(const ImportedScene &scene, int material, int mesh);

private:
    QHash<QPair<int, int>, quint64> m_known; // by material and mesh
};

} // namespace Velmora::Kvz
