// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QImage>
#include <QtGui/QTransform>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <optional>

namespace Velmora::Kvz {

/// Triangles in model space. All arrays but `positions` and `indices` are empty or as many as `positions`; missing normals and
/// texture coordinates count as zeros, missing colours as white. Without indices, three positions in a row make a triangle.
struct MeshData
{
    QVector<QVector3D> positions;
    QVector<QVector3D> normals;
    QVector<QVector2D> texCoords; ///< (0, 0) is the lower left corner of an image.
    QVector<QVector2D> texCoords1; ///< The second set; as in `texCoords`.
    QVector<QVector4D>
        colours; ///< 0 to 1 with straight alpha, kept in 16 bits a channel; multiplied with the base colour.
    QVector<QVector4D> tangents; ///< w is 1 or -1: the bitangent is w cross(normal, tangent).
    QVector<quint32> indices;
};

/// How a material reads one of its images.
struct ImageSampling
{
    enum Wrap { Repeat, MirroredRepeat, ClampToEdge };
    enum Filter { Linear, Nearest };

    QString imageName; ///< What the image is called, for messages; can be empty.
    int uvSet = 0; ///< 0: texCoords, 1: texCoords1.
    QTransform transform; ///< Of texture coordinates whose (0, 0) is the lower left corner; affine.
    Wrap wrapU = Repeat;
    Wrap wrapV = Repeat;
    Filter magnification = Linear; ///< Nearest also keeps pixels square where the image is stored enlarged.
    Filter minification = Linear;
    bool mipmaps = true;
};

/// What passes with physically based light draw of a material beside its alpha, emission and base colour image, with the meaning that
/// glTF gives to these values. Colours are linear.
struct PhysicalMaterialData
{
    QVector3D baseColour{0.8f, 0.8f, 0.8f}; ///< 0 to 1; multiplied with mapKd, which is decoded from sRGB.
    float metallic = 0; ///< 0 to 1; multiplied with the blue of mapMetallicRoughness.
    float roughness = 1; ///< 0 to 1, the square root of the width of GGX; multiplied with its green.
    float normalScale = 1; ///< For x and y of mapNormal.
    float occlusionStrength = 1; ///< 0 to 1: how far the red of mapOcclusion takes from the light of the surroundings.
    float refractiveIndex = 1.5f; ///< From 1 up; 0 stands for infinitely large.
    float specular = 1; ///< 0 to 1: the share of a dielectric's reflection that is there.
    QVector3D specularColour{1, 1, 1}; ///< Of a dielectric's reflection at normal incidence, from 0 up.
    float clearcoat = 0; ///< 0 to 1.
    float clearcoatRoughness = 0; ///< 0 to 1.
    QVector3D sheenColour; ///< 0 to 1.
    float sheenRoughness = 0; ///< 0 to 1.
    bool hasDisplayColours =
        false; ///< Emission and the colours of vertices are as screens show them, and decoded from sRGB.
    QImage mapMetallicRoughness; ///< Null: white, as for the other two.
    QImage mapNormal; ///< Null: the normals of the mesh.
    QImage mapOcclusion;
    ImageSampling mapMetallicRoughnessSampling;
    ImageSampling mapNormalSampling;
    ImageSampling mapOcclusionSampling;
};

/// A material with the meaning that MTL files give to these values.
///
/// The basic passes read kd, ks, ns, d, mapKd and mapKs, sampled with repeat and trilinear filter by the first set of texture
/// coordinates. All the rest is for the passes that light surfaces.
struct MaterialData
{
    enum AlphaMode {
        Opaque, ///< d and all other alphas are ignored.
        Mask, ///< Fragments with an alpha below the cutoff are discarded; the rest is opaque.
        Blend
    };

    QVector3D kd{0.8f, 0.8f, 0.8f}; ///< Diffuse colour, linear, 0 to 1; multiplied with mapKd.
    QVector3D ks; ///< Specular colour, 0 to 1; multiplied with mapKs.
    float ns = 32; ///< Specular exponent, from 0 up.
    float d = 1; ///< Opacity: 0 transparent, 1 opaque; multiplied with the alpha of mapKd and of vertex colours.
    QImage mapKd; ///< Null: white.
    QImage mapKs; ///< Null: white.
    ImageSampling mapKdSampling;
    ImageSampling mapKsSampling;
    QVector3D emission; ///< Emitted light, added to what is reflected; multiplied with mapEmission.
    QImage mapEmission; ///< Null: white.
    ImageSampling mapEmissionSampling;
    AlphaMode alphaMode = Blend;
    float alphaCutoff = 0.5f; ///< Of Mask, 0 to 1.
    bool isLitFromBothSides = true; ///< Surfaces are lit on the side that is seen; otherwise by their normal.
    bool isUnlit = false; ///< The diffuse colour is shown as it is.
    /// For passes with physically based light; without it, physicalFrom() says what they draw. Its images take room in the model.
    std::optional<PhysicalMaterialData> physical;
};

/// The physical material that comes nearest to one with the meaning of MTL files: a dielectric of its diffuse colour, decoded from
/// sRGB, whose roughness gives GGX the width of Blinn's highlight with its exponent, with the specular colour as a factor on the usual
/// reflection. Without a highlight it is fully rough.
KVZ_GL_EXPORT PhysicalMaterialData physicalFrom(const MaterialData &material);

/// The linear values of a colour that is encoded as IEC 61966-2-1 (sRGB) says; channels from 0 up.
KVZ_GL_EXPORT QVector3D linearFromSRgb(const QVector3D &colour);

/// Whether any pixel has an alpha below 1: many images have an alpha channel without using it.
KVZ_GL_EXPORT bool isSeeThrough(const QImage &image);

/// Whether a surface of this material and mesh has alphas below 1 that are blended.
KVZ_GL_EXPORT bool letsLightThrough(const MaterialData &material, const MeshData &mesh);

} // namespace Velmora::Kvz
