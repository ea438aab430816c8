// SPDX-License-Identifier: MIT
#include "Comparison.h"

#include "DrawRecorder.h"

#include <Core/RenderPass.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

namespace Velmora::Kvz {

namespace {

struct Times
{
    std::vector<double> submitted; ///< Seconds until the calls returned.
    std::vector<double> done; ///< Seconds until the GPU was done.
    std::vector<double> worked; ///< Seconds that all threads of the process computed meanwhile.

    void measure(const std::function<void()> &work)
    {
        glFinish();
        const double before = processSeconds();
        done.push_back(secondsOf([&] {
            submitted.push_back(secondsOf(work));
            glFinish();
        }));
        worked.push_back(processSeconds() - before);
    }

    static double processSeconds()
    {
        timespec time = {};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
    }
};

} // namespace

void timing(benchmark::internal::Benchmark *benchmark)
{
    benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.5);
}

void largeAndTiny(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({1280, 720})->Args({16, 16})->Apply(timing);
}

QRect viewportOf(const benchmark::State &state)
{
    return QRect(0, 0, int(state.range(0)), int(state.range(1)));
}

double secondsOf(const std::function<void()> &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + long(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void compareWithFloor(benchmark::State &state, const std::function<void()> &frame)
{
    // The first frames create programs, textures and caches.
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
    compareWithFloor(state, frame, [&floor] {
        floor.replay();
        DrawRecorder::unbind();
    });
}

void compareWithFloor(benchmark::State &state, const std::function<void()> &frame, const std::function<void()> &floor)
{
    Times pass;
    Times raw;
    for (auto _ : state) {
        raw.measure(floor);
        pass.measure(frame);
        state.SetIterationTime(pass.done.back());
    }
    const double passDone = median(pass.done);
    const double rawDone = median(raw.done);
    state.counters["ms"] = passDone * 1e3;
    state.counters["floor_ms"] = rawDone * 1e3;
    state.counters["ratio"] = passDone / rawDone;
    state.counters["work_ms"] = median(pass.worked) * 1e3;
    state.counters["work_ratio"] = median(pass.worked) / median(raw.worked);
    state.counters["cpu_us"] = median(pass.submitted) * 1e6;
    state.counters["floor_cpu_us"] = median(raw.submitted) * 1e6;
}

void compareWithFloor(benchmark::State &state, RenderPass &pass)
{
    compareWithFloor(state, [&pass] { pass.start(nullptr); });
}

} // namespace Velmora::Kvz
