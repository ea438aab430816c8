// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class BufferTexture;
class InstanceDataPlan;
class ShaderProgram;
class TextureManager;

/// A host's own rows for one plan. While bound they replace the model's rows for that plan: the item with draw number i
/// reads row i. An item past the last row reads zeros.
class KVZ_GL_EXPORT InstanceDataCollection : public QObject
{
    Q_OBJECT

public:
    /// `plan` names a plan of the registry; an unknown one is logged and makes every operation do nothing.
    explicit InstanceDataCollection(const QString &plan, QObject *parent = nullptr);
    ~InstanceDataCollection() override;

    QString planName() const;
    int rowCount() const;
    /// Appends rows of zeros or removes the last ones. More rows than the driver's buffer textures hold are refused with one log line.
    void setRowCount(int count);
    /// Sets one value of a row by the name of its getter; the rows are uploaded at the next bind(). False, with one log
    /// line, for a row out of range, an unknown getter or a value that does not convert.
    bool setValue(int row, const QString &getter, const QVariant &value);
    /// Sets the model matrix of a row, its normal matrix with it where the plan has one, and leaves the previous model
    /// matrix alone.
    bool setModelMatrix(int row, const QMatrix4x4 &matrix);

    /// Binds the rows to their fixed unit. `program` and `manager` can be null.
    void bind(ShaderProgram *program, TextureManager *manager);
    void unbind(ShaderProgram *program, TextureManager *manager);

    /// Whether a collection for the plan is bound in the current context.
    static bool isBound(const QString &plan);
    /// A number that tells the rows that are bound for the plan in the current context from all others, of this and of any other
    /// collection; 0 while none are.
    static quint64 boundRevision(const QString &plan);

private:
    const InstanceDataPlan *m_plan;
    QVector<float> m_rows;
    bool m_dirty = true;
    quint64 m_revision = 0; ///< Of the rows as they were uploaded last.
    std::unique_ptr<BufferTexture> m_texture;
};

} // namespace Velmora::Kvz
