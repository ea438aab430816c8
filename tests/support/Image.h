// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Texture.h>

#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QVector4D>

#include <memory>

namespace Velmora::Kvz {

/// Texels as floats, rows from the bottom up as in GL.
struct Image
{
    int width = 0;
    int height = 0;
    int channels = 4;
    QVector<float> data;

    Image() = default;
    Image(int imageWidth, int imageHeight, int imageChannels = 4);

    float *at(int x, int y) { return data.data() + (y * width + x) * channels; }
    const float *at(int x, int y) const { return data.constData() + (y * width + x) * channels; }
    /// A texel of an image of four channels.
    QVector4D pixel(int x, int y) const;
    void setPixel(int x, int y, const QVector4D &value);
};

/// Reads level 0 of a single-sample 2D texture: colour as four floats, depth (also of depth-stencil
/// textures) as one. Integer formats are read as integers and converted.
Image readTexture(const Texture *texture);
/// Reads one layer of an array texture.
Image readLayer(const Texture *texture, int layer);
/// Reads a rectangle of the bound read framebuffer's colour.
Image readFramebuffer(int x, int y, int width, int height);
/// Reads the stencil of a depth-stencil texture.
QVector<int> readStencil(Texture *texture);

/// A texture with the image as content, nearest filters and clamping. `internalFormat` is a sized colour or depth
/// format.
std::unique_ptr<Texture> makeTexture(const Image &image, int internalFormat);
/// A multisampled texture with the image's texel in every sample.
std::unique_ptr<Texture> makeMultisampleTexture(const Image &image, int internalFormat, int samples);

/// An image of four channels in one colour.
Image filled(int width, int height, const QVector4D &color);

/// The largest absolute difference of two images; a large number if their shapes differ.
double maximumDifference(const Image &a, const Image &b);

/// The mean absolute difference of the three colours, in steps of 8 bits; NaN if the shapes differ.
double meanError(const Image &a, const Image &b);

/// The number of pixels that differ by more than the tolerance in some channel; all pixels if the shapes differ.
int pixelsBeyond(const Image &a, const Image &b, double tolerance);

/// Saves the image (values from 0 to 1) for viewing in the folder named by KVZ_TEST_IMAGES, or nowhere if that is not
/// set.
void saveForViewing(const Image &image, const QString &name);

} // namespace Velmora::Kvz
