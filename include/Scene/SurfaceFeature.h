// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// What rows of the plan "SurfaceMaterial" can ask of a shader; bits of GPUModel::surfaceFeatures().
///
/// A program that defines the macro `KVZ_SURFACE_FEATURES` as such a set leaves all else out of Surface.glslc and
/// SurfaceTextures.glslc; without the macro they have everything. On drivers that run both sides of a branch each image that
/// the text reads costs time, whether a material has it or not.
enum SurfaceFeature {
    SurfaceBaseColourMap = 1,
    SurfaceSpecularMap = 2,
    SurfaceEmissionMap = 4,
    SurfaceImageModes = 8, ///< Wrap modes or filters other than repetition and trilinear filtering.
    SurfaceSecondTexCoords = 16,
    SurfaceMask = 32,
    SurfaceFirstImageArray =
        256, ///< This bit and the five above it: a map lies in this one of the model's image arrays.
    AllSurfaceFeatures = 0x3f3f
};

} // namespace Velmora::Kvz
