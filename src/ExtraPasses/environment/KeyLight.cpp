// SPDX-License-Identifier: MIT
#include "KeyLight.h"

#include <QtCore/QtMath>

#include <cmath>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr double brightness = 6;
constexpr double leastPart = 0.1;
constexpr double largestSpot = 0.5;

double luminance(const float *rgb)
{
    return 0.2126 * double(rgb[0]) + 0.7152 * double(rgb[1]) + 0.0722 * double(rgb[2]);
}

/// A connected part of an image.
struct Spot
{
    std::vector<int> texels;
    double light = 0; ///< Luminance times solid angle.
    double size = 0; ///< In steradians.
};

} // namespace

QVector3D texelDirection(const RadianceImage &image, int x, int y)
{
    const float longitude = 2 * float(M_PI) * ((float(x) + 0.5f) / float(image.width) - 0.5f);
    const float latitude = float(M_PI) * (0.5f - (float(y) + 0.5f) / float(image.height));
    return {std::cos(latitude) * std::sin(longitude), std::sin(latitude), -std::cos(latitude) * std::cos(longitude)};
}

float rowSolidAngle(const RadianceImage &image, int y)
{
    const double above = M_PI * (0.5 - double(y) / image.height);
    const double below = M_PI * (0.5 - double(y + 1) / image.height);
    return float(2 * M_PI / image.width * (std::sin(above) - std::sin(below)));
}

KeyLight takeKeyLight(RadianceImage *image)
{
    const int width = image->width;
    const int count = width * image->height;
    double total = 0;
    for (int i = 0; i < count; ++i)
        total += luminance(image->at(i % width, i / width)) * double(rowSolidAngle(*image, i / width));
    const double threshold = brightness * total / (4 * M_PI);

    Spot strongest;
    std::vector<bool> isSeen(size_t(count), false);
    for (int first = 0; first < count; ++first) {
        if (isSeen[size_t(first)] || !(luminance(image->at(first % width, first / width)) > threshold))
            continue;
        Spot spot;
        spot.texels.push_back(first);
        isSeen[size_t(first)] = true;
        for (size_t next = 0; next < spot.texels.size(); ++next) {
            const int x = spot.texels[next] % width;
            const int y = spot.texels[next] / width;
            const double area = double(rowSolidAngle(*image, y));
            spot.size += area;
            spot.light += luminance(image->at(x, y)) * area;
            for (int i = 0; i < 9; ++i) {
                const int row = y + i / 3 - 1;
                const int column = (x + i % 3 - 1 + width) % width;
                const int neighbour = row * width + column;
                if (row < 0 || row >= image->height || isSeen[size_t(neighbour)]
                    || !(luminance(image->at(column, row)) > threshold))
                    continue;
                isSeen[size_t(neighbour)] = true;
                spot.texels.push_back(neighbour);
            }
        }
        if (spot.size < largestSpot && spot.light > strongest.light)
            strongest = std::move(spot);
    }
    if (strongest.texels.empty() || strongest.light < leastPart * total)
        return {};

    KeyLight key;
    for (const int texel : strongest.texels) {
        const int x = texel % width;
        const int y = texel / width;
        float *const rgb = image->at(x, y);
        const auto kept = float(threshold / luminance(rgb));
        const QVector3D taken = (1 - kept) * rowSolidAngle(*image, y) * QVector3D(rgb[0], rgb[1], rgb[2]);
        key.illuminance += taken;
        key.direction += (taken.x() + taken.y() + taken.z()) * texelDirection(*image, x, y);
        for (int i = 0; i < 3; ++i)
            rgb[i] *= kept;
    }
    key.direction.normalize();
    return key;
}

} // namespace Velmora::Kvz
