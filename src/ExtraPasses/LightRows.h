// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ShadowMapManager.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class BufferObject;
class ShaderProgram;
class Texture;

/// The lights and shadow map layers that ShadowedLights.glslc reads, as a buffer texture.
class LightRows
{
public:
    enum Strength {
        Relative, ///< Intensities count beside that of the strongest light, which is 1.
        Absolute
    };

    LightRows();
    ~LightRows();

    /// Brings lights and layers to camera space and uploads what has changed. Without data the lights have no layers.
    void upload(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data, const QMatrix4x4 &camera,
        Strength strength);
    /// Null before the first upload().
    Texture *texture() const { return m_texture.get(); }
    int lightCount() const { return m_lightCount; }

private:
    std::unique_ptr<Texture> m_texture; ///< Shows the buffer to the shader.
    QSharedPointer<BufferObject> m_buffer;
    QVector<float> m_rows; ///< What the buffer holds.
    int m_lightCount = 0;
};

} // namespace Velmora::Kvz
