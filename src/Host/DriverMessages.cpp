// SPDX-License-Identifier: MIT
#include <Host/DriverMessages.h>

#include <GL/OpenGLDeviceContext.h>

#include <QtCore/QLoggingCategory>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

Q_LOGGING_CATEGORY(glLog, "kvz.gl")

void APIENTRY logDriverMessage(
    GLenum source, GLenum type, GLuint id, GLenum severity, GLsizei, const GLchar *message, const void *)
{
    // The program's log has the shader compiler's warnings too; one comes from each missing optional extension.
    const bool isRemark = source == GL_DEBUG_SOURCE_SHADER_COMPILER && type != GL_DEBUG_TYPE_ERROR;
    if (severity == GL_DEBUG_SEVERITY_HIGH && !isRemark)
        qCCritical(glLog, "driver message %u: %s", id, message);
    else if (severity == GL_DEBUG_SEVERITY_MEDIUM && !isRemark)
        qCWarning(glLog, "driver message %u: %s", id, message);
    else
        qCDebug(glLog, "driver message %u: %s", id, message);
}

} // namespace

bool logDriverMessages()
{
    if (!OpenGLDeviceContext::currentHandle() || (epoxy_gl_version() < 43 && !epoxy_has_gl_extension("GL_KHR_debug")))
        return false;
    glDebugMessageCallback(logDriverMessage, nullptr);
    glEnable(GL_DEBUG_OUTPUT);
    glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    // Debug groups are for frame debuggers, not for the log.
    glDebugMessageControl(GL_DONT_CARE, GL_DEBUG_TYPE_PUSH_GROUP, GL_DONT_CARE, 0, nullptr, GL_FALSE);
    glDebugMessageControl(GL_DONT_CARE, GL_DEBUG_TYPE_POP_GROUP, GL_DONT_CARE, 0, nullptr, GL_FALSE);
    return true;
}

} // namespace Velmora::Kvz
