// SPDX-License-Identifier: MIT
#include "SmaaReference.h"

#include "BlurReference.h"

#include <SmaaTables.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

double luma(const Color &color)
{
    return 0.2126 * color[0] + 0.7152 * color[1] + 0.0722 * color[2];
}

double lumaAt(const Image &image, int x, int y)
{
    return luma(texel(image, x, y));
}

/// `value` >= `limit`, and whether floats may decide otherwise.
bool reaches(double value, double limit, bool *open)
{
    if (std::abs(value - limit) < 2e-6 && value != limit)
        *open = true;
    // Numbers that are equal in doubles need not be so in floats, unless they are computed alike.
    if (value == limit && limit != 0.0)
        *open = true;
    return value >= limit;
}

/// The edges of one image by pixel.
class EdgeMap
{
public:
    explicit EdgeMap(const Image &edges)
        : m_edges(edges)
    { }
    bool left(int x, int y) const { return texel(m_edges, x, y)[0] > 0.5; }
    bool below(int x, int y) const { return texel(m_edges, x, y)[1] > 0.5; }
    /// Edges with or without the axes exchanged: `along` is the edge that forms the line, `across` the edge that ends
    /// it.
    bool along(bool horizontal, int position, int row) const
    {
        return horizontal ? below(position, row) : left(row, position);
    }
    bool across(bool horizontal, int position, int row) const
    {
        return horizontal ? left(position, row) : below(row, position);
    }

private:
    const Image &m_edges;
};

const std::vector<std::uint8_t> &areaTable()
{
    static const std::vector<std::uint8_t> table = SmaaTables::area();
    return table;
}

/// A read of the area table between its texels.
std::array<double, 2> area(double x, double y)
{
    const int left = int(std::floor(x));
    const int row = int(std::floor(y));
    std::array<double, 2> sum = {};
    for (int dy : {0, 1}) {
        for (int dx : {0, 1}) {
            const double weight = (dx ? x - left : 1 - (x - left)) * (dy ? y - row : 1 - (y - row));
            const int tx = std::clamp(left + dx, 0, SmaaTables::areaWidth - 1);
            const int ty = std::clamp(row + dy, 0, SmaaTables::areaHeight - 1);
            const std::uint8_t *const stored = areaTable().data() + 2 * (ty * SmaaTables::areaWidth + tx);
            for (size_t k : {0u, 1u})
                sum[k] += weight * stored[k] / 255.0;
        }
    }
    return sum;
}

/// Both weights of the line that an edge belongs to.
std::array<double, 2> lineWeights(
    const EdgeMap &map, bool horizontal, int position, int row, int slice, const SmaaSettings &settings)
{
    const auto along = [&](int p) { return map.along(horizontal, p, row); };
    const auto across = [&](int p, int r) { return map.across(horizontal, p, r); };
    // An edge across on either side ends the line between two pixels.
    const auto cut = [&](int p) { return across(p, row) || across(p, row - 1); };

    int back = 0; // A search of n steps covers 2 n - 1 pixels backwards and 2 n forwards.
    while (back < 2 * settings.searchSteps - 1 && !cut(position - back) && along(position - back - 1))
        ++back;
    int forward = 0;
    while (forward < 2 * settings.searchSteps && !cut(position + forward + 1) && along(position + forward + 1))
        ++forward;
    const int first = position - back;
    const int last = position + forward;
    const auto code = [&](int p) { return 3 * int(across(p, row)) + int(across(p, row - 1)); };
    std::array<double, 2> weights =
        area(16 * code(first) + std::sqrt(double(back)), 16 * code(last + 1) + std::sqrt(double(forward)) + 80 * slice);

    if (settings.cornerRounding) {
        const double atBack = forward >= back ? 1 : 0;
        const double atForward = back >= forward ? 1 : 0;
        const double share = (1 - *settings.cornerRounding) / (atBack + atForward);
        const auto turn = [&](int r) {
            return share * (atBack * int(across(first, r)) + atForward * int(across(last + 1, r)));
        };
        weights[0] *= std::clamp(1 - turn(row + 1), 0.0, 1.0);
        weights[1] *= std::clamp(1 - turn(row - 2), 0.0, 1.0);
    }
    return weights;
}

/// How far a diagonal extends beyond its first pixel.
struct DiagonalEnd
{
    int distance = 0;
    bool open = false; ///< Its end was not reached.
};

/// `edgesAt(n)` are the two edges of the diagonal's nth pixel, the second of which may count alone.
template <typename EdgesAt> DiagonalEnd walk(int steps, bool countHalf, const EdgesAt &edgesAt)
{
    DiagonalEnd end;
    for (int n = 1; n <= steps; ++n) {
        const auto [first, second] = edgesAt(n);
        if (first && second) {
            end.distance = n - 1;
            end.open = n == steps;
            if (end.open && countHalf)
                ++end.distance;
            continue;
        }
        end.distance = n - 1 + (countHalf && second ? 1 : 0);
        break;
    }
    return end;
}

