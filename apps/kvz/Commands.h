// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// The commands of the program. Each takes its command line, the program's name first, and returns an exit status.
int runRender(const QStringList &arguments);
int runCheck(const QStringList &arguments);
int runPasses(const QStringList &arguments);
int runChains(const QStringList &arguments);
int runInfo(const QStringList &arguments);
int runFormats(const QStringList &arguments);

} // namespace Velmora::Kvz
