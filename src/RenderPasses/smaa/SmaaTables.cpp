// SPDX-License-Identifier: MIT
// The tables are held byte for byte, and samples that lie on a line are decided by rounding. So the order of the floating-point
// operations is a part of the result, and this file must not be built with fused or reordered ones.
#include "SmaaTables.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Velmora::Kvz::SmaaTables {

namespace {

struct Point
{
    double x;
    double y;
};

/// The parts of a pixel on the two sides of an edge.
struct Coverage
{
    double below = 0; ///< Of the pixel at negative y.
    double above = 0;
};

Coverage operator+(const Coverage &a, const Coverage &b)
{
    return {a.below + b.below, a.above + b.above};
}

Coverage halved(const Coverage &coverage)
{
    return {coverage.below / 2.0, coverage.above / 2.0};
}

constexpr int slices = 7;
constexpr int sliceHeight = areaHeight / slices;
constexpr int orthogonalCell = 16;
constexpr int diagonalCell = 20;
constexpr int diagonalHalf = areaWidth / 2;
constexpr int diagonalEnds = 4;

constexpr std::array<double, slices> orthogonalOffsets = {0.0, -0.25, 0.25, -0.125, 0.125, -0.375, 0.375};
constexpr std::array<Point, 5> diagonalOffsets = {
    {{0.0, 0.0}, {0.25, -0.25}, {-0.25, 0.25}, {0.125, -0.125}, {-0.125, 0.125}}};

/// How the line along an edge ends: with an edge across it, on which side.
enum End { None = 0, Up = 1, Down = 3, Both = 4 };
constexpr std::array<End, 4> ends = {None, Up, Down, Both};

bool isSingle(End end)
{
    return end == Up || end == Down;
}

End opposite(End end)
{
    return end == Up ? Down : Up;
}

/// Between the segment from p to q and the line y = 0, in the column of x from `column` to `column` + 1.
Coverage strip(const Point &p, const Point &q, int column)
{
    const double a = column;
    const double b = column + 1;
    const bool reached = (p.x <= a && a < q.x) || (p.x < b && b <= q.x);
    if (!reached)
        return {};
    const double w = q.x - p.x;
    const double h = q.y - p.y;
    const double ya = p.y + (h * (a - p.x)) / w;
    const double yb = p.y + (h * (b - p.x)) / w;
    if (std::signbit(ya) == std::signbit(yb) || std::abs(ya) < 1e-4 || std::abs(yb) < 1e-4) {
        const double mean = (ya + yb) / 2.0;
        return mean < 0 ? Coverage{std::abs(mean), 0} : Coverage{0, mean};
    }
    // A triangle on each side of where it crosses zero.
    const double zero = (-p.y * w) / h + p.x;
    const double fraction = zero - std::floor(zero);
    const double first = zero > p.x ? std::abs(ya * fraction / 2.0) : 0.0;
    const double second = zero < q.x ? std::abs(yb * (1.0 - fraction) / 2.0) : 0.0;
    return ya < 0 ? Coverage{first, second} : Coverage{second, first};
}

/// Rounds the corners of a short U, none of one of 32 pixels or more.
Coverage softened(const Coverage &coverage, double length)
{
    const auto soften = [length](double area) {
        const double round = std::sqrt(2.0 * area) * 0.5;
        const double t = std::clamp(length / 32.0, 0.0, 1.0);
        return round + (area - round) * t;
    };
    return {soften(coverage.below), soften(coverage.above)};
}

/// The pixel `left` pixels from the left end and `right` pixels from the right end of a line.
Coverage orthogonal(End leftEnd, End rightEnd, int left, int right, double offset)
{
    const double length = left + right + 1;
    const auto height = [offset](End end) { return end == Up ? 0.5 + offset : offset - 0.5; };
    const auto atLeft = [&](End end) { return Point{0.0, height(end)}; };
    const auto atRight = [&](End end) { return Point{length, height(end)}; };
    const Point middle = {length / 2.0, 0.0};

    if (isSingle(leftEnd) && rightEnd == None)
        return left <= right ? strip(atLeft(leftEnd), middle, left) : Coverage{};
    if (leftEnd == None && isSingle(rightEnd))
        return left >= right ? strip(middle, atRight(rightEnd), left) : Coverage{};
    if (isSingle(leftEnd) && isSingle(rightEnd)) {
        const Coverage first = strip(atLeft(leftEnd), middle, left);
        const Coverage second = strip(middle, atRight(rightEnd), left);
        if (leftEnd == rightEnd)
            return softened(first, length) + softened(second, length);
        const Coverage whole = strip(atLeft(leftEnd), atRight(rightEnd), left);
        return offset == 0.0 ? whole : halved(whole + (first + second));
    }
    if (leftEnd == Both && isSingle(rightEnd))
        return strip(atLeft(opposite(rightEnd)), atRight(rightEnd), left);
    if (isSingle(leftEnd) && rightEnd == Both)
        return strip(atLeft(leftEnd), atRight(opposite(leftEnd)), left);
    return {};
}

/// The lines of a diagonal pattern by far and near end, each as its start and its end: corners of the first pixel, a lower
/// left, b lower right, c upper right, and the end moved along by the length. Two lines mean their average.
constexpr const char *diagonalLines[diagonalEnds][diagonalEnds] = {
    {"ccbb", "babb", "cacb", "cabb"},
    {"acbc", "bc", "cc", "ccbc"},
    {"abbb", "bb", "cb", "cbbb"},
    {"acbb", "bcbb", "cccb", "ccbb"},
};

Point corner(char name)
{
    return {name == 'a' ? 0.0 : 1.0, name == 'c' ? 1.0 : 0.0};
}

/// The part of the unit pixel at (x, y) on the inner side of the line.
double coveredPart(const Point &start, const Point &end, int x, int y)
{
    if (start.x == end.x && start.y == end.y)
        return 1.0;
    constexpr int samples = 30; // On a side, both borders among them.
    const Point middle = {(start.x + end.x) / 2.0, (start.y + end.y) / 2.0};
    const double a = end.y - start.y;
    const double b = start.x - end.x;
    std::array<double, samples> columns;
    std::array<double, samples> rows;
    for (int i = 0; i < samples; ++i) {
        const double within = i / double(samples - 1);
        columns[size_t(i)] = a * (x + within - middle.x);
        rows[size_t(i)] = b * (y + within - middle.y);
    }
    int count = 0;
    for (double column : columns) {
        for (double row : rows)
            count += column + row > 0.0 ? 1 : 0;
    }
    return count / double(samples * samples);
}

Coverage diagonal(int nearEnd, int farEnd, int near, int far, const Point &offset)
{
    const double length = near + far + 1;
    const char *const lines = diagonalLines[farEnd][nearEnd];
    const auto along = [&](const char *line) {
        Point start = corner(line[0]);
        Point end = corner(line[1]);
        end = {end.x + length, end.y + length};
        if (nearEnd > 0)
            start = {start.x + offset.x, start.y + offset.y};
        if (farEnd > 0)
            end = {end.x + offset.x, end.y + offset.y};
        return Coverage{1.0 - coveredPart(start, end, 1 + near, near), coveredPart(start, end, 1 + near, 1 + near)};
    };
    const Coverage first = along(lines);
    return lines[2] ? halved(first + along(lines + 2)) : first;
}

void store(std::vector<std::uint8_t> *table, int x, int y, const Coverage &coverage)
{
    std::uint8_t *const texel = table->data() + 2 * (y * areaWidth + x);
    // Cut off, not rounded.
    texel[0] = std::uint8_t(coverage.below * 255.0);
    texel[1] = std::uint8_t(coverage.above * 255.0);
}

} // namespace

