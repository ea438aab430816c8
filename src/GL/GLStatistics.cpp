// SPDX-License-Identifier: MIT
#include "GLNames.h"

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
