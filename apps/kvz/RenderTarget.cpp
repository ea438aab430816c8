// SPDX-License-Identifier: MIT
#include "RenderTarget.h"

#include <GL/AutoBinder.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <new>

namespace Velmora::Kvz {

namespace {

void allocate(Texture *texture, const QSize &size, GLint internalFormat, GLenum format, GLenum type)
{
    AutoBinder binder(texture);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, size.width(), size.height(), 0, format, type, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
}

} // namespace

RenderTarget::RenderTarget(const QSize &size, bool hasFloats)
    : m_size(size),
      m_colour(GL_TEXTURE_2D, hasFloats ? GL_RGBA32F : GL_RGBA8, size.width(), size.height(), 0, nullptr),
      m_depth(GL_TEXTURE_2D, GL_DEPTH24_STENCIL8, size.width(), size.height(), 0, nullptr)
{
    allocate(&m_colour, size, hasFloats ? GL_RGBA32F : GL_RGBA8, GL_RGBA, hasFloats ? GL_FLOAT : GL_UNSIGNED_BYTE);
    allocate(&m_depth, size, GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8);
    AutoBinder binder(&m_framebuffer);
    m_framebuffer.attach(&m_colour, GL_COLOR_ATTACHMENT0, 0);
    m_framebuffer.attach(&m_depth, GL_DEPTH_STENCIL_ATTACHMENT, 0);
    m_framebuffer.setDrawBuffers();
    m_complete = glGetError() == GL_NO_ERROR && glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
    if (m_complete)
        clear();
}

void RenderTarget::clear()
{
    AutoBinder binder(&m_framebuffer);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(~0u);
    glDisable(GL_SCISSOR_TEST);
    glClearColor(0, 0, 0, 1);
    glClearDepth(1);
    glClearStencil(0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
}

QImage RenderTarget::rows(const QRect &part, bool hasAlpha)
{
    if (!hasAlpha)
        return read(part, QImage::Format_RGB888, GL_RGB);
    return read(part, QImage::Format_RGBA8888_Premultiplied, GL_RGBA).convertToFormat(QImage::Format_RGBA8888);
}

QImage RenderTarget::read(const QRect &part, QImage::Format imageFormat, unsigned int format)
{
    QImage image(part.size(), imageFormat); // Rows are padded to 4 bytes, as in glReadPixels.
    if (image.isNull())
        return image;
    AutoBinder binder(&m_framebuffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(part.left(), part.top(), part.width(), part.height(), format, GL_UNSIGNED_BYTE, image.bits());
    return image.mirrored();
}

std::vector<float> RenderTarget::colours(const QRect &part)
{
    const size_t rowNumbers = 4 * size_t(part.width());
    std::vector<float> numbers;
    try {
        numbers.resize(rowNumbers * size_t(part.height()));
    } catch (const std::bad_alloc &) {
        return {};
    }
    AutoBinder binder(&m_framebuffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(part.left(), part.top(), part.width(), part.height(), GL_RGBA, GL_FLOAT, numbers.data());
    for (auto low = numbers.begin(), high = numbers.end() - std::ptrdiff_t(rowNumbers); low < high;
         low += std::ptrdiff_t(rowNumbers), high -= std::ptrdiff_t(rowNumbers))
        std::swap_ranges(low, low + std::ptrdiff_t(rowNumbers), high);
    return numbers;
}

QSize RenderTarget::largestSize()
{
    GLint texture = 0;
    GLint viewport[2] = {0, 0};
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &texture);
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewport);
    return QSize(texture, texture).boundedTo(QSize(viewport[0], viewport[1]));
}

} // namespace Velmora::Kvz
