// SPDX-License-Identifier: MIT
#include <GL/Bindable.h>

namespace Velmora::Kvz {

Bindable::~Bindable() = default;

} // namespace Velmora::Kvz
