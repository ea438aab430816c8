// SPDX-License-Identifier: MIT
#pragma once

#include <GL/FramebufferObject.h>
#include <GL/Texture.h>

#include <memory>

namespace Velmora::Kvz {

/// What BlitTexture() keeps in a context: the two framebuffers through which it copies, and a target for resolving.
struct BlitResources
{
    FramebufferObject read;
    FramebufferObject draw;
    std::unique_ptr<Texture> resolved;
    int resolvedFormat = 0;
    int resolvedWidth = 0;
    int resolvedHeight = 0;
};

} // namespace Velmora::Kvz
