// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"

namespace Velmora::Kvz {

/// One sample of each texel of a multisampled 2D texture, of colour or of depth (in red).
Image readSample(Texture *texture, int sample);

} // namespace Velmora::Kvz
