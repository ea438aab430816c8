// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"

#include <QtCore/QByteArray>

namespace Velmora::Kvz {

/// Replaces what the driver says of itself while it lives.
class DriverClaims
{
public:
    /// `renderer` empty: its own name. `geometryVertices` 0: its own limit. `hiddenExtension` empty: all that it has.
    /// `stageUnits`: texture units of a stage, of which the claimed driver has three; 0: its own limits. Contexts made before
    /// keep the units that they count with.
    DriverClaims(
        const QByteArray &renderer, int geometryVertices, const QByteArray &hiddenExtension, int stageUnits = 0);

private:
    QByteArray m_renderer;
    QByteArray m_hiddenExtension;
    GLCallRecorder<&epoxy_glGetString> m_strings;
    GLCallRecorder<&epoxy_glGetStringi> m_extensions;
    GLCallRecorder<&epoxy_glGetIntegerv> m_integers;
};

/// How many samplers a program reads, in all its stages.
int activeSamplers(unsigned int program);

} // namespace Velmora::Kvz
