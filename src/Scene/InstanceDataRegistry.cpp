// SPDX-License-Identifier: MIT
#include <Scene/InstanceDataRegistry.h>

#include <Core/Log.h>
#include <GL/FixedTextureUnits.h>
#include <GL/PlanDeclarations.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

namespace Velmora::Kvz {

namespace {

using Type = InstanceDataPlan::Type;

QVector<InstanceDataPlan::Field> objectFields()
{
    return {
        {QStringLiteral("getModelMatrix"), Type::Mat4},
        {QStringLiteral("getModelNormalMatrix"), Type::Mat4},
        {QStringLiteral("getPreviousModelMatrix"), Type::Mat4},
    };
}

QVector<InstanceDataPlan::Field> materialFields()
{
    return {
        {QStringLiteral("getKd"), Type::Vec3},
        {QStringLiteral("getD"), Type::Float},
        {QStringLiteral("getKs"), Type::Vec3},
        {QStringLiteral("getNs"), Type::Float},
        {QStringLiteral("getMap_Kd"), Type::Int},
        {QStringLiteral("getMap_Ks"), Type::Int},
        {QStringLiteral("getMaterialId"), Type::Int},
    };
}

QVector<InstanceDataPlan::Field> surfaceFields()
{
    return {
        {QStringLiteral("getBaseColour"), Type::Vec3},
        {QStringLiteral("getOpacity"), Type::Float},
        {QStringLiteral("getSpecularColour"), Type::Vec3},
        {QStringLiteral("getShininess"), Type::Float},
        {QStringLiteral("getEmission"), Type::Vec3},
        {QStringLiteral("getAlphaCutoff"), Type::Float},
        {QStringLiteral("getBaseColourMap"), Type::Int},
        {QStringLiteral("getSpecularMap"), Type::Int},
        {QStringLiteral("getEmissionMap"), Type::Int},
        {QStringLiteral("getSurfaceFlags"), Type::Int},
        {QStringLiteral("getBaseColourMapU"), Type::Vec3},
        {QStringLiteral("getBaseColourMapSampling"), Type::Int},
        {QStringLiteral("getBaseColourMapV"), Type::Vec3},
        {QStringLiteral("getSurfaceId"), Type::Int},
        {QStringLiteral("getSpecularMapU"), Type::Vec3},
        {QStringLiteral("getSpecularMapSampling"), Type::Int},
        {QStringLiteral("getSpecularMapV"), Type::Vec3},
        {QStringLiteral("getEmissionMapU"), Type::Vec3},
        {QStringLiteral("getEmissionMapSampling"), Type::Int},
        {QStringLiteral("getEmissionMapV"), Type::Vec3},
    };
}

QVector<InstanceDataPlan::Field> physicalFields()
{
    QVector<InstanceDataPlan::Field> fields{
        {QStringLiteral("getPhysicalBaseColour"), Type::Vec3},
        {QStringLiteral("getPhysicalOpacity"), Type::Float},
        {QStringLiteral("getPhysicalEmission"), Type::Vec3},
        {QStringLiteral("getPhysicalAlphaCutoff"), Type::Float},
        {QStringLiteral("getMetallic"), Type::Float},
        {QStringLiteral("getRoughness"), Type::Float},
        {QStringLiteral("getNormalScale"), Type::Float},
        {QStringLiteral("getOcclusionStrength"), Type::Float},
        {QStringLiteral("getReflectance"), Type::Vec3},
        {QStringLiteral("getGrazingReflectance"), Type::Float},
        {QStringLiteral("getSheenColour"), Type::Vec3},
        {QStringLiteral("getSheenRoughness"), Type::Float},
        {QStringLiteral("getClearcoat"), Type::Float},
        {QStringLiteral("getClearcoatRoughness"), Type::Float},
        {QStringLiteral("getPhysicalFlags"), Type::Int},
        {QStringLiteral("getPhysicalId"), Type::Int},
    };
    // Of each image: the linear part of its transform and the rest, which is its offset, its handle and how it is sampled.
    for (const char *map : {"BaseColour", "MetallicRoughness", "Normal", "Occlusion", "Emission"}) {
        const QString name = QStringLiteral("getPhysical%1Map").arg(QLatin1String(map));
        fields.append({name + QStringLiteral("Linear"), Type::Vec4});
        fields.append({name, Type::Vec4});
    }
    return fields;
}

/// Whether a name is an identifier of GLSL.
bool isIdentifier(const QString &name)
{
    static const QRegularExpression identifier(QStringLiteral("^(?!gl_)(?!.*__)[A-Za-z_][A-Za-z0-9_]*$"));
    return identifier.match(name).hasMatch();
}

/// What makes a plan unsound; empty when nothing does.
QString flawOf(const InstanceDataPlan &plan)
{
    if (!isIdentifier(plan.name()))
        return QStringLiteral("its name is no identifier of GLSL");
    if (plan.fields().isEmpty())
        return QStringLiteral("it has no fields");
    QSet<QString> getters;
    const QVector<InstanceDataPlan::Field> fields = plan.fields();
    for (const InstanceDataPlan::Field &field : fields) {
        if (!isIdentifier(field.getter))
            return QStringLiteral("its getter '%1' is no identifier of GLSL").arg(field.getter);
        if (getters.contains(field.getter))
            return QStringLiteral("its getter '%1' comes twice").arg(field.getter);
        getters.insert(field.getter);
    }
    return {};
}

QString declarationsOf(const QString &plan)
{
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    return registry.hasPlan(plan) ? registry.getPlan(plan).declarations() : QString();
}

QStringList planNames()
{
    return InstanceDataRegistry::Instance().planNames();
}

constexpr PlanDeclarations planDeclarations{declarationsOf, planNames};

/// Runs when the library is loaded, so that `#instancedata` also works in programs that never touch the registry.
const bool isHookSet = (setPlanDeclarations(&planDeclarations), true);

} // namespace

InstanceDataRegistry::InstanceDataRegistry()
{
    addPlan(InstanceDataPlan(QStringLiteral("InstanceInfo"), objectFields()));
    addPlan(InstanceDataPlan(QStringLiteral("OBJMaterial"), materialFields()));
    addPlan(InstanceDataPlan(QStringLiteral("TavoInstance"), objectFields()));
    addPlan(InstanceDataPlan(QStringLiteral("SurfaceMaterial"), surfaceFields()));
    addPlan(InstanceDataPlan(QStringLiteral("PhysicalMaterial"), physicalFields()));
}

InstanceDataRegistry &InstanceDataRegistry::Instance()
{
    static InstanceDataRegistry registry;
    return registry;
}

const InstanceDataPlan &InstanceDataRegistry::getPlan(const QString &name) const
{
    static const InstanceDataPlan empty{QString(), {}};
    const auto plan = m_plans.constFind(name);
    if (plan != m_plans.constEnd())
        return **plan;
    KVZ_WARNING(QStringLiteral("There is no instance data plan '%1'; known plans: %2")
                    .arg(name, planNames().join(QStringLiteral(", "))));
    return empty;
}

bool InstanceDataRegistry::hasPlan(const QString &name) const
{
    return m_plans.contains(name);
}

QStringList InstanceDataRegistry::planNames() const
{
    return m_plans.keys();
}

bool InstanceDataRegistry::addPlan(const InstanceDataPlan &plan)
{
    const QString flaw = hasPlan(plan.name()) ? QStringLiteral("the name is taken") : flawOf(plan);
    if (!flaw.isEmpty()) {
        KVZ_WARNING(QStringLiteral("Instance data plan '%1' is refused: %2").arg(plan.name(), flaw));
        return false;
    }
    m_plans.insert(plan.name(), QSharedPointer<InstanceDataPlan>::create(plan));
    FixedTextureUnits::reserve(plan.samplerName());
    return true;
}

} // namespace Velmora::Kvz
