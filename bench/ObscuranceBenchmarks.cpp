// SPDX-License-Identifier: MIT
// Camera-space positions and ambient obscurance beside the same draws in raw GL, and the obscurance's time against its taps,
// its resolution and its radius.
#include "Comparison.h"
#include "Scenery.h"

#include <ExtraPasses/AmbientVisibilityRenderPass.h>
#include <GL/TextureManager.h>
#include <RenderPasses/CameraSpaceZBufferRenderPass.h>
#include <RenderPasses/ModelRenderPass.h>
#include <RenderPasses/ScalableAmbientObscuranceRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Obscurance = ScalableAmbientObscuranceRenderPass;
using Unprojection = CameraSpaceZBufferRenderPass;

/// A rolling landscape that fills the frame, as depth, normals and positions: the first two arguments of a benchmark are
/// width and height.
class Landscape
{
public:
    explicit Landscape(const benchmark::State &state)
        : viewport(viewportOf(state)),
          projection(perspective(viewport, 45, 1, 40))
    {
        camera.lookAt(QVector3D(0, 3, 9), QVector3D(0, 0, 0), QVector3D(0, 1, 0));
        const MeshData hills = gridMesh(128, 128, [](float column, float row) {
            const float x = 30 * (column - 0.5f);
            const float z = 30 * (row - 0.6f);
            const QVector3D normal(
                -1.2f * std::cos(3 * x) * std::cos(3 * z), 1, 1.2f * std::sin(3 * x) * std::sin(3 * z));
            return GridVertex{QVector3D(x, 0.4f * std::sin(3 * x) * std::cos(3 * z), z), normal.normalized()};
        });
        GPUModelBuilder builder;
        builder.addItem(builder.addMesh(hills), builder.addMaterial({}));
        m_model = builder.build();
        m_geometry.setInput(ModelRenderPass::Viewport, viewport);
        m_geometry.setInput(ModelRenderPass::ProjectionMatrix, projection);
        m_geometry.setInput(ModelRenderPass::CameraMatrix, camera);
        m_geometry.setInput(ModelRenderPass::Geometry, QVariant::fromValue(m_model.data()));
        glDepthMask(GL_TRUE);
        glViewport(0, 0, viewport.width(), viewport.height());
        m_geometry.start(nullptr);
        feed(m_unprojection);
        m_unprojection.setNumOutputUsers(Unprojection::Frame, frames);
        m_unprojection.start(nullptr);
    }

    ~Landscape()
    {
        auto *const positions = m_unprojection.output(Unprojection::Frame).value<Texture *>();
        TextureManager::Instance()->releaseTempTextureRef(positions, frames);
    }

    void feed(Unprojection &pass) const
    {
        pass.setInput(Unprojection::Viewport, viewport);
        pass.setInput(Unprojection::ProjectionMatrix, projection);
        pass.setInput(Unprojection::Depth, depth());
    }
    /// With the values of the ready chain.
    void feed(Obscurance &pass, bool givePositions) const
    {
        pass.setNormalProcessing(Obscurance::NormalScreenSpace);
        pass.setInput(Obscurance::Viewport, viewport);
        pass.setInput(Obscurance::ProjectionMatrix, projection);
        pass.setInput(Obscurance::CameraMatrix, camera);
        pass.setInput(Obscurance::NearPlane, 1.0f);
        pass.setInput(Obscurance::FarPlane, 40.0f);
        pass.setInput(Obscurance::SaoRadius, 0.3f);
        pass.setInput(Obscurance::SaoBias, 0.01f);
        pass.setInput(Obscurance::SaoIntensity, 3.0f);
        pass.setInput(Obscurance::Depth, depth());
        pass.setInput(Obscurance::Normal, m_geometry.output(ModelRenderPass::Normal));
        if (givePositions)
            pass.setInput(Obscurance::CameraSpacePosition, m_unprojection.output(Unprojection::Frame));
    }

