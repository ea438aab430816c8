// SPDX-License-Identifier: MIT
#include <RenderPasses/ShadowMapRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ModelProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/ShadowMaps.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/AutoEnabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <Scene/InstanceDataRegistry.h>
#include <Scene/ShadowMapManager.h>

#include <GL/TrackedGL.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString vertexSource = QStringLiteral(R"(#version 150
#instancedata "%1"
uniform mat4 modelViewProjectionMatrix;
in vec3 va_Vertex;
out vec2 vo_fragPos;

void main()
{
    vec4 pos = modelViewProjectionMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_fragPos.xy = pos.zw;
    gl_Position = pos;
}
)");

constexpr double depthBias = 0.0005;

// Depth is not mapped to 0 to 1, on purpose: what has a negative z is no caster.
const QString fragmentSource = QStringLiteral(R"(#version 150
in vec2 vo_fragPos;
out vec4 out_fragDepth;

void main()
{
    // TODO slope-scale depth bias
    float depth = vo_fragPos.x / vo_fragPos.y + %1;
    if (depth <= %1)
        discard;
    if (1.0 < depth)
        discard;
    out_fragDepth = vec4(depth, depth * depth, 0.0, 0.0);
}
)");

/// Taps of the Gaussian to each side, the centre among them.
constexpr int blurTaps = 4;
constexpr double blurSigma = 4.5;

// %1: taps to a side, centre included; %2: first weight; %3: ratio of the first two; %4: ratio of successive ratios.
const QString gaussianSource = QStringLiteral(R"(#version 150
uniform sampler2DArray u_FrameSampler;
uniform int u_Index;
uniform vec3 u_Step;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    vec3 center = vec3(vo_TexCoord, u_Index);
    vec3 g = vec3(%2, %3, %4);
    vec2 result = texture(u_FrameSampler, center).rg * g.x;
    float sum = g.x;
    g.xy *= g.yz;
    for (int i = 1; i <= %1 - 1; ++i) {
        vec3 offset = float(i) * u_Step;
        result += texture(u_FrameSampler, center - offset).rg * g.x;
        result += texture(u_FrameSampler, center + offset).rg * g.x;
        sum += 2.0 * g.x;
        g.xy *= g.yz;
    }
    out_FragColor = vec4(result / sum, 0.0, 0.0);
}
)");

// The search for two taps to extend from takes mixed pairs too, on purpose.
const QString gaussianEdgeSource = QStringLiteral(R"(#version 150
uniform sampler2DArray u_FrameSampler;
uniform int u_Index;
uniform vec3 u_Step;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

vec2 moments(float steps)
{
    return texture(u_FrameSampler, vec3(vo_TexCoord, u_Index) + steps * u_Step).rg;
}

vec2 extended(vec2 tO)
{
    int iA = -%1 - 1;
    int iB = -%1 - 1;
    vec2 tA = vec2(0.0);
    vec2 tB = vec2(0.0);
    vec2 t = moments(1.0);
    if (t.r < 1.0) {
        tA = t;
        iA = 1;
    }
    if (-%1 <= iA) {
        t = moments(2.0);
        if (t.r < 1.0) {
            tB = t;
            iB = 2;
        }
    }
    if (iB < -%1) {
        iA = -%1 - 1;
        iB = -%1 - 1;
        t = moments(-1.0);
        if (t.r < 1.0) {
            tB = t;
            iB = -1;
        }
        if (iB < -%1) {
            t = moments(-2.0);
            if (t.r < 1.0) {
                tA = t;
                iA = -2;
            }
        }
    }
    if (iB <= iA)
        return tO;
    vec2 m = (tB - tA) / float(iB - iA);
    return tA - m * float(iA);
}

vec2 blurred(vec2 tO)
{
    vec3 g = vec3(%2, %3, %4);
    vec2 result = tO * g.x;
    float sum = g.x;
    g.xy *= g.yz;
    for (int i = 1; i <= %1 - 1; ++i) {
        vec2 before = moments(-float(i));
        if (before.r <= 1.0) {
            result += before * g.x;
            sum += g.x;
        }
        vec2 after = moments(float(i));
        if (after.r <= 1.0) {
            result += after * g.x;
            sum += g.x;
        }
        g.xy *= g.yz;
    }
    return result / sum;
}

void main()
{
    vec2 tO = moments(0.0);
    out_FragColor = vec4(tO.r >= 1.0 ? extended(tO) : blurred(tO), 0.0, 0.0);
}
)");

