// SPDX-License-Identifier: MIT
#include <ExtraPasses/VelocityRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ModelProgram.h"
#include "steps/ResolveMultisampled.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/GLSLMacroProcessor.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>

#include <GL/TrackedGL.h>

#include <cmath>
#include <utility>

namespace Velmora::Kvz {

namespace {

const QString instanceInfoPlan = QStringLiteral("InstanceInfo");
const QString previousMatrixGetter = QStringLiteral("getPreviousModelMatrix");

/// Follows a version line: reads the depth image, of one sample or of several, at a pixel.
const QString depthSource = QStringLiteral(R"(
#if MULTISAMPLED
uniform sampler2DMS u_Depth;
#else
uniform sampler2D u_Depth;
#endif

float depthAt(vec2 pixel)
{
    return texelFetch(u_Depth, ivec2(pixel), 0).r;
}

// The motion from the previous position to the current one, both in normalised device units, in texture coordinates.
vec4 motionFrom(vec4 previous, vec2 present)
{
    // Behind the previous camera there is no picture to follow.
    if (previous.w <= 0.0)
        return vec4(1.0, 1.0, 0.0, 1.0);
    return vec4(0.5 * (present - previous.xy / previous.w), 0.0, 1.0);
}
)");

const QString cameraFragmentSource = QStringLiteral(R"(#version 150
uniform mat4 u_Reprojection;
in vec2 vo_TexCoord;
out vec4 out_Velocity;
)") + depthSource
    + QStringLiteral(R"(
void main()
{
    vec3 present = 2.0 * vec3(vo_TexCoord, depthAt(gl_FragCoord.xy)) - 1.0;
    out_Velocity = motionFrom(u_Reprojection * vec4(present, 1.0), present.xy);
}
)");

const QString itemVertexSource = QStringLiteral(R"(#version 150
#instancedata "InstanceInfo"
uniform mat4 u_CameraMatrix;
uniform mat4 u_ProjectionMatrix;
uniform mat4 u_PreviousCameraMatrix;
uniform mat4 u_PreviousProjectionMatrix;
in vec3 va_Vertex;
out vec4 vo_Present;
out vec4 vo_Previous;

void main()
{
    vo_Present = u_ProjectionMatrix * u_CameraMatrix * getModelMatrix() * vec4(va_Vertex, 1.0);
    vo_Previous =
        u_PreviousProjectionMatrix * u_PreviousCameraMatrix * getPreviousModelMatrix() * vec4(va_Vertex, 1.0);
    // Items that did not move have their motion already: they are moved out of sight.
    bool moved = getModelMatrix() != getPreviousModelMatrix();
    gl_Position = moved ? vo_Present : vec4(2.0, 2.0, 2.0, 1.0);
}
)");

const QString itemFragmentSource = QStringLiteral(R"(#version 150
in vec4 vo_Present;
in vec4 vo_Previous;
out vec4 out_Velocity;
)") + depthSource
    + QStringLiteral(R"(
void main()
{
    // As far away as the depth image says, give or take what another program and a sample off the centre make of it.
#if MULTISAMPLED
    float tolerance = 2e-6 + 0.4 * fwidth(gl_FragCoord.z);
#else
    float tolerance = 2e-6 + 0.01 * fwidth(gl_FragCoord.z);
#endif
    if (gl_FragCoord.z > depthAt(gl_FragCoord.xy) + tolerance)
        discard;
    out_Velocity = motionFrom(vo_Previous, vo_Present.xy / vo_Present.w);
}
)");

void setMacros(GLSLMacroProcessor *macros, bool isMultisampled)
{
    macros->addDefine(QStringLiteral("MULTISAMPLED"), isMultisampled ? QStringLiteral("1") : QStringLiteral("0"));
}

std::unique_ptr<ShaderProgram> makeCameraProgram(bool isMultisampled)
{
    GLSLMacroProcessor macros;
    setMacros(&macros, isMultisampled);
    return buildProgram({QStringLiteral("out_Velocity")}, screenQuadVertexSource, cameraFragmentSource, &macros);
}

std::unique_ptr<ShaderProgram> makeItemProgram(bool isMultisampled)
{
    GLSLMacroProcessor macros;
    setMacros(&macros, isMultisampled);
    auto program = std::make_unique<ShaderProgram>(nullptr);
    program->setMacroProcessor(&macros);
    program->setFragDataLocations({QStringLiteral("out_Velocity")});
    addModelVertexStage(*program, itemVertexSource);
    program->addShader(GL_FRAGMENT_SHADER, itemFragmentSource, QString());
    program->compile();
    program->link();
    program->setMacroProcessor(nullptr);
    return program;
}

/// Rows of doubles: with near and far plane far apart, the inverse of a projection needs more than single precision.
using Rows = std::array<std::array<double, 4>, 4>;

Rows rowsOf(const QMatrix4x4 &matrix)
{
    Rows rows{};
    for (size_t i = 0; i < 16; ++i)
        rows[i / 4][i % 4] = double(matrix(int(i / 4), int(i % 4)));
    return rows;
}

Rows product(const Rows &a, const Rows &b)
{
    Rows rows{};
    for (size_t i = 0; i < 16; ++i) {
        for (size_t k = 0; k < 4; ++k)
            rows[i / 4][i % 4] += a[i / 4][k] * b[k][i % 4];
    }
    return rows;
}

/// By elimination with row pivots; NaN or infinity for a singular matrix.
Rows inverse(Rows left)
{
    Rows right = rowsOf(QMatrix4x4());
    for (size_t column = 0; column < 4; ++column) {
        size_t pivot = column;
        for (size_t row = column + 1; row < 4; ++row)
            pivot = std::abs(left[row][column]) > std::abs(left[pivot][column]) ? row : pivot;
        std::swap(left[column], left[pivot]);
        std::swap(right[column], right[pivot]);
        const double scale = 1 / left[column][column];
        for (size_t k = 0; k < 4; ++k) {
            left[column][k] *= scale;
            right[column][k] *= scale;
        }
        for (size_t row = 0; row < 4; ++row) {
            const double factor = row == column ? 0 : left[row][column];
            for (size_t k = 0; k < 4; ++k) {
                left[row][k] -= factor * left[column][k];
                right[row][k] -= factor * right[column][k];
            }
        }
    }
    return right;
}

/// Takes a frame's normalised device coordinates to the clip space of another one.
QMatrix4x4 reprojection(const Rows &from, const Rows &to)
{
    const Rows rows = product(to, inverse(from));
    QMatrix4x4 matrix;
    for (size_t i = 0; i < 16; ++i)
        matrix(int(i / 4), int(i % 4)) = float(rows[i / 4][i % 4]);
    return matrix;
}

} // namespace

VelocityRenderPass::VelocityRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_KvzTexture*_Depth"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Velocity"));
}

