// SPDX-License-Identifier: MIT
#include <GL/ShaderPreprocessor.h>

#include "PlanDeclarations.h"

#include <Core/Log.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString shaderFolder = QStringLiteral(":/Media/Shaders");

QString stageDefine(GLenum stage)
{
    switch (stage) {
    case GL_VERTEX_SHADER:
        return QStringLiteral("KVZ_STAGE_VERTEX");
    case GL_TESS_CONTROL_SHADER:
        return QStringLiteral("KVZ_STAGE_TESS_CONTROL");
    case GL_TESS_EVALUATION_SHADER:
        return QStringLiteral("KVZ_STAGE_TESS_EVALUATION");
    case GL_GEOMETRY_SHADER:
        return QStringLiteral("KVZ_STAGE_GEOMETRY");
    case GL_FRAGMENT_SHADER:
        return QStringLiteral("KVZ_STAGE_FRAGMENT");
    default:
        return QStringLiteral("KVZ_STAGE_OTHER");
    }
}

/// Follows block comments through a source, so that directives inside them stay untouched.
class CommentTracker
{
public:
    /// The line without its comments.
    QString strip(const QString &line)
    {
        QString code;
        for (int i = 0; i < line.size(); ++i) {
            const QStringRef pair = line.midRef(i, 2);
            if (m_inBlock) {
                if (pair == QLatin1String("*/")) {
                    m_inBlock = false;
                    ++i;
                }
            } else if (pair == QLatin1String("//")) {
                break;
            } else if (pair == QLatin1String("/*")) {
                m_inBlock = true;
                ++i;
            } else {
                code += line[i];
            }
        }
        return code;
    }

private:
    bool m_inBlock = false;
};

bool readText(const QString &path, QString *text)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    *text = QString::fromUtf8(file.readAll());
    return true;
}

bool isPath(const QString &name)
{
    return QDir::isAbsolutePath(name) || name.startsWith(QLatin1Char(':'));
}

/// What a line of code, without comments, does to the number of open conditions.
int conditionalStep(const QString &code)
{
    static const QRegularExpression conditional(QStringLiteral("^\\s*#\\s*(if|ifdef|ifndef|endif)\\b"));
    const QRegularExpressionMatch match = conditional.match(code);
    if (!match.hasMatch())
        return 0;
    return match.captured(1) == QLatin1String("endif") ? -1 : 1;
}

/// Constant initialization, so that it does not matter in which order the initializers of files run.
const PlanDeclarations *planDeclarations = nullptr;

} // namespace

void setPlanDeclarations(const PlanDeclarations *declarations)
{
    planDeclarations = declarations;
}

ShaderPreprocessor::ShaderPreprocessor(
    unsigned int stage, const QString &source, const QString &name, const GLSLMacroProcessor *processor)
    : m_processor(processor)
{
    // The version stays first and the macros follow it; without a version line they come first.
    const QStringList lines = source.split(QLatin1Char('\n'));
    CommentTracker comments;
    int versionLine = -1;
    for (int i = 0; i < lines.size(); ++i) {
        const QString code = comments.strip(lines[i]).trimmed();
        if (code.isEmpty())
            continue;
        if (code.startsWith(QLatin1Char('#')) && code.mid(1).trimmed().startsWith(QLatin1String("version")))
            versionLine = i;
        break;
    }
    for (int i = 0; i <= versionLine; ++i)
        emitLine(lines[i], name, i + 1);
    emitLine(QStringLiteral("#define %1 1").arg(stageDefine(stage)), QString(), 0);
    if (m_processor) {
        const auto defines = m_processor->defines();
        for (const QPair<QString, QString> &define : defines)
            emitLine(QStringLiteral("#define %1 %2").arg(define.first, define.second), QString(), 0);
    }
    m_includeStack.append(name);
    expand(lines, versionLine + 1, name);
    m_includeStack.removeLast();
}

/// The lines from `first` on; those before it are out already.
void ShaderPreprocessor::expand(const QStringList &lines, int first, const QString &file)
{
    static const QRegularExpression directive(
        QStringLiteral("^\\s*#\\s*(include|instancedata|version)\\b\\s*(?:[\"<]([^\">]*)[\">])?"));
    CommentTracker comments;
    const bool isRoot = m_includeStack.size() == 1;
    for (int i = 0; i < lines.size(); ++i) {
        const QString code = comments.strip(lines[i]);
        if (i < first)
            continue;
        const QRegularExpressionMatch match = directive.match(code);
        if (!match.hasMatch()) {
            m_openIfs += conditionalStep(code);
            emitLine(lines[i], file, i + 1);
            continue;
        }
        // The directive's own line stays, empty, so that text and origins run in step.
        emitLine(QString(), file, i + 1);
        if (match.captured(1) == QLatin1String("include"))
            expandInclude(match.captured(2), file, i + 1);
        else if (match.captured(1) == QLatin1String("instancedata"))
            expandInstanceData(match.captured(2), file, i + 1);
        else if (isRoot)
            fail(file, i + 1, QStringLiteral("#version must come first; move it to the top of the source"));
    }
}

