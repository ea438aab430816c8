// SPDX-License-Identifier: MIT
#include <Scene/ModelPast.h>

#include "ModelPastPrivate.h"

namespace Velmora::Kvz {

ModelPast::ModelPast(int itemCount)
    : d(std::make_unique<Private>(itemCount))
{ }

ModelPast::~ModelPast() = default;

} // namespace Velmora::Kvz
