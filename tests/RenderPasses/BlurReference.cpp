// SPDX-License-Identifier: MIT
#include "BlurReference.h"

#include <GL/AutoBinder.h>

#include <QtCore/QByteArray>
#include <QtGui/QVector3D>

#include <algorithm>
#include <cstdio>
#include <random>

namespace Velmora::Kvz {

namespace {

/// Noise between 0 and 1 whose hills are about as wide as `cell`.
class Hills
{
public:
    Hills(int width, int height, int cell, unsigned seed)
        : m_cell(cell),
          m_columns(width / cell + 2)
    {
        std::mt19937 random(seed);
        for (int i = 0; i < m_columns * (height / cell + 2); ++i)
            m_heights.append(float(random() % 1024) / 1023.0f);
    }
    float at(int x, int y) const
    {
        const auto smooth = [](float t) { return t * t * (3.0f - 2.0f * t); };
        const float u = smooth(float(x % m_cell) / float(m_cell));
        const float v = smooth(float(y % m_cell) / float(m_cell));
        const auto height = [&](int dx, int dy) { return m_heights[(y / m_cell + dy) * m_columns + x / m_cell + dx]; };
        return (height(0, 0) * (1 - u) + height(1, 0) * u) * (1 - v) + (height(0, 1) * (1 - u) + height(1, 1) * u) * v;
    }

private:
    int m_cell;
    int m_columns;
    QVector<float> m_heights;
};

void accumulate(Color *sum, double weight, const Color &color)
{
    for (size_t k = 0; k < 4; ++k)
        (*sum)[k] += weight * color[k];
}

} // namespace

Image photograph(int width, int height, float brightest, unsigned seed)
{
    const Hills clouds(width, height, std::max(2, width / 5), seed);
    const Hills ground(width, height, std::max(2, width / 16), seed + 1);
    std::mt19937 random(seed + 2);
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float u = (float(x) + 0.5f) / float(width);
            const float v = (float(y) + 0.5f) / float(height);
            QVector3D color;
            if (v > 0.4f + 0.06f * std::sin(9.0f * u))
                color =
                    QVector3D(0.35f, 0.5f, 0.75f) * (1.1f - 0.5f * v) + QVector3D(0.4f, 0.35f, 0.3f) * clouds.at(x, y);
            else
                color = QVector3D(0.3f, 0.28f, 0.12f) * (0.3f + 1.2f * ground.at(x, y));
            // A tower with windows, a few of them lit.
            if (u > 0.15f && u < 0.33f && v > 0.2f && v < 0.75f) {
                color = QVector3D(0.2f, 0.17f, 0.16f) * (0.6f + 2.0f * u);
                const int column = int((u - 0.15f) * 45.0f);
                const int row = int((v - 0.2f) * 40.0f);
                if (column % 2 == 1 && row % 2 == 1)
                    color = (column + row) % 4 == 0 ? QVector3D(1.0f, 0.8f, 0.4f) * brightest : QVector3D();
            }
            // The sun.
            const QVector2D fromSun((u - 0.72f) * float(width) / float(height), v - 0.74f);
            if (fromSun.length() < 0.09f)
                color = QVector3D(1.0f, 0.95f, 0.8f) * brightest;
            const float grain = 0.92f + 0.08f * float(random() % 1024) / 1023.0f;
            image.setPixel(x, y, QVector4D(color * grain, 1.0f));
        }
    }
    return image;
}

Image plain(int width, int height, const QVector4D &color)
{
    Image image(width, height);
    for (int i = 0; i < width * height; ++i)
        image.setPixel(i % width, i / width, color);
    return image;
}

Kernel foldedKernel(float radius, float extent)
{
    const double sigma = double(radius) + double(0.0001f);
    // The pass decides in single precision where the kernel ends.
    const float limit = radius * extent;
    Kernel kernel;
    while (float(kernel.count) < limit || kernel.count % 2 == 0)
        ++kernel.count;
    const auto density = [sigma](int i) { return std::exp(-0.5 * (i / sigma) * (i / sigma)); };
    double sum = 0;
    for (int i = 1 - kernel.count; i < kernel.count; ++i)
        sum += density(i);
    kernel.weights.append(density(0) / sum);
    kernel.offsets.append(0);
    for (int i = 1; i < kernel.count; i += 2) {
        const double both = density(i) + density(i + 1);
        kernel.weights.append(both / sum);
        kernel.offsets.append(i + density(i + 1) / both);
    }
    return kernel;
}

