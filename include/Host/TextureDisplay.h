// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// How a capture turns texels into colours.
enum class TextureDisplay {
    Colour, ///< As they are, clamped to 0 to 1.
    Depth, ///< Distance from the camera, near bright, far dark, nothing black.
    Normal, ///< Components from -1 to 1 as 0 to 1.
    TexCoord, ///< Fractions of u and v as red and green.
    Id, ///< A colour of its own for each number, 0 black.
    Positions, ///< Fractions of the components.
    Scalar, ///< The red channel as grey, clamped to 0 to 1.
    Motion, ///< Way to the right as red and upwards as green, 1/16 of the image to either side as 0 to 1; grey is none.
    ListLength, ///< Of head pointers: a colour for how many nodes the pixel's list has.
    Hidden ///< Holds no picture; captures pass it over.
};

} // namespace Velmora::Kvz