std::array<double, 2> diagonalArea(
    const DiagonalEnd &near, const DiagonalEnd &far, int nearCode, int farCode, int slice)
{
    return area(80 + 20 * (near.open ? 0 : nearCode) + near.distance,
        20 * (far.open ? 0 : farCode) + far.distance + 80 * slice);
}

std::array<double, 2> diagonalWeights(const EdgeMap &map, int x, int y, const SmaaSlices &slices, int steps)
{
    using Edges = std::pair<bool, bool>;
    std::array<double, 2> weights = {};

    const auto down = [&](int n) { return Edges(map.left(x - n, y + n), map.below(x - n, y + n)); };
    const auto up = [&](int n) { return Edges(map.left(x + n, y - n), map.below(x + n, y - n)); };
    DiagonalEnd near;
    if (map.left(x, y))
        near = walk(steps, true, down);
    DiagonalEnd far = walk(steps, false, up);
    if (near.distance + far.distance > 2) {
        const int a = near.distance;
        const int b = far.distance;
        const int nearCode = 2 * map.below(x - a - 1, y + a) + map.left(x - a, y + a);
        const int farCode = 2 * map.below(x + b + 1, y - b) + map.left(x + b + 1, y - b - 1);
        const auto part = diagonalArea(near, far, nearCode, farCode, slices[2]);
        weights[0] += part[0];
        weights[1] += part[1];
    }

    const auto back = [&](int n) { return Edges(map.left(x - n + 1, y - n), map.below(x - n, y - n)); };
    const auto on = [&](int n) { return Edges(map.left(x + n + 1, y + n), map.below(x + n, y + n)); };
    near = walk(steps, false, back);
    far = DiagonalEnd();
    if (map.left(x + 1, y))
        far = walk(steps, true, on);
    if (near.distance + far.distance > 2) {
        const int a = near.distance;
        const int b = far.distance;
        const int nearCode = 2 * map.below(x - a - 1, y - a) + map.left(x - a, y - a - 1);
        const int farCode = 2 * map.below(x + b + 1, y + b) + map.left(x + b + 1, y + b);
        const auto part = diagonalArea(near, far, nearCode, farCode, slices[3]);
        weights[0] += part[1];
        weights[1] += part[0];
    }
    return weights;
}

Color mixed(const Color &a, const Color &b, double t)
{
    Color result;
    for (size_t k = 0; k < 4; ++k)
        result[k] = a[k] + (b[k] - a[k]) * t;
    return result;
}

} // namespace

SmaaEdges smaaEdges(const Image &encoded, const Image *predicate, const SmaaSettings &settings)
{
    SmaaEdges result;
    result.edges = Image(encoded.width, encoded.height);
    for (int y = 0; y < encoded.height; ++y) {
        for (int x = 0; x < encoded.width; ++x) {
            const auto difference = [&](int ax, int ay, int bx, int by) {
                return std::abs(lumaAt(encoded, x + ax, y + ay) - lumaAt(encoded, x + bx, y + by));
            };
            bool open = false;
            const auto threshold = [&](int dx, int dy) {
                if (!predicate)
                    return settings.threshold;
                const double step = std::abs(texel(*predicate, x, y)[0] - texel(*predicate, x + dx, y + dy)[0]);
                return 2.0 * settings.threshold * (reaches(step, 0.01, &open) ? 0.6 : 1.0);
            };
            const double delta[2] = {difference(0, 0, -1, 0), difference(0, 0, 0, -1)};
            bool edge[2] = {reaches(delta[0], threshold(-1, 0), &open), reaches(delta[1], threshold(0, -1), &open)};
            const bool kept = edge[0] || edge[1];
            const double strongest = std::max({delta[0], delta[1], difference(0, 0, 1, 0), difference(0, 0, 0, 1),
                difference(-1, 0, -2, 0), difference(0, -1, 0, -2)});
            for (int k = 0; k < 2; ++k)
                edge[k] = edge[k] && reaches(2.0 * delta[k], strongest, &open);
            result.edges.setPixel(x, y, QVector4D(edge[0] ? 1 : 0, edge[1] ? 1 : 0, 0, 0));
            result.kept.push_back(kept);
            result.open.push_back(open);
            result.count += edge[0] || edge[1] ? 1 : 0;
            result.openCount += open ? 1 : 0;
        }
    }
    return result;
}

Image smaaWeights(const Image &edges, const SmaaSlices &slices, const SmaaSettings &settings)
{
    const EdgeMap map(edges);
    Image weights(edges.width, edges.height);
    for (int y = 0; y < edges.height; ++y) {
        for (int x = 0; x < edges.width; ++x) {
            std::array<double, 2> vertical = {};
            std::array<double, 2> horizontal = {};
            bool onDiagonal = false;
            if (map.below(x, y)) {
                if (settings.diagonalSteps > 0)
                    vertical = diagonalWeights(map, x, y, slices, settings.diagonalSteps);
                onDiagonal = vertical[0] + vertical[1] > 0;
                if (!onDiagonal)
                    vertical = lineWeights(map, true, x, y, slices[1], settings);
            }
            if (map.left(x, y) && !onDiagonal)
                horizontal = lineWeights(map, false, y, x, slices[0], settings);
            setTexel(&weights, x, y, {vertical[0], vertical[1], horizontal[0], horizontal[1]});
        }
    }
    return weights;
}

