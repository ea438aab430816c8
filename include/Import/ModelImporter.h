// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

#include <QtCore/QString>

namespace Velmora::Kvz {

/// Reads a model file: OBJ with MTL, glTF and GLB, PLY, STL, 3DS and whatever else assimp knows. Needs no context. glTF 2 is read
/// by a library of its own: KHR_mesh_quantization, KHR_texture_transform, EXT_mesh_gpu_instancing and EXT_meshopt_compression
/// are honoured.
///
/// What a file leaves out is made:
/// - Normals are smooth, the mean of the triangles around a point by their angles; edges sharper than 80 degrees stay hard.
///   So are those of STL, whose facets carry none of their own. Where the normals of a mesh are against its winding,
///   whichever of the two points inwards is turned, with a warning.
/// - Texture coordinates are a box projection: each triangle along the axis that it faces most, one texture to the
///   largest extent of the mesh.
/// - Meshes without a material are light grey with a soft highlight, or white where they have colours of their own.
///
/// Nodes become items: a mesh with two parents is one mesh and two items, and so are the instances of a node. Triangles without
/// area are left out. Corners that share no vertex in the file are welded where they agree, and ordered for the vertex
/// cache; indexed meshes keep their order. Points and lines are sets of their own, which build() leaves out: a warning counts
/// them. Skins and morph targets stay in bind pose, with a warning. The axis that the file says points up becomes y; a file that
/// says nothing has y up.
///
/// Materials keep their MTL values; an exponent of 0, which formats without one report, means no highlight. Materials
/// given as base colour B, metallic M and roughness R (their maps count by their mean) become
/// - kd = B (1 - M/2): without surroundings to mirror, half of a metal's light is spread as if it were diffuse;
/// - ns = 2 / R^4 - 2, from 1 to 1024;
/// - ks = F (1 - R) min((ns + 8) / 8, 1 / max(F)), where F = 0.04 (1 - M) + B M is the reflectance head-on: a sharp
///   highlight is bright, a broad one fades.
/// Opacity is d, but 1 for glTF materials whose alpha mode is not BLEND, and for COLLADA's 0, which exporters write for
/// opaque surfaces. An image of the opacity (map_d) becomes the alpha of the diffuse image. The basic passes do not
/// blend by it, but ModelRenderPass can cut holes by it.
///
/// Images are PNG, JPEG, TGA, BMP, GIF and whatever else Qt's plugins know, such as WebP; 16 bits a channel are rounded to 8. An
/// emissive image without a colour beside it shines as it is, but in glTF, where that means not at all.
///
/// Textures are looked for in the file itself, at their path beside the model file, then by bare name beside it, then in both ways
/// without regard to upper and lower case where one file alone fits; of the list of places of an X3D image the first one that can
/// be read is taken. Two sets of texture coordinates and one of vertex colours are read. Each texture that cannot be read, or that
/// is laid out by another set, gives a warning that names it with the file and material, and white takes its place. Each material
/// library that cannot be read gives a warning that names it with the file: for OBJ the library of the model's own name takes
/// its place, else its materials are grey.
///
/// False, with `scene` untouched and one line in `error` that names the file, when there is nothing to draw: no such
/// file, a directory, an unknown type, a damaged or truncated file, no triangles, an index past the end of its mesh,
/// texture coordinates or normals that are not there, a position or matrix that is not finite, a header that declares more than
/// its file can hold, a required glTF extension that is not read, an animation or axis that is not there; and when one of the
/// limits is passed. One import at a time: all threads share the log of assimp.
KVZ_HOST_EXPORT bool importModel(
    const QString &file, const ImportOptions &options, ImportedScene *scene, QString *error);
/// The same with options as they are by default: limits that grow with the size of the file.
KVZ_HOST_EXPORT bool importModel(const QString &file, ImportedScene *scene, QString *error);

} // namespace Velmora::Kvz