const QString boxSource = QStringLiteral(R"(#version 150
uniform sampler2DArray u_FrameSampler;
uniform int u_Index;
out vec4 out_FragColor;

// A fetch outside the map is undefined, so it is clamped to the edge.
vec2 moments(int x, int y)
{
    ivec2 last = textureSize(u_FrameSampler, 0).xy - 1;
    ivec2 place = clamp(ivec2(gl_FragCoord.xy) + ivec2(x, y), ivec2(0), last);
    return texelFetch(u_FrameSampler, ivec3(place, u_Index), 0).rg;
}

bool gradient(int x, int y, out vec2 result)
{
    vec2 tA = moments(x, y);
    vec2 tB = moments(2 * x, 2 * y);
    vec2 m = tB - tA;
    result = tA - m;
    return !(1.0 <= tA.r || 1.0 <= tB.r);
}

void add(int x, int y, inout vec2 result, inout float scale)
{
    vec2 t = moments(x, y);
    if (t.r <= 1.0) {
        result += t;
        scale += 1.0;
    }
}

void main()
{
    vec2 result = moments(0, 0);
    if (result.r >= 1.0) {
        vec2 line;
        if (gradient(1, 0, line) || gradient(-1, 0, line) || gradient(0, 1, line) || gradient(0, -1, line))
            result = line;
    } else {
        float scale = 1.0;
        add(-1, -1, result, scale);
        add(0, -1, result, scale);
        add(1, -1, result, scale);
        add(-1, 0, result, scale);
        add(1, 0, result, scale);
        add(-1, 1, result, scale);
        add(0, 1, result, scale);
        add(1, 1, result, scale);
        result /= scale;
    }
    out_FragColor = vec4(result, 0.0, 0.0);
}
)");

/// The source with the weights of the Gaussian in it.
QString withBlurConstants(const QString &source)
{
    const double ratio = std::exp(-0.5 / (blurSigma * blurSigma));
    return source.arg(blurTaps).arg(1.0 / (blurSigma * std::sqrt(2.0 * M_PI))).arg(ratio).arg(ratio * ratio);
}

const QString &filterSource(ShadowMapRenderPass::FilterType type)
{
    static const QString gaussian = withBlurConstants(gaussianSource);
    static const QString gaussianEdge = withBlurConstants(gaussianEdgeSource);
    static const QString box = boxSource;
    switch (type) {
    case ShadowMapRenderPass::FilterGaussianEdge:
        return gaussianEdge;
    case ShadowMapRenderPass::FilterBox3x3:
        return box;
    default:
        return gaussian;
    }
}

} // namespace

ShadowMapRenderPass::ShadowMapRenderPass()
    : m_planName(QStringLiteral("TavoInstance")),
      m_renderData(std::make_unique<ShadowMapRenderData>()),
      m_macroProcessor(std::make_unique<GLSLMacroProcessor>())
{
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_QList_InstanceData"), QVariant());
    addInput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMin"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMax"), QVariant());
    addInput(QStringLiteral("Kvz_int_FilterType"), int(FilterGaussian));
    addInput(QStringLiteral("Kvz_QSize_MapSize"), QSize(512, 512));
    addOutput(QStringLiteral("Kvz_QVariant_ShadowMapData"));
    m_macroProcessor->addIncludePath(QStringLiteral(":/Media/Shaders"));
    DrawBuffers::setup(m_macroProcessor.get());
}

ShadowMapRenderPass::~ShadowMapRenderPass()
{
    ShadowMapRenderPass::teardownContextData(nullptr);
}

void ShadowMapRenderPass::setInstanceDataPlanName(const QString &name)
{
    m_planName = name;
}

