// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// Whether any element of two matrices differs, as floats and exactly: a NaN always does.
inline bool differs(const QMatrix4x4 &a, const QMatrix4x4 &b)
{
    for (int i = 0; i < 16; ++i) {
        if (!(a.constData()[i] == b.constData()[i]))
            return true;
    }
    return false;
}

} // namespace Velmora::Kvz
