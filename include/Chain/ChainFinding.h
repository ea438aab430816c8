// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Something about a chain that a person should know.
struct KVZ_HOST_EXPORT ChainFinding
{
    enum class Severity {
        Error, ///< The chain cannot run, or its picture cannot be right.
        Warning ///< It runs, and the picture is likely not what was wanted.
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

/// Whether any finding is an error.
KVZ_HOST_EXPORT bool hasErrors(const QVector<ChainFinding> &findings);

} // namespace Velmora::Kvz
