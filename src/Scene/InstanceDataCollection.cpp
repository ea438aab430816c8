// SPDX-License-Identifier: MIT
#include <Scene/InstanceDataCollection.h>

#include "SceneMath.h"

#include <Core/Log.h>
#include <GL/BufferTexture.h>
#include <GL/OpenGLDeviceContext.h>
#include <Scene/InstanceDataRegistry.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace Velmora::Kvz {

namespace {

const QString modelMatrixGetter = QStringLiteral("getModelMatrix");
const QString normalMatrixGetter = QStringLiteral("getModelNormalMatrix");

/// One bind() that has not ended.
struct Binding
{
    const void *context;
    const InstanceDataCollection *collection;
    QString plan;
    quint64 revision; ///< Of the rows as they were uploaded.
};

std::vector<Binding> &bindings()
{
    static std::vector<Binding> list;
    return list;
}

/// A number that no rows of any collection have had.
quint64 nextRevision()
{
    static quint64 last = 0;
    return ++last;
}

} // namespace

InstanceDataCollection::InstanceDataCollection(const QString &plan, QObject *parent)
    : QObject(parent),
      m_plan(&InstanceDataRegistry::Instance().getPlan(plan)),
      m_texture(m_plan->stride() > 0 ? std::make_unique<BufferTexture>(m_plan->samplerName(), GL_RGBA32F) : nullptr)
{ }

InstanceDataCollection::~InstanceDataCollection()
{
    std::vector<Binding> &all = bindings();
    all.erase(
        std::remove_if(all.begin(), all.end(), [this](const Binding &binding) { return binding.collection == this; }),
        all.end());
}

QString InstanceDataCollection::planName() const
{
    return m_plan->name();
}

int InstanceDataCollection::rowCount() const
{
    return m_texture ? m_rows.size() / (m_plan->stride() * 4) : 0;
}

void InstanceDataCollection::setRowCount(int count)
{
    if (!m_texture)
        return;
    const int most = OpenGLDeviceContext::currentHandle() ? BufferTexture::maximumTexels() / m_plan->stride()
                                                          : std::numeric_limits<int>::max() / (m_plan->stride() * 4);
    if (count > most) {
        KVZ_WARNING(QStringLiteral("Instance data for '%1' cannot have %2 rows: at most %3 fit; split the model")
                        .arg(planName())
                        .arg(count)
                        .arg(most));
        return;
    }
    // QVector fills what it grows by with zeros.
    m_rows.resize(qMax(count, 0) * m_plan->stride() * 4);
    m_dirty = true;
}

bool InstanceDataCollection::setValue(int row, const QString &getter, const QVariant &value)
{
    if (!m_texture)
        return false;
    if (row < 0 || row >= rowCount()) {
        KVZ_WARNING(QStringLiteral("Row %1 of instance data for '%2' cannot be set: there are %3 rows")
                        .arg(row)
                        .arg(planName())
                        .arg(rowCount()));
        return false;
    }
    if (!m_plan->write(m_rows.data() + row * m_plan->stride() * 4, getter, value)) {
        KVZ_WARNING(QStringLiteral("'%1' of row %2 of instance data for '%3' cannot be set: %4")
                        .arg(getter)
                        .arg(row)
                        .arg(planName(),
                            m_plan->offset(getter) < 0 ? QStringLiteral("the plan has no such getter")
                                                       : QStringLiteral("a value of type '%1' does not convert")
                                                             .arg(QLatin1String(value.typeName()))));
        return false;
    }
    m_dirty = true;
    return true;
}

bool InstanceDataCollection::setModelMatrix(int row, const QMatrix4x4 &matrix)
{
    if (!setValue(row, modelMatrixGetter, matrix))
        return false;
    return m_plan->offset(normalMatrixGetter) < 0 || setValue(row, normalMatrixGetter, normalMatrixOf(matrix));
}

void InstanceDataCollection::bind(ShaderProgram *program, TextureManager *manager)
{
    Q_UNUSED(program)
    Q_UNUSED(manager)
    const void *const context = OpenGLDeviceContext::currentHandle();
    if (!m_texture || !context)
        return;
    if (m_dirty) {
        m_texture->upload(m_rows.constData(), m_rows.size() * long(sizeof(float)));
        m_revision = nextRevision();
    }
    m_dirty = false;
    m_texture->bind();
    bindings().push_back({context, this, planName(), m_revision});
}

void InstanceDataCollection::unbind(ShaderProgram *program, TextureManager *manager)
{
    Q_UNUSED(program)
    Q_UNUSED(manager)
    const void *const context = OpenGLDeviceContext::currentHandle();
    std::vector<Binding> &all = bindings();
    const auto latest = std::find_if(all.rbegin(), all.rend(),
        [&](const Binding &binding) { return binding.collection == this && binding.context == context; });
    if (latest == all.rend())
        return;
    all.erase(std::next(latest).base());
    m_texture->unbind();
}

bool InstanceDataCollection::isBound(const QString &plan)
{
    return boundRevision(plan) > 0;
}

quint64 InstanceDataCollection::boundRevision(const QString &plan)
{
    const std::vector<Binding> &all = bindings();
    if (all.empty())
        return 0;
    const void *const context = OpenGLDeviceContext::currentHandle();
    const auto latest = std::find_if(all.rbegin(), all.rend(),
        [&](const Binding &binding) { return binding.context == context && binding.plan == plan; });
    return latest == all.rend() ? 0 : latest->revision;
}

} // namespace Velmora::Kvz
