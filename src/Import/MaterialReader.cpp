// SPDX-License-Identifier: MIT
#include "MaterialReader.h"

#include "AssimpTypes.h"
#include "ImportBudget.h"

#include <assimp/GltfMaterial.h>
#include <assimp/scene.h>

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>
#include <QtGui/QColor>

#include <cstring>

namespace Velmora::Kvz {

namespace {

/// What stands in for the material of a mesh without one.
MaterialData standInMaterial()
{
    MaterialData material;
    material.ks = QVector3D(0.2f, 0.2f, 0.2f);
    return material;
}

/// Whether a glTF material says that its opacity does not count.
bool isDeclaredOpaque(const aiMaterial &material)
{
    aiString alphaMode;
    return material.Get(AI_MATKEY_GLTF_ALPHAMODE, alphaMode) == aiReturn_SUCCESS
        && std::strcmp(alphaMode.C_Str(), "BLEND") != 0;
}

/// Whether any pixel has an alpha below 1: many images have the channel and make no use of it.
bool isSeeThrough(const QImage &image)
{
    if (!image.hasAlphaChannel())
        return false;
    const QImage rgba = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < rgba.height(); ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(rgba.constScanLine(y));
        if (std::any_of(line, line + rgba.width(), [](QRgb pixel) { return qAlpha(pixel) < 255; }))
            return true;
    }
    return false;
}

/// A colour image with the opacity of another in its alpha: that one's alpha or, without such a channel, its grey. A null
/// colour image is white.
QImage withOpacity(const QImage &colour, const QImage &opacity)
{
    QImage result = colour.convertToFormat(QImage::Format_ARGB32);
    if (result.isNull()) {
        result = QImage(opacity.size(), QImage::Format_ARGB32);
        result.fill(Qt::white);
    }
    const bool hasAlpha = opacity.hasAlphaChannel();
    const QImage fitted = opacity.convertToFormat(QImage::Format_ARGB32)
                              .scaled(result.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                              .convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < result.height(); ++y) {
        QRgb *line = reinterpret_cast<QRgb *>(result.scanLine(y));
        const QRgb *other = reinterpret_cast<const QRgb *>(fitted.constScanLine(y));
        for (int x = 0; x < result.width(); ++x)
            line[x] = (line[x] & 0x00ffffff) | QRgb(hasAlpha ? qAlpha(other[x]) : qGray(other[x])) << 24;
    }
    return result;
}

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
    return number(material, AI_MATKEY_OPACITY, -1) == -1 // PLY
        && colour(material, AI_MATKEY_COLOR_DIFFUSE, QVector3D()) == white;
}

/// Mean of a channel over an image, 0 to 1; 1 for a null image.
float mean(const QImage &image, int (*channel)(QRgb))
{
    if (image.isNull())
        return 1;
    const QImage rgb = image.convertToFormat(QImage::Format_RGB32);
    quint64 sum = 0;
    for (int y = 0; y < rgb.height(); ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(rgb.constScanLine(y));
        for (int x = 0; x < rgb.width(); ++x)
            sum += quint64(channel(line[x]));
    }
    return float(double(sum) / (255.0 * rgb.width() * rgb.height()));
}

} // namespace

bool isTransparent(const aiMaterial &source, const MaterialData &material)
{
    return !isDeclaredOpaque(source) && (material.d < 1 || isSeeThrough(material.mapKd));
}

MaterialReader::MaterialReader(const aiScene *source, const QString &file, ImportBudget *budget, QStringList *warnings)
    : m_source(source),
      m_file(file),
      m_directory(QFileInfo(file).absoluteDir()),
      m_budget(budget),
      m_warnings(warnings)
{ }

MaterialData MaterialReader::read(const aiMaterial &source)
{
    if (isStandIn(source))
        return standInMaterial();
    const float metallic = number(source, AI_MATKEY_METALLIC_FACTOR, -1);
    const float roughness = number(source, AI_MATKEY_ROUGHNESS_FACTOR, -1);
    MaterialData material = metallic < 0 && roughness < 0
        ? mtlMaterial(source)
        : metallicMaterial(source, std::max(metallic, 0.0f), roughness < 0 ? 1 : roughness);

    material.d = isDeclaredOpaque(source) ? 1 : qBound(0.0f, number(source, AI_MATKEY_OPACITY, 1), 1.0f);
    material.mapKd = texture(source, {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR});
    const QImage opacity = texture(source, {aiTextureType_OPACITY});
    if (!opacity.isNull())
        material.mapKd = withOpacity(material.mapKd, opacity);
    return material;
}

