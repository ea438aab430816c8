// SPDX-License-Identifier: MIT
#include "FragmentCounter.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

constexpr GLsizeiptr counterSize = 4;

std::unique_ptr<BufferObject> makeBuffer(GLenum target, GLenum usage)
{
    auto buffer = std::make_unique<BufferObject>();
    buffer->setTarget(target);
    buffer->uploadBytes(nullptr, counterSize, usage);
    return buffer;
}

} // namespace

FragmentCounter::FragmentCounter() = default;

FragmentCounter::~FragmentCounter()
{
    forgetForeign();
    for (const Copy &copy : m_copies) {
        if (copy.fence)
            glDeleteSync(copy.fence);
    }
}

void FragmentCounter::restart()
{
    if (!m_counter)
        m_counter = makeBuffer(GL_ATOMIC_COUNTER_BUFFER, GL_DYNAMIC_DRAW);
    const quint32 zero = 0;
    m_counter->uploadRange(&zero, 0, counterSize);
    glBindBufferRange(GL_ATOMIC_COUNTER_BUFFER, 0, m_counter->getBO(), 0, counterSize);
}

void FragmentCounter::copy(qint64 room)
{
    forgetForeign();
    Copy &copy = m_copies[m_next];
    m_next = (m_next + 1) % m_copies.size();
    if (copy.fence)
        glDeleteSync(copy.fence);
    if (!copy.buffer)
        copy.buffer = makeBuffer(GL_COPY_WRITE_BUFFER, GL_STREAM_READ);
    // Also for the next restart(), which writes after what the program counted.
    glMemoryBarrier(GL_BUFFER_UPDATE_BARRIER_BIT);
    {
        AutoBinder counter(m_counter.get());
        AutoBinder target(copy.buffer.get());
        glCopyBufferSubData(GL_ATOMIC_COUNTER_BUFFER, GL_COPY_WRITE_BUFFER, 0, 0, counterSize);
    }
    glBindBufferBase(GL_ATOMIC_COUNTER_BUFFER, 0, 0);
    m_owner.claim();
    copy.fence = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    copy.room = room;
}

std::optional<FragmentCounter::Count> FragmentCounter::take()
{
    Copy *const copy = oldest();
    const bool isFull = m_copies[m_next].fence;
    if (!copy || (!isFull && glClientWaitSync(copy->fence, 0, 0) == GL_TIMEOUT_EXPIRED))
        return std::nullopt;
    return read(*copy);
}

std::optional<FragmentCounter::Count> FragmentCounter::wait()
{
    Copy *const copy = oldest();
    return copy ? read(*copy) : std::nullopt;
}

FragmentCounter::Copy *FragmentCounter::oldest()
{
    forgetForeign();
    for (size_t i = 0; i < m_copies.size(); ++i) {
        Copy &copy = m_copies[(m_next + i) % m_copies.size()];
        if (copy.fence)
            return &copy;
    }
    return nullptr;
}

/// Mapping waits for what is written into the buffer.
std::optional<FragmentCounter::Count> FragmentCounter::read(Copy &copy)
{
    glDeleteSync(copy.fence);
    copy.fence = nullptr;
    const void *const bytes = copy.buffer->map(GL_READ_ONLY);
    if (!bytes)
        return std::nullopt;
    const Count count = {*static_cast<const quint32 *>(bytes), copy.room};
    copy.buffer->unmap();
    return count;
}

/// Drops the copies of a context that is gone or not current.
void FragmentCounter::forgetForeign()
{
    if (m_owner.isKnownToCurrentContext())
        return;
    for (Copy &copy : m_copies)
        copy.fence = nullptr;
}

} // namespace Velmora::Kvz
