// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

/// For its scope, pixels come from client memory in rows of four-byte alignment, whatever the caller left set. With an
/// unpack buffer bound even a null pointer would read from it.
class UnpackState
{
public:
    UnpackState()
    {
        glGetIntegerv(GL_UNPACK_ALIGNMENT, &m_alignment);
        glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &m_buffer);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    }
    ~UnpackState()
    {
        glPixelStorei(GL_UNPACK_ALIGNMENT, m_alignment);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, GLuint(m_buffer));
    }

private:
    Q_DISABLE_COPY(UnpackState)
    GLint m_alignment = 4;
    GLint m_buffer = 0;
};

} // namespace Velmora::Kvz
