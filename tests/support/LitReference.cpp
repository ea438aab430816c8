// SPDX-License-Identifier: MIT
#include "LitReference.h"

#include <QtGui/QColor>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// The texel that a wrap mode selects for an integer coordinate.
int wrapped(int texel, int size, ImageSampling::Wrap wrap)
{
    const auto repeated = [](int value, int period) { return (value % period + period) % period; };
    switch (wrap) {
    case ImageSampling::Repeat:
        return repeated(texel, size);
    case ImageSampling::MirroredRepeat: {
        const int place = repeated(texel, 2 * size);
        return place < size ? place : 2 * size - 1 - place;
    }
    case ImageSampling::ClampToEdge:
        return qBound(0, texel, size - 1);
    }
    return 0;
}

Vector3d product(const Vector3d &a, const Vector3d &b)
{
    return {a[0] * b[0], a[1] * b[1], a[2] * b[2]};
}

Vector3d turned(const DoubleMatrix &matrix, const Vector3d &direction)
{
    return xyz(matrix * withW(direction, 0));
}

DoubleMatrix normalMatrix(const DoubleMatrix &matrix)
{
    DoubleMatrix linear = matrix;
    for (int i = 0; i < 3; ++i)
        linear.at(i, 3) = 0;
    return linear.inverted().transposed();
}

/// The vertex numbers of a triangle.
std::array<int, 3> cornersOf(const MeshData &mesh, int triangle)
{
    std::array<int, 3> corners = {3 * triangle, 3 * triangle + 1, 3 * triangle + 2};
    for (int &corner : corners)
        corner = mesh.indices.isEmpty() ? corner : int(mesh.indices[corner]);
    return corners;
}

template <typename Vector, size_t size>
std::array<double, size> interpolated(const QVector<Vector> &values, const std::array<double, size> &missing,
    const std::array<int, 3> &corners, const Vector3d &weights)
{
    if (values.isEmpty())
        return missing;
    std::array<double, size> result = {};
    for (size_t corner = 0; corner < 3; ++corner) {
        for (size_t k = 0; k < size; ++k)
            result[k] += weights[corner] * double(values[corners[corner]][int(k)]);
    }
    return result;
}

} // namespace

LitScene &LitScene::add(
    const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix, quint64 featureFlags)
{
    m_builder.addItem(m_builder.addMesh(mesh), m_builder.addMaterial(material), matrix, featureFlags);
    m_items.append({mesh, matrix});
    m_materials.append(material);
    m_flags.append(featureFlags);
    return *this;
}

LitReference::LitReference(
    const LitScene &scene, const QMatrix4x4 &projection, const QMatrix4x4 &camera, const QSize &size)
    : m_scene(scene),
      m_camera(camera),
      m_isPerspective(projection(3, 2) != 0),
      m_rays(scene.items(), projection, camera, size)
{ }

