// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainFinding.h>

#include <QtCore/QVector>

namespace Velmora::Kvz {

class ResolvedPasses;

/// What is wrong with a chain, in the order that ResolvedChain::findings() has.
QVector<ChainFinding> checkChain(const ResolvedPasses &passes);

} // namespace Velmora::Kvz
