// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Whether the current context offers an extension. The name may stand with or without the prefix "GL_". False for null,
/// for an unknown name, and with no current context.
KVZ_GL_EXPORT bool hasGLExtension(const char *name);

} // namespace Velmora::Kvz
