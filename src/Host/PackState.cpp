// SPDX-License-Identifier: MIT
#include "PackState.h"

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

PackState::PackState(unsigned int buffer)
{
    glGetIntegerv(GL_PACK_ALIGNMENT, &m_alignment);
    glGetIntegerv(GL_PACK_ROW_LENGTH, &m_rowLength);
    glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &m_buffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
}

PackState::~PackState()
{
    glPixelStorei(GL_PACK_ALIGNMENT, m_alignment);
    glPixelStorei(GL_PACK_ROW_LENGTH, m_rowLength);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, GLuint(m_buffer));
}

} // namespace Velmora::Kvz
