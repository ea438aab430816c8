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
};

/// Whether any pixel has an alpha below 1: many images have an alpha channel without using it.
KVZ_GL_EXPORT bool isSeeThrough(const QImage &image);

/// Whether a surface of this material and mesh has alphas below 1 that are blended.
KVZ_GL_EXPORT bool letsLightThrough(const MaterialData &material, const MeshData &mesh);

} // namespace Velmora::Kvz
