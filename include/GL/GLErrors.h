// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Takes all pending errors of GL and returns the gravest: GL_OUT_OF_MEMORY before all others, else the first one;
/// GL_NO_ERROR if there was none. Needs a current context.
KVZ_GL_EXPORT unsigned int takeGLErrors();

} // namespace Velmora::Kvz
