// SPDX-License-Identifier: MIT
#include <Chain/ChainValidation.h>

#include <Chain/ChainWiring.h>
#include <GL/GLExtensions.h>
#include <GL/InternalFormat.h>
#include <Host/ImageFile.h>

#include <QtCore/QDir>
#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

using Severity = ChainFinding::Severity;
using Code = ChainFinding::Code;
using Source = WiredInput::Source;

QString quoted(const QString &text)
{
    return QStringLiteral("\"%1\"").arg(text);
}

QSet<QString> setOf(const QStringList &names)
{
    QSet<QString> set;
    for (const QString &name : names)
        set.insert(name);
    return set;
}

/// The output that made an image, behind passes that hand it on.
WiredInput originOf(const ChainWiring &wiring, WiredInput wired)
{
    while (wired.source == Source::Output) {
        const WiredPass &pass = wiring[wired.pass];
        const int input = pass.info->findInput(pass.info->outputs[wired.output].passesOn);
        if (input < 0 || pass.inputs[input].source != Source::Output)
            break;
        wired = pass.inputs[input];
    }
    return wired;
}

/// The options of a pass and the values of its inputs, as rules ask for them.
class Use : public PassUse
{
public:
    /// `known` holds values of the frame.
    Use(const ChainDescription &chain, const ChainWiring &wiring, int index, const QVariantMap &known)
        : m_chain(chain),
          m_wiring(wiring),
          m_known(known),
          m_pass(chain.passes[index]),
          m_wired(wiring[index]),
          m_options(resolveOptions(*m_wired.info, m_pass.options))
    { }

    bool isFed(const QString &input) const override
    {
        const int index = m_wired.info->findInput(input);
        if (index < 0)
            return false;
        const Source source = m_wired.inputs[index].source;
        return source == Source::Value ? value(input).isValid() : source != Source::Default;
    }

    QVariant value(const QString &input) const override
    {
        const int index = m_wired.info->findInput(input);
        if (index < 0)
            return QVariant();
        const InputInfo &info = m_wired.info->inputs[index];
        switch (m_wired.inputs[index].source) {
        case Source::Default:
            return info.defaultValue;
        case Source::Value: {
            QVariant converted;
            convertValue(m_pass.values.value(input), info.type, &converted);
            return converted;
        }
        case Source::FrameValue:
            return m_known.value(m_wired.inputs[index].frameValue);
        default:
            return QVariant();
        }
    }

    QVariant option(const QString &name) const override { return m_options.value(name); }

    QStringList sourceClasses(const QString &input) const override
    {
        QStringList classes;
        const WiredPass *pass = &m_wired;
        for (int index = pass->info->findInput(input); index >= 0;) {
            const WiredInput &wired = pass->inputs[index];
            if (wired.source != Source::Output)
                break;
            pass = &m_wiring[wired.pass];
            classes.append(pass->info->className);
            index = pass->info->findInput(pass->info->outputs[wired.output].passesOn);
        }
        return classes;
    }

    int samples(const QString &input) const override
    {
        const int index = m_wired.info->findInput(input);
        if (index < 0 || m_wired.inputs[index].source != Source::Output)
            return 0;
        const WiredInput origin = originOf(m_wiring, m_wired.inputs[index]);
        const OutputInfo &output = m_wiring[origin.pass].info->outputs[origin.output];
        return output.samplesInput.isEmpty()
            ? output.samples
            : Use(m_chain, m_wiring, origin.pass, m_known).value(output.samplesInput).toInt();
    }

    PassTraits traits() const
    {
        PassTraits traits = m_wired.info->traits;
        for (const ConditionalTrait &conditional : m_wired.info->conditionalTraits) {
            if (conditional.holds(*this))
                traits |= conditional.trait;
        }
        return traits;
    }

private:
    const ChainDescription &m_chain;
    const ChainWiring &m_wiring;
    const QVariantMap &m_known;
    const ChainPass &m_pass;
    const WiredPass &m_wired;
    PassOptions m_options;
};

/// Passes with the trait `earlier` belong before those with `later`.
struct OrderRule
{
    PassTrait earlier;
    PassTrait later;
    bool blamesLater; ///< Which of the two is in the wrong place.
    const char *expected;
    const char *remedy;
};

