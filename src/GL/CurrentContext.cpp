// SPDX-License-Identifier: MIT
#include "CurrentContext.h"

#include <QtGui/QOpenGLContext>

#include <dlfcn.h>

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

void *currentNativeContext()
{
    static NativeLookup egl("libEGL.so.1", "eglGetCurrentContext");
    static NativeLookup glx("libGL.so.1", "glXGetCurrentContext");
    static NativeLookup glvndGlx("libGLX.so.0", "glXGetCurrentContext");
    if (void *context = egl.currentContext())
        return context;
    if (void *context = glx.currentContext())
        return context;
    return glvndGlx.currentContext();
}

} // namespace

void *currentContextHandle()
{
    if (QOpenGLContext *context = QOpenGLContext::currentContext())
        return context;
    return currentNativeContext();
}

} // namespace Velmora::Kvz
