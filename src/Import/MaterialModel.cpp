// SPDX-License-Identifier: MIT
#include "MaterialModel.h"

#include <QtGui/QColor>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Mean of a channel over an image, 0 to 1; 1 for a null image.
float mean(const QImage &image, int (*channel)(QRgb))
{
    if (image.isNull())
        return 1;
    quint64 sum = 0;
    for (int y = 0; y < image.height(); ++y) {
        // A row at a time: a second copy of a large image would cost as much as the first.
        const QImage row = image.copy(0, y, image.width(), 1).convertToFormat(QImage::Format_RGB32);
        const QRgb *line = reinterpret_cast<const QRgb *>(row.constScanLine(0));
        for (int x = 0; x < row.width(); ++x)
            sum += quint64(channel(line[x]));
    }
    return float(double(sum) / (255.0 * image.width() * image.height()));
}

} // namespace

VertexColours vertexColoursOf(const QVector<QVector4D> &colours)
{
    if (colours.isEmpty())
        return VertexColours::None;
    const auto least = std::minmax_element(
        colours.begin(), colours.end(), [](const QVector4D &a, const QVector4D &b) { return a.w() < b.w(); });
    return least.first->w() < 1 && least.second->w() > 0 ? VertexColours::Translucent : VertexColours::Opaque;
}

ImportedMaterial standInMaterial(VertexColours colours)
{
    ImportedMaterial material;
    if (colours != VertexColours::None)
        material.kd = QVector3D(1, 1, 1);
    if (colours == VertexColours::Translucent)
        material.alphaMode = ImportedMaterial::Blend;
    material.ks = QVector3D(0.2f, 0.2f, 0.2f);
    material.baseColour = QVector4D(material.kd, 1);
    return material;
}

void setPhongFromMetallic(ImportedMaterial *material, const QImage &metallicMap, const QImage &roughnessMap)
{
    const float m = qBound(0.0f, material->metallic * mean(metallicMap, qBlue), 1.0f);
    const float r = qBound(0.0f, material->roughness * mean(roughnessMap, qGreen), 1.0f);
    const QVector3D base = material->baseColour.toVector3D();
    if (material->isUnlit) {
        material->kd = base;
        material->ks = QVector3D();
        return;
    }
    const QVector3D reflectance = QVector3D(0.04f, 0.04f, 0.04f) * (1 - m) + base * m;
    const float strongest = std::max({reflectance.x(), reflectance.y(), reflectance.z(), 1e-3f});
    material->kd = base * (1 - m / 2);
    material->ns = r > 0 ? qBound(1.0f, 2 / std::pow(r, 4.0f) - 2, 1024.0f) : 1024;
    material->ks = reflectance * (1 - r) * std::min((material->ns + 8) / 8, 1 / strongest);
}

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

QImage plainMask(const QImage &mask)
{
    if (mask.isNull() || !mask.hasAlphaChannel())
        return mask;
    int first = -1;
    for (int y = 0; y < mask.height(); ++y) {
        const QImage row = mask.copy(0, y, mask.width(), 1).convertToFormat(QImage::Format_ARGB32);
        const QRgb *const line = reinterpret_cast<const QRgb *>(row.constScanLine(0));
        first = first < 0 ? qAlpha(line[0]) : first;
        if (std::any_of(line, line + row.width(), [first](QRgb pixel) { return qAlpha(pixel) != first; }))
            return mask;
    }
    // Converted by way of colours that alpha has not been multiplied into.
    return mask.convertToFormat(QImage::Format_ARGB32).convertToFormat(QImage::Format_RGB32);
}

quint64 ItemFlags::of(const ImportedScene &scene, int material, int mesh)
{
    const auto key = qMakePair(material, mesh);
    const auto known = m_known.constFind(key);
    if (known != m_known.constEnd())
        return known.value();
    quint64 flags = scene.materials[material].isDoubleSided ? quint64(GPUModel::DoubleSided) : 0;
    if (letsLightThrough(scene.materials[material], scene.meshes[mesh]))
        flags |= ImportedScene::Transparent;
    m_known.insert(key, flags);
    return flags;
}

} // namespace Velmora::Kvz