VelocityRenderPass::~VelocityRenderPass() = default;

void VelocityRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    Texture *const depth = getInputPointer<Texture>(Depth);
    m_projection = inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]);
    m_camera = inputValue<QMatrix4x4>(m_inputs[CameraMatrix]);
    auto *const model = inputValue<GPUModel *>(m_inputs[Geometry]);
    if (!depth) {
        rememberMotion(model);
        m_outputs[Velocity].value = QVariant();
        return;
    }
    if (!std::exchange(m_hasPrevious, true)) {
        m_previousProjection = m_projection;
        m_previousCamera = m_camera;
    }

    ensureFramebuffer(m_framebuffer);
    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const velocity =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::ResolvedVelocity, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_STENCIL_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    const bool hasSamples = isMultisampled(depth);
    drawCameraMotion(depth, hasSamples);
    if (wasSeen(model) && (model->hasMovedItems() || !m_lastSeen.isEmpty()))
        drawMovedItems(model, depth, hasSamples, size);

    m_previousProjection = m_projection;
    m_previousCamera = m_camera;
    m_seenGeometry = model ? model->drawBuffers(0) : nullptr;
    m_lastSeen.clear();
    handOn(m_outputs[Velocity], m_numOutputUsers[Velocity], velocity);
    giveBack(depth);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void VelocityRenderPass::skip(RenderCallbacks *callbacks)
{
    rememberMotion(inputValue<GPUModel *>(m_inputs[Geometry]));
    RenderPassProxy::skip(callbacks);
}

