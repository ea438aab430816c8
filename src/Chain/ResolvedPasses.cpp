// SPDX-License-Identifier: MIT
#include <Chain/ResolvedPasses.h>

#include <Chain/PassOptions.h>
#include <Chain/PassRegistry.h>

#include <algorithm>

namespace Velmora::Kvz {

using Source = ResolvedInput::Source;

namespace {

/// Whether an input takes an output of the same name when the chain does not mention it.
bool takesByName(const InputInfo &input, const OutputInfo &output)
{
    if (input.name != output.name || !canFeed(output.type, input.type))
        return false;
    return input.type != ValueType::Texture || input.texture.kind == TextureKind::Any
        || input.texture.kind == output.texture.kind;
}

/// Finds the sources of inputs, among passes whose classes are known.
class SourceFinder
{
public:
    /// With `allEnabled`, disabled passes count as enabled.
    SourceFinder(const ChainDescription &chain, const std::vector<ResolvedPass> &passes,
        const QSet<QString> &frameValues, bool allEnabled)
        : m_chain(chain),
          m_passes(passes),
          m_frameValues(frameValues),
          m_allEnabled(allEnabled)
    { }

    /// Where an input takes its value, the value that the chain sets left aside.
    ResolvedInput find(int consumer, const InputInfo &input) const
    {
        const ChainPass &pass = m_chain.passes[consumer];
        const auto connection = pass.connections.constFind(input.name);
        if (connection != pass.connections.constEnd())
            return explicitly(consumer, *connection);
        ResolvedInput found;
        if (pass.values.contains(input.name))
            found.source = Source::Value;
        else if (!byName(consumer, input, &found) && input.wiring != ImplicitWiring::Never)
            takeFrameValue(input.name, &found);
        return found;
    }

private:
    bool isEnabled(int pass) const { return m_allEnabled || m_passes[size_t(pass)].enabled; }

    ResolvedInput explicitly(int consumer, const ChainSource &source) const
    {
        ResolvedInput found;
        found.isExplicit = true;
        switch (source.kind) {
        case ChainSource::Kind::None:
            break;
        case ChainSource::Kind::FrameValue:
            takeFrameValue(source.port, &found);
            break;
        case ChainSource::Kind::Output:
        case ChainSource::Kind::Previous: {
            const bool isPrevious = source.kind == ChainSource::Kind::Previous;
            const int producer = m_chain.findPass(source.pass);
            const PassInfo *info = producer < 0 ? nullptr : m_passes[size_t(producer)].info.get();
            const int output = info ? info->findOutput(source.port) : -1;
            // A disabled pass takes nothing from others, so that skipping it releases no texture that it never held.
            if (output >= 0 && isEnabled(consumer) && (isPrevious || producer < consumer)) {
                found.source = isPrevious ? Source::Previous : Source::Output;
                found.pass = producer;
                found.output = output;
            }
            break;
        }
        }
        return found;
    }

    /// The nearest earlier output of the input's name and kind.
    bool byName(int consumer, const InputInfo &input, ResolvedInput *found) const
    {
        if (input.wiring != ImplicitWiring::EarlierPass || !isEnabled(consumer))
            return false;
        for (int producer = consumer - 1; producer >= 0; --producer) {
            const PassInfo *earlier = m_passes[size_t(producer)].info.get();
            const int output = earlier && isEnabled(producer) ? earlier->findOutput(input.name) : -1;
            if (output >= 0 && takesByName(input, earlier->outputs[output])) {
                found->source = Source::Output;
                found->pass = producer;
                found->output = output;
                return true;
            }
        }
        return false;
    }

    void takeFrameValue(const QString &name, ResolvedInput *found) const
    {
        if (!m_frameValues.contains(name))
            return;
        found->source = Source::FrameValue;
        found->frameValue = name;
    }

