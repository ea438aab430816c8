// SPDX-License-Identifier: MIT
#include <RenderPasses/ShadowMapRenderPass2.h>

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
#include <GL/GLExtensions.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <Scene/InstanceDataRegistry.h>
#include <Scene/ShadowMapManager.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

// In all of these %1 is the instance data plan, %2 the number of layers in a draw, %3 that of matrices, and %4 that of the
// vertices of a batch.

// One layer in a draw: the one that is attached.
const QString plainVertexSource = QStringLiteral(R"(#version 150
#instancedata "%1"
#define LAYER_COUNT_MAX %2
#define PROJECTION_MATRIX_COUNT %3
uniform mat4 modelViewProjectionMatrix[PROJECTION_MATRIX_COUNT];
uniform int u_layerBase;
in vec3 va_Vertex;

void main()
{
    vec3 fragPosWS = (getModelMatrix() * vec4(va_Vertex, 1.0)).xyz;
    gl_Position = modelViewProjectionMatrix[u_layerBase] * vec4(fragPosWS.xyz, 1);
}
)");

// One layer in a draw, chosen by the vertex stage.
const QString layerVertexSource = QStringLiteral(R"(#version 410
#extension GL_ARB_shader_viewport_layer_array : enable
#instancedata "%1"
#define LAYER_COUNT_MAX %2
#define PROJECTION_MATRIX_COUNT %3
uniform mat4 modelViewProjectionMatrix[PROJECTION_MATRIX_COUNT];
uniform int u_layerBase;
in vec3 va_Vertex;

void main()
{
    vec3 fragPosWS = (getModelMatrix() * vec4(va_Vertex, 1.0)).xyz;
    gl_Position = modelViewProjectionMatrix[u_layerBase] * vec4(fragPosWS.xyz, 1);
    gl_Layer = u_layerBase;
}
)");

// Several layers in a draw: the geometry stage makes a triangle for each.
const QString worldVertexSource = QStringLiteral(R"(#version 150
#instancedata "%1"
#define LAYER_COUNT_MAX %2
#define PROJECTION_MATRIX_COUNT %3
in vec3 va_Vertex;
out VarVert {
    vec4 fragPos;
} varVert;

void main()
{
    varVert.fragPos = getModelMatrix() * vec4(va_Vertex, 1.0);
}
)");

// The layer is written once for each triangle, on purpose.
const QString batchGeometrySource = QStringLiteral(R"(#version 150
#instancedata "%1"
#define LAYER_COUNT_MAX %2
#define PROJECTION_MATRIX_COUNT %3
layout (triangles) in;
layout (triangle_strip, max_vertices = %4) out;
uniform mat4 modelViewProjectionMatrix[PROJECTION_MATRIX_COUNT];
uniform int u_layerBase;
uniform int u_layerCount;
in VarVert {
    vec4 fragPos;
} varVert[3];

void main()
{
    for (int layerOffset = 0; layerOffset < LAYER_COUNT_MAX && layerOffset < u_layerCount; ++layerOffset) {
        int layer = u_layerBase + layerOffset;
        gl_Layer = layer;
        for (int i = 0; i < 3; ++i) {
            gl_Position = modelViewProjectionMatrix[layer] * varVert[i].fragPos;
            EmitVertex();
        }
        EndPrimitive();
    }
}
)");

// The same for one layer in a draw. No driver gets these two at present.
const QString projectingVertexSource = QStringLiteral(R"(#version 150
#instancedata "%1"
#define LAYER_COUNT_MAX %2
#define PROJECTION_MATRIX_COUNT %3
uniform mat4 modelViewProjectionMatrix[PROJECTION_MATRIX_COUNT];
uniform int u_layerBase;
in vec3 va_Vertex;
out VarVert {
    vec4 fragPos;
} varVert;

void main()
{
    varVert.fragPos = modelViewProjectionMatrix[u_layerBase] * (getModelMatrix() * vec4(va_Vertex, 1.0));
}
)");

