// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Host/PassRegistry.h>

#include <QtGui/QImage>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

class Texture;

/// Reads level 0 of a texture back as a picture, top row first, of format Format_RGBA8888 (straight alpha as the texels
/// hold it). Several samples for each texel are resolved, of depth too. `projection` is the one that wrote a depth image;
/// depth counts as it is when it is the identity.
///
/// Null for a null texture, `TextureDisplay::Hidden`, an empty texture, a target that is neither 2D nor 2D multisampled, and
/// where there is no memory. Needs a current context; bindings come back as they were.
KVZ_HOST_EXPORT QImage captureTexture(
    Texture *texture, TextureDisplay display, const QMatrix4x4 &projection = QMatrix4x4());

} // namespace Velmora::Kvz
