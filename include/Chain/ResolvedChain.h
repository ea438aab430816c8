// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/ChainFinding.h>
#include <Chain/FrameValues.h>
#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

struct InputValue;
class ResolvedPasses;

/// A chain with everything looked up that can be known before a frame: the classes of its passes, their options and values
/// converted, where each input takes its value, and what is wrong. Needs no OpenGL context and constructs no pass.
///
/// Resolving is the expensive step; all functions below only read its result. Each resolution leaves a line at debug
/// level in the log category "kvz.chain", which is off unless asked for.
class KVZ_HOST_EXPORT ResolvedChain
{
public:
    /// `frameValues` names the values that the host gives for each frame, and `known` holds those of them that it knows
    /// already, by name, such as the viewport. `registry` must live as long as this, and not change meanwhile.
    explicit ResolvedChain(const ChainDescription &chain, const PassRegistry &registry = PassRegistry::standard(),
        const QStringList &frameValues = FrameValues::standardNames(), const QVariantMap &known = QVariantMap());
    ~ResolvedChain();

    const ChainDescription &description() const;
    /// Errors come first, then warnings; each group goes through the passes in their order, then through the exports, the
    /// rules of order between passes and the lights.
    const QVector<ChainFinding> &findings() const { return m_findings; }
    /// The texts of the findings that are errors.
    QStringList errors() const;

    /// Whether an enabled pass presents: puts a picture on the screen or into the host's framebuffer. A chain without one
    /// serves a host that takes its exports or captures.
    bool presents() const;
    /// Whether an enabled pass has a trait.
    bool has(PassTrait trait) const;
    /// Whether an enabled pass takes a value of the frame of this name.
    bool takes(const QString &frameValue) const;
    /// Whether an enabled pass takes the frame's lights.
    bool takesLights() const;
    /// Whether a frame may depend on those before it: an enabled pass keeps a past, or takes a value of an earlier frame.
    bool keepsPast() const;
    /// The files that passes have shaders from, as absolute paths, without those that they include.
    QStringList shaderFiles() const;

    /// The passes, for code of this library.
    const ResolvedPasses &passes() const { return *m_passes; }
    /// Exchanges a value that the chain sets already, where neither a finding nor a source can change by it. False, with
    /// nothing changed, where one may. For code of this library.
    bool exchangeValue(int pass, int input, const QVariant &given, const InputValue &value);

private:
    Q_DISABLE_COPY(ResolvedChain)

    std::unique_ptr<ResolvedPasses> m_passes;
    QVector<ChainFinding> m_findings;
};

} // namespace Velmora::Kvz
