// SPDX-License-Identifier: MIT
#pragma once

#include <GL/GLObject.h>

#include <QtCore/QtGlobal>

#include <array>
#include <memory>
#include <optional>

struct __GLsync;

namespace Velmora::Kvz {

class BufferObject;

/// An atomic counter of a program, and copies of it, one for each of the last frames, that are read when the GPU has made them.
class FragmentCounter
{
public:
    /// What a frame counted, and the nodes that it had for them.
    struct Count
    {
        qint64 fragments;
        qint64 room;
    };

    FragmentCounter();
    ~FragmentCounter();

    /// Sets the counter to 0 and binds it to the binding point 0 of GL_ATOMIC_COUNTER_BUFFER.
    void restart();
    /// Copies the counter of a frame with this room, and empties the binding point. Without a free place for it the oldest copy is
    /// lost; take() until nothing is left keeps one free.
    void copy(qint64 room);
    /// The oldest copy, once, when it is there. Waits for it if there is no place for another one.
    std::optional<Count> take();
    /// The oldest copy, once, however long that takes. Nothing if there is none, or none that the current context knows.
    std::optional<Count> wait();

private:
    struct Copy
    {
        std::unique_ptr<BufferObject> buffer;
        __GLsync *fence = nullptr; ///< Null: nothing was copied.
        qint64 room = 0;
    };
    Copy *oldest();
    std::optional<Count> read(Copy &copy);
    void forgetForeign();

    std::unique_ptr<BufferObject> m_counter;
    std::array<Copy, 4> m_copies;
    size_t m_next = 0; ///< Where the next copy goes, and where the oldest one is when all places are taken.
    GLObject m_owner{GLObject::Sharing::ShareGroup}; ///< Of the fences.
};

} // namespace Velmora::Kvz
