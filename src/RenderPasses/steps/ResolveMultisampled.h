// SPDX-License-Identifier: MIT
#pragma once

#include <GL/TextureFormat.h>

#include <QtCore/QSize>

namespace Velmora::Kvz {

class Texture;

/// Whether an input, which must not be null, has more than one sample for each texel, so that no sampler2D can read it.
bool isMultisampled(const Texture *texture);

/// A single-sampled copy of an input, taken from the pool, of the given size in texels. It stands in the input's place: the
/// pass's use of the input is given back here, and the copy is given back where the input would have been.
Texture *resolveMultisampled(Texture *texture, TextureFormat format, const QSize &size);

} // namespace Velmora::Kvz
