// SPDX-License-Identifier: MIT
#pragma once

#include "RenderOptions.h"

#include <Chain/ResolvedChain.h>

#include <memory>

namespace Velmora::Kvz {

/// The chain of the options with their values and lights. Null, with one line in `error`, for a chain that cannot run. What does
/// not keep it from running is told as warnings.
std::unique_ptr<ResolvedChain> resolveChain(const RenderOptions &options, QString *error);

/// Why a chain with these findings cannot run, in one line that names the chain; empty, and warnings told, where it can. `check` is
/// the command that lists all findings.
QString chainProblem(const QVector<ChainFinding> &findings, const QString &chain, const QString &check);

} // namespace Velmora::Kvz
