// SPDX-License-Identifier: MIT
#include "DriverClaims.h"

namespace Velmora::Kvz {

namespace {

bool isStageUnits(GLenum name)
{
    return name == GL_MAX_TEXTURE_IMAGE_UNITS || name == GL_MAX_VERTEX_TEXTURE_IMAGE_UNITS
        || name == GL_MAX_GEOMETRY_TEXTURE_IMAGE_UNITS;
}

/// The sampler types of OpenGL 3.2.
bool isSampler(GLenum type)
{
    return (type >= GL_SAMPLER_1D && type <= GL_SAMPLER_2D_RECT_SHADOW)
        || (type >= GL_SAMPLER_1D_ARRAY && type <= GL_SAMPLER_CUBE_SHADOW)
        || (type >= GL_INT_SAMPLER_1D && type <= GL_UNSIGNED_INT_SAMPLER_BUFFER)
        || (type >= GL_SAMPLER_2D_MULTISAMPLE && type <= GL_UNSIGNED_INT_SAMPLER_2D_MULTISAMPLE_ARRAY);
}

} // namespace

DriverClaims::DriverClaims(
    const QByteArray &renderer, int geometryVertices, const QByteArray &hiddenExtension, int stageUnits)
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
    m_integers.replacement = [this, geometryVertices, stageUnits](GLenum name, GLint *value) {
        if (name == GL_MAX_GEOMETRY_OUTPUT_VERTICES && geometryVertices > 0)
            *value = geometryVertices;
        else if (name == GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS && stageUnits > 0)
            *value = 3 * stageUnits;
        else if (isStageUnits(name) && stageUnits > 0)
            *value = stageUnits;
        else
            m_integers.forward(name, value);
    };
}

int activeSamplers(unsigned int program)
{
    GLint count = 0;
    glGetProgramiv(program, GL_ACTIVE_UNIFORMS, &count);
    int samplers = 0;
    for (GLint i = 0; i < count; ++i) {
        char name[256];
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(program, GLuint(i), sizeof(name), nullptr, &size, &type, name);
        samplers += isSampler(type) ? size : 0;
    }
    return samplers;
}

} // namespace Velmora::Kvz
