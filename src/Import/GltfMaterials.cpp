// SPDX-License-Identifier: MIT
#include "GltfMaterials.h"

#include "MaterialModel.h"

#include <QtCore/QUrl>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

float component(const std::vector<double> &values, size_t index, double fallback)
{
    const float value = float(index < values.size() ? values[index] : fallback);
    return std::isfinite(value) ? value : float(fallback);
}

QVector4D vectorOf(const tinygltf::Value &object, const char *key, const QVector4D &fallback)
{
    QVector4D result = fallback;
    if (!object.Has(key))
        return result;
    const tinygltf::Value &values = object.Get(std::string(key));
    for (int i = 0; i < 4 && values.IsArray() && size_t(i) < values.ArrayLen(); ++i) {
        if (values.Get(i).IsNumber() && std::isfinite(values.Get(i).GetNumberAsDouble()))
            result[i] = float(values.Get(i).GetNumberAsDouble());
    }
    return result;
}

float unitInterval(double value)
{
    return std::isfinite(value) ? float(qBound(0.0, value, 1.0)) : 1;
}

ImportedTexture::Wrap wrapOf(int mode)
{
    return mode == TINYGLTF_TEXTURE_WRAP_MIRRORED_REPEAT ? ImportedTexture::MirroredRepeat
        : mode == TINYGLTF_TEXTURE_WRAP_CLAMP_TO_EDGE    ? ImportedTexture::ClampToEdge
                                                         : ImportedTexture::Repeat;
}

/// KHR_texture_transform: offset, rotation and scale of coordinates whose (0, 0) is the upper left corner, turned into one of
/// coordinates whose (0, 0) is the lower left corner.
QTransform transformOf(const tinygltf::Value &extension)
{
    const QVector4D offset = vectorOf(extension, "offset", QVector4D());
    const QVector4D scale = vectorOf(extension, "scale", QVector4D(1, 1, 0, 0));
    const double angle = numberOf(extension, "rotation", 0);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    // Counter-clockwise where v points down.
    const QTransform transform(c * double(scale.x()), -s * double(scale.x()), s * double(scale.y()),
        c * double(scale.y()), double(offset.x()), double(offset.y()));
    const QTransform flip(1, 0, 0, -1, 0, 1);
    return transform.isIdentity() ? QTransform() : flip * transform * flip;
}

/// Whether an image lies beside the document, neither in its text nor in one of its buffers.
bool isFile(const tinygltf::Image &image)
{
    return image.bufferView < 0 && image.image.empty() && !image.uri.empty();
}

} // namespace

ImportedMaterial GltfMaterials::read(int number, bool isColoured)
{
    const std::vector<tinygltf::Material> &materials = m_file->document().materials;
    const bool isThere = number >= 0 && size_t(number) < materials.size();
    ImportedMaterial material = standInMaterial(isColoured && !isThere ? VertexColours::Opaque : VertexColours::None);
    material.saysSides = true;
    if (!isThere)
        return material;
    const tinygltf::Material &source = materials[size_t(number)];
    const tinygltf::PbrMetallicRoughness &pbr = source.pbrMetallicRoughness;
    material.name = QString::fromStdString(source.name);
    material.alphaMode = source.alphaMode == "BLEND" ? ImportedMaterial::Blend
        : source.alphaMode == "MASK"                 ? ImportedMaterial::Mask
                                                     : ImportedMaterial::Opaque;
    material.alphaCutoff = std::isfinite(source.alphaCutoff) ? float(source.alphaCutoff) : 0.5f;
    material.isDoubleSided = source.doubleSided;
    material.isMetallicRoughness = true;
    material.isPhysical = true;
    material.isUnlit = source.extensions.count("KHR_materials_unlit") > 0;
    for (int i = 0; i < 4; ++i)
        material.baseColour[i] = component(pbr.baseColorFactor, size_t(i), 1);
    material.metallic = unitInterval(pbr.metallicFactor);
    material.roughness = unitInterval(pbr.roughnessFactor);
    for (int i = 0; i < 3; ++i)
        material.emission[i] = component(source.emissiveFactor, size_t(i), 0);
    material.normalScale = float(source.normalTexture.scale);
    material.occlusionStrength = unitInterval(source.occlusionTexture.strength);

    const auto read = [&](const auto &info, ImportedImage::Use use) {
        return texture(info.index, info.texCoord, info.extensions, use, material.name);
    };
    material.baseColourTexture = read(pbr.baseColorTexture, ImportedImage::Colour);
    material.metallicRoughnessTexture = read(pbr.metallicRoughnessTexture, ImportedImage::Data);
    material.normalTexture = read(source.normalTexture, ImportedImage::Data);
    material.occlusionTexture = read(source.occlusionTexture, ImportedImage::Data);
    m_images->setStandIn(SceneImages::nothingEmitted());
    material.emissionTexture = read(source.emissiveTexture, ImportedImage::Colour);
    m_images->setStandIn(SceneImages::white());
    // White in its place would make the whole surface shine.
    if (source.emissiveTexture.index >= 0 && m_images->at(material.emissionTexture.image).isNull())
        material.emission = QVector3D();

    const QImage map = m_images->at(material.metallicRoughnessTexture.image);
    setPhongFromMetallic(&material, map, map);
    readExtensions(source, &material);
    material.mapKd = m_images->at(material.baseColourTexture.image);
    material.d = material.alphaMode == ImportedMaterial::Blend ? qBound(0.0f, material.baseColour.w(), 1.0f) : 1;
    if (material.transmission > 0)
        setOpacity(source, &material);
    return material;
}

