// SPDX-License-Identifier: MIT
#include "PngDecoder.h"

#include "ImageSize.h"

#include <QtCore/QIODevice>

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// Scales an image down whose rows come one by one: each pixel is the mean of the area that it covers. Colours count by their
/// alpha.
class RowScaler
{
public:
    RowScaler(const QSize &from, int channels, QImage *to)
        : m_from(from),
          m_channels(channels),
          m_to(to),
          m_row(size_t(to->width() * channels)),
          m_sum(m_row.size())
    { }

    void addRow(const quint8 *pixels)
    {
        shrink(pixels);
        // In rows of the result.
        const double begin = double(m_count) * m_to->height() / m_from.height();
        const double end = double(m_count + 1) * m_to->height() / m_from.height();
        ++m_count;
        const double edge = m_done + 1;
        add(float(std::min(end, edge) - begin));
        if (m_count == m_from.height() || end >= edge) {
            writeRow();
            if (end > edge)
                add(float(end - edge));
        }
    }

private:
    void shrink(const quint8 *pixels)
    {
        std::fill(m_row.begin(), m_row.end(), 0.0f);
        const double step = double(m_to->width()) / m_from.width();
        for (int x = 0; x < m_from.width(); ++x, pixels += m_channels) {
            const double begin = x * step;
            const double end = begin + step;
            const int column = std::min(int(begin), m_to->width() - 1);
            const bool isSplit = end > column + 1 && column + 1 < m_to->width();
            const auto first = float(isSplit ? column + 1 - begin : step);
            addPixel(pixels, first, &m_row[size_t(column * m_channels)]);
            if (isSplit)
                addPixel(pixels, float(step) - first, &m_row[size_t((column + 1) * m_channels)]);
        }
    }

    void addPixel(const quint8 *pixel, float weight, float *to) const
    {
        if (m_channels == 1) {
            *to += weight * pixel[0];
            return;
        }
        const float alpha = weight * pixel[3];
        for (int c = 0; c < 3; ++c)
            to[c] += alpha * pixel[c];
        to[3] += alpha;
    }

    void add(float weight)
    {
        for (size_t i = 0; i < m_row.size(); ++i)
            m_sum[i] += weight * m_row[i];
    }

    void writeRow()
    {
        quint8 *to = m_to->scanLine(std::min(m_done++, m_to->height() - 1));
        const auto toByte = [](float value) { return quint8(qBound(0.0f, value + 0.5f, 255.0f)); };
        for (size_t i = 0; i < m_sum.size(); i += size_t(m_channels)) {
            const float alpha = m_channels == 1 ? 1 : m_sum[i + 3];
            for (int c = 0; c < std::min(m_channels, 3); ++c)
                *to++ = toByte(alpha > 0 ? m_sum[i + size_t(c)] / alpha : 0);
            if (m_channels == 4)
                *to++ = toByte(alpha);
        }
        std::fill(m_sum.begin(), m_sum.end(), 0.0f);
    }

    QSize m_from;
    int m_channels;
    QImage *m_to;
    std::vector<float> m_row; // this row, as wide as the result
    std::vector<float> m_sum; // of the rows that a row of the result covers
    int m_count = 0;
    int m_done = 0;
};

void readBytes(png_structp png, png_bytep to, png_size_t count)
{
    auto *device = static_cast<QIODevice *>(png_get_io_ptr(png));
    if (device->read(reinterpret_cast<char *>(to), qint64(count)) != qint64(count))
        png_error(png, "truncated");
}

void onError(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp)
{ }

/// The frames between setjmp() and libpng's calls hold nothing that would have to be destroyed.
class PngReader
{
public:
    explicit PngReader(QIODevice *device)
        : m_png(png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning)),
          m_info(m_png ? png_create_info_struct(m_png) : nullptr)
    {
        if (m_info)
            png_set_read_fn(m_png, device, readBytes);
    }
    ~PngReader() { png_destroy_read_struct(&m_png, &m_info, nullptr); }
    Q_DISABLE_COPY(PngReader)

    QImage read(int largestSide, QSize *size)
    {
        if (!m_info || !readHeader())
            return {};
        *size = m_size;
        const bool isTooLarge = std::max(m_size.width(), m_size.height()) > largestSide;
        const bool isStreamed = isTooLarge && m_passes == 1;
        QImage image(isStreamed ? fittedSize(m_size, largestSide) : m_size, m_format);
        if (image.isNull())
            return {};
        RowScaler scaler(m_size, m_channels, &image);
        std::vector<quint8> row(m_rowBytes);
        if (!(isStreamed ? readRows(row.data(), &scaler) : readWhole(&image)))
            return {};
        return isTooLarge && !isStreamed
            ? image.scaled(fittedSize(m_size, largestSide), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
            : image;
    }

private:
    bool readHeader()
    {
        if (setjmp(png_jmpbuf(m_png)))
            return false;
        png_read_info(m_png, m_info);
        const int type = png_get_color_type(m_png, m_info);
        const bool hasKey = png_get_valid(m_png, m_info, PNG_INFO_tRNS) != 0;
        const bool isGrey = type == PNG_COLOR_TYPE_GRAY && !hasKey;
        png_set_expand(m_png);
        png_set_scale_16(m_png);
        if (!isGrey) {
            png_set_gray_to_rgb(m_png);
            png_set_add_alpha(m_png, 0xff, PNG_FILLER_AFTER);
            if (QSysInfo::ByteOrder == QSysInfo::LittleEndian)
                png_set_bgr(m_png);
            else
                png_set_swap_alpha(m_png);
        }
        m_passes = png_set_interlace_handling(m_png);
        png_read_update_info(m_png, m_info);
        const bool hasAlpha = (type & PNG_COLOR_MASK_ALPHA) != 0 || hasKey;
        m_format = isGrey ? QImage::Format_Grayscale8 : hasAlpha ? QImage::Format_ARGB32 : QImage::Format_RGB32;
        m_channels = isGrey ? 1 : 4;
        m_rowBytes = png_get_rowbytes(m_png, m_info);
        m_size = QSize(int(png_get_image_width(m_png, m_info)), int(png_get_image_height(m_png, m_info)));
        return true;
    }

    bool readRows(quint8 *row, RowScaler *scaler)
    {
        if (setjmp(png_jmpbuf(m_png)))
            return false;
        for (int y = 0; y < m_size.height(); ++y) {
            png_read_row(m_png, row, nullptr);
            scaler->addRow(row);
        }
        return true;
    }

    bool readWhole(QImage *image)
    {
        if (setjmp(png_jmpbuf(m_png)))
            return false;
        for (int pass = 0; pass < m_passes; ++pass) {
            for (int y = 0; y < m_size.height(); ++y)
                png_read_row(m_png, image->scanLine(y), nullptr);
        }
        return true;
    }

    png_structp m_png;
    png_infop m_info;
    QSize m_size;
    QImage::Format m_format = QImage::Format_Invalid;
    int m_channels = 0;
    int m_passes = 1;
    size_t m_rowBytes = 0;
};

} // namespace

bool isPng(const QByteArray &start)
{
    return start == QByteArray("\x89PNG\r\n\x1a\n", 8);
}

QImage readPng(QIODevice *device, int largestSide, QSize *size)
{
    return PngReader(device).read(largestSide, size);
}

} // namespace Velmora::Kvz