const OrderRule orderRules[] = {
    {PassTrait::Obscures, PassTrait::Transparent, false, "obscurance before transparent surfaces are composited",
        "move it before the transparency passes"},
    {PassTrait::Shades, PassTrait::AntiAliases, true, "anti-aliasing after all shading",
        "move it behind the last pass that shades"},
    {PassTrait::Transparent, PassTrait::AntiAliases, true, "anti-aliasing after transparent surfaces are composited",
        "move it behind the transparency passes"},
    {PassTrait::ResetsCulling, PassTrait::Culls, true, "culling after the passes that reset it",
        "move it behind the shadow pass, which makes all items of the model drawable again"},
};

class Validator
{
public:
    Validator(const ChainDescription &chain, const PassRegistry &registry, const QStringList &frameValues,
        const QVariantMap &known)
        : m_chain(chain),
          m_registry(registry),
          m_known(known),
          m_frameValues(setOf(frameValues)),
          m_wiring(wireChain(chain, registry, m_frameValues)),
          m_wiringOfAll(wireChain(allEnabled(chain), registry, m_frameValues))
    { }

    QVector<ChainFinding> run()
    {
        if (m_chain.passes.isEmpty())
            report(Severity::Error, Code::EmptyChain, {}, {}, "at least one pass", "none", "add a pass");
        for (int i = 0; i < m_chain.passes.size(); ++i) {
            checkName(i);
            if (!m_wiring[i].info) {
                const QString &name = m_chain.passes[i].className;
                report(Severity::Error, Code::UnknownClass, m_chain.passes[i].name, {}, "a known pass class",
                    quoted(name), nearestNamesAdvice(name, m_registry.classNames(), QStringLiteral("see kvz passes")));
                continue;
            }
            checkOptions(i);
            checkValues(i);
            checkConnections(i);
            if (m_wiring[i].enabled) {
                checkInputs(i);
                checkRules(i);
            }
        }
        checkExports();
        checkRoles();
        checkLights();
        std::stable_sort(m_findings.begin(), m_findings.end(),
            [](const ChainFinding &a, const ChainFinding &b) { return a.severity < b.severity; });
        return m_findings;
    }

private:
    static ChainDescription allEnabled(ChainDescription chain)
    {
        for (ChainPass &pass : chain.passes)
            pass.enabled = true;
        return chain;
    }

    void report(Severity severity, Code code, const QString &pass, const QString &port, const QString &expected,
        const QString &actual, const QString &remedy)
    {
        m_findings.append({severity, code, pass, port, expected, actual, remedy});
    }

    // Most texts are literals.
    void report(Severity severity, Code code, const QString &pass, const QString &port, const char *expected,
        const QString &actual, const QString &remedy)
    {
        report(severity, code, pass, port, QString::fromUtf8(expected), actual, remedy);
    }
    void report(Severity severity, Code code, const QString &pass, const QString &port, const char *expected,
        const QString &actual, const char *remedy)
    {
        report(severity, code, pass, port, QString::fromUtf8(expected), actual, QString::fromUtf8(remedy));
    }
    void report(Severity severity, Code code, const QString &pass, const QString &port, const char *expected,
        const char *actual, const char *remedy)
    {
        report(severity, code, pass, port, expected, QString::fromUtf8(actual), remedy);
    }

    /// Whether a port or option has a finding already, which is then the cause of what else is wrong with it.
    bool hasFinding(int index, const QString &port) const
    {
        return std::any_of(m_findings.begin(), m_findings.end(), [&](const ChainFinding &finding) {
            return finding.pass == passName(index)
                && (finding.port == port || finding.port.startsWith(port + QLatin1Char('[')));
        });
    }

    QString passName(int index) const { return m_chain.passes[index].name; }
    const OutputInfo &outputOf(const WiredInput &input) const
    {
        return m_wiring[input.pass].info->outputs[input.output];
    }
    QString sourceText(const WiredInput &input) const
    {
        return quoted(ChainOutput{passName(input.pass), outputOf(input).name}.toString());
    }

    void checkName(int index)
    {
        const QString name = passName(index);
        if (name.isEmpty() || name.contains(QLatin1Char('.')) || name.contains(QLatin1Char(':'))) {
            report(Severity::Error, Code::BadPassName, name, {}, "a name without \".\" and \":\"", quoted(name),
                "rename the pass");
        } else if (m_chain.findPass(name) != index) {
            report(Severity::Error, Code::DuplicatePass, name, {}, "a name of its own",
                QStringLiteral("the name of pass %1").arg(m_chain.findPass(name) + 1),
                "give each pass its own \"name\"");
        }
    }

