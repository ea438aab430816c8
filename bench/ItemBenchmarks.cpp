// SPDX-License-Identifier: MIT
// What an item costs where one call draws many of them, beside raw GL that issues the same commands, and beside a call for each item.
#include "Comparison.h"
#include "DrawRecorder.h"

#include <Core/RenderPass.h>
#include <ExtraPasses/FragmentListRenderPass.h>
#include <ExtraPasses/LitForwardRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

/// Small triangles, so that what is measured is the items and not their pixels.
QSharedPointer<GPUModel> createTriangles(int count, float opacity)
{
    GPUModelBuilder builder;
    MeshData mesh;
    mesh.positions = {QVector3D(-1, -1, 0), QVector3D(1, -1, 0), QVector3D(0, 1, 0)};
    mesh.normals = {QVector3D(0, 0, 1), QVector3D(0, 0, 1), QVector3D(0, 0, 1)};
    mesh.indices = {0, 1, 2};
    const int triangle = builder.addMesh(mesh);
    MaterialData surface;
    surface.d = opacity;
    const int material = builder.addMaterial(surface);
    for (int i = 0; i < count; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(float(i % 331) / 165.0f - 1.0f, float(i / 331) / 165.0f - 1.0f, 0);
        matrix.scale(0.002f);
        builder.addItem(triangle, material, matrix);
    }
    return builder.build();
}

/// Hides the extension from passes that build their programs while it lives.
class WithoutIndirectDraws
{
public:
    WithoutIndirectDraws()
    {
        epoxy_has_gl_extension("GL_KVZ_none"); // Has the function resolved, which asks for extensions too.
        s_driver = epoxy_glGetStringi;
        epoxy_glGetStringi = &extension;
    }
    ~WithoutIndirectDraws() { epoxy_glGetStringi = s_driver; }
    WithoutIndirectDraws(const WithoutIndirectDraws &) = delete;
    WithoutIndirectDraws &operator=(const WithoutIndirectDraws &) = delete;

private:
    static const GLubyte *extension(GLenum name, GLuint index)
    {
        const GLubyte *const found = s_driver(name, index);
        const bool isHidden = std::strcmp(reinterpret_cast<const char *>(found), "GL_ARB_multi_draw_indirect") == 0;
        return isHidden ? reinterpret_cast<const GLubyte *>("GL_KVZ_hidden") : found;
    }

    static inline decltype(epoxy_glGetStringi) s_driver = nullptr;
};

template <typename Pass> void setInputs(Pass &pass, GPUModel *model)
{
    pass.setInput(Pass::Viewport, QRect(0, 0, 64, 64));
    pass.setInput(Pass::ProjectionMatrix, QMatrix4x4());
    pass.setInput(Pass::CameraMatrix, QMatrix4x4());
    pass.setInput(Pass::Geometry, QVariant::fromValue(model));
}

/// Items of this opacity, since some passes draw opaque items alone and some transparent ones.
template <typename Pass> void itemsOf(benchmark::State &state, float opacity)
{
    const int items = int(state.range(0));
    const QSharedPointer<GPUModel> model = createTriangles(items, opacity);
    Pass many, loop;
    setInputs(many, model.data());
    setInputs(loop, model.data());
    {
        const WithoutIndirectDraws claim;
        loop.start(nullptr);
    }
    many.start(nullptr);
    many.start(nullptr);
    DrawRecorder recorder;
    recorder.begin();
    many.start(nullptr);
    recorder.end();
    recorder.replay();
    DrawRecorder::unbind();
    glFinish();
    std::vector<double> ours, raw, one;
    const auto measure = [](std::vector<double> *seconds, const std::function<void()> &work) {
        seconds->push_back(secondsOf([&work] {
            work();
            glFinish();
        }));
    };
    for (auto _ : state) {
        measure(&ours, [&] { many.start(nullptr); });
        measure(&raw, [&] { recorder.replay(); });
        DrawRecorder::unbind();
        measure(&one, [&] { loop.start(nullptr); });
        state.SetIterationTime(ours.back());
    }
    const double perItem = 1e6 / items;
    state.counters["us_per_item"] = median(ours) * perItem;
    state.counters["raw_us_per_item"] = median(raw) * perItem;
    state.counters["loop_us_per_item"] = median(one) * perItem;
    state.counters["ratio"] = median(ours) / median(raw);
    state.counters["of_loop"] = median(ours) / median(one);
}

void litForwardItems(benchmark::State &state)
{
    itemsOf<LitForwardRenderPass>(state, 1);
}

void fragmentListItems(benchmark::State &state)
{
    itemsOf<FragmentListRenderPass>(state, 0.5f);
}

void itemCounts(benchmark::internal::Benchmark *benchmark)
{
    timing(benchmark);
    for (const int count : {1, 3, 10, 100, 10000})
        benchmark->Arg(count);
}

BENCHMARK(litForwardItems)->Apply(itemCounts);
BENCHMARK(fragmentListItems)->Apply(itemCounts);

} // namespace

} // namespace Velmora::Kvz
