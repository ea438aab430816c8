// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// The handle of the current context, by which contexts are told apart: a QOpenGLContext, or else the native EGL or GLX
/// context. Null when none is current.
void *currentContextHandle();

} // namespace Velmora::Kvz
