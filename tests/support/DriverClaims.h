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
    DriverClaims(const QByteArray &renderer, int geometryVertices, const QByteArray &hiddenExtension);

private:
    QByteArray m_renderer;
    QByteArray m_hiddenExtension;
    GLCallRecorder<&epoxy_glGetString> m_strings;
    GLCallRecorder<&epoxy_glGetStringi> m_extensions;
    GLCallRecorder<&epoxy_glGetIntegerv> m_integers;
};

} // namespace Velmora::Kvz
