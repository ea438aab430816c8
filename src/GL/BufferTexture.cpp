// SPDX-License-Identifier: MIT
#include <GL/BufferTexture.h>

#include <GL/FixedTextureUnits.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

BufferTexture::BufferTexture(const QString &sampler, unsigned int internalFormat)
    : m_sampler(sampler),
      m_content(QSharedPointer<Content>::create())
{
    FixedTextureUnits::reserve(sampler);
    m_content->internalFormat = internalFormat;
    m_content->texture.setTarget(GL_TEXTURE_BUFFER);
}

BufferTexture::BufferTexture(const QString &sampler, const BufferTexture &content)
    : m_sampler(sampler),
      m_content(content.m_content)
{
    FixedTextureUnits::reserve(sampler);
}

BufferTexture::~BufferTexture() = default;

void BufferTexture::upload(const void *data, long size)
{
    static constexpr float zeroTexel[4] = {};
    if (size > 0)
        m_content->buffer.uploadBytes(data, size, GL_DYNAMIC_DRAW);
    else
        m_content->buffer.uploadBytes(zeroTexel, sizeof(zeroTexel), GL_DYNAMIC_DRAW);
}

void BufferTexture::uploadRange(const void *data, long offset, long size)
{
    m_content->buffer.uploadRange(data, offset, size);
}

BufferObject *BufferTexture::buffer()
{
    return &m_content->buffer;
}

long BufferTexture::size() const
{
    return m_content->buffer.size();
}

void BufferTexture::bind()
{
    if (m_content->buffer.size() == 0)
        upload(nullptr, 0);
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    glActiveTexture(GL_TEXTURE0 + FixedTextureUnits::unitOf(m_sampler));
    GLint previous = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_BUFFER, &previous);
    m_saved.append(previous);
    glBindTexture(GL_TEXTURE_BUFFER, m_content->texture.textureID());
    if (!m_content->attached) {
        glTexBuffer(GL_TEXTURE_BUFFER, m_content->internalFormat, m_content->buffer.getBO());
        m_content->attached = true;
    }
    glActiveTexture(GLenum(active));
}

void BufferTexture::unbind()
{
    const int previous = m_saved.isEmpty() ? 0 : m_saved.last();
    if (!m_saved.isEmpty())
        m_saved.removeLast();
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    glActiveTexture(GL_TEXTURE0 + FixedTextureUnits::unitOf(m_sampler));
    glBindTexture(GL_TEXTURE_BUFFER, GLuint(previous));
    glActiveTexture(GLenum(active));
}

int BufferTexture::maximumTexels()
{
    GLint texels = 0;
    glGetIntegerv(GL_MAX_TEXTURE_BUFFER_SIZE, &texels);
    return texels;
}

} // namespace Velmora::Kvz
