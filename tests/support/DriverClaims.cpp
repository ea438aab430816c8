// SPDX-License-Identifier: MIT
#include "DriverClaims.h"

namespace Velmora::Kvz {

DriverClaims::DriverClaims(const QByteArray &renderer, int geometryVertices, const QByteArray &hiddenExtension)
    : m_renderer(renderer),
      m_hiddenExtension(hiddenExtension)
{
    m_strings.replacement = [this](GLenum name) {
        if (name == GL_RENDERER && !m_renderer.isEmpty())
            return reinterpret_cast<const GLubyte *>(m_renderer.constData());
        return m_strings.forward(name);
    };
    m_extensions.replacement = [this](GLenum name, GLuint index) {
        const GLubyte *const extension = m_extensions.forward(name, index);
        const bool isHidden = reinterpret_cast<const char *>(extension) == m_hiddenExtension;
        return isHidden ? reinterpret_cast<const GLubyte *>("GL_KVZ_hidden") : extension;
    };
    m_integers.replacement = [this, geometryVertices](GLenum name, GLint *value) {
        if (name == GL_MAX_GEOMETRY_OUTPUT_VERTICES && geometryVertices > 0)
            *value = geometryVertices;
        else
            m_integers.forward(name, value);
    };
}

} // namespace Velmora::Kvz
