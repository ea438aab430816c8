// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/ModelData.h>

#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// The scene that whole frames are measured on, here and in the programs of bench/peers: a scanned bunny, a knot and a pot beside it,
/// boxes around them, all on a ground. About 118,500 triangles in 27 items, each matte with a soft highlight.
struct ComparisonScene
{
    struct Item
    {
        MeshData mesh; ///< With normals, without texture coordinates.
        QVector3D colour; ///< Diffuse, 0 to 1.
        QMatrix4x4 modelMatrix;
    };
    QVector<Item> items;

    /// All of it. False, with one line in `error`, if the bunny of Debian's package glmark2-data cannot be read.
    bool loadWhole(QString *error);
    /// Ground and boxes alone, 278 triangles: a frame in which pixels count.
    static ComparisonScene ofFewTriangles();

    int triangles() const;
    /// The corners of all items in world space.
    QVector<QVector3D> points() const;
};

/// What the highlights of all items have in common.
constexpr float comparisonShininess = 40;
constexpr float comparisonSpecular = 0.2f;

} // namespace Velmora::Kvz
