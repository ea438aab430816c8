// SPDX-License-Identifier: MIT
#include <GL/ShaderProgram.h>

#include "CurrentContext.h"
#include "GLStatisticsPrivate.h"
#include "ProgramFailuresPrivate.h"
#include "StandardAttributes.h"
#include "TessellationPrograms.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/FixedTextureUnits.h>
#include <GL/ShaderPreprocessor.h>

#include <QtCore/QFile>
#include <QtCore/QPointF>
#include <QtCore/QRect>
#include <QtCore/QSize>
#include <QtGui/QColor>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

QString stageName(GLenum type)
{
    switch (type) {
    case GL_VERTEX_SHADER:
        return QStringLiteral("vertex");
    case GL_TESS_CONTROL_SHADER:
        return QStringLiteral("tessellation control");
    case GL_TESS_EVALUATION_SHADER:
        return QStringLiteral("tessellation evaluation");
    case GL_GEOMETRY_SHADER:
        return QStringLiteral("geometry");
    case GL_FRAGMENT_SHADER:
        return QStringLiteral("fragment");
    default:
        return QStringLiteral("unknown");
    }
}

QString shaderLog(GLuint shader)
{
    GLint length = 0;
    glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
    QByteArray log(qMax(1, length), '\0');
    glGetShaderInfoLog(shader, log.size(), nullptr, log.data());
    return QString::fromUtf8(log.constData());
}

QString programLog(GLuint program)
{
    GLint length = 0;
    glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
    QByteArray log(qMax(1, length), '\0');
    glGetProgramInfoLog(program, log.size(), nullptr, log.data());
    return QString::fromUtf8(log.constData());
}

/// What a uniform is made of.
struct UniformShape
{
    enum Base { Float, Int, UInt, Matrix3, Matrix4, Other } base;
    int components;
};

UniformShape shapeOf(GLenum type)
{
    switch (type) {
    case GL_FLOAT:
        return {UniformShape::Float, 1};
    case GL_FLOAT_VEC2:
        return {UniformShape::Float, 2};
    case GL_FLOAT_VEC3:
        return {UniformShape::Float, 3};
    case GL_FLOAT_VEC4:
        return {UniformShape::Float, 4};
    case GL_INT_VEC2:
    case GL_BOOL_VEC2:
        return {UniformShape::Int, 2};
    case GL_INT_VEC3:
    case GL_BOOL_VEC3:
        return {UniformShape::Int, 3};
    case GL_INT_VEC4:
    case GL_BOOL_VEC4:
        return {UniformShape::Int, 4};
    case GL_UNSIGNED_INT:
        return {UniformShape::UInt, 1};
    case GL_UNSIGNED_INT_VEC2:
        return {UniformShape::UInt, 2};
    case GL_UNSIGNED_INT_VEC3:
        return {UniformShape::UInt, 3};
    case GL_UNSIGNED_INT_VEC4:
        return {UniformShape::UInt, 4};
    case GL_FLOAT_MAT3:
        return {UniformShape::Matrix3, 9};
    case GL_FLOAT_MAT4:
        return {UniformShape::Matrix4, 16};
    case GL_FLOAT_MAT2:
    case GL_FLOAT_MAT2x3:
    case GL_FLOAT_MAT2x4:
    case GL_FLOAT_MAT3x2:
    case GL_FLOAT_MAT3x4:
    case GL_FLOAT_MAT4x2:
    case GL_FLOAT_MAT4x3:
        return {UniformShape::Other, 0};
    default:
        return {UniformShape::Int, 1}; // int, bool, samplers, images
    }
}

bool isBool(GLenum type)
{
    return type == GL_BOOL || type == GL_BOOL_VEC2 || type == GL_BOOL_VEC3 || type == GL_BOOL_VEC4;
}

/// The numbers of a value, at most 16; their count, or 0 for a value that has none.
int numbersOf(const QVariant &value, int wanted, double *numbers)
{
    const auto fill = [numbers](std::initializer_list<double> list) {
        std::copy(list.begin(), list.end(), numbers);
        return int(list.size());
    };
    switch (value.userType()) {
    case QMetaType::QVector2D: {
        const auto v = value.value<QVector2D>();
        return fill({v.x(), v.y()});
    }
    case QMetaType::QVector3D: {
        const auto v = value.value<QVector3D>();
        return fill({v.x(), v.y(), v.z()});
    }
    case QMetaType::QVector4D: {
        const auto v = value.value<QVector4D>();
        return fill({v.x(), v.y(), v.z(), v.w()});
    }
    case QMetaType::QColor: {
        const auto c = value.value<QColor>();
        fill({c.redF(), c.greenF(), c.blueF(), c.alphaF()});
        return wanted == 3 ? 3 : 4;
    }
    case QMetaType::QRect: {
        const auto r = value.toRect();
        return fill({double(r.left()), double(r.top()), double(r.width()), double(r.height())});
    }
    case QMetaType::QSize:
    case QMetaType::QSizeF: {
        const auto s = value.toSizeF();
        return fill({s.width(), s.height()});
    }
    case QMetaType::QPoint:
    case QMetaType::QPointF: {
        const auto p = value.toPointF();
        return fill({p.x(), p.y()});
    }
    default: {
        bool ok = false;
        const double number = value.toDouble(&ok);
        return ok ? fill({number}) : 0;
    }
    }
}

} // namespace

