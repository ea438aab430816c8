// SPDX-License-Identifier: MIT
#include "RayCastScene.h"

#include <QtGui/QColor>

#include <cmath>

namespace Velmora::Kvz {

Vector4d sampleRepeating(const QImage &image, const std::array<double, 2> &texCoord)
{
    if (image.isNull())
        return {1, 1, 1, 1};
    const double x = texCoord[0] * image.width() - 0.5;
    const double y = texCoord[1] * image.height() - 0.5;
    const double fx = x - std::floor(x);
    const double fy = y - std::floor(y);
    const auto wrap = [](int value, int size) { return (value % size + size) % size; };
    Vector4d result = {};
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const int column = wrap(int(std::floor(x)) + i, image.width());
            const int row = wrap(int(std::floor(y)) + j, image.height());
            // Row 0 of a QImage is the top row.
            const QColor texel = image.pixelColor(column, image.height() - 1 - row);
            const double weight = (i ? fx : 1 - fx) * (j ? fy : 1 - fy);
            const Vector4d channels = {texel.redF(), texel.greenF(), texel.blueF(), texel.alphaF()};
            for (size_t k = 0; k < 4; ++k)
                result[k] += weight * channels[k];
        }
    }
    return result;
}

QImage checkerImage(int side, const QColor &even, const QColor &odd)
{
    QImage image(side, side, QImage::Format_ARGB32);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x)
            image.setPixelColor(x, y, (x / 2 + y / 2) % 2 == 0 ? even : odd);
    }
    return image;
}

} // namespace Velmora::Kvz
