// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ShadowMapManager.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class BufferObject;
class ShaderProgram;
class Texture;

/// Makes ShadowedLights.glslc read the rows from a uniform block.
inline const QString lightBlockMacro = QStringLiteral("KVZ_LIGHT_BLOCK");

/// The lights and shadow map layers that ShadowedLights.glslc reads.
class LightRows
{
public:
    enum Storage {
        InTexture, ///< A buffer texture, for any number of lights.
        InBlock ///< A uniform block, which takes no texture unit: for programs with lightBlockMacro. It has room for 1024 rows.
    };
    enum Strength {
        Relative, ///< Intensities count beside that of the strongest light, which is 1.
        Absolute
    };

    explicit LightRows(Storage storage = InTexture);
    ~LightRows();

    /// Brings lights and layers to camera space and uploads what has changed. Without data the lights have no layers.
    void upload(const QVector<ShadowMapLight *> &lights, const ShadowMapRenderData *data, const QMatrix4x4 &camera,
        Strength strength);
    /// Binds what was uploaded and points a bound program at it, until unbind().
    void bind(ShaderProgram &program);
    void unbind();

private:
    Storage m_storage;
    std::unique_ptr<Texture> m_texture; ///< Shows the buffer to the shader. Null in a block.
    QSharedPointer<BufferObject> m_buffer;
    QVector<float> m_rows; ///< What the buffer holds.
    int m_lightCount = 0;
    bool m_isOverfull = false;
};

} // namespace Velmora::Kvz
