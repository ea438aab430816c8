// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS of the current context, asked once; 0 with none.
int textureUnitCount();

} // namespace Velmora::Kvz
