// SPDX-License-Identifier: MIT
#pragma once

#include "support/Image.h"

#include <QtCore/QSize>

#include <array>

namespace Velmora::Kvz {

/// A lens as the ports of the pass give it.
struct Lens
{
    double focalDepth = 0; ///< In metres.
    double focalLength = 0; ///< In millimetres.
    double fStop = 0;
};

/// Parts of the effect that the reference can leave out, to show that a test would notice.
struct Effects
{
    double fringe = 0.7;
    double gain = 2;
    double bias = 0.5;
    bool isPentagon = false;
};

/// The distance of a window depth between planes at 0.1 and 100.
double linearize(double depth);
/// The window depth that linearize() turns to a distance.
double windowDepth(double distance);
/// How blurred things at a distance are, from 0 to 1.
double blurOf(double distance, const Lens &lens);

/// GLSL's smoothstep(); `from` may be above `to`.
double smoothStep(double from, double to, double value);

using Rgb = std::array<double, 3>;

/// A pixel of the result. `noise` is the hash of the pixel, from -1 to 1.
Rgb lensReference(const Image &frame, int x, int y, double blur, const std::array<double, 2> &noise,
    const Effects &effects = Effects());

/// The hash in single precision, where sine and fraction are the C library's.
float hashed(float angle);
/// The hash multiplies the last bits of a sine by 43758, so it differs between drivers; this asks the driver for each
/// pixel's, in two channels.
Image hashOf(const QSize &size);

} // namespace Velmora::Kvz
