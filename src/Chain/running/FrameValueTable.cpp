// SPDX-License-Identifier: MIT
#include <Chain/running/FrameValueTable.h>

#include <Chain/FrameValues.h>
#include <Scene/GPUModel.h>

#include <QtCore/QPair>
#include <QtGui/QVector3D>

#include <algorithm>

namespace Velmora::Kvz {

void FrameValueTable::set(const QString &name, const QVariant &value)
{
    const bool isBound = name == FrameValues::sceneBoundsMin || name == FrameValues::sceneBoundsMax;
    if (isBound)
        m_boundsFollowModel = !value.isValid();
    if (name == FrameValues::lights)
        m_lightsFollowChain = !value.isValid();
    if (value.isValid())
        m_ofHost.insert(name);
    else
        m_ofHost.remove(name);
    store(name, value);
    if (name == FrameValues::model || isBound)
        updateBounds();
    // Lights follow the bounds of the model.
    if (m_lightsFollowChain && (name == FrameValues::lights || (isBound && !m_boundsFollowModel)))
        placeLights();
}

void FrameValueTable::setChainLights(const std::vector<LightDescription> &lights)
{
    m_described.clear();
    QVariant headlight;
    QVariant ambient;
    QVariant fixed;
    for (const LightDescription &light : lights) {
        switch (light.kind) {
        case LightDescription::Kind::ShadowCaster:
            m_described.push_back(light);
            break;
        case LightDescription::Kind::Headlight:
            headlight = light.intensity;
            break;
        case LightDescription::Kind::Ambient:
            ambient = light.intensity;
            break;
        case LightDescription::Kind::None:
            fixed = true;
            break;
        }
    }
    setUnlessOfHost(FrameValues::headlightIntensity, headlight);
    setUnlessOfHost(FrameValues::ambientIntensity, ambient);
    setUnlessOfHost(FrameValues::fixedLight, fixed);
    if (m_lightsFollowChain)
        placeLights();
}

/// Sets what the chain's lights give, unless the host has set it.
void FrameValueTable::setUnlessOfHost(const QString &name, const QVariant &value)
{
    if (!m_ofHost.contains(name))
        store(name, value);
}

void FrameValueTable::updateBounds()
{
    if (m_boundsFollowModel)
        followModel();
}

float FrameValueTable::sceneSize() const
{
    QPair<QVector3D, QVector3D> bounds{
        value(FrameValues::sceneBoundsMin).value<QVector3D>(), value(FrameValues::sceneBoundsMax).value<QVector3D>()};
    const GPUModel *model = value(FrameValues::model).value<GPUModel *>();
    if (m_boundsFollowModel && model)
        bounds = model->sceneBounds(); // Also where an item was moved since the values were stored.
    const QVector3D size = bounds.second - bounds.first;
    return std::max({0.0f, size.x(), size.y(), size.z()});
}

const QVariant *FrameValueTable::find(const QString &name) const
{
    const auto value = m_values.find(name);
    return value == m_values.end() ? nullptr : &value->second;
}

QVariant FrameValueTable::value(const QString &name) const
{
    const QVariant *found = find(name);
    return found ? *found : QVariant();
}

QSet<QString> FrameValueTable::takeChanges()
{
    QSet<QString> taken;
    taken.swap(m_changed);
    return taken;
}

QStringList FrameValueTable::names() const
{
    QStringList names;
    for (const auto &value : m_values)
        names.append(value.first);
    return names;
}

QStringList FrameValueTable::grantedNames() const
{
    QStringList granted = FrameValues::standardNames();
    for (const auto &value : m_values) {
        if (!granted.contains(value.first))
            granted.append(value.first);
    }
    return granted;
}

void FrameValueTable::store(const QString &name, const QVariant &value)
{
    const auto known = m_values.find(name);
    if (known == m_values.end() && !value.isValid())
        return;
    ++m_valuesRevision;
    if (known == m_values.end() || known->second != value)
        m_changed.insert(name);
    if (known != m_values.end() && value.isValid()) {
        known->second = value;
        return;
    }
    ++m_namesRevision;
    if (value.isValid())
        m_values.emplace(name, value);
    else
        m_values.erase(known);
}

/// Makes the bounds of the frame those of its model, or takes them away.
void FrameValueTable::followModel()
{
    const GPUModel *model = value(FrameValues::model).value<GPUModel *>();
    const auto bounds = model ? model->sceneBounds() : QPair<QVector3D, QVector3D>();
    store(FrameValues::sceneBoundsMin, model ? QVariant(bounds.first) : QVariant());
    store(FrameValues::sceneBoundsMax, model ? QVariant(bounds.second) : QVariant());
    if (m_lightsFollowChain)
        placeLights();
}

/// Makes the lights of the frame those of the chain, placed around the scene, or takes them away.
void FrameValueTable::placeLights()
{
    const QPair<QVector3D, QVector3D> bounds{
        value(FrameValues::sceneBoundsMin).value<QVector3D>(), value(FrameValues::sceneBoundsMax).value<QVector3D>()};
    QVariantList list;
    m_lights.resize(m_described.size());
    for (size_t i = 0; i < m_lights.size(); ++i) {
        if (!m_lights[i])
            m_lights[i] = std::make_unique<ShadowMapManager::Light>();
        m_described[i].place(bounds, m_lights[i].get());
        list.append(QVariant::fromValue(m_lights[i].get()));
    }
    store(FrameValues::lights, list.isEmpty() ? QVariant() : QVariant(list));
}

} // namespace Velmora::Kvz
