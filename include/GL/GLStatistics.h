// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// How many GL names the objects of this library hold at present, over all contexts.
struct GLObjectCounts
{
    int textures = 0;
    int framebuffers = 0;
    int programs = 0;
    int buffers = 0;
    int vertexArrays = 0;

    bool operator==(const GLObjectCounts &other) const
    {
        return textures == other.textures && framebuffers == other.framebuffers && programs == other.programs
            && buffers == other.buffers && vertexArrays == other.vertexArrays;
    }
};

/// The counts now. A name that was dropped because its context was not current counts as gone.
KVZ_GL_EXPORT GLObjectCounts glObjectCounts();

} // namespace Velmora::Kvz
