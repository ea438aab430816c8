// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QtGlobal>

namespace Velmora::Kvz {

/// The handle of the current context, by which contexts are told apart: a QOpenGLContext, or else the native EGL or GLX
/// context. Null when none is current.
KVZ_GL_EXPORT void *currentContextHandle();

/// While it lives, the context that was current when it was made counts as current on this thread, and nobody else asks for it.
/// For code that calls none of others.
class KVZ_GL_EXPORT CurrentContextScope
{
public:
    CurrentContextScope();
    ~CurrentContextScope();
    /// From here on the context is asked for again.
    void end();

private:
    Q_DISABLE_COPY(CurrentContextScope)

    void *m_outer;
    bool m_isOpen = true;
};

/// How often the window system has been asked for its current context: a system call each.
KVZ_GL_EXPORT quint64 nativeContextLookups();

} // namespace Velmora::Kvz
