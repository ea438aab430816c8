// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// The line of a driver's log that says what is wrong: the first that mentions an error, else the first that says anything.
QString decisiveLine(const QString &log);

} // namespace Velmora::Kvz
