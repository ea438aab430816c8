// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// Keeps the log of a failed program for takeProgramFailures(). Needs a current context.
void addProgramFailure(const QString &log);

} // namespace Velmora::Kvz
