// SPDX-License-Identifier: MIT
#include "ListShading.h"

#include "LightRows.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/BufferTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>
#include <GL/VertexArrayObject.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString objectPlan = QStringLiteral("InstanceInfo");

/// A model's buffer as a shader reads it.
struct BufferTexels
{
    const char *sampler;
    GLenum format;
    int bytes; ///< Of a texel.
};
constexpr BufferTexels bufferTexels[] = {
    {"u_VertexBuffer", GL_RGB32F, 12},
    {"u_texCoordBuffer", GL_RG32F, 8},
    {"u_NormalBuffer", GL_RGB32F, 12},
    {"u_IndexBuffer", GL_R32I, 4},
    {"u_ExtrasBuffer", GL_RG32UI, 8},
};

const QString fragmentSource = QStringLiteral(R"(#version 150
#include "ShaderBitEncoding.glslh"
#include "SurfaceShading.glslh"
#include "VisibilityBuffer.glslh"
#instancedata "InstanceInfo"
#ifdef KVZ_PHYSICAL
uniform samplerBuffer u_VertexBuffer;
uniform int u_TangentPlace;
#endif
uniform usamplerBuffer u_ExtrasBuffer;
uniform int u_ExtrasStride; // Texels of a vertex.
uniform int u_ColourPlace; // Places within a vertex; -1 for what the model does not have.
uniform int u_TexCoord1Place;
uniform mat4 u_CameraMatrix;
uniform mat4 u_NormalMatrix;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

// From VisibilityBuffer.glslc.
void kvzTextureGradients(vec2 texCoord, out vec2 dx, out vec2 dy);
uint kvzFragmentInTurn(inout uint pointer);
)") + directionToEyeSource
    + unitDirectionSource + QStringLiteral(R"(
vec4 colourOf(int vertex)
{
    if (u_ColourPlace < 0)
        return vec4(1.0);
    uvec2 words = texelFetch(u_ExtrasBuffer, vertex * u_ExtrasStride + u_ColourPlace).rg;
    return vec4(words.r & 0xffffu, words.r >> 16u, words.g & 0xffffu, words.g >> 16u) / 65535.0;
}

vec2 texCoord1Of(int vertex)
{
    if (u_TexCoord1Place < 0)
        return vec2(0.0);
    return uintBitsToFloat(texelFetch(u_ExtrasBuffer, vertex * u_ExtrasStride + u_TexCoord1Place).rg);
}

vec3 normalOf(vec3 modelNormal)
{
    return unit(mat3(u_NormalMatrix) * unit(mat3(getModelNormalMatrix()) * modelNormal));
}

#ifdef KVZ_PHYSICAL
vec3 cameraPositionOf(int vertex)
{
    return (u_CameraMatrix * getModelMatrix() * vec4(texelFetch(u_VertexBuffer, vertex).xyz, 1.0)).xyz;
}

float signedPart(uint word)
{
    return float(int(word << 16u) >> 16) / 32767.0;
}

vec4 tangentOf(int vertex)
{
    if (u_TangentPlace < 0)
        return vec4(0.0);
    uvec2 words = texelFetch(u_ExtrasBuffer, vertex * u_ExtrasStride + u_TangentPlace).rg;
    vec3 tangent = vec3(signedPart(words.r), signedPart(words.r >> 16u), signedPart(words.g));
    return vec4(unit(mat3(u_CameraMatrix) * (mat3(getModelMatrix()) * tangent)), signedPart(words.g >> 16u));
}
#endif

// What the rasteriser interpolates for surfaces that are drawn.
SurfacePlace placeOn(FragmentTriangle triangle, vec2 texCoord)
{
    SurfacePlace place;
    place.colour = mat3x4(colourOf(triangle.vertices.x), colourOf(triangle.vertices.y), colourOf(triangle.vertices.z))
        * triangle.weights;
    place.texCoords[0] = texCoord;
    kvzTextureGradients(texCoord, place.texCoordsX[0], place.texCoordsY[0]);
    mat3x2 second =
        mat3x2(texCoord1Of(triangle.vertices.x), texCoord1Of(triangle.vertices.y), texCoord1Of(triangle.vertices.z));
    place.texCoords[1] = second * triangle.weights;
    place.texCoordsX[1] = second * (triangle.weightsRight - triangle.weights);
    place.texCoordsY[1] = second * (triangle.weightsAbove - triangle.weights);
#ifdef KVZ_PHYSICAL
    mat3 positions = mat3(cameraPositionOf(triangle.vertices.x), cameraPositionOf(triangle.vertices.y),
        cameraPositionOf(triangle.vertices.z));
    place.positionX = positions * (triangle.weightsRight - triangle.weights);
    place.positionY = positions * (triangle.weightsAbove - triangle.weights);
    place.tangent = mat3x4(tangentOf(triangle.vertices.x), tangentOf(triangle.vertices.y), tangentOf(triangle.vertices.z))
        * triangle.weights;
#endif
    return place;
}

void main()
{
    vec3 color = vec3(0.0);
    float through = 1.0;
    uint pointer;
    initializeVisibilityBufferQuery(vo_TexCoord, pointer);
    while (through > 0.0 && doesVisibilityBufferHaveFragment(pointer)) {
        vec4 position;
        float depth;
        vec3 modelNormal;
        vec2 texCoord;
        uint fragment = kvzFragmentInTurn(pointer);
        getFragmentInfo(vo_TexCoord, fragment, position, depth, modelNormal, texCoord);
        FragmentTriangle triangle;
        getFragmentTriangle(triangle);
        SurfacePlace place = placeOn(triangle, texCoord);
        Surface surface = surfaceAt(place);
        if (!surface.isThere)
            continue;
        mat3 normals =
            mat3(normalOf(triangle.normals[0]), normalOf(triangle.normals[1]), normalOf(triangle.normals[2]));
        vec3 cameraPosition = (u_CameraMatrix * position).xyz;
#ifdef KVZ_PHYSICAL
        const float brightest = 65504.0; // where half floats end
        vec3 normal = bumpedNormal(surface, place, normals * triangle.weights, triangle.isFront);
#else
        const float brightest = 1.0;
        vec3 normal = surfaceNormal(surface, normals * triangle.weights, triangle.isFront);
#endif
        vec3 shaded = shadeSurface(surface, fullVisibility, cameraPosition, normal, directionToEye(cameraPosition));
        shaded = clamp(shaded, 0.0, brightest);
        color += through * surface.opacity * shaded;
        through *= 1.0 - surface.opacity;
    }
    out_FragColor = vec4(color, through);
}
)");

