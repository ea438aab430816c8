// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Macros and include folders for the sources of the programs that use it.
class KVZ_GL_EXPORT GLSLMacroProcessor
{
public:
    /// Defines a macro for every source. A later value for the same name replaces the earlier one.
    void addDefine(const QString &name, const QString &value);
    /// Adds a folder that `#include` and ShaderProgram::addShaderFromFile() search after ":/Media/Shaders", in the
    /// order of the calls. It may be a file-system or a resource path.
    void addIncludePath(const QString &path);

    /// Name and value, in the order in which the names came first.
    QVector<QPair<QString, QString>> defines() const;
    QStringList includePaths() const;

private:
    QVector<QPair<QString, QString>> m_defines;
    QStringList m_includePaths;
};

} // namespace Velmora::Kvz