LitSurface LitReference::surfaceAt(int x, int y, const RayHit &hit) const
{
    const RayCastItem &item = m_scene.items()[hit.item];
    const MaterialData &material = m_scene.material(hit.item);
    const MeshData &mesh = item.mesh;
    const std::array<int, 3> corners = cornersOf(mesh, hit.triangle);
    const DoubleMatrix model(item.modelMatrix);
    const Vector3d point = m_rays.pointOf(x + 0.5, y + 0.5, hit);

    // Barycentric coordinates in world space, as ratios of areas.
    std::array<Vector3d, 3> places;
    for (size_t i = 0; i < 3; ++i)
        places[i] = xyz(model * withW(toDouble(mesh.positions[corners[i]]), 1));
    const Vector3d facing = cross(places[1] - places[0], places[2] - places[0]);
    Vector3d weights;
    for (size_t i = 0; i < 3; ++i) {
        const Vector3d &a = places[(i + 1) % 3];
        const Vector3d &b = places[(i + 2) % 3];
        weights[i] = dot(cross(a - point, b - point), facing) / dot(facing, facing);
    }

    LitSurface surface;
    const Vector3d inCamera = xyz(m_camera * withW(point, 1));
    surface.toEye = m_isPerspective ? normalized(inCamera * -1) : Vector3d{0, 0, 1};
    const DoubleMatrix toCamera = normalMatrix(m_camera) * normalMatrix(model);
    Vector3d normal = {};
    for (size_t i = 0; i < 3; ++i)
        normal = normal + normalized(turned(toCamera, toDouble(mesh.normals[corners[i]]))) * weights[i];
    surface.normal = normalized(normal);
    // A mirroring matrix reverses the winding, and with it which side is the front.
    const bool isMirrored = item.modelMatrix.determinant() < 0;
    const bool isFront = (dot(turned(m_camera, facing), surface.toEye) > 0) != isMirrored;
    if (material.isLitFromBothSides && !isFront)
        surface.normal = surface.normal * -1;

    const Vector4d colour = interpolated<QVector4D, 4>(mesh.colours, {1, 1, 1, 1}, corners, weights);
    const std::array<double, 2> texCoords[2] = {
        interpolated<QVector2D, 2>(mesh.texCoords, {}, corners, weights),
        interpolated<QVector2D, 2>(mesh.texCoords1, {}, corners, weights),
    };
    const auto sample = [&](const QImage &image, const ImageSampling &sampling) {
        return sampleMagnified(image, sampling, texCoords[sampling.uvSet]);
    };
    const Vector4d image = sample(material.mapKd, material.mapKdSampling);
    surface.baseColour = product(product(toDouble(material.kd), xyz(colour)), xyz(image));
    const double alpha = double(material.d) * colour[3] * image[3];
    surface.opacity = material.alphaMode == MaterialData::Blend ? qBound(0.0, alpha, 1.0) : 1;
    surface.isThere = material.alphaMode != MaterialData::Mask || alpha >= double(material.alphaCutoff);
    surface.specular = product(toDouble(material.ks), xyz(sample(material.mapKs, material.mapKsSampling)));
    surface.shininess = double(material.ns);
    surface.emission =
        product(toDouble(material.emission), xyz(sample(material.mapEmission, material.mapEmissionSampling)));
    surface.isUnlit = material.isUnlit;
    return surface;
}

Vector4d LitReference::colourAt(int x, int y, const RayHit &hit, const LitLights &lights, const LitShares &shares) const
{
    if (!hit.isGeometry())
        return {};
    const LitSurface surface = surfaceAt(x, y, hit);
    Vector3d colour = litColour(surface, lights, shares);
    for (double &channel : colour)
        channel = qBound(0.0, channel, 1.0) * surface.opacity;
    return withW(colour, surface.opacity);
}

Vector4d sampleMagnified(const QImage &image, const ImageSampling &sampling, const std::array<double, 2> &texCoord)
{
    if (image.isNull())
        return {1, 1, 1, 1};
    const QPointF place = sampling.transform.map(QPointF(texCoord[0], texCoord[1]));
    const bool isNearest = sampling.magnification == ImageSampling::Nearest;
    const double x = place.x() * image.width() - (isNearest ? 0 : 0.5);
    const double y = place.y() * image.height() - (isNearest ? 0 : 0.5);
    const double fx = isNearest ? 0 : x - std::floor(x);
    const double fy = isNearest ? 0 : y - std::floor(y);
    Vector4d result = {};
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const int column = wrapped(int(std::floor(x)) + i, image.width(), sampling.wrapU);
            const int row = wrapped(int(std::floor(y)) + j, image.height(), sampling.wrapV);
            // Row 0 of a QImage is the top row.
            const QColor texel = image.pixelColor(column, image.height() - 1 - row);
            const double weight = (i ? fx : 1 - fx) * (j ? fy : 1 - fy);
            const Vector4d channels = {texel.redF(), texel.greenF(), texel.blueF(), texel.alphaF()};
            for (size_t k = 0; k < 4; ++k)
                result[k] += weight * channels[k];
        }
    }
    return result;
}

Vector3d litColour(const LitSurface &surface, const LitLights &lights, const LitShares &shares)
{
    if (surface.isUnlit)
        return surface.baseColour;
    const auto lamp = [&](const Vector3d &toLight, const Vector3d &toEye, double diffuseShare) {
        const double lit = std::max(0.0, dot(surface.normal, toLight));
        const double mirrored = std::max(0.0, dot(surface.normal, normalized(toLight + toEye)));
        return surface.baseColour * (lit * diffuseShare)
            + surface.specular * (mirrored > 0 ? std::pow(mirrored, surface.shininess) : 0);
    };
    if (lights.isFixed)
        return surface.emission + lamp(normalized({1, 1, 1}), {0, 0, 1}, 1) * (shares.lamps * shares.surroundings);
    return surface.emission + surface.baseColour * (lights.ambient * shares.surroundings)
        + lamp(surface.toEye, surface.toEye, shares.surroundings) * (lights.headlight * shares.lamps);
}

} // namespace Velmora::Kvz
