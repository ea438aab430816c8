// SPDX-License-Identifier: MIT
#include <RenderPasses/ShaderRenderPass.h>

#include "steps/InputRead.h"
#include "steps/ResolveMultisampled.h"
#include "steps/Sampling.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/AutoEnabler.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtCore/QRect>
#include <QtCore/QVarLengthArray>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString viewportName = QStringLiteral("Kvz_QRect_Viewport");
const QString texturePrefix = QStringLiteral("Kvz_KvzTexture*_");
const QString drawBuffersPrefix = QStringLiteral("Kvz_KvzDrawBuffers*_");

const QString defaultFragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Input;
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    out_FragColor = texture(u_Input, vo_TexCoord);
}
)");

/// Binds a texture, makes its unit the active one, and sets its sampler state.
void bindForSampling(Texture *texture)
{
    texture->bind();
    if (isMultisampled(texture)) {
        // Hosts know this message by its line number. The pass goes on, and GL refuses what follows.
        logAssertion(__FILE__, 319, QStringLiteral("texture->target() != GL_TEXTURE_2D_MULTISAMPLE"),
            QStringLiteral("Modification of sampler state for a texture with target GL_TEXTURE_2D_MULTISAMPLE is not "
                           "allowed"));
    }
    sampleLinearly(texture);
}

bool isUniformType(int type)
{
    switch (type) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::Double:
    case QMetaType::QRect:
    case QMetaType::QSize:
    case QMetaType::Float:
    case QMetaType::QColor:
    case QMetaType::QMatrix4x4:
    case QMetaType::QVector2D:
    case QMetaType::QVector3D:
    case QMetaType::QVector4D:
        return true;
    default:
        return false;
    }
}

} // namespace

ShaderRenderPass::ShaderRenderPass()
    : m_vertexSource(screenQuadVertexSource),
      m_fragmentSource(defaultFragmentSource)
{
    addInput(viewportName, QVariant());
}

ShaderRenderPass::~ShaderRenderPass() = default;

void ShaderRenderPass::start(RenderCallbacks *)
{
    bool clear = m_clear;
    const int viewportPort = findInput(viewportName);
    QSize size = viewportPort >= 0 ? inputValue<QRect>(m_inputs[viewportPort]).size() : QSize(0, 0);
    if (numInputs() != m_uniformNames.size())
        reflectPorts();

    QVarLengthArray<Texture *, 256> textures(numInputs());
    for (const int input : qAsConst(m_textureInputs)) {
        Texture *texture = getInputPointer<Texture>(input);
        if (texture && size.width() == 0) {
            AutoBinder binder(texture);
            size = QSize(texture->width(0), texture->height(0));
        }
        if (!texture) {
            if (!m_fallback)
                m_fallback = TextureManager::Instance()->colorTexture(QColor(Qt::transparent));
            texture = m_fallback;
        }
        textures[input] = texture;
    }
    DrawBuffers *const geometry = m_geometryInput >= 0 ? getInputPointer<DrawBuffers>(m_geometryInput) : nullptr;

    ensureFramebuffer(m_framebuffer);
    if (size.width() == 0)
        size.setWidth(1);
    if (size.height() == 0)
        size.setHeight(1);
    if (size != m_size) {
        m_size = size;
        clear = true;
    }

    AutoBinder framebuffer(m_framebuffer.get());
    for (int i = 0; i < m_textureOutputs.size(); ++i)
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0 + GLenum(i), TextureFormat::LowDynamicRange, m_size);
    if (!m_program)
        buildProgram();
    if (!geometry)
        ensureScreenQuad2(m_screenQuad, *m_program);

    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    applyBlendMode();
    if (clear)
        glClear(GL_COLOR_BUFFER_BIT);

    AutoBinder program(m_program.get());
    for (const int input : qAsConst(m_textureInputs)) {
        bindForSampling(textures[input]);
        m_program->setUniform(QString::fromUtf8(m_uniformNames[input]), textures[input]->unit());
    }
    setUniforms();
    glViewport(0, 0, m_size.width(), m_size.height());
    if (geometry) {
        if (const QSharedPointer<VertexArrayObject> vao = geometry->VAO()) {
            AutoBinder binder(vao);
            vao->enableShaderProgramArrays(m_program.get());
        }
        AutoBinder binder(geometry);
        AutoEnabler pointSize(GL_PROGRAM_POINT_SIZE);
        geometry->draw();
    } else {
        AutoBinder quad(m_screenQuad);
        m_screenQuad->draw();
    }
    // In reverse order, so that the active unit is restored.
    for (int i = m_textureInputs.size() - 1; i >= 0; --i)
        textures[m_textureInputs[i]]->unbind();
    if (m_blend != BlendNone)
        glDisable(GL_BLEND);

    for (int i = 0; i < m_textureOutputs.size(); ++i) {
        const int output = m_textureOutputs[i];
        const GLenum attachment = GL_COLOR_ATTACHMENT0 + GLenum(i);
        handOn(m_outputs[output], m_numOutputUsers[output], m_framebuffer->attachment(attachment));
        detachAndGiveBack(*m_framebuffer, attachment);
    }
    // The fallback too: the pool does not own it and ignores it.
    for (const int input : qAsConst(m_textureInputs))
        giveBack(textures[input]);
}

