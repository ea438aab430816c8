// SPDX-License-Identifier: MIT
#pragma once

#include <GL/GLStatistics.h>

namespace Velmora::Kvz {

/// The counters behind glObjectCounts(): every class counts a name when it makes it and when it deletes or drops it.
GLObjectCounts &liveNames();

} // namespace Velmora::Kvz
