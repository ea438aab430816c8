// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QRect>

#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

namespace Velmora::Kvz {

class RenderPass;

/// For a benchmark that sets the time of each iteration itself: at least half a second of them, reported in milliseconds.
void timing(benchmark::internal::Benchmark *benchmark);
/// The same, with width and height as arguments: a large frame, where the draws themselves count, and a tiny one, where
/// everything around them does.
void largeAndTiny(benchmark::internal::Benchmark *benchmark);
/// A viewport whose width and height are the first two arguments of a benchmark.
QRect viewportOf(const benchmark::State &state);

/// Measures one frame of a pass and, alternating with it in the same run, the same draws through raw GL.
///
/// Counters, medians over all iterations: `ms` and `floor_ms` until the GPU is done, `ratio` of the two, `cpu_us` and
/// `floor_cpu_us` until the calls return. `cpu_us` is what the pass costs the host's thread. `work_ms` is the processor time of all
/// threads of the process and `work_ratio` that of pass and floor: with a software driver they say what a frame costs, also on a
/// machine that does other things meanwhile; with a GPU they say nothing of it.
void compareWithFloor(benchmark::State &state, const std::function<void()> &frame);
/// The same for the `start()` of a pass.
void compareWithFloor(benchmark::State &state, RenderPass &pass);

/// The same against a floor of the benchmark's own.
void compareWithFloor(benchmark::State &state, const std::function<void()> &frame, const std::function<void()> &floor);

/// Seconds until the work's calls return.
double secondsOf(const std::function<void()> &work);
/// The upper median of at least one value.
double median(std::vector<double> values);

} // namespace Velmora::Kvz
