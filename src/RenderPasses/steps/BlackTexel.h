// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

class Texture;

/// One black texel from the pool, in the place of an input image that is null: opaque with GL_RGB as `format`, transparent
/// with GL_RGBA. It is given back where the input would have been.
Texture *takeBlackTexel(unsigned int format);

/// A texture of the caller's with one transparent black texel and nearest filters.
Texture *makeBlackTexture();

} // namespace Velmora::Kvz
