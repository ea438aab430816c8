// SPDX-License-Identifier: MIT
#include <Host/LightFile.h>

#include "WritingReason.h"

#include <Host/PictureNames.h>

#include <QtCore/QSaveFile>
#include <QtCore/QSet>

#include <ImfChannelList.h>
#include <ImfChromaticities.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <vector>

namespace Velmora::Kvz {

namespace {

const char *const fullDisk = "not written";

/// Leads what OpenEXR writes to a device.
class DeviceStream : public Imf::OStream
{
public:
    explicit DeviceStream(QIODevice *device)
        : OStream("picture"),
          m_device(device)
    { }
    void write(const char from[], int count) override
    {
        if (m_device->write(from, count) != count)
            throw std::runtime_error(fullDisk);
    }
    uint64_t tellp() override { return uint64_t(m_device->pos()); }
    void seekp(uint64_t position) override
    {
        if (!m_device->seek(qint64(position)))
            throw std::runtime_error(fullDisk);
    }

private:
    QIODevice *m_device;
};

Imf::PixelType pixelType(LightLayer::Type type)
{
    switch (type) {
    case LightLayer::Type::Half:
        return Imf::HALF;
    case LightLayer::Type::Float:
        return Imf::FLOAT;
    case LightLayer::Type::UInt:
        break;
    }
    return Imf::UINT;
}

std::string channelName(const LightLayer &layer, const QString &channel)
{
    return (layer.name.isEmpty() ? channel : layer.name + QLatin1Char('.') + channel).toStdString();
}

/// Why a file cannot hold these layers; empty when it can.
QString layerProblem(const QVector<LightLayer> &layers)
{
    QSet<QString> names;
    for (const LightLayer &layer : layers) {
        for (const QString &channel : layer.channels) {
            const QString name = QString::fromStdString(channelName(layer, channel));
            if (names.contains(name))
                return QStringLiteral("it cannot have two channels %1").arg(name);
            names.insert(name);
        }
    }
    return names.isEmpty() ? QStringLiteral("there is no picture to write") : QString();
}

half roundedToHalf(float value)
{
    constexpr float most = 65504;
    return half(std::isfinite(value) ? std::clamp(value, -most, most) : value);
}

float decoded(float value)
{
    if (!(value > 0))
        return 0;
    value = std::min(value, 1.0f);
    return value <= 0.04045f ? value / 12.92f : std::pow((value + 0.055f) / 1.055f, 2.4f);
}

} // namespace

struct LightFile::Private
{
    QSaveFile file;
    QSize size;
    QVector<LightLayer> layers;
    int rows = 0; ///< Those that are there.
    bool isBroken = false;
    std::unique_ptr<Imf::OStream> stream;
    std::unique_ptr<Imf::OutputFile> exr; ///< Its end writes, too.

