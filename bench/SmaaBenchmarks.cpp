// SPDX-License-Identifier: MIT
// Morphological antialiasing beside the same draws in raw GL, in all modes, and its time against the share of pixels at edges.
#include "Comparison.h"
#include "Scenery.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>
#include <RenderPasses/SMAARenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>
#include <memory>

namespace Velmora::Kvz {

namespace {

/// A slanted chequerboard: squares of `side` pixels, one colour at 0.
std::unique_ptr<Texture> chequerboard(const QSize &size, int side)
{
    std::vector<GLubyte> texels;
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const int column = side ? int(std::floor((0.94 * x + 0.34 * y) / side)) : 0;
            const int row = side ? int(std::floor((0.94 * y - 0.34 * x) / side)) : 0;
            const GLubyte grey = (column + row) % 2 ? 30 : 200;
            for (int k = 0; k < 4; ++k)
                texels.push_back(k < 3 ? grey : 255);
        }
    }
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA8, size.width(), size.height(), 0, nullptr);
    AutoBinder binder(texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, size.width(), size.height(), 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    return texture;
}

/// Fields of 16 pixels, different in each sample. GL cannot upload to multisampled textures, so they are cleared one by one.
std::unique_ptr<Texture> multisampledFields(const QSize &size)
{
    auto texture =
        std::make_unique<Texture>(GL_TEXTURE_2D_MULTISAMPLE, GL_RGBA8, size.width(), size.height(), 0, nullptr);
    AutoBinder binder(texture.get());
    glTexImage2DMultisample(GL_TEXTURE_2D_MULTISAMPLE, 2, GL_RGBA8, size.width(), size.height(), GL_TRUE);
    FramebufferObject target;
    AutoBinder targetBinder(&target);
    target.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    target.setDrawBuffers();
    glEnable(GL_SCISSOR_TEST);
    for (int y = 0; y < size.height(); y += 16) {
        for (int x = 0; x < size.width(); x += 16) {
            const float grey = (x / 16 + y / 16) % 2 ? 0.1f : 0.8f;
            glScissor(x, y, 16, 16);
            glClearColor(grey, grey, grey, 1);
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    glDisable(GL_SCISSOR_TEST);
    return texture;
}

/// A pass in one mode with the inputs that this needs, after its first frame.
class Scene
{
public:
    Scene(const QSize &viewport, int mode, int side)
        : size(viewport),
          m_picture(chequerboard(viewport, side)),
          m_samples(mode % 2 ? multisampledFields(viewport) : nullptr),
          m_still(chequerboard(QSize(1, 1), 0))
    {
        pass.setup(nullptr);
        pass.setInput(SMAARenderPass::Viewport, QRect(QPoint(), viewport));
        pass.setInput(SMAARenderPass::SmaaMode, mode);
        pass.setInput(SMAARenderPass::Frame, QVariant::fromValue(m_samples ? m_samples.get() : m_picture.get()));
        pass.setInput(SMAARenderPass::Velocity, QVariant::fromValue(m_still.get()));
        pass.start(nullptr);
    }
    Texture *picture() const { return m_picture.get(); }

    SMAARenderPass pass;
    const QSize size;

private:
    std::unique_ptr<Texture> m_picture;
    std::unique_ptr<Texture> m_samples;
    std::unique_ptr<Texture> m_still;
};

void smaa(benchmark::State &state)
{
    Scene scene(viewportOf(state).size(), int(state.range(2)), 16);
    compareWithFloor(state, scene.pass);
}

/// The percentage of pixels that the edge detection keeps.
double shareOfEdges(Scene *scene, Texture *edges, Texture *stencil)
{
    GLuint query = 0;
    glGenQueries(1, &query);
    glBeginQuery(GL_SAMPLES_PASSED, query);
    scene->pass.edgeDetection(edges, stencil, scene->picture(), nullptr);
    glEndQuery(GL_SAMPLES_PASSED);
    GLuint kept = 0;
    glGetQueryObjectuiv(query, GL_QUERY_RESULT, &kept);
    glDeleteQueries(1, &query);
    return 100.0 * kept / (double(scene->size.width()) * scene->size.height());
}

struct StageTextures
{
    explicit StageTextures(const QSize &size)
    {
        for (Texture **texture : {&edges, &weights})
            *texture = TextureManager::Instance()->tempTexture(
                TextureFormat::LowDynamicRange, size.width(), size.height(), 1, 1);
        stencil =
            TextureManager::Instance()->tempTexture(TextureFormat::DepthStencil, size.width(), size.height(), 1, 1);
        for (Texture *texture : {edges, weights})
            filterLinearly(texture);
    }
    ~StageTextures()
    {
        for (Texture *texture : {edges, weights, stencil})
            TextureManager::Instance()->releaseTempTextureRef(texture, 1);
    }
    StageTextures(const StageTextures &) = delete;
    StageTextures &operator=(const StageTextures &) = delete;

    Texture *edges = nullptr;
    Texture *weights = nullptr;
    Texture *stencil = nullptr;
};

/// The whole pass against the share of pixels at edges.
void againstEdges(benchmark::State &state)
{
    Scene scene(viewportOf(state).size(), SMAARenderPass::Smaa1X, int(state.range(2)));
    StageTextures textures(scene.size);
    const double share = shareOfEdges(&scene, textures.edges, textures.stencil);
    glDisable(GL_STENCIL_TEST);
    compareWithFloor(state, scene.pass);
    state.counters["edge_percent"] = share;
}

/// Only the blending weights; with a last argument of 1 without the stencil, at every pixel.
void weightsAgainstEdges(benchmark::State &state)
{
    Scene scene(viewportOf(state).size(), SMAARenderPass::Smaa1X, int(state.range(2)));
    StageTextures textures(scene.size);
    glDisable(GL_BLEND);
    const double share = shareOfEdges(&scene, textures.edges, textures.stencil);
    if (state.range(3)) {
        FramebufferObject framebuffer;
        AutoBinder binder(&framebuffer);
        framebuffer.attach(textures.stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
        framebuffer.setDrawBuffers();
        glStencilMask(0xff);
        glClearStencil(1);
        glClear(GL_STENCIL_BUFFER_BIT);
    }
    compareWithFloor(state, [&] {
        glEnable(GL_STENCIL_TEST);
        scene.pass.blendingWeightCalculation(textures.weights, textures.edges, textures.stencil, 0);
    });
    glDisable(GL_STENCIL_TEST);
    state.counters["edge_percent"] = share;
}

/// largeAndTiny() in each mode.
void modes(benchmark::internal::Benchmark *benchmark)
{
    for (int mode : {0, 1, 2, 3})
        benchmark->Args({1280, 720, mode})->Args({16, 16, mode});
    benchmark->Apply(timing);
}

void sides(benchmark::internal::Benchmark *benchmark)
{
    for (int side : {0, 256, 64, 32, 16, 8, 4, 2})
        benchmark->Args({640, 360, side});
    benchmark->Apply(timing);
}

void sidesWithAndWithoutStencil(benchmark::internal::Benchmark *benchmark)
{
    for (int side : {0, 256, 64, 16, 4}) {
        benchmark->Args({640, 360, side, 0});
        benchmark->Args({640, 360, side, 1});
    }
    benchmark->Apply(timing);
}

} // namespace

BENCHMARK(smaa)->Apply(modes);
BENCHMARK(againstEdges)->Name("smaaAgainstEdges")->Apply(sides);
BENCHMARK(weightsAgainstEdges)->Name("smaaWeightsAgainstEdges")->Apply(sidesWithAndWithoutStencil);

} // namespace Velmora::Kvz
