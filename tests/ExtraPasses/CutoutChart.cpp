// SPDX-License-Identifier: MIT
#include "CutoutChart.h"

#include <QtGui/QVector3D>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Luma and alpha of a pixel, of the border's beyond it.
QVector4D clamped(const Image &picture, int x, int y)
{
    return picture.pixel(std::clamp(x, 0, picture.width - 1), std::clamp(y, 0, picture.height - 1));
}

double difference(const QVector4D &a, const QVector4D &b)
{
    const QVector4D apart = a - b;
    return std::max(std::abs(0.2126 * double(apart.x()) + 0.7152 * double(apart.y()) + 0.0722 * double(apart.z())),
        std::abs(double(apart.w())));
}

} // namespace

QVector4D cutoutAt(double x, double y)
{
    const double pi = std::acos(-1.0);
    // A star with seven tips, turned a little.
    const double starX = x - 0.3;
    const double starY = (y - 0.52) * 0.75;
    const double angle = std::atan2(starY, starX) + 0.2;
    const double tip = std::abs(std::fmod(angle + 2 * pi, 2 * pi / 7) / (2 * pi / 7) - 0.5);
    if (std::hypot(starX, starY) < 0.11 + 0.3 * tip)
        return {0.9f, 0.75f, 0.5f, 1};
    const double discX = x - 0.74;
    const double discY = (y - 0.62) * 0.75;
    const double radius = std::hypot(discX, discY);
    if (radius < 0.19 && radius > 0.09)
        return {0.02f, 0.02f, 0.04f, 1};
    // A bar of less than two pixels at the sizes that tests use.
    const double bar = 0.12 * x + y - 0.2;
    if (std::abs(bar) < 0.011)
        return {0.2f, 0.6f, 0.3f, 1};
    if (x > 0.55 && x < 0.93 && y + 0.3 * x < 0.36 && y + 0.3 * x > 0.2)
        return QVector4D(0.4f, 0.6f, 0.9f, 1) * 0.5f;
    return {};
}

Image sampledCutout(int width, int height, double placeX, double placeY)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, cutoutAt((x + placeX) / width, (y + placeY) / height));
    }
    return image;
}

Image trueCutout(int width, int height)
{
    constexpr int side = 16;
    Image sum(width, height);
    for (int sample = 0; sample < side * side; ++sample) {
        const Image image =
            sampledCutout(width, height, (sample % side + 0.5) / side, (double(sample / side) + 0.5) / side);
        for (int i = 0; i < sum.data.size(); ++i)
            sum.data[i] += image.data[i] / (side * side);
    }
    return sum;
}

Image laidOver(const Image &picture, const QVector3D &background)
{
    Image result(picture.width, picture.height);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const QVector4D texel = picture.pixel(x, y);
            result.setPixel(x, y, QVector4D(texel.toVector3D() + (1 - texel.w()) * background, 1));
        }
    }
    return result;
}

Image cutoutEdges(const Image &picture)
{
    Image edges(picture.width, picture.height);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const auto between = [&](int ax, int ay, int bx, int by) {
                return difference(clamped(picture, x + ax, y + ay), clamped(picture, x + bx, y + by));
            };
            const double left = between(0, 0, -1, 0);
            const double below = between(0, 0, 0, -1);
            if (left < 0.05 && below < 0.05)
                continue;
            const double strongest = std::max(
                {left, below, between(0, 0, 1, 0), between(0, 0, 0, 1), between(-1, 0, -2, 0), between(0, -1, 0, -2)});
            edges.setPixel(
                x, y, QVector4D(left >= 0.05 && 2 * left >= strongest, below >= 0.05 && 2 * below >= strongest, 0, 0));
        }
    }
    return edges;
}

} // namespace Velmora::Kvz
