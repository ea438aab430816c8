// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/running/ChainState.h>

#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

struct ChainOutput;
struct ChainSource;

/// The changes to a chain, by names. As RenderChain documents them: false, with error(), and nothing changed where one is
/// refused.
class ChainEditor
{
public:
    /// `state` must live as long as this.
    explicit ChainEditor(ChainState *state)
        : m_state(*state)
    { }

    /// Why the last change was refused.
    const QString &error() const { return m_error; }
    /// The place of an input in the resolved chain.
    bool findInput(const QString &pass, const QString &port, int *passIndex, int *inputIndex);

    bool setValue(const QString &pass, const QString &port, const QVariant &value);
    bool clearValue(const QString &pass, const QString &port);
    bool setEnabled(const QString &pass, bool enabled);
    bool connect(const QString &pass, const QString &port, const ChainSource &source);
    bool disconnect(const QString &pass, const QString &port);
    bool setOption(const QString &pass, const QString &option, const QVariant &value);
    bool addExport(const QString &name, const ChainOutput &output);
    bool removeExport(const QString &name);

private:
    bool fail(const QString &text);
    bool findPass(const QString &pass, int *index);
    bool apply(const ChainState::Change &change);

    ChainState &m_state;
    QString m_error;
};

} // namespace Velmora::Kvz
