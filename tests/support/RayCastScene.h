// SPDX-License-Identifier: MIT
#pragma once

#include "RayCast.h"

#include <QtCore/QSharedPointer>

namespace Velmora::Kvz {

/// A model, and what a reference needs to know of it.
class RayCastScene
{
public:
    RayCastScene &add(const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix = QMatrix4x4())
    {
        m_builder.addItem(m_builder.addMesh(mesh), m_builder.addMaterial(material), matrix);
        m_items.append({mesh, matrix});
        m_materials.append(material);
        return *this;
    }

    QSharedPointer<GPUModel> build() const { return m_builder.build(); }
    const QVector<RayCastItem> &items() const { return m_items; }
    const MaterialData &material(const RayHit &hit) const { return m_materials[hit.item]; }

private:
    GPUModelBuilder m_builder;
    QVector<RayCastItem> m_items;
    QVector<MaterialData> m_materials;
};

/// A sample of a material's image, which repeats: filtered between the four nearest texels of the largest mip level.
/// White without an image.
Vector4d sampleRepeating(const QImage &image, const std::array<double, 2> &texCoord);

/// A checkerboard of two colours with squares of two by two texels.
QImage checkerImage(int side, const QColor &even, const QColor &odd);

} // namespace Velmora::Kvz