std::unique_ptr<ShaderProgram> buildShadingProgram(GLSLMacroProcessor &macros, SurfaceKind kind)
{
    const InstanceDataRegistry &plans = InstanceDataRegistry::Instance();
    auto program = std::make_unique<ShaderProgram>(nullptr);
    macros.addDefine(lightBlockMacro, QStringLiteral("1")); // For want of texture units.
    program->setMacroProcessor(&macros);
    program->setFragDataLocations({QStringLiteral("out_FragColor")});
    program->addShader(GL_VERTEX_SHADER, screenQuadVertexSource, QString());
    program->addShader(GL_FRAGMENT_SHADER, fragmentSource, QString());
    for (const QString &plan : {objectPlan, surfacePlanOf(kind)})
        program->addShader(GL_FRAGMENT_SHADER, plans.getPlan(plan).glslc(), QString());
    const QStringList files = QStringList{QStringLiteral("VisibilityBuffer.glslc")} + surfaceFilesOf(kind)
        + (kind == SurfaceKind::Physical ? physicalShadingFiles : QStringList{surfaceShadingFile});
    for (const QString &file : files)
        program->addShaderFromFile(GL_FRAGMENT_SHADER, file);
    program->compile();
    program->link();
    program->setMacroProcessor(nullptr);
    return program;
}

/// The model's own rows for a plan, or null while a collection of the host replaces them, as it does in draws.
Bindable *unlessReplaced(const QString &plan, Bindable *rows)
{
    return InstanceDataCollection::isBound(plan) ? nullptr : rows;
}

} // namespace

ListShading::ListShading(SurfaceKind kind)
    : m_kind(kind),
      m_programs(std::make_unique<SurfaceProgramVariants>(
          [kind](GLSLMacroProcessor &macros) { return buildShadingProgram(macros, kind); }, kind,
          SurfaceProgramVariants::Use::Fragments))
{ }

ListShading::~ListShading() = default;

void ListShading::draw(const Lists &lists, NamedValue<QVariant> &output, int users,
    const std::function<void(ShaderProgram &)> &prepare, const std::function<void()> &finish)
{
    if (lists.size.isEmpty() || !lists.heads || !lists.nodes || !lists.model || !lists.model->drawBuffers(0)
        || !canShow(*lists.model)) {
        output.value = QVariant::fromValue<Texture *>(nullptr);
    } else {
        ensureFramebuffer(m_framebuffer);
        ensureScreenQuad(m_screenQuad, m_programs->forModel(*lists.model));
        showBuffers();

        AutoBinder framebuffer(m_framebuffer.get());
        Texture *const frame =
            attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, lists.size);
        m_framebuffer->setDrawBuffers();
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_BLEND);
        shade(lists, prepare);
        if (finish)
            finish();
        handOn(output, users, frame);
        detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
        m_buffers.clear();
    }
    giveBack(lists.heads);
    giveBack(lists.nodes);
}

