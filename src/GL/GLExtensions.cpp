// SPDX-License-Identifier: MIT
#include <GL/GLExtensions.h>

#include "CurrentContext.h"
#include "FrameState.h"

#include <QtCore/QByteArray>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

bool hasGLExtension(const char *name)
{
    if (!name || !*name || !currentContextHandle())
        return false;
    const QByteArray prefix("GL_");
    QByteArray fullName(name);
    if (!fullName.startsWith(prefix))
        fullName.prepend(prefix);
    FrameState *const frame = FrameState::active();
    return frame ? frame->hasExtension(fullName) : epoxy_has_gl_extension(fullName.constData());
}

} // namespace Velmora::Kvz