    void checkOptions(int index)
    {
        QVector<OptionProblem> problems;
        const ChainPass &pass = m_chain.passes[index];
        resolveOptions(*m_registry.find(pass.className), pass.options, &problems, m_chain.folder);
        for (const OptionProblem &problem : qAsConst(problems)) {
            report(Severity::Error, Code::BadOption, passName(index), problem.option, problem.expected, problem.actual,
                problem.remedy);
        }
    }

    /// Where to look a port up.
    static QString portsOf(const PassInfo &info) { return QStringLiteral("see kvz passes %1").arg(info.className); }

    /// The input of a name, after reporting an unknown one.
    const InputInfo *knownInput(int index, const QString &port)
    {
        const PassInfo &info = *m_wiring[index].info;
        const int input = info.findInput(port);
        if (input >= 0)
            return &info.inputs[input];
        report(Severity::Error, Code::UnknownPort, passName(index), port,
            QStringLiteral("an input of %1").arg(info.className),
            info.findOutput(port) >= 0 ? QStringLiteral("an output") : QStringLiteral("no such port"),
            nearestNamesAdvice(port, info.inputNames(), portsOf(info)));
        return nullptr;
    }

    void checkValues(int index)
    {
        const QVariantMap &values = m_chain.passes[index].values;
        for (auto it = values.begin(); it != values.end(); ++it) {
            const InputInfo *input = knownInput(index, it.key());
            QVariant converted;
            if (!input)
                continue;
            if (convertValue(it.value(), input->type, &converted)) {
                if (isEmptyViewport(*input, converted)) {
                    report(Severity::Error, Code::BadValue, passName(index), it.key(),
                        "a width and height of 1 or more", describeValue(it.value()),
                        "leave it out for the viewport of the frame");
                }
                checkImageFile(index, *input, it.value());
                continue;
            }
            const QString form = writtenForm(input->type);
            report(Severity::Error, Code::BadValue, passName(index), it.key(),
                form.isEmpty() ? typeName(input->type) : QStringLiteral("%1: %2").arg(typeName(input->type), form),
                describeValue(it.value()),
                form.isEmpty() ? QStringLiteral("connect an output or a value of the frame") : QString());
        }
    }

    void checkImageFile(int index, const InputInfo &input, const QVariant &value)
    {
        const QString name = value.toString();
        if (input.imageFile == ImageFileUse::None || name.isEmpty())
            return;
        const QString path = resolveImageFile(input, value, m_chain.folder).toString();
        const ImageFileInfo image = inspectImageFile(path);
        const QString pass = passName(index);
        if (!image.problem.isEmpty()) {
            report(Severity::Error, Code::BadValue, pass, input.name, "an image file",
                QStringLiteral("%1, %2").arg(quoted(path), image.problem),
                QDir::isRelativePath(name) ? QStringLiteral("its name counts from the folder of the chain file")
                                           : QString());
            return;
        }
        if (input.imageFile != ImageFileUse::Converted && !image.has32Bits) {
            report(Severity::Error, Code::BadValue, pass, input.name, "an image of 32 bits a pixel",
                QStringLiteral("%1 with %2, which would come out scrambled").arg(quoted(path), image.format),
                "save it with 8 bits each for red, green and blue");
            return;
        }
        if (input.imageFile == ImageFileUse::CubemapFace)
            checkFace(index, input, path, image.size);
        if (image.isCmyk) {
            report(Severity::Warning, Code::BadValue, pass, input.name, "an image in red, green and blue",
                QStringLiteral("%1 in CMYK, whose colours are converted without its profile").arg(quoted(path)),
                "convert it with a colour-managed program");
        }
    }

