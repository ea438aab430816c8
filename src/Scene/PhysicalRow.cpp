// SPDX-License-Identifier: MIT
#include "PhysicalRow.h"

#include "SurfaceRows.h"

#include <Scene/SurfaceFeature.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

void storeVector(const QVector3D &vector, float *target)
{
    for (int i = 0; i < 3; ++i)
        target[i] = vector[i];
}

float within(float value, float least, float most)
{
    return std::clamp(value, least, most);
}

/// What a dielectric reflects at normal incidence, by Fresnel's formula.
QVector3D reflectanceOf(const PhysicalMaterialData &material)
{
    const float index = material.refractiveIndex;
    const float root = index >= 1 ? (index - 1) / (index + 1) : index == 0 ? 1 : 0;
    const QVector3D tinted = root * root * material.specularColour;
    const float specular = within(material.specular, 0, 1);
    return specular * QVector3D(within(tinted.x(), 0, 1), within(tinted.y(), 0, 1), within(tinted.z(), 0, 1));
}

PhysicalMap mapOf(int handle, const ImageSampling &sampling, bool isColour)
{
    const QTransform &transform = sampling.transform;
    return {{float(transform.m11()), float(transform.m12()), float(transform.m21()), float(transform.m22())},
        {float(transform.m31()), float(transform.m32())}, float(handle), float(samplingFlags(sampling, isColour))};
}

int featuresOf(const PhysicalMap &map, int feature)
{
    return mapFeatures(feature, map.handle, map.sampling);
}

} // namespace

int physicalFeatures(const PhysicalRow &row)
{
    const bool hasSheen = std::any_of(row.sheenColour, row.sheenColour + 3, [](float value) { return value > 0; });
    return featuresOf(row.baseColourMap, PhysicalBaseColourMap)
        | featuresOf(row.metallicRoughnessMap, PhysicalMetallicRoughnessMap)
        | featuresOf(row.normalMap, PhysicalNormalMap) | featuresOf(row.occlusionMap, PhysicalOcclusionMap)
        | featuresOf(row.emissionMap, PhysicalEmissionMap) | (int(row.flags) & Masked ? SurfaceMask : 0)
        | (row.clearcoat > 0 ? PhysicalClearcoat : 0) | (hasSheen ? PhysicalSheen : 0);
}

PhysicalRow physicalRow(const MaterialData &material, const PhysicalImages &images, int number)
{
    const PhysicalMaterialData physical = material.physical ? *material.physical : physicalFrom(material);
    PhysicalRow row = {};
    storeVector(physical.baseColour, row.baseColour);
    row.opacity = material.d;
    storeVector(physical.hasDisplayColours ? linearFromSRgb(material.emission) : material.emission, row.emission);
    row.alphaCutoff = material.alphaCutoff;
    row.metallic = within(physical.metallic, 0, 1);
    row.roughness = within(physical.roughness, 0, 1);
    row.normalScale = physical.normalScale;
    row.occlusionStrength = within(physical.occlusionStrength, 0, 1);
    storeVector(reflectanceOf(physical), row.reflectance);
    row.grazingReflectance = within(physical.specular, 0, 1);
    storeVector(physical.sheenColour, row.sheenColour);
    row.sheenRoughness = within(physical.sheenRoughness, 0, 1);
    row.clearcoat = within(physical.clearcoat, 0, 1);
    row.clearcoatRoughness = within(physical.clearcoatRoughness, 0, 1);
    row.flags = float(surfaceFlags(material) | (physical.hasDisplayColours ? DisplayColours : 0));
    row.number = float(number);
    row.baseColourMap = mapOf(images.baseColour, material.mapKdSampling, true);
    row.metallicRoughnessMap = mapOf(images.metallicRoughness, physical.mapMetallicRoughnessSampling, false);
    row.normalMap = mapOf(images.normal, physical.mapNormalSampling, false);
    row.occlusionMap = mapOf(images.occlusion, physical.mapOcclusionSampling, false);
    row.emissionMap = mapOf(images.emission, material.mapEmissionSampling, true);
    return row;
}

} // namespace Velmora::Kvz
