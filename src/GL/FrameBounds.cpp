// SPDX-License-Identifier: MIT
#include "FrameBounds.h"

#include "ContextRegistry.h"
#include "CurrentContext.h"

#include <Core/Log.h>
#include <GL/GLErrors.h>
#include <GL/TrackedGL.h>

#include <QtCore/QLoggingCategory>

namespace Velmora::Kvz {

namespace {

Q_LOGGING_CATEGORY(frameLog, "kvz.gl")

} // namespace

void enterFrame(FrameState *state, FrameState::Bindings bindings)
{
    state->begin(bindings, currentContextHandle(), ContextRegistry::current());
}

void leaveFrame(FrameState *state)
{
    if (!state->end())
        return;
    const GLenum error = takeGLErrors();
    if (error == GL_OUT_OF_MEMORY)
        KVZ_WARNING(QStringLiteral("out of graphics memory in a frame"));
    else if (error != GL_NO_ERROR)
        qCDebug(frameLog, "GL error 0x%04x was pending at the end of a frame", error);
}

} // namespace Velmora::Kvz
