// SPDX-License-Identifier: MIT
#include "FilteredEnvironment.h"

#include "ExrMemory.h"
#include "KeyLight.h"

#include <ImfHeader.h>
#include <ImfRgbaFile.h>
#include <ImfVecAttribute.h>
#include <QtCore/QtMath>

#include <algorithm>
#include <cmath>
#include <exception>

namespace Velmora::Kvz {

namespace {

constexpr float pi = float(M_PI);
/// Images are filtered at up to this width: a texel of level 0 is as large as one of theirs at the horizon.
constexpr int workingWidth = 1024;
constexpr int samplesOfLevel = 64;

/// An image with ever smaller copies of itself.
class Pyramid
{
public:
    explicit Pyramid(RadianceImage image)
    {
        m_levels.push_back(std::move(image));
        while (m_levels.back().width > 1 || m_levels.back().height > 1)
            m_levels.push_back(halved(m_levels.back()));
    }

    const RadianceImage &largest() const { return m_levels.front(); }

    /// Adds the radiance from a unit direction, multiplied with a weight; interpolated within one level.
    void add(const QVector3D &d, int level, float weight, float *sum) const
    {
        const RadianceImage &image = m_levels[size_t(qBound(0, level, int(m_levels.size()) - 1))];
        const float u = 0.5f + std::atan2(d.x(), -d.z()) / (2 * pi);
        const float v = 0.5f - std::asin(qBound(-1.0f, d.y(), 1.0f)) / pi;
        const float x = u * float(image.width) - 0.5f;
        const float y = qBound(0.0f, v * float(image.height) - 0.5f, float(image.height - 1));
        const int column = int(std::floor(x));
        const int row = int(y);
        const float partX = x - float(column);
        const float partY = y - float(row);
        const int left = (column + image.width) % image.width;
        const int right = (left + 1) % image.width;
        const int below = std::min(row + 1, image.height - 1);
        const float weights[] = {(1 - partX) * (1 - partY), partX * (1 - partY), (1 - partX) * partY, partX * partY};
        const float *const texels[] = {
            image.at(left, row), image.at(right, row), image.at(left, below), image.at(right, below)};
        for (int corner = 0; corner < 4; ++corner) {
            for (int i = 0; i < 3; ++i)
                sum[i] += weight * weights[corner] * texels[corner][i];
        }
    }

private:
    std::vector<RadianceImage> m_levels;
};

/// A light direction about the normal +z, and how it is read.
struct Sample
{
    QVector3D direction;
    float weight;
    int level;
};

float radicalInverse(quint32 bits)
{
    quint32 reversed = 0;
    for (int i = 0; i < 32; ++i, bits >>= 1)
        reversed = reversed << 1 | (bits & 1);
    return float(double(reversed) / 4294967296.0);
}

/// Samples of GGX with the eye above the surface, each of which stands for a part of the sphere and is read from texels of that size
/// (Křivánek and Colbert, "Real-time Shading with Filtered Importance Sampling", EGSR 2008).
std::vector<Sample> samplesOf(float roughness, const RadianceImage &source)
{
    const float width = roughness * roughness;
    const float squared = width * width;
    const float texel = 4 * pi / (float(source.width) * float(source.height));
    std::vector<Sample> samples;
    float total = 0;
    for (int i = 0; i < samplesOfLevel; ++i) {
        const float turn = 2 * pi * (float(i) + 0.5f) / samplesOfLevel;
        const float chance = radicalInverse(quint32(i)) + 0.5f / samplesOfLevel;
        const float cosine = std::sqrt((1 - chance) / (1 + (squared - 1) * chance));
        const float sine = std::sqrt(std::max(0.0f, 1 - cosine * cosine));
        const QVector3D light(
            2 * cosine * sine * std::cos(turn), 2 * cosine * sine * std::sin(turn), 2 * cosine * cosine - 1);
        if (light.z() <= 0)
            continue;
        const float spread = cosine * cosine * (squared - 1) + 1;
        const float density = squared / (pi * spread * spread) / 4;
        const float solidAngle = 1 / (samplesOfLevel * density);
        samples.push_back({light, light.z(), std::max(0, qRound(0.5f * std::log2(solidAngle / texel) + 0.5f))});
        total += light.z();
    }
    for (Sample &sample : samples)
        sample.weight /= total;
    return samples;
}

std::vector<float> filteredLevel(int level, const Pyramid &whole, const Pyramid &withoutKey)
{
    const int side = FilteredEnvironment::sideOf(level);
    const float roughness = float(level) / (FilteredEnvironment::levels - 1);
    const std::vector<Sample> samples =
        level == 0 ? std::vector<Sample>{{{0, 0, 1}, 1, 0}} : samplesOf(roughness, withoutKey.largest());
    const Pyramid &source = level == 0 ? whole : withoutKey;
    std::vector<float> rgb(3 * size_t(side) * size_t(side));
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const float inner = float(side - 2);
            const QVector3D n = octahedronDirection((float(x) - 0.5f) / inner, (float(y) - 0.5f) / inner);
            const QVector3D aside = std::abs(n.z()) < 0.9f ? QVector3D(0, 0, 1) : QVector3D(1, 0, 0);
            const QVector3D across = QVector3D::crossProduct(aside, n).normalized();
            const QVector3D along = QVector3D::crossProduct(n, across);
            float *const texel = rgb.data() + 3 * (size_t(y) * size_t(side) + size_t(x));
            for (const Sample &sample : samples) {
                const QVector3D d =
                    sample.direction.x() * across + sample.direction.y() * along + sample.direction.z() * n;
                source.add(d, sample.level, sample.weight, texel);
            }
        }
    }
    return rgb;
}