Image smaaBlended(const Image &frame, const Image &weights, const Image *velocity)
{
    Image result(frame.width, frame.height);
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            // The shares of the neighbours below, above, to the left and to the right. Outside, the border's weights
            // repeat.
            const double below = texel(weights, x, y)[0];
            const double above = texel(weights, x, y + 1)[1];
            const double left = texel(weights, x, y)[2];
            const double right = texel(weights, x + 1, y)[3];
            const auto blend = [&](const Image &image) {
                if (below + above + left + right < 1e-5)
                    return texel(image, x, y);
                const bool sideways = std::max(left, right) > std::max(below, above);
                const double a = sideways ? right : above;
                const double b = sideways ? left : below;
                const Color towardsA = mixed(texel(image, x, y), texel(image, x + sideways, y + !sideways), a);
                const Color towardsB = mixed(texel(image, x, y), texel(image, x - sideways, y - !sideways), b);
                return mixed(towardsA, towardsB, b / (a + b));
            };
            Color color = blend(frame);
            if (velocity) {
                const Color moved = blend(*velocity);
                color[3] = std::sqrt(5 * std::hypot(moved[0], moved[1]));
            }
            setTexel(&result, x, y, color);
        }
    }
    return result;
}

Image smaaResolved(const Image &current, const Image &previous, const Image &velocity, const QVector2D &jitterChange)
{
    Image result(current.width, current.height);
    for (int y = 0; y < current.height; ++y) {
        for (int x = 0; x < current.width; ++x) {
            const Color moved = texel(velocity, x, y);
            double dx = (moved[0] + double(jitterChange.x())) * current.width;
            double dy = (moved[1] + double(jitterChange.y())) * current.height;
            dx = std::abs(dx) < 1.0 / 256.0 ? 0 : dx;
            dy = std::abs(dy) < 1.0 / 256.0 ? 0 : dy;
            const Color now = texel(current, x, y);
            const Color before = texelBetween(previous, x - dx, y - dy);
            const double difference = std::abs(now[3] * now[3] - before[3] * before[3]) / 5;
            Color color = mixed(now, before, 0.5 * std::clamp(1 - 30 * std::sqrt(difference), 0.0, 1.0));
            color[3] = 1;
            setTexel(&result, x, y, color);
        }
    }
    return result;
}

Image quantised(const Image &image)
{
    Image result = image;
    for (float &value : result.data)
        value = std::round(std::clamp(value, 0.0f, 1.0f) * 255.0f) / 255.0f;
    return result;
}

Image edgeChart(int width, int height)
{
    const auto isInside = [](double x, double y, double cx, double cy, double halfWidth, double halfHeight,
                              double angle) {
        const double u = (x - cx) * std::cos(angle) + (y - cy) * std::sin(angle);
        const double v = (y - cy) * std::cos(angle) - (x - cx) * std::sin(angle);
        return std::abs(u) < halfWidth && std::abs(v) < halfHeight;
    };
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double px = x + 0.5;
            const double py = y + 0.5;
            QVector4D color = x < width / 2 ? QVector4D(0.04f, 0.05f, 0.08f, 1) : QVector4D(0.7f, 0.75f, 0.6f, 1);
            // A fan of wedges around the centre.
            const double angle = std::atan2(py - 0.5 * height, px - 0.5 * width);
            const double distance = std::hypot(px - 0.5 * width, py - 0.5 * height);
            if (distance < 0.45 * height && int(std::floor(angle * 36 / M_PI + 100)) % 4 == 0)
                color = x < width / 2 ? QVector4D(0.9f, 0.3f, 0.1f, 1) : QVector4D(0.1f, 0.15f, 0.4f, 0.5f);
            for (int i = 0; i < 6; ++i) {
                const double cx = width * (0.08 + 0.17 * i);
                if (isInside(px, py, cx, 0.12 * height, 0.06 * width, 0.05 * height, 0.13 * i))
                    color = QVector4D(0.5f, 0.9f, 0.3f, 1);
                if (std::hypot(px - cx, py - 0.88 * height) < 0.02 * height * (i + 1))
                    color = QVector4D(0.2f, 0.1f, 0.8f, 1);
            }
            // Lines of one pixel and a zigzag.
            if (x % 23 == 3 && y > 0.3 * height && y < 0.5 * height)
                color = QVector4D(1, 1, 1, 1);
            if (y % 19 == 4 && x < 0.1 * width)
                color = QVector4D(0, 0, 0, 1);
            if (std::abs(py - 0.7 * height - std::abs(std::fmod(px, 24.0) - 12.0)) < 1.5 && x < 0.25 * width)
                color = QVector4D(0.8f, 0.8f, 0.1f, 1);
            image.setPixel(x, y, color);
        }
    }
    return image;
}

} // namespace Velmora::Kvz