    bool refuse(const QString &reason, QString *error)
    {
        isBroken = true;
        *error = reason;
        return false;
    }
    QString reasonOf(const std::exception &problem) const
    {
        const bool isFull = file.error() != QFileDevice::NoError || std::strcmp(problem.what(), fullDisk) == 0;
        return isFull ? writingReason(file) : QString::fromUtf8(problem.what()).simplified();
    }
    void begin();
    void write(int count, const QVector<const void *> &data);
};

void LightFile::Private::begin()
{
    Imf::Header header(size.width(), size.height());
    header.compression() = Imf::ZIP_COMPRESSION;
    Imf::addChromaticities(header, Imf::Chromaticities());
    for (const LightLayer &layer : qAsConst(layers)) {
        for (const QString &channel : layer.channels)
            header.channels().insert(channelName(layer, channel), Imf::Channel(pixelType(layer.type)));
    }
    stream = std::make_unique<DeviceStream>(&file);
    exr = std::make_unique<Imf::OutputFile>(*stream, header);
}

void LightFile::Private::write(int count, const QVector<const void *> &data)
{
    Imf::FrameBuffer buffer;
    std::vector<std::vector<half>> halves(size_t(layers.size()));
    for (int i = 0; i < layers.size(); ++i) {
        const LightLayer &layer = layers[i];
        const size_t channels = size_t(layer.channels.size());
        const auto *pixels = static_cast<const char *>(data[i]);
        size_t bytes = 4;
        if (layer.type == LightLayer::Type::Half) {
            const auto *from = static_cast<const float *>(data[i]);
            std::vector<half> &to = halves[size_t(i)];
            to.resize(size_t(count) * size_t(size.width()) * channels);
            std::transform(from, from + to.size(), to.begin(), roundedToHalf);
            pixels = reinterpret_cast<const char *>(to.data());
            bytes = sizeof(half);
        }
        const size_t pixelBytes = bytes * channels;
        const size_t rowBytes = pixelBytes * size_t(size.width());
        for (size_t channel = 0; channel < channels; ++channel) {
            // Where row 0 of the picture would be.
            char *const base = const_cast<char *>(pixels) + bytes * channel - qint64(rowBytes) * rows;
            buffer.insert(channelName(layer, layer.channels[int(channel)]),
                Imf::Slice(pixelType(layer.type), base, pixelBytes, rowBytes));
        }
    }
    exr->setFrameBuffer(buffer);
    exr->writePixels(count);
    rows += count;
}

LightFile::LightFile(std::unique_ptr<Private> data)
    : d(std::move(data))
{ }

LightFile::~LightFile()
{
    try {
        d->exr.reset();
    } catch (const std::exception &) { // What is not finished is not kept.
    }
}

std::unique_ptr<LightFile> LightFile::create(
    const QString &file, const QSize &size, const QVector<LightLayer> &layers, QString *error)
{
    auto data = std::make_unique<Private>();
    data->size = size;
    data->layers = layers;
    data->file.setFileName(file);
    QString reason = imageFileProblem(file);
    if (reason.isEmpty())
        reason = size.isEmpty() ? QStringLiteral("there is no picture to write") : layerProblem(layers);
    if (reason.isEmpty() && !data->file.open(QIODevice::WriteOnly))
        reason = data->file.errorString();
    if (reason.isEmpty()) {
        try {
            data->begin();
            return std::unique_ptr<LightFile>(new LightFile(std::move(data)));
        } catch (const std::exception &problem) {
            reason = data->reasonOf(problem);
        }
    }
    *error = QStringLiteral("%1: %2").arg(file, reason);
    return nullptr;
}

bool LightFile::append(int rows, const QVector<const void *> &layers, QString *error)
{
    if (d->isBroken)
        return d->refuse(QStringLiteral("the picture could not be written"), error);
    if (rows < 1 || rows > d->size.height() - d->rows || layers.size() != d->layers.size())
        return d->refuse(QStringLiteral("%1 rows of %2 layers do not go into what is left of the picture, %3 of %4")
                             .arg(rows)
                             .arg(layers.size())
                             .arg(d->size.height() - d->rows)
                             .arg(d->layers.size()),
            error);
    try {
        d->write(rows, layers);
        return true;
    } catch (const std::exception &problem) {
        return d->refuse(d->reasonOf(problem), error);
    }
}

bool LightFile::finish(QString *error)
{
    if (d->isBroken)
        return d->refuse(QStringLiteral("the picture could not be written"), error);
    if (d->rows < d->size.height())
        return d->refuse(
            QStringLiteral("%1 of %2 rows are missing").arg(d->size.height() - d->rows).arg(d->size.height()), error);
    d->isBroken = true; // It takes no more rows.
    try {
        d->exr.reset(); // Writes where the rows are.
    } catch (const std::exception &problem) {
        return d->refuse(d->reasonOf(problem), error);
    }
    return d->file.commit() || d->refuse(writingReason(d->file), error);
}

void decodeDisplayColours(float *rgba, size_t pixels)
{
    for (const float *const end = rgba + 4 * pixels; rgba != end; rgba += 4) {
        const float alpha = rgba[3] > 0 ? std::min(rgba[3], 1.0f) : 0;
        for (int channel = 0; channel < 3; ++channel)
            rgba[channel] = alpha > 0 ? alpha * decoded(rgba[channel] / alpha) : 0;
        rgba[3] = alpha;
    }
}

} // namespace Velmora::Kvz
