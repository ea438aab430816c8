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

#include <memory>
#include <optional>

namespace Velmora::Kvz {

// What the shadow passes share: their inputs, their textures, and the draws of what casts shadows.

/// The feature bits by which the shadow passes select items.
inline constexpr quint64 castsNoShadow = GPUModel::NoShadowA | GPUModel::NoShadowB;

/// Reads a port that may be unset: nothing for a null value and for one that does not convert.
template <typename T> std::optional<T> optionalValue(const NamedValue<QVariant> &port)
{
    // Qt counts a QVector3D of zeros as null. Intentional: such a corner counts as unset.
    if (port.value.isNull() || !port.value.canConvert<T>())
        return std::nullopt;
    return port.value.value<T>();
}

template <typename T> const T *pointerTo(const std::optional<T> &value)
{
    return value ? &*value : nullptr;
}

using CornerPair = QPair<QVector3D, QVector3D>;

/// Minimum and maximum corner of the scene: those of the ports when both are set, else the model's, if it has any.
std::optional<CornerPair> sceneBounds(
    const NamedValue<QVariant> &minimum, const NamedValue<QVariant> &maximum, const GPUModel *model);

/// The collections of a list of instance data. Elements that are no collection are left out.
QVector<InstanceDataCollection *> instanceData(const NamedValue<QVariant> &port);

/// The clear colour of moments: infinitely far.
void setFarClearColor();

/// An array of depth moments, GL_RG32F with linear filters. The size is in texels.
std::unique_ptr<Texture> makeMomentArray(const QSize &size, int layers);
/// An array of depths, GL_DEPTH_COMPONENT32F with nearest filters.
std::unique_ptr<Texture> makeDepthArray(const QSize &size, int layers);

/// Makes reads outside a map give moments that are infinitely far.
void clampToFarBorder(Texture *moments);
void clampToEdge(Texture *array);

/// Whether nothing of the model casts a shadow, as with null.
bool castsNothing(const GPUModel *model);

/// Which kinds of items a model has, casting or not.
struct CasterKinds
{
    explicit CasterKinds(const GPUModel &model);
    bool hasSingleSided;
    bool hasDoubleSided;
};

/// Draws what casts shadows with the bound program, single-sided items without their back faces. Face culling is off
/// afterwards.
void drawCasters(GPUModel *model, ShaderProgram *program, const CasterKinds &kinds);

} // namespace Velmora::Kvz
