// SPDX-License-Identifier: MIT
#include <Chain/ChainWiring.h>

#include <Chain/FrameValues.h>

#include <QtCore/QDir>
#include <QtCore/QRect>

namespace Velmora::Kvz {

namespace {

/// Whether an input takes an output of its name when nothing is said about it.
bool takesByName(const InputInfo &input, const OutputInfo &output)
{
    if (input.name != output.name || !canFeed(output.type, input.type))
        return false;
    return input.type != ValueType::Texture || input.texture.kind == TextureKind::Any
        || input.texture.kind == output.texture.kind;
}

class Wiring
{
public:
    Wiring(const ChainDescription &chain, const PassRegistry &registry, const QSet<QString> &frameValues)
        : m_chain(chain),
          m_frameValues(frameValues)
    {
        for (const ChainPass &pass : chain.passes)
            m_passes.append({registry.describe(pass.className, pass.options), pass.enabled, {}});
    }

    ChainWiring wired()
    {
        for (int i = 0; i < m_passes.size(); ++i) {
            if (!m_passes[i].info)
                continue;
            for (const InputInfo &input : m_passes[i].info->inputs)
                m_passes[i].inputs.append(wire(i, input));
        }
        return m_passes;
    }

private:
    WiredInput wire(int consumer, const InputInfo &input) const
    {
        const ChainPass &pass = m_chain.passes[consumer];
        const auto connection = pass.connections.constFind(input.name);
        if (connection != pass.connections.constEnd())
            return explicitly(consumer, *connection);
        WiredInput wired;
        if (pass.values.contains(input.name))
            wired.source = WiredInput::Source::Value;
        else if (!byName(consumer, input, &wired) && input.wiring != ImplicitWiring::Never)
            setFrameValue(input.name, &wired);
        return wired;
    }

    WiredInput explicitly(int consumer, const ChainSource &source) const
    {
        WiredInput wired;
        wired.isExplicit = true;
        switch (source.kind) {
        case ChainSource::Kind::None:
            break;
        case ChainSource::Kind::FrameValue:
            setFrameValue(source.port, &wired);
            break;
        case ChainSource::Kind::Output:
        case ChainSource::Kind::Previous: {
            const bool isPrevious = source.kind == ChainSource::Kind::Previous;
            const int producer = m_chain.findPass(source.pass);
            const PassInfo *info = producer < 0 ? nullptr : m_passes[producer].info.get();
            const int output = info ? info->findOutput(source.port) : -1;
            // A disabled pass takes nothing from others: skipping it gives no texture back that it never had.
            if (output >= 0 && m_passes[consumer].enabled && (isPrevious || producer < consumer)) {
                wired.source = isPrevious ? WiredInput::Source::Previous : WiredInput::Source::Output;
                wired.pass = producer;
                wired.output = output;
            }
            break;
        }
        }
        return wired;
    }

    /// The nearest earlier output of the input's name and kind.
    bool byName(int consumer, const InputInfo &input, WiredInput *wired) const
    {
        if (input.wiring != ImplicitWiring::EarlierPass || !m_passes[consumer].enabled)
            return false;
        for (int producer = consumer - 1; producer >= 0; --producer) {
            const WiredPass &earlier = m_passes[producer];
            const int output = earlier.enabled && earlier.info ? earlier.info->findOutput(input.name) : -1;
            if (output >= 0 && takesByName(input, earlier.info->outputs[output])) {
                wired->source = WiredInput::Source::Output;
                wired->pass = producer;
                wired->output = output;
                return true;
            }
        }
        return false;
    }

    void setFrameValue(const QString &name, WiredInput *wired) const
    {
        if (!m_frameValues.contains(name))
            return;
        wired->source = WiredInput::Source::FrameValue;
        wired->frameValue = name;
    }

    const ChainDescription &m_chain;
    const QSet<QString> &m_frameValues;
    ChainWiring m_passes;
};

} // namespace

bool isEmptyViewport(const InputInfo &input, const QVariant &value)
{
    return input.name == FrameValues::viewport && value.isValid() && value.toRect().size().isEmpty();
}

QVariant resolveImageFile(const InputInfo &input, const QVariant &value, const QString &folder)
{
    const QString name = value.toString();
    if (input.imageFile == ImageFileUse::None || name.isEmpty() || !QDir::isRelativePath(name))
        return value;
    return QDir::cleanPath(QDir(folder).absoluteFilePath(name));
}

ChainWiring wireChain(const ChainDescription &chain, const PassRegistry &registry, const QSet<QString> &frameValues)
{
    return Wiring(chain, registry, frameValues).wired();
}

} // namespace Velmora::Kvz
