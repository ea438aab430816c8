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
        QStringLiteral("KHR_materials_transmission"), QStringLiteral("KHR_materials_clearcoat"),
        QStringLiteral("KHR_materials_sheen"), QStringLiteral("KHR_materials_specular"),
        QStringLiteral("KHR_materials_variants")};
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
    static const QHash<QString, const char *> factors{
        {QStringLiteral("KHR_materials_iridescence"), "iridescenceFactor"},
        {QStringLiteral("KHR_materials_anisotropy"), "anisotropyStrength"},
        {QStringLiteral("KHR_materials_diffuse_transmission"), "diffuseTransmissionFactor"},
        {QStringLiteral("KHR_materials_volume"), "thicknessFactor"},
        {QStringLiteral("KHR_materials_dispersion"), "dispersion"}};
    const char *const factor = factors.value(name, nullptr);
    return !factor
        || (extension.IsObject() && extension.Has(factor) && isAboveZero(extension.Get(std::string(factor))));
}

/// Images of extensions whose factors are drawn.
QStringList undrawnImages(const tinygltf::Model &document)
{
    QStringList names;
    for (const tinygltf::Material &material : document.materials) {
        for (const char *const name : {"KHR_materials_clearcoat", "KHR_materials_sheen", "KHR_materials_specular"}) {
            const tinygltf::Value &extension = extensionOf(material.extensions, name);
            for (const std::string &key : extension.IsObject() ? extension.Keys() : std::vector<std::string>()) {
                if (extension.Get(key).IsObject() && extension.Get(key).Has("index"))
                    names.append(QStringLiteral("%1 of %2").arg(QString::fromStdString(key), QLatin1String(name)));
            }
        }
    }
    names.removeDuplicates();
    std::sort(names.begin(), names.end());
    return names;
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
    QStringList lines;
    const QStringList images = undrawnImages(document);
    if (!images.isEmpty())
        lines.append(
            QStringLiteral("images are not drawn, their factors are: %1").arg(images.join(QStringLiteral(", "))));
    if (names.isEmpty())
        return lines;
    return QStringList{(names.size() == 1 ? QStringLiteral("the glTF extension %1 is not drawn")
                                          : QStringLiteral("the glTF extensions %1 are not drawn"))
                           .arg(names.join(QStringLiteral(", ")))}
    + lines;
}

} // namespace Velmora::Kvz
