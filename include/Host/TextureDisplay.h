// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// How a capture turns texels into colours.
enum class TextureDisplay {
    Colour, ///< As they are, clamped to 0 to 1.
    Depth, ///< Distance from the camera, near bright, far dark, nothing black.
    Normal, ///< Components from -1 to 1 as 0 to 1.
    TexCoord, ///< Fractions of u and v as red and green.
    Id, ///< A distinct colour for each number, 0 black.
    Positions, ///< Fractions of the components.
    Scalar, ///< The red channel as grey, clamped to 0 to 1.
    Motion, ///< To the right as red and upwards as green, from -1/16 to 1/16 of the image as 0 to 1; grey is none.
    ListLength, ///< For head pointers: a colour for the number of nodes in the pixel's list.
    Hidden ///< Holds no picture; captures skip it.
};

} // namespace Velmora::Kvz
