// SPDX-License-Identifier: MIT
#include <Host/GpuTimer.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

bool GpuTimer::isSupported()
{
    return epoxy_gl_version() >= 33 || epoxy_has_gl_extension("GL_ARB_timer_query");
}

void GpuTimer::beginFrame(int spans)
{
    m_current = nullptr;
    Frame &frame = m_frames[m_next];
    if (frame.spans > 0 || spans == 0 || !isSupported())
        return;
    const auto needed = size_t(2 * spans);
    if (const size_t had = frame.queries.size(); had < needed) {
        frame.queries.resize(needed);
        glGenQueries(GLsizei(needed - had), frame.queries.data() + had);
    }
    frame.spans = spans;
    m_current = &frame;
}

void GpuTimer::beginSpan(int span)
{
    if (m_current)
        glQueryCounter(m_current->queries[size_t(2 * span)], GL_TIMESTAMP);
}

void GpuTimer::endSpan(int span)
{
    if (m_current)
        glQueryCounter(m_current->queries[size_t(2 * span + 1)], GL_TIMESTAMP);
}

void GpuTimer::endFrame()
{
    if (!m_current)
        return;
    m_current = nullptr;
    m_next = (m_next + 1) % int(m_frames.size());
}

void GpuTimer::collect(const Sink &sink, bool waits)
{
    for (size_t i = 0; i < m_frames.size(); ++i) {
        Frame &frame = m_frames[size_t(m_oldest)];
        if (frame.spans == 0)
            return;
        // Results arrive in order, so the last one tells for all.
        GLint isAvailable = waits;
        if (!waits)
            glGetQueryObjectiv(frame.queries[size_t(2 * frame.spans - 1)], GL_QUERY_RESULT_AVAILABLE, &isAvailable);
        if (!isAvailable)
            return;
        for (int span = 0; span < frame.spans; ++span) {
            GLuint64 begin = 0;
            GLuint64 end = 0;
            glGetQueryObjectui64v(frame.queries[size_t(2 * span)], GL_QUERY_RESULT, &begin);
            glGetQueryObjectui64v(frame.queries[size_t(2 * span + 1)], GL_QUERY_RESULT, &end);
            sink(span, end > begin ? end - begin : 0);
        }
        frame.spans = 0;
        m_oldest = (m_oldest + 1) % int(m_frames.size());
    }
}

void GpuTimer::discard()
{
    for (Frame &frame : m_frames)
        frame.spans = 0;
    m_next = 0;
    m_oldest = 0;
    m_current = nullptr;
}

void GpuTimer::release(bool contextIsCurrent)
{
    discard();
    for (Frame &frame : m_frames) {
        if (contextIsCurrent && !frame.queries.empty())
            glDeleteQueries(GLsizei(frame.queries.size()), frame.queries.data());
        frame.queries.clear();
    }
}

} // namespace Velmora::Kvz