MaterialData MaterialReader::mtlMaterial(const aiMaterial &source)
{
    MaterialData material;
    material.kd = colour(source, AI_MATKEY_COLOR_DIFFUSE, material.kd);
    const float exponent = number(source, AI_MATKEY_SHININESS, 0);
    if (exponent > 0) {
        material.ks = colour(source, AI_MATKEY_COLOR_SPECULAR, material.ks);
        material.ns = exponent;
        material.mapKs = texture(source, {aiTextureType_SPECULAR});
    }
    return material;
}

MaterialData MaterialReader::metallicMaterial(const aiMaterial &source, float metallic, float roughness)
{
    // glTF packs both into one map: roughness in green, metallic in blue. In a grey map the channels agree.
    const float m = qBound(0.0f, metallic * mean(texture(source, {aiTextureType_METALNESS}), qBlue), 1.0f);
    const float r = qBound(0.0f, roughness * mean(texture(source, {aiTextureType_DIFFUSE_ROUGHNESS}), qGreen), 1.0f);
    const QVector3D base =
        colour(source, AI_MATKEY_BASE_COLOR, colour(source, AI_MATKEY_COLOR_DIFFUSE, standInMaterial().kd));
    const QVector3D reflectance = QVector3D(0.04f, 0.04f, 0.04f) * (1 - m) + base * m;
    const float strongest = std::max({reflectance.x(), reflectance.y(), reflectance.z(), 1e-3f});

    MaterialData material;
    material.kd = base * (1 - m / 2);
    material.ns = r > 0 ? qBound(1.0f, 2 / std::pow(r, 4.0f) - 2, 1024.0f) : 1024;
    material.ks = reflectance * (1 - r) * std::min((material.ns + 8) / 8, 1 / strongest);
    return material;
}

/// The first texture of these types; null, which is white, without one and with a warning for one that cannot be read.
QImage MaterialReader::texture(const aiMaterial &material, std::initializer_list<aiTextureType> types)
{
    for (const aiTextureType type : types) {
        aiString name;
        if (material.GetTexture(type, 0, &name) != aiReturn_SUCCESS || name.length == 0)
            continue;
        const QString path = toQString(name);
        const auto known = m_images.constFind(path);
        if (known != m_images.constEnd())
            return known.value();
        const auto say = [&](const QString &what) {
            m_warnings->append(QStringLiteral("%1: material \"%2\": texture \"%3\" %4")
                                   .arg(m_file, toQString(const_cast<aiMaterial &>(material).GetName()), path, what));
        };
        const DecodedImage decoded = readTexture(path);
        const QImage image = decoded.image;
        if (image.isNull())
            say(decoded.remark + QStringLiteral("; white is used"));
        else if (!decoded.remark.isEmpty())
            say(decoded.remark);
        m_images.insert(path, image);
        return image;
    }
    return {};
}

DecodedImage MaterialReader::readTexture(const QString &path)
{
    if (!m_budget->isTimeLeft())
        return {};
    if (const aiTexture *embedded = m_source->GetEmbeddedTexture(path.toUtf8().constData())) {
        auto *data = reinterpret_cast<const uchar *>(embedded->pcData);
        if (embedded->mHeight > 0) {
            const QImage pixels(data, int(embedded->mWidth), int(embedded->mHeight), QImage::Format_ARGB32);
            return {pixels.copy(), QString()};
        }
        QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(embedded->mWidth));
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        DecodedImage decoded = decodeImage(&buffer, m_budget->imageSide());
        if (decoded.image.isNull())
            decoded.remark = QStringLiteral("in the file ") + decoded.remark;
        return decoded;
    }
    const QString slashed = QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
    const QString unescaped = QUrl::fromPercentEncoding(slashed.toUtf8());
    for (const QString &candidate : {slashed, unescaped, QFileInfo(slashed).fileName()}) {
        QFile file(m_directory.filePath(candidate));
        if (!QFileInfo(file).isFile())
            continue;
        if (!file.open(QIODevice::ReadOnly))
            return {QImage(), QStringLiteral("cannot be read (%1)").arg(file.errorString())};
        return decodeImage(&file, m_budget->imageSide());
    }
    return {QImage(), QStringLiteral("is not there")};
}

} // namespace Velmora::Kvz
