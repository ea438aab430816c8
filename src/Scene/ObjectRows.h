// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/BufferTexture.h>

#include <QtGui/QMatrix4x4>

#include <vector>

namespace Velmora::Kvz {

/// The rows of object data of a model: one for each item, laid out as the plans "InstanceInfo" and "TavoInstance" read
/// them. Changes wait here until the rows are uploaded or bound.
class ObjectRows : public Bindable
{
public:
    ObjectRows();

    void append(const QMatrix4x4 &model);
    QMatrix4x4 model(int row) const;
    QMatrix4x4 previous(int row) const;
    void setModel(int row, const QMatrix4x4 &model);
    void setPrevious(int row, const QMatrix4x4 &previous);

    /// The floats of a row.
    const float *values(int row) const { return m_rows[size_t(row)].model; }
    /// Uploads what changed.
    void upload();
    /// Binds the rows, changes uploaded, for both plans.
    void bind() override;
    void unbind() override;

    /// The rows under the sampler of one plan.
    Bindable *instanceInfo();
    Bindable *tavoInstance();

private:
    struct Row
    {
        float model[16];
        float normal[16];
        float previous[16];
    };
    void makeStale(int row);

    std::vector<Row> m_rows;
    std::vector<bool> m_isStale; ///< By row: it differs from what was uploaded.
    std::vector<int> m_stale; ///< Those rows, in any order.
    BufferTexture m_instanceInfo;
    BufferTexture m_tavoInstance; ///< The same content under the other plan's sampler.
};

} // namespace Velmora::Kvz
