// SPDX-License-Identifier: MIT
#pragma once

#include "RayCast.h"

#include <QtCore/QSharedPointer>

namespace Velmora::Kvz {

/// A model, and what a reference needs to know to light it.
class LitScene
{
public:
    LitScene &add(const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix = QMatrix4x4(),
        quint64 featureFlags = 0);

    QSharedPointer<GPUModel> build() const { return m_builder.build(); }
    const QVector<RayCastItem> &items() const { return m_items; }
    const MaterialData &material(int item) const { return m_materials[item]; }
    quint64 featureFlags(int item) const { return m_flags[item]; }

private:
    GPUModelBuilder m_builder;
    QVector<RayCastItem> m_items;
    QVector<MaterialData> m_materials;
    QVector<quint64> m_flags;
};

/// The lights of the passes that light surfaces.
struct LitLights
{
    double headlight = 0.85;
    double ambient = 0.15;
    bool isFixed = false;
};

/// The shares of light that reach a point.
struct LitShares
{
    double lamps = 1;
    double surroundings = 1;
};

/// A surface at one point, as its material and mesh define it.
struct LitSurface
{
    Vector3d baseColour = {};
    double opacity = 1;
    Vector3d specular = {};
    double shininess = 0;
    Vector3d emission = {};
    bool isUnlit = false;
    bool isThere = true;
    Vector3d normal = {}; ///< Camera space, unit, towards the seen side where it is lit from both.
    Vector3d toEye = {}; ///< Camera space, unit.
};

/// The light at the points that rays meet, by the formulas and in doubles. Images are read from their largest mip
/// level.
class LitReference
{
public:
    LitReference(const LitScene &scene, const QMatrix4x4 &projection, const QMatrix4x4 &camera, const QSize &size);

    const RayCaster &rays() const { return m_rays; }
    LitSurface surfaceAt(int x, int y, const RayHit &hit) const;
    /// Opacity, and colour multiplied by it, each channel from 0 to 1; zeros where there is nothing.
    Vector4d colourAt(
        int x, int y, const RayHit &hit, const LitLights &lights = {}, const LitShares &shares = {}) const;

private:
    const LitScene &m_scene;
    DoubleMatrix m_camera;
    bool m_isPerspective;
    RayCaster m_rays;
};

/// A sample of an image, read by its sampling parameters.
Vector4d sampleMagnified(const QImage &image, const ImageSampling &sampling, const std::array<double, 2> &texCoord);

/// The light that a surface sends to the viewer, not clamped.
Vector3d litColour(const LitSurface &surface, const LitLights &lights, const LitShares &shares = {});

} // namespace Velmora::Kvz
