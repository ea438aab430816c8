// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

/// For its scope, pixels come from client memory, whole images in rows of four-byte alignment, whatever the caller left
/// set. With an unpack buffer bound even a null pointer would read from it.
class UnpackState
{
public:
    UnpackState()
    {
        for (size_t i = 0; i < count; ++i) {
            glGetIntegerv(parameters[i].name, &m_found[i]);
            glPixelStorei(parameters[i].name, parameters[i].value);
        }
        glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &m_buffer);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    }
    ~UnpackState()
    {
        for (size_t i = 0; i < count; ++i)
            glPixelStorei(parameters[i].name, m_found[i]);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, GLuint(m_buffer));
    }

private:
    Q_DISABLE_COPY(UnpackState)

    struct Parameter
    {
        GLenum name;
        GLint value;
    };
    static constexpr Parameter parameters[] = {{GL_UNPACK_ALIGNMENT, 4}, {GL_UNPACK_ROW_LENGTH, 0},
        {GL_UNPACK_SKIP_PIXELS, 0}, {GL_UNPACK_SKIP_ROWS, 0}, {GL_UNPACK_IMAGE_HEIGHT, 0}, {GL_UNPACK_SKIP_IMAGES, 0},
        {GL_UNPACK_SWAP_BYTES, GL_FALSE}};
    static constexpr size_t count = sizeof(parameters) / sizeof(parameters[0]);

    GLint m_found[count] = {};
    GLint m_buffer = 0;
};

} // namespace Velmora::Kvz
