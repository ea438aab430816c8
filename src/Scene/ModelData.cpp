// SPDX-License-Identifier: MIT
#include <Scene/ModelData.h>

#include <algorithm>

namespace Velmora::Kvz {

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
