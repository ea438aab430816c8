// SPDX-License-Identifier: MIT
#pragma once

#include "support/Image.h"

namespace Velmora::Kvz {

/// A cut-out of hard edges at many angles, multiplied by its alpha: a bright star, a dark disc with a hole, a thin bar, half
/// transparent glass, and nothing behind them. `x` and `y` go from 0 to 1 over the picture.
QVector4D cutoutAt(double x, double y);

/// The chart with one sample in each pixel, at this place from (0, 0) at the lower left to (1, 1).
Image sampledCutout(int width, int height, double placeX = 0.5, double placeY = 0.5);
/// The chart with 256 samples in each pixel.
Image trueCutout(int width, int height);

/// The picture over an opaque colour.
Image laidOver(const Image &picture, const QVector3D &background);

/// Edges where luma or alpha changes, for the references of SMAA: 1 in red at a pixel's left border, in green at its lower one.
Image cutoutEdges(const Image &picture);

} // namespace Velmora::Kvz
