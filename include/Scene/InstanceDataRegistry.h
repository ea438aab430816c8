// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/InstanceDataPlan.h>

#include <QtCore/QMap>
#include <QtCore/QSharedPointer>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// All instance data plans by name. These are there from the start:
///
/// - "InstanceInfo": `mat4 getModelMatrix()`, `mat4 getModelNormalMatrix()` (inverse transpose), `mat4
///   getPreviousModelMatrix()`.
/// - "TavoInstance": the same row and getters, for passes that name their plan themselves.
/// - "SurfaceMaterial": the material data of passes that light surfaces, read by the getters of Surface.glslc.
/// - "OBJMaterial": `vec3 getKd()`, `float getD()`, `vec3 getKs()`, `float getNs()`, `int getMap_Kd()`, `int getMap_Ks()`,
///   `int getMaterialId()`.
class KVZ_GL_EXPORT InstanceDataRegistry
{
public:
    static InstanceDataRegistry &Instance();

    /// The plan of a name. An unknown name gives an empty plan, with one log line that names it.
    const InstanceDataPlan &getPlan(const QString &name) const;
    bool hasPlan(const QString &name) const;
    QStringList planNames() const;
    /// Adds a plan of the host. Refused, with one log line, when the name is taken or the plan is not sound. Programs that
    /// were linked before do not know it.
    bool addPlan(const InstanceDataPlan &plan);

private:
    InstanceDataRegistry();
    Q_DISABLE_COPY(InstanceDataRegistry)

    QMap<QString, QSharedPointer<InstanceDataPlan>> m_plans;
};

} // namespace Velmora::Kvz
