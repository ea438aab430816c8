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
    AllSurfaceFeatures = 0x3f3f
};

} // namespace Velmora::Kvz
