// SPDX-License-Identifier: MIT
// The shadow passes against the number of lights, beside the same draws in raw GL, and a frame in which nothing changed.
#include "Comparison.h"
#include "Scenery.h"

#include <GL/GLExtensions.h>
#include <RenderPasses/ShadowMapRenderPass.h>
#include <RenderPasses/ShadowMapRenderPass2.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QSize>
#include <QtCore/QVariantList>
#include <QtGui/QMatrix4x4>

#include <benchmark/benchmark.h>

#include <epoxy/gl.h>

#include <cmath>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr int mapSize = 256;

/// A sphere of `around` squares around and half as many from pole to pole.
MeshData createSphere(int around)
{
    return gridMesh(around, around / 2, [](float column, float row) {
        const float longitude = 2 * float(M_PI) * column;
        const float latitude = float(M_PI) * (0.5f - row);
        const QVector3D normal(
            std::cos(latitude) * std::sin(longitude), std::sin(latitude), std::cos(latitude) * std::cos(longitude));
        return GridVertex{normal, normal};
    });
}

/// A hundred spheres over a floor, and spot lights around them, one layer each.
class Scene
{
public:
    explicit Scene(int lightCount)
    {
        GPUModelBuilder builder;
        const int material = builder.addMaterial({});
        const int sphere = builder.addMesh(createSphere(24));
        for (int i = 0; i < 100; ++i) {
            QMatrix4x4 matrix;
            matrix.translate(float(i % 10) - 4.5f, 0.5f, float(i / 10) - 4.5f);
            matrix.scale(0.4f);
            builder.addItem(sphere, material, matrix);
        }
        MeshData floor;
        floor.positions = {{-6, 0, -6}, {-6, 0, 6}, {6, 0, 6}, {6, 0, -6}};
        floor.normals = {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}, {0, 1, 0}};
        floor.indices = {0, 1, 2, 0, 2, 3};
        builder.addItem(builder.addMesh(floor), material);
        m_model = builder.build();
        for (int i = 0; i < lightCount; ++i) {
            const float angle = 2 * float(M_PI) * float(i) / float(lightCount);
            m_lights.push_back(std::make_unique<ShadowMapManager::Light>());
            ShadowMapManager::Light &light = *m_lights.back();
            light.type = ShadowMapManager::Light::Spot;
            light.position = QVector3D(8 * std::sin(angle), 6, 8 * std::cos(angle));
            light.direction = -light.position;
            light.range = 30;
        }
    }

    void connect(RenderPass *pass) const
    {
        QVariantList lights;
        for (const auto &light : m_lights)
            lights.append(QVariant::fromValue(light.get()));
        set(pass, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(m_model.data()));
        set(pass, "Kvz_QList_KvzShadowMapManagerLight*_Lights", lights);
        set(pass, "Kvz_QSize_MapSize", QSize(mapSize, mapSize));
    }

    static void set(RenderPass *pass, const char *port, const QVariant &value)
    {
        pass->setInput(pass->findInput(QString::fromLatin1(port)), value);
    }

private:
    QSharedPointer<GPUModel> m_model;
    std::vector<std::unique_ptr<ShadowMapManager::Light>> m_lights;
};

/// What the driver is made to claim while a pass is constructed, so that each strategy is measured on any driver that can run
/// it.
enum Strategy { Batches, VertexStage, OneByOne };

const GLubyte *(*driverString)(GLenum);
const GLubyte *(*driverExtension)(GLenum, GLuint);

const GLubyte *amdRenderer(GLenum name)
{
    return name == GL_RENDERER ? reinterpret_cast<const GLubyte *>("AMD") : driverString(name);
}

const GLubyte *plainRenderer(GLenum name)
{
    return name == GL_RENDERER ? reinterpret_cast<const GLubyte *>("Plain") : driverString(name);
}

const GLubyte *noViewportLayer(GLenum name, GLuint index)
{
    const GLubyte *const extension = driverExtension(name, index);
    const bool isHidden = qstrcmp(reinterpret_cast<const char *>(extension), "GL_ARB_shader_viewport_layer_array") == 0;
    return isHidden ? reinterpret_cast<const GLubyte *>("GL_KVZ_hidden") : extension;
}

std::unique_ptr<ShadowMapRenderPass2> makePass(Strategy strategy)
{
    // The first call resolves the loader's pointer.
    glGetString(GL_RENDERER);
    glGetStringi(GL_EXTENSIONS, 0);
    driverString = epoxy_glGetString;
    driverExtension = epoxy_glGetStringi;
    epoxy_glGetString = strategy == Batches ? amdRenderer : plainRenderer;
    if (strategy == OneByOne)
        epoxy_glGetStringi = noViewportLayer;
    auto pass = std::make_unique<ShadowMapRenderPass2>();
    epoxy_glGetString = driverString;
    epoxy_glGetStringi = driverExtension;
    return pass;
}

void perLight(benchmark::State &state)
{
    state.counters["ms_per_light"] = state.counters["ms"] / double(state.range(0));
}

void shadowMaps(benchmark::State &state, int filter)
{
    const Scene scene(int(state.range(0)));
    ShadowMapRenderPass pass;
    scene.connect(&pass);
    Scene::set(&pass, "Kvz_int_FilterType", filter);
    compareWithFloor(state, pass);
    perLight(state);
}

void shadowMaps2(benchmark::State &state, Strategy strategy)
{
    if (strategy == VertexStage && !hasGLExtension("GL_ARB_shader_viewport_layer_array")) {
        state.SkipWithError("the driver has no GL_ARB_shader_viewport_layer_array");
        return;
    }
    const Scene scene(int(state.range(0)));
    const auto pass = makePass(strategy);
    scene.connect(pass.get());
    compareWithFloor(state, *pass);
    perLight(state);
}

/// A frame that is not dirty costs nothing but microseconds of the host's thread.
void cleanFrame(benchmark::State &state)
{
    const Scene scene(int(state.range(0)));
    const auto pass = makePass(OneByOne);
    scene.connect(pass.get());
    pass->start(nullptr);
    Scene::set(pass.get(), "Kvz_bool_Dirty", false);
    glFinish();
    for (auto _ : state)
        pass->start(nullptr);
}

void lightCounts(benchmark::internal::Benchmark *benchmark)
{
    benchmark->RangeMultiplier(2)->Range(1, 32)->Apply(timing);
}

} // namespace

BENCHMARK_CAPTURE(shadowMaps, none, 0)->Apply(lightCounts);
BENCHMARK_CAPTURE(shadowMaps, gaussian, 1)->Apply(lightCounts);
BENCHMARK_CAPTURE(shadowMaps2, batches, Batches)->Apply(lightCounts);
BENCHMARK_CAPTURE(shadowMaps2, vertexStage, VertexStage)->Apply(lightCounts);
BENCHMARK_CAPTURE(shadowMaps2, oneByOne, OneByOne)->Apply(lightCounts);
BENCHMARK(cleanFrame)->Arg(1)->Arg(32)->Unit(benchmark::kMicrosecond);

} // namespace Velmora::Kvz
