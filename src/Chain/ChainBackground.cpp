// SPDX-License-Identifier: MIT
#include <Chain/ChainBackground.h>

#include <Chain/ChainValue.h>
#include <Chain/ResolvedChain.h>
#include <Chain/ResolvedPasses.h>

#include <QtCore/QSet>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString colourPort = QStringLiteral("Kvz_QColor_BackgroundColor");
const QString framePort = QStringLiteral("Kvz_KvzTexture*_Frame");
const QStringList gradientClasses{QStringLiteral("GradientRenderPass"), QStringLiteral("BackgroundGradientRenderPass")};

/// The input of a background pass that brings the picture which it fills in; -1 for one that starts a picture of its own.
int frameInput(const ResolvedPass &pass)
{
    const int input = pass.info->findInput(framePort);
    if (input < 0)
        return -1;
    const auto source = pass.inputs[size_t(input)].source;
    return source == ResolvedInput::Source::Output ? input : -1;
}

/// Takes passes out of a chain and leads what they gave past them.
class Removal
{
public:
    Removal(const ResolvedPasses &passes, const ChainDescription &chain)
        : m_passes(passes),
          m_chain(chain)
    { }

    /// The chain without its background passes, and without what then feeds nothing.
    ChainDescription withoutBackgrounds()
    {
        for (int i = 0; i < m_passes.size(); ++i) {
            if (isBackground(i))
                m_removed.insert(i);
        }
        for (int i = 0; i < m_passes.size(); ++i) {
            if (!m_removed.contains(i))
                leadPast(i);
        }
        removeFeeders();
        ChainDescription result = m_chain;
        result.passes.clear();
        for (int i = 0; i < m_chain.passes.size(); ++i) {
            if (!m_removed.contains(i))
                result.passes.append(m_chain.passes[i]);
        }
        for (const QString &name : m_chain.exports.keys()) {
            if (result.findPass(m_chain.exports[name].pass) < 0)
                result.exports.remove(name);
        }
        return result;
    }

    bool isBackground(int pass) const
    {
        return m_passes[pass].enabled && m_passes[pass].traits.testFlag(PassTrait::Background);
    }

private:
    /// Where an input takes its value once the background passes are gone.
    ResolvedInput behindRemoved(ResolvedInput source) const
    {
        while (source.source == ResolvedInput::Source::Output && m_removed.contains(source.pass)) {
            const int input = frameInput(m_passes[source.pass]);
            source = input < 0 ? ResolvedInput() : m_passes[source.pass].inputs[size_t(input)];
        }
        return source;
    }

    /// Connects what took its value from a removed pass to what lies behind that.
    void leadPast(int number)
    {
        const ResolvedPass &pass = m_passes[number];
        for (int input = 0; pass.info && input < pass.info->inputs.size(); ++input) {
            const ResolvedInput &source = pass.inputs[size_t(input)];
            if (source.source != ResolvedInput::Source::Output || !m_removed.contains(source.pass))
                continue;
            const ResolvedInput behind = behindRemoved(source);
            m_chain.passes[number].connections[pass.info->inputs[input].name] =
                behind.source == ResolvedInput::Source::Output
                ? ChainSource::output(m_chain.passes[behind.pass].name, m_passes.outputOf(behind).name)
                : ChainSource::none();
        }
    }

    /// Removes the passes whose outputs went to removed passes alone.
    void removeFeeders()
    {
        for (int i = m_passes.size() - 1; i >= 0; --i) {
            int users = 0;
            int removedUsers = 0;
            for (int user = 0; user < m_passes.size(); ++user) {
                for (const ResolvedInput &input : m_passes[user].inputs) {
                    if (input.source != ResolvedInput::Source::Output || input.pass != i)
                        continue;
                    ++users;
                    removedUsers += m_removed.contains(user) ? 1 : 0;
                }
            }
            if (users > 0 && users == removedUsers && !isNeededBehind(i))
                m_removed.insert(i);
        }
    }

    /// Whether a removed pass handed on the picture of this one.
    bool isNeededBehind(int number) const
    {
        for (const int removed : m_removed) {
            const int input = frameInput(m_passes[removed]);
            if (input >= 0 && m_passes[removed].inputs[size_t(input)].pass == number)
                return true;
        }
        return false;
    }

