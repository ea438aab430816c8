// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

class Texture;

/// Gives a 2D texture linear filters and clamps it to its edges. It keeps both, also when it is another pass's.
void sampleLinearly(Texture *texture);

} // namespace Velmora::Kvz
