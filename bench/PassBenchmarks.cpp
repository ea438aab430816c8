// SPDX-License-Identifier: MIT
// Each pass beside the same draws in raw GL.
#include "Comparison.h"
#include "Scenery.h"

#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>
#include <RenderPasses/BlendRenderPass.h>
#include <RenderPasses/CullingRenderPass.h>
#include <RenderPasses/DeferredRenderPass.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <RenderPasses/GBufferRenderPass.h>
#include <RenderPasses/GradientRenderPass.h>
#include <RenderPasses/ModelDeferredPass.h>
#include <RenderPasses/ModelRenderPass.h>
#include <RenderPasses/PrimitiveBuilderRenderPass.h>
#include <RenderPasses/ShaderRenderPass.h>
#include <RenderPasses/TextureToScreenRenderPass.h>
#include <RenderPasses/WireframeRenderPass.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// A frame's size and camera: the first two arguments of a benchmark are width and height.
struct View
{
    QRect viewport;
    QMatrix4x4 projection;
    QMatrix4x4 camera;

    explicit View(const benchmark::State &state)
        : viewport(viewportOf(state)),
          projection(perspective(viewport, 45, 0.1f, 100))
    {
        camera.lookAt(QVector3D(3, 2, 4), QVector3D(), QVector3D(0, 1, 0));
    }
};

void set(RenderPass &pass, const char *port, const QVariant &value)
{
    pass.setInput(pass.findInput(QString::fromLatin1(port)), value);
}

void setView(RenderPass &pass, const View &view)
{
    set(pass, "Kvz_QRect_Viewport", view.viewport);
    set(pass, "Kvz_QMatrix4x4_ProjectionMatrix", view.projection);
    set(pass, "Kvz_QMatrix4x4_CameraMatrix", view.camera);
}

QVariant output(const RenderPass &pass, const char *port)
{
    return pass.output(pass.findOutput(QString::fromLatin1(port)));
}

/// The part of RenderChain's baseline that these passes depend on.
void setBaseline(const View &view)
{
    glViewport(0, 0, view.viewport.width(), view.viewport.height());
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
}

QSharedPointer<GPUModel> createModel()
{
    GPUModelBuilder builder;
    const int material = builder.addMaterial({});
    const MeshData saddle = gridMesh(64, 64, [](float column, float row) {
        const float x = 2 * column - 1;
        const float z = 2 * row - 1;
        return GridVertex{QVector3D(x, 0.3f * x * z, z), QVector3D(-0.3f * z, 1, -0.3f * x).normalized()};
    });
    builder.addItem(builder.addMesh(saddle), material);
    return builder.build();
}

void gradient(benchmark::State &state)
{
    const View view(state);
    GradientRenderPass pass;
    set(pass, "Kvz_QRect_Viewport", view.viewport);
    compareWithFloor(state, pass);
}

void blend(benchmark::State &state)
{
    const View view(state);
    GradientRenderPass source;
    GradientRenderPass destination;
    for (GradientRenderPass *pass : {&source, &destination}) {
        set(*pass, "Kvz_QRect_Viewport", view.viewport);
        pass->start(nullptr);
    }
    BlendRenderPass pass(BlendRenderPass::SrcOver);
    set(pass, "Kvz_QRect_Viewport", view.viewport);
    set(pass, "Kvz_KvzTexture*_FrameA", source.output(0));
    set(pass, "Kvz_KvzTexture*_FrameB", destination.output(0));
    compareWithFloor(state, pass);
}

void present(benchmark::State &state, bool superSampling)
{
    const View view(state);
    GradientRenderPass source;
    set(source, "Kvz_QRect_Viewport", view.viewport);
    source.start(nullptr);
    Texture *const screen = TextureManager::Instance()->tempTexture(
        TextureFormat::LowDynamicRange, view.viewport.width(), view.viewport.height(), 1, 1);
    TextureToScreenRenderPass pass;
    set(pass, "Kvz_QRect_Viewport", view.viewport);
    set(pass, "Kvz_KvzTexture*_Texture", source.output(0));
    set(pass, "Kvz_KvzTexture*_TextureOut", QVariant::fromValue(screen));
    set(pass, "Kvz_Bool_EnableSuperSampling", superSampling);
    compareWithFloor(state, pass);
    TextureManager::Instance()->releaseTempTextureRef(screen, 1);
}

void presentByBlit(benchmark::State &state)
{
    present(state, false);
}

void presentByDraw(benchmark::State &state)
{
    present(state, true);
}

void geometryBuffer(benchmark::State &state)
{
    const View view(state);
    PrimitiveBuilderRenderPass primitives;
    for (int i = 0; i < 8; ++i)
        primitives.addCube(0.7f, QVector3D(float(i % 2), float(i / 2 % 2), float(i / 4)));
    primitives.start(nullptr);
    GBufferRenderPass pass;
    setView(pass, view);
    set(pass, "Kvz_KvzDrawBuffers*_Geometry", primitives.output(0));
    compareWithFloor(state, [&] {
        setBaseline(view);
        pass.start(nullptr);
    });
}

