// SPDX-License-Identifier: MIT
#include "GltfExtensions.h"

#include <QtCore/QHash>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// What is drawn of materials, changes nothing that is drawn, or has a line of its own.
bool isDrawn(const QString &name)
{
    static const QStringList drawn{QStringLiteral("KHR_materials_unlit"), QStringLiteral("KHR_materials_ior"),
        QStringLiteral("KHR_materials_emissive_strength"), QStringLiteral("KHR_materials_pbrSpecularGlossiness"),
        QStringLiteral("KHR_materials_transmission")};
    return !name.contains(QLatin1String("_materials_")) || drawn.contains(name);
}

bool isAboveZero(const tinygltf::Value &value)
{
    if (value.IsNumber())
        return value.GetNumberAsDouble() > 0;
    for (size_t i = 0; value.IsArray() && i < value.ArrayLen(); ++i) {
        if (isAboveZero(value.Get(int(i))))
            return true;
    }
    return false;
}

/// Whether an extension does anything: exporters write many with a factor of 0.
bool hasEffect(const QString &name, const tinygltf::Value &extension)
{
    static const QHash<QString, const char *> factors{{QStringLiteral("KHR_materials_clearcoat"), "clearcoatFactor"},
        {QStringLiteral("KHR_materials_sheen"), "sheenColorFactor"},
        {QStringLiteral("KHR_materials_iridescence"), "iridescenceFactor"},
        {QStringLiteral("KHR_materials_anisotropy"), "anisotropyStrength"},
        {QStringLiteral("KHR_materials_diffuse_transmission"), "diffuseTransmissionFactor"},
        {QStringLiteral("KHR_materials_volume"), "thicknessFactor"},
        {QStringLiteral("KHR_materials_dispersion"), "dispersion"}};
    if (name == QLatin1String("KHR_materials_specular"))
        return extension.IsObject() && !extension.Keys().empty(); // without keys it says what holds anyway
    const char *const factor = factors.value(name, nullptr);
    return !factor
        || (extension.IsObject() && extension.Has(factor) && isAboveZero(extension.Get(std::string(factor))));
}

} // namespace

QStringList undrawnExtensions(const tinygltf::Model &document)
{
    QStringList names;
    for (const tinygltf::Material &material : document.materials) {
        for (const auto &extension : material.extensions) {
            const QString name = QString::fromStdString(extension.first);
            if (!isDrawn(name) && hasEffect(name, extension.second))
                names.append(name);
        }
    }
    for (const tinygltf::Node &node : document.nodes) {
        if (node.extensions.count("KHR_node_visibility") > 0)
            names.append(QStringLiteral("KHR_node_visibility"));
    }
    names.removeDuplicates();
    std::sort(names.begin(), names.end());
    if (names.isEmpty())
        return {};
    return {(names.size() == 1 ? QStringLiteral("the glTF extension %1 is not drawn")
                               : QStringLiteral("the glTF extensions %1 are not drawn"))
                .arg(names.join(QStringLiteral(", ")))};
}

} // namespace Velmora::Kvz