    /// A face must be a square, and as large as the faces before it.
    void checkFace(int index, const InputInfo &input, const QString &path, const QSize &size)
    {
        const auto text = [](const QSize &pixels) {
            return QStringLiteral("%1 by %2 pixels").arg(pixels.width()).arg(pixels.height());
        };
        const QString found = QStringLiteral("%1 of %2").arg(quoted(path), text(size));
        if (size.width() != size.height()) {
            report(Severity::Error, Code::BadValue, passName(index), input.name, "a square face", found,
                "make its sides equal");
            return;
        }
        const ChainPass &pass = m_chain.passes[index];
        QString first;
        QSize firstSize;
        for (const InputInfo &other : m_wiring[index].info->inputs) {
            if (other.name == input.name)
                break;
            const QVariant value = pass.values.value(other.name);
            if (other.imageFile != ImageFileUse::CubemapFace || value.toString().isEmpty())
                continue;
            const QSize otherSize = inspectImageFile(resolveImageFile(other, value, m_chain.folder).toString()).size;
            if (!otherSize.isValid() || otherSize.width() != otherSize.height())
                continue;
            if (first.isEmpty()) {
                first = other.name;
                firstSize = otherSize;
            } else if (otherSize != firstSize) {
                return; // One line for all six.
            }
        }
        if (!first.isEmpty() && size != firstSize) {
            report(Severity::Error, Code::BadValue, passName(index), input.name,
                QStringLiteral("%1 like %2").arg(text(firstSize), first), found,
                QStringLiteral("give all faces one size"));
        }
    }

    void checkConnections(int index)
    {
        const auto &connections = m_chain.passes[index].connections;
        for (auto it = connections.begin(); it != connections.end(); ++it) {
            if (const InputInfo *input = knownInput(index, it.key()))
                checkConnection(index, *input, it.value());
        }
    }

    void checkConnection(int index, const InputInfo &input, const ChainSource &source)
    {
        const QString pass = passName(index);
        if (source.kind == ChainSource::Kind::None)
            return;
        if (source.kind == ChainSource::Kind::FrameValue) {
            ValueType type;
            if (!m_frameValues.contains(source.port)) {
                report(Severity::Error, Code::UnknownFrameValue, pass, input.name, "a value of the frame",
                    quoted(source.port),
                    nearestNamesAdvice(source.port, sorted(m_frameValues),
                        QStringLiteral("known: %1").arg(sorted(m_frameValues).join(QStringLiteral(", ")))));
            } else if (typeFromPortName(source.port, &type) && !canFeed(type, input.type)) {
                report(Severity::Error, Code::TypeMismatch, pass, input.name, typeName(input.type),
                    QStringLiteral("%1 from the frame's %2").arg(typeName(type), quoted(source.port)),
                    QStringLiteral("take another value of the frame"));
            }
            return;
        }

        const OutputInfo *output = knownOutput(pass, input.name, {source.pass, source.port});
        if (!output)
            return;
        const int producer = m_chain.findPass(source.pass);
        const QString text = quoted(ChainOutput{source.pass, source.port}.toString());
        if (!canFeed(output->type, input.type)) {
            report(Severity::Error, Code::TypeMismatch, pass, input.name, typeName(input.type),
                QStringLiteral("%1 from %2").arg(typeName(output->type), text),
                QStringLiteral("connect an output that holds %1").arg(typeName(input.type)));
        }
        if (source.kind == ChainSource::Kind::Previous) {
            if (!isPlain(output->type)) {
                report(Severity::Error, Code::NotPlain, pass, input.name, "a plain value of the last frame",
                    QStringLiteral("%1, which does not outlive its frame").arg(typeName(output->type)),
                    "connect an output of an earlier pass");
            }
        } else if (producer >= index) {
            report(Severity::Error, Code::OrderViolation, pass, input.name, "a pass that runs before it",
                producer == index ? QStringLiteral("itself") : QStringLiteral("%1, which runs later").arg(text),
                producer == index ? QStringLiteral("connect an earlier pass")
                                  : QStringLiteral("move pass %1 before it").arg(quoted(source.pass)));
        } else if (m_wiring[index].enabled && !m_wiring[producer].enabled) {
            report(Severity::Warning, Code::DisabledProducer, pass, input.name, "an enabled pass",
                QStringLiteral("%1, whose pass is disabled: the input is null").arg(text),
                QStringLiteral("enable pass %1 or connect another").arg(quoted(source.pass)));
        }
    }

    /// The output of a name, after reporting an unknown pass or port. Null, too, for one of an unknown class, which has a
    /// finding of its own.
    const OutputInfo *knownOutput(const QString &pass, const QString &port, const ChainOutput &wanted)
    {
        const int producer = m_chain.findPass(wanted.pass);
        if (producer < 0) {
            report(Severity::Error, Code::UnknownPass, pass, port, "a pass of this chain", quoted(wanted.pass),
                nearestNamesAdvice(wanted.pass, m_chain.passNames()));
            return nullptr;
        }
        const PassInfo *info = m_wiring[producer].info.get();
        if (!info)
            return nullptr;
        const int output = info->findOutput(wanted.port);
        if (output < 0) {
            report(Severity::Error, Code::UnknownPort, pass, port,
                QStringLiteral("an output of %1").arg(info->className), quoted(wanted.port),
                nearestNamesAdvice(wanted.port, info->outputNames(), portsOf(*info)));
            return nullptr;
        }
        return &info->outputs[output];
    }

