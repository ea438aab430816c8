// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Sampler names whose texture unit is the same in every program: scene data and the images of materials.
///
/// The units count down from the last one that the driver offers, in the order in which the names were reserved, and are
/// never handed out to textures that passes bind. ShaderProgram::link() sets them.
class KVZ_GL_EXPORT FixedTextureUnits
{
public:
    /// Reserves a unit for a sampler name; a name that is reserved already keeps its unit. Programs linked earlier do not
    /// know it.
    static void reserve(const QString &sampler);
    /// The unit of a sampler in the current context, or -1 when the name is not reserved.
    static int unitOf(const QString &sampler);
    /// All reserved names, in the order of their units, from the last unit down.
    static QStringList samplers();
};

} // namespace Velmora::Kvz
