// SPDX-License-Identifier: MIT
#pragma once

#include "support/LitReference.h"

#include <Scene/GPUModel.h>

#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// A still life of transparent items of all kinds, each with GPUModel::Transparent, in front of, behind and through
/// opaque things. Rays meet up to 20 layers.
LitScene layerScene();
extern const QSize layerSceneSize;
extern const QMatrix4x4 layerSceneCamera;
extern const QMatrix4x4 layerSceneProjection;

/// A fragment of a transparent item.
struct Layer
{
    double depth; ///< Window depth.
    double viewDepth; ///< Distance from the eye along its axis.
    Vector4d colour; ///< Multiplied by its opacity, and that.
};

/// The transparent items that a ray meets, the nearest first, without those that masks cut out or opaque items hide.
/// `isCertain` is false where the order of two hits is beyond the precision of depth.
QVector<Layer> layersAt(const LitScene &scene, const LitReference &reference, const QMatrix4x4 &camera, int x, int y,
    const QVector<RayHit> &hits, bool *isCertain);

/// Layers composited over one another, and the share of the background that comes through.
Vector4d composited(const QVector<Layer> &layers);

/// A material shown in exactly this colour, multiplied by its opacity.
MaterialData flatGlass(const QVector3D &colour, float opacity);

} // namespace Velmora::Kvz