    const ResolvedPasses &m_passes;
    ChainDescription m_chain;
    QSet<int> m_removed;
};

/// The last enabled pass that takes a background colour; -1 where there is none.
int lastColourTaker(const ResolvedPasses &passes)
{
    int last = -1;
    for (int i = 0; i < passes.size(); ++i) {
        if (passes[i].enabled && passes[i].info && passes[i].info->findInput(colourPort) >= 0)
            last = i;
    }
    return last;
}

QString described(const ChainPass &pass)
{
    return QStringLiteral("%1 (%2)").arg(pass.name, pass.className);
}

/// The first enabled pass with the trait; -1 where there is none.
int firstWith(const ResolvedPasses &passes, PassTrait trait)
{
    for (int i = 0; i < passes.size(); ++i) {
        if (passes[i].enabled && passes[i].traits.testFlag(trait))
            return i;
    }
    return -1;
}

/// The first enabled pass that brings the model and a background together, or else the background pass; -1 without one.
int firstOnBackground(const ResolvedPasses &passes)
{
    for (int i = 0; i < passes.size(); ++i) {
        const ResolvedPass &pass = passes[i];
        if (!pass.enabled || !pass.info)
            continue;
        const bool takesOne = std::any_of(pass.inputs.begin(), pass.inputs.end(), [&](const ResolvedInput &input) {
            return input.source == ResolvedInput::Source::Output
                && passes[input.pass].traits.testFlag(PassTrait::Background);
        });
        if (takesOne || (pass.traits.testFlag(PassTrait::Background) && frameInput(pass) >= 0))
            return i;
    }
    return firstWith(passes, PassTrait::Background);
}

/// Why a picture cannot be transparent; empty where it can.
QString obstacleToAlpha(const ResolvedPasses &passes, int colourTaker)
{
    const auto &descriptions = passes.chain().passes;
    const int loser = firstWith(passes, PassTrait::LosesAlpha);
    if (colourTaker >= 0 && loser < 0)
        return {};
    const QString lost = loser < 0
        ? QString()
        : QStringLiteral("the pass %1 loses the alpha of its picture").arg(described(descriptions[loser]));
    if (colourTaker >= 0)
        return QStringLiteral("%1; choose an opaque background, or disable it").arg(lost);
    QString reason = lost;
    if (loser < 0) {
        const int composer = firstOnBackground(passes);
        reason = composer < 0 ? QStringLiteral("no pass of the chain %1 composites with alpha").arg(passes.chain().name)
                              : QStringLiteral("the pass %1 lays the model on an opaque background")
                                    .arg(described(descriptions[composer]));
    }
    return QStringLiteral("%1; choose an opaque background, or a chain with a CompositeRenderPass, such as deferred")
        .arg(reason);
}

} // namespace

bool setBackground(ChainDescription *chain, const QColor &colour, QString *error, const PassRegistry &registry)
{
    const ResolvedChain resolved(*chain, registry);
    const ResolvedPasses &passes = resolved.passes();
    const int taker = lastColourTaker(passes);
    const bool isOpaque = colour.isValid() && colour.alpha() == 255;
    if (!isOpaque) {
        *error = obstacleToAlpha(passes, taker);
        if (!error->isEmpty())
            return false;
    }
    if (taker >= 0) {
        const QString name = chain->passes[taker].name;
        ChainDescription result = Removal(passes, *chain).withoutBackgrounds();
        result.passes[result.findPass(name)].values[colourPort] = colour.isValid() ? colour : QColor(0, 0, 0, 0);
        *chain = result;
        return true;
    }
    bool isFound = false;
    for (ChainPass &pass : chain->passes) {
        if (!gradientClasses.contains(pass.className) || !pass.enabled)
            continue;
        pass.values[QStringLiteral("Kvz_QColor_ColorTop")] = colour;
        pass.values[QStringLiteral("Kvz_QColor_ColorBottom")] = colour;
        isFound = true;
    }
    if (!isFound) {
        *error = QStringLiteral("the chain %1 has neither a CompositeRenderPass nor a gradient to give a colour to")
                     .arg(chain->name);
    }
    return isFound;
}

} // namespace Velmora::Kvz
