// SPDX-License-Identifier: MIT
#include "Sampling.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

void setFilters(GLenum target, GLint min, GLint mag)
{
    glTexParameteri(target, GL_TEXTURE_MIN_FILTER, min);
    glTexParameteri(target, GL_TEXTURE_MAG_FILTER, mag);
}

} // namespace

void sampleLinearly(Texture *texture)
{
    AutoBinder binder(texture);
    setFilters(texture->target(), GL_LINEAR, GL_LINEAR);
    glTexParameteri(texture->target(), GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(texture->target(), GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

void filterLinearly(Texture *texture)
{
    AutoBinder binder(texture);
    setFilters(texture->target(), GL_LINEAR, GL_LINEAR);
}

LinearFilters::LinearFilters(Texture *texture)
    : m_texture(texture),
      m_min(GL_NEAREST),
      m_mag(GL_NEAREST)
{
    AutoBinder binder(m_texture);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &m_min);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &m_mag);
    setFilters(GL_TEXTURE_2D, GL_LINEAR, GL_LINEAR);
}

LinearFilters::~LinearFilters()
{
    AutoBinder binder(m_texture);
    setFilters(GL_TEXTURE_2D, m_min, m_mag);
}

} // namespace Velmora::Kvz
