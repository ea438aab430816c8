// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/ChainFinding.h>
#include <Chain/FrameValues.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class ResolvedChain;

/// Checks a chain without an OpenGL context and without constructing a pass: ResolvedChain::findings() for callers that
/// need nothing else of it. Errors come first, then warnings; each group goes through the passes in their order, then
/// through the exports, the rules of order between passes and the lights. `frameValues` names the values that the host
/// gives for each frame, and `known` holds those of them that it knows already, by name, such as the viewport.
KVZ_HOST_EXPORT QVector<ChainFinding> validateChain(const ChainDescription &chain,
    const PassRegistry &registry = PassRegistry::standard(),
    const QStringList &frameValues = FrameValues::standardNames(), const QVariantMap &known = QVariantMap());

/// ResolvedChain::presents() of a chain.
KVZ_HOST_EXPORT bool presents(const ChainDescription &chain, const PassRegistry &registry = PassRegistry::standard());

/// The passes and strategies of a chain that the current driver cannot run, and why, such as shaders that do not compile, and
/// viewports and images beyond its limits; needs a current context. What concerns a disabled pass is a warning at most.
KVZ_HOST_EXPORT QVector<ChainFinding> validateChainOnDriver(const ResolvedChain &chain);
KVZ_HOST_EXPORT QVector<ChainFinding> validateChainOnDriver(
    const ChainDescription &chain, const PassRegistry &registry = PassRegistry::standard());

} // namespace Velmora::Kvz