std::vector<std::uint8_t> area()
{
    std::vector<std::uint8_t> table(size_t(areaWidth) * areaHeight * 2, 0);
    for (int slice = 0; slice < slices; ++slice) {
        const double offset = orthogonalOffsets[size_t(slice)];
        for (End leftEnd : ends) {
            for (End rightEnd : ends) {
                for (int j = 0; j < orthogonalCell; ++j) {
                    for (int i = 0; i < orthogonalCell; ++i) {
                        store(&table, leftEnd * orthogonalCell + i, slice * sliceHeight + rightEnd * orthogonalCell + j,
                            orthogonal(leftEnd, rightEnd, i * i, j * j, offset));
                    }
                }
            }
        }
    }
    for (size_t slice = 0; slice < diagonalOffsets.size(); ++slice) {
        for (int farEnd = 0; farEnd < diagonalEnds; ++farEnd) {
            for (int nearEnd = 0; nearEnd < diagonalEnds; ++nearEnd) {
                for (int far = 0; far < diagonalCell; ++far) {
                    for (int near = 0; near < diagonalCell; ++near) {
                        store(&table, diagonalHalf + nearEnd * diagonalCell + near,
                            int(slice) * sliceHeight + farEnd * diagonalCell + far,
                            diagonal(nearEnd, farEnd, near, far, diagonalOffsets[slice]));
                    }
                }
            }
        }
    }
    return table;
}

std::vector<std::uint8_t> search()
{
    // A read between four texels finds each of them in its sum, in thirty-seconds.
    constexpr std::array<int, 4> weights = {1, 3, 7, 21};
    enum Texel { Corner = 1, Above = 2, Behind = 4, Here = 8 };
    constexpr int impossible = -1;
    std::array<int, 33> texels;
    texels.fill(impossible);
    for (int set = 0; set < 16; ++set) {
        int sum = 0;
        for (size_t i = 0; i < weights.size(); ++i)
            sum += set & (1 << i) ? weights[i] : 0;
        texels[size_t(sum)] = set;
    }

    const auto stepsLeft = [](int crossing, int along) {
        if (!(along & Here))
            return 0;
        return (along & Behind) && !(crossing & (Above | Here)) ? 2 : 1;
    };
    const auto stepsRight = [](int crossing, int along) {
        if (!(along & Here) || (crossing & (Above | Here)))
            return 0;
        return (along & Behind) && !(crossing & (Corner | Behind)) ? 2 : 1;
    };

    std::vector<std::uint8_t> table(size_t(searchWidth) * searchHeight, 0);
    for (int y = 0; y < searchHeight; ++y) {
        const int along = texels[size_t(32 - y)];
        for (int x = 0; x < searchWidth; ++x) {
            const int crossing = texels[size_t(x % 33)];
            if (along == impossible || crossing == impossible)
                continue;
            const int steps = x < 33 ? stepsLeft(crossing, along) : stepsRight(crossing, along);
            table[size_t(y * searchWidth + x)] = std::uint8_t(127 * steps);
        }
    }
    return table;
}

} // namespace Velmora::Kvz::SmaaTables
