// SPDX-License-Identifier: MIT
#pragma once

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>

#include <QtCore/QMap>
#include <QtCore/QSize>
#include <QtCore/QString>

#include <exception>
#include <vector>

namespace Velmora::Kvz {

/// An OpenEXR file as the library reads it: each channel as floats, those of integers converted, top row first.
struct ExrFile
{
    QSize size;
    QMap<QString, std::vector<float>> channels;
    QMap<QString, Imf::PixelType> types;

    float at(const char *channel, int x, int y) const
    {
        return channels.value(QString::fromLatin1(channel)).at(size_t(y) * size_t(size.width()) + size_t(x));
    }

    /// Empty for a file that cannot be read.
    static ExrFile read(const QString &file)
    {
        ExrFile result;
        try {
            Imf::InputFile input(file.toLocal8Bit().constData());
            const Imath::Box2i window = input.header().dataWindow();
            result.size = QSize(window.max.x + 1, window.max.y + 1);
            Imf::FrameBuffer buffer;
            const size_t row = size_t(result.size.width());
            const Imf::ChannelList &list = input.header().channels();
            for (auto channel = list.begin(); channel != list.end(); ++channel) {
                const QString name = QString::fromLatin1(channel.name());
                std::vector<float> &values = result.channels[name];
                values.resize(row * size_t(result.size.height()));
                result.types[name] = channel.channel().type;
            }
            for (auto channel = result.channels.begin(); channel != result.channels.end(); ++channel)
                buffer.insert(channel.key().toStdString(),
                    Imf::Slice(
                        Imf::FLOAT, reinterpret_cast<char *>(channel->data()), sizeof(float), sizeof(float) * row));
            input.setFrameBuffer(buffer);
            input.readPixels(0, result.size.height() - 1);
        } catch (const std::exception &) {
            return {};
        }
        return result;
    }
};

} // namespace Velmora::Kvz
