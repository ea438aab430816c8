// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace Velmora::Kvz {

/// Takes ownership of `object`, which can be null, without deleting what was owned before: others may still use that.
template <typename T> void replaceUndeleted(std::unique_ptr<T> &owner, T *object)
{
    static_cast<void>(owner.release());
    owner.reset(object);
}

} // namespace Velmora::Kvz
