// SPDX-License-Identifier: MIT
#include "FragmentCounter.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>

#include <epoxy/gl.h>

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
    forget();
}

void FragmentCounter::restart()
{
    if (!m_counter)
        m_counter = makeBuffer(GL_ATOMIC_COUNTER_BUFFER, GL_DYNAMIC_DRAW);
    const quint32 zero = 0;
    m_counter->uploadRange(&zero, 0, counterSize);
    glBindBufferRange(GL_ATOMIC_COUNTER_BUFFER, 0, m_counter->getBO(), 0, counterSize);
}

void FragmentCounter::copy()
{
    if (isPending())
        return;
    forget(); // What was copied in a context that is gone.
    if (!m_copy)
        m_copy = makeBuffer(GL_COPY_WRITE_BUFFER, GL_STREAM_READ);
    glMemoryBarrier(GL_BUFFER_UPDATE_BARRIER_BIT);
    AutoBinder counter(m_counter.get());
    AutoBinder copy(m_copy.get());
    glCopyBufferSubData(GL_ATOMIC_COUNTER_BUFFER, GL_COPY_WRITE_BUFFER, 0, 0, counterSize);
    m_owner.claim();
    m_copied = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
}

std::optional<quint32> FragmentCounter::take()
{
    if (!isPending() || glClientWaitSync(m_copied, 0, 0) == GL_TIMEOUT_EXPIRED)
        return std::nullopt;
    return read();
}

std::optional<quint32> FragmentCounter::wait()
{
    if (!isPending())
        return std::nullopt;
    return read(); // Mapping waits for what is written into the buffer.
}

std::optional<quint32> FragmentCounter::read()
{
    forget();
    std::optional<quint32> number;
    if (const void *const bytes = m_copy->map(GL_READ_ONLY)) {
        number = *static_cast<const quint32 *>(bytes);
        m_copy->unmap();
    }
    return number;
}

bool FragmentCounter::isPending() const
{
    return m_copied && m_owner.isKnownToCurrentContext();
}

void FragmentCounter::forget()
{
    if (isPending())
        glDeleteSync(m_copied);
    m_copied = nullptr;
}

} // namespace Velmora::Kvz
