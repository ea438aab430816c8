// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// A value with a name: the form in which a pass holds a port.
template <typename T> struct NamedValue
{
    QString name; ///< Exact and case-sensitive; ports follow the grammar `Kvz_<type>_<role>`.
    T value;
};

} // namespace Velmora::Kvz
