// SPDX-License-Identifier: MIT
#include "GLStatisticsPrivate.h"

namespace Velmora::Kvz {

GLObjectCounts &liveNames()
{
    static GLObjectCounts counts;
    return counts;
}

GLObjectCounts glObjectCounts()
{
    return liveNames();
}

} // namespace Velmora::Kvz
