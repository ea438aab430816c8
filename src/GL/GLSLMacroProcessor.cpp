// SPDX-License-Identifier: MIT
#include <GL/GLSLMacroProcessor.h>

namespace Velmora::Kvz {

void GLSLMacroProcessor::addDefine(const QString &name, const QString &value)
{
    for (QPair<QString, QString> &define : m_defines) {
        if (define.first == name) {
            define.second = value;
            return;
        }
    }
    m_defines.append({name, value});
}

void GLSLMacroProcessor::addIncludePath(const QString &path)
{
    if (!m_includePaths.contains(path))
        m_includePaths.append(path);
}

QVector<QPair<QString, QString>> GLSLMacroProcessor::defines() const
{
    return m_defines;
}

QStringList GLSLMacroProcessor::includePaths() const
{
    return m_includePaths;
}

} // namespace Velmora::Kvz
