// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

/// The object of a class in the value of a port; null for none and for an object of another class.
template <typename T> T *objectIn(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<T *>())
        return *static_cast<T *const *>(value.constData());
    return value.isValid() ? qobject_cast<T *>(value.value<QObject *>()) : nullptr;
}

} // namespace Velmora::Kvz
