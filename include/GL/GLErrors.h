// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Takes the errors that GL has pending, and gives the gravest: GL_OUT_OF_MEMORY before all others, else the first;
/// GL_NO_ERROR when there was none. Needs a current context.
KVZ_GL_EXPORT unsigned int takeGLErrors();

} // namespace Velmora::Kvz