    void checkInputs(int index)
    {
        const WiredPass &pass = m_wiring[index];
        const Use use = useOf(index);
        for (int i = 0; i < pass.inputs.size(); ++i) {
            const InputInfo &input = pass.info->inputs[i];
            const WiredInput &wired = pass.inputs[i];
            const bool hasDefault = wired.source == Source::Default && input.defaultValue.isValid();
            if (input.required && !hasDefault && !use.isFed(input.name) && !hasFinding(index, input.name))
                reportMissing(index, i);
            if (wired.source == Source::Output && input.type == ValueType::Texture
                && outputOf(wired).type == ValueType::Texture)
                checkImage(index, input, wired);
            if (wired.source == Source::Output && input.wiring == ImplicitWiring::FrameOnly
                && traitsOf(wired.pass).testFlag(PassTrait::JittersCamera))
                reportJitter(index, input, wired);
        }
    }

    Use useOf(int index) const { return Use(m_chain, m_wiring, index, m_known); }
    PassTraits traitsOf(int index) const { return useOf(index).traits(); }

    void reportJitter(int index, const InputInfo &input, const WiredInput &wired)
    {
        report(Severity::Warning, Code::UnusableConfiguration, passName(index), input.name, "the camera without jitter",
            QStringLiteral("%1, which differs from frame to frame").arg(sourceText(wired)),
            "leave the connection out for the value of the frame");
    }

    void reportMissing(int index, int input)
    {
        const QString port = m_wiring[index].info->inputs[input].name;
        const WiredInput &whenAllRun = m_wiringOfAll[index].inputs[input];
        if (whenAllRun.source == Source::Output && !m_wiring[whenAllRun.pass].enabled) {
            report(Severity::Warning, Code::DisabledProducer, passName(index), port, "a value",
                QStringLiteral("none while pass %1 is disabled").arg(quoted(passName(whenAllRun.pass))),
                "the pass is skipped meanwhile");
            return;
        }
        QStringList producers;
        for (const QString &name : m_registry.classNames()) {
            if (m_registry.find(name)->findOutput(port) >= 0)
                producers.append(name);
        }
        report(Severity::Error, Code::MissingInput, passName(index), port, "a value",
            QStringLiteral("nothing feeds it"),
            producers.isEmpty() ? QStringLiteral("connect an output")
                                : QStringLiteral("put one of these before it, or connect an output: %1")
                                      .arg(producers.join(QStringLiteral(", "))));
    }

    void checkImage(int index, const InputInfo &input, const WiredInput &wired)
    {
        const OutputInfo &output = outputOf(wired);
        const QString pass = passName(index);
        const QString source = sourceText(wired);
        const TextureTraits &wanted = input.texture;
        const TextureTraits &given = output.texture;

        if (wanted.kind == TextureKind::Depth && given.kind != TextureKind::Depth) {
            report(Severity::Error, Code::DepthFormatMismatch, pass, input.name, "a depth image",
                QStringLiteral("%1 from %2").arg(toString(given.kind), source),
                "connect the depth output of a geometry pass");
        } else if (input.needsStencil && given.internalFormat && !hasStencil(given.internalFormat)) {
            report(Severity::Error, Code::MissingStencil, pass, input.name, "depth with stencil",
                QStringLiteral("%1 from %2, with which every stencil test passes")
                    .arg(formatName(given.internalFormat), source),
                "connect a depth image with stencil, or \"none\"");
        } else if (wanted.kind != TextureKind::Any && wanted.kind != given.kind
            && !isPicture(wanted.kind, given.kind)) {
            report(Severity::Warning, Code::KindMismatch, pass, input.name, toString(wanted.kind),
                QStringLiteral("%1 from %2").arg(toString(given.kind), source),
                QStringLiteral("connect another output"));
        }

        const WiredInput origin = originOf(m_wiring, wired);
        const QString refusal = refusalOfSamples(index, input);
        const int samples = useOf(index).samples(input.name);
        if (!refusal.isEmpty() && samples > 1) {
            report(Severity::Error, Code::MultisampleMismatch, pass, input.name, refusal,
                QStringLiteral("%1 samples from %2").arg(samples).arg(source),
                outputOf(origin).samplesInput.isEmpty()
                    ? QStringLiteral("connect an image of one sample")
                    : QStringLiteral("set %1 of pass %2 to 1")
                          .arg(outputOf(origin).samplesInput, quoted(passName(origin.pass))));
        }
        if (!input.samplesAs.isEmpty())
            checkSamplesAgree(index, input, wired);
        if (input.drawnInto)
            checkDrawTarget(index, input, wired);
    }

