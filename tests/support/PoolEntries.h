// SPDX-License-Identifier: MIT
#pragma once

#include <GL/TextureManager.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

/// The pool's entry for a texture name; `texture` is null if the pool does not have it.
inline TextureManager::PooledTexture poolEntry(GLint name)
{
    for (const TextureManager::PooledTexture &pooled : TextureManager::Instance()->pooledTextures()) {
        if (pooled.texture->textureID() == GLuint(name))
            return pooled;
    }
    return {};
}

/// The name of the texture attached to the draw framebuffer.
inline GLint attachedTexture(GLenum attachment)
{
    GLint name = 0;
    glGetFramebufferAttachmentParameteriv(
        GL_DRAW_FRAMEBUFFER, attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
    return name;
}

} // namespace Velmora::Kvz
