// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>
#include <GL/GLSLMacroProcessor.h>

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Turns shader sources as written into text for a driver, and maps the driver's messages back.
///
/// Besides plain GLSL it takes `#include "file"`, also nested, and `#instancedata "Name"`, which brings in the declarations
/// of an instance data plan. A file is searched beside the including one, under ":/Media/Shaders" and in the macro
/// processor's folders, and included once for each source. Where a directive stands under an `#if`, the driver decides: what it takes out neither counts
/// as included nor fails. After the `#version` line this class defines KVZ_STAGE_VERTEX, KVZ_STAGE_FRAGMENT, … by stage, and the processor's macros. Directives inside
/// comments stay untouched.
class KVZ_GL_EXPORT ShaderPreprocessor
{
public:
    /// Where a line of the result came from.
    struct Origin
    {
        QString file;
        int line; ///< From 1; 0 for a generated line.
    };

    /// `stage` is a shader type such as GL_VERTEX_SHADER; `name` stands for the source in messages, and when it is a path
    /// its folder is searched by `#include`. A missing file, a cycle and an unknown plan give one log line each, with
    /// file and line, and the directive's line stays empty. Under an `#if` they become an `#error` for the driver to find.
    /// `processor` can be null.
    ShaderPreprocessor(
        unsigned int stage, const QString &source, const QString &name, const GLSLMacroProcessor *processor);

    /// The text for the driver.
    QString text() const;
    /// What went wrong, each as "file:line: what"; the same texts that were logged.
    QStringList errors() const;
    /// The driver's log with its line numbers replaced by "file:line" of the sources as written. Understands the forms
    /// "0:12(3): …", "0(12) : …" and "ERROR: 0:12: …".
    QString mapLog(const QString &driverLog) const;
    /// Where line `line`, from 1, of the result came from.
    Origin origin(int line) const;
    /// The included files, as paths, also those under an `#if`.
    QStringList includedFiles() const;

    /// The path of a shader file by its bare name, or empty: ":/Media/Shaders" comes first, then the processor's folders.
    /// An absolute or resource path is taken as it is.
    static QString findFile(const QString &file, const GLSLMacroProcessor *processor);

private:
    void expand(const QStringList &lines, int first, const QString &file);
    void expandInclude(const QString &name, const QString &file, int line);
    void expandFile(const QString &path, const QString &text);
    void expandInstanceData(const QString &name, const QString &file, int line);
    void emitLine(const QString &text, const QString &file, int line);
    void fail(const QString &file, int line, const QString &what);

    const GLSLMacroProcessor *m_processor;
    QStringList m_lines;
    QVector<Origin> m_origins;
    QStringList m_errors;
    QStringList m_includeStack;
    QStringList m_included; ///< For certain.
    QStringList m_guarded; ///< Where an `#if` lets it.
    int m_openIfs = 0;
};

} // namespace Velmora::Kvz
