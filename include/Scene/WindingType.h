// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// Which winding of a triangle, seen on the screen, is its front.
enum WindingType {
    WindingClockwise = 0,
    WindingCounterClockwise = 1 ///< As models are built; what every pass asks for.
};

} // namespace Velmora::Kvz
