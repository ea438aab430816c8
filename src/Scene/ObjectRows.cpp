// SPDX-License-Identifier: MIT
#include "ObjectRows.h"

#include "SceneMath.h"

#include <Scene/InstanceDataRegistry.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// Clean rows between two changed ones that are sent along rather than making one more upload.
constexpr int gapWorthSending = 16;

QString samplerOf(const char *plan)
{
    return InstanceDataRegistry::Instance().getPlan(QLatin1String(plan)).samplerName();
}

void store(const QMatrix4x4 &matrix, float *target)
{
    std::copy_n(matrix.constData(), 16, target);
}

QMatrix4x4 load(const float *columns)
{
    // QMatrix4x4 is made from rows.
    return QMatrix4x4(columns).transposed();
}

} // namespace

ObjectRows::ObjectRows()
    : m_instanceInfo(samplerOf("InstanceInfo"), GL_RGBA32F),
      m_tavoInstance(samplerOf("TavoInstance"), m_instanceInfo)
{ }

void ObjectRows::append(const QMatrix4x4 &model)
{
    Row row;
    store(model, row.model);
    store(normalMatrixOf(model), row.normal);
    store(model, row.previous);
    m_rows.push_back(row);
    m_isStale.push_back(false);
    makeStale(int(m_rows.size()) - 1);
}

QMatrix4x4 ObjectRows::model(int row) const
{
    return load(m_rows[size_t(row)].model);
}

QMatrix4x4 ObjectRows::previous(int row) const
{
    return load(m_rows[size_t(row)].previous);
}

void ObjectRows::setModel(int row, const QMatrix4x4 &model)
{
    store(model, m_rows[size_t(row)].model);
    store(normalMatrixOf(model), m_rows[size_t(row)].normal);
    makeStale(row);
}

void ObjectRows::setPrevious(int row, const QMatrix4x4 &previous)
{
    float *const stored = m_rows[size_t(row)].previous;
    if (std::equal(stored, stored + 16, previous.constData()))
        return;
    store(previous, stored);
    makeStale(row);
}

void ObjectRows::makeStale(int row)
{
    if (m_isStale[size_t(row)])
        return;
    m_isStale[size_t(row)] = true;
    m_stale.push_back(row);
}

void ObjectRows::upload()
{
    if (m_stale.empty())
        return;
    if (m_stale.size() == m_rows.size()) {
        m_instanceInfo.upload(m_rows.data(), long(m_rows.size() * sizeof(Row)));
    } else {
        std::sort(m_stale.begin(), m_stale.end());
        for (auto first = m_stale.begin(); first != m_stale.end();) {
            auto last = first;
            while (std::next(last) != m_stale.end() && *std::next(last) - *last <= gapWorthSending)
                ++last;
            m_instanceInfo.uploadRange(
                &m_rows[size_t(*first)], *first * long(sizeof(Row)), (*last - *first + 1) * long(sizeof(Row)));
            first = std::next(last);
        }
    }
    for (const int row : m_stale)
        m_isStale[size_t(row)] = false;
    m_stale.clear();
}

void ObjectRows::bind()
{
    upload();
    m_instanceInfo.bind();
    m_tavoInstance.bind();
}

void ObjectRows::unbind()
{
    m_tavoInstance.unbind();
    m_instanceInfo.unbind();
}

Bindable *ObjectRows::instanceInfo()
{
    return &m_instanceInfo;
}

Bindable *ObjectRows::tavoInstance()
{
    return &m_tavoInstance;
}

} // namespace Velmora::Kvz
