// SPDX-License-Identifier: MIT
#include "OwnedTarget.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/Texture.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

Texture *remakeTarget(FramebufferObject *framebuffer, unsigned int attachment, int internalFormat, const QSize &size,
    unsigned int format, unsigned int type)
{
    deleteTarget(framebuffer, attachment);
    auto *target = new Texture(GL_TEXTURE_2D, internalFormat, size.width(), size.height(), 0, nullptr);
    AutoBinder binder(target);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, size.width(), size.height(), 0, format, type, nullptr);
    framebuffer->attach(target, attachment, 0);
    return target;
}

void deleteTarget(FramebufferObject *framebuffer, unsigned int attachment)
{
    if (framebuffer->hasAttachment(attachment))
        delete framebuffer->detach(attachment);
}

} // namespace Velmora::Kvz
