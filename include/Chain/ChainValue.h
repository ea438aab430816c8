// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QJsonValue>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

/// The types that ports and options of passes have.
enum class ValueType {
    Bool,
    Int,
    Float,
    String,
    Color, ///< QColor
    Rect, ///< QRect
    Rects, ///< one QRect or a list of them
    Size, ///< QSize
    Vector2D,
    Vector3D,
    Matrix4x4,
    Variant, ///< anything; the pass looks at the type itself
    Texture, ///< Texture *
    DrawBuffers, ///< DrawBuffers *, or a QVariantList of them
    Model, ///< GPUModel *
    Framebuffer, ///< FramebufferObject *
    Lights, ///< a QVariantList of ShadowMapManager::Light *
    InstanceData, ///< a QVariantList of InstanceDataCollection *
    ShadowMapData, ///< ShadowMapManager::RenderData *
    Enumeration, ///< of options only: the name of an enumerator, or its number
    Records, ///< of options only: a list of objects with named fields
    ShaderFile ///< of options only: the name of a file of shader text, or the text itself
};

/// A number relative to the scene's size, instead of a float: `value` times the longest side of the scene's bounds for a
/// length (power 1), or divided by it for a density (power -1), so that a scene looks the same at any scale. A chain
/// computes it in each frame from the bounds in the frame values (FrameValues::sceneBoundsMin and sceneBoundsMax), or else
/// from those of the model. Without bounds, or with bounds of no size, the input is `value` itself.
///
/// Set it with `chain.setValue(pass, port, QVariant::fromValue(SceneRelative{0.05f}))`. In a chain file a length is
/// {"ofScene": 0.05}, and the inverse of one {"perScene": 20}.
struct SceneRelative
{
    float value = 0;
    int power = 1; ///< 1 or -1
};

/// The C++ type behind a value type, such as "QRect" or "Texture *".
KVZ_HOST_EXPORT QString typeName(ValueType type);

/// Whether values of this type are plain data, which a file can hold and a pass may take from an earlier frame. Objects
/// on the GPU and lists of objects are not.
KVZ_HOST_EXPORT bool isPlain(ValueType type);

/// Whether an output of type `from` may feed an input of type `to`: equal types, numbers among themselves, a rectangle
/// where a list of them is taken, and anything to or from Variant.
KVZ_HOST_EXPORT bool canFeed(ValueType from, ValueType to);

/// The type that a port's name states, such as Rect for "Kvz_QRect_Viewport". False for a name that does not follow the
/// pattern.
KVZ_HOST_EXPORT bool typeFromPortName(const QString &port, ValueType *type);

/// How a value of this type is written in a chain file, such as "[x, y, width, height]"; empty for types that are not
/// plain.
KVZ_HOST_EXPORT QString writtenForm(ValueType type);

/// Whether a ShaderFile is the shader text itself rather than a file name: it has several lines.
KVZ_HOST_EXPORT bool isShaderText(const QString &text);

/// Turns a value into the given type. Takes both a value of the C++ type and the form that a chain file has for it:
///
/// - numbers; for `Int` whole ones only; for `Float` also a SceneRelative, which stays one, or its form in a chain file
/// - true and false
/// - colours as "#rrggbb", "#rrggbbaa" (alpha last), a colour name, or [r, g, b] and [r, g, b, a] with channels from 0 to 1
/// - rectangles as [x, y, width, height], sizes as [width, height], vectors as [x, y] and [x, y, z]
/// - matrices as 16 numbers, row by row
/// - null, which gives an invalid value and stands for "not set" on a port
///
/// Returns false, with `result` untouched, for everything else.
KVZ_HOST_EXPORT bool convertValue(const QVariant &value, ValueType type, QVariant *result);

/// The form in which a chain file holds a value: what convertValue() takes. Undefined for objects.
KVZ_HOST_EXPORT QJsonValue valueToJson(const QVariant &value);

/// A value as a person reads it in a message, such as `"red"`, `[1, 2]` or `Texture *`.
KVZ_HOST_EXPORT QString describeValue(const QVariant &value);

} // namespace Velmora::Kvz

Q_DECLARE_METATYPE(Velmora::Kvz::SceneRelative)
