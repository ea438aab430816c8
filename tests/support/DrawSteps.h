// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Records attachments, draws and detachments while it lives, in order: "attach colour", "draw", "detach colour". A
/// pooled texture that stays attached may be handed out while it is still a render target.
class DrawSteps
{
public:
    DrawSteps()
    {
        m_attachments.onCall = [this](GLenum, GLenum point, GLenum, GLuint texture, GLint) { note(point, texture); };
        m_detachments.onCall = [this](GLenum, GLenum point, GLuint texture, GLint) { note(point, texture); };
        m_draws.onCall = [this](GLenum, GLint, GLsizei) { taken.append(QStringLiteral("draw")); };
        m_indexedDraws.onCall = [this](GLenum, GLsizei, GLenum, const void *) { taken.append(QStringLiteral("draw")); };
    }

    QStringList taken;

private:
    void note(GLenum point, GLuint texture)
    {
        const QString name = point == GL_COLOR_ATTACHMENT0 ? QStringLiteral("colour")
            : point == GL_DEPTH_STENCIL_ATTACHMENT         ? QStringLiteral("stencil")
                                                           : QStringLiteral("0x%1").arg(point, 0, 16);
        taken.append((texture ? QStringLiteral("attach ") : QStringLiteral("detach ")) + name);
    }

    GLCallRecorder<&epoxy_glFramebufferTexture2D> m_attachments;
    GLCallRecorder<&epoxy_glFramebufferTexture> m_detachments;
    GLCallRecorder<&epoxy_glDrawArrays> m_draws;
    GLCallRecorder<&epoxy_glDrawElements> m_indexedDraws;
};

} // namespace Velmora::Kvz
