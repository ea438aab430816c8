// SPDX-License-Identifier: MIT
#include <Chain/checks/ImageCheck.h>

#include <GL/InternalFormat.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// Whether an overlay is given where a picture is expected, which is fine when a chain asks for it.
bool isPicture(TextureKind wanted, TextureKind given)
{
    return wanted == TextureKind::Colour && given == TextureKind::Overlay;
}

bool holdsIntegers(unsigned int internalFormat)
{
    switch (formatFromInternalFormat(internalFormat)) {
    case GL_RED_INTEGER:
    case GL_RG_INTEGER:
    case GL_RGB_INTEGER:
    case GL_RGBA_INTEGER:
        return true;
    default:
        return false;
    }
}

} // namespace

void ImageCheck::checkImage(int index, const InputInfo &input, const ResolvedInput &source)
{
    checkKind(index, input, source);
    checkSamples(index, input, source);
    if (!input.samplesAs.isEmpty())
        checkSamplesAgree(index, input, source);
    if (input.drawnInto)
        checkDrawTarget(index, input, source);
}

void ImageCheck::checkKind(int index, const InputInfo &input, const ResolvedInput &source)
{
    const OutputInfo &output = outputOf(source);
    const QString pass = passName(index);
    const QString text = sourceText(source);
    const TextureTraits &wanted = input.texture;
    const TextureTraits &given = output.texture;

    if (wanted.kind == TextureKind::Depth && given.kind != TextureKind::Depth) {
        report(Severity::Error, Code::DepthFormatMismatch, pass, input.name, "a depth image",
            QStringLiteral("%1 from %2").arg(toString(given.kind), text),
            "connect the depth output of a geometry pass");
    } else if (input.needsStencil && given.internalFormat && !hasStencil(given.internalFormat)) {
        report(Severity::Error, Code::MissingStencil, pass, input.name, "depth with stencil",
            QStringLiteral("%1 from %2, with which every stencil test passes")
                .arg(formatName(given.internalFormat), text),
            "connect a depth image with stencil, or \"none\"");
    } else if (wanted.kind != TextureKind::Any && wanted.kind != given.kind && !isPicture(wanted.kind, given.kind)) {
        report(Severity::Warning, Code::KindMismatch, pass, input.name, toString(wanted.kind),
            QStringLiteral("%1 from %2").arg(toString(given.kind), text), "connect another output");
    } else if (holdsIntegers(given.internalFormat) && !input.takesIntegers) {
        report(Severity::Warning, Code::KindMismatch, pass, input.name, "an image that can be filtered",
            QStringLiteral("integers (%1) from %2").arg(formatName(given.internalFormat), text),
            "the pass reads zeros: connect another output");
    }
}

void ImageCheck::checkSamples(int index, const InputInfo &input, const ResolvedInput &source)
{
    const ResolvedInput origin = m_passes.originOf(source);
    const QString refusal = refusalOfSamples(index, input);
    const int samples = ResolvedUse(m_passes, index).samples(input.name);
    if (!refusal.isEmpty() && samples > 1) {
        report(Severity::Error, Code::MultisampleMismatch, passName(index), input.name, refusal,
            QStringLiteral("%1 samples from %2").arg(samples).arg(sourceText(source)),
            outputOf(origin).samplesInput.isEmpty()
                ? QStringLiteral("connect a single-sampled image")
                : QStringLiteral("set %1 of pass %2 to 1")
                      .arg(outputOf(origin).samplesInput, quoted(passName(origin.pass))));
    }
}

/// What an input wants instead of several samples per texel; empty if it takes them.
QString ImageCheck::refusalOfSamples(int index, const InputInfo &input) const
{
    QString oneSample = QStringLiteral("one sample per texel");
    if (input.multisampling == Multisampling::Refused)
        return oneSample;
    const ResolvedPass &pass = m_passes[index];
    const ResolvedUse use(m_passes, index);
    for (const QString &other : input.refusesSamplesWith) {
        const bool isFlag = pass.info->inputs[pass.info->findInput(other)].type == ValueType::Bool;
        if (isFlag ? use.value(other).toBool() : use.isFed(other))
            return QStringLiteral("%1 beside %2").arg(oneSample, other);
    }
    return {};
}

/// Checks that an image has as many samples as the pass is told. A number that is only known in the frame is not checked.
void ImageCheck::checkSamplesAgree(int index, const InputInfo &input, const ResolvedInput &source)
{
    const ResolvedUse use(m_passes, index);
    const QVariant told = use.value(input.samplesAs);
    if (use.isFed(input.samplesAs) && !told.isValid())
        return;
    const int wanted = std::max(1, told.toInt());
    const int given = std::max(1, use.samples(input.name));
    if (wanted != given) {
        report(Severity::Error, Code::MultisampleMismatch, passName(index), input.name,
            QStringLiteral("%1 per texel, as %2 says")
                .arg(wanted == 1 ? QStringLiteral("one sample") : QStringLiteral("%1 samples").arg(wanted),
                    input.samplesAs),
            QStringLiteral("%1 from %2").arg(given).arg(sourceText(source)),
            QStringLiteral("set %1 to %2").arg(input.samplesAs).arg(given));
    }
}

/// Whether an image reaches `source` as `origin` made it, without passing through the pass `painter`.
bool ImageCheck::readsAround(ResolvedInput source, const ResolvedInput &origin, int painter) const
{
    while (source.source == Source::Output) {
        if (source.pass == painter)
            return false;
        if (source.pass == origin.pass && source.output == origin.output)
            return true;
        const ResolvedPass &pass = m_passes[source.pass];
        const int input = pass.info->findInput(outputOf(source).passesOn);
        if (input < 0)
            return false;
        source = pass.inputs[size_t(input)];
    }
    return false;
}

void ImageCheck::checkDrawTarget(int painter, const InputInfo &input, const ResolvedInput &source)
{
    const ResolvedInput origin = m_passes.originOf(source);
    if (outputOf(origin).keptByProducer) {
        report(Severity::Warning, Code::SharedDrawTarget, passName(painter), input.name,
            "an image that it may draw into",
            QStringLiteral("%1, which its pass keeps for later frames").arg(sourceText(origin)),
            "put a pass between that makes a copy");
    }
    for (int consumer = painter + 1; consumer < m_passes.size(); ++consumer) {
        const ResolvedPass &pass = m_passes[consumer];
        for (int i = 0; pass.enabled && i < int(pass.inputs.size()); ++i) {
            if (!readsAround(pass.inputs[size_t(i)], origin, painter))
                continue;
            report(Severity::Warning, Code::SharedDrawTarget, passName(painter), input.name, "an image of its own",
                QStringLiteral("%1, which pass %2 reads later").arg(sourceText(origin), quoted(passName(consumer))),
                QStringLiteral("connect %1 of pass %2 to what this pass gives")
                    .arg(pass.info->inputs[i].name, quoted(passName(consumer))));
        }
    }
    for (auto it = chain().exports.begin(); it != chain().exports.end(); ++it) {
        if (it->pass == passName(origin.pass) && it->port == outputOf(origin).name) {
            report(Severity::Warning, Code::SharedDrawTarget, passName(painter), input.name, "an image of its own",
                QStringLiteral("%1, which is exported as %2").arg(sourceText(origin), quoted(it.key())),
                "export what this pass gives");
        }
    }
}

} // namespace Velmora::Kvz
