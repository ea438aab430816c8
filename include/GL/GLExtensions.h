// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Whether the current context offers an extension; the prefix "GL_" of the name is optional. False for null, for an
/// unknown name, and without a current context.
KVZ_GL_EXPORT bool hasGLExtension(const char *name);

} // namespace Velmora::Kvz
