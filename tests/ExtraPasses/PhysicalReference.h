// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ModelData.h>

#include <QtGui/QVector3D>

#include <functional>

namespace Velmora::Kvz {

/// Physically based light worked out on the CPU in double precision, by sampling, without tables or filtered images.
class PhysicalReference
{
public:
    explicit PhysicalReference(const PhysicalMaterialData &material)
        : m_material(material)
    { }

    /// The BRDF times the cosine to the light. All directions are of length 1, towards the outside.
    QVector3D reflected(const QVector3D &normal, const QVector3D &toEye, const QVector3D &toLight) const;
    /// The radiance that is returned of surroundings, whose radiance from a direction is given.
    QVector3D lit(const QVector3D &normal, const QVector3D &toEye,
        const std::function<QVector3D(const QVector3D &)> &surroundings) const;

private:
    PhysicalMaterialData m_material;
};

} // namespace Velmora::Kvz
