// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/InputValue.h>
#include <Chain/PassInfo.h>

#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class PassRegistry;

/// Where an input takes its value, with all names looked up.
struct ResolvedInput
{
    enum class Source { Default, Value, Output, Previous, FrameValue };

    Source source = Source::Default;
    bool isExplicit = false; ///< The chain names the connection.
    int pass = -1; ///< Of Output and Previous.
    int output = -1; ///< Of Output and Previous.
    QString frameValue; ///< Of FrameValue: the name.
    bool isSet = false; ///< The chain sets a value, in force unless a connection is explicit.
    InputValue set; ///< That value.
};

/// The shader files that resolved options name, as absolute paths.
QStringList shaderFilesOf(const PassInfo &info, const PassOptions &options);

/// A pass with its class, options and inputs looked up.
struct ResolvedPass
{
    std::shared_ptr<const PassInfo> info; ///< With the ports of its options; null for an unknown class.
    PassOptions options;
    QVector<OptionProblem> optionProblems;
    bool enabled = true;
    std::vector<ResolvedInput> inputs; ///< Parallel to those of the class.
    PassTraits traits; ///< Those of the class, and the conditional ones that hold.
    std::vector<bool> brokenRules; ///< Parallel to the rules of the class. A disabled pass breaks none.
};

/// The passes of a chain, in their order, with everything looked up that does not need the frame. What does not exist
/// resolves to the default; the checks say why.
class ResolvedPasses
{
public:
    /// `frameValues` names the values that the frame may have, and `known` holds those that are known by now. `registry` must
    /// live as long as this.
    ResolvedPasses(const ChainDescription &chain, const PassRegistry &registry, const QStringList &frameValues,
        const QVariantMap &known);

    const ChainDescription &chain() const { return m_chain; }
    const PassRegistry &registry() const { return m_registry; }
    const QSet<QString> &frameValues() const { return m_frameValues; }
    const QVariantMap &known() const { return m_known; }
    /// The frame values of these names decide on samples, and with them on errors.
    const QSet<QString> &sampleInputs() const { return m_sampleInputs; }

    int size() const { return int(m_passes.size()); }
    const ResolvedPass &operator[](int pass) const { return m_passes[size_t(pass)]; }
    std::vector<ResolvedPass>::const_iterator begin() const { return m_passes.begin(); }
    std::vector<ResolvedPass>::const_iterator end() const { return m_passes.end(); }

    /// The output that a source refers to, if it is an output.
    const OutputInfo &outputOf(const ResolvedInput &source) const;
    /// The output that an image comes from, looking through passes that hand it on.
    ResolvedInput originOf(ResolvedInput source) const;
    /// Whether a pass draws into an image of this one, or into one that may be such an image, handed on.
    bool mayBeDrawnInto(int pass) const;
    /// Whether an enabled pass takes the frame's lights.
    bool takeLights() const;
    /// What an input would take if all passes were enabled.
    ResolvedInput whenAllRun(int pass, int input) const;

    /// Exchanges a value that the chain sets already, provided that this changes nothing else: no source, no rule, no trait,
    /// no number of samples. False, with nothing changed, if something may.
    bool exchangeValue(int pass, int input, const QVariant &given, const InputValue &value);

private:
    ChainDescription m_chain;
    const PassRegistry &m_registry;
    QSet<QString> m_frameValues;
    QVariantMap m_known;
    QSet<QString> m_sampleInputs;
    std::vector<ResolvedPass> m_passes;
};

/// What rules may ask about a pass.
class ResolvedUse : public PassUse
{
public:
    /// `passes` must live as long as this.
    ResolvedUse(const ResolvedPasses &passes, int index)
        : m_passes(passes),
          m_pass(passes[index])
    { }

    bool isFed(const QString &input) const override;
    QVariant value(const QString &input) const override;
    QVariant option(const QString &name) const override { return m_pass.options.value(name); }
    QStringList sourceClasses(const QString &input) const override;
    int samples(const QString &input) const override;

private:
    const ResolvedPasses &m_passes;
    const ResolvedPass &m_pass;
};

} // namespace Velmora::Kvz
