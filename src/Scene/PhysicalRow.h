// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ModelData.h>

namespace Velmora::Kvz {

/// An image of a row: place = linear * texCoord + offset. Integers are stored as numbers.
struct PhysicalMap
{
    float linear[4]; ///< By columns.
    float offset[2];
    float handle;
    float sampling; ///< Bits of SamplingFlag.
};

/// A row of the plan "PhysicalMaterial".
struct PhysicalRow
{
    float baseColour[3];
    float opacity;
    float emission[3];
    float alphaCutoff;
    float metallic;
    float roughness;
    float normalScale;
    float occlusionStrength;
    float reflectance[3]; ///< Of a dielectric, at normal incidence.
    float grazingReflectance;
    float sheenColour[3];
    float sheenRoughness;
    float clearcoat;
    float clearcoatRoughness;
    float flags; ///< Bits of SurfaceFlag, and DisplayColours.
    float number;
    PhysicalMap baseColourMap;
    PhysicalMap metallicRoughnessMap;
    PhysicalMap normalMap;
    PhysicalMap occlusionMap;
    PhysicalMap emissionMap;
};

/// The handles of a material's images.
struct PhysicalImages
{
    int baseColour;
    int metallicRoughness;
    int normal;
    int occlusion;
    int emission;
};

/// What the row asks of a shader, as bits of PhysicalFeature.
int physicalFeatures(const PhysicalRow &row);

/// `number` is the material's.
PhysicalRow physicalRow(const MaterialData &material, const PhysicalImages &images, int number);

} // namespace Velmora::Kvz
