// SPDX-License-Identifier: MIT
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

#include <iterator>

namespace Velmora::Kvz {

namespace {

struct Parameter
{
    GLenum name;
    GLint value;
};

constexpr Parameter parameters[] = {{GL_UNPACK_ALIGNMENT, 4}, {GL_UNPACK_ROW_LENGTH, 0}, {GL_UNPACK_SKIP_PIXELS, 0},
    {GL_UNPACK_SKIP_ROWS, 0}, {GL_UNPACK_IMAGE_HEIGHT, 0}, {GL_UNPACK_SKIP_IMAGES, 0},
    {GL_UNPACK_SWAP_BYTES, GL_FALSE}};

} // namespace

UnpackState::UnpackState()
{
    static_assert(std::size(parameters) == sizeof(m_found) / sizeof(int), "a place for each parameter");
    int *found = m_found;
    for (const Parameter &parameter : parameters) {
        glGetIntegerv(parameter.name, found++);
        glPixelStorei(parameter.name, parameter.value);
    }
    glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &m_buffer);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
}

UnpackState::~UnpackState()
{
    const int *found = m_found;
    for (const Parameter &parameter : parameters)
        glPixelStorei(parameter.name, *found++);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, GLuint(m_buffer));
}

} // namespace Velmora::Kvz
