// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// What an image holds.
enum class ImageUse {
    Colour, ///< Colours, as screens show them.
    Data ///< Numbers.
};

} // namespace Velmora::Kvz
