// SPDX-License-Identifier: MIT
#include <Chain/LinearLight.h>

#include <Chain/ResolvedChain.h>
#include <Chain/ResolvedPasses.h>
#include <Host/LightFile.h>

#include <QtCore/QSet>
#include <QtGui/QColor>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString framePort = QStringLiteral("Kvz_KvzTexture*_Frame");
const QString linearPort = QStringLiteral("Kvz_KvzTexture*_Linear");
const QString displayPort = QStringLiteral("Kvz_bool_DisplayValues");
const QString floatsPort = QStringLiteral("Kvz_bool_RenderInHDR");
const QString colourPorts[] = {QStringLiteral("Kvz_QColor_BackgroundColor"), QStringLiteral("Kvz_QColor_ColorTop"),
    QStringLiteral("Kvz_QColor_ColorBottom")};

bool isToneMapper(const ResolvedPass &pass)
{
    return pass.enabled && pass.info && pass.info->findOutput(linearPort) >= 0 && pass.info->findOutput(framePort) >= 0;
}

/// The colour of light that a colour of display values stands for, both with straight alpha.
QColor decoded(const QColor &colour)
{
    float rgba[] = {float(colour.redF()), float(colour.greenF()), float(colour.blueF()), 1.0f};
    decodeDisplayColours(rgba, 1);
    return QColor::fromRgbF(double(rgba[0]), double(rgba[1]), double(rgba[2]), colour.alphaF());
}

/// Leads a chain past its tone mappers.
class Detour
{
public:
    Detour(const ResolvedPasses &passes, const ChainDescription &chain)
        : m_passes(passes),
          m_chain(chain)
    { }

    /// False, with one line in `error`, when something behind the tone mapper has no counterpart in light.
    bool take(QString *error)
    {
        findSides();
        for (int i = 0; i < m_passes.size(); ++i) {
            if (m_behind.contains(i) && !isToneMapper(m_passes[i]) && !lead(i, error))
                return false;
        }
        return true;
    }
    const ChainDescription &chain() const { return m_chain; }

private:
    static bool isOutput(const ResolvedInput &input) { return input.source == ResolvedInput::Source::Output; }

    /// Which passes see what a tone mapper gave, and which lead to it.
    void findSides()
    {
        for (int i = 0; i < m_passes.size(); ++i) {
            bool isBehind = isToneMapper(m_passes[i]);
            for (const ResolvedInput &input : m_passes[i].inputs)
                isBehind = isBehind || (isOutput(input) && m_behind.contains(input.pass));
            if (isBehind)
                m_behind.insert(i);
        }
        for (int i = m_passes.size() - 1; i >= 0; --i) {
            if (!isToneMapper(m_passes[i]) && !m_before.contains(i))
                continue;
            for (const ResolvedInput &input : m_passes[i].inputs) {
                if (isOutput(input))
                    m_before.insert(input.pass);
            }
        }
    }

    bool lead(int number, QString *error)
    {
        const ResolvedPass &pass = m_passes[number];
        decodeColours(number);
        if (pass.info->findInput(floatsPort) >= 0)
            setValue(number, floatsPort, true);
        for (int i = 0; i < pass.info->inputs.size(); ++i) {
            const ResolvedInput &input = pass.inputs[size_t(i)];
            if (!isOutput(input))
                continue;
            const PassInfo &source = *m_passes[input.pass].info;
            if (isToneMapper(m_passes[input.pass]) && source.outputs[input.output].name == framePort)
                m_chain.passes[number].connections[pass.info->inputs[i].name] =
                    ChainSource::output(m_chain.passes[input.pass].name, linearPort);
            else if (!m_behind.contains(input.pass) && !joins(input, error))
                return false;
        }
        return true;
    }

    /// Has something that is laid behind or over the frame be light as well.
    bool joins(const ResolvedInput &input, QString *error)
    {
        const ResolvedPass &pass = m_passes[input.pass];
        if (pass.info->findInput(displayPort) >= 0) {
            setValue(input.pass, displayPort, false);
            return true;
        }
        if (m_before.contains(input.pass))
            return true; // What is mapped is light already.
        const OutputInfo &output = pass.info->outputs[input.output];
        const bool isPicture = output.type == ValueType::Texture && output.texture.kind == TextureKind::Colour;
        if (decodeColours(input.pass) || !isPicture)
            return true;
        *error =
            QStringLiteral("the image that the pass %1 (%2) lays behind it holds display values, not light; leave it "
                           "out of files of light")
                .arg(m_chain.passes[input.pass].name, m_chain.passes[input.pass].className);
        return false;
    }

    /// Whether a pass has colours of display values. They become light.
    bool decodeColours(int number)
    {
        bool hasColours = false;
        const ResolvedUse use(m_passes, number);
        for (const QString &port : colourPorts) {
            if (m_passes[number].info->findInput(port) < 0)
                continue;
            hasColours = true;
            const auto colour = use.value(port).value<QColor>();
            if (colour.isValid() && !m_decoded.contains({number, port}))
                setValue(number, port, decoded(colour));
            m_decoded.insert({number, port});
        }
        return hasColours;
    }

    void setValue(int number, const QString &port, const QVariant &value)
    {
        m_chain.passes[number].connections.remove(port);
        m_chain.passes[number].values[port] = value;
    }

    const ResolvedPasses &m_passes;
    ChainDescription m_chain;
    QSet<int> m_behind; ///< The tone mappers and all that takes something of them.
    QSet<int> m_before; ///< What they take.
    QSet<QPair<int, QString>> m_decoded;
};

} // namespace

bool setLinearLight(ChainDescription *chain, QString *error, const PassRegistry &registry)
{
    error->clear();
    const ResolvedChain resolved(*chain, registry);
    const ResolvedPasses &passes = resolved.passes();
    if (std::none_of(passes.begin(), passes.end(), isToneMapper))
        return false;
    Detour detour(passes, *chain);
    if (!detour.take(error))
        return false;
    *chain = detour.chain();
    return true;
}

bool endsInLight(const ResolvedChain &chain)
{
    bool takesLight = false;
    for (const ResolvedPass &pass : chain.passes()) {
        for (const ResolvedInput &input : pass.inputs) {
            if (!pass.enabled || input.source != ResolvedInput::Source::Output
                || !isToneMapper(chain.passes()[input.pass]))
                continue;
            const QString output = chain.passes().outputOf(input).name;
            if (output == framePort)
                return false;
            takesLight = takesLight || output == linearPort;
        }
    }
    return takesLight;
}

} // namespace Velmora::Kvz
