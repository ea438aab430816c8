// SPDX-License-Identifier: MIT
#include <GL/FramebufferObject.h>

#include "CurrentContext.h"
#include "FrameState.h"
#include "GLStatisticsPrivate.h"

#include <Core/Log.h>
#include <GL/InternalFormat.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

bool isLayered(GLenum target)
{
    return target == GL_TEXTURE_2D_ARRAY || target == GL_TEXTURE_3D || target == GL_TEXTURE_1D_ARRAY
        || target == GL_TEXTURE_2D_MULTISAMPLE_ARRAY || target == GL_TEXTURE_CUBE_MAP_ARRAY;
}

} // namespace

FramebufferObject::FramebufferObject(QObject *parent)
    : QObject(parent),
      m_owner(GLObject::Sharing::OneContext)
{ }

FramebufferObject::~FramebufferObject()
{
    if (!m_name || m_wrapped)
        return;
    if (m_owner.isKnownToCurrentContext())
        glDeleteFramebuffers(1, &m_name);
    --liveNames().framebuffers;
}

FramebufferObject *FramebufferObject::wrap(unsigned int name, QObject *parent)
{
    auto *framebuffer = new FramebufferObject(parent);
    framebuffer->m_wrapped = true;
    framebuffer->m_name = name;
    framebuffer->m_owner.claim();
    return framebuffer;
}

void FramebufferObject::bind()
{
    Binding binding{0, 0, QSize()};
    glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &binding.previousRead);
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &binding.previousDraw);
    m_bindings.append(binding);
    glBindFramebuffer(GL_FRAMEBUFFER, getFBO());
}

void FramebufferObject::unbind()
{
    const Binding binding = m_bindings.isEmpty() ? Binding{0, 0, QSize()} : m_bindings.last();
    if (!m_bindings.isEmpty())
        m_bindings.removeLast();
    glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(binding.previousRead));
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(binding.previousDraw));
}

void FramebufferObject::attach(Texture *texture, unsigned int attachment, int level)
{
    attachAs(Kind::Level, texture, attachment, 0, level);
    if (texture && attachment == GL_COLOR_ATTACHMENT0 && this->attachment(attachment) == texture
        && !m_bindings.isEmpty())
        m_bindings.last().viewport = QSize(texture->width(level), texture->height(level));
}

void FramebufferObject::attach3D(Texture *texture, unsigned int attachment, int layer, int level)
{
    attachAs(Kind::Layer, texture, attachment, layer, level);
}

void FramebufferObject::attachLayers(Texture *texture, unsigned int attachment, int level)
{
    attachAs(Kind::Layers, texture, attachment, 0, level);
}

void FramebufferObject::attachAs(Kind kind, Texture *texture, unsigned int attachment, int layer, int level)
{
    if (!texture) {
        detach(attachment);
        return;
    }
    if (texture->isReadOnly()) {
        KVZ_WARNING(QStringLiteral("A read-only texture cannot be attached to a framebuffer; copy it first"));
        return;
    }
    const GLuint name = texture->textureID();
    const GLenum target = texture->target();
    GLenum point = attachment;
    if (attachment == GL_DEPTH_STENCIL_ATTACHMENT && !hasStencil(GLenum(texture->internalFormat(level)))) {
        // What stood there before may have had stencil, which must not stay behind.
        glFramebufferTexture(GL_FRAMEBUFFER, GL_DEPTH_STENCIL_ATTACHMENT, 0, 0);
        point = GL_DEPTH_ATTACHMENT;
    }
    if (kind == Kind::Layers)
        glFramebufferTexture(GL_FRAMEBUFFER, point, name, level);
    else if (target == GL_TEXTURE_CUBE_MAP)
        glFramebufferTexture2D(GL_FRAMEBUFFER, point, GL_TEXTURE_CUBE_MAP_POSITIVE_X + GLenum(layer), name, level);
    else if (isLayered(target))
        glFramebufferTextureLayer(GL_FRAMEBUFFER, point, name, level, layer);
    else
        glFramebufferTexture2D(GL_FRAMEBUFFER, point, target, name, level);
    // A texture known under another name at the same point is no longer there.
    for (auto it = m_attachments.begin(); it != m_attachments.end();)
        it = it->point == point ? m_attachments.erase(it) : std::next(it);
    m_attachments.insert(attachment, {texture, point});
}

Texture *FramebufferObject::attachment(unsigned int attachment) const
{
    return m_attachments.value(attachment).texture;
}

bool FramebufferObject::hasAttachment(unsigned int attachment) const
{
    return this->attachment(attachment) != nullptr;
}

Texture *FramebufferObject::detach(unsigned int attachment)
{
    const auto found = m_attachments.find(attachment);
    if (found == m_attachments.end())
        return nullptr;
    Texture *const texture = found->texture;
    const GLenum point = found->point;
    m_attachments.erase(found);
    // With no context, or a foreign one, there is nothing to tell GL.
    if (m_name && m_owner.isKnownToCurrentContext()) {
        GLint bound = 0;
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &bound);
        if (GLuint(bound) != m_name)
            glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_name);
        glFramebufferTexture(GL_DRAW_FRAMEBUFFER, point, 0, 0);
        if (GLuint(bound) != m_name)
            glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(bound));
    }
    return texture;
}

void FramebufferObject::detachAll()
{
    const QList<unsigned int> attachments = m_attachments.keys();
    for (unsigned int attachment : attachments)
        detach(attachment);
}

void FramebufferObject::setDrawBuffers()
{
    GLenum buffers[16];
    GLsizei count = 0;
    for (auto it = m_attachments.constBegin(); it != m_attachments.constEnd() && count < 16; ++it) {
        if (it.key() >= GL_COLOR_ATTACHMENT0 && it.key() < GL_COLOR_ATTACHMENT0 + 32 && it->texture)
            buffers[count++] = it.key();
    }
    if (count == 0)
        buffers[count++] = GL_NONE;
    if (!m_wrapped) {
        glDrawBuffers(count, buffers);
        // Before OpenGL 4.1 a framebuffer that reads from a colour it lacks is incomplete.
        glReadBuffer(buffers[0]);
    }
    if (m_bindings.isEmpty() || !m_bindings.last().viewport.isValid())
        return;
    QSize &viewport = m_bindings.last().viewport;
    glViewport(0, 0, viewport.width(), viewport.height());
    viewport = QSize();
}

unsigned int FramebufferObject::getFBO() const
{
    // Who has the name can change what is attached, unnoticed outside of frames.
    FrameState *const frame = FrameState::active();
    if (frame && m_wrapped)
        frame->noteForeign(m_name);
    else if (!frame)
        FrameState::objectsChanged();
    if (!m_name && !m_wrapped && currentContextHandle()) {
        glGenFramebuffers(1, &m_name);
        m_owner.claim();
        ++liveNames().framebuffers;
    }
    return m_name;
}

} // namespace Velmora::Kvz
