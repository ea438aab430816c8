// SPDX-License-Identifier: MIT
#include <Chain/checks/InputCheck.h>

#include <Chain/PassRegistry.h>
#include <Chain/checks/ImageCheck.h>

namespace Velmora::Kvz {

void InputCheck::checkInputs(int index)
{
    const ResolvedPass &pass = m_passes[index];
    const ResolvedUse use(m_passes, index);
    ImageCheck images(m_passes, findings());
    for (int i = 0; i < int(pass.inputs.size()); ++i) {
        const InputInfo &input = pass.info->inputs[i];
        const ResolvedInput &source = pass.inputs[size_t(i)];
        const bool isOutput = source.source == Source::Output;
        const bool hasDefault = source.source == Source::Default && input.defaultValue.isValid();
        if (input.required && !hasDefault && !use.isFed(input.name) && !hasFinding(index, input.name))
            reportMissing(index, i);
        if (isOutput && input.type == ValueType::Texture && outputOf(source).type == ValueType::Texture)
            images.checkImage(index, input, source);
        if (isOutput && input.wiring == ImplicitWiring::FrameOnly
            && m_passes[source.pass].traits.testFlag(PassTrait::JittersCamera))
            reportJitter(index, input, source);
    }
}

void InputCheck::checkRules(int index)
{
    const ResolvedPass &pass = m_passes[index];
    for (int i = 0; i < pass.info->rules.size(); ++i) {
        const UseRule &rule = pass.info->rules[i];
        if (pass.brokenRules[size_t(i)] && !hasFinding(index, rule.port)) {
            report(Severity::Warning, Code::UnusableConfiguration, passName(index), rule.port, rule.expected,
                rule.actual, rule.remedy);
        }
    }
}

void InputCheck::reportJitter(int index, const InputInfo &input, const ResolvedInput &source)
{
    report(Severity::Warning, Code::UnusableConfiguration, passName(index), input.name, "the camera without jitter",
        QStringLiteral("%1, which differs from frame to frame").arg(sourceText(source)),
        "leave the connection out for the value of the frame");
}

void InputCheck::reportMissing(int index, int input)
{
    const QString port = m_passes[index].info->inputs[input].name;
    const ResolvedInput whenAllRun = m_passes.whenAllRun(index, input);
    if (whenAllRun.source == Source::Output && !m_passes[whenAllRun.pass].enabled) {
        report(Severity::Warning, Code::DisabledProducer, passName(index), port, "a value",
            QStringLiteral("none while pass %1 is disabled").arg(quoted(passName(whenAllRun.pass))),
            "the pass is skipped meanwhile");
        return;
    }
    QStringList producers;
    const PassRegistry &registry = m_passes.registry();
    for (const QString &name : registry.classNames()) {
        if (registry.find(name)->findOutput(port) >= 0)
            producers.append(name);
    }
    report(Severity::Error, Code::MissingInput, passName(index), port, "a value", QStringLiteral("nothing feeds it"),
        producers.isEmpty() ? QStringLiteral("connect an output")
                            : QStringLiteral("put one of these before it, or connect an output: %1")
                                  .arg(producers.join(QStringLiteral(", "))));
}

} // namespace Velmora::Kvz
