// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"

#include <QtCore/QByteArray>

namespace Velmora::Kvz {

/// Replaces what the driver reports about itself while it lives.
class DriverClaims
{
public:
    /// Empty or 0 keeps the driver's own value. `hiddenExtension` is one that it no longer reports; `stageUnits` are
    /// texture units per stage, of which the claimed driver has three. Contexts made earlier keep their number of
    /// units.
    DriverClaims(
        const QByteArray &renderer, int geometryVertices, const QByteArray &hiddenExtension, int stageUnits = 0);

private:
    QByteArray m_renderer;
    QByteArray m_hiddenExtension;
    GLCallRecorder<&epoxy_glGetString> m_strings;
    GLCallRecorder<&epoxy_glGetStringi> m_extensions;
    GLCallRecorder<&epoxy_glGetIntegerv> m_integers;
};

/// The number of samplers that a program reads, over all its stages.
int activeSamplers(unsigned int program);

} // namespace Velmora::Kvz
