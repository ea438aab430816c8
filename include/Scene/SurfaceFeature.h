// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// What rows of the plan "SurfaceMaterial" can need of a shader; bits of GPUModel::surfaceFeatures().
///
/// A program that defines the macro `KVZ_SURFACE_FEATURES` as such a set omits the other features from Surface.glslc
/// and SurfaceTextures.glslc; without the macro it has all. On drivers that run both sides of a branch, each image that
/// the text reads costs time, whether a material has it or not.
enum SurfaceFeature {
    SurfaceBaseColourMap = 1,
    SurfaceSpecularMap = 2,
    SurfaceEmissionMap = 4,
    SurfaceImageModes = 8, ///< Wrap modes or filters other than repetition and trilinear filtering.
    SurfaceSecondTexCoords = 16,
    SurfaceMask = 32,
    SurfaceFirstImageArray = 256, ///< This bit and the next five: a map lies in the model's first to sixth image array.
    SurfaceEmission = 0x20000, ///< Some item emits light or is unlit.
    AllSurfaceFeatures = 0x23f3f
};

/// The same of rows of the plan "PhysicalMaterial"; bits of GPUModel::physicalFeatures(). What both plans have, has the same bit.
enum PhysicalFeature {
    PhysicalBaseColourMap = SurfaceBaseColourMap,
    PhysicalMetallicRoughnessMap = 2,
    PhysicalEmissionMap = SurfaceEmissionMap,
    PhysicalNormalMap = 64,
    PhysicalOcclusionMap = 128,
    PhysicalClearcoat = 0x4000,
    PhysicalSheen = 0x8000,
    PhysicalTangents = 0x10000, ///< Some vertices have tangents.
    AllPhysicalFeatures = AllSurfaceFeatures | 0x1c0c0
};

} // namespace Velmora::Kvz
