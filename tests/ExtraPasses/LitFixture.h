// SPDX-License-Identifier: MIT
#pragma once

#include "support/Cameras.h"
#include "support/LitReference.h"
#include "support/Meshes.h"
#include "support/PassTest.h"

#include <QtGui/QColor>

#include <functional>

namespace Velmora::Kvz {

/// Half a step of 8 bits, plus what single precision and the rasteriser's grid add.
constexpr double halfStep = 0.5 / 255 + 5e-4;

/// Camera and projection of a picture.
struct View
{
    const char *name;
    QSize size;
    QMatrix4x4 projection;
    QMatrix4x4 camera;
};

/// A perspective view from the upper right.
inline View perspectiveView()
{
    const QSize size(72, 54);
    return {"perspective", size, perspective(size, 0.5f, 40), lookAt(QVector3D(1.2f, 2.2f, 6), QVector3D(0, 0.1f, 0))};
}

/// The same direction in parallel projection.
inline View parallelView()
{
    View view = perspectiveView();
    view.name = "parallel";
    view.projection = QMatrix4x4();
    view.projection.ortho(-4, 4, -3, 3, 0.5f, 40);
    return view;
}

/// A wall from -1 to 1 that fills a picture of this size, seen from the front.
inline View wallView(const QSize &size)
{
    return {"wall", size, QMatrix4x4(), QMatrix4x4()};
}

inline QMatrix4x4 placed(const QVector3D &position, float angle = 0, const QVector3D &scale = QVector3D(1, 1, 1))
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.rotate(angle, 0.2f, 1, 0.1f);
    matrix.scale(scale);
    return matrix;
}

inline MaterialData coloured(const QVector3D &kd, const QVector3D &ks = {}, float ns = 20)
{
    MaterialData material;
    material.kd = kd;
    material.ks = ks;
    material.ns = ns;
    return material;
}

/// Random texels, the same in every run, with alpha from 0 to 1.
inline QImage speckledImage(int width, int height, unsigned int seed = 1)
{
    QImage image(width, height, QImage::Format_ARGB32);
    unsigned int state = seed;
    const auto next = [&state] {
        state = state * 1664525u + 1013904223u;
        return int(state >> 24);
    };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixelColor(x, y, QColor(next(), next(), next(), next()));
    }
    return image;
}

/// Gives two materials three images each, which fill all six arrays of a model.
inline void fillAllImageArrays(
    MaterialData *first, MaterialData *second, const std::function<QImage(int size)> &makeImage)
{
    first->mapKd = makeImage(2);
    first->mapKs = makeImage(4);
    first->mapEmission = makeImage(8);
    second->mapKd = makeImage(16);
    second->mapKs = makeImage(32);
    second->mapEmission = makeImage(64);
}

/// Two balls, one mirrored and one flattened, and a box, with everything that materials and vertices can have except
/// images.
inline LitScene plainScene()
{
    MeshData ball = sphereMesh(6);
    for (const QVector3D &position : qAsConst(ball.positions))
        ball.colours.append(QVector4D((position + QVector3D(1.5f, 1.5f, 1.5f)) / 2.5f, 0.8f));
    MaterialData glowing = coloured({0.5f, 0.2f, 0.1f}, {0.3f, 0.3f, 0.3f}, 5);
    glowing.emission = QVector3D(0, 0.1f, 0.4f);
    glowing.d = 0.6f;
    LitScene scene;
    scene.add(boxMesh(), coloured({0.8f, 0.7f, 0.2f}, {0.9f, 0.8f, 0.7f}, 60), placed({-1.3f, 0, 0}, 35));
    scene.add(
        ball, coloured({0.9f, 0.9f, 0.9f}, {0.2f, 0.2f, 0.2f}, 12), placed({1.1f, 0.6f, 0.4f}, 20, {1, 0.5f, 0.8f}));
    scene.add(ball, glowing, placed({0.7f, -0.9f, 1.2f}, 60, {-0.5f, 0.5f, 0.5f}));
    scene.add(groundMesh(), coloured({0.4f, 0.5f, 0.6f}), placed({0, -1.2f, 0}, 0, {3, 1, 3}));
    return scene;
}

/// Draws with one of the passes, or with several in a row.
using DrawLit = std::function<Image(const LitScene &, const View &)>;

/// The largest error of a picture against the formulas, over the pixels clear of edges. Pixels where a mask cuts holes
/// must be clear too.
inline double largestError(const Image &frame, const LitScene &scene, const View &view, const LitLights &lights = {},
    double leastShare = 0.8, int leastGeometry = 1000)
{
    const LitReference reference(scene, view.projection, view.camera, view.size);
    double error = 0;
    reference.rays().compareClearPixels(leastShare, leastGeometry, [&](int x, int y, const RayHit &hit) {
        const Vector4d expected = reference.colourAt(x, y, hit, lights);
        for (int k = 0; k < 4; ++k)
            error = std::max(error, std::abs(double(frame.at(x, y)[k]) - expected[size_t(k)]));
    });
    return error;
}

} // namespace Velmora::Kvz
