// SPDX-License-Identifier: MIT
#include <Chain/checks/ConnectionCheck.h>

#include <Chain/NearestNames.h>

namespace Velmora::Kvz {

void ConnectionCheck::checkConnections(int index)
{
    const auto &connections = chain().passes[index].connections;
    for (auto it = connections.begin(); it != connections.end(); ++it) {
        if (const InputInfo *input = knownInput(index, it.key()))
            checkConnection(index, *input, it.value());
    }
}

void ConnectionCheck::checkConnection(int index, const InputInfo &input, const ChainSource &source)
{
    const QString pass = passName(index);
    if (source.kind == ChainSource::Kind::None)
        return;
    if (source.kind == ChainSource::Kind::FrameValue) {
        checkFrameValue(index, input, source.port);
        return;
    }

    const OutputInfo *output = knownOutput(pass, input.name, {source.pass, source.port});
    if (!output)
        return;
    const int producer = chain().findPass(source.pass);
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
    } else if (m_passes[index].enabled && !m_passes[producer].enabled) {
        report(Severity::Warning, Code::DisabledProducer, pass, input.name, "an enabled pass",
            QStringLiteral("%1, whose pass is disabled: the input is null").arg(text),
            QStringLiteral("enable pass %1 or connect another").arg(quoted(source.pass)));
    }
}

void ConnectionCheck::checkFrameValue(int index, const InputInfo &input, const QString &name)
{
    ValueType type;
    if (!m_passes.frameValues().contains(name)) {
        QStringList known = m_passes.frameValues().values();
        known.sort();
        report(Severity::Error, Code::UnknownFrameValue, passName(index), input.name, "a value of the frame",
            quoted(name),
            nearestNamesAdvice(name, known, QStringLiteral("known: %1").arg(known.join(QStringLiteral(", ")))));
    } else if (typeFromPortName(name, &type) && !canFeed(type, input.type)) {
        report(Severity::Error, Code::TypeMismatch, passName(index), input.name, typeName(input.type),
            QStringLiteral("%1 from the frame's %2").arg(typeName(type), quoted(name)),
            "take another value of the frame");
    }
}

void ConnectionCheck::checkExports()
{
    for (auto it = chain().exports.begin(); it != chain().exports.end(); ++it)
        knownOutput({}, QStringLiteral("export %1").arg(quoted(it.key())), it.value());
}

} // namespace Velmora::Kvz
