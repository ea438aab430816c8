// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Import/ImportedScene.h>

#include <QtCore/QtGlobal>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// What a scene adds up to once all its items are placed: a mesh that two items share counts twice, except for memory.
struct SceneFacts
{
    bool hasBounds = false; ///< False for a scene without a single point.
    /// Corners of the box around all items in world space; where there are none, around points and lines.
    QVector3D low;
    QVector3D high;
    qint64 triangles = 0;
    qint64 vertices = 0;
    qint64 points = 0;
    qint64 lines = 0;
    /// What build() uploads: vertices, indices, rows of items, and the images of materials that passes read, with their
    /// mip levels. An estimate, since drivers round up and images of more sizes than there are arrays are resampled.
    qint64 gpuBytes = 0;
};

/// Needs no context.
KVZ_HOST_EXPORT SceneFacts factsOf(const ImportedScene &scene);

} // namespace Velmora::Kvz
