// SPDX-License-Identifier: MIT
#include <Chain/running/ChainState.h>

#include <Chain/ResolvedPasses.h>
#include <Chain/running/FrameValueTable.h>

#include <algorithm>

namespace Velmora::Kvz {

ChainState::ChainState(const PassRegistry &registry, const FrameValueTable &values)
    : m_registry(registry),
      m_values(values)
{ }

ChainState::~ChainState() = default;

const ChainDescription &ChainState::description() const
{
    static const ChainDescription none;
    return m_resolved ? m_resolved->description() : none;
}

/// Whether the frame values have changed in a way that can cause errors or change sources. All others matter to rules only,
/// which just warn, and which findings() evaluates again.
bool ChainState::isStale()
{
    if (!m_resolved)
        return true;
    if (m_namesRevision != m_values.namesRevision()) {
        m_namesRevision = m_values.namesRevision();
        if (m_grantedNames != m_values.grantedNames())
            return true;
    }
    const ResolvedPasses &passes = m_resolved->passes();
    return std::any_of(passes.sampleInputs().begin(), passes.sampleInputs().end(),
        [&](const QString &name) { return m_values.value(name) != passes.known().value(name); });
}

const ResolvedChain &ChainState::resolved()
{
    if (isStale())
        resolveAgain();
    return *m_resolved;
}

void ChainState::resolveAgain()
{
    adopt(resolve(description()));
}

QVector<ChainFinding> ChainState::findings()
{
    const QVector<ChainFinding> &findings = resolved().findings();
    return m_valuesRevision == m_values.valuesRevision() ? findings : resolve(description())->findings();
}

std::unique_ptr<ResolvedChain> ChainState::resolve(const ChainDescription &chain) const
{
    QVariantMap known;
    for (const auto &value : m_values.all())
        known.insert(value.first, value.second);
    return std::make_unique<ResolvedChain>(chain, m_registry, m_values.grantedNames(), known);
}

void ChainState::adopt(std::unique_ptr<ResolvedChain> resolved)
{
    m_resolved = std::move(resolved);
    ++m_revision;
    m_grantedNames = m_values.grantedNames();
    m_namesRevision = m_values.namesRevision();
    m_valuesRevision = m_values.valuesRevision();
}

void ChainState::replace(const ChainDescription &chain)
{
    adopt(resolve(chain));
}

std::optional<ChainFinding> ChainState::tryChange(const Change &change)
{
    const QStringList known = resolved().errors();
    ChainDescription changed = description();
    change(&changed);
    std::unique_ptr<ResolvedChain> candidate = resolve(changed);
    for (const ChainFinding &finding : candidate->findings()) {
        if (finding.severity == ChainFinding::Severity::Error && !known.contains(finding.toString()))
            return finding;
    }
    adopt(std::move(candidate));
    return std::nullopt;
}

bool ChainState::exchangeValue(int pass, int input, const QVariant &given, const InputValue &value)
{
    return !isStale() && m_resolved->exchangeValue(pass, input, given, value);
}

} // namespace Velmora::Kvz
