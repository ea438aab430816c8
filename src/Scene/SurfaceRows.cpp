// SPDX-License-Identifier: MIT
#include "SurfaceRows.h"

#include <GL/ManagedTextures.h>
#include <Scene/SurfaceFeature.h>

#include <algorithm>
#include <iterator>

namespace Velmora::Kvz {

namespace {

int wrapFlag(ImageSampling::Wrap wrap, int mirrored, int clamped)
{
    switch (wrap) {
    case ImageSampling::Repeat:
        return 0;
    case ImageSampling::MirroredRepeat:
        return mirrored;
    case ImageSampling::ClampToEdge:
        return clamped;
    }
    return 0;
}

/// Whether it emits light or is unlit.
bool isSelfLit(const SurfaceRow &row)
{
    const bool emits =
        std::any_of(std::begin(row.emission), std::end(row.emission), [](float value) { return value != 0; });
    return emits || int(row.flags) & Unlit;
}

} // namespace

int samplingFlags(const ImageSampling &sampling, bool isColour)
{
    int flags = wrapFlag(sampling.wrapU, MirroredU, ClampedU) | wrapFlag(sampling.wrapV, MirroredV, ClampedV);
    if (sampling.magnification == ImageSampling::Nearest)
        flags |= NearestMagnified;
    if (sampling.minification == ImageSampling::Nearest)
        flags |= NearestMinified;
    if (!sampling.mipmaps)
        flags |= WithoutMipmaps;
    if (sampling.uvSet == 1)
        flags |= SecondTexCoords;
    if (isColour)
        flags |= SRgbEncoded;
    return flags;
}

int surfaceFlags(const MaterialData &material)
{
    int flags = 0;
    if (material.isLitFromBothSides)
        flags |= LitFromBothSides;
    if (material.isUnlit)
        flags |= Unlit;
    if (material.alphaMode == MaterialData::Mask)
        flags |= Masked;
    if (material.alphaMode == MaterialData::Blend)
        flags |= Blended;
    return flags;
}

namespace {

void store(const QVector3D &vector, float *target)
{
    for (int i = 0; i < 3; ++i)
        target[i] = vector[i];
}

/// The two rows of a transform that give u and v for (u, v, 1).
void store(const QTransform &transform, float *u, float *v)
{
    store(QVector3D(float(transform.m11()), float(transform.m21()), float(transform.m31())), u);
    store(QVector3D(float(transform.m12()), float(transform.m22()), float(transform.m32())), v);
}

} // namespace

int mapFeatures(int map, float handle, float sampling)
{
    if (handle <= 0)
        return 0;
    const int flags = int(sampling);
    constexpr int modes =
        MirroredU | ClampedU | MirroredV | ClampedV | NearestMagnified | NearestMinified | WithoutMipmaps;
    int features = map | (SurfaceFirstImageArray << ManagedTextures::arrayOf(int(handle)));
    if (flags & modes)
        features |= SurfaceImageModes;
    if (flags & SecondTexCoords)
        features |= SurfaceSecondTexCoords;
    return features;
}

int surfaceFeatures(const SurfaceRow &row)
{
    return mapFeatures(SurfaceBaseColourMap, row.baseColourMap, row.baseColourMapSampling)
        | mapFeatures(SurfaceSpecularMap, row.specularMap, row.specularMapSampling)
        | mapFeatures(SurfaceEmissionMap, row.emissionMap, row.emissionMapSampling)
        | (int(row.flags) & Masked ? SurfaceMask : 0) | (isSelfLit(row) ? SurfaceEmission : 0);
}

SurfaceRow surfaceRow(const MaterialData &material, const SurfaceImages &images, int number)
{
    SurfaceRow row = {};
    store(material.kd, row.baseColour);
    row.opacity = material.d;
    store(material.ks, row.specularColour);
    row.shininess = material.ns;
    store(material.emission, row.emission);
    row.alphaCutoff = material.alphaCutoff;
    row.baseColourMap = float(images.kd);
    row.specularMap = float(images.ks);
    row.emissionMap = float(images.emission);
    row.flags = float(surfaceFlags(material));
    row.number = float(number);
    store(material.mapKdSampling.transform, row.baseColourMapU, row.baseColourMapV);
    store(material.mapKsSampling.transform, row.specularMapU, row.specularMapV);
    store(material.mapEmissionSampling.transform, row.emissionMapU, row.emissionMapV);
    row.baseColourMapSampling = float(samplingFlags(material.mapKdSampling, true));
    row.specularMapSampling = float(samplingFlags(material.mapKsSampling, true));
    row.emissionMapSampling = float(samplingFlags(material.mapEmissionSampling, true));
    return row;
}

} // namespace Velmora::Kvz
