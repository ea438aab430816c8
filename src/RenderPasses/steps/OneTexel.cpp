// SPDX-License-Identifier: MIT
#include "OneTexel.h"

#include <GL/AutoBinder.h>
#include <GL/TextureManager.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

Texture *takeBlackTexel(unsigned int format)
{
    const unsigned char black[4] = {};
    Texture *const texture = TextureManager::Instance()->tempTexture(TextureFormat::HighDynamicRange, 1, 1, 1, 1);
    AutoBinder binder(texture);
    glTexImage2D(texture->target(), 0, GLint(format), 1, 1, 0, format, GL_UNSIGNED_BYTE, black);
    return texture;
}

std::unique_ptr<Texture> makeOneTexel(unsigned char value)
{
    const unsigned char texel[4] = {value, value, value, value};
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA, 1, 1, 0, nullptr);
    AutoBinder binder(texture.get());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_BGRA, GL_UNSIGNED_BYTE, texel);
    return texture;
}

} // namespace Velmora::Kvz