/// Blends a surface that light passes. A fifth stays, as the passes draw none of the reflections that glass is seen by; metals
/// transmit nothing.
void GltfMaterials::setOpacity(const tinygltf::Material &source, ImportedMaterial *material)
{
    const float passing = 0.8f * material->transmission * (1 - material->metallic);
    if (material->alphaMode == ImportedMaterial::Mask || passing <= 0)
        return;
    if (material->alphaMode == ImportedMaterial::Opaque) // the alpha of its image does not count
        material->mapKd = material->mapKd.convertToFormat(QImage::Format_RGB32);
    material->alphaMode = ImportedMaterial::Blend;
    const tinygltf::Value &extension = extensionOf(source.extensions, "KHR_materials_transmission");
    QImage map;
    if (extension.Has("transmissionTexture")) {
        const ImportedTexture part = texture(extension.Get("transmissionTexture"), ImportedImage::Data, material->name);
        map = m_images->at(part.image).convertToFormat(QImage::Format_RGB32);
    }
    if (map.isNull()) {
        material->d *= 1 - passing;
        return;
    }
    // By the coordinates of the base colour, whose alpha it becomes.
    const QImage colour = material->mapKd.convertToFormat(QImage::Format_ARGB32);
    const QSize size = colour.isNull() ? map.size() : colour.size();
    map = map.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).convertToFormat(QImage::Format_RGB32);
    QImage opacity(size, QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y) {
        const QRgb *const from = reinterpret_cast<const QRgb *>(map.constScanLine(y));
        const QRgb *const own = colour.isNull() ? nullptr : reinterpret_cast<const QRgb *>(colour.constScanLine(y));
        QRgb *const to = reinterpret_cast<QRgb *>(opacity.scanLine(y));
        for (int x = 0; x < size.width(); ++x) {
            const float alpha = float(own ? qAlpha(own[x]) : 255) * (1 - passing * float(qRed(from[x])) / 255);
            to[x] = qRgba(255, 255, 255, qRound(alpha));
        }
    }
    material->mapKd = withOpacity(material->mapKd, opacity);
}

void GltfMaterials::readExtensions(const tinygltf::Material &source, ImportedMaterial *material)
{
    const tinygltf::ExtensionMap &all = source.extensions;
    const float strength = float(numberOf(extensionOf(all, "KHR_materials_emissive_strength"), "emissiveStrength", 1));
    material->emission *= std::isfinite(strength) ? strength : 1;
    material->refractiveIndex = float(numberOf(extensionOf(all, "KHR_materials_ior"), "ior", 1.5));
    material->transmission =
        unitInterval(numberOf(extensionOf(all, "KHR_materials_transmission"), "transmissionFactor", 0));
    const tinygltf::Value &clearcoat = extensionOf(all, "KHR_materials_clearcoat");
    material->clearcoat = unitInterval(numberOf(clearcoat, "clearcoatFactor", 0));
    material->clearcoatRoughness = unitInterval(numberOf(clearcoat, "clearcoatRoughnessFactor", 0));

    const tinygltf::Value &reflection = extensionOf(all, "KHR_materials_specular");
    material->specular = unitInterval(numberOf(reflection, "specularFactor", 1));
    material->specularColour = vectorOf(reflection, "specularColorFactor", QVector4D(1, 1, 1, 0)).toVector3D();
    const tinygltf::Value &sheen = extensionOf(all, "KHR_materials_sheen");
    material->sheenColour = vectorOf(sheen, "sheenColorFactor", QVector4D()).toVector3D();
    material->sheenRoughness = unitInterval(numberOf(sheen, "sheenRoughnessFactor", 0));

    const tinygltf::Value &specular = extensionOf(all, "KHR_materials_pbrSpecularGlossiness");
    if (!specular.IsObject())
        return;
    material->isMetallicRoughness = false;
    material->baseColour = vectorOf(specular, "diffuseFactor", QVector4D(1, 1, 1, 1));
    material->kd = material->baseColour.toVector3D();
    material->metallic = 0;
    material->roughness = 1 - unitInterval(numberOf(specular, "glossinessFactor", 1));
    ImportedMaterial dielectric = *material;
    setPhongFromMetallic(&dielectric, QImage(), QImage());
    material->ns = dielectric.ns;
    // As for metals and plastics: a sharp highlight is bright, a broad one fades.
    const QVector3D reflectance = vectorOf(specular, "specularFactor", QVector4D(1, 1, 1, 0)).toVector3D();
    const float strongest = std::max({reflectance.x(), reflectance.y(), reflectance.z(), 1e-3f});
    // As a multiple of what an index of 1.5 reflects.
    material->refractiveIndex = 1.5f;
    material->specularColour = reflectance / 0.04f;
    if (!material->isUnlit)
        material->ks = reflectance * (1 - material->roughness) * std::min((material->ns + 8) / 8, 1 / strongest);
    if (specular.Has("diffuseTexture"))
        material->baseColourTexture = texture(specular.Get("diffuseTexture"), ImportedImage::Colour, material->name);
    if (specular.Has("specularGlossinessTexture")) {
        material->specularTexture =
            texture(specular.Get("specularGlossinessTexture"), ImportedImage::Colour, material->name);
        material->mapKs = m_images->at(material->specularTexture.image);
    }
}

