// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ResolvedChain.h>

#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <functional>
#include <memory>
#include <optional>

namespace Velmora::Kvz {

class FrameValueTable;

/// The present chain of a RenderChain, which is resolved again only when something that can make a difference has changed.
class ChainState
{
public:
    using Change = std::function<void(ChainDescription *)>;

    /// Both must live as long as this.
    ChainState(const PassRegistry &registry, const FrameValueTable &values);
    ~ChainState();

    const ChainDescription &description() const;
    /// The chain resolved with the frame values that are set now; the standard ones are assumed to be set.
    const ResolvedChain &resolved();
    /// Grows with each resolution, which invalidates pointers into the one before.
    quint64 revision() const { return m_revision; }
    /// Resolves again even though nothing has changed, since files may have.
    void resolveAgain();
    /// The findings of the chain with all values of the frame as they are now.
    QVector<ChainFinding> findings();

    /// Replaces the chain, with errors or without.
    void replace(const ChainDescription &chain);
    /// Takes a changed chain unless it has an error that the current one does not have; then returns that error.
    std::optional<ChainFinding> tryChange(const Change &change);
    /// As ResolvedChain::exchangeValue().
    bool exchangeValue(int pass, int input, const QVariant &given, const InputValue &value);

private:
    Q_DISABLE_COPY(ChainState)

    bool isStale();
    std::unique_ptr<ResolvedChain> resolve(const ChainDescription &chain) const;
    void adopt(std::unique_ptr<ResolvedChain> resolved);

    const PassRegistry &m_registry;
    const FrameValueTable &m_values;
    std::unique_ptr<ResolvedChain> m_resolved; ///< Null before the first chain.
    quint64 m_revision = 0;
    QStringList m_grantedNames; ///< What the chain was resolved with.
    quint64 m_namesRevision = 0; ///< Of m_grantedNames.
    quint64 m_valuesRevision = 0; ///< What the chain was resolved with.
};

} // namespace Velmora::Kvz
