// SPDX-License-Identifier: MIT
#pragma once

#include "support/GLCallRecorder.h"
#include "support/Image.h"

#include <QtCore/QSize>
#include <QtGui/QVector2D>

#include <array>
#include <cmath>
#include <functional>
#include <string>

namespace Velmora::Kvz {

/// \name Pictures to blur
/// @{

/// Has what a photograph has: wide gradients, hard edges, fine grain, and lights of `brightest`; everything else is
/// from 0 to 1. Alpha is 1. Pictures of different `seed`s differ.
Image photograph(int width, int height, float brightest = 1, unsigned seed = 1);
/// One colour.
Image plain(int width, int height, const QVector4D &color);
/// @}

/// \name The Gaussian, in doubles
/// @{

using Color = std::array<double, 4>;

/// The taps of one side of a kernel, the centre first; the other side mirrors them.
struct Kernel
{
    int count = 0; ///< Samples on one side, the centre's among them, before they are folded.
    QVector<double> weights;
    QVector<double> offsets;
};

/// The kernel of a blur radius, computed independently of the pass.
Kernel foldedKernel(float radius, float extent);

/// The colour at a distance from a pixel, in whole texels.
using Neighbour = std::function<Color(int dx, int dy)>;

/// A direct sum over the square of texels within `reach`, weighted by a two-dimensional Gaussian whose weights sum to 1.
Color gaussianSum(double sigma, int reach, const Neighbour &neighbour);

Color texel(const Image &image, int x, int y); ///< Clamped to the edge.
/// The colour between texels, clamped to the edge; (0, 0) is the centre of the first texel.
Color texelBetween(const Image &image, double x, double y);
void setTexel(Image *image, int x, int y, const Color &color);

/// The whole picture blurred by gaussianSum(), clamped at the edges.
Image gaussianBlurred(const Image &image, double sigma, int reach);
/// How far a kernel of this extent reaches.
inline int reachOf(float radius, float extent)
{
    return foldedKernel(radius, extent).count - 1;
}
/// The picture scaled to another size by reading it between its texels.
Image resampled(const Image &image, const QSize &size);

/// How far a picture with values up to `maximum` may lie from the exact one after two draws. Each draw stores half
/// floats, which this driver truncates to 11 significant bits; a driver may locate a read between two texels to 1/256,
/// half of which is an error of 1/512 of the difference of the two texels.
inline double blurTolerance(double maximum)
{
    return 2.0 * maximum * (std::ldexp(1.0, -10) + std::ldexp(1.0, -9));
}

struct Deviation
{
    double largest = 0;
    double mean = 0;
};

/// The differences of all channels; a large number when the shapes differ. Printed under `name`.
Deviation deviation(const std::string &name, const Image &image, const Image &reference);
/// @}

/// Changes the fragment shaders of blurs that are compiled while it lives: they write how often they read a texture
/// instead of a picture. The first pixel is read after each draw.
class TextureReads
{
public:
    TextureReads();

    /// One number for each draw.
    QVector<int> counts;

private:
    GLCallRecorder<&epoxy_glShaderSource> m_sources;
    GLCallRecorder<&epoxy_glDrawArrays> m_draws;
};

/// Records the two-component uniforms that are set while it lives, in order.
class VectorUniforms
{
public:
    VectorUniforms();

    QVector<QVector2D> values;

private:
    GLCallRecorder<&epoxy_glUniform2fv> m_calls;
};

/// Filters and wrap modes of a 2D texture: minification, magnification, S, T.
QVector<int> samplingOf(Texture *texture);
/// The parameters that sampleLinearly() sets.
QVector<int> linearAndClamped();

} // namespace Velmora::Kvz
