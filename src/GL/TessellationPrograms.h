// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSet>

namespace Velmora::Kvz {

/// GL names of the linked programs that have a tessellation stage, so that a draw need not ask the driver.
QSet<unsigned int> &tessellationPrograms();

} // namespace Velmora::Kvz
