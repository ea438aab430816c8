// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/LightDescription.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <map>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// The values that a host gives for the frame, and those that follow from them: the bounds of its model, and the lights of
/// the chain, placed around the bounds.
class FrameValueTable
{
public:
    /// An invalid value removes the name. Bounds and lights that the host sets stay as they are until it removes them.
    void set(const QString &name, const QVariant &value);
    /// Lights for frames whose host sets none.
    void setChainLights(const std::vector<LightDescription> &lights);
    /// Reads the bounds of the model again, unless the host set some.
    void updateBounds();

    /// The longest side of the bounds; 0 where there are none.
    float sceneSize() const;

    /// Null for a name that is not set. The pointer is valid until the name is removed.
    const QVariant *find(const QString &name) const;
    QVariant value(const QString &name) const;
    QStringList names() const;
    /// The names that count as given: the standard ones, and what is set besides.
    QStringList grantedNames() const;
    const std::map<QString, QVariant> &all() const { return m_values; }

    /// The names whose values are others than when this was called last.
    QSet<QString> takeChanges();
    /// What takeChanges() would return.
    const QSet<QString> &changes() const { return m_changed; }

    /// Grows when a name is added or removed.
    quint64 namesRevision() const { return m_namesRevision; }
    /// Grows when a value is set or removed.
    quint64 valuesRevision() const { return m_valuesRevision; }

private:
    void store(const QString &name, const QVariant &value);
    void followModel();
    void placeLights();
    void setUnlessOfHost(const QString &name, const QVariant &value);

    std::map<QString, QVariant> m_values; ///< A map, since inputs point to its values.
    bool m_boundsFollowModel = true;
    bool m_lightsFollowChain = true;
    QSet<QString> m_ofHost; ///< Names that the host has set.
    std::vector<LightDescription> m_described; ///< Those that cast shadows.
    std::vector<std::unique_ptr<ShadowMapManager::Light>> m_lights; ///< Parallel to those, at their places.
    QSet<QString> m_changed; ///< Since takeChanges().
    quint64 m_namesRevision = 0;
    quint64 m_valuesRevision = 0;
};

} // namespace Velmora::Kvz
