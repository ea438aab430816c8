// SPDX-License-Identifier: MIT
#include "LayerScene.h"

#include "support/Cameras.h"
#include "support/Meshes.h"
#include "support/RayCastScene.h"

#include <QtGui/QColor>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

QMatrix4x4 placed(const QVector3D &position, float angle = 0, const QVector3D &scale = QVector3D(1, 1, 1))
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.rotate(angle, 0, 1, 0.1f);
    matrix.scale(scale);
    return matrix;
}

MaterialData glass(const QVector3D &kd, float d, const QVector3D &ks = {}, float ns = 16)
{
    MaterialData material;
    material.kd = kd;
    material.ks = ks;
    material.ns = ns;
    material.d = d;
    return material;
}

/// Adds vertex colours, with alpha, that vary over the mesh.
MeshData coloured(MeshData mesh)
{
    for (const QVector3D &position : qAsConst(mesh.positions)) {
        const QVector3D share = (position + QVector3D(1, 1, 1)) / 2;
        mesh.colours.append(QVector4D(share, 0.3f + 0.7f * share.x()));
    }
    return mesh;
}

MeshData scaled(MeshData mesh, float factor)
{
    for (QVector3D &position : mesh.positions)
        position *= factor;
    return mesh;
}

} // namespace

const QSize layerSceneSize(120, 90);
const QMatrix4x4 layerSceneCamera = lookAt(QVector3D(0.8f, 1.1f, 4), QVector3D(0, 0.2f, 0));
const QMatrix4x4 layerSceneProjection = perspective(layerSceneSize, 0.5f, 40);

LitScene layerScene()
{
    constexpr quint64 transparent = GPUModel::Transparent;
    LitScene scene;
    MaterialData material = glass({0.8f, 0.8f, 0.8f}, 1);
    scene.add(groundMesh(), material, placed({0, -1, 0}, 0, {4, 4, 4}));
    scene.add(boxMesh(), glass({0.7f, 0.3f, 0.2f}, 1), placed({-1.6f, -0.2f, -1.5f}, 30, {0.7f, 0.8f, 0.7f}));

    scene.add(coloured(boxMesh(2)), glass({0.9f, 0.9f, 0.9f}, 0.8f, {0.3f, 0.3f, 0.3f}, 40),
        placed({-1, 0.2f, 0.4f}, 20, {0.8f, 0.9f, 0.1f}), transparent);
    // With alpha in the image.
    material = glass({0.9f, 0.6f, 0.3f}, 0.7f);
    material.mapKd = checkerImage(4, QColor(255, 230, 200, 255), QColor(140, 160, 255, 90));
    scene.add(wallMesh(), material, placed({0.4f, 0.2f, 0.3f}, 35), transparent);
    // Mirrored and lit from the visible side; then turned away and lit only by its normal.
    scene.add(wallMesh(), glass({0.5f, 0.8f, 0.1f}, 0.5f), placed({0.4f, 0.2f, 0.3f}, -25, {-1, 1, 1}), transparent);
    material = glass({0.8f, 0.2f, 0.6f}, 0.4f);
    material.isLitFromBothSides = false;
    scene.add(wallMesh(), material, placed({-0.2f, 0.8f, -0.8f}, 160, {0.7f, 0.7f, 0.7f}), transparent);
    scene.add(wallMesh(), material, placed({1.2f, 0.9f, -0.8f}, 10, {-0.5f, 0.5f, 0.5f}), transparent);
    scene.add(scaled(sphereMesh(4), 1000), glass({0.6f, 0.6f, 0.9f}, 0.25f, {0.9f, 0.9f, 0.9f}, 30),
        placed({0.2f, 0, 1.6f}, 0, {-0.0005f, 0.0005f, 0.0006f}), transparent);
    // Holes cut by an image with nearest filters.
    material = glass({0.3f, 0.7f, 0.7f}, 1);
    material.alphaMode = MaterialData::Mask;
    material.mapKd = checkerImage(8, QColor(255, 255, 255, 255), QColor(0, 0, 0, 40));
    material.mapKdSampling.magnification = ImageSampling::Nearest;
    scene.add(wallMesh(), material, placed({-1.9f, 0.3f, 1.2f}, 0, {0.4f, 0.5f, 1}), transparent);
    // The second set of texture coordinates, transformed and clamped; with emission.
    MeshData mesh = wallMesh();
    mesh.texCoords1 = {{-0.2f, 0.1f}, {0.9f, -0.1f}, {0.1f, 1.2f}, {1.1f, 0.8f}};
    material = glass({0.9f, 0.9f, 0.5f}, 0.6f);
    material.mapKd = checkerImage(4, QColor(255, 255, 255, 255), QColor(90, 90, 200, 120));
    material.mapKdSampling.uvSet = 1;
    material.mapKdSampling.transform = QTransform(0.9, 0.2, -0.3, 0.8, 0.15, 0.05);
    material.mapKdSampling.wrapU = ImageSampling::ClampToEdge;
    material.mapKdSampling.wrapV = ImageSampling::MirroredRepeat;
    material.emission = QVector3D(0.1f, 0, 0.2f);
    scene.add(mesh, material, placed({-0.6f, 1.2f, -1}, -10, {0.9f, 0.6f, 1}), transparent);
    for (int layer = 0; layer < 16; ++layer) {
        const QVector3D kd(layer % 3 == 0 ? 0.9f : 0.1f, layer % 3 == 1 ? 0.9f : 0.1f, 0.2f);
        scene.add(wallMesh(), layer % 4 == 3 ? flatGlass(kd, 0.1f) : glass(kd, 0.06f + 0.01f * float(layer)),
            placed({1.9f, 0, 0.5f - 0.06f * float(layer)}, 10, {0.4f, 0.7f, 1}), transparent);
    }
    return scene;
}

