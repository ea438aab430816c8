// SPDX-License-Identifier: MIT
#pragma once

#include <GL/GLObject.h>

#include <QtCore/QtGlobal>

#include <memory>
#include <optional>

struct __GLsync;

namespace Velmora::Kvz {

class BufferObject;

/// An atomic counter of a program, and a copy of it that is read when the GPU has made it.
class FragmentCounter
{
public:
    FragmentCounter();
    ~FragmentCounter();

    /// Sets the counter to 0 and binds it to the binding point 0 of GL_ATOMIC_COUNTER_BUFFER.
    void restart();
    /// Copies the counter, unless an earlier copy was not read yet.
    void copy();
    /// The copied number, once, when it is there.
    std::optional<quint32> take();
    /// Waits for the copied number. Nothing if there is no copy.
    std::optional<quint32> wait();

private:
    std::optional<quint32> read();
    bool isPending() const;
    void forget();

    std::unique_ptr<BufferObject> m_counter;
    std::unique_ptr<BufferObject> m_copy;
    __GLsync *m_copied = nullptr; ///< Null: no copy was made.
    GLObject m_owner{GLObject::Sharing::ShareGroup}; ///< Of the sync object.
};

} // namespace Velmora::Kvz
