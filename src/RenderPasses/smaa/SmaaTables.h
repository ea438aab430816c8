// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace Velmora::Kvz::SmaaTables {

constexpr int areaWidth = 160;
constexpr int areaHeight = 560;
constexpr int searchWidth = 64;
constexpr int searchHeight = 16;

/// The coverage of the pixels beside an edge by the pattern that the edge belongs to. Two bytes for each texel, the row at
/// v = 0 first, no padding.
///
/// Seven slices of 80 rows, one for each subpixel offset. The left half of a slice has the orthogonal patterns: a cell of 16
/// by 16 texels for each pair of line ends (column: left end, row: right end; 0 none, 1 up, 3 down, 4 both), and in a cell
/// the square roots of the distances to the ends. The right half has the diagonal patterns: cells of 20 by 20 texels for each
/// pair of ends, and in a cell the distances as they are.
std::vector<std::uint8_t> area();

/// How many texels an edge goes on behind the last read of a search, times 127, by what that read gave: in the columns the
/// crossing edges (leftward searches, then rightward ones), in the rows the edges along, both in thirty-seconds. One byte for
/// each texel, no padding.
std::vector<std::uint8_t> search();

} // namespace Velmora::Kvz::SmaaTables
