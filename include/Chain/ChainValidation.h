// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/FrameValues.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Something about a chain that a person should know.
struct KVZ_HOST_EXPORT ChainFinding
{
    enum class Severity {
        Error, ///< The chain cannot run, or cannot give a right picture.
        Warning ///< It runs, and the picture may not be what was meant.
    };
    enum class Code {
        EmptyChain,
        BadPassName,
        DuplicatePass,
        UnknownClass,
        UnknownPort,
        UnknownPass,
        UnknownFrameValue,
        BadOption,
        BadValue,
        TypeMismatch,
        KindMismatch,
        DepthFormatMismatch,
        MultisampleMismatch,
        MissingStencil,
        MissingInput,
        OrderViolation, ///< A consumer before its producer.
        DisabledProducer,
        SharedDrawTarget, ///< A pass draws into an image that someone else reads or keeps.
        NotPlain, ///< A value of an earlier frame that is no plain value.
        UnusableConfiguration, ///< A rule of the class is broken.
        RoleOrder, ///< A rule of order between roles is broken.
        UnusedLights, ///< The chain has lights that no pass takes.
        MissingDriverFeature
    };

    Severity severity = Severity::Error;
    Code code = Code::EmptyChain;
    QString pass; ///< Name of the pass; empty for the chain as a whole.
    QString port; ///< Port or option; empty for the pass as a whole.
    QString expected;
    QString actual;
    QString remedy; ///< What to do about it.

    /// One line: `error: pass "over", Kvz_KvzTexture*_FrameA: expected …, found …; remedy`.
    QString toString() const;
    /// The same without the severity, for a host that says it in its own way.
    QString description() const;
};

/// Checks a chain without an OpenGL context and without constructing a pass. Errors come first, then warnings; each group
/// goes through the passes in their order, then through the exports, the rules of order between passes and the lights.
/// `frameValues` names the values that the host gives for each frame, and `known` holds those of them that it knows already,
/// by name, such as the viewport.
KVZ_HOST_EXPORT QVector<ChainFinding> validateChain(const ChainDescription &chain,
    const PassRegistry &registry = PassRegistry::standard(),
    const QStringList &frameValues = FrameValues::standardNames(), const QVariantMap &known = QVariantMap());

/// Whether any finding is an error.
KVZ_HOST_EXPORT bool hasErrors(const QVector<ChainFinding> &findings);

/// Whether an enabled pass of a chain presents: puts a picture on the screen or into the host's framebuffer. A chain without
/// one serves a host that takes its exports or captures.
KVZ_HOST_EXPORT bool presents(const ChainDescription &chain, const PassRegistry &registry = PassRegistry::standard());

/// The passes and strategies of a chain that the current driver cannot run, and why, and viewports beyond its limit; needs
/// a current context. What concerns a disabled pass is a warning at most.
KVZ_HOST_EXPORT QVector<ChainFinding> validateChainOnDriver(
    const ChainDescription &chain, const PassRegistry &registry = PassRegistry::standard());

} // namespace Velmora::Kvz
