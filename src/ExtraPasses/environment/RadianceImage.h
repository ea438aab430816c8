// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <vector>

namespace Velmora::Kvz {

/// Radiance from all directions, by longitude and latitude: rows from +y down, the middle column towards -z, columns to the right
/// towards +x. Linear.
struct RadianceImage
{
    int width = 0;
    int height = 0;
    std::vector<float> rgb; ///< Three for each texel, finite and from 0 up.

    bool isNull() const { return rgb.empty(); }
    const float *at(int x, int y) const { return rgb.data() + 3 * (size_t(y) * size_t(width) + size_t(x)); }
    float *at(int x, int y) { return rgb.data() + 3 * (size_t(y) * size_t(width) + size_t(x)); }
};

/// Decodes the content of an image file: Radiance RGBE, OpenEXR, or what Qt reads, whose colours are sRGB. Values that are no number
/// or below 0 count as 0. A null image, with the reason in `problem`, for what is damaged, cut short or larger than 2^26 pixels.
RadianceImage decodeRadiance(const QByteArray &content, QString *problem);

/// An image of half the width and height, each texel the mean of four; a side of 1 stays.
RadianceImage halved(const RadianceImage &image);

} // namespace Velmora::Kvz
