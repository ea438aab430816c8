// SPDX-License-Identifier: MIT
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

namespace Velmora::Kvz {

/// For a benchmark that sets the time of each turn: half a second of turns at least, told in milliseconds.
void timing(benchmark::internal::Benchmark *benchmark);

/// Measures one frame of a pass, and in the same run, turn by turn, the same draws through raw GL.
///
/// Counters, medians over all turns: `ms` and `floor_ms` until the GPU is done, `ratio` of the two, `cpu_us` and
/// `floor_cpu_us` until the calls return. `cpu_us` is what the pass costs the host's thread.
void compareWithFloor(benchmark::State &state, const std::function<void()> &frame);

} // namespace Velmora::Kvz
