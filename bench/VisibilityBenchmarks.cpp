// SPDX-License-Identifier: MIT
// What transparency by lists costs: recording, sorting and shading against the layers of a pixel and against the pixels that
// have any, and the memory behind it.
#include "Comparison.h"
#include "Scenery.h"

#include <ExtraPasses/FragmentListRenderPass.h>
#include <ExtraPasses/FragmentSortRenderPass.h>
#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/Texture.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>
#include <RenderPasses/VisibilityDeferredRenderPass.h>
#include <RenderPasses/VisibilitySortRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <benchmark/benchmark.h>

#include <epoxy/gl.h>

#include <functional>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// Parallel squares, shuffled in depth, over a share of the image from its left edge.
QSharedPointer<GPUModel> createLayers(int layers, float share)
{
    GPUModelBuilder builder;
    const int square = builder.addMesh(quadMesh());
    MaterialData glass;
    glass.d = 0.1f;
    const int material = builder.addMaterial(glass);
    for (int i = 0; i < layers; ++i) {
        QMatrix4x4 matrix;
        // 37 has no common divisor with any number of layers used here.
        matrix.translate(share - 1, 0, 0.9f * (2 * float(i * 37 % layers) / float(layers) - 1));
        matrix.scale(share, 1, 1);
        builder.addItem(square, material, matrix, GPUModel::Transparent);
    }
    return builder.build();
}

/// The three passes on a scene of layers. Arguments of a benchmark: layers, and the percentage of pixels that have them.
struct Passes
{
    explicit Passes(const benchmark::State &state)
        : model(createLayers(int(state.range(0)), float(state.range(1)) / 100))
    {
        const QRect viewport(0, 0, 640, 360);
        buffer.setInput(VisibilityBufferRenderPass::Viewport, viewport);
        buffer.setInput(VisibilityBufferRenderPass::Geometry, QVariant::fromValue(model.data()));
        sort.setInput(VisibilitySortRenderPass::Viewport, viewport);
        deferred.setInput(VisibilityDeferredRenderPass::Viewport, viewport);
        deferred.setInput(VisibilityDeferredRenderPass::Geometry, QVariant::fromValue(model.data()));
        glViewport(0, 0, viewport.width(), viewport.height());
        glClearColor(0, 0, 0, 1);
    }

    void record() { buffer.start(nullptr); }
    void sortLists()
    {
        for (int i = 0; i < 3; ++i)
            sort.setInput(VisibilitySortRenderPass::HeadPointersIn + i, buffer.output(i));
        sort.start(nullptr);
    }
    void shade()
    {
        for (int i = 0; i < 3; ++i)
            deferred.setInput(VisibilityDeferredRenderPass::HeadPointers + i, sort.output(i));
        deferred.start(nullptr);
    }

    QSharedPointer<GPUModel> model;
    VisibilityBufferRenderPass buffer{0, 0};
    VisibilitySortRenderPass sort;
    VisibilityDeferredRenderPass deferred;
};

/// The two passes of ours that record and sort the same lists.
struct OwnPasses
{
    explicit OwnPasses(const Passes &passes)
    {
        const QRect viewport(0, 0, 640, 360);
        record.setInput(FragmentListRenderPass::Viewport, viewport);
        record.setInput(FragmentListRenderPass::Geometry, QVariant::fromValue(passes.model.data()));
        sort.setInput(FragmentSortRenderPass::Viewport, viewport);
    }
    void sortLists()
    {
        for (int i = 0; i < 3; ++i)
            sort.setInput(FragmentSortRenderPass::HeadPointersIn + i, record.output(i));
        sort.start(nullptr);
    }

    FragmentListRenderPass record;
    FragmentSortRenderPass sort;
};

double millisecondsOf(const std::function<void()> &work)
{
    return 1e3 * secondsOf([&work] {
        work();
        glFinish();
    });
}

/// Each pass of a frame separately, with new lists each time, since sorting sorted ones costs more. `record_ms` includes the
/// clears, `clear_ms`, which are all that a frame without a model does.
void threePasses(benchmark::State &state)
{
    Passes passes(state);
    Passes empty(state);
    empty.buffer.setInput(VisibilityBufferRenderPass::Geometry, QVariant());
    std::vector<double> record, clear, sort, shade;
    for (int i = 0; i < 2; ++i) {
        passes.record();
        passes.sortLists();
        passes.shade();
        empty.record();
    }
    glFinish();
    for (auto _ : state) {
        clear.push_back(millisecondsOf([&] { empty.record(); }));
        record.push_back(millisecondsOf([&] { passes.record(); }));
        sort.push_back(millisecondsOf([&] { passes.sortLists(); }));
        shade.push_back(millisecondsOf([&] { passes.shade(); }));
        state.SetIterationTime((record.back() + sort.back() + shade.back()) * 1e-3);
    }
    state.counters["record_ms"] = median(record);
    state.counters["clear_ms"] = median(clear);
    state.counters["sort_ms"] = median(sort);
    state.counters["shade_ms"] = median(shade);
    // The nodes in use, and everything that the passes hold.
    const double fragments = double(state.range(0)) * double(state.range(1)) / 100 * 640 * 360;
    state.counters["used_MiB"] = fragments * 16 / (1 << 20);
    state.counters["held_MiB"] = (4096.0 * 4096 * 16 + 640.0 * 360 * (4 + 4 + 8)) / (1 << 20);
}