/// The coefficients of an image's irradiance (Ramamoorthi and Hanrahan, "An Efficient Representation for Irradiance Environment
/// Maps", 2001), divided by pi.
std::array<QVector3D, 9> irradianceOf(const RadianceImage &image)
{
    constexpr float falloff[] = {1, 2.0f / 3, 2.0f / 3, 2.0f / 3, 0.25f, 0.25f, 0.25f, 0.25f, 0.25f};
    std::array<std::array<double, 3>, 9> sums = {};
    for (int y = 0; y < image.height; ++y) {
        const float area = rowSolidAngle(image, y);
        for (int x = 0; x < image.width; ++x) {
            const QVector3D d = texelDirection(image, x, y);
            const float basis[] = {0.282095f, 0.488603f * d.y(), 0.488603f * d.z(), 0.488603f * d.x(),
                1.092548f * d.x() * d.y(), 1.092548f * d.y() * d.z(), 0.315392f * (3 * d.z() * d.z() - 1),
                1.092548f * d.x() * d.z(), 0.546274f * (d.x() * d.x() - d.y() * d.y())};
            const float *const texel = image.at(x, y);
            for (size_t k = 0; k < 9; ++k) {
                for (size_t i = 0; i < 3; ++i)
                    sums[k][i] += double(area * basis[k] * texel[i]);
            }
        }
    }
    std::array<QVector3D, 9> result;
    for (size_t k = 0; k < 9; ++k)
        result[k] = falloff[k] * QVector3D(float(sums[k][0]), float(sums[k][1]), float(sums[k][2]));
    return result;
}

/// The image at a width that is worth filtering.
RadianceImage reduced(RadianceImage image)
{
    while (image.width >= 2 * workingWidth && image.height > 1)
        image = halved(image);
    return image;
}

bool isEven(const RadianceImage &image)
{
    for (size_t i = 3; i < image.rgb.size(); ++i) {
        if (image.rgb[i] != image.rgb[i - 3])
            return false;
    }
    return true;
}

FilteredEnvironment evenEnvironment(const float *rgb)
{
    FilteredEnvironment result;
    for (int level = 0; level < FilteredEnvironment::levels; ++level) {
        std::vector<float> &texels = result.rgb[size_t(level)];
        texels.resize(3 * size_t(FilteredEnvironment::sideOf(level)) * size_t(FilteredEnvironment::sideOf(level)));
        for (size_t i = 0; i < texels.size(); ++i)
            texels[i] = rgb[i % 3];
    }
    // The inverse of the first harmonic, so that the irradiance is that of the radiance.
    result.irradiance[0] = QVector3D(rgb[0], rgb[1], rgb[2]) / 0.282095f;
    return result;
}

// The file: level 0 above, the others side by side below it.

constexpr int fileHeight = FilteredEnvironment::side + FilteredEnvironment::side / 2;
const char *const versionName = "kvzFilteredEnvironment";
constexpr float version = 1;

QPoint cornerOf(int level)
{
    if (level == 0)
        return {0, 0};
    QPoint corner(0, FilteredEnvironment::side);
    for (int i = 1; i < level; ++i)
        corner.rx() += FilteredEnvironment::sideOf(i);
    return corner;
}

Imath::V3f exrVector(const QVector3D &vector)
{
    return {vector.x(), vector.y(), vector.z()};
}

/// To as many digits as Radiance files have, without which files are half as large again.
half rounded(float value)
{
    return half(std::min(value, 65504.0f)).round(8);
}

std::string coefficientName(size_t number)
{
    return "irradiance" + std::to_string(number);
}

} // namespace

QVector3D octahedronDirection(float u, float v)
{
    float x = 2 * u - 1;
    float z = 2 * v - 1;
    // Beyond an edge lies the edge's own other half.
    if (std::abs(x) > 1) {
        x = (x > 0 ? 2 : -2) - x;
        z = -z;
    }
    if (std::abs(z) > 1) {
        z = (z > 0 ? 2 : -2) - z;
        x = -x;
    }
    const float y = 1 - std::abs(x) - std::abs(z);
    if (y < 0) {
        const float folded = (1 - std::abs(z)) * (x < 0 ? -1.0f : 1.0f);
        z = (1 - std::abs(x)) * (z < 0 ? -1.0f : 1.0f);
        x = folded;
    }
    return QVector3D(x, y, z).normalized();
}