void VelocityRenderPass::forgetPast()
{
    m_hasPrevious = false;
    m_seenGeometry.clear();
    m_lastSeen.clear();
}

/// Whether the model was there in the last frame that was seen. Its geometry tells, since it knows when it is deleted.
bool VelocityRenderPass::wasSeen(const GPUModel *model) const
{
    const DrawBuffers *const geometry = model ? model->drawBuffers(0) : nullptr;
    return geometry && m_seenGeometry == geometry;
}

/// Keeps where the items were that move in this frame, before its end overwrites their previous matrices.
void VelocityRenderPass::rememberMotion(const GPUModel *model)
{
    if (!wasSeen(model))
        return;
    const QVector<int> moved = model->movedItems();
    for (const int item : moved) {
        if (!m_lastSeen.contains(item))
            m_lastSeen.insert(item, model->previousModelMatrix(item));
    }
}

void VelocityRenderPass::drawCameraMotion(Texture *depth, bool isMultisampled)
{
    std::unique_ptr<ShaderProgram> &program = m_cameraPrograms[size_t(isMultisampled)];
    if (!program)
        program = makeCameraProgram(isMultisampled);
    ensureScreenQuad(m_screenQuad, *program);

    AutoBinder programBinder(program.get());
    AutoBinder depthBinder(depth);
    program->setUniform(QStringLiteral("u_Depth"), depth->unit());
    program->setUniform(QStringLiteral("u_Reprojection"),
        reprojection(product(rowsOf(m_projection), rowsOf(m_camera)),
            product(rowsOf(m_previousProjection), rowsOf(m_previousCamera))));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

void VelocityRenderPass::drawMovedItems(GPUModel *model, Texture *depth, bool isMultisampled, const QSize &size)
{
    std::unique_ptr<ShaderProgram> &program = m_itemPrograms[size_t(isMultisampled)];
    if (!program)
        program = makeItemProgram(isMultisampled);

    // The nearest of the moved items counts. This depth is a separate one, since the depth image is being read.
    attachTempTexture(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT, TextureFormat::DepthStencil, size);
    glDepthMask(GL_TRUE);
    glDepthFunc(GL_LESS);
    glClearDepth(1);
    glClear(GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    AutoBinder programBinder(program.get());
    AutoBinder depthBinder(depth);
    program->setUniform(QStringLiteral("u_Depth"), depth->unit());
    program->setUniform(QStringLiteral("u_ProjectionMatrix"), m_projection);
    program->setUniform(QStringLiteral("u_CameraMatrix"), m_camera);
    program->setUniform(QStringLiteral("u_PreviousProjectionMatrix"), m_previousProjection);
    program->setUniform(QStringLiteral("u_PreviousCameraMatrix"), m_previousCamera);
    if (m_lastSeen.isEmpty())
        model->draw(program.get(), nullptr, 0, 0);
    else
        drawItemsFromLastSeen(model, program.get());
    glDisable(GL_DEPTH_TEST);
    detachAndGiveBack(*m_framebuffer, GL_DEPTH_STENCIL_ATTACHMENT);
}

/// Draws with rows that replace the model's own, whose previous matrices belong to a frame that was not seen.
void VelocityRenderPass::drawItemsFromLastSeen(GPUModel *model, ShaderProgram *program)
{
    rememberMotion(model);
    // The rows of all other items stay 0, then as now, and so count as not moved.
    InstanceDataCollection rows(instanceInfoPlan);
    rows.setRowCount(model->itemCount());
    for (auto item = m_lastSeen.constBegin(); item != m_lastSeen.constEnd(); ++item) {
        rows.setModelMatrix(item.key(), model->modelMatrix(item.key()));
        rows.setValue(item.key(), previousMatrixGetter, item.value());
    }
    rows.bind(program, nullptr);
    model->draw(program, nullptr, 0, 0);
    rows.unbind(program, nullptr);
}

} // namespace Velmora::Kvz
