// SPDX-License-Identifier: MIT
#include "FxaaReference.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Velmora::Kvz {

namespace {

using Texel = std::array<double, 4>;

/// Positions are in pixels, pixel centres at half numbers.
class Fxaa
{
public:
    Fxaa(const Image &image, const FxaaSettings &settings, FxaaTally *tally)
        : m_image(image),
          m_settings(settings),
          m_lumaChannel(settings.isLumaInAlpha ? 3 : 1),
          m_tally(tally)
    { }

    Texel at(int column, int row) const
    {
        const double x = column + 0.5;
        const double y = row + 0.5;
        const auto luma = [&](int dx, int dy) { return texel(column + dx, row + dy)[m_lumaChannel]; };
        const double m = luma(0, 0);
        const double n = luma(0, -1);
        const double s = luma(0, 1);
        const double w = luma(-1, 0);
        const double e = luma(1, 0);
        const double most = std::max({m, n, s, w, e});
        const double range = most - std::min({m, n, s, w, e});
        if (range < std::max(m_settings.edgeThresholdMin, most * m_settings.edgeThreshold) || range == 0) {
            ++m_tally->flat;
            return texel(column, row);
        }

        const double nw = luma(-1, -1);
        const double ne = luma(1, -1);
        const double sw = luma(-1, 1);
        const double se = luma(1, 1);
        const double horizontalness =
            2 * std::abs(n + s - 2 * m) + std::abs(ne + se - 2 * e) + std::abs(nw + sw - 2 * w);
        const double verticalness = 2 * std::abs(w + e - 2 * m) + std::abs(nw + ne - 2 * n) + std::abs(sw + se - 2 * s);
        const bool isHorizontal = horizontalness >= verticalness;
        ++(isHorizontal ? m_tally->horizontal : m_tally->vertical);

        const double average = (2 * (n + s + w + e) + nw + ne + sw + se) / 12;
        const double c = std::clamp(std::abs(average - m) / range, 0.0, 1.0);
        const double smooth = c * c * (3 - 2 * c);
        const double subpixel = smooth * smooth * m_settings.subpix;

        // Steps along and across the edge; horizontal ones are stretched by rcpFrame.
        const double alongX = isHorizontal ? m_settings.rcpFrame : 0;
        const double alongY = isHorizontal ? 0 : 1;
        const double first = isHorizontal ? n : w;
        const double second = isHorizontal ? s : e;
        const bool takesFirst = std::abs(first - m) >= std::abs(second - m);
        const double gradient = std::max(std::abs(first - m), std::abs(second - m));
        const double sign = takesFirst ? -1 : 1;
        const double acrossX = isHorizontal ? 0 : sign * m_settings.rcpFrame;
        const double acrossY = isHorizontal ? sign : 0;
        const double pair = ((takesFirst ? first : second) + m) / 2;

        const double limit = gradient / 4;
        const End before =
            findEnd(x + acrossX / 2, y + acrossY / 2, -alongX, -alongY, pair, limit + m_settings.biasBefore);
        const End behind =
            findEnd(x + acrossX / 2, y + acrossY / 2, alongX, alongY, pair, limit + m_settings.biasBehind);
        const bool isNearerBefore = before.distance < behind.distance;
        const bool endBelow = (isNearerBefore ? before : behind).luma < 0;
        const double edge = endBelow != (m - pair < 0)
            ? 0.5 - std::min(before.distance, behind.distance) / (before.distance + behind.distance)
            : 0;
        ++(subpixel > edge ? m_tally->bySubpixel : m_tally->byEdge);
        m_tally->endNotFound += int(!before.found || !behind.found);

        const double shift = std::max(edge, subpixel);
        Texel result = sample(x + acrossX * shift, y + acrossY * shift);
        // When alpha carries luma it is not filtered.
        const double alpha = texel(column, row)[3];
        result[3] = m_settings.isLumaInAlpha ? alpha : std::max(result[3], alpha);
        return result;
    }

private:
    struct End
    {
        double distance; ///< In texels of the search, stretched ones included.
        double luma; ///< Less the pair's mean.
        bool found;
    };

    End findEnd(double x, double y, double stepX, double stepY, double pair, double limit) const
    {
        // The last step is taken but not sampled: it stands for everything beyond.
        double distance = 0;
        double luma = 0;
        for (size_t i = 0; i + 1 < m_settings.steps.size(); ++i) {
            distance += m_settings.steps[i];
            luma = sample(x + stepX * distance, y + stepY * distance)[m_lumaChannel] - pair;
            if (std::abs(luma) >= limit)
                return {distance, luma, true};
        }
        return {distance + m_settings.steps.back(), luma, false};
    }

    Texel texel(int x, int y) const
    {
        const float *values = m_image.at(std::clamp(x, 0, m_image.width - 1), std::clamp(y, 0, m_image.height - 1));
        return {double(values[0]), double(values[1]), double(values[2]), double(values[3])};
    }

    Texel sample(double x, double y) const
    {
        const double left = std::floor(x - 0.5);
        const double low = std::floor(y - 0.5);
        const double fx = x - 0.5 - left;
        const double fy = y - 0.5 - low;
        Texel result{};
        for (int i = 0; i < 4; ++i) {
            const double weight = (i & 1 ? fx : 1 - fx) * (i & 2 ? fy : 1 - fy);
            const Texel value = texel(int(left) + (i & 1), int(low) + (i >> 1));
            for (size_t channel = 0; channel < 4; ++channel)
                result[channel] += weight * value[channel];
        }
        return result;
    }

    const Image &m_image;
    FxaaSettings m_settings;
    size_t m_lumaChannel;
    FxaaTally *m_tally;
};

} // namespace

Image fxaaReference(const Image &image, const FxaaSettings &settings, FxaaTally *tally)
{
    FxaaTally unused;
    const Fxaa fxaa(image, settings, tally ? tally : &unused);
    Image result(image.width, image.height);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const Texel texel = fxaa.at(x, y);
            result.setPixel(x, y, QVector4D(float(texel[0]), float(texel[1]), float(texel[2]), float(texel[3])));
        }
    }
    return result;
}

} // namespace Velmora::Kvz
