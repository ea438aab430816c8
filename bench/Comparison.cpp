// SPDX-License-Identifier: MIT
#include "Comparison.h"

#include "DrawRecorder.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace Velmora::Kvz {

namespace {

using Clock = std::chrono::steady_clock;

struct Times
{
    std::vector<double> submitted; ///< Seconds until the calls returned.
    std::vector<double> done; ///< Seconds until the GPU was done.

    void measure(const std::function<void()> &work)
    {
        glFinish();
        const Clock::time_point start = Clock::now();
        work();
        submitted.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        glFinish();
        done.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
};

double median(std::vector<double> values)
{
    const auto middle = values.begin() + long(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

void timing(benchmark::internal::Benchmark *benchmark)
{
    benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.5);
}

void compareWithFloor(benchmark::State &state, const std::function<void()> &frame)
{
    // Programs, textures and caches are made by the first frames.
    for (int i = 0; i < 3; ++i)
        frame();
    DrawRecorder floor;
    floor.begin();
    frame();
    floor.end();
    if (floor.commandCount() == 0) {
        state.SkipWithError("the pass drew nothing");
        return;
    }
    Times pass;
    Times raw;
    for (auto _ : state) {
        raw.measure([&floor] { floor.replay(); });
        DrawRecorder::unbind();
        pass.measure(frame);
        state.SetIterationTime(pass.done.back());
    }
    const double passDone = median(pass.done);
    const double rawDone = median(raw.done);
    state.counters["ms"] = passDone * 1e3;
    state.counters["floor_ms"] = rawDone * 1e3;
    state.counters["ratio"] = passDone / rawDone;
    state.counters["cpu_us"] = median(pass.submitted) * 1e6;
    state.counters["floor_cpu_us"] = median(raw.submitted) * 1e6;
}

} // namespace Velmora::Kvz
