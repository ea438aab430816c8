// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// What the texture pool allocates. The values are fixed; hosts and passes may name a format by its number.
enum class TextureFormat : int {
    LowDynamicRange = 3, ///< GL_RGBA8: four channels of 8 bits, unsigned normalised.
    Velocity = 5, ///< GL_RGBA8: the packed velocity target of the temporal modes.
    ResolvedVelocity = 6, ///< GL_RGBA16F: the single-sampled copy of a multisampled velocity image.
    Position = 7, ///< GL_RGBA32F: camera-space positions.
    HighDynamicRange = 8, ///< GL_RGBA16F: four floating-point colour channels.
    DepthStencil = 24 ///< GL_DEPTH24_STENCIL8.
};

} // namespace Velmora::Kvz
