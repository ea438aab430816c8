// SPDX-License-Identifier: MIT
#pragma once

#include "LightRows.h"

#include <Core/NamedValue.h>

#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class RenderPassHelper;
class ShaderProgram;
class Texture;

/// What PhysicalShading.glslc reads of surroundings and lamps, as the last six inputs of a pass give it.
class PhysicalLight
{
public:
    explicit PhysicalLight(LightRows::Storage storage = LightRows::InTexture);
    ~PhysicalLight();

    /// Adds the six inputs to a pass under construction.
    static void addInputs(RenderPassHelper &pass);

    /// Reads the inputs from `first` on, and brings lamps to the space of a camera.
    void read(const QVector<NamedValue<QVariant>> &inputs, int first, const QMatrix4x4 &camera);
    /// Binds what was read and points a bound program at it, until unbind().
    void bind(ShaderProgram &program);
    void unbind();
    /// Gives the environment image back, whether it was read or not.
    static void release(const QVector<NamedValue<QVariant>> &inputs, int first);

private:
    LightRows m_lamps;
    std::unique_ptr<Texture> m_table; ///< For want of surroundings.
    Texture *m_environment = nullptr; ///< Of the frame.
    Texture *m_shadows = nullptr;
    bool m_hasSurroundings = false;
    QVariant m_irradiance;
    float m_rotation = 0;
    float m_lightBleedingReduction = 0;
    QMatrix4x4 m_camera;
};

} // namespace Velmora::Kvz
