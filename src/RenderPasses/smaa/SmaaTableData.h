// SPDX-License-Identifier: MIT
#pragma once

#include "SmaaTables.h"

namespace Velmora::Kvz {

/// SmaaTables::area() and SmaaTables::search(), computed while the library is built.
extern const unsigned char smaaAreaTable[2 * SmaaTables::areaWidth * SmaaTables::areaHeight];
extern const unsigned char smaaSearchTable[SmaaTables::searchWidth * SmaaTables::searchHeight];

} // namespace Velmora::Kvz