ShaderProgram::ShaderProgram(QObject *parent)
    : QObject(parent),
      m_owner(GLObject::Sharing::ShareGroup)
{ }

ShaderProgram::~ShaderProgram()
{
    deleteProgram();
}

void ShaderProgram::deleteProgram()
{
    if (!m_name)
        return;
    if (m_owner.isKnownToCurrentContext()) {
        glDeleteProgram(m_name);
        TessellationPrograms::current().remove(m_name);
    }
    --liveNames().programs;
    m_name = 0;
}

void ShaderProgram::setMacroProcessor(GLSLMacroProcessor *processor)
{
    m_macroProcessor = processor;
}

void ShaderProgram::setFragDataLocations(const QStringList &names)
{
    m_fragDataLocations = names;
}

void ShaderProgram::addShader(int type, const QString &source, const QString &name)
{
    m_units.append({type, source, name, false});
}

void ShaderProgram::addShaderFromFile(int type, const QString &file)
{
    m_units.append({type, QString(), file, true});
}

bool ShaderProgram::compile()
{
    m_log.clear();
    m_uniforms.clear();
    m_attributes.clear();
    m_compiled = false;
    m_linked = false;
    deleteProgram();
    if (!currentContextHandle()) {
        m_log = QStringLiteral("no OpenGL context is current");
        return false;
    }
    m_name = glCreateProgram();
    m_owner.claim();
    ++liveNames().programs;
    m_compiled = true;
    // Every unit is compiled, so that the log holds all mistakes at once.
    for (int i = 0; i < m_units.size(); ++i)
        m_compiled = compileUnit(m_units[i], i) && m_compiled;
    m_isFailureKept = false;
    if (!m_compiled)
        keepFailure();
    return m_compiled;
}

bool ShaderProgram::compileUnit(const Unit &unit, int number)
{
    QString source = unit.source;
    QString name = unit.name;
    if (unit.fromFile) {
        name = ShaderPreprocessor::findFile(unit.name, m_macroProcessor);
        QFile file(name);
        if (name.isEmpty() || !file.open(QIODevice::ReadOnly)) {
            const QString error = QStringLiteral("cannot find the shader file '%1'").arg(unit.name);
            KVZ_WARNING(error);
            m_log += error + QLatin1Char('\n');
            return false;
        }
        source = QString::fromUtf8(file.readAll());
    } else if (name.isEmpty()) {
        name = QStringLiteral("<%1 source %2>").arg(stageName(GLenum(unit.type))).arg(number);
    }
    const ShaderPreprocessor preprocessor(GLenum(unit.type), source, name, m_macroProcessor);
    for (const QString &error : preprocessor.errors())
        m_log += error + QLatin1Char('\n');

    const QByteArray text = preprocessor.text().toUtf8();
    const char *const data = text.constData();
    const GLint length = text.size();
    const GLuint shader = glCreateShader(GLenum(unit.type));
    if (!shader) {
        m_log += QStringLiteral("%1: the driver has no %2 stage\n").arg(name, stageName(GLenum(unit.type)));
        return false;
    }
    glShaderSource(shader, 1, &data, &length);
    glCompileShader(shader);
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    const QString driverLog = shaderLog(shader).trimmed();
    if (!driverLog.isEmpty())
        m_log += preprocessor.mapLog(driverLog) + QLatin1Char('\n');
    if (compiled)
        glAttachShader(m_name, shader);
    // An attached shader lives as long as its program.
    glDeleteShader(shader);
    return compiled && preprocessor.errors().isEmpty();
}

