// SPDX-License-Identifier: MIT
#include <Host/SampleCounter.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

bool isActive(GLenum target)
{
    GLint query = 0;
    glGetQueryiv(target, GL_CURRENT_QUERY, &query);
    return query != 0;
}

} // namespace

/// Whether any kind of sample query is active. They exclude each other.
bool SampleCounter::isCounted()
{
    if (!m_hasAnySamples)
        m_hasAnySamples = epoxy_gl_version() >= 33 || epoxy_has_gl_extension("GL_ARB_occlusion_query2");
    return isActive(GL_SAMPLES_PASSED) || (*m_hasAnySamples && isActive(GL_ANY_SAMPLES_PASSED));
}

void SampleCounter::begin()
{
    Span &span = m_spans[m_next];
    if (m_isCounting || span.isPending || isCounted())
        return;
    if (!span.query)
        glGenQueries(1, &span.query);
    glBeginQuery(GL_SAMPLES_PASSED, span.query);
    m_isCounting = true;
}

void SampleCounter::end()
{
    if (!m_isCounting)
        return;
    glEndQuery(GL_SAMPLES_PASSED);
    m_isCounting = false;
    m_spans[m_next].isPending = true;
    m_next = (m_next + 1) % m_spans.size();
}

void SampleCounter::collect(const Sink &sink, bool waits)
{
    for (size_t i = 0; i < m_spans.size() && m_spans[m_oldest].isPending; ++i) {
        Span &span = m_spans[m_oldest];
        GLint isAvailable = waits;
        if (!waits)
            glGetQueryObjectiv(span.query, GL_QUERY_RESULT_AVAILABLE, &isAvailable);
        if (!isAvailable)
            return;
        GLuint samples = 0;
        glGetQueryObjectuiv(span.query, GL_QUERY_RESULT, &samples);
        span.isPending = false;
        m_oldest = (m_oldest + 1) % m_spans.size();
        sink(samples);
    }
}

void SampleCounter::release(bool contextIsCurrent)
{
    for (Span &span : m_spans) {
        if (contextIsCurrent && span.query)
            glDeleteQueries(1, &span.query);
        span = Span();
    }
    m_next = 0;
    m_oldest = 0;
    m_isCounting = false;
    m_hasAnySamples.reset();
}

} // namespace Velmora::Kvz