    /// Whether a picture is wanted and an overlay given, which is one too once a chain asks for it.
    static bool isPicture(TextureKind wanted, TextureKind given)
    {
        return wanted == TextureKind::Colour && given == TextureKind::Overlay;
    }

    /// What an input wants in the place of several samples for each texel; empty where it takes them.
    QString refusalOfSamples(int index, const InputInfo &input) const
    {
        QString oneSample = QStringLiteral("one sample for each texel");
        if (input.multisampling == Multisampling::Refused)
            return oneSample;
        const WiredPass &pass = m_wiring[index];
        const Use use = useOf(index);
        for (const QString &other : input.refusesSamplesWith) {
            const bool isFlag = pass.info->inputs[pass.info->findInput(other)].type == ValueType::Bool;
            if (isFlag ? use.value(other).toBool() : use.isFed(other))
                return QStringLiteral("%1 beside %2").arg(oneSample, other);
        }
        return {};
    }

    /// Whether an image has as many samples as the pass is told. A number that is known only in the frame is let pass.
    void checkSamplesAgree(int index, const InputInfo &input, const WiredInput &wired)
    {
        const Use use = useOf(index);
        const QVariant told = use.value(input.samplesAs);
        if (use.isFed(input.samplesAs) && !told.isValid())
            return;
        const int wanted = std::max(1, told.toInt());
        const int given = std::max(1, use.samples(input.name));
        if (wanted != given) {
            report(Severity::Error, Code::MultisampleMismatch, passName(index), input.name,
                QStringLiteral("%1 for each texel, as %2 says")
                    .arg(wanted == 1 ? QStringLiteral("one sample") : QStringLiteral("%1 samples").arg(wanted),
                        input.samplesAs),
                QStringLiteral("%1 from %2").arg(given).arg(sourceText(wired)),
                QStringLiteral("set %1 to %2").arg(input.samplesAs).arg(given));
        }
    }

    /// Whether an image reaches `wired` as `origin` made it, not through the pass `painter`.
    bool readsAround(WiredInput wired, const WiredInput &origin, int painter) const
    {
        while (wired.source == Source::Output) {
            if (wired.pass == painter)
                return false;
            if (wired.pass == origin.pass && wired.output == origin.output)
                return true;
            const WiredPass &pass = m_wiring[wired.pass];
            const int input = pass.info->findInput(outputOf(wired).passesOn);
            if (input < 0)
                return false;
            wired = pass.inputs[input];
        }
        return false;
    }

    void checkDrawTarget(int painter, const InputInfo &input, const WiredInput &wired)
    {
        const WiredInput origin = originOf(m_wiring, wired);
        if (outputOf(origin).keptByProducer) {
            report(Severity::Warning, Code::SharedDrawTarget, passName(painter), input.name,
                "an image that it may draw into",
                QStringLiteral("%1, which its pass keeps for later frames").arg(sourceText(origin)),
                "put a pass between that makes a copy");
        }
        for (int consumer = painter + 1; consumer < m_wiring.size(); ++consumer) {
            const WiredPass &pass = m_wiring[consumer];
            for (int i = 0; pass.enabled && i < pass.inputs.size(); ++i) {
                if (!readsAround(pass.inputs[i], origin, painter))
                    continue;
                report(Severity::Warning, Code::SharedDrawTarget, passName(painter), input.name, "an image of its own",
                    QStringLiteral("%1, which pass %2 reads later").arg(sourceText(origin), quoted(passName(consumer))),
                    QStringLiteral("connect %1 of pass %2 to what this pass gives")
                        .arg(pass.info->inputs[i].name, quoted(passName(consumer))));
            }
        }
        for (auto it = m_chain.exports.begin(); it != m_chain.exports.end(); ++it) {
            if (it->pass == passName(origin.pass) && it->port == outputOf(origin).name) {
                report(Severity::Warning, Code::SharedDrawTarget, passName(painter), input.name, "an image of its own",
                    QStringLiteral("%1, which is exported as %2").arg(sourceText(origin), quoted(it.key())),
                    "export what this pass gives");
            }
        }
    }

