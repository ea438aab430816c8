// SPDX-License-Identifier: MIT
#include "PictureOutput.h"

#include "RenderOutputs.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <unistd.h>

namespace Velmora::Kvz {

namespace {

/// Whether each row of pixels has one colour.
bool hasPlainRows(const void *pixels, size_t width, size_t pixelBytes, size_t rowBytes, int rows)
{
    const auto *row = static_cast<const char *>(pixels);
    for (int y = 0; y < rows; ++y, row += rowBytes) {
        // Each pixel is the one before it.
        if (width > 1 && std::memcmp(row, row + pixelBytes, (width - 1) * pixelBytes) != 0)
            return false;
    }
    return true;
}

bool isByte(float value)
{
    const float steps = 255 * value;
    return std::abs(steps - std::round(steps)) < 1e-4f;
}

/// The layer that an image becomes; without channels for one that fits no layer.
LightLayer layerOf(const RenderChain::Capture &image)
{
    LightLayer layer;
    layer.name = QStringLiteral("%1.%2").arg(image.pass, image.port.section(QLatin1Char('_'), -1));
    const TexelImage &texels = image.texels;
    if (texels.isNull())
        return layer;
    const bool isColour = image.kind == TextureKind::Colour || image.kind == TextureKind::Diffuse
        || image.kind == TextureKind::Specular || image.kind == TextureKind::Emission
        || image.kind == TextureKind::Overlay || image.kind == TextureKind::Obscurance
        || image.kind == TextureKind::Luminance;
    const char *const names = image.kind == TextureKind::Depth ? "Z" : isColour ? "RGBA" : "XYZW";
    for (int channel = 0; channel < texels.channels; ++channel)
        layer.channels.append(QString(QLatin1Char(names[channel])));
    const bool isExact =
        image.kind == TextureKind::Depth || image.kind == TextureKind::Positions || image.kind == TextureKind::Id;
    layer.type = !texels.integers.empty() ? LightLayer::Type::UInt
        : isExact                         ? LightLayer::Type::Float
                                          : LightLayer::Type::Half;
    return layer;
}

} // namespace

PictureOutput::PictureOutput(const Picture &picture, const RenderOptions &options, bool endsInLight)
    : m_picture(picture),
      m_options(options),
      m_endsInLight(endsInLight)
{ }

PictureOutput::~PictureOutput() = default;

QString PictureOutput::named(const QString &reason) const
{
    return QStringLiteral("%1: %2").arg(
        m_options.writesToStandardOutput() ? QStringLiteral("standard output") : m_picture.file, reason);
}

QString PictureOutput::add(const PictureTile &tile, RenderTarget &target, QVector<RenderChain::Capture> images)
{
    QString problem = m_options.written.needsFloats() ? addColours(tile, target) : addBytes(tile, target);
    if (problem.isEmpty() && m_options.written.layers)
        addLayers(tile, images);
    const bool endsRow = tile.shown.left() + tile.shown.width() == m_options.size.width();
    if (!problem.isEmpty() || !endsRow)
        return problem;
    QElapsedTimer timer;
    timer.start();
    problem = flush(tile.shown.height());
    m_writingMilliseconds += double(timer.nsecsElapsed()) * 1e-6;
    return problem;
}

QString PictureOutput::addBytes(const PictureTile &tile, RenderTarget &target)
{
    const QRect place = tile.shown.translated(-tile.drawn.topLeft());
    const QImage part = target.rows(place, m_options.hasTransparentBackground());
    if (part.isNull())
        return noMemory(m_options.size);
    if (part.width() == m_options.size.width()) {
        m_bytes = part;
        return {};
    }
    if (m_bytes.isNull() || m_bytes.height() != part.height())
        m_bytes = QImage(m_options.size.width(), part.height(), part.format());
    if (m_bytes.isNull())
        return noMemory(m_options.size);
    const int pixelBytes = part.depth() / 8;
    for (int y = 0; y < part.height(); ++y)
        std::memcpy(m_bytes.scanLine(y) + tile.shown.left() * pixelBytes, part.constScanLine(y),
            size_t(part.width() * pixelBytes));
    return {};
}

QString PictureOutput::addColours(const PictureTile &tile, RenderTarget &target)
{
    std::vector<float> part = target.colours(tile.shown.translated(-tile.drawn.topLeft()));
    if (part.empty())
        return noMemory(m_options.size);
    m_holdsBytesAlone = m_holdsBytesAlone && std::all_of(part.begin(), part.end(), isByte);
    const auto width = size_t(m_options.size.width());
    if (size_t(tile.shown.width()) == width) {
        m_colours = std::move(part);
        return {};
    }
    m_colours.resize(4 * width * size_t(tile.shown.height()));
    const size_t rowNumbers = 4 * size_t(tile.shown.width());
    for (size_t y = 0; y < size_t(tile.shown.height()); ++y)
        std::copy_n(part.begin() + std::ptrdiff_t(y * rowNumbers), rowNumbers,
            m_colours.begin() + std::ptrdiff_t(4 * (y * width + size_t(tile.shown.left()))));
    return {};
}

/// Decides by the first tile which images become layers.
void PictureOutput::chooseLayers(const PictureTile &tile, const QVector<RenderChain::Capture> &images)
{
    m_hasChosenLayers = true;
    for (const RenderChain::Capture &image : images) {
        const LightLayer layer = layerOf(image);
        if (QSize(image.texels.width, image.texels.height) != tile.drawn.size() || layer.channels.isEmpty()) {
            m_missingLayers.append(layer.name);
            continue;
        }
        m_layers.append(layer);
        m_sources.append({image.pass, image.port});
    }
    m_layerWords.resize(size_t(m_layers.size()));
}

void PictureOutput::addLayers(const PictureTile &tile, const QVector<RenderChain::Capture> &images)
{
    if (!m_hasChosenLayers)
        chooseLayers(tile, images);
    const auto width = size_t(m_options.size.width());
    const QRect place = tile.shown.translated(-tile.drawn.topLeft());
    const int top = tile.drawn.height() - place.top() - place.height();
    for (int i = 0; i < m_layers.size(); ++i) {
        const auto image = std::find_if(images.begin(), images.end(), [&](const RenderChain::Capture &capture) {
            return capture.pass == m_sources[i].first && capture.port == m_sources[i].second;
        });
        const auto channels = size_t(m_layers[i].channels.size());
        std::vector<quint32> &words = m_layerWords[size_t(i)];
        words.resize(channels * width * size_t(place.height()));
        // A pass may have had nothing to draw in this part.
        const bool isThere = image != images.end()
            && QSize(image->texels.width, image->texels.height) == tile.drawn.size()
            && size_t(image->texels.channels) == channels;
        if (!isThere) {
            for (int y = 0; y < place.height(); ++y)
                std::fill_n(words.begin() + std::ptrdiff_t((size_t(y) * width + size_t(tile.shown.left())) * channels),
                    channels * size_t(place.width()), 0);
            continue;
        }
        const TexelImage &texels = image->texels;
        const void *const from =
            texels.integers.empty() ? static_cast<const void *>(texels.floats.data()) : texels.integers.data();
        for (int y = 0; y < place.height(); ++y) {
            const size_t begin = (size_t(top + y) * size_t(texels.width) + size_t(place.left())) * channels;
            std::memcpy(words.data() + (size_t(y) * width + size_t(tile.shown.left())) * channels,
                static_cast<const quint32 *>(from) + begin, channels * size_t(place.width()) * sizeof(quint32));
        }
    }
    noteLateLayers(images);
}

/// What the first tile did not have and this one has is not in the file.
void PictureOutput::noteLateLayers(const QVector<RenderChain::Capture> &images)
{
    for (const RenderChain::Capture &image : images) {
        const QString name = layerOf(image).name;
        const QString late = QStringLiteral("%1 (only in a part of the picture)").arg(name);
        const bool isKnown = m_sources.contains({image.pass, image.port}) || m_missingLayers.contains(name);
        if (!isKnown && !m_missingLayers.contains(late))
            m_missingLayers.append(late);
    }
}

bool PictureOutput::openPicture(QString *error)
{
    if (m_file)
        return true;
    if (m_options.writesToStandardOutput()) {
        m_buffer.open(QIODevice::WriteOnly);
        m_file = PictureFile::create(&m_buffer, m_options.size, m_options.written.format, error);
        *error = named(*error);
    } else {
        m_file = PictureFile::create(m_picture.file, m_options.size, m_options.written.format, error);
    }
    return m_file != nullptr;
}

QString PictureOutput::flush(int rows)
{
    if (m_options.written.isLight)
        return flushLight(rows);
    if (m_options.written.needsFloats())
        m_bytes = wordsFromColours(
            m_colours.data(), QSize(m_options.size.width(), rows), m_options.hasTransparentBackground());
    if (m_bytes.isNull())
        return noMemory(m_options.size);
    m_isPlain = m_isPlain
        && hasPlainRows(m_bytes.constBits(), size_t(m_bytes.width()), size_t(m_bytes.depth()) / 8,
            size_t(m_bytes.bytesPerLine()), m_bytes.height());
    QString reason;
    if (!openPicture(&reason))
        return reason;
    return m_file->append(m_bytes, &reason) ? QString() : named(reason);
}

QString PictureOutput::flushLight(int rows)
{
    const size_t pixels = size_t(m_options.size.width()) * size_t(rows);
    const bool hasAlpha = m_options.hasTransparentBackground();
    m_isPlain = m_isPlain
        && hasPlainRows(m_colours.data(), size_t(m_options.size.width()), 4 * sizeof(float),
            4 * sizeof(float) * size_t(m_options.size.width()), rows);
    if (!hasAlpha) {
        for (size_t i = 0; i < pixels; ++i)
            m_colours[4 * i + 3] = 1;
    }
    if (!m_endsInLight)
        decodeDisplayColours(m_colours.data(), pixels);
    if (!hasAlpha) {
        for (size_t i = 0; i < pixels; ++i)
            std::copy_n(m_colours.begin() + std::ptrdiff_t(4 * i), 3, m_colours.begin() + std::ptrdiff_t(3 * i));
    }
    QString reason;
    if (!m_light) {
        LightLayer picture;
        for (const char *channel : {"R", "G", "B", "A"})
            picture.channels.append(QString::fromLatin1(channel));
        if (!hasAlpha)
            picture.channels.removeLast();
        m_light = LightFile::create(m_picture.file, m_options.size, QVector<LightLayer>{picture} + m_layers, &reason);
        if (!m_light)
            return reason;
    }
    QVector<const void *> data{m_colours.data()};
    for (const std::vector<quint32> &words : m_layerWords)
        data.append(words.data());
    return m_light->append(rows, data, &reason) ? QString() : named(reason);
}

QString PictureOutput::finish()
{
    QString reason;
    if (!(m_light ? m_light->finish(&reason) : m_file && m_file->finish(&reason)))
        return named(reason);
    if (!m_options.writesToStandardOutput())
        return {};
    QFile output;
    if (output.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered)
        && output.write(m_buffer.data()) == m_buffer.size())
        return {};
    return named(output.errorString());
}

} // namespace Velmora::Kvz
