// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QIODevice>
#include <QtCore/QString>

namespace Velmora::Kvz {

/// Why a device did not take what it was given. A disk that fills up in the middle of a buffer leaves the device without a reason.
inline QString writingReason(const QIODevice &device)
{
    const QString reason = device.errorString();
    return reason == QLatin1String("Unknown error") ? QStringLiteral("it was written in part only; is the disk full?")
                                                    : reason;
}

} // namespace Velmora::Kvz
