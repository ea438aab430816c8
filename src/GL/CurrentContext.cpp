// SPDX-License-Identifier: MIT
#include "CurrentContext.h"

#include "FrameState.h"

#include <QtGui/QOpenGLContext>

#include <dlfcn.h>

#include <atomic>

namespace Velmora::Kvz {

namespace {

/// The current context of a window system library, asked only when that library is loaded in this process already.
class NativeLookup
{
public:
    NativeLookup(const char *library, const char *function)
        : m_library(library),
          m_function(function)
    { }

    void *currentContext()
    {
        if (!m_lookup) {
            void *handle = dlopen(m_library, RTLD_LAZY | RTLD_NOLOAD);
            if (!handle)
                return nullptr;
            m_lookup = reinterpret_cast<Lookup>(dlsym(handle, m_function));
            if (!m_lookup)
                return nullptr;
        }
        return m_lookup();
    }

private:
    using Lookup = void *(*)();
    const char *m_library;
    const char *m_function;
    Lookup m_lookup = nullptr;
};

std::atomic<quint64> lookups{0};

void *currentNativeContext()
{
    lookups.fetch_add(1, std::memory_order_relaxed);
    static NativeLookup egl("libEGL.so.1", "eglGetCurrentContext");
    static NativeLookup glx("libGL.so.1", "glXGetCurrentContext");
    static NativeLookup glvndGlx("libGLX.so.0", "glXGetCurrentContext");
    if (void *context = egl.currentContext())
        return context;
    if (void *context = glx.currentContext())
        return context;
    return glvndGlx.currentContext();
}

/// The context of the innermost scope, or null.
void *&scopeContext()
{
    thread_local void *context = nullptr;
    return context;
}

} // namespace

CurrentContextScope::CurrentContextScope()
    : m_outer(scopeContext())
{
    scopeContext() = nullptr;
    scopeContext() = currentContextHandle();
}

CurrentContextScope::~CurrentContextScope()
{
    end();
}

void CurrentContextScope::end()
{
    if (m_isOpen)
        scopeContext() = m_outer;
    m_isOpen = false;
}

void *currentContextHandle()
{
    if (const FrameState *frame = FrameState::active())
        return frame->context();
    if (void *const context = scopeContext())
        return context;
    if (QOpenGLContext *context = QOpenGLContext::currentContext())
        return context;
    return currentNativeContext();
}

quint64 nativeContextLookups()
{
    return lookups.load(std::memory_order_relaxed);
}

} // namespace Velmora::Kvz
