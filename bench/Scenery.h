// SPDX-License-Identifier: MIT
#pragma once

#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <functional>

namespace Velmora::Kvz {

class Texture;

/// A projection with the viewport's aspect ratio; the vertical field of view is in degrees.
QMatrix4x4 perspective(const QRect &viewport, float fieldOfView, float nearPlane, float farPlane);

/// Gives a 2D texture linear filters.
void filterLinearly(Texture *texture);

/// A rectangle in the plane z = 0 that faces +z, from (-1, -1) to (`right`, 1).
MeshData quadMesh(float right = 1);

struct GridVertex
{
    QVector3D position;
    QVector3D normal;
};

/// A surface over a grid: `vertex` takes column and row as fractions from 0 to 1. Front faces are those that are seen with
/// columns to the right and rows downwards.
MeshData gridMesh(int columns, int rows, const std::function<GridVertex(float column, float row)> &vertex);

} // namespace Velmora::Kvz