const QString singleLayerGeometrySource = QStringLiteral(R"(#version 150
#instancedata "%1"
#define LAYER_COUNT_MAX %2
#define PROJECTION_MATRIX_COUNT %3
layout (triangles) in;
layout (triangle_strip, max_vertices = %4) out;
uniform int u_layerBase;
in VarVert {
    vec4 fragPos;
} varVert[3];

void main()
{
    gl_Layer = u_layerBase;
    for (int i = 0; i < 3; ++i) {
        gl_Position = varVert[i].fragPos;
        EmitVertex();
    }
    EndPrimitive();
}
)");

// Colours are masked off, so depth alone is written.
const QString depthSource = QStringLiteral(R"(#version 150
out vec4 out_fragDepth;

void main()
{
    out_fragDepth = vec4(1.0, 1.0, 0.0, 0.0);
}
)");

// One point for each layer, which the geometry stage turns into a quad on it.
const QString layeredBlurVertexSource = QStringLiteral(R"(#version 150
out VarVert {
    flat int layer;
} varVert;

void main()
{
    varVert.layer = gl_VertexID;
}
)");

const QString layeredBlurGeometrySource = QStringLiteral(R"(#version 150
layout (points) in;
layout (triangle_strip, max_vertices = 4) out;
uniform sampler2DArray u_BlurDataSampler;
in VarVert {
    flat int layer;
} varVert[1];
out VarGeom {
    flat int layer;
    flat float bias;
} varGeom;

void emitCorner(vec2 corner, float bias)
{
    gl_Layer = varVert[0].layer;
    varGeom.layer = varVert[0].layer;
    varGeom.bias = bias;
    gl_Position = vec4(corner, 0.0, 1.0);
    EmitVertex();
}

void main()
{
    float bias = texelFetch(u_BlurDataSampler, ivec3(0, 0, varVert[0].layer), 0).x;
    emitCorner(vec2(-1.0, -1.0), bias);
    emitCorner(vec2(-1.0, 1.0), bias);
    emitCorner(vec2(1.0, -1.0), bias);
    emitCorner(vec2(1.0, 1.0), bias);
    EndPrimitive();
}
)");

const QString blurVertexSource = QStringLiteral(R"(#version 150
uniform int u_Layer;
uniform sampler2DArray u_BlurDataSampler;
out VarGeom {
    flat int layer;
    flat float bias;
} varGeom;

void main()
{
    varGeom.layer = u_Layer;
    varGeom.bias = texelFetch(u_BlurDataSampler, ivec3(0, 0, u_Layer), 0).x;
    gl_Position = vec4(gl_VertexID < 2 ? -1.0 : 1.0, (gl_VertexID & 1) == 0 ? -1.0 : 1.0, 0.0, 1.0);
}
)");

// The moments of a texel. What the far plane or the near half of the clip range holds is empty.
const QString momentSource = QStringLiteral(R"(#version 150
uniform sampler2DArray u_DepthFrameSampler;
in VarGeom {
    flat int layer;
    flat float bias;
} varGeom;
out vec4 out_FragColor;

vec2 depthTexelFetch(ivec3 texCoord)
{
    float d = texelFetch(u_DepthFrameSampler, texCoord, 0).r;
    d = 1.0 - (2.0 * (1.0 - d));
    d += varGeom.bias;
    if (d != clamp(d, varGeom.bias, 1.0))
        return vec2(1e9, 1e9);
    return vec2(d, d * d);
}
)");

const QString unfilteredMain = QStringLiteral(R"(
void main()
{
    out_FragColor = vec4(depthTexelFetch(ivec3(gl_FragCoord.xy, varGeom.layer)), 0.0, 0.0);
}
)");