bool ShaderProgram::link()
{
    m_uniforms.clear();
    m_attributes.clear();
    m_linked = false;
    if (!m_compiled)
        return false;
    GLuint location = 0;
    for (const char *attribute : standardAttributes)
        glBindAttribLocation(m_name, location++, attribute);
    for (int i = 0; i < m_fragDataLocations.size(); ++i)
        glBindFragDataLocation(m_name, GLuint(i), m_fragDataLocations[i].toUtf8().constData());
    glLinkProgram(m_name);
    GLint linked = GL_FALSE;
    glGetProgramiv(m_name, GL_LINK_STATUS, &linked);
    const QString driverLog = programLog(m_name).trimmed();
    if (!driverLog.isEmpty())
        m_log += driverLog + QLatin1Char('\n');
    m_linked = linked == GL_TRUE;
    if (!m_linked) {
        keepFailure();
        return false;
    }
    if (hasTessellation())
        TessellationPrograms::current().insert(m_name);
    readUniforms();
    assignFixedUnits();
    return true;
}

void ShaderProgram::keepFailure()
{
    if (!m_isFailureKept)
        addProgramFailure(m_log);
    m_isFailureKept = true;
}

void ShaderProgram::readUniforms()
{
    char buffer[256];
    GLint count = 0;
    glGetProgramiv(m_name, GL_ACTIVE_UNIFORMS, &count);
    for (GLint i = 0; i < count; ++i) {
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(m_name, GLuint(i), sizeof(buffer), nullptr, &size, &type, buffer);
        const int location = glGetUniformLocation(m_name, buffer);
        if (location < 0)
            continue; // A member of a uniform block.
        QString name = QString::fromLatin1(buffer);
        if (name.endsWith(QLatin1String("[0]")))
            name.chop(3);
        m_uniforms.insert(name, {location, type, size, QByteArray(), true, false});
    }
    glGetProgramiv(m_name, GL_ACTIVE_ATTRIBUTES, &count);
    for (GLint i = 0; i < count; ++i) {
        GLint size = 0;
        GLenum type = 0;
        glGetActiveAttrib(m_name, GLuint(i), sizeof(buffer), nullptr, &size, &type, buffer);
        m_attributes.insert(QString::fromLatin1(buffer), glGetAttribLocation(m_name, buffer));
    }
}

void ShaderProgram::assignFixedUnits()
{
    AutoBinder binder(this);
    for (auto it = m_uniforms.begin(); it != m_uniforms.end(); ++it) {
        const int unit = FixedTextureUnits::unitOf(it.key());
        if (unit >= 0)
            glUniform1i(it->location, unit);
    }
}

QString ShaderProgram::log() const
{
    return m_log;
}

bool ShaderProgram::isLinked() const
{
    return m_linked;
}

ShaderProgram::Uniform *ShaderProgram::findUniform(const QString &name)
{
    auto found = m_uniforms.find(name);
    if (found == m_uniforms.end() && name.endsWith(QLatin1String("[0]")))
        found = m_uniforms.find(name.left(name.size() - 3));
    return found == m_uniforms.end() ? nullptr : &*found;
}

void ShaderProgram::setUniform(const QString &name, const QVariant &value)
{
    Uniform *const uniform = findUniform(name);
    if (!uniform)
        return;
    const UniformShape shape = shapeOf(uniform->type);
    if (shape.base == UniformShape::Matrix4 && value.userType() == QMetaType::QMatrix4x4) {
        const auto matrix = value.value<QMatrix4x4>();
        send(*uniform, matrix.constData(), 16 * sizeof(float), 1);
        return;
    }
    if (shape.base == UniformShape::Matrix3 && value.userType() == QMetaType::QMatrix4x4) {
        const QMatrix3x3 matrix = value.value<QMatrix4x4>().toGenericMatrix<3, 3>();
        send(*uniform, matrix.constData(), 9 * sizeof(float), 1);
        return;
    }
    double numbers[16];
    const int count = shape.components <= 4 ? numbersOf(value, shape.components, numbers) : 0;
    if (count == 0 || count != shape.components) {
        if (!uniform->refused)
            KVZ_WARNING(QStringLiteral("The uniform '%1' has %2 components and cannot take a value of type '%3'")
                            .arg(name, QString::number(shape.components), QString::fromLatin1(value.typeName())));
        uniform->refused = true;
        return;
    }
    float floats[4];
    GLint ints[4];
    GLuint uints[4];
    for (int i = 0; i < count; ++i) {
        floats[i] = float(numbers[i]);
        ints[i] =
            isBool(uniform->type) ? GLint(numbers[i] != 0) : GLint(qBound(-2147483648.0, numbers[i], 2147483647.0));
        uints[i] = GLuint(qBound(0.0, numbers[i], 4294967295.0));
    }
    const void *const data = shape.base == UniformShape::Float ? static_cast<const void *>(floats)
        : shape.base == UniformShape::Int                      ? static_cast<const void *>(ints)
                                                               : static_cast<const void *>(uints);
    send(*uniform, data, count * 4, 1);
}

