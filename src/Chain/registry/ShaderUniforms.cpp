// SPDX-License-Identifier: MIT
#include <Chain/registry/ShaderUniforms.h>

#include <Chain/NearestNames.h>
#include <GL/FixedTextureUnits.h>
#include <GL/ShaderProgram.h>

#include <epoxy/gl.h>

#include <algorithm>
#include <iterator>

namespace Velmora::Kvz {

namespace {

struct GlslType
{
    GLenum type;
    const char *name;
    int components; ///< 0: no plain numbers.
};

const GlslType glslTypes[] = {{GL_FLOAT, "float", 1}, {GL_FLOAT_VEC2, "vec2", 2}, {GL_FLOAT_VEC3, "vec3", 3},
    {GL_FLOAT_VEC4, "vec4", 4}, {GL_INT, "int", 1}, {GL_INT_VEC2, "ivec2", 2}, {GL_INT_VEC3, "ivec3", 3},
    {GL_INT_VEC4, "ivec4", 4}, {GL_UNSIGNED_INT, "uint", 1}, {GL_UNSIGNED_INT_VEC2, "uvec2", 2},
    {GL_UNSIGNED_INT_VEC3, "uvec3", 3}, {GL_UNSIGNED_INT_VEC4, "uvec4", 4}, {GL_BOOL, "bool", 1},
    {GL_BOOL_VEC2, "bvec2", 2}, {GL_BOOL_VEC3, "bvec3", 3}, {GL_BOOL_VEC4, "bvec4", 4}, {GL_FLOAT_MAT2, "mat2", 0},
    {GL_FLOAT_MAT3, "mat3", 9}, {GL_FLOAT_MAT4, "mat4", 16}, {GL_FLOAT_MAT2x3, "mat2x3", 0},
    {GL_FLOAT_MAT2x4, "mat2x4", 0}, {GL_FLOAT_MAT3x2, "mat3x2", 0}, {GL_FLOAT_MAT3x4, "mat3x4", 0},
    {GL_FLOAT_MAT4x2, "mat4x2", 0}, {GL_FLOAT_MAT4x3, "mat4x3", 0}};

/// Null for samplers and images.
const GlslType *plainType(GLenum type)
{
    const auto found =
        std::find_if(std::begin(glslTypes), std::end(glslTypes), [type](const GlslType &t) { return t.type == type; });
    return found == std::end(glslTypes) ? nullptr : found;
}

struct ActiveUniform
{
    QString name;
    GLenum type;
    bool isZero; ///< It has no other value by its initializer.