    const ChainDescription &m_chain;
    const std::vector<ResolvedPass> &m_passes;
    const QSet<QString> &m_frameValues;
    bool m_allEnabled;
};

/// The names of the inputs whose values say how many samples a pass's images have, or whether it accepts several.
QStringList sampleInputsOf(const PassInfo &info)
{
    QStringList names;
    for (const OutputInfo &output : info.outputs)
        names.append(output.samplesInput);
    for (const InputInfo &input : info.inputs) {
        names += input.refusesSamplesWith;
        names.append(input.samplesAs);
    }
    names.removeAll(QString());
    return names;
}

PassTraits traitsOf(const PassInfo &info, const PassUse &use)
{
    PassTraits traits = info.traits;
    for (const ConditionalTrait &conditional : info.conditionalTraits) {
        if (conditional.holds(use))
            traits |= conditional.trait;
    }
    return traits;
}

std::vector<bool> brokenRulesOf(const ResolvedPass &pass, const PassUse &use)
{
    std::vector<bool> broken;
    for (const UseRule &rule : pass.info->rules)
        broken.push_back(pass.enabled && rule.broken(use));
    return broken;
}

} // namespace

QStringList shaderFilesOf(const PassInfo &info, const PassOptions &options)
{
    QStringList files;
    for (const OptionInfo &option : info.options) {
        const QString name = options.value(option.name).toString();
        if (option.type == ValueType::ShaderFile && !name.isEmpty() && !isShaderText(name))
            files.append(name);
    }
    return files;
}

ResolvedPasses::ResolvedPasses(const ChainDescription &chain, const PassRegistry &registry,
    const QStringList &frameValues, const QVariantMap &known)
    : m_chain(chain),
      m_registry(registry),
      m_known(known)
{
    for (const QString &name : frameValues)
        m_frameValues.insert(name);

    for (const ChainPass &pass : qAsConst(m_chain.passes)) {
        ConfiguredPass configured = registry.configure(pass.className, pass.options, m_chain.folder);
        ResolvedPass resolved;
        resolved.info = configured.info;
        resolved.options = configured.options;
        resolved.optionProblems = configured.problems;
        resolved.enabled = pass.enabled;
        m_passes.push_back(std::move(resolved));
    }

    const SourceFinder sources(m_chain, m_passes, m_frameValues, false);
    for (size_t i = 0; i < m_passes.size(); ++i) {
        ResolvedPass &pass = m_passes[i];
        if (!pass.info)
            continue;
        const QVariantMap &values = m_chain.passes[int(i)].values;
        for (const InputInfo &info : pass.info->inputs) {
            ResolvedInput input = sources.find(int(i), info);
            const auto value = values.constFind(info.name);
            if (value != values.constEnd()) {
                input.isSet = true;
                input.set = readInputValue(info, *value, m_chain.folder);
            }
            pass.inputs.push_back(input);
        }
        for (const QString &name : sampleInputsOf(*pass.info))
            m_sampleInputs.insert(name);
    }

    // Rules and conditions look at the whole chain.
    for (size_t i = 0; i < m_passes.size(); ++i) {
        ResolvedPass &pass = m_passes[i];
        if (!pass.info)
            continue;
        const ResolvedUse use(*this, int(i));
        pass.traits = traitsOf(*pass.info, use);
        pass.brokenRules = brokenRulesOf(pass, use);
    }
}

const OutputInfo &ResolvedPasses::outputOf(const ResolvedInput &source) const
{
    return (*this)[source.pass].info->outputs[source.output];
}

ResolvedInput ResolvedPasses::originOf(ResolvedInput source) const
{
    while (source.source == Source::Output) {
        const ResolvedPass &pass = (*this)[source.pass];
        const int input = pass.info->findInput(outputOf(source).passesOn);
        if (input < 0 || pass.inputs[size_t(input)].source != Source::Output)
            break;
        source = pass.inputs[size_t(input)];
    }
    return source;
}

bool ResolvedPasses::mayBeDrawnInto(int pass) const
{
    std::vector<bool> carries(m_passes.size(), false); // An image of the pass, as it was or within another one.
    carries[size_t(pass)] = true;
    for (size_t user = size_t(pass) + 1; user < m_passes.size(); ++user) {
        const ResolvedPass &resolved = m_passes[user];
        for (size_t i = 0; resolved.enabled && i < resolved.inputs.size(); ++i) {
            const ResolvedInput &source = resolved.inputs[i];
            const InputInfo &input = resolved.info->inputs[int(i)];
            const bool isConnected = source.source == Source::Output || source.source == Source::Previous;
            if (!isConnected || !carries[size_t(source.pass)] || input.type != ValueType::Texture)
                continue;
            if (input.drawnInto)
                return true;
            carries[user] = true;
        }
    }
    return false;
}

bool ResolvedPasses::takeLights() const
{
    return std::any_of(m_passes.begin(), m_passes.end(), [](const ResolvedPass &pass) {
        for (size_t i = 0; pass.enabled && i < pass.inputs.size(); ++i) {
            if (pass.info->inputs[int(i)].type == ValueType::Lights && pass.inputs[i].source == Source::FrameValue)
                return true;
        }
        return false;
    });
}

ResolvedInput ResolvedPasses::whenAllRun(int pass, int input) const
{
    return SourceFinder(m_chain, m_passes, m_frameValues, true).find(pass, (*this)[pass].info->inputs[input]);
}

bool ResolvedPasses::exchangeValue(int pass, int input, const QVariant &given, const InputValue &value)
{
    ResolvedPass &resolved = m_passes[size_t(pass)];
    ResolvedInput &changed = resolved.inputs[size_t(input)];
    const InputInfo &info = resolved.info->inputs[input];
    const bool mayMatter = !changed.isSet || changed.set.problem != InputValue::Problem::None
        || value.problem != InputValue::Problem::None || changed.set.value.isValid() != value.value.isValid()
        || info.imageFile != ImageFileUse::None || sampleInputsOf(*resolved.info).contains(info.name);
    if (mayMatter)
        return false;

    const InputValue before = changed.set;
    changed.set = value;
    const ResolvedUse use(*this, pass);
    if (traitsOf(*resolved.info, use) != resolved.traits || brokenRulesOf(resolved, use) != resolved.brokenRules) {
        changed.set = before;
        return false;
    }
    m_chain.passes[pass].values.insert(info.name, given);
    return true;
}

bool ResolvedUse::isFed(const QString &input) const
{
    const int index = m_pass.info->findInput(input);
    if (index < 0)
        return false;
    const ResolvedInput &resolved = m_pass.inputs[size_t(index)];
    return resolved.source == Source::Value ? resolved.set.value.isValid() : resolved.source != Source::Default;
}

QVariant ResolvedUse::value(const QString &input) const
{
    const int index = m_pass.info->findInput(input);
    if (index < 0)
        return QVariant();
    const ResolvedInput &resolved = m_pass.inputs[size_t(index)];
    switch (resolved.source) {
    case Source::Default:
        return m_pass.info->inputs[index].defaultValue;
    case Source::Value:
        return resolved.set.value;
    case Source::FrameValue:
        return m_passes.known().value(resolved.frameValue);
    default:
        return QVariant();
    }
}

QStringList ResolvedUse::sourceClasses(const QString &input) const
{
    QStringList classes;
    const ResolvedPass *pass = &m_pass;
    for (int index = pass->info->findInput(input); index >= 0;) {
        const ResolvedInput &source = pass->inputs[size_t(index)];
        if (source.source != Source::Output)
            break;
        pass = &m_passes[source.pass];
        classes.append(pass->info->className);
        index = pass->info->findInput(m_passes.outputOf(source).passesOn);
    }
    return classes;
}

int ResolvedUse::samples(const QString &input) const
{
    const int index = m_pass.info->findInput(input);
    if (index < 0 || m_pass.inputs[size_t(index)].source != Source::Output)
        return 0;
    const ResolvedInput origin = m_passes.originOf(m_pass.inputs[size_t(index)]);
    const OutputInfo &output = m_passes.outputOf(origin);
    return output.samplesInput.isEmpty() ? output.samples
                                         : ResolvedUse(m_passes, origin.pass).value(output.samplesInput).toInt();
}

} // namespace Velmora::Kvz