void ShadowMapRenderPass::start(RenderCallbacks *)
{
    const QVariant modelAsQVariant = m_inputs[Geometry].value;
    // clang-format off
    KVZ_ASSERT(false == modelAsQVariant.isNull(), "Input Geometry is NULL");
    KVZ_ASSERT(true == modelAsQVariant.canConvert<GPUModel*>(), "Input Geometry is not a 'GPUModel*', type is '%s'", modelAsQVariant.typeName());
    // clang-format on
    auto *const model = modelAsQVariant.value<GPUModel *>();
    const auto size = inputValue<QSize>(m_inputs[MapSize]);
    const auto camera = optionalValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const auto projection = optionalValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    if (model)
        model->resetCulling();
    const auto bounds = sceneBounds(m_inputs[SceneBoundsMin], m_inputs[SceneBoundsMax], model);
    ShadowMapManager::processLights(
        m_inputs[Lights].value, *m_renderData, pointerTo(projection), pointerTo(camera), pointerTo(bounds));

    remakeTextures(size, m_renderData->layerCount);
    if (!m_program && !buildProgram())
        return;

    Texture *result = m_shadowArray.get();
    if (castsNothing(model))
        clearLayers();
    else if (renderLayers(model))
        result = _gaussBlurShadowMapArray(size, FilterType(inputValue<int>(m_inputs[Filter])), 1);
    m_renderData->setProjectionTexture(result);
    m_outputs[ShadowMapData].value = QVariant::fromValue<ShadowMapManager::RenderData *>(m_renderData.get());
}

void ShadowMapRenderPass::teardownContextData(RenderCallbacks *)
{
    // What contexts do not share.
    m_framebuffer.reset();
    m_blurQuad.reset();
}

void ShadowMapRenderPass::remakeTextures(const QSize &size, int layers)
{
    if (m_shadowArray && (layers != m_layerCount || size != m_mapSize)) {
        m_shadowArray.reset();
        m_blurArray.reset();
    }
    if (size != m_mapSize) {
        m_depthTexture.reset();
    }
    m_layerCount = layers;
    m_mapSize = size;

    ensureFramebuffer(m_framebuffer);
    if (!m_depthTexture) {
        m_depthTexture =
            std::make_unique<Texture>(GL_TEXTURE_2D, GL_DEPTH_COMPONENT32F, size.width(), size.height(), 0, nullptr);
        AutoBinder binder(m_depthTexture.get());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_DEPTH_COMPONENT32F, size.width(), size.height(), 0, GL_DEPTH_COMPONENT,
            GL_FLOAT, nullptr);
    }
    if (!m_shadowArray) {
        m_shadowArray = makeMomentArray(size, layers);
        clampToFarBorder(m_shadowArray.get());
    }
}

/// Builds the depth program. Returns false when the driver refuses it; it is not tried again.
bool ShadowMapRenderPass::buildProgram()
{
    const InstanceDataPlan &plan = InstanceDataRegistry::Instance().getPlan(m_planName);
    m_program = std::make_unique<ShaderProgram>(nullptr);
    m_program->setMacroProcessor(m_macroProcessor.get());
    addModelVertexStage(*m_program, vertexSource.arg(m_planName), m_planName);
    m_program->addShader(GL_FRAGMENT_SHADER, fragmentSource.arg(depthBias), QString());
    m_program->setFragDataLocations({QStringLiteral("out_fragDepth")});
    if (!compileAndLink(*m_program, __FILE__, __LINE__))
        return false;
    plan.assertShaderProgram(m_program.get());
    return true;
}

/// Makes every layer empty.
void ShadowMapRenderPass::clearLayers()
{
    setFarClearColor();
    AutoBinder framebuffer(m_framebuffer.get());
    for (const ShadowMapManager::RenderData::ProjectorInfo &projector : qAsConst(m_renderData->projectors)) {
        for (int i = 0; i < projector.layerCount; ++i) {
            m_framebuffer->attach3D(m_shadowArray.get(), GL_COLOR_ATTACHMENT0, projector.firstLayer + i, 0);
            m_framebuffer->setDrawBuffers();
            glClear(GL_COLOR_BUFFER_BIT);
            m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
        }
    }
}

