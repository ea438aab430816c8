// SPDX-License-Identifier: MIT
#pragma once

#include "SmaaTables.h"

namespace Velmora::Kvz {

/// SmaaTables::area() and SmaaTables::search(), worked out while the library was built.
extern const unsigned char smaaAreaTable[2 * SmaaTables::areaWidth * SmaaTables::areaHeight];
extern const unsigned char smaaSearchTable[SmaaTables::searchWidth * SmaaTables::searchHeight];

} // namespace Velmora::Kvz