/// Clear, record and sort by the passes of ours, and `record_ratio`, `sort_ratio` and `ratio` to what the basic passes take for the
/// same lists in the same run.
void ownLists(benchmark::State &state)
{
    Passes passes(state);
    OwnPasses own(passes);
    std::vector<double> record, sort, ownRecord, ownSort;
    for (int i = 0; i < 2; ++i) {
        passes.record();
        passes.sortLists();
        own.record.start(nullptr);
        own.sortLists();
    }
    glFinish();
    for (auto _ : state) {
        record.push_back(millisecondsOf([&] { passes.record(); }));
        ownRecord.push_back(millisecondsOf([&] { own.record.start(nullptr); }));
        sort.push_back(millisecondsOf([&] { passes.sortLists(); }));
        ownSort.push_back(millisecondsOf([&] { own.sortLists(); }));
        state.SetIterationTime((ownRecord.back() + ownSort.back()) * 1e-3);
    }
    state.counters["record_ratio"] = median(ownRecord) / median(record);
    state.counters["sort_ratio"] = median(ownSort) / median(sort);
    state.counters["ratio"] = (median(ownRecord) + median(ownSort)) / (median(record) + median(sort));
}

/// Recording beside the same clears and draws in raw GL, with the same images bound.
void recordLists(benchmark::State &state)
{
    Passes passes(state);
    compareWithFloor(state, [&passes] { passes.record(); });
}

/// Sorting lists that are sorted already, beside the same quad in raw GL.
void sortSortedLists(benchmark::State &state)
{
    Passes passes(state);
    passes.record();
    compareWithFloor(state, [&passes] { passes.sortLists(); });
}

void shadeLists(benchmark::State &state)
{
    Passes passes(state);
    passes.record();
    passes.sortLists();
    compareWithFloor(state, [&passes] { passes.shade(); });
}

/// Only the clear of the whole node texture, 256 MiB.
void clearNodes(benchmark::State &state)
{
    Texture nodes(GL_TEXTURE_2D, GL_RGBA32UI, 4096, 4096, 0, nullptr);
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    {
        AutoBinder textureBinder(&nodes);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32UI, 4096, 4096, 0, GL_RGBA_INTEGER, GL_UNSIGNED_INT, nullptr);
    }
    framebuffer.attach(&nodes, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glClearColor(0, 0, 0, 0);
    for (int i = 0; i < 2; ++i)
        millisecondsOf([] { glClear(GL_COLOR_BUFFER_BIT); });
    for (auto _ : state)
        state.SetIterationTime(millisecondsOf([] { glClear(GL_COLOR_BUFFER_BIT); }) * 1e-3);
    state.counters["GiB_per_s"] = benchmark::Counter(0.25, benchmark::Counter::kIsIterationInvariantRate);
}

void layers(benchmark::internal::Benchmark *benchmark)
{
    for (const int count : {1, 2, 4, 8, 16, 32, 50, 64})
        benchmark->Args({count, 100});
    benchmark->ArgNames({"layers", "percent"})->Apply(timing);
}

void pixels(benchmark::internal::Benchmark *benchmark)
{
    for (const int percent : {1, 5, 10, 25, 50, 100})
        benchmark->Args({8, percent});
    benchmark->ArgNames({"layers", "percent"})->Apply(timing);
}

void oneScene(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({8, 50})->ArgNames({"layers", "percent"})->Apply(timing);
}

} // namespace

BENCHMARK(threePasses)->Name("listsAgainstLayers")->Apply(layers);
BENCHMARK(threePasses)->Name("listsAgainstPixels")->Apply(pixels);
BENCHMARK(ownLists)->Apply(layers);
BENCHMARK(clearNodes)->Apply(timing);
BENCHMARK(recordLists)->Apply(oneScene);
BENCHMARK(sortSortedLists)->Apply(oneScene);
BENCHMARK(shadeLists)->Apply(oneScene);

} // namespace Velmora::Kvz
