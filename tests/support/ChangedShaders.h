// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"

#include <QtCore/QByteArray>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Replaces a text in all shaders that are compiled while it lives.
class ChangedShaders
{
public:
    ChangedShaders(const QByteArray &from, const QByteArray &to)
    {
        m_sources.replacement = [this, from, to](
                                    GLuint shader, GLsizei count, const GLchar *const *strings, const GLint *lengths) {
            QByteArray text;
            for (GLsizei i = 0; i < count; ++i)
                text += lengths ? QByteArray(strings[i], lengths[i]) : QByteArray(strings[i]);
            changed += text.count(from);
            text.replace(from, to);
            texts.append(text);
            const GLchar *const data = text.constData();
            const GLint length = text.size();
            m_sources.forward(shader, 1, &data, &length);
        };
    }

    int changed = 0; ///< Places.
    QVector<QByteArray> texts; ///< Of all sources.

private:
    GLCallRecorder<&epoxy_glShaderSource> m_sources;
};

} // namespace Velmora::Kvz
