// SPDX-License-Identifier: MIT
#include <ExtraPasses/EnvironmentLightRenderPass.h>

#include "EnvironmentUniforms.h"
#include "environment/EnvironmentFiles.h"
#include "environment/EnvironmentTexture.h"
#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TargetFramebuffer.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>
#include <Scene/ShadowMapManager.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString backgroundSource = QStringLiteral(R"(#version 150
#include "EnvironmentLight.glslh"
#include "KvzUtilities.glslh"
uniform sampler2D u_ImageSampler;
uniform bool u_HasImage;
uniform mat4 u_CameraFromClip;
uniform mat3 u_EnvironmentFromCamera;
in vec2 vo_TexCoord;
out vec4 out_Background;

void main()
{
    // From a place on the near plane to the one behind it, which serves parallel rays too.
    vec4 near = u_CameraFromClip * vec4(2.0 * vo_TexCoord - 1.0, -1.0, 1.0);
    vec4 far = u_CameraFromClip * vec4(2.0 * vo_TexCoord - 1.0, 1.0, 1.0);
    vec3 direction = normalize(far.xyz * near.w - near.xyz * far.w);
    vec3 radiance = environmentAround(direction, 0.0);
    if (u_HasImage)
        radiance = textureLod(u_ImageSampler, directionToLatLong_Tavo(u_EnvironmentFromCamera * direction), 0.0).rgb;
    out_Background = vec4(radiance, 1.0);
}
)");

/// Radiance as the driver holds it, rows upwards and around without a seam.
std::unique_ptr<Texture> makeImageTexture(RadianceImage image)
{
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    while (std::max(image.width, image.height) > limit)
        image = halved(image);
    for (float &value : image.rgb)
        value = std::min(value, 65504.0f); // where half floats end
    auto texture = std::make_unique<Texture>(nullptr);
    texture->setTarget(GL_TEXTURE_2D);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB16F, image.width, image.height, 0, GL_RGB, GL_FLOAT, nullptr);
    for (int y = 0; y < image.height; ++y)
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, image.height - 1 - y, image.width, 1, GL_RGB, GL_FLOAT, image.at(0, y));
    for (const GLenum filter : {GL_TEXTURE_MAG_FILTER, GL_TEXTURE_MIN_FILTER})
        glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    return texture;
}

} // namespace

/// What of an environment is no texture.
struct EnvironmentLightRenderPass::Loaded
{
    QString name;
    bool isThere = false;
    QVariantList irradiance;
    QVector3D keyDirection; ///< Zeros where there is no key light.
    QVector3D keyIlluminance;
};

EnvironmentLightRenderPass::EnvironmentLightRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant());
    addInput(QStringLiteral("Kvz_QString_Environment"), QStringLiteral("studio"));
    addInput(QStringLiteral("Kvz_float_EnvironmentRotation"), 0.0f);
    addInput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant());
    addInput(QStringLiteral("Kvz_bool_ShowsEnvironment"), false);
    addOutput(QStringLiteral("Kvz_KvzTexture*_Environment"));
    addOutput(QStringLiteral("Kvz_QVariant_Irradiance"));
    addOutput(QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"));
    addOutput(QStringLiteral("Kvz_float_EnvironmentRotation"));
    addOutput(QStringLiteral("Kvz_KvzTexture*_Background"));
}

EnvironmentLightRenderPass::~EnvironmentLightRenderPass() = default;

void EnvironmentLightRenderPass::start(RenderCallbacks *)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto name = inputValue<QString>(m_inputs[Environment]);
    const auto given = inputValue<float>(m_inputs[EnvironmentRotation]);
    const float rotation = std::isfinite(given) ? given : 0;
    if (!m_loaded || m_loaded->name != name)
        load(name);

    m_outputs[EnvironmentTexture].value = QVariant::fromValue(m_texture.get());
    m_outputs[Irradiance].value = m_loaded->irradiance;
    m_outputs[EnvironmentRotationOut].value = rotation;
    const QVariant lights = m_inputs[Lights].value;
    if (!ShadowMapManager::lightsIn(lights).isEmpty()) {
        m_outputs[LightsOut].value = lights;
    } else if (m_loaded->keyDirection.isNull()) {
        m_outputs[LightsOut].value = QVariantList();
    } else {
        QMatrix4x4 turn;
        turn.rotate(rotation, 0, 1, 0);
        const QVector3D illuminance = m_loaded->keyIlluminance;
        const float strongest = std::max({illuminance.x(), illuminance.y(), illuminance.z()});
        m_keyLight->direction = -turn.mapVector(m_loaded->keyDirection);
        m_keyLight->intensity = strongest;
        m_keyLight->colour = illuminance / strongest;
        m_outputs[LightsOut].value = QVariantList{QVariant::fromValue<ShadowMapManager::Light *>(m_keyLight.get())};
    }
    if (inputValue<bool>(m_inputs[ShowsEnvironment]) && !size.isEmpty() && m_texture)
        drawBackground(size);
    else
        m_outputs[Background].value = QVariant();
}

