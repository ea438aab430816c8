// SPDX-License-Identifier: MIT
#include "MaterialReader.h"

#include "AssimpTypes.h"
#include "MaterialModel.h"

#include <assimp/GltfMaterial.h>
#include <assimp/scene.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

float number(const aiMaterial &material, const char *key, unsigned type, unsigned index, float fallback)
{
    float value = fallback;
    return material.Get(key, type, index, value) == aiReturn_SUCCESS && std::isfinite(value) ? value : fallback;
}

QVector3D colour(const aiMaterial &material, const char *key, unsigned type, unsigned index, const QVector3D &fallback)
{
    aiColor3D value;
    if (material.Get(key, type, index, value) != aiReturn_SUCCESS)
        return fallback;
    const QVector3D result(value.r, value.g, value.b);
    return isFinite(result) ? result : fallback;
}

/// Whether a loader made the material up because the file gives none.
bool isStandIn(const aiMaterial &material)
{
    for (unsigned p = 0; p < material.mNumProperties; ++p) {
        if (std::strcmp(material.mProperties[p]->mKey.C_Str(), "$tex.file") == 0)
            return false;
    }
    const QString name = toQString(const_cast<aiMaterial &>(material).GetName());
    if (!name.isEmpty())
        return name == QLatin1String(AI_DEFAULT_MATERIAL_NAME) || name == QLatin1String("%%%DEFAULT");
    const QVector3D white(1, 1, 1);
    if (number(material, AI_MATKEY_METALLIC_FACTOR, 0) == 1) // glTF: what an absent material means
        return number(material, AI_MATKEY_ROUGHNESS_FACTOR, 0) == 1
            && colour(material, AI_MATKEY_BASE_COLOR, QVector3D()) == white;
    aiColor4D none(1, 1, 1, 1);
    if (material.Get(AI_MATKEY_COLOR_DIFFUSE, none) == aiReturn_SUCCESS && none == aiColor4D(0, 0, 0, 0))
        return true; // MDL
    return number(material, AI_MATKEY_OPACITY, -1) == -1 // PLY
        && colour(material, AI_MATKEY_COLOR_DIFFUSE, QVector3D()) == white;
}

bool isGltf(const aiMaterial &source)
{
    aiString mode;
    return source.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) == aiReturn_SUCCESS;
}

/// What a glTF material says of its alpha; Blend for materials of other formats, which do not say.
ImportedMaterial::AlphaMode alphaModeOf(const aiMaterial &source)
{
    aiString mode;
    if (source.Get(AI_MATKEY_GLTF_ALPHAMODE, mode) != aiReturn_SUCCESS || std::strcmp(mode.C_Str(), "BLEND") == 0)
        return ImportedMaterial::Blend;
    return std::strcmp(mode.C_Str(), "MASK") == 0 ? ImportedMaterial::Mask : ImportedMaterial::Opaque;
}

ImportedTexture::Wrap wrapOf(const aiMaterial &source, const char *key, aiTextureType type)
{
    // The loader of X3D leaves the word whether it repeats.
    const aiMaterialProperty *property = nullptr;
    if (aiGetMaterialProperty(&source, key, type, 0, &property) == aiReturn_SUCCESS && property->mDataLength == 1)
        return *property->mData != 0 ? ImportedTexture::Repeat : ImportedTexture::ClampToEdge;
    int mode = aiTextureMapMode_Wrap;
    source.Get(key, type, 0, mode);
    return mode == aiTextureMapMode_Mirror ? ImportedTexture::MirroredRepeat
        : mode == aiTextureMapMode_Wrap    ? ImportedTexture::Repeat
                                           : ImportedTexture::ClampToEdge;
}

int uvSetOf(const aiMaterial &source, aiTextureType type)
{
    int set = 0;
    source.Get(AI_MATKEY_UVWSRC(type, 0), set);
    return set;
}

/// The loader of MD2 names a texture of its own where the file has none.
bool isMadeUp(const aiString &texture)
{
    return std::strcmp(texture.C_Str(), "$texture_dummy.bmp") == 0;
}

bool hasTexture(const aiMaterial &source, aiTextureType type)
{
    aiString name;
    return source.GetTexture(type, 0, &name) == aiReturn_SUCCESS && !isMadeUp(name);
}

} // namespace

TextureSets textureSetsOf(const aiMaterial &material)
{
    TextureSets sets;
    const bool isDiffuse =
        hasTexture(material, aiTextureType_DIFFUSE) || !hasTexture(material, aiTextureType_BASE_COLOR);
    sets.base = std::max(uvSetOf(material, isDiffuse ? aiTextureType_DIFFUSE : aiTextureType_BASE_COLOR), 0);
    sets.other = sets.base == 0 ? 1 : 0;
    for (const aiTextureType type :
        {aiTextureType_EMISSIVE, aiTextureType_EMISSION_COLOR, aiTextureType_SPECULAR, aiTextureType_NORMALS,
            aiTextureType_NORMAL_CAMERA, aiTextureType_LIGHTMAP, aiTextureType_AMBIENT_OCCLUSION,
            aiTextureType_METALNESS, aiTextureType_DIFFUSE_ROUGHNESS, aiTextureType_OPACITY}) {
        const int set = hasTexture(material, type) ? uvSetOf(material, type) : sets.base;
        if (set >= 0 && set != sets.base) {
            sets.other = set;
            break;
        }
    }
    return sets;
}