/// Draws the moments of every layer. Returns whether there was one.
bool ShadowMapRenderPass::renderLayers(GPUModel *model)
{
    const CasterKinds casters(*model);
    const QVector<InstanceDataCollection *> collections = instanceData(m_inputs[InstanceData]);
    bool isRendered = false;

    glViewport(0, 0, m_mapSize.width(), m_mapSize.height());
    AutoBinder program(m_program.get());
    AutoEnabler depthTest(GL_DEPTH_TEST);
    setFarClearColor();
    glDisable(GL_BLEND);
    glDepthMask(GL_TRUE);
    glEnable(GL_DEPTH_CLAMP);
    for (InstanceDataCollection *collection : collections)
        collection->bind(m_program.get(), nullptr);
    AutoBinder framebuffer(m_framebuffer.get());
    m_framebuffer->attach(m_depthTexture.get(), GL_DEPTH_ATTACHMENT, 0);

    for (const ShadowMapManager::RenderData::ProjectorInfo &projector : qAsConst(m_renderData->projectors)) {
        for (int i = 0; i < projector.layerCount; ++i) {
            const int layer = projector.firstLayer + i;
            m_framebuffer->attach3D(m_shadowArray.get(), GL_COLOR_ATTACHMENT0, layer, 0);
            m_framebuffer->setDrawBuffers();
            AutoBinder array(m_shadowArray.get());
            AutoBinder depth(m_depthTexture.get());
            // A program that did not link has no such uniform, and GL would complain.
            const int location = m_program->getUniformLocation(QStringLiteral("modelViewProjectionMatrix"));
            if (location >= 0)
                glUniformMatrix4fv(location, 1, GL_FALSE, m_renderData->transforms.at(layer).matrix);
            glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
            drawCasters(model, m_program.get(), casters);
            m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
            isRendered = true;
        }
    }

    for (InstanceDataCollection *collection : collections)
        collection->unbind(m_program.get(), nullptr);
    m_framebuffer->detach(GL_DEPTH_ATTACHMENT);
    glDisable(GL_DEPTH_CLAMP);
    return isRendered;
}

/// Filters the moments. Returns the array that holds them then.
Texture *ShadowMapRenderPass::_gaussBlurShadowMapArray(const QSize &size, FilterType type, int iterations)
{
    if (iterations <= 0 || type == FilterNone)
        return m_shadowArray.get();
    if (!m_blurArray) {
        m_blurArray = makeMomentArray(size, m_layerCount);
        clampToEdge(m_blurArray.get());
    }
    ShaderProgram *const program = blurProgram(type);
    if (!program)
        return m_shadowArray.get();
    ensureBlurQuad(*program);

    // Filters read within the map. Both arrays, since an earlier frame may have given the other one a border too.
    clampToEdge(m_shadowArray.get());
    clampToEdge(m_blurArray.get());
    Texture *result = m_shadowArray.get();
    if (type == FilterBox3x3) {
        filterOnce(program);
        result = m_blurArray.get();
        clampToFarBorder(result);
    } else {
        filterSeparably(program, size, iterations);
    }
    // Even where the other array is the result: FilterNone publishes this one as it was made.
    clampToFarBorder(m_shadowArray.get());
    return result;
}

/// The program of a filter; null in the frame in which the driver refuses it.
ShaderProgram *ShadowMapRenderPass::blurProgram(FilterType type)
{
    std::unique_ptr<ShaderProgram> &program = m_blurPrograms[type];
    if (program)
        return program.get();
    program = std::make_unique<ShaderProgram>(nullptr);
    program->setFragDataLocations({QStringLiteral("out_FragColor")});
    program->addShader(GL_VERTEX_SHADER, screenQuadVertexSource, QString());
    program->addShader(GL_FRAGMENT_SHADER, filterSource(type), QString());
    return compileAndLink(*program, __FILE__, __LINE__) ? program.get() : nullptr;
}

