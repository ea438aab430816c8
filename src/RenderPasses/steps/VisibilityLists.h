// SPDX-License-Identifier: MIT
#pragma once

#include <GL/GLExtensions.h>

namespace Velmora::Kvz {

/// Whether the driver has what lists of several nodes for each pixel need.
inline bool supportsVisibilityLists()
{
    return hasGLExtension("ARB_shader_atomic_counters") && hasGLExtension("ARB_shader_image_load_store")
        && hasGLExtension("ARB_shading_language_420pack");
}

} // namespace Velmora::Kvz
