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
    attachTarget(framebuffer, attachment, target, internalFormat, size, format, type);
    return target;
}

void attachTarget(FramebufferObject *framebuffer, unsigned int attachment, Texture *target, int internalFormat,
    const QSize &size, unsigned int format, unsigned int type)
{
    AutoBinder binder(target);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, size.width(), size.height(), 0, format, type, nullptr);
    framebuffer->attach(target, attachment, 0);
}

void deleteTarget(FramebufferObject *framebuffer, unsigned int attachment)
{
    if (framebuffer->hasAttachment(attachment))
        delete framebuffer->detach(attachment);
}

void publishTarget(NamedValue<QVariant> &output, const FramebufferObject *framebuffer, unsigned int attachment)
{
    output.value = QVariant::fromValue(framebuffer->attachment(attachment));
}

} // namespace Velmora::Kvz