ImportedTexture GltfMaterials::texture(const tinygltf::Value &info, ImportedImage::Use use, const QString &material)
{
    tinygltf::ExtensionMap extensions;
    if (info.Has("extensions") && info.Get("extensions").IsObject()) {
        for (const std::string &name : info.Get("extensions").Keys())
            extensions[name] = info.Get("extensions").Get(name);
    }
    return texture(integerOf(info, "index", -1), integerOf(info, "texCoord", 0), extensions, use, material);
}

ImportedTexture GltfMaterials::texture(
    int number, int uvSet, const tinygltf::ExtensionMap &extensions, ImportedImage::Use use, const QString &material)
{
    const tinygltf::Model &document = m_file->document();
    ImportedTexture result;
    if (number < 0)
        return result;
    if (size_t(number) >= document.textures.size()) {
        m_images->warn(
            QString::number(number), QStringLiteral("does not exist; %1").arg(m_images->standIn()), material);
        return result;
    }
    const tinygltf::Texture &source = document.textures[size_t(number)];
    const int webp = integerOf(extensionOf(source.extensions, "EXT_texture_webp"), "source", -1);
    const int basis = integerOf(extensionOf(source.extensions, "KHR_texture_basisu"), "source", -1);
    const int imageNumber = webp >= 0 ? webp : source.source >= 0 ? source.source : basis;
    const tinygltf::Value &transform = extensionOf(extensions, "KHR_texture_transform");
    const int set = integerOf(transform, "texCoord", uvSet);
    if (imageNumber < 0 || size_t(imageNumber) >= document.images.size()) {
        m_images->warn(QString::number(number),
            QStringLiteral("has no image that is read; %1").arg(m_images->standIn()), material);
        return result;
    }
    if (set < 0 || set > 1) {
        m_images->warn(nameOf(imageNumber),
            QStringLiteral("is laid out by set %1 of the texture coordinates, and sets 0 and 1 alone are read; %2")
                .arg(QString::number(set), m_images->standIn()),
            material);
        return result;
    }
    result.image = image(imageNumber, use, material);
    result.uvSet = set;
    if (transform.IsObject())
        result.transform = transformOf(transform);
    if (source.sampler < 0 || size_t(source.sampler) >= document.samplers.size())
        return result;
    const tinygltf::Sampler &sampler = document.samplers[size_t(source.sampler)];
    result.wrapU = wrapOf(sampler.wrapS);
    result.wrapV = wrapOf(sampler.wrapT);
    const int min = sampler.minFilter;
    if (sampler.magFilter == TINYGLTF_TEXTURE_FILTER_NEAREST)
        result.magnification = ImportedTexture::Nearest;
    if (min == TINYGLTF_TEXTURE_FILTER_NEAREST || min == TINYGLTF_TEXTURE_FILTER_NEAREST_MIPMAP_NEAREST
        || min == TINYGLTF_TEXTURE_FILTER_NEAREST_MIPMAP_LINEAR)
        result.minification = ImportedTexture::Nearest;
    result.mipmaps = min != TINYGLTF_TEXTURE_FILTER_NEAREST && min != TINYGLTF_TEXTURE_FILTER_LINEAR;
    return result;
}

/// How messages call an image: by its path where it is a file.
QString GltfMaterials::nameOf(int number) const
{
    const tinygltf::Model &document = m_file->document();
    if (number < 0 || size_t(number) >= document.images.size())
        return {};
    const tinygltf::Image &image = document.images[size_t(number)];
    if (isFile(image))
        return QString::fromStdString(image.uri);
    return image.name.empty() ? QStringLiteral("image %1").arg(number)
                              : QStringLiteral("%1 (image %2)").arg(QString::fromStdString(image.name)).arg(number);
}

int GltfMaterials::image(int number, ImportedImage::Use use, const QString &material)
{
    const tinygltf::Model &document = m_file->document();
    if (number < 0 || size_t(number) >= document.images.size())
        return -1;
    const tinygltf::Image &source = document.images[size_t(number)];
    const bool isInText = !source.image.empty();
    const QString name = nameOf(number);
    if (isFile(source))
        return m_images->fromPath(name, use, material);
    const QByteArray bytes = isInText
        ? QByteArray::fromRawData(reinterpret_cast<const char *>(source.image.data()), int(source.image.size()))
        : m_file->bytes(source.bufferView);
    return m_images->fromBytes(name, bytes, use, material);
}

} // namespace Velmora::Kvz
