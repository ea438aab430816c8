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

ImportedMaterial standInMaterial()
{
    ImportedMaterial material;
    material.ks = QVector3D(0.2f, 0.2f, 0.2f);
    material.baseColour = QVector4D(material.kd, 1);
    return material;
}

void setPhongFromMetallic(ImportedMaterial *material, const QImage &metallicMap, const QImage &roughnessMap)
{
    const float m = qBound(0.0f, material->metallic * mean(metallicMap, qBlue), 1.0f);
    const float r = qBound(0.0f, material->roughness * mean(roughnessMap, qGreen), 1.0f);
    const QVector3D base = material->baseColour.toVector3D();
    const QVector3D reflectance = QVector3D(0.04f, 0.04f, 0.04f) * (1 - m) + base * m;
    const float strongest = std::max({reflectance.x(), reflectance.y(), reflectance.z(), 1e-3f});
    material->kd = base * (1 - m / 2);
    material->ns = r > 0 ? qBound(1.0f, 2 / std::pow(r, 4.0f) - 2, 1024.0f) : 1024;
    material->ks = reflectance * (1 - r) * std::min((material->ns + 8) / 8, 1 / strongest);
}

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

quint64 featureFlagsOf(const ImportedMaterial &material, const ImportedMesh &mesh)
{
    quint64 flags = material.isDoubleSided ? quint64(GPUModel::DoubleSided) : 0;
    const auto letsLightThrough = [&] {
        return material.d < 1 || isSeeThrough(material.mapKd)
            || std::any_of(mesh.colours.begin(), mesh.colours.end(), [](const QVector4D &c) { return c.w() < 1; });
    };
    if (material.alphaMode == ImportedMaterial::Blend && letsLightThrough())
        flags |= ImportedScene::Transparent;
    return flags;
}

} // namespace Velmora::Kvz
