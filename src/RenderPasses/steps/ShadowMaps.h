// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>
#include <GL/Texture.h>
#include <Scene/GPUModel.h>
#include <Scene/InstanceDataCollection.h>

#include <QtCore/QPair>
#include <QtCore/QSize>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QVector3D>

#include <optional>

namespace Velmora::Kvz {

// What the shadow passes share: their inputs, their textures, and the draws of what casts shadows.

/// The feature bits by which the shadow passes select items.
inline constexpr quint64 castsNoShadow = GPUModel::NoShadowA | GPUModel::NoShadowB;

/// Reads a port whose null value, or one that does not convert, means nothing.
template <typename T> std::optional<T> optionalValue(const NamedValue<QVariant> &port)
{
    // That Qt counts a zero QVector3D as null is meant.
    if (port.value.isNull() || !port.value.canConvert<T>())
        return std::nullopt;
    return port.value.value<T>();
}

template <typename T> const T *pointerTo(const std::optional<T> &value)
{
    return value ? &*value : nullptr;
}

using CornerPair = QPair<QVector3D, QVector3D>;

/// Minimum and maximum corner of the scene: those of the ports when both are there, else the model's, if it has some.
std::optional<CornerPair> sceneBounds(
    const NamedValue<QVariant> &minimum, const NamedValue<QVariant> &maximum, const GPUModel *model);

/// The collections of a list of instance data. What is none of them is left out.
QVector<InstanceDataCollection *> instanceData(const NamedValue<QVariant> &port);

/// The clear colour of moments: infinitely far.
void setFarClearColor();

/// An array of depth moments, GL_RG32F with linear filters. The size is in texels.
Texture *makeMomentArray(const QSize &size, int layers);
/// An array of depths, GL_DEPTH_COMPONENT32F with nearest filters; `data` can be null.
Texture *makeDepthArray(const QSize &size, int layers);

/// Has reads beside a map give moments that are infinitely far.
void clampToFarBorder(Texture *moments);
void clampToEdge(Texture *array);

/// Whether nothing of the model casts a shadow; so, too, for null.
bool castsNothing(const GPUModel *model);

/// Which kinds of items a model has, casting or not.
struct CasterKinds
{
    explicit CasterKinds(const GPUModel &model);
    bool hasSingleSided;
    bool hasDoubleSided;
};

/// Draws what casts shadows with the bound program: items seen from behind are left out where they are single-sided. Face
/// culling is off afterwards.
void drawCasters(GPUModel *model, ShaderProgram *program, const CasterKinds &kinds);

} // namespace Velmora::Kvz
