// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>
#include <GL/TextureFormat.h>

namespace Velmora::Kvz {

class Texture;

/// Copies `source` into the lower left `width` by `height` texels of `destination`, level 0 of both, resolving a
/// multisampled source. A source of another size is scaled, with linear filtering for colour.
///
/// `format` is what the destination holds: TextureFormat::DepthStencil copies depth and stencil, every other value
/// colour. Null textures are ignored, sizes below 1 copy nothing, a read-only destination is refused with one log line.
/// Framebuffer bindings, scissor and colour mask are restored.
KVZ_GL_EXPORT void BlitTexture(
    const Texture *source, const Texture *destination, TextureFormat format, int width, int height);

} // namespace Velmora::Kvz
