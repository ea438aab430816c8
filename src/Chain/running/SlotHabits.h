// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/running/SlotHabit.h>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

struct PassSlot;

/// The habits that a slot's class asks for: an input whose values are rounded to a grid, with an object for each; geometry
/// that an object keeps; limited room for fragments; random numbers that begin with its objects. The slot must outlive them.
std::vector<std::unique_ptr<SlotHabit>> habitsOf(PassSlot *slot);

} // namespace Velmora::Kvz