void ShaderRenderPass::setUniforms()
{
    if (!m_program)
        return;
    const QVector<NamedValue<QVariant>> inputs = m_inputs;
    for (const NamedValue<QVariant> &input : inputs) {
        if (isUniformType(input.value.userType()) && m_program->hasUniform(input.name))
            m_program->setUniform(input.name, input.value);
    }
}

void ShaderRenderPass::setVertexShaderSource(const QString &source)
{
    m_vertexSource = source;
}

void ShaderRenderPass::setFragmentShaderSource(const QString &source)
{
    m_fragmentSource = source;
}

void ShaderRenderPass::setGeometryShaderSource(const QString &source)
{
    m_geometrySource = source;
}

void ShaderRenderPass::setTessellationControlShaderSource(const QString &source)
{
    m_tessellationControlSource = source;
}

void ShaderRenderPass::setTessellationEvaluationShaderSource(const QString &source)
{
    m_tessellationEvaluationSource = source;
}

QString ShaderRenderPass::defaultVertexShaderSource()
{
    return screenQuadVertexSource;
}

QString ShaderRenderPass::defaultFragmentShaderSource()
{
    return defaultFragmentSource;
}

void ShaderRenderPass::setClear(bool clear)
{
    m_clear = clear;
}

void ShaderRenderPass::setBlend(ShaderRenderPass::BlendMode blend)
{
    m_blend = blend;
}

void ShaderRenderPass::reflectPorts()
{
    // Intentional: the lists are not emptied first, since ports are complete before the first frame.
    for (int i = 0; i < numInputs(); ++i) {
        QString name = inputName(i);
        if (name.startsWith(texturePrefix)) {
            m_textureInputs.append(i);
            name = QStringLiteral("u_") + name.mid(texturePrefix.size());
        } else if (name.startsWith(drawBuffersPrefix)) {
            m_geometryInput = i;
            name = QStringLiteral("u_") + name.mid(drawBuffersPrefix.size());
        }
        m_uniformNames.append(name.toUtf8());
    }
    for (int i = 0; i < numOutputs(); ++i) {
        if (outputName(i).startsWith(texturePrefix))
            m_textureOutputs.append(i);
    }
}

void ShaderRenderPass::buildProgram()
{
    QStringList outputs;
    for (const int output : qAsConst(m_textureOutputs))
        outputs.append(QStringLiteral("o_") + outputName(output).mid(texturePrefix.size()));

    m_program = std::make_unique<ShaderProgram>(nullptr);
    m_program->setFragDataLocations(outputs);
    m_program->addShader(GL_VERTEX_SHADER, m_vertexSource, QString());
    m_program->addShader(GL_FRAGMENT_SHADER, m_fragmentSource, QString());
    if (!m_geometrySource.isEmpty())
        m_program->addShader(GL_GEOMETRY_SHADER, m_geometrySource, QString());
    if (!m_tessellationControlSource.isEmpty())
        m_program->addShader(GL_TESS_CONTROL_SHADER, m_tessellationControlSource, QString());
    if (!m_tessellationEvaluationSource.isEmpty())
        m_program->addShader(GL_TESS_EVALUATION_SHADER, m_tessellationEvaluationSource, QString());
    m_program->compile();
    m_program->link();
}

void ShaderRenderPass::applyBlendMode() const
{
    switch (m_blend) {
    case BlendNone:
        glDisable(GL_BLEND);
        break;
    case BlendAdditive:
        glEnable(GL_BLEND);
        glBlendFunc(GL_ONE, GL_ONE);
        break;
    default:
        glEnable(GL_BLEND);
        // Intentional: these factors in this order, so the source weighs less as its alpha rises.
        glBlendFunc(GL_ONE_MINUS_SRC_ALPHA, GL_SRC_ALPHA);
        break;
    }
}

} // namespace Velmora::Kvz