QVector<Layer> layersAt(const LitScene &scene, const LitReference &reference, const QMatrix4x4 &camera, int x, int y,
    const QVector<RayHit> &hits, bool *isCertain)
{
    constexpr double precision = 1e-5;
    const DoubleMatrix toCamera(camera);
    *isCertain = true;
    double opaqueDepth = 1;
    for (const RayHit &hit : hits) {
        if (!(scene.featureFlags(hit.item) & GPUModel::Transparent))
            opaqueDepth = std::min(opaqueDepth, hit.depth);
    }
    QVector<Layer> layers;
    for (const RayHit &hit : hits) {
        if (!(scene.featureFlags(hit.item) & GPUModel::Transparent) || !reference.surfaceAt(x, y, hit).isThere)
            continue;
        *isCertain = *isCertain && std::abs(hit.depth - opaqueDepth) > precision;
        if (hit.depth >= opaqueDepth)
            continue;
        const Vector3d point = reference.rays().pointOf(x + 0.5, y + 0.5, hit);
        layers.append({hit.depth, -(toCamera * withW(point, 1))[2], reference.colourAt(x, y, hit)});
    }
    std::sort(layers.begin(), layers.end(), [](const Layer &a, const Layer &b) { return a.depth < b.depth; });
    for (int i = 1; i < layers.size(); ++i)
        *isCertain = *isCertain && layers[i].depth - layers[i - 1].depth > precision;
    return layers;
}

Vector4d composited(const QVector<Layer> &layers)
{
    Vector4d result = {0, 0, 0, 1};
    for (const Layer &layer : layers) {
        for (size_t i = 0; i < 3; ++i)
            result[i] += result[3] * layer.colour[i];
        result[3] *= 1 - layer.colour[3];
    }
    return result;
}

MaterialData flatGlass(const QVector3D &colour, float opacity)
{
    MaterialData material;
    material.kd = colour;
    material.d = opacity;
    material.isUnlit = true;
    return material;
}

} // namespace Velmora::Kvz
