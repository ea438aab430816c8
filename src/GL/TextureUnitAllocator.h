// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// Hands out the texture units of the current context, from 1 up to those that FixedTextureUnits keeps.
class TextureUnitAllocator
{
public:
    /// A free unit; needs a current context. When none is free, one log line and the last unit that is not kept.
    static int acquire();
    /// Gives a unit back. One that was not handed out in the current context is ignored.
    static void release(int unit);
};

} // namespace Velmora::Kvz
