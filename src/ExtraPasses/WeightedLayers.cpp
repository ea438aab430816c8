// SPDX-License-Identifier: MIT
#include "WeightedLayers.h"

#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"
#include "steps/TempTexture.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/InternalFormat.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>

#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

// Weights go from 4 to 1 times the opacity. At this ratio the mean error over random stacks of faint, middling and strong layers, against
// compositing in order, is least; steeper ones hide a pane of glass behind another one.
const QString layerSource = QStringLiteral(R"(#version 150
#include "SurfaceShading.glslh"
uniform vec2 u_DepthRange; // Where it begins, and 1 over its length.
out vec4 out_FragColor[2];
)") + surfaceInputSource
    + directionToEyeSource + QStringLiteral(R"(
void main()
{
    SurfacePlace at = surfacePlace();
    Surface surface = surfaceAt(at);
    if (!surface.isThere)
        discard;
#ifdef KVZ_PHYSICAL
    const float brightest = 64.0; // Half floats have room for the sum of 255 such layers with the largest weight.
    vec3 normal = bumpedNormal(surface, at, vo_Normal, gl_FrontFacing);
#else
    const float brightest = 1.0;
    vec3 normal = surfaceNormal(surface, vo_Normal, gl_FrontFacing);
#endif
    vec3 shaded = shadeSurface(surface, fullVisibility, vo_Position, normal, directionToEye(vo_Position));
    shaded = clamp(shaded, 0.0, brightest);
    float place = clamp((-vo_Position.z - u_DepthRange.x) * u_DepthRange.y, 0.0, 1.0);
    float weight = surface.opacity * exp2(2.0 - 2.0 * place);
    out_FragColor[0] = vec4(shaded * weight, surface.opacity);
    out_FragColor[1] = vec4(weight);
}
)");

const QString resolveSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Colors;
uniform sampler2D u_Weights;
out vec4 out_FragColor;

const float largestHalf = 65504.0;

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    vec4 sum = texelFetch(u_Colors, pixel, 0);
    float weight = texelFetch(u_Weights, pixel, 0).r;
    // Sums beyond the largest half float are infinite.
    vec3 mean = weight > 0.0 ? min(sum.rgb, largestHalf) / min(weight, largestHalf) : vec3(0.0);
    out_FragColor = vec4((1.0 - sum.a) * mean, sum.a);
}
)");

/// The view depths between which the bounds of the transparent items lie, from the first one and 1 over their distance. Nothing
/// is seen behind the eye of a perspective camera.
QVector2D depthRange(const GPUModel &model, const QMatrix4x4 &projection, const QMatrix4x4 &camera)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    QVector3D low(infinity, infinity, infinity);
    QVector3D high = -low;
    for (int item = 0; item < model.itemCount(); ++item) {
        if (!(model.itemFeatureFlags(item) & GPUModel::Transparent))
            continue;
        const QPair<QVector3D, QVector3D> bounds = model.itemBounds(item);
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], bounds.first[axis]);
            high[axis] = std::max(high[axis], bounds.second[axis]);
        }
    }
    const QVector4D depth = -camera.row(2);
    const float centre = QVector4D::dotProduct(depth, QVector4D((low + high) / 2, 1));
    float reach = 0;
    for (int axis = 0; axis < 3; ++axis)
        reach += std::abs(depth[axis]) * (high[axis] - low[axis]) / 2;
    float first = centre - reach;
    const float last = centre + reach;
    const bool isPerspective = projection(3, 2) != 0;
    if (isPerspective)
        first = std::max(0.0f, first);
    return {first, last > first ? 1 / (last - first) : 0};
}

} // namespace

WeightedLayers::WeightedLayers(SurfaceKind kind)
    : m_layerPrograms(std::make_unique<SurfaceProgramVariants>(
        [kind](GLSLMacroProcessor &macros) {
            return buildSurfaceProgram(macros, {QStringLiteral("out_FragColor[0]"), QStringLiteral("out_FragColor[1]")},
                layerSource, kind == SurfaceKind::Physical ? physicalShadingFiles : QStringList{surfaceShadingFile},
                kind);
        },
        kind))
{ }

WeightedLayers::~WeightedLayers() = default;

