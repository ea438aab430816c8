// SPDX-License-Identifier: MIT
#pragma once

#include "support/Image.h"

#include <QtGui/QVector2D>

#include <array>
#include <optional>
#include <vector>

namespace Velmora::Kvz {

/// \name Enhanced subpixel morphological antialiasing, pixel by pixel
/// Computed in doubles and by direct search: it walks from pixel to pixel and examines each edge, where the shader
/// reads between texels and uses lookup tables. Beyond its borders an image repeats its border.
/// @{

struct SmaaSettings
{
    double threshold = 0.05;
    int searchSteps = 32; ///< Of two pixels each.
    int diagonalSteps = 16; ///< 0: no diagonals.
    std::optional<double> cornerRounding = 0.25; ///< None: corners stay.
};

/// Slices of the area table: vertical edges, horizontal edges, rising and falling diagonals.
using SmaaSlices = std::array<int, 4>;

/// Edges, and those that the rounding of floats leaves undecided.
struct SmaaEdges
{
    Image edges; ///< 1 in red at a pixel's left border, in green at its lower one.
    std::vector<char> kept; ///< Pixels with a difference at the threshold or above.
    std::vector<char> open; ///< Pixels where a comparison is closer than the rounding of floats.
    int count = 0; ///< Pixels with an edge.
    int openCount = 0;
};

/// Edges of a gamma-encoded image by luma. `predicate` can be null.
SmaaEdges smaaEdges(const Image &encoded, const Image *predicate, const SmaaSettings &settings = {});
Image smaaWeights(const Image &edges, const SmaaSlices &slices, const SmaaSettings &settings = {});
/// The frame mixed by the weights; with a velocity, alpha is the encoded speed.
Image smaaBlended(const Image &frame, const Image &weights, const Image *velocity);
/// The mean of two blended frames. The jitter change is the last frame's jitter less this one's, in texture
/// coordinates.
Image smaaResolved(const Image &current, const Image &previous, const Image &velocity, const QVector2D &jitterChange);
/// An image rounded to channels of 8 bits.
Image quantised(const Image &image);
/// @}

/// A picture of hard edges at many angles: a fan of lines, discs, boxes, a thin grid and corners, on two backgrounds.
Image edgeChart(int width, int height);

} // namespace Velmora::Kvz
