// SPDX-License-Identifier: MIT
#include "TargetFramebuffer.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

TargetFramebuffer::TargetFramebuffer(QObject *parent)
    : FramebufferObject(parent)
{ }

TargetFramebuffer::~TargetFramebuffer()
{
    for (const unsigned int attachment : qAsConst(m_owned))
        deleteTarget(attachment);
}

Texture *TargetFramebuffer::remakeTarget(
    unsigned int attachment, int internalFormat, const QSize &size, unsigned int format, unsigned int type)
{
    auto target = std::make_unique<Texture>(GL_TEXTURE_2D, internalFormat, size.width(), size.height(), 0, nullptr);
    Texture *const texture = target.get();
    replaceTarget(attachment, std::move(target), internalFormat, size, format, type);
    return texture;
}

void TargetFramebuffer::replaceTarget(unsigned int attachment, std::unique_ptr<Texture> target, int internalFormat,
    const QSize &size, unsigned int format, unsigned int type)
{
    if (m_owned.contains(attachment))
        deleteTarget(attachment);
    else
        m_owned.append(attachment);

    AutoBinder binder(target.get());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, size.width(), size.height(), 0, format, type, nullptr);
    attach(target.release(), attachment, 0);
}

void TargetFramebuffer::remakeDepthTarget(const QSize &size)
{
    remakeTarget(GL_DEPTH_ATTACHMENT, GL_DEPTH_COMPONENT32F, size, GL_DEPTH_COMPONENT, GL_FLOAT);
}

void TargetFramebuffer::deleteTarget(unsigned int attachment)
{
    if (hasAttachment(attachment))
        delete detach(attachment);
}

bool ensureFramebuffer(std::unique_ptr<TargetFramebuffer> &framebuffer)
{
    if (framebuffer)
        return false;
    framebuffer = std::make_unique<TargetFramebuffer>();
    return true;
}

void publishTarget(NamedValue<QVariant> &output, const FramebufferObject &framebuffer, unsigned int attachment)
{
    output.value = QVariant::fromValue(framebuffer.attachment(attachment));
}

} // namespace Velmora::Kvz
