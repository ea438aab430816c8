// SPDX-License-Identifier: MIT
#pragma once

#include <GL/BufferObject.h>
#include <GL/DrawBuffers.h>
#include <GL/VertexArrayObject.h>

#include <QtCore/QSharedPointer>

#include <functional>
#include <memory>

namespace Velmora::Kvz {

/// The device behind an OpenGL context: it makes buffers, vertex arrays and the ready drawables.
///
/// Contexts are told apart by the current QOpenGLContext, or else by the current native EGL or GLX context.
class KVZ_GL_EXPORT OpenGLDeviceContext
{
public:
    /// The device of the current context; null when none is current. Fetch it at each use.
    static QSharedPointer<OpenGLDeviceContext> current();

    OpenGLDeviceContext();
    virtual ~OpenGLDeviceContext();

    virtual QSharedPointer<BufferObject> createBufferObject();
    virtual QSharedPointer<DrawBuffers> createDrawBuffers();
    /// A quad that covers clip space with `va_Vertex` from -1 to 1 and `va_TexCoord` from 0 to 1, y upwards: two
    /// triangles. Each call returns a new vertex array over shared buffers, with both arrays enabled.
    virtual QSharedPointer<DrawBuffers> createScreenQuad();
    /// As createScreenQuad().
    virtual QSharedPointer<DrawBuffers> createScreenQuad2();
    virtual QSharedPointer<VertexArrayObject> createVertexArrayObject();

    /// Says that the current native context shares objects with `other`, an EGL or GLX context that has been current
    /// before. Call it before anything of this library is used in the current context. Contexts of Qt need no such call.
    static void shareObjectsWith(void *other);
    /// Says that the current context is about to be destroyed. Its objects that are deleted later drop their names. Call
    /// it with the context current, so that a later context with the same handle never finds old objects. Contexts of Qt
    /// need no such call.
    static void announceContextEnd();
    /// The native handle or QOpenGLContext that is current, as the key by which contexts are told apart; null when none
    /// is.
    static void *currentHandle();

    /// Has `listener` called when the end of this device's context is announced, or when its QOpenGLContext is destroyed, if
    /// the context is current then: the last chance to delete what lives in it. Returns a number for removeEndListener().
    int addEndListener(const std::function<void()> &listener);
    /// An unknown number is ignored. A listener may remove itself.
    void removeEndListener(int number);

    /// Frees the shared buffers and caches of this device; objects that it handed out stay usable.
    void releaseResources();

private:
    Q_DISABLE_COPY(OpenGLDeviceContext)
    struct Holder;

    void end();

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
