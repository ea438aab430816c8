// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace Velmora::Kvz {

class Texture;

/// One black texel from the pool, in place of an input image that is null: opaque with GL_RGB as `format`, transparent
/// with GL_RGBA. It is given back where the input would have been.
Texture *takeBlackTexel(unsigned int format);

/// A texture of one GL_RGBA texel with nearest filters. `value`, from 0 to 255, is that of all four channels.
std::unique_ptr<Texture> makeOneTexel(unsigned char value);

} // namespace Velmora::Kvz
