// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>

#include <QtCore/QRect>
#include <QtCore/QSize>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

/// Reads a port as a `T`, converting when its value has another type. A value that does not convert gives the type's own
/// empty value: an invalid colour, 0, the identity matrix, the null rectangle of width and height 0.
template <typename T> T inputValue(const NamedValue<QVariant> &port)
{
    return port.value.value<T>();
}

/// Reads a port as a `T`; `constant` stands in for an invalid value.
template <typename T> T inputValue(const NamedValue<QVariant> &port, const T &constant)
{
    return port.value.isValid() ? port.value.value<T>() : constant;
}

} // namespace Velmora::Kvz
