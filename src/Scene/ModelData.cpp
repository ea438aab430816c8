// SPDX-License-Identifier: MIT
#include <Scene/ModelData.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// The linear value of a channel that is encoded as IEC 61966-2-1 (sRGB) says.
float linearFromSRgb(float encoded)
{
    return encoded <= 0.04045f ? encoded / 12.92f : std::pow((encoded + 0.055f) / 1.055f, 2.4f);
}

} // namespace

QVector3D linearFromSRgb(const QVector3D &colour)
{
    return {linearFromSRgb(colour.x()), linearFromSRgb(colour.y()), linearFromSRgb(colour.z())};
}

PhysicalMaterialData physicalFrom(const MaterialData &material)
{
    PhysicalMaterialData physical;
    physical.hasDisplayColours = true;
    physical.baseColour = linearFromSRgb(material.kd);
    const float strongest = std::max({material.ks.x(), material.ks.y(), material.ks.z()});
    if (!(strongest > 0))
        return physical;
    // Near its peak a power of n is a lobe of GGX whose squared width is 2 / (n + 2).
    physical.roughness = std::pow(2 / (std::max(material.ns, 0.0f) + 2), 0.25f);
    physical.specular = std::min(strongest, 1.0f);
    physical.specularColour = linearFromSRgb(material.ks / strongest);
    return physical;
}

bool isSeeThrough(const QImage &image)
{
    if (!image.hasAlphaChannel())
        return false;
    for (int y = 0; y < image.height(); ++y) {
        // A row at a time: a second copy of a large image would cost as much as the first.
        const QImage row = image.copy(0, y, image.width(), 1).convertToFormat(QImage::Format_ARGB32);
        const auto *pixels = reinterpret_cast<const QRgb *>(row.constScanLine(0));
        if (std::any_of(pixels, pixels + row.width(), [](QRgb pixel) { return qAlpha(pixel) < 255; }))
            return true;
    }
    return false;
}

bool letsLightThrough(const MaterialData &material, const MeshData &mesh)
{
    if (material.alphaMode != MaterialData::Blend)
        return false;
    return material.d < 1 || isSeeThrough(material.mapKd)
        || std::any_of(mesh.colours.begin(), mesh.colours.end(), [](const QVector4D &c) { return c.w() < 1; });
}

} // namespace Velmora::Kvz