MaterialReader::MaterialReader(const aiScene *source, const QByteArray &format, SceneImages *images)
    : m_source(source),
      m_format(format),
      m_images(images)
{ }

ImportedMaterial MaterialReader::read(const aiMaterial &source, VertexColours colours)
{
    // The loader of OFF, which knows no materials, makes one up that is darker than others.
    const bool hasNone = m_format == "off" || isStandIn(source);
    ImportedMaterial material = standInMaterial(hasNone ? colours : VertexColours::None);
    int twoSided = 0;
    // COLLADA says it in extra data that few files have, and its loader says "no" without.
    material.saysSides = source.Get(AI_MATKEY_TWOSIDED, twoSided) == aiReturn_SUCCESS && m_format != "dae";
    material.name = toQString(const_cast<aiMaterial &>(source).GetName());
    material.isDoubleSided = twoSided != 0;
    int shading = 0;
    source.Get(AI_MATKEY_SHADING_MODEL, shading);
    // OBJ: "illum 0" is colour alone. Other loaders say unlit of what is not.
    material.isUnlit = (m_format == "gltf" || m_format == "obj") && shading == aiShadingMode_Unlit;
    if (hasNone)
        return material;

    material.alphaMode = alphaModeOf(source);
    material.alphaCutoff = number(source, AI_MATKEY_GLTF_ALPHACUTOFF, 0.5f);
    const float opacity = qBound(0.0f, number(source, AI_MATKEY_OPACITY, 1), 1.0f);
    // Exporters of COLLADA write an opacity of 0 for surfaces that are not to be seen through.
    const bool isIgnored = m_format == "dae" && opacity <= 0;
    material.d = material.alphaMode == ImportedMaterial::Blend && !isIgnored ? opacity : 1;

    const float metallic = number(source, AI_MATKEY_METALLIC_FACTOR, -1);
    const float roughness = number(source, AI_MATKEY_ROUGHNESS_FACTOR, -1);
    material.isMetallicRoughness = metallic >= 0 || roughness >= 0;
    material.isPhysical = material.isMetallicRoughness;
    if (material.isMetallicRoughness)
        readMetallic(source, std::max(metallic, 0.0f), roughness < 0 ? 1 : roughness, &material);
    else
        readPhong(source, &material);
    material.baseColour.setW(opacity);
    readSurface(source, &material);

    material.baseColourTexture =
        texture(source, {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR}, ImportedImage::Colour);
    material.mapKd = m_images->at(material.baseColourTexture.image);
    material.opacityTexture = texture(source, {aiTextureType_OPACITY}, ImportedImage::Data);
    const QImage opacityMap = m_images->at(material.opacityTexture.image);
    if (!opacityMap.isNull())
        material.mapKd = withOpacity(material.mapKd, plainMask(opacityMap));
    // The nearest that X3D has to a colour that is shown as it is.
    if (m_format == "x3d" && material.kd.isNull() && material.ks.isNull() && !material.emission.isNull()) {
        material.isUnlit = true;
        material.kd = material.emission;
        material.baseColour = QVector4D(material.kd, material.baseColour.w());
        material.emission = QVector3D();
    }
    nameUnread(source);
    // Formats other than glTF do not say whether they blend: what lets light through tells.
    if (material.alphaMode == ImportedMaterial::Blend && material.d >= 1 && !isSeeThrough(material.mapKd)
        && colours != VertexColours::Translucent && !isGltf(source))
        material.alphaMode = ImportedMaterial::Opaque;
    return material;
}

void MaterialReader::readPhong(const aiMaterial &source, ImportedMaterial *material)
{
    material->kd = colour(source, AI_MATKEY_COLOR_DIFFUSE, MaterialData().kd);
    material->baseColour = QVector4D(material->kd, 1);
    material->ks = QVector3D();
    const float exponent = number(source, AI_MATKEY_SHININESS, 0);
    if (exponent <= 0)
        return;
    material->ks = colour(source, AI_MATKEY_COLOR_SPECULAR, QVector3D());
    material->ns = exponent;
    material->specularTexture = texture(source, {aiTextureType_SPECULAR}, ImportedImage::Colour);
    material->mapKs = m_images->at(material->specularTexture.image);
}

