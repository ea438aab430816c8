// SPDX-License-Identifier: MIT
#include "LightRows.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/Texture.h>

#include <QtCore/QtMath>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// The part of a cone's half angle over which a spot fades.
constexpr float fadingPart = 0.2f;

void append(QVector<float> &rows, const QVector3D &vector, float last)
{
    rows << vector.x() << vector.y() << vector.z() << last;
}

} // namespace

LightRows::LightRows() = default;

LightRows::~LightRows() = default;

void LightRows::upload(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data,
    const QMatrix4x4 &camera, Strength strength)
{
    m_lightCount = lights.size();
    float strongest = strength == Absolute ? 1 : 0;
    for (const ShadowMapLight *light : lights)
        strongest = strength == Absolute ? 1 : std::max(strongest, ShadowMapManager::valuesOf(*light).intensity);

    QVector<float> rows;
    for (int i = 0; i < lights.size(); ++i) {
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
        const QMatrix4x4 toLayer = QMatrix4x4(data->transforms[layer].matrix).transposed() * toWorld;
        for (int row = 0; row < 4; ++row)
            rows << toLayer(row, 0) << toLayer(row, 1) << toLayer(row, 2) << toLayer(row, 3);
    }
    if (rows.isEmpty())
        rows.fill(0, 4);

    if (!m_texture) {
        m_buffer = OpenGLDeviceContext::current()->createBufferObject();
        m_buffer->setTarget(GL_TEXTURE_BUFFER);
        m_texture = std::make_unique<Texture>(nullptr);
        m_texture->setTarget(GL_TEXTURE_BUFFER);
        m_rows.clear();
    }
    if (rows == m_rows)
        return;
    m_rows = rows;
    m_buffer->upload(rows.constData(), rows.size(), GL_DYNAMIC_DRAW);
    AutoBinder binder(m_texture.get());
    glTexBuffer(GL_TEXTURE_BUFFER, GL_RGBA32F, m_buffer->getBO());
}

} // namespace Velmora::Kvz