    void checkRules(int index)
    {
        const Use use = useOf(index);
        for (const UseRule &rule : m_wiring[index].info->rules) {
            if (!hasFinding(index, rule.port) && rule.broken(use)) {
                report(Severity::Warning, Code::UnusableConfiguration, passName(index), rule.port, rule.expected,
                    rule.actual, rule.remedy);
            }
        }
    }

    void checkExports()
    {
        for (auto it = m_chain.exports.begin(); it != m_chain.exports.end(); ++it)
            knownOutput({}, QStringLiteral("export %1").arg(quoted(it.key())), it.value());
    }

    void checkLights()
    {
        const auto takesLights = [](const WiredPass &pass) {
            for (int i = 0; pass.info && pass.enabled && i < pass.info->inputs.size(); ++i) {
                if (pass.info->inputs[i].type == ValueType::Lights && pass.inputs[i].source == Source::FrameValue)
                    return true;
            }
            return false;
        };
        if (!m_chain.lights.empty() && std::none_of(m_wiring.begin(), m_wiring.end(), takesLights)) {
            report(Severity::Warning, Code::UnusedLights, {}, {}, "a pass that takes the lights", "none",
                "add a ShadowMapRenderPass, or take the lights out");
        }
    }

    void checkRoles()
    {
        QVector<PassTraits> traits;
        for (int i = 0; i < m_wiring.size(); ++i) {
            const bool runs = m_wiring[i].info && m_wiring[i].enabled;
            traits.append(runs ? traitsOf(i) : PassTraits());
            if (runs && appliesObscurance(m_wiring[i]))
                traits.last() |= PassTrait::Obscures;
        }

        for (const OrderRule &rule : orderRules) {
            const int lastEarlier = lastWith(traits, rule.earlier, traits.size());
            const int firstLater = firstWith(traits, rule.later, 0);
            if (firstLater < 0 || lastEarlier <= firstLater)
                continue;
            const int blamed = rule.blamesLater ? firstLater : lastEarlier;
            const int other = rule.blamesLater ? lastEarlier : firstLater;
            report(Severity::Warning, Code::RoleOrder, passName(blamed), {}, rule.expected,
                QStringLiteral("it stands %1 pass %2")
                    .arg(rule.blamesLater ? QStringLiteral("before") : QStringLiteral("behind"),
                        quoted(passName(other))),
                rule.remedy);
        }

        const int jitter = firstWith(traits, PassTrait::JittersCamera, 0);
        if (jitter >= 0 && firstWith(traits, PassTrait::AccumulatesFrames, jitter + 1) < 0) {
            report(Severity::Warning, Code::RoleOrder, passName(jitter), {}, "a later pass that accumulates frames",
                "none: the picture trembles", "add one, or disable the jitter");
        }
    }

    /// Whether a pass takes an obscurance image and gives colours.
    bool appliesObscurance(const WiredPass &pass) const
    {
        const auto holds = [](TextureKind kind) {
            return [kind](const OutputInfo &output) {
                return output.type == ValueType::Texture && output.texture.kind == kind;
            };
        };
        return std::any_of(pass.info->outputs.begin(), pass.info->outputs.end(), holds(TextureKind::Colour))
            && std::any_of(pass.inputs.begin(), pass.inputs.end(), [&](const WiredInput &input) {
                   return input.source == Source::Output && holds(TextureKind::Obscurance)(outputOf(input));
               });
    }

    static int firstWith(const QVector<PassTraits> &traits, PassTrait trait, int from)
    {
        for (int i = from; i < traits.size(); ++i) {
            if (traits[i].testFlag(trait))
                return i;
        }
        return -1;
    }

    static int lastWith(const QVector<PassTraits> &traits, PassTrait trait, int end)
    {
        for (int i = end - 1; i >= 0; --i) {
            if (traits[i].testFlag(trait))
                return i;
        }
        return -1;
    }

    static QStringList sorted(const QSet<QString> &names)
    {
        QStringList list = names.values();
        list.sort();
        return list;
    }

    const ChainDescription &m_chain;
    const PassRegistry &m_registry;
    const QVariantMap &m_known;
    QSet<QString> m_frameValues;
    ChainWiring m_wiring;
    ChainWiring m_wiringOfAll; ///< As it would be with all passes enabled.
    QVector<ChainFinding> m_findings;
};

