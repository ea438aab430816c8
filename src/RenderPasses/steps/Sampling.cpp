// SPDX-License-Identifier: MIT
#include "Sampling.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

void sampleLinearly(Texture *texture)
{
    AutoBinder binder(texture);
    glTexParameteri(texture->target(), GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(texture->target(), GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(texture->target(), GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(texture->target(), GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

} // namespace Velmora::Kvz
