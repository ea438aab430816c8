// SPDX-License-Identifier: MIT
#include <Chain/ResolvedChain.h>

#include <Chain/ResolvedPasses.h>
#include <Chain/checks/ChainChecks.h>

#include <QtCore/QLoggingCategory>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

Q_LOGGING_CATEGORY(chainLog, "kvz.chain", QtInfoMsg)

} // namespace

ResolvedChain::ResolvedChain(const ChainDescription &chain, const PassRegistry &registry,
    const QStringList &frameValues, const QVariantMap &known)
    : m_passes(std::make_unique<ResolvedPasses>(chain, registry, frameValues, known)),
      m_findings(checkChain(*m_passes))
{
    qCDebug(chainLog, "resolved \"%s\": %d passes, %d findings", qPrintable(chain.name), m_passes->size(),
        m_findings.size());
}

ResolvedChain::~ResolvedChain() = default;

const ChainDescription &ResolvedChain::description() const
{
    return m_passes->chain();
}

QStringList ResolvedChain::errors() const
{
    QStringList texts;
    for (const ChainFinding &finding : m_findings) {
        if (finding.severity == ChainFinding::Severity::Error)
            texts.append(finding.toString());
    }
    return texts;
}

bool ResolvedChain::presents() const
{
    return has(PassTrait::Presents);
}

bool ResolvedChain::has(PassTrait trait) const
{
    return std::any_of(m_passes->begin(), m_passes->end(),
        [trait](const ResolvedPass &pass) { return pass.enabled && pass.traits.testFlag(trait); });
}

bool ResolvedChain::takes(const QString &frameValue) const
{
    return std::any_of(m_passes->begin(), m_passes->end(), [&](const ResolvedPass &pass) {
        return pass.enabled && std::any_of(pass.inputs.begin(), pass.inputs.end(), [&](const ResolvedInput &input) {
            return input.source == ResolvedInput::Source::FrameValue && input.frameValue == frameValue;
        });
    });
}

bool ResolvedChain::takesLights() const
{
    return m_passes->takeLights();
}

bool ResolvedChain::keepsPast() const
{
    const PassTraits past = PassTrait::JittersCamera | PassTrait::AccumulatesFrames | PassTrait::Culls
        | PassTrait::ComparesFrames | PassTrait::CountsFrames;
    return std::any_of(m_passes->begin(), m_passes->end(), [past](const ResolvedPass &pass) {
        const auto isPast = [](const ResolvedInput &input) { return input.source == ResolvedInput::Source::Previous; };
        return pass.enabled && (pass.traits & past || std::any_of(pass.inputs.begin(), pass.inputs.end(), isPast));
    });
}

QStringList ResolvedChain::shaderFiles() const
{
    QStringList files;
    for (const ResolvedPass &pass : *m_passes) {
        if (pass.info)
            files += shaderFilesOf(*pass.info, pass.options);
    }
    return files;
}

bool ResolvedChain::exchangeValue(int pass, int input, const QVariant &given, const InputValue &value)
{
    return m_passes->exchangeValue(pass, input, given, value);
}

} // namespace Velmora::Kvz
