// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSize>

namespace Velmora::Kvz {

/// The size at which an image's longer side is `largestSide`, its shape kept.
inline QSize fittedSize(const QSize &from, int largestSide)
{
    return from.scaled(largestSide, largestSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

} // namespace Velmora::Kvz
