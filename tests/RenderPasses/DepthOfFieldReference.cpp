// SPDX-License-Identifier: MIT
#include "DepthOfFieldReference.h"

#include <GL/TextureManager.h>
#include <RenderPasses/ShaderRenderPass.h>

#include <QtCore/QRect>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// A linear sample of an image that is clamped to its edges.
double sample(const Image &image, double u, double v, int channel)
{
    const double x = u * image.width - 0.5;
    const double y = v * image.height - 0.5;
    const int left = int(std::floor(x));
    const int bottom = int(std::floor(y));
    double sum = 0;
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const double weight = (i ? x - left : 1 - (x - left)) * (j ? y - bottom : 1 - (y - bottom));
            const float *texel =
                image.at(qBound(0, left + i, image.width - 1), qBound(0, bottom + j, image.height - 1));
            sum += weight * double(texel[channel]);
        }
    }
    return sum;
}

Rgb tap(const Image &frame, double u, double v, double blur, const Effects &effects)
{
    const double reach = effects.fringe * blur;
    const double offsets[3][2] = {{0, 1}, {-0.866, -0.5}, {0.866, -0.5}};
    Rgb color;
    for (int i = 0; i < 3; ++i)
        color[size_t(i)] =
            sample(frame, u + offsets[i][0] * reach / frame.width, v + offsets[i][1] * reach / frame.height, i);
    const double luminance = 0.299 * color[0] + 0.587 * color[1] + 0.114 * color[2];
    const double gained = std::max((luminance - 0.5) * effects.gain, 0.0) * blur;
    for (double &channel : color)
        channel += channel * gained;
    return color;
}

/// Whether a point lies inside the pentagon of three rings, from 0 to 1, by its five edges.
double insidePentagon(double x, double y)
{
    const double apothem = 3 - 1.3;
    double inside = -4;
    for (int edge = 0; edge < 5; ++edge) {
        const double angle = 2 * M_PI * edge / 5;
        inside += smoothStep(-0.4, 0.4, x * std::cos(angle) + y * std::sin(angle) + apothem);
    }
    return std::clamp(inside, 0.0, 1.0);
}

} // namespace

double smoothStep(double from, double to, double value)
{
    const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

double linearize(double depth)
{
    return -100.0 * 0.1 / (depth * (100.0 - 0.1) - 100.0);
}

double windowDepth(double distance)
{
    return (100.0 - 10.0 / distance) / 99.9;
}

double blurOf(double distance, const Lens &lens)
{
    const double f = lens.focalLength;
    const double d = lens.focalDepth * 1000;
    const double o = distance * 1000;
    const double a = o * f / (o - f);
    const double b = d * f / (d - f);
    const double c = (d - f) / (d * lens.fStop * 0.03);
    return std::clamp(std::abs(a - b) * c, 0.0, 1.0);
}

Rgb lensReference(
    const Image &frame, int x, int y, double blur, const std::array<double, 2> &noise, const Effects &effects)
{
    const double u = (x + 0.5) / frame.width;
    const double v = (y + 0.5) / frame.height;
    const float *texel = frame.at(x, y);
    Rgb color = {double(texel[0]), double(texel[1]), double(texel[2])};
    if (blur < 0.05)
        return color;
    const double w = blur / frame.width + noise[0] * 0.0001 * blur;
    const double h = blur / frame.height + noise[1] * 0.0001 * blur;
    double sum = 1;
    for (int ring = 1; ring <= 3; ++ring) {
        for (int i = 0; i < 3 * ring; ++i) {
            const double angle = 2 * 3.14159265 * i / (3 * ring);
            double weight = 1 + (ring / 3.0 - 1) * effects.bias;
            if (effects.isPentagon)
                weight *= insidePentagon(std::cos(angle) * ring, std::sin(angle) * ring);
            const Rgb other = tap(frame, u + std::cos(angle) * ring * w, v + std::sin(angle) * ring * h, blur, effects);
            for (size_t k = 0; k < 3; ++k)
                color[k] += weight * other[k];
            sum += weight;
        }
    }
    for (double &channel : color)
        channel /= sum;
    return color;
}

float hashed(float angle)
{
    const float product = std::sin(angle) * 43758.5453f;
    return (product - std::floor(product)) * 2 - 1;
}

Image hashOf(const QSize &size)
{
    ShaderRenderPass probe;
    probe.setFragmentShaderSource(QStringLiteral(R"(#version 150
in vec2 vo_TexCoord;
out vec4 o_Hash;
void main()
{
    float x = clamp(fract(sin(dot(vo_TexCoord, vec2(12.9898, 78.233))) * 43758.5453), 0.0, 1.0) * 2.0 - 1.0;
    float y = clamp(fract(sin(dot(vo_TexCoord, vec2(12.9898, 78.233) * 2.0)) * 43758.5453), 0.0, 1.0) * 2.0 - 1.0;
    vec2 bytes = floor((vec2(x, y) * 0.5 + 0.5) * 65535.0);
    o_Hash = vec4(floor(bytes / 256.0), mod(bytes, 256.0)) / 255.0;
}
)"));
    probe.addOutput(QStringLiteral("Kvz_KvzTexture*_Hash"));
    probe.setInput(0, QRect(QPoint(), size));
    probe.setNumOutputUsers(0, 1);
    probe.start(nullptr);
    auto *const texture = probe.output(0).value<Texture *>();
    const Image bytes = readTexture(texture);
    TextureManager::Instance()->releaseTempTextureRef(texture, 1);
    Image hash(size.width(), size.height(), 2);
    for (int i = 0; i < size.width() * size.height(); ++i) {
        for (int k = 0; k < 2; ++k) {
            const float high = std::round(bytes.data[4 * i + k] * 255);
            const float low = std::round(bytes.data[4 * i + 2 + k] * 255);
            hash.data[2 * i + k] = (high * 256 + low) / 65535 * 2 - 1;
        }
    }
    return hash;
}

} // namespace Velmora::Kvz