/// Finds the buffers of the model, and whether the driver can make them readable by shaders.
bool ListShading::canShow(const GPUModel &model)
{
    const DrawBuffers &geometry = *model.drawBuffers(0);
    m_buffers = {geometry.VAO()->bo(QStringLiteral("va_Vertex")), geometry.VAO()->bo(QStringLiteral("va_TexCoord")),
        geometry.VAO()->bo(QStringLiteral("va_Normal")), geometry.indexBO(), model.vertexExtras().buffer};
    if (m_maximumTexels == 0)
        m_maximumTexels = BufferTexture::maximumTexels();
    qint64 texels = 0;
    for (size_t i = 0; i < m_buffers.size(); ++i) {
        if (m_buffers[i])
            texels = std::max(texels, qint64(m_buffers[i]->size()) / bufferTexels[i].bytes);
    }
    const bool isRefused = texels > m_maximumTexels;
    if (isRefused && !m_isModelRefused) {
        KVZ_WARNING(QStringLiteral("The lists of a model whose buffers have %1 elements are not shaded: this driver's "
                                   "buffer textures hold %2; split the model")
                        .arg(texels)
                        .arg(m_maximumTexels));
    }
    m_isModelRefused = isRefused;
    return !isRefused;
}

/// Makes the buffers readable by shaders. Done in each frame, since another model may have come, and a deleted buffer's name may
/// be in use again.
void ListShading::showBuffers()
{
    for (size_t i = 0; i < m_buffers.size(); ++i) {
        if (m_bufferTextures.size() == i) {
            m_bufferTextures.push_back(std::make_unique<Texture>(nullptr));
            m_bufferTextures[i]->setTarget(GL_TEXTURE_BUFFER);
        }
        AutoBinder binder(m_bufferTextures[i].get());
        glTexBuffer(GL_TEXTURE_BUFFER, bufferTexels[i].format, m_buffers[i] ? m_buffers[i]->getBO() : 0);
    }
}

/// Draws the quad that walks the lists.
void ListShading::shade(const Lists &lists, const std::function<void(ShaderProgram &)> &prepare)
{
    GPUModel &model = *lists.model;
    const DrawBuffers &geometry = *model.drawBuffers(0);
    const VertexExtras &extras = model.vertexExtras();

    ShaderProgram &program = m_programs->forModel(model);
    AutoBinder programBinder(&program);
    AutoBinder headBinder(lists.heads);
    AutoBinder nodeBinder(lists.nodes);
    program.setUniform(QStringLiteral("u_SamplerHeadPointer"), lists.heads->unit());
    program.setUniform(QStringLiteral("u_SamplerNodeBuffer"), lists.nodes->unit());
    program.setUniform(QStringLiteral("u_SamplerNodeBufferWidth"), lists.nodeBufferWidth);
    setSurfaceCamera(program, lists.projection, lists.camera);
    program.setUniform(QStringLiteral("u_InvProjMatrix"), lists.projection.inverted());
    program.setUniform(QStringLiteral("u_InvCameraMatrix"), lists.camera.inverted());
    program.setUniform(QStringLiteral("u_indexedDraw"), !geometry.indexBO().isNull());
    program.setUniform(QStringLiteral("u_ExtrasStride"), extras.stride);
    program.setUniform(QStringLiteral("u_ColourPlace"), extras.colour);
    program.setUniform(QStringLiteral("u_TexCoord1Place"), extras.texCoord1);
    if (m_kind == SurfaceKind::Physical)
        program.setUniform(QStringLiteral("u_TangentPlace"), extras.tangent);
    prepare(program);
    for (size_t i = 0; i < m_bufferTextures.size(); ++i) {
        m_bufferTextures[i]->bind();
        program.setUniform(QString::fromLatin1(bufferTexels[i].sampler), m_bufferTextures[i]->unit());
    }
    {
        AutoBinder quad(m_screenQuad);
        AutoBinder commands(geometry.getDrawElementsIndirectCommandsUniformBufferObject());
        AutoBinder objects(unlessReplaced(objectPlan, model.objectData(0)));
        AutoBinder surfaces(unlessReplaced(
            surfacePlanOf(m_kind), m_kind == SurfaceKind::Physical ? model.physicalData() : model.surfaceData()));
        AutoBinder images(model.materialImages());
        TextureManager::Instance()->bindTextures(&program);
        m_screenQuad->draw();
        TextureManager::Instance()->unbindTextures(&program);
    }
    for (size_t i = m_bufferTextures.size(); i-- > 0;)
        m_bufferTextures[i]->unbind();
}

} // namespace Velmora::Kvz
