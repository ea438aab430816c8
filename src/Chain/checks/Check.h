// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainFinding.h>
#include <Chain/ResolvedPasses.h>
#include <Host/Quoted.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// Base of the checks of a chain: access to its passes, and reporting of findings.
class Check
{
public:
    /// Both must live as long as this. Findings are appended.
    Check(const ResolvedPasses &passes, QVector<ChainFinding> *findings)
        : m_passes(passes),
          m_findings(findings)
    { }

protected:
    using Severity = ChainFinding::Severity;
    using Code = ChainFinding::Code;
    using Source = ResolvedInput::Source;

    /// Part of a message. Most are literals.
    struct Words : QString
    {
        Words(const QString &text) // NOLINT: converts on purpose.
            : QString(text)
        { }
        Words(const char *text) // NOLINT: converts on purpose.
            : QString(QString::fromUtf8(text))
        { }
    };

    void report(Severity severity, Code code, const QString &pass, const QString &port, const Words &expected,
        const Words &actual, const Words &remedy);
    /// Whether a port or option has a finding already, which is then the cause of what else is wrong with it.
    bool hasFinding(int index, const QString &port) const;

    QVector<ChainFinding> *findings() { return m_findings; }
    const ChainDescription &chain() const { return m_passes.chain(); }
    QString passName(int index) const { return chain().passes[index].name; }
    const OutputInfo &outputOf(const ResolvedInput &input) const { return m_passes.outputOf(input); }
    /// "pass.port" of a source, in quotes.
    QString sourceText(const ResolvedInput &input) const;

    /// The input of a name, after reporting an unknown one.
    const InputInfo *knownInput(int index, const QString &port);
    /// The output of a name, after reporting an unknown pass or port at `pass` and `port`. Null, too, for one of an unknown
    /// class, which has a finding of its own.
    const OutputInfo *knownOutput(const QString &pass, const QString &port, const ChainOutput &wanted);

    const ResolvedPasses &m_passes;

private:
    QVector<ChainFinding> *m_findings;
};

} // namespace Velmora::Kvz