void ShadowMapRenderPass::ensureBlurQuad(const ShaderProgram &program)
{
    if (m_blurQuad)
        return;
    const float vertices[] = {-1, -1, -1, -1, 1, -1, 1, -1, -1, -1, 1, -1, 1, -1, -1, 1, 1, -1};
    const float texCoords[] = {0, 0, 0, 1, 1, 0, 0, 1, 1, 0, 1, 1};
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    m_blurQuad = std::make_unique<DrawBuffers>(nullptr);
    const QSharedPointer<VertexArrayObject> vao = device->createVertexArrayObject();
    m_blurQuad->setVAO(vao);
    const QSharedPointer<BufferObject> vertexBuffer = device->createBufferObject();
    vertexBuffer->setTarget(GL_ARRAY_BUFFER);
    const QSharedPointer<BufferObject> texCoordBuffer = device->createBufferObject();
    texCoordBuffer->setTarget(GL_ARRAY_BUFFER);
    vao->upload(QStringLiteral("va_Vertex"), vertexBuffer, 3, GL_FLOAT);
    vao->upload(QStringLiteral("va_TexCoord"), texCoordBuffer, 2, GL_FLOAT);
    vertexBuffer->upload(vertices, 18, GL_STATIC_DRAW);
    texCoordBuffer->upload(texCoords, 12, GL_STATIC_DRAW);
    m_blurQuad->setVertexCount(6);
    m_blurQuad->setPrimitiveType(GL_TRIANGLES);
    AutoBinder binder(vao);
    vao->enableShaderProgramArrays(&program);
    // One filter reads no texture coordinates; the others, which may come later, do.
    vao->enableStandardArrays();
}

/// Filters once, from the moments into the other array.
void ShadowMapRenderPass::filterOnce(ShaderProgram *program)
{
    AutoBinder source(m_shadowArray.get());
    AutoBinder programBinder(program);
    AutoBinder quad(m_blurQuad.get());
    AutoBinder framebuffer(m_framebuffer.get());
    program->setUniform(QStringLiteral("u_FrameSampler"), m_shadowArray->unit());
    for (int layer = 0; layer < m_layerCount; ++layer) {
        program->setUniform(QStringLiteral("u_Index"), layer);
        m_framebuffer->attach3D(m_blurArray.get(), GL_COLOR_ATTACHMENT0, layer, 0);
        m_framebuffer->setDrawBuffers();
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        m_blurQuad->draw(program);
        m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
    }
}

/// Filters horizontally and vertically in turn, to the other array and back.
void ShadowMapRenderPass::filterSeparably(ShaderProgram *program, const QSize &size, int iterations)
{
    AutoBinder first(m_shadowArray.get());
    AutoBinder programBinder(program);
    AutoBinder quad(m_blurQuad.get());
    AutoBinder framebuffer(m_framebuffer.get());
    AutoBinder second(m_blurArray.get());
    m_framebuffer->attach(m_depthTexture.get(), GL_DEPTH_ATTACHMENT, 0);
    // Intentional, though no source declares it: the constants hold the sigma.
    program->setUniform(QStringLiteral("u_Sigma"), float(blurSigma));
    const QVector3D steps[] = {{1.0f / float(size.width()), 0, 0}, {0, 1.0f / float(size.height()), 0}};
    Texture *const arrays[] = {m_shadowArray.get(), m_blurArray.get()};
    for (int n = 0; n < 2 * iterations; ++n) {
        const int p = n & 1;
        program->setUniform(QStringLiteral("u_Step"), steps[p]);
        program->setUniform(QStringLiteral("u_FrameSampler"), arrays[p]->unit());
        for (int layer = 0; layer < m_layerCount; ++layer) {
            program->setUniform(QStringLiteral("u_Index"), layer);
            m_framebuffer->attach3D(arrays[1 - p], GL_COLOR_ATTACHMENT0, layer, 0);
            m_framebuffer->setDrawBuffers();
            glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
            m_blurQuad->draw();
            m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
        }
    }
    m_framebuffer->detach(GL_DEPTH_ATTACHMENT);
}

} // namespace Velmora::Kvz
