// SPDX-License-Identifier: MIT
#include <Scene/InstanceDataPlan.h>

#include <Core/Log.h>
#include <GL/FixedTextureUnits.h>
#include <GL/ShaderProgram.h>

#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

constexpr int floatsPerTexel = 4;

using Type = InstanceDataPlan::Type;

QString glslName(Type type)
{
    switch (type) {
    case Type::Float:
        return QStringLiteral("float");
    case Type::Int:
        return QStringLiteral("int");
    case Type::Vec2:
        return QStringLiteral("vec2");
    case Type::Vec3:
        return QStringLiteral("vec3");
    case Type::Vec4:
        return QStringLiteral("vec4");
    case Type::Mat4:
        return QStringLiteral("mat4");
    }
    return {};
}

int floatCount(Type type)
{
    switch (type) {
    case Type::Float:
    case Type::Int:
        return 1;
    case Type::Vec2:
        return 2;
    case Type::Vec3:
        return 3;
    case Type::Vec4:
        return 4;
    case Type::Mat4:
        return 16;
    }
    return 0;
}

/// The GLSL expression that reads a field, where `texel` stands before a texel number of the row in brackets.
QString readExpression(Type type, int offset, const QString &texel)
{
    const auto texelAt = [&texel](int number) { return QStringLiteral("%1(%2)").arg(texel).arg(number); };
    const int first = offset / floatsPerTexel;
    if (type == Type::Mat4) {
        return QStringLiteral("mat4(%1, %2, %3, %4)")
            .arg(texelAt(first), texelAt(first + 1), texelAt(first + 2), texelAt(first + 3));
    }
    const QString components = QStringLiteral("xyzw").mid(offset % floatsPerTexel, floatCount(type));
    const QString value = QStringLiteral("%1.%2").arg(texelAt(first), components);
    // Integers lie in the row as numbers, exact below 2^24.
    return type == Type::Int ? QStringLiteral("int(%1)").arg(value) : value;
}

/// The value as a T; false when it does not convert.
template <typename T> bool convert(const QVariant &value, T &result)
{
    QVariant converted = value;
    if (!converted.convert(qMetaTypeId<T>()))
        return false;
    result = converted.value<T>();
    return true;
}

} // namespace

InstanceDataPlan::InstanceDataPlan(const QString &name, const QVector<Field> &fields)
    : m_name(name),
      m_fields(fields)
{
    int next = 0;
    for (const Field &field : fields) {
        const int count = floatCount(field.type);
        const int leftInTexel = floatsPerTexel - next % floatsPerTexel;
        if (leftInTexel < floatsPerTexel && count > leftInTexel)
            next += leftInTexel;
        m_offsets.append(next);
        next += count;
    }
    m_stride = (next + floatsPerTexel - 1) / floatsPerTexel;
}

QString InstanceDataPlan::name() const
{
    return m_name;
}

QVector<InstanceDataPlan::Field> InstanceDataPlan::fields() const
{
    return m_fields;
}

QString InstanceDataPlan::samplerName() const
{
    return QStringLiteral("kvz_%1Rows").arg(m_name);
}

QString InstanceDataPlan::rowUniformName() const
{
    return QStringLiteral("kvz_%1Row").arg(m_name);
}

QString InstanceDataPlan::rowUniformMacro() const
{
    return QStringLiteral("KVZ_ROW_UNIFORM_%1").arg(m_name);
}

int InstanceDataPlan::stride() const
{
    return m_stride;
}

int InstanceDataPlan::offset(const QString &getter) const
{
    for (int i = 0; i < m_fields.size(); ++i) {
        if (m_fields[i].getter == getter)
            return m_offsets[i];
    }
    return -1;
}

QString InstanceDataPlan::declarations() const
{
    QString text;
    for (const Field &field : m_fields)
        text += QStringLiteral("%1 %2();\n").arg(glslName(field.type), field.getter);
    return text;
}

QString InstanceDataPlan::glslc() const
{
    // Compilers want at least one declaration in a unit.
    if (m_fields.isEmpty())
        return QStringLiteral("#version 150\nint kvzDrawIndex();\n");
    const QString texel = QStringLiteral("kvz_%1Texel").arg(m_name);
    // Reading past the end of a buffer texture is undefined, so rows that are not there are made zeros here.
    QString text = QStringLiteral(R"(#version 150

#ifdef %4
uniform vec4 %5[%3];

vec4 %2(int texel)
{
    return %5[texel];
}
#else
uniform samplerBuffer %1;

int kvzDrawIndex();

vec4 %2(int texel)
{
    int index = kvzDrawIndex() * %3 + texel;
    return index < textureSize(%1) ? texelFetch(%1, index) : vec4(0.0);
}
#endif
)")
                       .arg(samplerName(), texel)
                       .arg(m_stride)
                       .arg(rowUniformMacro(), rowUniformName());
    for (int i = 0; i < m_fields.size(); ++i) {
        text += QStringLiteral("\n%1 %2()\n{\n    return %3;\n}\n")
                    .arg(glslName(m_fields[i].type), m_fields[i].getter,
                        readExpression(m_fields[i].type, m_offsets[i], texel));
    }
    return text;
}

void InstanceDataPlan::assertShaderProgram(const ShaderProgram *program) const
{
    const bool isLinked = program && program->isLinked();
    KVZ_ASSERT(isLinked, "Instance data plan '%s' needs a linked program", qPrintable(m_name));
    if (!isLinked || !program->hasUniform(samplerName()))
        return;
    GLint unit = 0;
    glGetUniformiv(program->programID(), program->getUniformLocation(samplerName()), &unit);
    const int fixedUnit = FixedTextureUnits::unitOf(samplerName());
    KVZ_ASSERT(unit == fixedUnit, "Sampler '%s' of instance data plan '%s' reads texture unit %d, its rows are on %d",
        qPrintable(samplerName()), qPrintable(m_name), unit, fixedUnit);
}

bool InstanceDataPlan::write(float *row, const QString &getter, const QVariant &value) const
{
    for (int i = 0; i < m_fields.size(); ++i) {
        if (m_fields[i].getter != getter)
            continue;
        float *const target = row + m_offsets[i];
        switch (m_fields[i].type) {
        case Type::Float:
            return convert(value, *target);
        case Type::Int: {
            int number = 0;
            if (!convert(value, number))
                return false;
            *target = float(number);
            return true;
        }
        case Type::Vec2: {
            QVector2D vector;
            if (!convert(value, vector))
                return false;
            target[0] = vector.x();
            target[1] = vector.y();
            return true;
        }
        case Type::Vec3: {
            QVector3D vector;
            if (!convert(value, vector))
                return false;
            for (int k = 0; k < 3; ++k)
                target[k] = vector[k];
            return true;
        }
        case Type::Vec4: {
            QVector4D vector;
            if (!convert(value, vector))
                return false;
            for (int k = 0; k < 4; ++k)
                target[k] = vector[k];
            return true;
        }
        case Type::Mat4: {
            QMatrix4x4 matrix;
            if (!convert(value, matrix))
                return false;
            std::copy_n(matrix.constData(), 16, target);
            return true;
        }
        }
    }
    return false;
}

} // namespace Velmora::Kvz
