// SPDX-License-Identifier: MIT
#include "LightRows.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

#include <QtCore/QtMath>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// The part of a cone's half angle over which a spot fades.
constexpr float fadingPart = 0.2f;

/// What the smallest block that a driver may have holds: 16 KiB.
constexpr int rowsOfBlock = 1024;
constexpr GLuint blockBinding = 0;

/// How many lights find room for themselves and for the layers of all lights up to them.
int lightsInBlock(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data)
{
    int layers = 0;
    for (int i = 0; i < lights.size(); ++i) {
        if (data && i < data->projectors.size())
            layers = std::max(layers, data->projectors[i].firstLayer + data->projectors[i].layerCount);
        if (5 * (i + 1) + 4 * layers > rowsOfBlock)
            return i;
    }
    return lights.size();
}

void append(QVector<float> &rows, const QVector3D &vector, float last)
{
    rows << vector.x() << vector.y() << vector.z() << last;
}

} // namespace

LightRows::LightRows(Storage storage)
    : m_storage(storage)
{ }

LightRows::~LightRows() = default;

void LightRows::upload(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data,
    const QMatrix4x4 &camera, Strength strength)
{
    m_lightCount = m_storage == InBlock ? lightsInBlock(lights, data) : lights.size();
    const bool isOverfull = m_lightCount < lights.size();
    if (isOverfull && !m_isOverfull) {
        KVZ_WARNING(
            QStringLiteral("Of %1 lights the first %2 light transparent surfaces: a uniform block has no room for more")
                .arg(lights.size())
                .arg(m_lightCount));
    }
    m_isOverfull = isOverfull;
    float strongest = strength == Absolute ? 1 : 0;
    for (const ShadowMapLight *light : lights)
        strongest = strength == Absolute ? 1 : std::max(strongest, ShadowMapManager::valuesOf(*light).intensity);

    QVector<float> rows;
    for (int i = 0; i < m_lightCount; ++i) {
        const ShadowMapManager::LightValues light = ShadowMapManager::valuesOf(*lights[i]);
        const bool hasLayers = data && i < data->projectors.size();
        const auto projector = hasLayers ? data->projectors[i] : ShadowMapRenderData::ProjectorInfo();
        const float halfAngle = qDegreesToRadians(light.coneAngle) / 2;
        append(rows, camera * light.position, float(light.type));
        append(rows, camera.mapVector(light.direction).normalized(), strongest > 0 ? light.intensity / strongest : 0);
        rows << light.range << std::cos(halfAngle) << std::cos((1 - fadingPart) * halfAngle)
             << (lights[i]->isPartOfEnvironment ? 1 : 0);
        rows << float(projector.firstLayer) << float(projector.layerCount) << 0 << 0;
        append(rows, light.intensity * light.colour, 0);
    }
    const QMatrix4x4 toWorld = camera.inverted();
    for (int layer = 0; data && layer < data->transforms.size(); ++layer) {
        if (m_storage == InBlock && rows.size() + 16 > 4 * rowsOfBlock)
            break; // of lights that are left out
        const QMatrix4x4 toLayer = QMatrix4x4(data->transforms[layer].matrix).transposed() * toWorld;
        for (int row = 0; row < 4; ++row)
            rows << toLayer(row, 0) << toLayer(row, 1) << toLayer(row, 2) << toLayer(row, 3);
    }
    if (rows.isEmpty())
        rows.fill(0, 4);

    if (m_storage == InBlock)
        rows.resize(4 * rowsOfBlock);
    if (!m_buffer) {
        m_buffer = OpenGLDeviceContext::current()->createBufferObject();
        m_buffer->setTarget(m_storage == InBlock ? GL_UNIFORM_BUFFER : GL_TEXTURE_BUFFER);
        m_rows.clear();
    }
    if (rows == m_rows)
        return;
    m_rows = rows;
    m_buffer->upload(rows.constData(), rows.size(), GL_DYNAMIC_DRAW);
    if (m_storage == InBlock)
        return;
    if (!m_texture) {
        m_texture = std::make_unique<Texture>(nullptr);
        m_texture->setTarget(GL_TEXTURE_BUFFER);
    }
    AutoBinder binder(m_texture.get());
    glTexBuffer(GL_TEXTURE_BUFFER, GL_RGBA32F, m_buffer->getBO());
}

void LightRows::bind(ShaderProgram &program)
{
    if (m_storage == InTexture) {
        m_texture->bind();
        program.setUniform(QStringLiteral("u_LightSampler"), m_texture->unit());
    } else {
        const GLuint block = glGetUniformBlockIndex(program.programID(), "kvz_LightBlock");
        if (block != GL_INVALID_INDEX)
            glUniformBlockBinding(program.programID(), block, blockBinding);
        glBindBufferBase(GL_UNIFORM_BUFFER, blockBinding, m_buffer->getBO());
    }
    program.setUniform(QStringLiteral("u_LightCount"), m_lightCount);
}

void LightRows::unbind()
{
    if (m_storage == InTexture)
        m_texture->unbind();
    else
        glBindBufferBase(GL_UNIFORM_BUFFER, blockBinding, 0);
}

} // namespace Velmora::Kvz