/// Reports an image file beyond the limit of the driver where it is uploaded at its full size.
void checkImageSizeOnDriver(const InputInfo &input, const ChainPass &pass, const QString &folder, Severity severity,
    QVector<ChainFinding> *findings)
{
    const QVariant value = pass.values.value(input.name);
    if (value.toString().isEmpty()
        || (input.imageFile != ImageFileUse::Bits32 && input.imageFile != ImageFileUse::CubemapFace))
        return;
    GLint limit = 0;
    glGetIntegerv(input.imageFile == ImageFileUse::Bits32 ? GL_MAX_TEXTURE_SIZE : GL_MAX_CUBE_MAP_TEXTURE_SIZE, &limit);
    const QString path = resolveImageFile(input, value, folder).toString();
    const QSize size = inspectImageFile(path).size;
    if (std::max(size.width(), size.height()) <= limit)
        return;
    findings->append({severity, Code::BadValue, pass.name, input.name,
        QStringLiteral("sides up to %1, the limit of this driver").arg(limit),
        QStringLiteral("%1 of %2 by %3 pixels").arg(quoted(path)).arg(size.width()).arg(size.height()),
        QStringLiteral("make it smaller")});
}

} // namespace

QString ChainFinding::toString() const
{
    return (severity == Severity::Error ? QStringLiteral("error: ") : QStringLiteral("warning: ")) + description();
}

QString ChainFinding::description() const
{
    QString text;
    if (!pass.isEmpty())
        text += QStringLiteral("pass %1").arg(quoted(pass));
    if (!port.isEmpty())
        text += (pass.isEmpty() ? QString() : QStringLiteral(", ")) + port;
    if (pass.isEmpty() && port.isEmpty())
        text += QStringLiteral("the chain");
    text += QStringLiteral(": expected %1, found %2").arg(expected, actual);
    if (!remedy.isEmpty())
        text += QStringLiteral("; ") + remedy;
    return text;
}

QVector<ChainFinding> validateChain(const ChainDescription &chain, const PassRegistry &registry,
    const QStringList &frameValues, const QVariantMap &known)
{
    return Validator(chain, registry, frameValues, known).run();
}

bool hasErrors(const QVector<ChainFinding> &findings)
{
    return std::any_of(findings.begin(), findings.end(),
        [](const ChainFinding &finding) { return finding.severity == Severity::Error; });
}

bool presents(const ChainDescription &chain, const PassRegistry &registry)
{
    const ChainWiring wiring = wireChain(chain, registry, setOf(FrameValues::standardNames()));
    for (int i = 0; i < wiring.size(); ++i) {
        if (wiring[i].info && wiring[i].enabled && Use(chain, wiring, i, {}).traits().testFlag(PassTrait::Presents))
            return true;
    }
    return false;
}

QVector<ChainFinding> validateChainOnDriver(const ChainDescription &chain, const PassRegistry &registry)
{
    QVector<ChainFinding> findings;
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    for (const ChainPass &pass : chain.passes) {
        const PassInfo *info = registry.find(pass.className);
        if (!info)
            continue;
        const Severity gravest = pass.enabled ? Severity::Error : Severity::Warning;
        QVariant viewport;
        if (convertValue(pass.values.value(FrameValues::viewport), ValueType::Rect, &viewport)
            && std::max(viewport.toRect().width(), viewport.toRect().height()) > limit) {
            findings.append({gravest, Code::BadValue, pass.name, FrameValues::viewport,
                QStringLiteral("sides up to %1, the limit of this driver").arg(limit), describeValue(viewport),
                QStringLiteral("make it smaller")});
        }
        for (const InputInfo &input : info->inputs)
            checkImageSizeOnDriver(input, pass, chain.folder, gravest, &findings);
        for (const DriverNeed &need : info->driverNeeds) {
            QStringList missing;
            for (const QString &extension : need.extensions) {
                if (!hasGLExtension(extension.toUtf8().constData()))
                    missing.append(extension);
            }
            if (!missing.isEmpty()) {
                findings.append({need.vital ? gravest : Severity::Warning, Code::MissingDriverFeature, pass.name,
                    QString(), need.extensions.join(QStringLiteral(", ")),
                    QStringLiteral("no %1").arg(missing.join(QStringLiteral(", "))), need.without});
            }
        }
    }
    return findings;
}

} // namespace Velmora::Kvz
