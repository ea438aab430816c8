// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"

namespace Velmora::Kvz {

/// A multisampled texture whose sample 0 has the texels of one image, and whose other samples those of another: a reader that
/// averages, or takes another sample, shows. `internalFormat` is a sized colour or depth format; depth images have one
/// channel.
std::unique_ptr<Texture> makeMultisampleTexture(
    const Image &first, const Image &others, int internalFormat, int samples);

/// Reads one sample of a multisampled colour texture.
Image readSample(const Texture *texture, int sample);

} // namespace Velmora::Kvz
