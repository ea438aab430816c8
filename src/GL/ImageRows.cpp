// SPDX-License-Identifier: MIT
#include "ImageRows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr int channels = 4;

/// As many rows as make some megabytes.
int bandRows(int width, int height)
{
    return std::clamp((4 << 20) / (width * channels), 1, height);
}

QImage rgbaRows(const QImage &image, int first, int count)
{
    return image.copy(0, first, image.width(), count).convertToFormat(QImage::Format_RGBA8888);
}

/// The source pixels that make one pixel of the result, along one side.
struct Taps
{
    int first;
    std::vector<float> weights;
};

std::vector<Taps> tapsOf(int source, int target, bool isNearest)
{
    std::vector<Taps> all;
    all.reserve(size_t(target));
    const double ratio = double(source) / target;
    for (int i = 0; i < target; ++i) {
        if (isNearest) {
            all.push_back({std::min(source - 1, int((i + 0.5) * ratio)), {1}});
        } else if (ratio <= 1) {
            const double place = std::clamp((i + 0.5) * ratio - 0.5, 0.0, source - 1.0);
            const int first = std::min(int(place), std::max(0, source - 2));
            const auto share = float(place - first);
            all.push_back(source == 1 ? Taps{0, {1}} : Taps{first, {1 - share, share}});
        } else {
            const double begin = i * ratio;
            const double end = std::min(double(source), begin + ratio);
            Taps taps{int(begin), {}};
            for (int k = taps.first; k < end; ++k)
                taps.weights.push_back(float((std::min(end, k + 1.0) - std::max(begin, double(k))) / (end - begin)));
            all.push_back(taps);
        }
    }
    return all;
}

/// Rows of an image at the width of the result. The last rows are kept, since neighbouring rows of the result share some.
class WideRows
{
public:
    WideRows(const QImage &image, int width, bool isNearest)
        : m_image(image),
          m_width(width),
          m_taps(tapsOf(image.width(), width, isNearest))
    { }

    const std::vector<float> &row(int number)
    {
        Kept &kept = m_kept[number % 2];
        if (kept.number == number)
            return kept.values;
        if (number < m_firstRow || number >= m_firstRow + m_rows.height()) {
            // Rows are asked for from the bottom up.
            const int count = bandRows(m_image.width(), m_image.height());
            m_firstRow = std::max(0, number - count + 1);
            m_rows = rgbaRows(m_image, m_firstRow, std::min(count, m_image.height() - m_firstRow));
        }
        const uchar *const line = m_rows.constScanLine(number - m_firstRow);
        kept.number = number;
        kept.values.assign(size_t(m_width) * channels, 0);
        for (size_t x = 0; x < size_t(m_width); ++x) {
            const Taps &taps = m_taps[x];
            for (size_t k = 0; k < taps.weights.size(); ++k) {
                for (size_t c = 0; c < channels; ++c)
                    kept.values[x * channels + c] +=
                        taps.weights[k] * float(line[(size_t(taps.first) + k) * channels + c]);
            }
        }
        return kept.values;
    }

private:
    struct Kept
    {
        int number = -1;
        std::vector<float> values;
    };

    const QImage &m_image;
    int m_width;
    std::vector<Taps> m_taps;
    int m_firstRow = 0;
    QImage m_rows;
    Kept m_kept[2];
};

void readResampled(const QImage &image, const QSize &size, bool isNearest, const TakeRows &take)
{
    const size_t rowBytes = size_t(size.width()) * channels;
    const int most = bandRows(size.width(), size.height());
    const std::vector<Taps> taps = tapsOf(image.height(), size.height(), isNearest);
    WideRows source(image, size.width(), isNearest);
    std::vector<float> sums(rowBytes);
    std::vector<uchar> bytes(rowBytes * size_t(most));
    for (int first = 0; first < size.height(); first += most) {
        const int count = std::min(most, size.height() - first);
        for (int i = 0; i < count; ++i) {
            const Taps &own = taps[size_t(size.height() - 1 - first - i)];
            std::fill(sums.begin(), sums.end(), 0.0f);
            for (size_t k = own.weights.size(); k-- > 0;) {
                const std::vector<float> &row = source.row(own.first + int(k));
                for (size_t b = 0; b < rowBytes; ++b)
                    sums[b] += own.weights[k] * row[b];
            }
            uchar *const target = bytes.data() + size_t(i) * rowBytes;
            for (size_t b = 0; b < rowBytes; ++b)
                target[b] = uchar(std::clamp(sums[b] + 0.5f, 0.0f, 255.0f));
        }
        take(first, count, bytes.data());
    }
}

} // namespace

void readRows(const QImage &image, const QSize &size, bool isNearest, const TakeRows &take)
{
    if (image.size() != size) {
        readResampled(image, size, isNearest, take);
        return;
    }
    const size_t rowBytes = size_t(size.width()) * channels;
    const int most = bandRows(size.width(), size.height());
    std::vector<uchar> bytes(rowBytes * size_t(most));
    for (int first = 0; first < size.height(); first += most) {
        const int count = std::min(most, size.height() - first);
        const QImage rows = rgbaRows(image, size.height() - first - count, count);
        for (int i = 0; i < count; ++i)
            std::memcpy(bytes.data() + size_t(i) * rowBytes, rows.constScanLine(count - 1 - i), rowBytes);
        take(first, count, bytes.data());
    }
}

} // namespace Velmora::Kvz
