// SPDX-License-Identifier: MIT
#include "PhysicalReference.h"

#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>
#include <map>

namespace Velmora::Kvz {

namespace {

/// Spreads angles evenly, however many there are.
constexpr double goldenRatio = 0.618033988749895;

double grazing(double cosine)
{
    return std::pow(std::clamp(1 - cosine, 0.0, 1.0), 5);
}

/// GGX without Fresnel, with the cosine to the light.
double specular(double alpha, double nl, double nv, double nh)
{
    if (nl <= 0 || nv <= 0)
        return 0;
    const double a = alpha * alpha;
    const double spread = nh * nh * (a - 1) + 1;
    const double distribution = a / (M_PI * spread * spread);
    const auto lambda = [a](double c) { return (std::sqrt(1 + a * (1 - c * c) / (c * c)) - 1) / 2; };
    return distribution / (1 + lambda(nl) + lambda(nv)) / (4 * nv);
}

double sheenOf(double roughness, double nl, double nv, double nh)
{
    if (nl <= 0)
        return 0;
    const double power = 1 / std::max(roughness * roughness, 0.001);
    const double distribution = (2 + power) * std::pow(std::sqrt(std::max(0.0, 1 - nh * nh)), power) / (2 * M_PI);
    return distribution / (4 * (nl + nv - nl * nv)) * nl;
}

struct Share
{
    double normal = 0;
    double atGrazing = 0;
};

QVector3D across(const QVector3D &normal)
{
    const QVector3D other = std::abs(normal.x()) < 0.7f ? QVector3D(1, 0, 0) : QVector3D(0, 1, 0);
    return QVector3D::crossProduct(normal, other).normalized();
}

/// Calls with light directions that are distributed as those which microfacets mirror, and with what each counts for.
template <typename Function>
void forMirrored(double alpha, const QVector3D &normal, const QVector3D &toEye, int count, Function function)
{
    const QVector3D x = across(normal);
    const QVector3D y = QVector3D::crossProduct(normal, x);
    for (int i = 0; i < count; ++i) {
        const double u = (i + 0.5) / count;
        const double turn = 2 * M_PI * std::fmod(i * goldenRatio, 1);
        const double cosine = std::sqrt((1 - u) / (1 + (alpha * alpha - 1) * u));
        const double sine = std::sqrt(1 - cosine * cosine);
        const QVector3D half =
            float(sine * std::cos(turn)) * x + float(sine * std::sin(turn)) * y + float(cosine) * normal;
        const double vh = double(QVector3D::dotProduct(toEye, half));
        const QVector3D light = 2 * float(vh) * half - toEye;
        if (vh <= 0 || QVector3D::dotProduct(light, normal) <= 0)
            continue;
        const double spread = cosine * cosine * (alpha * alpha - 1) + 1;
        const double density = alpha * alpha / (M_PI * spread * spread) * cosine / (4 * vh);
        function(light, 1 / (density * count), vh, cosine);
    }
}

/// Reflected shares of light from everywhere alike, by sampling.
Share shareOf(double alpha, double nv)
{
    static std::map<std::pair<double, double>, Share> known;
    const auto key = std::make_pair(alpha, nv);
    const auto found = known.find(key);
    if (found != known.end())
        return found->second;
    const QVector3D normal(0, 0, 1);
    const QVector3D eye(float(std::sqrt(1 - nv * nv)), 0, float(nv));
    Share share;
    forMirrored(alpha, normal, eye, 400000, [&](const QVector3D &light, double weight, double vh, double nh) {
        const double value = weight * specular(alpha, double(light.z()), nv, nh);
        share.normal += value * (1 - grazing(vh));
        share.atGrazing += value * grazing(vh);
    });
    return known[key] = share;
}

double sheenShareOf(double roughness, double nv)
{
    static std::map<std::pair<double, double>, double> known;
    const auto key = std::make_pair(roughness, nv);
    const auto found = known.find(key);
    if (found != known.end())
        return found->second;
    constexpr int steps = 300;
    const QVector3D eye(float(std::sqrt(1 - nv * nv)), 0, float(nv));
    double share = 0;
    for (int i = 0; i < steps * steps; ++i) {
        const double z = (i / steps + 0.5) / steps;
        const double turn = M_PI * (i % steps + 0.5) / steps;
        const double side = std::sqrt(1 - z * z);
        const QVector3D light(float(side * std::cos(turn)), float(side * std::sin(turn)), float(z));
        share += 2 * M_PI / (steps * steps) * sheenOf(roughness, z, nv, double((eye + light).normalized().z()));
    }
    return known[key] = share;
}

double widthOf(float roughness)
{
    const double r = std::max(double(roughness), 0.045);
    return r * r;
}

QVector3D mixed(const QVector3D &a, const QVector3D &b, float part)
{
    return a * (1 - part) + b * part;
}

float largest(const QVector3D &v)
{
    return std::max({v.x(), v.y(), v.z()});
}

} // namespace

QVector3D PhysicalReference::reflected(const QVector3D &normal, const QVector3D &toEye, const QVector3D &toLight) const
{
    const PhysicalMaterialData &m = m_material;
    const double nl = double(QVector3D::dotProduct(normal, toLight));
    const double nv = double(QVector3D::dotProduct(normal, toEye));
    if (nl <= 0)
        return {};
    const QVector3D half = (toLight + toEye).normalized();
    const double nh = double(QVector3D::dotProduct(normal, half));
    const auto f = float(grazing(double(QVector3D::dotProduct(toEye, half))));
    const float index = (m.refractiveIndex - 1) / (m.refractiveIndex + 1);
    const QVector3D dielectric = m.specular * index * index * m.specularColour;
    const QVector3D one(1, 1, 1);

    const auto albedo = [](const Share &share, const QVector3D &atNormal, float atGrazing) {
        const double lost = 1 / (share.normal + share.atGrazing) - 1;
        return (atNormal * float(share.normal) + QVector3D(1, 1, 1) * atGrazing * float(share.atGrazing))
            * (QVector3D(1, 1, 1) + atNormal * float(lost));
    };
    const Share share = shareOf(widthOf(m.roughness), nv);
    const auto lost = float(1 / (share.normal + share.atGrazing) - 1);
    const QVector3D fresnelDielectric = mixed(dielectric, one * m.specular, f) * (one + dielectric * lost);
    const QVector3D fresnelMetal = mixed(m.baseColour, one, f) * (one + m.baseColour * lost);
    QVector3D result =
        float(specular(widthOf(m.roughness), nl, nv, nh)) * mixed(fresnelDielectric, fresnelMetal, m.metallic);
    result += float(nl / M_PI) * (1 - m.metallic) * (1 - largest(albedo(share, dielectric, m.specular))) * m.baseColour;

    if (!m.sheenColour.isNull()) {
        const double sheenShare = sheenShareOf(double(m.sheenRoughness), nv);
        result *= 1 - largest(m.sheenColour) * float(sheenShare);
        result += m.sheenColour * float(sheenOf(double(m.sheenRoughness), nl, nv, nh));
    }
    if (m.clearcoat > 0) {
        const QVector3D glass(0.04f, 0.04f, 0.04f);
        const Share coat = shareOf(widthOf(m.clearcoatRoughness), nv);
        const auto coatLost = float(1 / (coat.normal + coat.atGrazing) - 1);
        result *= 1 - m.clearcoat * albedo(coat, glass, 1).x();
        result += m.clearcoat * (0.04f + 0.96f * f) * (1 + 0.04f * coatLost)
            * float(specular(widthOf(m.clearcoatRoughness), nl, nv, nh)) * one;
    }
    return result;
}

QVector3D PhysicalReference::lit(const QVector3D &normal, const QVector3D &toEye,
    const std::function<QVector3D(const QVector3D &)> &surroundings) const
{
    // Two ways to sample, each of which counts by its density beside that of both (the balance heuristic).
    constexpr int count = 20000;
    const double alpha = widthOf(m_material.roughness);
    const auto densityOf = [&](const QVector3D &light) {
        const QVector3D half = (light + toEye).normalized();
        const double nh = double(QVector3D::dotProduct(normal, half));
        const double spread = nh * nh * (alpha * alpha - 1) + 1;
        const double mirrored = alpha * alpha / (M_PI * spread * spread) * nh
            / (4 * std::max(1e-9, double(QVector3D::dotProduct(toEye, half))));
        return std::make_pair(mirrored, double(QVector3D::dotProduct(normal, light)) / M_PI);
    };
    QVector3D sum;
    const auto add = [&](const QVector3D &light) {
        const auto density = densityOf(light);
        sum += reflected(normal, toEye, light) * surroundings(light)
            * float(1 / (count * (density.first + density.second)));
    };
    forMirrored(alpha, normal, toEye, count, [&](const QVector3D &light, double, double, double) { add(light); });
    const QVector3D x = across(normal);
    const QVector3D y = QVector3D::crossProduct(normal, x);
    for (int i = 0; i < count; ++i) {
        const double radius = std::sqrt((i + 0.5) / count);
        const double turn = 2 * M_PI * std::fmod(i * goldenRatio, 1);
        add(float(radius * std::cos(turn)) * x + float(radius * std::sin(turn)) * y
            + float(std::sqrt(1 - radius * radius)) * normal);
    }
    return sum;
}

} // namespace Velmora::Kvz
