// SPDX-License-Identifier: MIT
#pragma once

#include <GL/TextureManager.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

/// What the pool knows of the texture with a name of GL; its `texture` is null where the pool has none.
inline TextureManager::PooledTexture poolEntry(GLint name)
{
    for (const TextureManager::PooledTexture &pooled : TextureManager::Instance()->pooledTextures()) {
        if (pooled.texture->textureID() == GLuint(name))
            return pooled;
    }
    return {};
}

/// The name of the texture at an attachment of the framebuffer that is drawn to.
inline GLint attachedTexture(GLenum attachment)
{
    GLint name = 0;
    glGetFramebufferAttachmentParameteriv(
        GL_DRAW_FRAMEBUFFER, attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
    return name;
}

} // namespace Velmora::Kvz
