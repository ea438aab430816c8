// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"

namespace Velmora::Kvz {

/// A multisampled texture with one image in sample 0 and another one in all other samples, which reveals readers that
/// average or that read another sample. `internalFormat` is a sized colour or depth format; depth images have one
/// channel.
std::unique_ptr<Texture> makeMultisampleTexture(
    const Image &first, const Image &others, int internalFormat, int samples);

/// Reads one sample of a multisampled colour texture.
Image readSample(const Texture *texture, int sample);

} // namespace Velmora::Kvz
