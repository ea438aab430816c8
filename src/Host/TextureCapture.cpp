// SPDX-License-Identifier: MIT
#include <Host/TextureCapture.h>

#include "PackState.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtGui/QColor>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>

namespace Velmora::Kvz {

namespace {

/// Zeroed memory for `count` numbers; null when there is none. Qt's containers are too small for large images.
template <typename Number> std::unique_ptr<Number[]> allocate(size_t count)
{
    return std::unique_ptr<Number[]>(new (std::nothrow) Number[count]());
}

/// Texels as four floats each, bottom row first, layer after layer.
struct Texels
{
    int width = 0;
    int height = 0;
    int layers = 1;
    std::unique_ptr<float[]> data; ///< Null when there is no memory.

    size_t texelsOfLayer() const { return size_t(width) * size_t(height); }
    size_t count() const { return texelsOfLayer() * size_t(layers); }
    float *layer(int number) const { return data.get() + 4 * texelsOfLayer() * size_t(number); }
};

/// Reads texels with fewer channels than four into the first of them.
template <typename Number> void readChannels(GLenum target, GLenum format, GLenum type, size_t channels, Texels *texels)
{
    const auto numbers = allocate<Number>(channels * texels->count());
    if (!numbers) {
        texels->data.reset();
        return;
    }
    glGetTexImage(target, 0, format, type, numbers.get());
    for (size_t i = 0; i < texels->count(); ++i) {
        for (size_t channel = 0; channel < channels; ++channel)
            texels->data[4 * i + channel] = float(numbers[channels * i + channel]);
    }
}

/// The layers of the bound texture: 1 unless it is an array.
int layersOfBound(GLenum target)
{
    GLint layers = 1;
    glGetTexLevelParameteriv(target, 0, GL_TEXTURE_DEPTH, &layers);
    return target == GL_TEXTURE_2D_ARRAY ? layers : 1;
}

Texels readTexels(Texture *texture)
{
    const AutoBinder binder(texture);
    const PackState pack;
    const GLenum target = texture->target();
    Texels texels{texture->width(0), texture->height(0), layersOfBound(target), nullptr};
    texels.data = allocate<float>(4 * texels.count());
    if (!texels.data)
        return texels;
    const auto internalFormat = unsigned(texture->internalFormat(0));
    const GLenum format = formatFromInternalFormat(internalFormat);
    if (isDepthFormat(internalFormat))
        readChannels<float>(target, GL_DEPTH_COMPONENT, GL_FLOAT, 1, &texels);
    else if (format == GL_RED_INTEGER || format == GL_RG_INTEGER)
        readChannels<quint32>(target, format, GL_UNSIGNED_INT, format == GL_RED_INTEGER ? 1 : 2, &texels);
    else
        glGetTexImage(target, 0, GL_RGBA, GL_FLOAT, texels.data.get());
    return texels;
}

Texels readResolvedTexels(Texture *texture)
{
    const int width = texture->width(0);
    const int height = texture->height(0);
    const auto internalFormat = unsigned(texture->internalFormat(0));
    if (isDepthFormat(internalFormat)) {
        // Depth can be resolved only between equal formats, and the pool has one of them.
        Texture resolved(GL_TEXTURE_2D, int(internalFormat), width, height, 0, nullptr);
        {
            const AutoBinder binder(&resolved);
            glTexImage2D(GL_TEXTURE_2D, 0, int(internalFormat), width, height, 0,
                formatFromInternalFormat(internalFormat), typeFromInternalFormat(internalFormat), nullptr);
        }
        BlitTexture(texture, &resolved, TextureFormat::DepthStencil, width, height);
        return readTexels(&resolved);
    }
    TextureManager *manager = TextureManager::Instance();
    Texture *resolved = manager->tempTexture(TextureFormat::HighDynamicRange, width, height, 1, 1);
    BlitTexture(texture, resolved, TextureFormat::HighDynamicRange, width, height);
    Texels texels = readTexels(resolved);
    manager->releaseTempTextureRef(resolved, 1);
    return texels;
}

float fraction(float value)
{
    return value - std::floor(value);
}

int toByte(float value)
{
    return value >= 1 ? 255 : value > 0 ? int(value * 255 + 0.5f) : 0; // NaN gives 0
}

QRgb rgb(float red, float green, float blue, float alpha = 1)
{
    return qRgba(toByte(red), toByte(green), toByte(blue), toByte(alpha));
}

/// A colour that differs between neighbouring numbers.
QRgb idColor(float id)
{
    const auto number = std::isfinite(id) ? std::lround(id) : 0;
    if (number == 0)
        return qRgb(0, 0, 0);
    const double hue = std::fmod(number * 0.6180339887498949, 1.0);
    return QColor::fromHsvF(std::abs(hue), number % 2 ? 0.75 : 0.5, 0.95).rgb();
}

/// The distance from the camera plane at a depth from 0 to 1.
float distanceOf(float depth, const QMatrix4x4 &projection)
{
    if (projection.isIdentity())
        return depth;
    const float z = 2 * depth - 1;
    return -(projection(2, 3) - z * projection(3, 3)) / (z * projection(3, 2) - projection(2, 2));
}

/// Converts the depths of a layer to grey: 1 for the nearest, 0.2 for the farthest, 0 for nothing.
void showDepth(const Texels &texels, int layer, const QMatrix4x4 &projection)
{
    float nearest = INFINITY;
    float farthest = -INFINITY;
    float *const begin = texels.layer(layer);
    float *const end = begin + 4 * texels.texelsOfLayer();
    for (float *texel = begin; texel != end; texel += 4) {
        float &depth = *texel;
        if (!(depth < 1)) {
            depth = NAN;
            continue;
        }
        depth = distanceOf(depth, projection);
        nearest = std::min(nearest, depth);
        farthest = std::max(farthest, depth);
    }
    const float range = std::max(farthest - nearest, 1e-6f);
    for (float *texel = begin; texel != end; texel += 4)
        *texel = 1 - 0.8f * (*texel - nearest) / range;
}

QRgb shown(const float *texel, TextureDisplay display)
{
    switch (display) {
    case TextureDisplay::Colour:
        return rgb(texel[0], texel[1], texel[2], texel[3]);
    case TextureDisplay::Normal:
        if (texel[0] == 0 && texel[1] == 0 && texel[2] == 0)
            return qRgb(0, 0, 0);
        return rgb(texel[0] / 2 + 0.5f, texel[1] / 2 + 0.5f, texel[2] / 2 + 0.5f);
    case TextureDisplay::TexCoord:
        return rgb(fraction(texel[0]), fraction(texel[1]), 0);
    case TextureDisplay::Positions:
        return rgb(fraction(texel[0]), fraction(texel[1]), fraction(texel[2]));
    case TextureDisplay::Id:
        return idColor(texel[0]);
    case TextureDisplay::Depth:
    case TextureDisplay::Scalar:
        return rgb(texel[0], texel[0], texel[0]);
    case TextureDisplay::Motion:
        return rgb(8 * texel[0] + 0.5f, 8 * texel[1] + 0.5f, 0.5f);
    case TextureDisplay::ListLength:
    case TextureDisplay::Hidden:
        break;
    }
    return 0;
}

/// The red channel of the first rows of an integer texture; null when there is no memory.
std::unique_ptr<quint32[]> readRed(Texture *texture, int width, int rows)
{
    auto numbers = allocate<quint32>(size_t(width) * size_t(rows));
    if (!numbers)
        return numbers;
    FramebufferObject framebuffer;
    const AutoBinder binder(&framebuffer);
    framebuffer.attach(texture, GL_COLOR_ATTACHMENT0, 0);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    const PackState pack;
    const auto internalFormat = unsigned(texture->internalFormat(0));
    glReadPixels(0, 0, width, rows, GL_RED_INTEGER, typeFromInternalFormat(internalFormat), numbers.get());
    return numbers;
}

/// The colour of a list of `length` nodes.
QRgb lengthColor(int length)
{
    static constexpr QRgb colors[] = {
        0xff000000, 0xff1a2a8c, 0xff1f78c8, 0xff23b8a0, 0xff6ac832, 0xfff0d21e, 0xfff07818, 0xffffffff};
    if (length > 50)
        return colors[7];
    int color = 0;
    for (; length > 0; length /= 2)
        ++color;
    return colors[color];
}

constexpr QRgb lostColor = 0xffff00ff;

/// Whether there are two-dimensional texels. The size alone does not tell: GL may have had no memory for them.
bool hasTexels(Texture *texture)
{
    const GLenum target = texture->target();
    if (target != GL_TEXTURE_2D && target != GL_TEXTURE_2D_MULTISAMPLE && target != GL_TEXTURE_2D_ARRAY)
        return false;
    const AutoBinder binder(texture);
    GLint width = 0;
    glGetTexLevelParameteriv(target, 0, GL_TEXTURE_WIDTH, &width);
    return width > 0 && layersOfBound(target) > 0;
}

bool isInteger(unsigned int internalFormat)
{
    switch (formatFromInternalFormat(internalFormat)) {
    case GL_RED_INTEGER:
    case GL_RG_INTEGER:
    case GL_RGB_INTEGER:
    case GL_RGBA_INTEGER:
        return true;
    default:
        return false;
    }
}

/// The channels of a format, depth with stencil as one.
int channelsOf(unsigned int internalFormat)
{
    if (isDepthFormat(internalFormat))
        return 1;
    switch (formatFromInternalFormat(internalFormat)) {
    case GL_RED:
    case GL_RED_INTEGER:
        return 1;
    case GL_RG:
    case GL_RG_INTEGER:
        return 2;
    case GL_RGB:
    case GL_BGR:
    case GL_RGB_INTEGER:
        return 3;
    default:
        return 4;
    }
}

/// Copies the first channels of texels, of `stride` numbers each and with the bottom row first.
template <typename Number>
void takeTopRowFirst(const Number *from, int stride, const TexelImage &size, std::vector<Number> *to)
{
    const auto width = size_t(size.width);
    const auto height = size_t(size.height);
    const auto channels = size_t(size.channels);
    to->resize(width * height * channels);
    Number *out = to->data();
    for (size_t y = height; y-- > 0;) {
        const Number *texel = from + y * width * size_t(stride);
        for (size_t x = 0; x < width; ++x, texel += stride, out += channels)
            std::copy(texel, texel + channels, out);
    }
}

/// Paints a layer with its upper left corner at a point of the picture.
void paint(const Texels &texels, int layer, TextureDisplay display, QImage *image, int left, int top)
{
    for (int y = 0; y < texels.height; ++y) {
        const float *texel = texels.layer(layer) + 4 * size_t(texels.width) * size_t(texels.height - 1 - y);
        uchar *pixel = image->scanLine(top + y) + 4 * left;
        for (int x = 0; x < texels.width; ++x, texel += 4, pixel += 4) {
            const QRgb color = shown(texel, display);
            pixel[0] = uchar(qRed(color));
            pixel[1] = uchar(qGreen(color));
            pixel[2] = uchar(qBlue(color));
            pixel[3] = uchar(qAlpha(color));
        }
    }
}

} // namespace

QImage captureTexture(Texture *texture, TextureDisplay display, const QMatrix4x4 &projection, int layers)
{
    const bool isPicture = display != TextureDisplay::Hidden && display != TextureDisplay::ListLength;
    if (!texture || !isPicture || !hasTexels(texture))
        return QImage();
    const Texels texels =
        texture->target() == GL_TEXTURE_2D_MULTISAMPLE ? readResolvedTexels(texture) : readTexels(texture);
    if (!texels.data)
        return QImage();

    const int count = layers > 0 ? std::min(layers, texels.layers) : texels.layers;
    const int columns = int(std::ceil(std::sqrt(float(count))));
    const int rows = (count + columns - 1) / columns;
    const int stepX = texels.width + captureGap();
    const int stepY = texels.height + captureGap();
    QImage image(columns * stepX - captureGap(), rows * stepY - captureGap(), QImage::Format_RGBA8888);
    if (image.isNull())
        return image;
    if (count > 1)
        image.fill(Qt::transparent);
    for (int layer = 0; layer < count; ++layer) {
        if (display == TextureDisplay::Depth)
            showDepth(texels, layer, projection);
        paint(texels, layer, display, &image, layer % columns * stepX, layer / columns * stepY);
    }
    return image;
}

TexelImage captureTexels(Texture *texture)
{
    if (!texture || texture->target() == GL_TEXTURE_2D_ARRAY || !hasTexels(texture))
        return {};
    const auto internalFormat = unsigned(texture->internalFormat(0));
    const bool isMultisampled = texture->target() == GL_TEXTURE_2D_MULTISAMPLE;
    const int channels = channelsOf(internalFormat);
    TexelImage image{texture->width(0), texture->height(0), channels, {}, {}};
    if (!isInteger(internalFormat)) {
        const Texels texels = isMultisampled ? readResolvedTexels(texture) : readTexels(texture);
        if (texels.data)
            takeTopRowFirst(texels.data.get(), 4, image, &image.floats);
    } else if (!isMultisampled) {
        const auto numbers = allocate<quint32>(size_t(image.width) * size_t(image.height) * size_t(channels));
        if (numbers) {
            const AutoBinder binder(texture);
            const PackState pack;
            glGetTexImage(GL_TEXTURE_2D, 0, formatFromInternalFormat(internalFormat), GL_UNSIGNED_INT, numbers.get());
            takeTopRowFirst(numbers.get(), channels, image, &image.integers);
        }
    }
    return image;
}

void distancesFromDepth(TexelImage *depth, const QMatrix4x4 &projection)
{
    if (depth->channels != 1)
        return;
    for (float &value : depth->floats)
        value = value < 1 ? distanceOf(value, projection) : INFINITY;
}

QImage captureListLengths(Texture *heads, Texture *nodes, int nodeWidth)
{
    if (!heads || !nodes || nodeWidth < 1 || !hasTexels(heads) || !hasTexels(nodes))
        return QImage();
    const int width = heads->width(0);
    const int height = heads->height(0);
    QImage image(width, height, QImage::Format_RGBA8888);
    const auto pointers = readRed(heads, width, height);
    if (image.isNull() || !pointers)
        return QImage();
    const size_t pixels = size_t(width) * size_t(height);
    const quint32 last = *std::max_element(pointers.get(), pointers.get() + pixels);
    const int columns = std::min(nodeWidth, nodes->width(0));
    const int rows =
        int(std::min((quint64(last) + quint64(nodeWidth) - 1) / quint64(nodeWidth), quint64(nodes->height(0))));
    const auto next = readRed(nodes, columns, std::max(rows, 1));
    if (!next)
        return QImage();

    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            quint32 pointer = pointers[size_t(y) * size_t(width) + size_t(x)];
            int length = 0;
            bool isLost = false;
            while (pointer != 0 && !isLost) {
                const quint32 row = (pointer - 1) / quint32(nodeWidth);
                const quint32 column = (pointer - 1) % quint32(nodeWidth);
                isLost = row >= quint32(rows) || column >= quint32(columns);
                if (!isLost)
                    pointer = next[size_t(row) * size_t(columns) + column];
                ++length;
            }
            image.setPixel(x, height - 1 - y, isLost ? lostColor : lengthColor(length));
        }
    }
    return image;
}

} // namespace Velmora::Kvz
