// SPDX-License-Identifier: MIT
#pragma once

#include "support/Image.h"

#include <vector>

namespace Velmora::Kvz {

/// The settings of FXAA 3.11.
struct FxaaSettings
{
    double subpix = 1.0;
    double rcpFrame = 1.1; ///< Factor on the horizontal texel.
    double edgeThreshold = 0.125;
    double edgeThresholdMin = 0.0625;
    std::vector<double> steps = {1, 1.5, 2, 4, 12}; ///< Of the search, in texels; these are preset 12's.
    bool isLumaInAlpha = false; ///< Or in green.
    /// Added to the contrast that marks the ends of an edge, one for each side.
    double biasBefore = 0;
    double biasBehind = 0;
};

/// What FXAA did in each pixel, so that a test knows that all cases occurred.
struct FxaaTally
{
    int flat = 0; ///< Left as they were.
    int horizontal = 0;
    int vertical = 0;
    int bySubpixel = 0; ///< Shifted further by what stands out than by the edge.
    int byEdge = 0;
    int endNotFound = 0; ///< At least one end lies beyond the search.
};

/// FXAA of an image that is clamped at its edges, on the CPU in doubles, with the alpha that the pass writes.
Image fxaaReference(const Image &image, const FxaaSettings &settings, FxaaTally *tally = nullptr);

} // namespace Velmora::Kvz
