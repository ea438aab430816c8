// SPDX-License-Identifier: MIT
#include <GL/BlitTexture.h>

#include "BlitResources.h"
#include "ContextRegistry.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/InternalFormat.h>
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

/// A framebuffer bound for reading and one for drawing, each with one texture; what was bound comes back.
class BlitBinding
{
public:
    BlitBinding(BlitResources &resources, const Texture *source, const Texture *destination, GLenum attachment)
    {
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &m_read);
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &m_draw);
        glGetBooleanv(GL_COLOR_WRITEMASK, m_colorMask);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        m_attachment = attachment;
        attach(resources.draw, destination);
        attach(resources.read, source);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, resources.draw.getFBO());
    }
    ~BlitBinding()
    {
        glFramebufferTexture(GL_READ_FRAMEBUFFER, m_attachment, 0, 0);
        glFramebufferTexture(GL_DRAW_FRAMEBUFFER, m_attachment, 0, 0);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(m_read));
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(m_draw));
        glColorMask(m_colorMask[0], m_colorMask[1], m_colorMask[2], m_colorMask[3]);
    }

private:
    Q_DISABLE_COPY(BlitBinding)

    /// Leaves the framebuffer bound for both.
    void attach(const FramebufferObject &framebuffer, const Texture *texture) const
    {
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer.getFBO());
        glFramebufferTexture(GL_FRAMEBUFFER, m_attachment, texture->textureID(), 0);
        // Before OpenGL 4.1 one that reads or draws a colour it lacks is incomplete, whichever it is used for.
        const GLenum color = m_attachment == GL_COLOR_ATTACHMENT0 ? GL_COLOR_ATTACHMENT0 : GL_NONE;
        glReadBuffer(color);
        glDrawBuffer(color);
    }

    GLint m_read = 0;
    GLint m_draw = 0;
    GLboolean m_colorMask[4];
    GLenum m_attachment;
};

/// A texture of one sample with the format and size of a multisampled one.
Texture *resolveTarget(BlitResources &resources, const Texture *source)
{
    const int format = source->internalFormat(0);
    const int width = source->width(0);
    const int height = source->height(0);
    if (!resources.resolved || resources.resolvedFormat != format || resources.resolvedWidth != width
        || resources.resolvedHeight != height) {
        resources.resolved = std::make_unique<Texture>(GL_TEXTURE_2D, format, width, height, 0, nullptr);
        resources.resolvedFormat = format;
        resources.resolvedWidth = width;
        resources.resolvedHeight = height;
        UnpackState unpack;
        AutoBinder binder(resources.resolved.get());
        glTexImage2D(GL_TEXTURE_2D, 0, format, width, height, 0, formatFromInternalFormat(GLenum(format)),
            typeFromInternalFormat(GLenum(format)), nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    }
    return resources.resolved.get();
}

} // namespace

void BlitTexture(const Texture *source, const Texture *destination, TextureFormat format, int width, int height)
{
    if (!source || !destination || width < 1 || height < 1)
        return;
    const QSharedPointer<ContextRecord> context = ContextRegistry::current();
    if (!context)
        return;
    if (destination->isReadOnly()) {
        KVZ_WARNING(QStringLiteral("A read-only texture cannot be copied into"));
        return;
    }
    const bool depth = isDepthFormat(internalFormatOf(format));
    const bool stencil =
        depth && hasStencil(GLenum(source->internalFormat(0))) && hasStencil(GLenum(destination->internalFormat(0)));
    const GLenum attachment = !depth ? GL_COLOR_ATTACHMENT0
        : stencil                    ? GL_DEPTH_STENCIL_ATTACHMENT
                                     : GL_DEPTH_ATTACHMENT;
    const GLbitfield mask = !depth ? GL_COLOR_BUFFER_BIT
        : stencil                  ? GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT
                                   : GL_DEPTH_BUFFER_BIT;
    const int sourceWidth = source->width(0);
    const int sourceHeight = source->height(0);
    const bool sameSize = sourceWidth == width && sourceHeight == height;

    AutoDisabler scissor(GL_SCISSOR_TEST);
    auto &resources = context->resources.get<BlitResources>();
    const Texture *from = source;
    // A resolve may neither scale nor convert, so a source that needs either goes through one of its own size and format.
    const bool converts = source->internalFormat(0) != destination->internalFormat(0);
    if (source->target() == GL_TEXTURE_2D_MULTISAMPLE && (!sameSize || converts)) {
        Texture *const resolved = resolveTarget(resources, source);
        BlitBinding binding(resources, source, resolved, attachment);
        glBlitFramebuffer(0, 0, sourceWidth, sourceHeight, 0, 0, sourceWidth, sourceHeight, mask, GL_NEAREST);
        from = resolved;
    }
    BlitBinding binding(resources, from, destination, attachment);
    glBlitFramebuffer(
        0, 0, sourceWidth, sourceHeight, 0, 0, width, height, mask, sameSize || depth ? GL_NEAREST : GL_LINEAR);
}

} // namespace Velmora::Kvz
