// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ModelData.h>

namespace Velmora::Kvz {

/// A row of the plan "SurfaceMaterial". Integers are stored as numbers, as all plans do.
struct SurfaceRow
{
    float baseColour[3];
    float opacity;
    float specularColour[3];
    float shininess;
    float emission[3];
    float alphaCutoff;
    float baseColourMap;
    float specularMap;
    float emissionMap;
    float flags; ///< Bits of SurfaceFlag.
    float baseColourMapU[3];
    float baseColourMapSampling; ///< Bits of SamplingFlag.
    float baseColourMapV[3];
    float number;
    float specularMapU[3];
    float specularMapSampling;
    float specularMapV[3];
    float unused0;
    float emissionMapU[3];
    float emissionMapSampling;
    float emissionMapV[3];
    float unused1;
};

/// What Surface.glslc and SurfaceTextures.glslc call by the same names.
enum SurfaceFlag { LitFromBothSides = 1, Unlit = 2, Masked = 4, Blended = 8, DisplayColours = 16 };
enum SamplingFlag {
    MirroredU = 1,
    ClampedU = 2,
    MirroredV = 4,
    ClampedV = 8,
    NearestMagnified = 16,
    NearestMinified = 32,
    WithoutMipmaps = 64,
    SecondTexCoords = 128,
    SRgbEncoded = 256
};

/// The handles of a material's images.
struct SurfaceImages
{
    int kd;
    int ks;
    int emission;
};

/// The flags of a material, as bits of SurfaceFlag, and of an image, as bits of SamplingFlag. `isColour` says that it holds colours
/// as screens show them, rather than numbers.
int surfaceFlags(const MaterialData &material);
int samplingFlags(const ImageSampling &sampling, bool isColour);
/// What an image with these asks of a shader beyond itself: bits of SurfaceFeature. `feature` is the image's own.
int mapFeatures(int feature, float handle, float sampling);

/// What the row asks of a shader, as bits of SurfaceFeature.
int surfaceFeatures(const SurfaceRow &row);

/// `number` is the material's.
SurfaceRow surfaceRow(const MaterialData &material, const SurfaceImages &images, int number);

} // namespace Velmora::Kvz
