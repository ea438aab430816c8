// SPDX-License-Identifier: MIT
#pragma once

#include "support/LogCapture.h"

#include <QtCore/QLoggingCategory>

namespace Velmora::Kvz {

/// Counts how often chains are resolved while it lives, by their lines in the log.
class ResolutionCounter
{
public:
    ResolutionCounter() { QLoggingCategory::setFilterRules(QStringLiteral("kvz.chain.debug=true")); }
    ~ResolutionCounter() { QLoggingCategory::setFilterRules(QString()); }

    /// The number since the last call.
    int take() { return m_log.takeCategory(QStringLiteral("kvz.chain")).size(); }

private:
    LogCapture m_log;
};

} // namespace Velmora::Kvz