void WeightedLayers::draw(const SurfaceScene &scene, Texture *depth, NamedValue<QVariant> &output, int users,
    const std::function<void(ShaderProgram &)> &prepare, const std::function<void()> &finish)
{
    if (scene.size.isEmpty() || !scene.model
        || scene.model->isDrawEmpty(GPUModel::Transparent, GPUModel::Transparent)) {
        output.value = QVariant::fromValue<Texture *>(nullptr);
        giveBack(depth);
        return;
    }

    ensureFramebuffer(m_sums);
    if (scene.size != m_size) {
        m_size = scene.size;
        AutoBinder framebuffer(m_sums.get());
        m_sums->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA16F, m_size, GL_RGBA, GL_FLOAT);
        m_sums->remakeTarget(GL_COLOR_ATTACHMENT1, GL_R16F, m_size, GL_RED, GL_FLOAT);
    }
    accumulate(scene, suitableDepth(depth), prepare, finish);
    resolve(output, users);
    giveBack(depth);
}

/// Adds up all layers, in the order of drawing.
void WeightedLayers::accumulate(const SurfaceScene &scene, Texture *depth,
    const std::function<void(ShaderProgram &)> &prepare, const std::function<void()> &finish)
{
    GPUModel &model = *scene.model;
    AutoBinder framebuffer(m_sums.get());
    m_sums->attach(depth, GL_DEPTH_ATTACHMENT, 0);
    m_sums->setDrawBuffers();
    glViewport(0, 0, m_size.width(), m_size.height());
    // T begins at 1; the sums, also that of the weights in red, at 0.
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    (depth ? glEnable : glDisable)(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    glDepthMask(GL_FALSE);
    glEnable(GL_BLEND);
    // One function for both targets: all that GL 3.2 has.
    glBlendFuncSeparate(GL_ONE, GL_ONE, GL_ZERO, GL_ONE_MINUS_SRC_ALPHA);
    {
        ShaderProgram &program = m_layerPrograms->forModel(model);
        AutoBinder programBinder(&program);
        setSurfaceCamera(program, scene.projection, scene.camera);
        program.setUniform(QStringLiteral("u_DepthRange"), depthRange(model, scene.projection, scene.camera));
        prepare(program);
        drawSurfaces(model, program, SurfaceSelection::Transparent);
        if (finish)
            finish();
    }
    glDisable(GL_BLEND);
    glDepthMask(GL_TRUE);
    glDisable(GL_DEPTH_TEST);
    m_sums->detach(GL_DEPTH_ATTACHMENT);
}

/// Makes the image of the sums.
void WeightedLayers::resolve(NamedValue<QVariant> &output, int users)
{
    ensureFramebuffer(m_framebuffer);
    if (!m_resolveProgram)
        m_resolveProgram = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, resolveSource);
    ensureScreenQuad(m_screenQuad, *m_resolveProgram);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const frame =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::HighDynamicRange, m_size);
    m_framebuffer->setDrawBuffers();
    {
        Texture *const colors = m_sums->attachment(GL_COLOR_ATTACHMENT0);
        Texture *const weights = m_sums->attachment(GL_COLOR_ATTACHMENT1);
        AutoBinder program(m_resolveProgram.get());
        AutoBinder colorBinder(colors);
        AutoBinder weightBinder(weights);
        m_resolveProgram->setUniform(QStringLiteral("u_Colors"), colors->unit());
        m_resolveProgram->setUniform(QStringLiteral("u_Weights"), weights->unit());
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    handOn(output, users, frame);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

/// The depth image if it can be attached beside the sums, else null.
Texture *WeightedLayers::suitableDepth(Texture *depth)
{
    if (!depth)
        return nullptr;
    const QSize size(depth->width(0), depth->height(0));
    const bool isDepth = isDepthFormat(unsigned(depth->internalFormat(0)));
    const bool isPlain = depth->target() == GL_TEXTURE_2D;
    const bool isSuitable = isDepth && isPlain && size == m_size;
    if (!isSuitable && !m_isDepthRefused) {
        const QString found = !isDepth ? QStringLiteral("is no depth image")
            : !isPlain                 ? QStringLiteral("has several samples or layers")
                                       : QStringLiteral("has %1 by %2 texels").arg(size.width()).arg(size.height());
        KVZ_WARNING(
            QStringLiteral("Nothing hides the layers: the image on Kvz_KvzTexture*_Depth %1; feed a depth image of "
                           "%2 by %3 texels with one sample each")
                .arg(found)
                .arg(m_size.width())
                .arg(m_size.height()));
    }
    m_isDepthRefused = !isSuitable;
    return isSuitable ? depth : nullptr;
}

} // namespace Velmora::Kvz