Color gaussianSum(double sigma, int reach, const Neighbour &neighbour)
{
    Color sum = {};
    double total = 0;
    QVector<double> densities;
    for (int d = 0; d <= reach; ++d)
        densities.append(std::exp(-double(d * d) / (2.0 * sigma * sigma)));
    for (int dy = -reach; dy <= reach; ++dy) {
        for (int dx = -reach; dx <= reach; ++dx) {
            const double weight = densities[std::abs(dx)] * densities[std::abs(dy)];
            accumulate(&sum, weight, neighbour(dx, dy));
            total += weight;
        }
    }
    for (double &channel : sum)
        channel /= total;
    return sum;
}

Color texel(const Image &image, int x, int y)
{
    const float *const t = image.at(qBound(0, x, image.width - 1), qBound(0, y, image.height - 1));
    return {double(t[0]), double(t[1]), double(t[2]), double(t[3])};
}

Color texelBetween(const Image &image, double x, double y)
{
    const int left = int(std::floor(x));
    const int bottom = int(std::floor(y));
    const double u = x - left;
    const double v = y - bottom;
    Color color = {};
    accumulate(&color, (1 - u) * (1 - v), texel(image, left, bottom));
    accumulate(&color, u * (1 - v), texel(image, left + 1, bottom));
    accumulate(&color, (1 - u) * v, texel(image, left, bottom + 1));
    accumulate(&color, u * v, texel(image, left + 1, bottom + 1));
    return color;
}

void setTexel(Image *image, int x, int y, const Color &color)
{
    for (size_t k = 0; k < 4; ++k)
        image->at(x, y)[k] = float(color[k]);
}

Image gaussianBlurred(const Image &image, double sigma, int reach)
{
    Image blurred(image.width, image.height);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x)
            setTexel(&blurred, x, y,
                gaussianSum(sigma, reach, [&](int dx, int dy) { return texel(image, x + dx, y + dy); }));
    }
    return blurred;
}

Image resampled(const Image &image, const QSize &size)
{
    Image result(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            setTexel(&result, x, y,
                texelBetween(image, (x + 0.5) * image.width / size.width() - 0.5,
                    (y + 0.5) * image.height / size.height() - 0.5));
    }
    return result;
}

Deviation deviation(const std::string &name, const Image &image, const Image &reference)
{
    Deviation result;
    result.largest = maximumDifference(image, reference);
    if (result.largest < 1e29) {
        for (int i = 0; i < image.data.size(); ++i)
            result.mean += std::abs(double(image.data[i]) - double(reference.data[i])) / image.data.size();
    }
    std::printf("             %s: largest difference %.5f, mean %.5f\n", name.c_str(), result.largest, result.mean);
    return result;
}

TextureReads::TextureReads()
{
    m_sources.replacement = [this](GLuint shader, GLsizei, const GLchar *const *strings, const GLint *lengths) {
        QByteArray text(strings[0], lengths[0]);
        if (text.contains("o_Output")) {
            text.replace("texture(", "countedTexture(");
            text.insert(text.indexOf('\n') + 1,
                "int reads = 0;\n"
                "vec4 countedTexture(sampler2D s, vec2 p) { ++reads; return texture(s, p); }\n");
            text.insert(text.lastIndexOf('}'), "    o_Output = vec4(float(reads));\n");
        }
        const GLchar *const changed = text.constData();
        const GLint length = text.size();
        m_sources.forward(shader, 1, &changed, &length);
    };
    m_draws.replacement = [this](GLenum mode, GLint first, GLsizei count) {
        m_draws.forward(mode, first, count);
        float pixel[4] = {};
        glReadPixels(0, 0, 1, 1, GL_RGBA, GL_FLOAT, pixel);
        counts.append(int(pixel[0]));
    };
}

VectorUniforms::VectorUniforms()
{
    m_calls.onCall = [this](GLint, GLsizei, const GLfloat *value) { values.append(QVector2D(value[0], value[1])); };
}

QVector<int> samplingOf(Texture *texture)
{
    AutoBinder binder(texture);
    QVector<int> values;
    for (GLenum name : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER, GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
        GLint value = 0;
        glGetTexParameteriv(texture->target(), name, &value);
        values.append(value);
    }
    return values;
}

QVector<int> linearAndClamped()
{
    return {GL_LINEAR, GL_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE};
}

} // namespace Velmora::Kvz
