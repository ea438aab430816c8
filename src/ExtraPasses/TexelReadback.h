// SPDX-License-Identifier: MIT
#pragma once

#include <GL/GLObject.h>

#include <QtGui/QVector4D>

#include <memory>
#include <optional>

struct __GLsync;

namespace Velmora::Kvz {

class BufferObject;

/// One texel on its way from the GPU: copied into a buffer behind a fence, and read a frame later.
class TexelReadback
{
public:
    TexelReadback();
    ~TexelReadback();

    /// Copies the texel (0, 0) of the bound read framebuffer's colour. An earlier copy that was not taken is lost.
    void copy();
    /// The texel of the last copy, once; waits until it is there. Nothing if there was no copy since, or none that the current context
    /// knows.
    std::optional<QVector4D> take();

private:
    void drop();

    std::unique_ptr<BufferObject> m_buffer;
    __GLsync *m_fence = nullptr; ///< Null: nothing was copied.
    GLObject m_owner{GLObject::Sharing::ShareGroup}; ///< Of the fence.
};

} // namespace Velmora::Kvz