    void feed(AmbientVisibilityRenderPass &pass) const
    {
        using Pass = AmbientVisibilityRenderPass;
        pass.setInput(Pass::Viewport, viewport);
        pass.setInput(Pass::ProjectionMatrix, projection);
        pass.setInput(Pass::Depth, depth());
        pass.setInput(Pass::Normal, m_geometry.output(ModelRenderPass::Normal));
        pass.setInput(Pass::RelativeRadius, 1.0f); // Without bounds a length.
    }

    const QRect viewport;
    QMatrix4x4 projection;
    QMatrix4x4 camera;

private:
    /// More than a benchmark runs, each of which gives the positions back once.
    static constexpr int frames = 1 << 30;

    QVariant depth() const { return m_geometry.output(ModelRenderPass::Depth); }

    QSharedPointer<GPUModel> m_model;
    ModelRenderPass m_geometry;
    Unprojection m_unprojection;
};

void positions(benchmark::State &state)
{
    const Landscape landscape(state);
    Unprojection pass;
    landscape.feed(pass);
    compareWithFloor(state, pass);
}

/// Nanoseconds per tap and pixel. The more constant this is from row to row, the more the time depends only on the taps.
void countTaps(benchmark::State &state, double pixels, double taps)
{
    state.counters["ns_per_tap"] = state.counters["ms"] * 1e6 / (pixels * taps);
}

/// Third to fifth argument: taps, divider, radius in hundredths of a unit.
void obscure(benchmark::State &state, bool givePositions)
{
    const Landscape landscape(state);
    Obscurance pass;
    landscape.feed(pass, givePositions);
    pass.setInput(Obscurance::SaoNumSamples, float(state.range(2)));
    pass.setInput(Obscurance::ResolutionDivider, float(state.range(3)));
    pass.setInput(Obscurance::SaoRadius, float(state.range(4)) / 100);
    compareWithFloor(state, pass);
    const double divider = double(state.range(3));
    countTaps(state, double(state.range(0) / divider) * double(state.range(1) / divider), double(state.range(2)));
}

void obscurance(benchmark::State &state)
{
    obscure(state, true);
}

void obscuranceFromDepth(benchmark::State &state)
{
    obscure(state, false);
}

void ambientVisibility(benchmark::State &state)
{
    const Landscape landscape(state);
    AmbientVisibilityRenderPass pass;
    landscape.feed(pass);
    compareWithFloor(state, pass);
}

void usualSizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Args({1280, 720, 7, 1, 30})->Args({16, 16, 7, 1, 30})->Apply(timing);
}

void taps(benchmark::internal::Benchmark *benchmark)
{
    for (int count : {1, 4, 7, 14, 28, 56})
        benchmark->Args({640, 360, count, 1, 30});
    benchmark->Apply(timing);
}

void dividers(benchmark::internal::Benchmark *benchmark)
{
    for (int divider : {1, 2, 3, 4, 8})
        benchmark->Args({960, 540, 7, divider, 30});
    benchmark->Apply(timing);
}

void radii(benchmark::internal::Benchmark *benchmark)
{
    for (int radius : {3, 10, 30, 100, 300})
        benchmark->Args({640, 360, 7, 1, radius});
    benchmark->Apply(timing);
}

} // namespace

BENCHMARK(positions)->Apply(largeAndTiny);
BENCHMARK(ambientVisibility)->Apply(largeAndTiny);
BENCHMARK(obscurance)->Apply(usualSizes);
BENCHMARK(obscuranceFromDepth)->Apply(usualSizes);
BENCHMARK(obscurance)->Name("obscuranceAgainstTaps")->Apply(taps);
BENCHMARK(obscurance)->Name("obscuranceAgainstDivider")->Apply(dividers);
BENCHMARK(obscurance)->Name("obscuranceAgainstRadius")->Apply(radii);

} // namespace Velmora::Kvz
