// SPDX-License-Identifier: MIT
#include "GLTrace.h"

#include <numeric>
#include <type_traits>

namespace Velmora::Kvz {

namespace {

template <typename Value> QString inText(Value value)
{
    if constexpr (std::is_pointer_v<Value>)
        return QString::number(quintptr(value), 16);
    else if constexpr (std::is_floating_point_v<Value>)
        return QString::number(double(value));
    else
        return QStringLiteral("0x") + QString::number(quint64(quint32(value)), 16);
}

} // namespace

template <auto Entry> class GLTrace::Recorder : public Part
{
public:
    GLCallRecorder<Entry> recorder;
};

template <auto Entry> void GLTrace::traceQuery(const char *name)
{
    auto part = std::make_unique<Recorder<Entry>>();
    part->recorder.onCall = [this, name](auto... arguments) {
        ++m_calls;
        QStringList texts{inText(arguments)...};
        QString what = QString::fromLatin1(name);
        const bool isOfObject =
            what.startsWith(QLatin1String("glGetQueryObject")) || what == QLatin1String("glReadPixels");
        if (!texts.isEmpty() && !isOfObject)
            what += QLatin1Char(' ') + texts.first();
        query(what);
    };
    m_parts.push_back(std::move(part));
}

/// `keys` of the arguments say what is set; the others are its value.
template <auto Entry> void GLTrace::traceSetter(const char *name, int keys)
{
    auto part = std::make_unique<Recorder<Entry>>();
    part->recorder.onCall = [this, name, keys](auto... arguments) {
        ++m_calls;
        ++m_setters;
        const QStringList texts{inText(arguments)...};
        QString key = QString::fromLatin1(name) + QLatin1Char(' ') + texts.mid(0, keys).join(QLatin1Char(' '));
        if (key.startsWith(QLatin1String("glBindTexture")))
            key += QLatin1String(" at ") + m_activeUnit;
        // The two names of one switch, and the three of one binding.
        const QString value = texts.mid(keys).join(QLatin1Char(' '));
        if (key.startsWith(QLatin1String("glEnable ")) || key.startsWith(QLatin1String("glDisable "))) {
            set(QLatin1String("switch ") + texts.first(), key.left(8));
        } else if (key.startsWith(QLatin1String("glBindFramebuffer"))) {
            const QString draw = QStringLiteral("framebuffer for drawing"),
                          read = QStringLiteral("framebuffer for reading");
            const bool draws = texts[0] != inText(GL_READ_FRAMEBUFFER), reads = texts[0] != inText(GL_DRAW_FRAMEBUFFER);
            const bool isSame = (!draws || m_state.value(draw) == value) && (!reads || m_state.value(read) == value);
            if (isSame)
                ++m_repeats[key + QLatin1Char('=') + value];
            if (draws)
                m_state[draw] = value;
            if (reads)
                m_state[read] = value;
        } else if (key.startsWith(QLatin1String("glBindBuffer ")) && texts[0] == inText(GL_ELEMENT_ARRAY_BUFFER)) {
            set(key + QLatin1String(" of ") + m_state.value(QStringLiteral("glBindVertexArray ")), value);
        } else {
            set(key, value);
        }
        if (key.startsWith(QLatin1String("glActiveTexture")))
            m_activeUnit = value;
    };
    m_parts.push_back(std::move(part));
}

/// A call that sets a part of what a setter sets whole.
template <auto Entry> void GLTrace::traceIndexed(const QString &whole)
{
    auto part = std::make_unique<Recorder<Entry>>();
    part->recorder.onCall = [this, whole](auto first, auto...) {
        ++m_calls;
        m_state.remove(whole.startsWith(QLatin1String("switch")) ? whole + inText(first) : whole);
    };
    m_parts.push_back(std::move(part));
}

template <auto Entry> void GLTrace::traceCall()
{
    auto part = std::make_unique<Recorder<Entry>>();
    part->recorder.onCall = [this](auto...) { ++m_calls; };
    m_parts.push_back(std::move(part));
}

GLTrace::GLTrace()
{
    // Macros, since epoxy's names are macros too.
#define KVZ_QUERY(function) traceQuery<&epoxy_##function>(#function)
    KVZ_QUERY(glGetIntegerv);
    KVZ_QUERY(glGetBooleanv);
    KVZ_QUERY(glGetFloatv);
    KVZ_QUERY(glGetDoublev);
    KVZ_QUERY(glGetInteger64v);
    KVZ_QUERY(glGetIntegeri_v);
    KVZ_QUERY(glGetBooleani_v);
    KVZ_QUERY(glIsEnabled);
    KVZ_QUERY(glIsEnabledi);
    KVZ_QUERY(glIsTexture);
    KVZ_QUERY(glIsBuffer);
    KVZ_QUERY(glIsProgram);
    KVZ_QUERY(glGetError);
    KVZ_QUERY(glGetString);
    KVZ_QUERY(glGetStringi);
    KVZ_QUERY(glCheckFramebufferStatus);
    KVZ_QUERY(glGetFramebufferAttachmentParameteriv);
    KVZ_QUERY(glGetTexLevelParameteriv);
    KVZ_QUERY(glGetTexParameteriv);
    KVZ_QUERY(glGetTexParameterfv);
    KVZ_QUERY(glGetTexImage);
    KVZ_QUERY(glReadPixels);
    KVZ_QUERY(glGetQueryiv);
    KVZ_QUERY(glGetQueryObjectiv);
    KVZ_QUERY(glGetQueryObjectuiv);
    KVZ_QUERY(glGetQueryObjectui64v);
    KVZ_QUERY(glGetUniformfv);
    KVZ_QUERY(glGetUniformiv);
    KVZ_QUERY(glGetUniformLocation);
    KVZ_QUERY(glGetAttribLocation);
    KVZ_QUERY(glGetActiveUniform);
    KVZ_QUERY(glGetProgramiv);
    KVZ_QUERY(glGetShaderiv);
    KVZ_QUERY(glGetBufferParameteriv);
    KVZ_QUERY(glGetVertexAttribiv);
    KVZ_QUERY(glGetMultisamplefv);
    KVZ_QUERY(glGetSynciv);
    KVZ_QUERY(glClientWaitSync);
    KVZ_QUERY(glMapBuffer);
    KVZ_QUERY(glMapBufferRange);
    KVZ_QUERY(glGetBufferSubData);
#undef KVZ_QUERY
#define KVZ_SETTER(function, keys) traceSetter<&epoxy_##function>(#function, keys)
    KVZ_SETTER(glEnable, 1);
    KVZ_SETTER(glDisable, 1);
    KVZ_SETTER(glDepthMask, 0);
    KVZ_SETTER(glDepthFunc, 0);
    KVZ_SETTER(glColorMask, 0);
    KVZ_SETTER(glStencilMask, 0);
    KVZ_SETTER(glBlendEquation, 0);
    KVZ_SETTER(glBlendFunc, 0);
    KVZ_SETTER(glCullFace, 0);
    KVZ_SETTER(glFrontFace, 0);
    KVZ_SETTER(glPolygonMode, 1);
    KVZ_SETTER(glClearColor, 0);
    KVZ_SETTER(glClearDepth, 0);
    KVZ_SETTER(glClearStencil, 0);
    KVZ_SETTER(glViewport, 0);
    KVZ_SETTER(glPixelStorei, 1);
    KVZ_SETTER(glUseProgram, 0);
    KVZ_SETTER(glBindVertexArray, 0);
    KVZ_SETTER(glBindBuffer, 1);
    KVZ_SETTER(glActiveTexture, 0);
    KVZ_SETTER(glBindTexture, 1);
    KVZ_SETTER(glBindFramebuffer, 1);
#undef KVZ_SETTER
#define KVZ_CALL(function) traceCall<&epoxy_##function>()
    traceIndexed<&epoxy_glEnablei>(QStringLiteral("switch "));
    traceIndexed<&epoxy_glDisablei>(QStringLiteral("switch "));
    traceIndexed<&epoxy_glColorMaski>(QStringLiteral("glColorMask "));
    KVZ_CALL(glStencilFunc);
    KVZ_CALL(glStencilOp);
    traceIndexed<&epoxy_glStencilMaskSeparate>(QStringLiteral("glStencilMask "));
    traceIndexed<&epoxy_glBlendFuncSeparate>(QStringLiteral("glBlendFunc "));
    traceIndexed<&epoxy_glBlendEquationSeparate>(QStringLiteral("glBlendEquation "));
    KVZ_CALL(glBlendColor);
    KVZ_CALL(glPolygonOffset);
    KVZ_CALL(glSampleMaski);
    KVZ_CALL(glPatchParameteri);
    KVZ_CALL(glVertexAttrib4f);
    KVZ_CALL(glVertexAttribPointer);
    KVZ_CALL(glEnableVertexAttribArray);
    KVZ_CALL(glBindBufferBase);
    KVZ_CALL(glBindBufferRange);
    KVZ_CALL(glBindImageTexture);
    KVZ_CALL(glMemoryBarrier);
    KVZ_CALL(glTexParameteri);
    KVZ_CALL(glTexParameterfv);
    KVZ_CALL(glTexBuffer);
    KVZ_CALL(glGenerateMipmap);
    KVZ_CALL(glFramebufferTexture);
    KVZ_CALL(glFramebufferTexture2D);
    KVZ_CALL(glFramebufferTextureLayer);
    KVZ_CALL(glDrawBuffer);
    KVZ_CALL(glDrawBuffers);
    KVZ_CALL(glReadBuffer);
    KVZ_CALL(glBlitFramebuffer);
    KVZ_CALL(glClear);
    KVZ_CALL(glClearBufferfv);
    KVZ_CALL(glClearBufferfi);
    KVZ_CALL(glClearBufferuiv);
    KVZ_CALL(glDrawArrays);
    KVZ_CALL(glDrawElements);
    KVZ_CALL(glDrawElementsInstancedBaseInstance);
    KVZ_CALL(glMultiDrawElementsIndirect);
    KVZ_CALL(glBufferData);
    KVZ_CALL(glBufferSubData);
    KVZ_CALL(glUniform1i);
    KVZ_CALL(glUniform1ui);
    KVZ_CALL(glUniform1iv);
    KVZ_CALL(glUniform2iv);
    KVZ_CALL(glUniform3iv);
    KVZ_CALL(glUniform4iv);
    KVZ_CALL(glUniform1uiv);
    KVZ_CALL(glUniform1fv);
    KVZ_CALL(glUniform2fv);
    KVZ_CALL(glUniform3fv);
    KVZ_CALL(glUniform4fv);
    KVZ_CALL(glUniformMatrix3fv);
    KVZ_CALL(glUniformMatrix4fv);
    KVZ_CALL(glBeginQuery);
    KVZ_CALL(glEndQuery);
    KVZ_CALL(glQueryCounter);
    KVZ_CALL(glFenceSync);
    KVZ_CALL(glDeleteSync);
    KVZ_CALL(glCopyBufferSubData);
    KVZ_CALL(glBeginConditionalRender);
    KVZ_CALL(glEndConditionalRender);
#undef KVZ_CALL
}

GLTrace::~GLTrace() = default;

void GLTrace::clear()
{
    m_queries.clear();
    m_repeats.clear();
    m_state.clear();
    m_calls = 0;
    m_setters = 0;
}

int GLTrace::queryCount() const
{
    const QList<int> counts = m_queries.values();
    return std::accumulate(counts.begin(), counts.end(), 0);
}

void GLTrace::query(const QString &name)
{
    ++m_queries[name];
}

void GLTrace::set(const QString &name, const QString &value)
{
    const auto known = m_state.find(name);
    if (known != m_state.end() && *known == value)
        ++m_repeats[name + QLatin1Char('=') + value];
    m_state[name] = value;
}

} // namespace Velmora::Kvz
