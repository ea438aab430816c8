// SPDX-License-Identifier: MIT
// The passes that light surfaces, and the step that composes layers, beside the same draws in raw GL.
#include "Comparison.h"
#include "Scenery.h"

#include <ExtraPasses/CompositeRenderPass.h>
#include <ExtraPasses/EnvironmentLightRenderPass.h>
#include <ExtraPasses/ItemIdRenderPass.h>
#include <ExtraPasses/LitDeferredRenderPass.h>
#include <ExtraPasses/LitForwardRenderPass.h>
#include <ExtraPasses/PhysicalForwardRenderPass.h>
#include <ExtraPasses/SurfaceRenderPass.h>
#include <GL/Texture.h>
#include <RenderPasses/GradientRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// A saddle that fills the frame, with vertex colours and an image; the first two arguments of a benchmark are width and height.
class Scene
{
public:
    explicit Scene(const benchmark::State &state)
        : viewport(viewportOf(state)),
          m_projection(perspective(viewport, 45, 0.1f, 100))
    {
        m_camera.lookAt(QVector3D(3, 2, 4), QVector3D(), QVector3D(0, 1, 0));
        MeshData saddle = gridMesh(64, 64, [](float column, float row) {
            const float x = 4 * column - 2;
            const float z = 4 * row - 2;
            return GridVertex{QVector3D(x, 0.3f * x * z, z), QVector3D(-0.3f * z, 1, -0.3f * x).normalized()};
        });
        saddle.texCoords.clear();
        for (const QVector3D &position : qAsConst(saddle.positions)) {
            saddle.texCoords.append(QVector2D(position.x(), position.z()));
            saddle.colours.append(QVector4D(1, 0.5f + 0.2f * position.x(), 1, 1));
        }
        MaterialData material;
        material.ks = QVector3D(0.3f, 0.3f, 0.3f);
        material.mapKd = QImage(64, 64, QImage::Format_ARGB32);
        material.mapKd.fill(QColor(200, 180, 160));
        GPUModelBuilder builder;
        builder.addItem(builder.addMesh(saddle), builder.addMaterial(material));
        m_model = builder.build();
    }

    template <typename Pass> void feed(Pass &pass) const
    {
        pass.setInput(Pass::Viewport, viewport);
        pass.setInput(Pass::ProjectionMatrix, m_projection);
        pass.setInput(Pass::CameraMatrix, m_camera);
    }
    template <typename Pass> void feedWithModel(Pass &pass) const
    {
        feed(pass);
        pass.setInput(Pass::Geometry, QVariant::fromValue(m_model.data()));
    }

    const QRect viewport;

private:
    QMatrix4x4 m_projection;
    QMatrix4x4 m_camera;
    QSharedPointer<GPUModel> m_model;
};

void litForward(benchmark::State &state)
{
    const Scene scene(state);
    LitForwardRenderPass pass;
    scene.feedWithModel(pass);
    compareWithFloor(state, pass);
}

/// The light of a studio, whose key light casts no shadow.
void physicalForward(benchmark::State &state)
{
    const Scene scene(state);
    EnvironmentLightRenderPass light;
    light.start(nullptr);
    PhysicalForwardRenderPass pass;
    scene.feedWithModel(pass);
    pass.setInput(PhysicalForwardRenderPass::Environment, light.output(EnvironmentLightRenderPass::EnvironmentTexture));
    pass.setInput(PhysicalForwardRenderPass::Irradiance, light.output(EnvironmentLightRenderPass::Irradiance));
    pass.setInput(PhysicalForwardRenderPass::Lights, light.output(EnvironmentLightRenderPass::LightsOut));
    compareWithFloor(state, pass);
}

void surfaces(benchmark::State &state)
{
    const Scene scene(state);
    SurfaceRenderPass pass;
    scene.feedWithModel(pass);
    compareWithFloor(state, pass);
}

void itemIds(benchmark::State &state)
{
    const Scene scene(state);
    ItemIdRenderPass pass;
    scene.feedWithModel(pass);
    compareWithFloor(state, pass);
}

/// Lights the images of a scene, in shadow and in corners where `isDarkened`.
void lightDeferred(benchmark::State &state, bool isDarkened)
{
    const Scene scene(state);
    SurfaceRenderPass images;
    scene.feedWithModel(images);
    images.start(nullptr);
    LitDeferredRenderPass pass;
    scene.feed(pass);
    // Any colour image serves.
    if (isDarkened) {
        pass.setInput(LitDeferredRenderPass::ShadowMask, images.output(SurfaceRenderPass::Diffuse));
        pass.setInput(LitDeferredRenderPass::Obscurance, images.output(SurfaceRenderPass::Emission));
    }
    pass.setInput(LitDeferredRenderPass::Diffuse, images.output(SurfaceRenderPass::Diffuse));
    pass.setInput(LitDeferredRenderPass::Specular, images.output(SurfaceRenderPass::Specular));
    pass.setInput(LitDeferredRenderPass::Normal, images.output(SurfaceRenderPass::Normal));
    pass.setInput(LitDeferredRenderPass::Emission, images.output(SurfaceRenderPass::Emission));
    pass.setInput(LitDeferredRenderPass::Depth, images.output(SurfaceRenderPass::Depth));
    compareWithFloor(state, pass);
}

void litDeferred(benchmark::State &state)
{
    lightDeferred(state, false);
}

void litDeferredDarkened(benchmark::State &state)
{
    lightDeferred(state, true);
}

void composite(benchmark::State &state)
{
    const Scene scene(state);
    LitForwardRenderPass lit;
    scene.feedWithModel(lit);
    lit.start(nullptr);
    GradientRenderPass back;
    back.setInput(GradientRenderPass::Viewport, scene.viewport);
    glViewport(0, 0, scene.viewport.width(), scene.viewport.height());
    back.start(nullptr);
    CompositeRenderPass pass;
    pass.setInput(CompositeRenderPass::Viewport, scene.viewport);
    pass.setInput(CompositeRenderPass::FrameIn, lit.output(LitForwardRenderPass::Frame));
    pass.setInput(CompositeRenderPass::Background, back.output(GradientRenderPass::Frame));
    compareWithFloor(state, pass);
}

} // namespace

BENCHMARK(litForward)->Apply(largeAndTiny);
BENCHMARK(physicalForward)->Apply(largeAndTiny);
BENCHMARK(surfaces)->Apply(largeAndTiny);
BENCHMARK(itemIds)->Apply(largeAndTiny);
BENCHMARK(litDeferred)->Apply(largeAndTiny);
BENCHMARK(litDeferredDarkened)->Apply(largeAndTiny);
BENCHMARK(composite)->Apply(largeAndTiny);

} // namespace Velmora::Kvz
