// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class ShaderProgram;

/// The layout of one row of data for each drawn item, and the GLSL getters that read it.
///
/// Rows lie in a buffer texture of GL_RGBA32F under the sampler samplerName(), on a fixed unit. A field starts where the
/// one before it ended, except that none straddles a texel; matrices start a texel, column by column.
class KVZ_GL_EXPORT InstanceDataPlan
{
public:
    enum class Type { Float, Int, Vec2, Vec3, Vec4, Mat4 };

    struct Field
    {
        QString getter; ///< Name of the GLSL function, such as "getModelMatrix".
        Type type;
    };

    /// `name` is what `#instancedata "name"` says. A name that is no identifier, a plan without fields and a getter that
    /// comes twice are the caller's mistakes; the registry refuses them.
    InstanceDataPlan(const QString &name, const QVector<Field> &fields);

    QString name() const;
    QVector<Field> fields() const;
    /// The sampler of the rows: "kvz_<name>Rows".
    QString samplerName() const;
    /// The row of the one item that is being drawn, in programs that define rowUniformMacro(): an array of stride() vec4 that
    /// GPUModel::draw() sets, "kvz_<name>Row". Such programs read the model's own rows, whatever a host has bound.
    QString rowUniformName() const;
    QString rowUniformMacro() const;
    /// Texels of one row.
    int stride() const;
    /// First float of a field within its row; -1 for a getter that the plan does not have.
    int offset(const QString &getter) const;

    /// The text that `#instancedata` inserts: the prototypes of the getters.
    QString declarations() const;
    /// A compilation unit that defines the getters for the item whose number `int kvzDrawIndex()` gives. A stage with plans
    /// gets that function from exactly one further unit: KvzUtilities.glslc or VisibilityBuffer.glslc. Its other names
    /// contain the plan's name, so that one stage can have two plans.
    QString glslc() const;
    /// Checks that a program is linked and that its sampler of the rows, if it has one, is on its fixed unit; a failure
    /// is logged as an assertion.
    void assertShaderProgram(const ShaderProgram *program) const;

    /// Writes a value into a row of stride() * 4 floats. False for an unknown getter or a value that does not convert; the
    /// row is unchanged then.
    bool write(float *row, const QString &getter, const QVariant &value) const;

private:
    QString m_name;
    QVector<Field> m_fields;
    QVector<int> m_offsets;
    int m_stride = 0;
};

} // namespace Velmora::Kvz