void deferred(benchmark::State &state)
{
    const View view(state);
    PrimitiveBuilderRenderPass primitives;
    primitives.addCube(2, QVector3D());
    primitives.start(nullptr);
    GBufferRenderPass buffer;
    setView(buffer, view);
    set(buffer, "Kvz_KvzDrawBuffers*_Geometry", primitives.output(0));
    buffer.start(nullptr);
    DeferredRenderPass pass;
    setView(pass, view);
    for (const char *port : {"Kvz_KvzTexture*_Normal", "Kvz_KvzTexture*_TexCoord", "Kvz_KvzTexture*_Depth"})
        set(pass, port, output(buffer, port));
    setBaseline(view);
    compareWithFloor(state, pass);
}

void modelBuffer(benchmark::State &state)
{
    const View view(state);
    const QSharedPointer<GPUModel> model = createModel();
    ModelRenderPass pass;
    setView(pass, view);
    set(pass, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(model.data()));
    compareWithFloor(state, [&] {
        setBaseline(view);
        pass.start(nullptr);
    });
}

void modelDeferred(benchmark::State &state)
{
    const View view(state);
    const QSharedPointer<GPUModel> model = createModel();
    ModelRenderPass buffer;
    setView(buffer, view);
    set(buffer, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(model.data()));
    buffer.start(nullptr);
    ModelDeferredPass pass;
    setView(pass, view);
    for (const char *port :
        {"Kvz_KvzTexture*_Diffuse", "Kvz_KvzTexture*_Specular", "Kvz_KvzTexture*_Normal", "Kvz_KvzTexture*_Depth"})
        set(pass, port, output(buffer, port));
    setBaseline(view);
    compareWithFloor(state, pass);
}

void forward(benchmark::State &state)
{
    const View view(state);
    const QSharedPointer<GPUModel> model = createModel();
    ForwardRenderPass pass;
    setView(pass, view);
    set(pass, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(model.data()));
    compareWithFloor(state, [&] {
        setBaseline(view);
        pass.start(nullptr);
    });
}

/// The pass that marks and the one that draws, beside the draws of the items that are left.
void cullAndForward(benchmark::State &state)
{
    const View view(state);
    const QSharedPointer<GPUModel> model = createModel();
    CullingRenderPass culling;
    set(culling, "Kvz_QMatrix4x4_ProjectionMatrix", view.projection);
    set(culling, "Kvz_QMatrix4x4_CameraMatrix", view.camera);
    set(culling, "Kvz_bool_FrustumCullingEnabledIn", true);
    set(culling, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(model.data()));
    ForwardRenderPass pass;
    setView(pass, view);
    compareWithFloor(state, [&] {
        setBaseline(view);
        culling.start(nullptr);
        set(pass, "Kvz_KvzGPUModel*_Geometry", culling.output(0));
        pass.start(nullptr);
    });
}

void wireframe(benchmark::State &state)
{
    const View view(state);
    const QSharedPointer<GPUModel> model = createModel();
    ModelRenderPass buffer;
    setView(buffer, view);
    set(buffer, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(model.data()));
    setBaseline(view);
    buffer.start(nullptr);
    WireframeRenderPass pass;
    set(pass, "Kvz_QRect_Viewport", view.viewport);
    set(pass, "Kvz_KvzTexture*_Id", output(buffer, "Kvz_KvzTexture*_Id"));
    set(pass, "Kvz_QColor_WireColor", QColor(Qt::black));
    compareWithFloor(state, pass);
}

/// A user's shader with two images and some values.
void userShader(benchmark::State &state)
{
    const View view(state);
    GradientRenderPass source;
    set(source, "Kvz_QRect_Viewport", view.viewport);
    source.start(nullptr);
    ShaderRenderPass pass;
    pass.setFragmentShaderSource(QStringLiteral(R"(#version 150
uniform sampler2D u_First;
uniform sampler2D u_Second;
uniform float u_Strength;
uniform vec4 u_Tint;
in vec2 vo_TexCoord;
out vec4 o_Frame;

void main()
{
    o_Frame = mix(texture(u_First, vo_TexCoord), texture(u_Second, vo_TexCoord) * u_Tint, u_Strength);
}
)"));
    pass.addInput(QStringLiteral("Kvz_KvzTexture*_First"), source.output(0));
    pass.addInput(QStringLiteral("Kvz_KvzTexture*_Second"), QVariant());
    pass.addInput(QStringLiteral("u_Strength"), 0.25f);
    pass.addInput(QStringLiteral("u_Tint"), QColor(255, 200, 100));
    pass.addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
    set(pass, "Kvz_QRect_Viewport", view.viewport);
    compareWithFloor(state, pass);
}

} // namespace

BENCHMARK(gradient)->Apply(largeAndTiny);
BENCHMARK(blend)->Apply(largeAndTiny);
BENCHMARK(presentByBlit)->Apply(largeAndTiny);
BENCHMARK(presentByDraw)->Apply(largeAndTiny);
BENCHMARK(geometryBuffer)->Apply(largeAndTiny);
BENCHMARK(deferred)->Apply(largeAndTiny);
BENCHMARK(modelBuffer)->Apply(largeAndTiny);
BENCHMARK(modelDeferred)->Apply(largeAndTiny);
BENCHMARK(forward)->Apply(largeAndTiny);
BENCHMARK(cullAndForward)->Apply(largeAndTiny);
BENCHMARK(wireframe)->Apply(largeAndTiny);
BENCHMARK(userShader)->Apply(largeAndTiny);

} // namespace Velmora::Kvz
