// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSet>

namespace Velmora::Kvz {

/// GL names of the linked programs that have a tessellation stage, so that a draw need not ask the driver.
class TessellationPrograms
{
public:
    /// Those of the current context's share group, within which names are unique.
    static QSet<unsigned int> &current();
};

} // namespace Velmora::Kvz
