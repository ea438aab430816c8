// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>

#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class RenderPassHelper;
class ShaderProgram;

/// The lights of PlainShading.glslc, as the last three inputs of a pass that lights surfaces give them.
struct PlainLights
{
    float headlight = 0.85f;
    float ambient = 0.15f;
    bool isFixed = false;

    /// Reads the inputs from `first` on. A null value, and an intensity that is not finite, is the default; an intensity
    /// below 0 counts as 0.
    static PlainLights read(const QVector<NamedValue<QVariant>> &inputs, int first);
    void set(ShaderProgram &program) const;
};

/// Adds the three inputs to a pass under construction.
void addLightInputs(RenderPassHelper &pass);

} // namespace Velmora::Kvz
