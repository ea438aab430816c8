// SPDX-License-Identifier: MIT
#pragma once

#include "FrameState.h"

namespace Velmora::Kvz {

/// Begins a frame in the current context.
KVZ_GL_EXPORT void enterFrame(FrameState *state, FrameState::Bindings bindings);
/// Ends it, and logs what went wrong in draws that were not checked one by one.
KVZ_GL_EXPORT void leaveFrame(FrameState *state);

} // namespace Velmora::Kvz
