// SPDX-License-Identifier: MIT
#include "ReflectanceTable.h"

#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr double pi = M_PI;

struct Direction
{
    double x, y, z;
};

double radicalInverse(unsigned bits)
{
    double result = 0;
    for (double place = 0.5; bits; bits >>= 1, place /= 2)
        result += (bits & 1) ? place : 0;
    return result;
}

/// Smith's shadowing of GGX as a part of its masking, for a cosine of either direction.
double lambda(double cosine, double squaredWidth)
{
    const double squared = cosine * cosine;
    return (std::sqrt(1 + squaredWidth * (1 - squared) / squared) - 1) / 2;
}

/// Shares of the two reflectances, by sampling the normals that the eye sees (Heitz, "Sampling the GGX Distribution of Visible
/// Normals", JCGT 2018): each sample's weight is masking and shadowing together beside masking alone.
void addSpecular(double cosine, double roughness, float *rgb)
{
    constexpr int samples = 256;
    const double width = std::max(roughness * roughness, 1e-4);
    const double sine = std::sqrt(1 - cosine * cosine);
    // The eye, in the space where the surface is a hemisphere.
    const double size = std::sqrt(width * width * sine * sine + cosine * cosine);
    const Direction eye{width * sine / size, 0, cosine / size};
    double normal = 0;
    double grazing = 0;
    for (int i = 0; i < samples; ++i) {
        const double radius = std::sqrt((i + 0.5) / samples);
        const double turn = 2 * pi * (radicalInverse(unsigned(i)) + 0.5 / samples);
        const double across = radius * std::sin(turn); // along y, which is square to the eye
        const double part = 0.5 * (1 + eye.z);
        const double along =
            (1 - part) * std::sqrt(std::max(0.0, 1 - across * across)) + part * radius * std::cos(turn);
        const double out = std::sqrt(std::max(0.0, 1 - across * across - along * along));
        // `along` goes with the direction square to both, which leans to -x where the eye leans to +x.
        Direction half{-along * eye.z + out * eye.x, across, along * eye.x + out * eye.z};
        half = {width * half.x, width * half.y, std::max(half.z, 1e-9)};
        const double extent = std::sqrt(half.x * half.x + half.y * half.y + half.z * half.z);
        half = {half.x / extent, half.y / extent, half.z / extent};
        const double eyeHalf = std::max(0.0, sine * half.x + cosine * half.z);
        const double light = 2 * eyeHalf * half.z - cosine;
        if (light <= 0)
            continue;
        const double masked = lambda(cosine, width * width);
        const double weight = (1 + masked) / (1 + masked + lambda(light, width * width));
        const double fresnel = std::pow(1 - eyeHalf, 5);
        normal += weight * (1 - fresnel);
        grazing += weight * fresnel;
    }
    rgb[0] = float(normal / samples);
    rgb[1] = float(grazing / samples);
}

/// The share of sheen, by even steps over the hemisphere of light directions.
void addSheen(double cosine, double roughness, float *rgb)
{
    constexpr int rings = 20;
    constexpr int steps = 14;
    const double power = 1 / std::max(roughness * roughness, 0.001);
    const double sine = std::sqrt(1 - cosine * cosine);
    double sum = 0;
    for (int ring = 0; ring < rings; ++ring) {
        const double light = (ring + 0.5) / rings; // even steps of the cosine are even steps of area
        const double lightSine = std::sqrt(1 - light * light);
        for (int step = 0; step < steps; ++step) {
            const double turn = pi * (step + 0.5) / steps;
            const double x = sine + lightSine * std::cos(turn);
            const double y = lightSine * std::sin(turn);
            const double z = cosine + light;
            const double squaredSine = (x * x + y * y) / (x * x + y * y + z * z);
            const double distribution = (2 + power) * std::pow(squaredSine, power / 2) / (2 * pi);
            sum += distribution / (4 * std::max(light + cosine - light * cosine, 1e-4)) * light;
        }
    }
    rgb[2] = float(std::min(1.0, 2 * pi * sum / (rings * steps)));
}

} // namespace

const ReflectanceTable &reflectanceTable()
{
    static const ReflectanceTable table = [] {
        ReflectanceTable result;
        result.rgb.resize(3 * ReflectanceTable::width * ReflectanceTable::height);
        float *texel = result.rgb.data();
        for (int y = 0; y < ReflectanceTable::height; ++y) {
            const double roughness = double(y) / (ReflectanceTable::height - 1);
            for (int x = 0; x < ReflectanceTable::width; ++x, texel += 3) {
                const double cosine = std::max(double(x) / (ReflectanceTable::width - 1), 1e-3);
                addSpecular(cosine, roughness, texel);
                addSheen(cosine, roughness, texel);
            }
        }
        return result;
    }();
    return table;
}

} // namespace Velmora::Kvz
