// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

namespace Velmora::Kvz {

/// Sends the messages of the driver of the current context to the log under the category "kvz.gl", each as it arises: high severity as
/// critical, medium as warning, the rest and the remarks of shader compilers as debug. Call it once for each context, such as in
/// QOpenGLWidget::initializeGL(), and request a debug context (QSurfaceFormat::DebugContext): others need not have any messages.
/// It replaces a callback that the context had. False, with nothing changed, without a context and without KHR_debug or OpenGL 4.3.
/// A debug context of HeadlessContext does so by itself.
KVZ_HOST_EXPORT bool logDriverMessages();

} // namespace Velmora::Kvz