void ShaderProgram::setUniform(const QString &name, const QVector<float> &values)
{
    Uniform *const uniform = findUniform(name);
    if (!uniform)
        return;
    const UniformShape shape = shapeOf(uniform->type);
    if (shape.base == UniformShape::Int || shape.base == UniformShape::UInt || shape.base == UniformShape::Other) {
        if (!uniform->refused)
            KVZ_WARNING(QStringLiteral("The uniform '%1' cannot take a list of floats").arg(name));
        uniform->refused = true;
        return;
    }
    const int elements = qMin(uniform->size, values.size() / shape.components);
    if (elements > 0)
        send(*uniform, values.constData(), elements * shape.components * int(sizeof(float)), elements);
}

void ShaderProgram::send(Uniform &uniform, const void *data, int bytes, int elements)
{
    const auto *const raw = static_cast<const char *>(data);
    if (uniform.cached && uniform.value.size() == bytes && std::equal(raw, raw + bytes, uniform.value.constData()))
        return;
    // A binder of another program may lie inside this one's, so ask.
    GLint current = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    AutoBinder binder(GLuint(current) == m_name ? nullptr : this);
    const auto *const floats = static_cast<const GLfloat *>(data);
    const auto *const ints = static_cast<const GLint *>(data);
    const auto *const uints = static_cast<const GLuint *>(data);
    const UniformShape shape = shapeOf(uniform.type);
    switch (shape.base) {
    case UniformShape::Float:
        if (shape.components == 1)
            glUniform1fv(uniform.location, elements, floats);
        else if (shape.components == 2)
            glUniform2fv(uniform.location, elements, floats);
        else if (shape.components == 3)
            glUniform3fv(uniform.location, elements, floats);
        else
            glUniform4fv(uniform.location, elements, floats);
        break;
    case UniformShape::Int:
        if (shape.components == 1)
            glUniform1iv(uniform.location, elements, ints);
        else if (shape.components == 2)
            glUniform2iv(uniform.location, elements, ints);
        else if (shape.components == 3)
            glUniform3iv(uniform.location, elements, ints);
        else
            glUniform4iv(uniform.location, elements, ints);
        break;
    case UniformShape::UInt:
        if (shape.components == 1)
            glUniform1uiv(uniform.location, elements, uints);
        else if (shape.components == 2)
            glUniform2uiv(uniform.location, elements, uints);
        else if (shape.components == 3)
            glUniform3uiv(uniform.location, elements, uints);
        else
            glUniform4uiv(uniform.location, elements, uints);
        break;
    case UniformShape::Matrix3:
        glUniformMatrix3fv(uniform.location, elements, GL_FALSE, floats);
        break;
    case UniformShape::Matrix4:
        glUniformMatrix4fv(uniform.location, elements, GL_FALSE, floats);
        break;
    case UniformShape::Other:
        break;
    }
    if (uniform.cached) {
        uniform.value.resize(bytes);
        std::copy(raw, raw + bytes, uniform.value.begin());
    }
}

bool ShaderProgram::hasUniform(const QString &name) const
{
    return const_cast<ShaderProgram *>(this)->findUniform(name) != nullptr;
}

int ShaderProgram::getUniformLocation(const QString &name) const
{
    if (Uniform *const uniform = const_cast<ShaderProgram *>(this)->findUniform(name)) {
        uniform->cached = false;
        return uniform->location;
    }
    // Elements of arrays beyond the first are not listed by name.
    const int element = name.endsWith(QLatin1Char(']')) ? name.lastIndexOf(QLatin1Char('[')) : -1;
    Uniform *const array = element < 0 ? nullptr : const_cast<ShaderProgram *>(this)->findUniform(name.left(element));
    if (!array)
        return -1;
    array->cached = false;
    return glGetUniformLocation(m_name, name.toUtf8().constData());
}

int ShaderProgram::attributeLocation(const QString &name) const
{
    return m_attributes.value(name, -1);
}

unsigned int ShaderProgram::programID() const
{
    return m_name;
}

bool ShaderProgram::hasTessellation() const
{
    return std::any_of(
        m_units.begin(), m_units.end(), [](const Unit &unit) { return unit.type == GL_TESS_EVALUATION_SHADER; });
}

void ShaderProgram::bind()
{
    GLint previous = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &previous);
    m_saved.append(previous);
    glUseProgram(m_linked ? m_name : 0);
    // Whoever goes on with a failed program gets nothing drawn, so each use counts again.
    if (!m_linked && m_isFailureKept)
        addProgramFailure(m_log);
}

void ShaderProgram::unbind()
{
    const int previous = m_saved.isEmpty() ? 0 : m_saved.last();
    if (!m_saved.isEmpty())
        m_saved.removeLast();
    glUseProgram(GLuint(previous));
}

} // namespace Velmora::Kvz
