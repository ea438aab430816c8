// SPDX-License-Identifier: MIT
#include "BlackTexel.h"

#include <GL/AutoBinder.h>
#include <GL/TextureManager.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

constexpr unsigned char black[4] = {0, 0, 0, 0};

} // namespace

Texture *takeBlackTexel(unsigned int format)
{
    Texture *const texture = TextureManager::Instance()->tempTexture(TextureFormat::HighDynamicRange, 1, 1, 1, 1);
    AutoBinder binder(texture);
    glTexImage2D(texture->target(), 0, GLint(format), 1, 1, 0, format, GL_UNSIGNED_BYTE, black);
    return texture;
}

Texture *makeBlackTexture()
{
    auto *texture = new Texture(GL_TEXTURE_2D, GL_RGBA, 1, 1, 0, nullptr);
    AutoBinder binder(texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_BGRA, GL_UNSIGNED_BYTE, black);
    return texture;
}

} // namespace Velmora::Kvz
