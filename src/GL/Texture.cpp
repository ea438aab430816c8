// SPDX-License-Identifier: MIT
#include <GL/Texture.h>

#include "CurrentContext.h"
#include "FrameState.h"
#include "GLStatisticsPrivate.h"
#include "TextureUnitAllocator.h"

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// The query for what the active unit has bound at a texture target.
GLenum bindingQuery(GLenum target)
{
    switch (target) {
    case GL_TEXTURE_1D:
        return GL_TEXTURE_BINDING_1D;
    case GL_TEXTURE_3D:
        return GL_TEXTURE_BINDING_3D;
    case GL_TEXTURE_1D_ARRAY:
        return GL_TEXTURE_BINDING_1D_ARRAY;
    case GL_TEXTURE_2D_ARRAY:
        return GL_TEXTURE_BINDING_2D_ARRAY;
    case GL_TEXTURE_CUBE_MAP:
        return GL_TEXTURE_BINDING_CUBE_MAP;
    case GL_TEXTURE_CUBE_MAP_ARRAY:
        return GL_TEXTURE_BINDING_CUBE_MAP_ARRAY;
    case GL_TEXTURE_BUFFER:
        return GL_TEXTURE_BINDING_BUFFER;
    case GL_TEXTURE_2D_MULTISAMPLE:
        return GL_TEXTURE_BINDING_2D_MULTISAMPLE;
    case GL_TEXTURE_2D_MULTISAMPLE_ARRAY:
        return GL_TEXTURE_BINDING_2D_MULTISAMPLE_ARRAY;
    case GL_TEXTURE_RECTANGLE:
        return GL_TEXTURE_BINDING_RECTANGLE;
    default:
        return GL_TEXTURE_BINDING_2D;
    }
}

GLint boundAt(GLenum target)
{
    GLint name = 0;
    glGetIntegerv(bindingQuery(target), &name);
    return name;
}

/// Whether GL may be asked for a level at all.
bool canHaveLevel(GLenum target, int level)
{
    if (level == 0)
        return target != GL_TEXTURE_BUFFER;
    const bool hasOneLevel = target == GL_TEXTURE_BUFFER || target == GL_TEXTURE_RECTANGLE
        || target == GL_TEXTURE_2D_MULTISAMPLE || target == GL_TEXTURE_2D_MULTISAMPLE_ARRAY;
    GLint maximumSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maximumSize);
    return !hasOneLevel && level > 0 && level < 31 && 1 << level <= maximumSize;
}

} // namespace

Texture::Texture(QObject *parent)
    : QObject(parent),
      m_target(GL_TEXTURE_2D),
      m_owner(GLObject::Sharing::ShareGroup)
{ }

Texture::Texture(unsigned int target, int internalFormat, int width, int height, int depth, QObject *parent)
    : QObject(parent),
      m_target(target),
      m_owner(GLObject::Sharing::ShareGroup)
{
    setSize(0, internalFormat, width, height, depth);
}

Texture::~Texture()
{
    if (!m_name)
        return;
    if (m_owner.isKnownToCurrentContext()) {
        glDeleteTextures(1, &m_name);
        if (m_unit)
            TextureUnitAllocator::release(m_unit);
    }
    --liveNames().textures;
}

void Texture::setTarget(unsigned int target)
{
    if (!m_name)
        m_target = target;
}

void Texture::setSize(int level, int internalFormat, int width, int height, int depth)
{
    m_levels.insert(level, {internalFormat, width, height, depth});
}

void Texture::setReadOnly()
{
    m_readOnly = true;
}

bool Texture::isReadOnly() const
{
    return m_readOnly;
}

unsigned int Texture::target() const
{
    return m_target;
}

int Texture::unit() const
{
    return m_unit;
}

unsigned int Texture::textureID() const
{
    // Who has the name can give it another storage, unnoticed outside of frames.
    if (!FrameState::active())
        m_stored.clear();
    if (!m_name && currentContextHandle()) {
        glGenTextures(1, &m_name);
        m_owner.claim();
        ++liveNames().textures;
        // A name becomes a texture of its target when it is bound first.
        const GLint previous = boundAt(m_target);
        glBindTexture(m_target, m_name);
        glBindTexture(m_target, GLuint(previous));
    }
    return m_name;
}

int Texture::levelParameter(int level, unsigned int parameter) const
{
    if (!m_name || !m_owner.isKnownToCurrentContext() || !canHaveLevel(m_target, level))
        return 0;
    const bool isInFrame = FrameState::active();
    if (isInFrame && m_storedRevision == FrameState::objectRevision()) {
        const auto known = m_stored.constFind({level, parameter});
        if (known != m_stored.constEnd())
            return *known;
    }
    const GLenum target = m_target == GL_TEXTURE_CUBE_MAP ? GL_TEXTURE_CUBE_MAP_POSITIVE_X : m_target;
    const GLint previous = boundAt(m_target);
    GLint value = 0;
    glBindTexture(m_target, m_name);
    glGetTexLevelParameteriv(target, level, parameter, &value);
    glBindTexture(m_target, GLuint(previous));
    if (isInFrame) {
        if (m_storedRevision != FrameState::objectRevision())
            m_stored.clear();
        m_storedRevision = FrameState::objectRevision();
        m_stored.insert({level, parameter}, value);
    }
    return value;
}

bool Texture::isStoredAs(unsigned int internalFormat, int width, int height) const
{
    return levelParameter(0, GL_TEXTURE_WIDTH) == width && levelParameter(0, GL_TEXTURE_HEIGHT) == height
        && unsigned(levelParameter(0, GL_TEXTURE_INTERNAL_FORMAT)) == internalFormat;
}

int Texture::width(int level) const
{
    const int stored = levelParameter(level, GL_TEXTURE_WIDTH);
    return stored ? stored : m_levels.value(level).width;
}

int Texture::height(int level) const
{
    const int stored = levelParameter(level, GL_TEXTURE_HEIGHT);
    return stored ? stored : m_levels.value(level).height;
}

int Texture::internalFormat(int level) const
{
    const int recorded = m_levels.value(level).internalFormat;
    return recorded ? recorded : levelParameter(level, GL_TEXTURE_INTERNAL_FORMAT);
}

int Texture::samples() const
{
    const bool multisampled = m_target == GL_TEXTURE_2D_MULTISAMPLE || m_target == GL_TEXTURE_2D_MULTISAMPLE_ARRAY;
    return multisampled ? qMax(1, levelParameter(0, GL_TEXTURE_SAMPLES)) : 1;
}

void Texture::bind()
{
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    if (!m_unit)
        m_unit = TextureUnitAllocator::acquire();
    const GLuint name = textureID();
    glActiveTexture(GL_TEXTURE0 + GLenum(m_unit));
    const GLint previous = boundAt(m_target);
    m_saved.append({active, previous});
    glBindTexture(m_target, name);
}

void Texture::unbind()
{
    if (m_saved.isEmpty())
        return;
    const SavedBinding saved = m_saved.last();
    m_saved.removeLast();
    glActiveTexture(GL_TEXTURE0 + GLenum(m_unit));
    glBindTexture(m_target, GLuint(saved.texture));
    glActiveTexture(GLenum(saved.activeTexture));
    if (m_saved.isEmpty()) {
        TextureUnitAllocator::release(m_unit);
        m_unit = 0;
    }
}

} // namespace Velmora::Kvz
