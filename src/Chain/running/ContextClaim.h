// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QWeakPointer>

#include <functional>
#include <memory>

namespace Velmora::Kvz {

class GLObject;
class OpenGLDeviceContext;

/// Records which OpenGL context something belongs to, and is told when that context ends.
class ContextClaim
{
public:
    ContextClaim() = default;
    ~ContextClaim();

    /// Claims the current context. `end` is called when its end is announced, with the context current.
    void claim(const std::function<void()> &end);
    void release();
    /// Stops listening for the end; the context stays claimed.
    void stopListening();
    bool isCurrent() const;

private:
    Q_DISABLE_COPY(ContextClaim)

    std::unique_ptr<GLObject> m_object;
    QWeakPointer<OpenGLDeviceContext> m_device;
    int m_listener = 0; ///< Its number at the device context.
};

} // namespace Velmora::Kvz
