// SPDX-License-Identifier: MIT
#include "TexelReadback.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>

#include <GL/TrackedGL.h>

#include <array>
#include <cstring>

namespace Velmora::Kvz {

namespace {

using Texel = std::array<float, 4>;

} // namespace

TexelReadback::TexelReadback() = default;

TexelReadback::~TexelReadback()
{
    drop();
}

void TexelReadback::copy()
{
    drop();
    if (!m_buffer) {
        m_buffer = std::make_unique<BufferObject>();
        m_buffer->setTarget(GL_PIXEL_PACK_BUFFER);
        m_buffer->uploadBytes(nullptr, sizeof(Texel), GL_STREAM_READ);
    }
    AutoBinder binder(m_buffer.get());
    glReadPixels(0, 0, 1, 1, GL_RGBA, GL_FLOAT, nullptr);
    m_owner.claim();
    m_fence = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
}

std::optional<QVector4D> TexelReadback::take()
{
    if (!m_fence || !m_owner.isKnownToCurrentContext()) {
        m_fence = nullptr;
        return std::nullopt;
    }
    glClientWaitSync(m_fence, GL_SYNC_FLUSH_COMMANDS_BIT, GL_TIMEOUT_IGNORED);
    drop();
    const void *const bytes = m_buffer->map(GL_READ_ONLY);
    if (!bytes)
        return std::nullopt;
    Texel texel;
    std::memcpy(texel.data(), bytes, sizeof(texel));
    m_buffer->unmap();
    return QVector4D(texel[0], texel[1], texel[2], texel[3]);
}

void TexelReadback::drop()
{
    if (m_fence && m_owner.isKnownToCurrentContext())
        glDeleteSync(m_fence);
    m_fence = nullptr;
}

} // namespace Velmora::Kvz