void EnvironmentLightRenderPass::teardownContextData(RenderCallbacks *)
{
    m_framebuffer.reset();
    m_program.reset();
    m_screenQuad.reset();
    m_texture.reset();
    m_image.reset();
    m_loaded.reset();
    m_size = QSize();
}

QStringList EnvironmentLightRenderPass::builtInNames()
{
    return builtInEnvironments();
}

QString EnvironmentLightRenderPass::problemWith(const QString &nameOrFile)
{
    QString problem;
    if (!builtInEnvironments().contains(nameOrFile))
        loadEnvironment(nameOrFile, &problem);
    return problem;
}

void EnvironmentLightRenderPass::load(const QString &nameOrFile)
{
    m_loaded = std::make_unique<Loaded>();
    m_loaded->name = nameOrFile;
    m_texture.reset();
    m_image.reset();
    if (!m_keyLight) {
        m_keyLight = std::make_unique<ShadowMapLight>();
        m_keyLight->isPartOfEnvironment = true;
    }
    if (nameOrFile.isEmpty())
        return;
    QString problem;
    const FilteredEnvironment environment = loadEnvironment(nameOrFile, &problem);
    if (environment.isNull()) {
        KVZ_WARNING(QStringLiteral("Environment \"%1\" cannot be used: %2").arg(nameOrFile, problem));
        return;
    }
    m_texture = makeEnvironmentTexture(environment);
    for (const QVector3D &coefficient : environment.irradiance)
        m_loaded->irradiance.append(coefficient);
    m_loaded->keyDirection = environment.keyDirection;
    m_loaded->keyIlluminance = environment.keyIlluminance;
}

void EnvironmentLightRenderPass::drawBackground(const QSize &size)
{
    if (!m_image) {
        RadianceImage image = loadEnvironmentImage(m_loaded->name);
        if (!image.isNull())
            m_image = makeImageTexture(std::move(image));
    }
    if (!m_program) {
        m_program = buildProgram({QStringLiteral("out_Background")}, screenQuadVertexSource, backgroundSource, nullptr,
            {QStringLiteral("EnvironmentLight.glslc"), QStringLiteral("KvzUtilities.glslc")});
    }
    ensureScreenQuad(m_screenQuad, *m_program);
    ensureFramebuffer(m_framebuffer);

    AutoBinder framebuffer(m_framebuffer.get());
    if (size != m_size)
        m_framebuffer->remakeTarget(GL_COLOR_ATTACHMENT0, GL_RGBA16F, size, GL_RGBA, GL_FLOAT);
    m_size = size;
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glViewport(0, 0, size.width(), size.height());
    AutoBinder program(m_program.get());
    AutoBinder environment(m_texture.get());
    AutoBinder image(m_image.get());
    const EnvironmentUniforms uniforms{
        FilteredEnvironment::levels, m_outputs[EnvironmentRotationOut].value.toFloat(), m_outputs[Irradiance].value};
    uniforms.set(*m_program, inputValue<QMatrix4x4>(m_inputs[CameraMatrix]));
    m_program->setUniform(QStringLiteral("u_EnvironmentSampler"), m_texture->unit());
    m_program->setUniform(QStringLiteral("u_ImageSampler"), m_image ? m_image->unit() : 0);
    m_program->setUniform(QStringLiteral("u_HasImage"), m_image != nullptr);
    m_program->setUniform(
        QStringLiteral("u_CameraFromClip"), inputValue<QMatrix4x4>(m_inputs[ProjectionMatrix]).inverted());
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
    publishTarget(m_outputs[Background], *m_framebuffer, GL_COLOR_ATTACHMENT0);
}

} // namespace Velmora::Kvz