const QString boxMain = QStringLiteral(R"(
// A fetch outside the map is undefined, so it is clamped to the edge.
vec2 moments(int x, int y)
{
    ivec2 last = textureSize(u_DepthFrameSampler, 0).xy - 1;
    ivec2 place = clamp(ivec2(gl_FragCoord.xy) + ivec2(x, y), ivec2(0), last);
    return depthTexelFetch(ivec3(place, varGeom.layer));
}

bool gradient(int x, int y, out vec2 result)
{
    vec2 tA = moments(x, y);
    vec2 tB = moments(2 * x, 2 * y);
    vec2 m = tB - tA;
    result = tA - m;
    return !(1.0 < tA.r || 1.0 < tB.r);
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
    if (1.0 < result.r) {
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

/// Layers that one draw reaches through the geometry stage.
constexpr int batchSize = 8;

/// One past the last layer of all projectors.
int endOfLayers(const ShadowMapManager::RenderData &data)
{
    int end = 0;
    for (const ShadowMapManager::RenderData::ProjectorInfo &projector : data.projectors)
        end = std::max(end, projector.firstLayer + projector.layerCount);
    return end;
}

} // namespace

ShadowMapRenderPass2::ShadowMapRenderPass2()
    : m_planName(QStringLiteral("TavoInstance")),
      m_renderData(std::make_unique<ShadowMapRenderData>()),
      m_macroProcessor(std::make_unique<GLSLMacroProcessor>())
{
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addInput(QStringLiteral("Kvz_QList_InstanceData"), QVariant());
    addInput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant());
    addInput(QStringLiteral("Kvz_bool_Dirty"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMin"), QVariant());
    addInput(QStringLiteral("Kvz_QVector3D_SceneBoundsMax"), QVariant());
    addInput(QStringLiteral("Kvz_int_FilterType"), 3);
    addInput(QStringLiteral("Kvz_QSize_MapSize"), QSize(512, 512));
    addOutput(QStringLiteral("Kvz_QVariant_ShadowMapData"));
    m_macroProcessor->addIncludePath(QStringLiteral(":/Media/Shaders"));
    DrawBuffers::setup(m_macroProcessor.get());
    chooseStrategy();
}

ShadowMapRenderPass2::~ShadowMapRenderPass2()
{
    ShadowMapRenderPass2::teardownContextData(nullptr);
}

void ShadowMapRenderPass2::chooseStrategy()
{
    const QString renderer = QString::fromUtf8(reinterpret_cast<const char *>(glGetString(GL_RENDERER)));
    GLint maxVertices = 0;
    glGetIntegerv(GL_MAX_GEOMETRY_OUTPUT_VERTICES, &maxVertices);
    logDebug(QString::asprintf("SMRP2: Geometry Outputs %d ", maxVertices));
    const bool isAmd = renderer.contains(QLatin1String("AMD")) || renderer.contains(QLatin1String("ATI"));
    if (isAmd && maxVertices > 3 * batchSize - 1) {
        m_layersPerDraw = batchSize;
        m_layeredRendering = true;
        logDebug(QString::asprintf("SMRP2: Using bath %d layered rendering", m_layersPerDraw));
    } else if (hasGLExtension("GL_ARB_shader_viewport_layer_array")) {
        m_layeredRendering = true;
        m_vertexShaderLayer = true;
        logDebug(QStringLiteral("SMRP2: Using GL_ARB_shader_viewport_layer_array layered rendering"));
    } else {
        logDebug(QStringLiteral("SMRP2: Using non-Layered rendering"));
    }
    m_layeredBlur = maxVertices > 3;
    logDebug(
        m_layeredBlur ? QStringLiteral("SMRP2: Using layered blur") : QStringLiteral("SMRP2: Using non-Layered blur"));
}

void ShadowMapRenderPass2::setInstanceDataPlanName(const QString &name)
{
    m_planName = name;
}

void ShadowMapRenderPass2::start(RenderCallbacks *)
{
    const QVariant modelAsQVariant = m_inputs[Geometry].value;
    // clang-format off
    KVZ_ASSERT(false == modelAsQVariant.isNull(), "Input Geometry is NULL");
    KVZ_ASSERT(true == modelAsQVariant.canConvert<GPUModel*>(), "Input Geometry is not a 'GPUModel*', type is '%s'", modelAsQVariant.typeName());
    // clang-format on
    auto *const model = modelAsQVariant.value<GPUModel *>();
    const auto size = inputValue<QSize>(m_inputs[MapSize]);
    bool dirty = m_inputs[Dirty].value.isNull() || inputValue<bool>(m_inputs[Dirty]);
    const auto camera = optionalValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    const auto projection = optionalValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    // Intentional: clean frames reset culling too.
    if (model)
        model->resetCulling();
    const auto bounds = sceneBounds(m_inputs[SceneBoundsMin], m_inputs[SceneBoundsMax], model);
    if (dirty) {
        ShadowMapManager::processLights(
            m_inputs[Lights].value, *m_renderData, pointerTo(projection), pointerTo(camera), pointerTo(bounds));
    }

    if (ensureFramebuffers())
        dirty = true;
    if (ensureArrays(size))
        dirty = true;
    if (!m_program) {
        if (!buildProgram())
            return;
        dirty = true;
    }

    if (dirty && m_layerCount > 0)
        render(model);
    m_renderData->setProjectionTexture(m_shadowArray.get());
    m_outputs[ShadowMapData].value = QVariant::fromValue<QObject *>(m_renderData.get());
}

void ShadowMapRenderPass2::teardownContextData(RenderCallbacks *)
{
    for (std::unique_ptr<FramebufferObject> *framebuffer : {&m_framebuffer, &m_blurFramebuffer}) {
        if (*framebuffer)
            (*framebuffer)->detachAll();
        framebuffer->reset();
    }
    m_blurQuad.reset();
}

/// Returns whether the framebuffer of the depths was made now.
bool ShadowMapRenderPass2::ensureFramebuffers()
{
    const bool isNew = ensureFramebuffer(m_framebuffer);
    ensureFramebuffer(m_blurFramebuffer);
    return isNew;
}

/// Makes the arrays fit the layers of the data. Returns whether they were made again.
bool ShadowMapRenderPass2::ensureArrays(const QSize &size)
{
    const int layers = m_renderData->layerCount;
    const bool fits = m_depthArray && layers >= m_layerCapacity / 2 && layers <= m_layerCapacity && size == m_mapSize;
    m_layerCount = layers;
    m_mapSize = size;
    if (!fits) {
        for (FramebufferObject *framebuffer : {m_framebuffer.get(), m_blurFramebuffer.get()}) {
            AutoBinder binder(framebuffer);
            framebuffer->detachAll();
        }
        m_shadowArray.reset();
        m_depthArray.reset();
        m_blurData.reset();
        m_layerCapacity = layers;
        m_depthArray = makeDepthArray(size, layers);
        attach(*m_framebuffer, m_depthArray.get(), GL_DEPTH_ATTACHMENT);
    }
    if (!m_blurData)
        m_blurData = makeDepthArray(QSize(1, 1), m_layerCapacity);
    if (!m_shadowArray) {
        m_shadowArray = makeMomentArray(size, m_layerCapacity);
        clampToFarBorder(m_shadowArray.get());
        attach(*m_framebuffer, m_shadowArray.get(), GL_COLOR_ATTACHMENT0);
        if (m_layeredBlur) {
            AutoBinder binder(m_blurFramebuffer.get());
            m_blurFramebuffer->attachLayers(m_shadowArray.get(), GL_COLOR_ATTACHMENT0, 0);
        }
    }
    return !fits;
}

/// Attaches all layers of an array, or its first where layers are drawn one by one.
void ShadowMapRenderPass2::attach(FramebufferObject &framebuffer, Texture *array, unsigned int attachment) const
{
    AutoBinder binder(&framebuffer);
    if (m_layeredRendering)
        framebuffer.attachLayers(array, attachment, 0);
    else
        framebuffer.attach3D(array, attachment, 0, 0);
}

/// Builds the depth program, once and for as many matrices as there are now. Returns false when the driver refuses it; it is
/// not tried again.
bool ShadowMapRenderPass2::buildProgram()
{
    const bool isBatch = m_layersPerDraw > 1;
    const QString *vertexSource = &plainVertexSource;
    const QString *geometrySource = nullptr;
    if (m_vertexShaderLayer) {
        vertexSource = &layerVertexSource;
    } else if (m_layeredRendering) {
        vertexSource = isBatch ? &worldVertexSource : &projectingVertexSource;
        geometrySource = isBatch ? &batchGeometrySource : &singleLayerGeometrySource;
    }
    const QString layersPerDraw = QString::number(m_layersPerDraw);
    const QString matrices = QString::number(m_renderData->transforms.size());
    const InstanceDataPlan &plan = InstanceDataRegistry::Instance().getPlan(m_planName);

    m_program = std::make_unique<ShaderProgram>(nullptr);
    m_program->setMacroProcessor(m_macroProcessor.get());
    addModelVertexStage(*m_program, vertexSource->arg(m_planName, layersPerDraw, matrices), m_planName);
    m_program->addShaderFromFile(GL_VERTEX_SHADER, QStringLiteral("KvzUtilities.vert"));
    if (geometrySource) {
        const QString vertices = QString::number(3 * m_layersPerDraw);
        m_program->addShader(
            GL_GEOMETRY_SHADER, geometrySource->arg(m_planName, layersPerDraw, matrices, vertices), QString());
        m_program->addShader(GL_GEOMETRY_SHADER, plan.glslc(), QString());
        m_program->addShaderFromFile(GL_GEOMETRY_SHADER, QStringLiteral("KvzUtilities.glslc"));
    }
    m_program->addShader(GL_FRAGMENT_SHADER, depthSource, QString());
    m_program->setFragDataLocations({QStringLiteral("out_fragDepth")});
    if (!compileAndLink(*m_program, __FILE__, __LINE__))
        return false;
    plan.assertShaderProgram(m_program.get());
    return true;
}

/// Updates the moments of all layers.
void ShadowMapRenderPass2::render(GPUModel *model)
{
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    glViewport(0, 0, m_mapSize.width(), m_mapSize.height());
    {
        AutoBinder framebuffer(m_framebuffer.get());
        setFarClearColor();
        if (castsNothing(model)) {
            clearLayers();
        } else {
            if (m_layeredRendering) {
                m_framebuffer->setDrawBuffers();
                glClear(GL_DEPTH_BUFFER_BIT);
            }
            const int total = endOfLayers(*m_renderData);
            if (total > 0) {
                drawDepths(model, total);
                _blurShadowMapArray(FilterType(inputValue<int>(m_inputs[Filter])));
            }
        }
    }
    glViewport(viewport[0], viewport[1], std::max(viewport[2], 0), std::max(viewport[3], 0));
}

/// Makes every layer empty.
void ShadowMapRenderPass2::clearLayers()
{
    if (m_layeredRendering) {
        m_framebuffer->setDrawBuffers();
        glClear(GL_COLOR_BUFFER_BIT);
        return;
    }
    for (const ShadowMapManager::RenderData::ProjectorInfo &projector : qAsConst(m_renderData->projectors)) {
        for (int i = 0; i < projector.layerCount; ++i) {
            m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
            m_framebuffer->attach3D(m_shadowArray.get(), GL_COLOR_ATTACHMENT0, projector.firstLayer + i, 0);
            m_framebuffer->setDrawBuffers();
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
}

/// Draws the depths of the first `total` layers, as many in a draw as the strategy allows.
void ShadowMapRenderPass2::drawDepths(GPUModel *model, int total)
{
    const CasterKinds casters(*model);
    const QVector<InstanceDataCollection *> collections = instanceData(m_inputs[InstanceData]);
    AutoBinder program(m_program.get());
    AutoEnabler depthTest(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDepthMask(GL_TRUE);
    glDisable(GL_DEPTH_CLAMP);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    for (InstanceDataCollection *collection : collections)
        collection->bind(m_program.get(), nullptr);
    // A program that did not link has no such uniform, and GL would complain.
    const int location = m_program->getUniformLocation(QStringLiteral("modelViewProjectionMatrix[0]"));
    if (location >= 0)
        glUniformMatrix4fv(
            location, m_renderData->transforms.size(), GL_FALSE, m_renderData->transforms.constData()->matrix);

    for (int base = 0; base < total; base += m_layersPerDraw) {
        if (!m_layeredRendering) {
            m_framebuffer->detach(GL_COLOR_ATTACHMENT0);
            m_framebuffer->attach3D(m_shadowArray.get(), GL_COLOR_ATTACHMENT0, base, 0);
            m_framebuffer->detach(GL_DEPTH_ATTACHMENT);
            m_framebuffer->attach3D(m_depthArray.get(), GL_DEPTH_ATTACHMENT, base, 0);
            m_framebuffer->setDrawBuffers();
            glClear(GL_DEPTH_BUFFER_BIT);
        }
        m_program->setUniform(QStringLiteral("u_layerBase"), base);
        m_program->setUniform(QStringLiteral("u_layerCount"), std::min(m_layersPerDraw, total - base));
        drawCasters(model, m_program.get(), casters);
    }

    for (InstanceDataCollection *collection : collections)
        collection->unbind(m_program.get(), nullptr);
    glDisable(GL_DEPTH_CLAMP);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

/// Computes the moments from the depths.
void ShadowMapRenderPass2::_blurShadowMapArray(FilterType type)
{
    ShaderProgram *const program = blurProgram(type);
    if (!program)
        return;
    ensureBlurQuad(*program);
    clampToEdge(m_depthArray.get());
    AutoBinder depths(m_depthArray.get());
    AutoBinder biases(m_blurData.get());
    glTexImage3D(m_blurData->target(), 0, GL_DEPTH_COMPONENT32F, 1, 1, m_renderData->depthBiases.size(), 0,
        GL_DEPTH_COMPONENT, GL_FLOAT, m_renderData->depthBiases.constData());
    AutoBinder programBinder(program);
    AutoBinder quad(m_blurQuad.get());
    AutoBinder framebuffer(m_blurFramebuffer.get());
    program->setUniform(QStringLiteral("u_DepthFrameSampler"), m_depthArray->unit());
    program->setUniform(QStringLiteral("u_BlurDataSampler"), m_blurData->unit());
    if (m_layeredBlur) {
        m_blurFramebuffer->setDrawBuffers();
        glClear(GL_COLOR_BUFFER_BIT);
        glDrawArrays(GL_POINTS, 0, m_layerCount);
        return;
    }
    for (int layer = 0; layer < m_layerCount; ++layer) {
        m_blurFramebuffer->attach3D(m_shadowArray.get(), GL_COLOR_ATTACHMENT0, layer, 0);
        m_blurFramebuffer->setDrawBuffers();
        program->setUniform(QStringLiteral("u_Layer"), layer);
        glClear(GL_COLOR_BUFFER_BIT);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
        m_blurFramebuffer->detach(GL_COLOR_ATTACHMENT0);
    }
}

/// The program of a filter; null in the frame in which the driver refuses it.
ShaderProgram *ShadowMapRenderPass2::blurProgram(FilterType type)
{
    std::unique_ptr<ShaderProgram> &program = m_blurPrograms[type];
    if (program)
        return program.get();
    program = std::make_unique<ShaderProgram>(nullptr);
    if (m_layeredBlur) {
        program->addShader(GL_VERTEX_SHADER, layeredBlurVertexSource, QString());
        program->addShader(GL_GEOMETRY_SHADER, layeredBlurGeometrySource, QString());
    } else {
        program->addShader(GL_VERTEX_SHADER, blurVertexSource, QString());
    }
    program->addShader(GL_FRAGMENT_SHADER, momentSource + (type == FilterNone ? unfilteredMain : boxMain), QString());
    program->setFragDataLocations({QStringLiteral("out_FragColor")});
    return compileAndLink(*program, __FILE__, __LINE__) ? program.get() : nullptr;
}

/// A drawable without vertex data: all positions come from shader code.
void ShadowMapRenderPass2::ensureBlurQuad(const ShaderProgram &program)
{
    if (m_blurQuad)
        return;
    m_blurQuad = std::make_unique<DrawBuffers>(nullptr);
    const QSharedPointer<VertexArrayObject> vao = OpenGLDeviceContext::current()->createVertexArrayObject();
    m_blurQuad->setVAO(vao);
    m_blurQuad->setVertexCount(1);
    m_blurQuad->setPrimitiveType(GL_POINTS);
    AutoBinder binder(vao);
    vao->enableShaderProgramArrays(&program);
}

} // namespace Velmora::Kvz