FilteredEnvironment filtered(const RadianceImage &image)
{
    if (isEven(image))
        return evenEnvironment(image.at(0, 0));
    RadianceImage working = reduced(image);
    const Pyramid whole(working);
    const KeyLight key = takeKeyLight(&working);
    const Pyramid rest(std::move(working));

    FilteredEnvironment result;
    for (int level = 0; level < FilteredEnvironment::levels; ++level)
        result.rgb[size_t(level)] = filteredLevel(level, whole, rest);
    result.irradiance = irradianceOf(rest.largest());
    result.keyDirection = key.direction;
    result.keyIlluminance = key.illuminance;
    return result;
}

FilteredEnvironment whiteEnvironment()
{
    const float white[] = {1, 1, 1};
    return evenEnvironment(white);
}

QByteArray written(const FilteredEnvironment &environment)
{
    Imf::Header header(FilteredEnvironment::side, fileHeight);
    header.compression() = Imf::PIZ_COMPRESSION;
    header.insert(versionName, Imf::V3fAttribute({version, FilteredEnvironment::side, FilteredEnvironment::levels}));
    header.insert("keyDirection", Imf::V3fAttribute(exrVector(environment.keyDirection)));
    header.insert("keyIlluminance", Imf::V3fAttribute(exrVector(environment.keyIlluminance)));
    for (size_t i = 0; i < 9; ++i)
        header.insert(coefficientName(i).c_str(), Imf::V3fAttribute(exrVector(environment.irradiance[i])));

    std::vector<Imf::Rgba> pixels(size_t(FilteredEnvironment::side) * size_t(fileHeight), Imf::Rgba(0, 0, 0));
    for (int level = 0; level < FilteredEnvironment::levels; ++level) {
        const QPoint corner = cornerOf(level);
        const int side = FilteredEnvironment::sideOf(level);
        const float *texel = environment.rgb[size_t(level)].data();
        for (int i = 0; i < side * side; ++i, texel += 3) {
            const size_t place =
                size_t(corner.y() + i / side) * FilteredEnvironment::side + size_t(corner.x() + i % side);
            pixels[place] = Imf::Rgba(rounded(texel[0]), rounded(texel[1]), rounded(texel[2]));
        }
    }
    try {
        ExrWriting stream;
        {
            Imf::RgbaOutputFile file(stream, header, Imf::WRITE_RGB);
            file.setFrameBuffer(pixels.data(), 1, FilteredEnvironment::side);
            file.writePixels(fileHeight);
        }
        return stream.content();
    } catch (const std::exception &) {
        return {}; // Nothing is kept then.
    }
}

FilteredEnvironment readFiltered(const QByteArray &content)
{
    try {
        ExrReading stream(content);
        Imf::RgbaInputFile file(stream);
        const Imf::Header &header = file.header();
        const auto vector = [&](const std::string &name) {
            const Imath::V3f value = header.typedAttribute<Imf::V3fAttribute>(name).value();
            return QVector3D(value.x, value.y, value.z);
        };
        const Imath::Box2i window = file.dataWindow();
        if (vector(versionName) != QVector3D(version, FilteredEnvironment::side, FilteredEnvironment::levels)
            || window.min != Imath::V2i(0, 0)
            || window.max != Imath::V2i(FilteredEnvironment::side - 1, fileHeight - 1))
            return {};
        std::vector<Imf::Rgba> pixels(size_t(FilteredEnvironment::side) * size_t(fileHeight));
        file.setFrameBuffer(pixels.data(), 1, FilteredEnvironment::side);
        file.readPixels(0, fileHeight - 1);

        FilteredEnvironment result;
        for (int level = 0; level < FilteredEnvironment::levels; ++level) {
            const QPoint corner = cornerOf(level);
            const int side = FilteredEnvironment::sideOf(level);
            std::vector<float> &rgb = result.rgb[size_t(level)];
            rgb.resize(3 * size_t(side) * size_t(side));
            float *texel = rgb.data();
            for (int i = 0; i < side * side; ++i, texel += 3) {
                const size_t place =
                    size_t(corner.y() + i / side) * FilteredEnvironment::side + size_t(corner.x() + i % side);
                texel[0] = pixels[place].r;
                texel[1] = pixels[place].g;
                texel[2] = pixels[place].b;
            }
        }
        for (size_t i = 0; i < 9; ++i)
            result.irradiance[i] = vector(coefficientName(i));
        result.keyDirection = vector("keyDirection");
        result.keyIlluminance = vector("keyIlluminance");
        return result;
    } catch (const std::exception &) {
        return {};
    }
}

} // namespace Velmora::Kvz