    QString typeName() const
    {
        const GlslType *plain = plainType(type);
        return plain ? QString::fromLatin1(plain->name) : QStringLiteral("a sampler");
    }
};

QVector<ActiveUniform> activeUniforms(const ShaderProgram &program)
{
    const QStringList sceneSamplers = FixedTextureUnits::samplers();
    QVector<ActiveUniform> uniforms;
    GLint count = 0;
    glGetProgramiv(program.programID(), GL_ACTIVE_UNIFORMS, &count);
    for (GLint i = 0; i < count; ++i) {
        char buffer[256] = {};
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(program.programID(), GLuint(i), sizeof(buffer), nullptr, &size, &type, buffer);
        const GLint location = glGetUniformLocation(program.programID(), buffer);
        QString name = QString::fromLatin1(buffer);
        if (name.endsWith(QLatin1String("[0]")))
            name.chop(3);
        if (location < 0 || sceneSamplers.contains(name))
            continue; // Members of blocks, and what models bind by themselves.
        GLfloat values[16] = {};
        if (plainType(type))
            glGetUniformfv(program.programID(), location, values);
        const bool isZero = std::all_of(std::begin(values), std::end(values), [](float value) { return value == 0; });
        uniforms.append({name, type, isZero});
    }
    std::sort(uniforms.begin(), uniforms.end(),
        [](const ActiveUniform &a, const ActiveUniform &b) { return a.name < b.name; });
    return uniforms;
}

/// Whether a port of this type can set a uniform.
bool canSet(ValueType port, GLenum uniform)
{
    const GlslType *plain = plainType(uniform);
    if (port == ValueType::Texture || !plain)
        return port == ValueType::Texture && !plain;
    switch (port) {
    case ValueType::Bool:
    case ValueType::Int:
    case ValueType::Float:
        return plain->components == 1;
    case ValueType::Size:
    case ValueType::Vector2D:
        return plain->components == 2;
    case ValueType::Vector3D:
        return plain->components == 3;
    case ValueType::Color:
        return plain->components == 3 || plain->components == 4;
    case ValueType::Rect:
        return plain->components == 4;
    case ValueType::Matrix4x4:
        return plain->components == 9 || plain->components == 16;
    default:
        return false;
    }
}

/// What a port of this type sets, in GLSL.
QString settable(ValueType port)
{
    switch (port) {
    case ValueType::Texture:
        return QStringLiteral("a sampler");
    case ValueType::Size:
    case ValueType::Vector2D:
        return QStringLiteral("vec2, ivec2 or uvec2");
    case ValueType::Vector3D:
        return QStringLiteral("vec3, ivec3 or uvec3");
    case ValueType::Color:
        return QStringLiteral("vec3 or vec4");
    case ValueType::Rect:
        return QStringLiteral("vec4, ivec4 or uvec4");
    case ValueType::Matrix4x4:
        return QStringLiteral("mat4 or mat3");
    default:
        return QStringLiteral("float, int, uint or bool");
    }
}

/// How the record of an input for a uniform begins: `"name": "u_A", "type": "float"`. Empty where no input can set it.
QString recordFor(const ActiveUniform &uniform)
{
    const GlslType *plain = plainType(uniform.type);
    if (!plain) {
        return uniform.name.startsWith(QLatin1String("u_"))
            ? QStringLiteral("\"name\": \"Kvz_KvzTexture*_%1\"").arg(uniform.name.mid(2))
            : QString();
    }
    const ValueType type = plain->components == 16 || plain->components == 9 ? ValueType::Matrix4x4
        : plain->components == 4                                             ? ValueType::Color
        : plain->components == 3                                             ? ValueType::Vector3D
        : plain->components == 2                                             ? ValueType::Vector2D
        : plain->type == GL_BOOL                                             ? ValueType::Bool
        : plain->type == GL_FLOAT                                            ? ValueType::Float
                                                                             : ValueType::Int;
    return plain->components == 0
        ? QString()
        : QStringLiteral("\"name\": \"%1\", \"type\": \"%2\"").arg(uniform.name, typeName(type));
}

} // namespace

void checkUniforms(const ShaderProgram &program, const QVector<UniformPort> &ports, const PassUse &use,
    QVector<OptionProblem> *problems)
{
    const QVector<ActiveUniform> uniforms = activeUniforms(program);
    const auto portOf = [&](const ActiveUniform &uniform) {
        return std::find_if(
            ports.begin(), ports.end(), [&](const UniformPort &port) { return port.uniform == uniform.name; });
    };
    QStringList unfed; // of no port
    for (const ActiveUniform &uniform : uniforms) {
        if (portOf(uniform) == ports.end())
            unfed.append(uniform.name);
    }
    QStringList meant; // told already, as what a misspelt port means
    for (const UniformPort &port : ports) {
        const auto uniform = std::find_if(
            uniforms.begin(), uniforms.end(), [&](const ActiveUniform &u) { return u.name == port.uniform; });
        if (uniform == uniforms.end()) {
            if (port.isOptional)
                continue;
            const QStringList nearest = nearestNames(port.uniform, unfed);
            meant += nearest;
            problems->append({port.port, QStringLiteral("a uniform \"%1\" that its shaders read").arg(port.uniform),
                QStringLiteral("none"),
                nearest.isEmpty() ? QStringLiteral("the input has no effect")
                                  : nearestNamesAdvice(port.uniform, unfed)});
        } else if (!canSet(port.type, uniform->type)) {
            problems->append({port.port,
                QStringLiteral("a uniform of type %1, which %2 can set").arg(settable(port.type), typeName(port.type)),
                uniform->typeName(), QStringLiteral("the uniform is not set")});
        } else if (plainType(uniform->type) && uniform->isZero && !use.isFed(port.port)
            && !use.value(port.port).isValid()) {
            problems->append({port.port, QStringLiteral("something that feeds the uniform"), QStringLiteral("nothing"),
                QStringLiteral("it stays 0: give the input a value or a connection")});
        }
    }
    for (const ActiveUniform &uniform : uniforms) {
        if (portOf(uniform) != ports.end() || meant.contains(uniform.name) || !uniform.isZero)
            continue;
        const QString record = recordFor(uniform);
        problems->append({QStringLiteral("inputs"),
            QStringLiteral("an input that feeds the uniform \"%1\" (%2)").arg(uniform.name, uniform.typeName()),
            QStringLiteral("none"),
            record.isEmpty() ? QStringLiteral("no input can set it") : QStringLiteral("add {%1}").arg(record)});
    }
}

} // namespace Velmora::Kvz