void MaterialReader::readMetallic(const aiMaterial &source, float metallic, float roughness, ImportedMaterial *material)
{
    const QVector3D base = colour(source, AI_MATKEY_BASE_COLOR, colour(source, AI_MATKEY_COLOR_DIFFUSE, material->kd));
    material->baseColour = QVector4D(base, 1);
    material->metallic = qBound(0.0f, metallic, 1.0f);
    material->roughness = qBound(0.0f, roughness, 1.0f);
    // Other formats than glTF may keep the two in maps of their own, which are grey: there the channels agree.
    const ImportedTexture metallicMap = texture(source, {aiTextureType_METALNESS}, ImportedImage::Data);
    const ImportedTexture roughnessMap = texture(source, {aiTextureType_DIFFUSE_ROUGHNESS}, ImportedImage::Data);
    if (metallicMap.image == roughnessMap.image)
        material->metallicRoughnessTexture = metallicMap;
    setPhongFromMetallic(material, m_images->at(metallicMap.image), m_images->at(roughnessMap.image));
}

/// What all kinds of material may have beside their colours.
void MaterialReader::readSurface(const aiMaterial &source, ImportedMaterial *material)
{
    material->emission = colour(source, AI_MATKEY_COLOR_EMISSIVE, QVector3D());
    material->refractiveIndex = number(source, AI_MATKEY_REFRACTI, material->refractiveIndex);
    m_images->setStandIn(SceneImages::nothingEmitted());
    material->emissionTexture =
        texture(source, {aiTextureType_EMISSIVE, aiTextureType_EMISSION_COLOR}, ImportedImage::Colour);
    m_images->setStandIn(SceneImages::white());
    const bool isThere = !m_images->at(material->emissionTexture.image).isNull();
    // White in its place would make the whole surface shine.
    if (!isThere && (hasTexture(source, aiTextureType_EMISSIVE) || hasTexture(source, aiTextureType_EMISSION_COLOR)))
        material->emission = QVector3D();
    // A colour that the file leaves out does not darken the image.
    if (isThere && material->emission == QVector3D() && !isGltf(source))
        material->emission = QVector3D(1, 1, 1);
    material->normalTexture =
        texture(source, {aiTextureType_NORMALS, aiTextureType_NORMAL_CAMERA}, ImportedImage::Data);
    material->occlusionTexture =
        texture(source, {aiTextureType_AMBIENT_OCCLUSION, aiTextureType_LIGHTMAP}, ImportedImage::Data);
}

/// The first texture of these types.
ImportedTexture MaterialReader::texture(
    const aiMaterial &source, std::initializer_list<aiTextureType> types, ImportedImage::Use use)
{
    ImportedTexture result;
    const QString material = toQString(const_cast<aiMaterial &>(source).GetName());
    for (const aiTextureType type : types) {
        aiString name;
        if (source.GetTexture(type, 0, &name) != aiReturn_SUCCESS || name.length == 0 || isMadeUp(name))
            continue;
        // The mesh reader puts the set of the base colour first, with the transforms of all sets in place.
        const TextureSets sets = textureSetsOf(source);
        const int set = uvSetOf(source, type);
        if (set != sets.base && set != sets.other) {
            m_images->warn(toQString(name),
                QStringLiteral("is laid out by set %1 of the texture coordinates, and of this material sets %2 and %3 "
                               "are read; %4")
                    .arg(QString::number(set), QString::number(std::min(sets.base, sets.other)),
                        QString::number(std::max(sets.base, sets.other)), m_images->standIn()),
                material);
            break;
        }
        result.image = image(toQString(name), use, material);
        result.uvSet = set != sets.base;
        result.wrapU = wrapOf(source, _AI_MATKEY_MAPPINGMODE_U_BASE, type);
        result.wrapV = wrapOf(source, _AI_MATKEY_MAPPINGMODE_V_BASE, type);
        break;
    }
    return result;
}

/// Names the textures that change the look of a material and that nothing here draws.
void MaterialReader::nameUnread(const aiMaterial &source)
{
    const QString material = toQString(const_cast<aiMaterial &>(source).GetName());
    const auto name = [&](aiTextureType type, unsigned first, const QString &what) {
        for (unsigned i = first; i < source.GetTextureCount(type); ++i) {
            aiString path;
            if (source.GetTexture(type, i, &path) == aiReturn_SUCCESS && path.length > 0)
                m_images->warn(toQString(path), what, material);
        }
    };
    name(
        aiTextureType_DIFFUSE, 1, QStringLiteral("is one more image of the colour, of which the first alone is drawn"));
    name(aiTextureType_DISPLACEMENT, 0, QStringLiteral("displaces the surface and is left out"));
    name(aiTextureType_REFLECTION, 0, QStringLiteral("is reflected by the surface and is left out"));
}

int MaterialReader::image(const QString &path, ImportedImage::Use use, const QString &material)
{
    const aiTexture *embedded = m_source->GetEmbeddedTexture(path.toUtf8().constData());
    if (!embedded)
        return m_images->fromPath(path, use, material);
    const auto *data = reinterpret_cast<const char *>(embedded->pcData);
    if (embedded->mHeight == 0)
        return m_images->fromBytes(path, QByteArray::fromRawData(data, int(embedded->mWidth)), use, material);
    const QImage pixels(
        reinterpret_cast<const uchar *>(data), int(embedded->mWidth), int(embedded->mHeight), QImage::Format_ARGB32);
    return m_images->fromPixels(path, pixels.copy(), use);
}

} // namespace Velmora::Kvz
