// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

struct InputInfo;

/// A value that a chain sets on an input, as the pass takes it.
struct InputValue
{
    enum class Problem {
        None,
        WrongType, ///< It does not convert; the value is invalid.
        EmptyViewport ///< A viewport without extent, into which no pass can draw.
    };

    Problem problem = Problem::None;
    QVariant value; ///< Of the input's type; invalid says "null". The name of an image file is an absolute path.
};

/// Converts a value for an input. The relative name of an image file is resolved against `folder`, or against the working
/// directory when that is empty. Does not look at the file.
InputValue readInputValue(const InputInfo &input, const QVariant &given, const QString &folder);

} // namespace Velmora::Kvz