void ShaderPreprocessor::expandInclude(const QString &name, const QString &file, int line)
{
    QString path;
    if (!isPath(name)) {
        const QString beside = QFileInfo(file).dir().filePath(name);
        if (isPath(file) && QFileInfo(beside).isFile())
            path = beside;
    }
    if (path.isEmpty())
        path = findFile(name, m_processor);
    if (path.isEmpty()) {
        fail(file, line, QStringLiteral("cannot find the shader file '%1' to include").arg(name));
        return;
    }
    path = QDir::cleanPath(path);
    if (m_includeStack.contains(path)) {
        fail(file, line, QStringLiteral("'%1' includes itself").arg(name));
        return;
    }
    if (m_included.contains(path))
        return;
    QString text;
    if (!readText(path, &text)) {
        fail(file, line, QStringLiteral("cannot read the shader file '%1'").arg(path));
        return;
    }
    expandFile(path, text);
}

/// Brings in a file that is not there for certain yet.
void ShaderPreprocessor::expandFile(const QString &path, const QString &text)
{
    // Only the driver knows which branches it takes, so a macro of its own tells whether a file under an #if is there.
    const bool isCertain = m_openIfs == 0 && !m_guarded.contains(path);
    if (m_openIfs == 0)
        m_included.append(path);
    if (!isCertain && !m_guarded.contains(path))
        m_guarded.append(path);
    const QString guard = QStringLiteral("KVZ_INCLUDED_%1").arg(m_guarded.indexOf(path));
    if (!isCertain) {
        emitLine(QStringLiteral("#ifndef %1").arg(guard), QString(), 0);
        emitLine(QStringLiteral("#define %1 1").arg(guard), QString(), 0);
        ++m_openIfs;
    }
    m_includeStack.append(path);
    const int openIfs = m_openIfs;
    expand(text.split(QLatin1Char('\n')), 0, path);
    m_openIfs = openIfs; // Whatever the file leaves open is for the driver to refuse.
    m_includeStack.removeLast();
    if (!isCertain) {
        emitLine(QStringLiteral("#endif"), QString(), 0);
        --m_openIfs;
    }
}

void ShaderPreprocessor::expandInstanceData(const QString &name, const QString &file, int line)
{
    const QString declarations = planDeclarations ? planDeclarations->find(name) : QString();
    if (declarations.isNull()) {
        const QStringList known = planDeclarations ? planDeclarations->planNames() : QStringList();
        fail(file, line,
            QStringLiteral("there is no instance data plan '%1'; known plans: %2")
                .arg(name, known.join(QStringLiteral(", "))));
        return;
    }
    const QStringList lines = declarations.split(QLatin1Char('\n'));
    for (const QString &declaration : lines)
        emitLine(declaration, file, line);
}

void ShaderPreprocessor::emitLine(const QString &text, const QString &file, int line)
{
    m_lines.append(text);
    m_origins.append({file, line});
}

void ShaderPreprocessor::fail(const QString &file, int line, const QString &what)
{
    if (m_openIfs > 0) {
        emitLine(QStringLiteral("#error %1").arg(what), file, line);
        return;
    }
    const QString error = QStringLiteral("%1:%2: %3").arg(file, QString::number(line), what);
    m_errors.append(error);
    KVZ_WARNING(error);
}

QString ShaderPreprocessor::text() const
{
    return m_lines.join(QLatin1Char('\n'));
}

QStringList ShaderPreprocessor::includedFiles() const
{
    QStringList files = m_included;
    for (const QString &file : m_guarded) {
        if (!files.contains(file))
            files.append(file);
    }
    return files;
}

QStringList ShaderPreprocessor::errors() const
{
    return m_errors;
}

QString ShaderPreprocessor::mapLog(const QString &driverLog) const
{
    // Source string and line, as the three families of drivers write them.
    static const QRegularExpression place(
        QStringLiteral("^(ERROR: |WARNING: )?0[:(](\\d+)(?:\\((\\d+)\\))?\\)?\\s?:?\\s?"));
    QStringList mapped;
    const QStringList lines = driverLog.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = place.match(line);
        const Origin where = match.hasMatch() ? origin(match.captured(2).toInt()) : Origin{QString(), 0};
        if (where.line == 0)
            mapped.append(line);
        else
            mapped.append(
                QStringLiteral("%1%2:%3: %4")
                    .arg(match.captured(1), where.file, QString::number(where.line), line.mid(match.capturedEnd())));
    }
    return mapped.join(QLatin1Char('\n'));
}

ShaderPreprocessor::Origin ShaderPreprocessor::origin(int line) const
{
    return line >= 1 && line <= m_origins.size() ? m_origins[line - 1] : Origin{QString(), 0};
}

QString ShaderPreprocessor::findFile(const QString &file, const GLSLMacroProcessor *processor)
{
    if (file.isEmpty())
        return QString();
    if (isPath(file))
        return QFileInfo(file).isFile() ? file : QString();
    QStringList folders{shaderFolder};
    if (processor)
        folders += processor->includePaths();
    for (const QString &folder : qAsConst(folders)) {
        const QString path = QDir(folder).filePath(file);
        if (QFileInfo(path).isFile())
            return path;
    }
    return QString();
}

} // namespace Velmora::Kvz
