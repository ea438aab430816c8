// SPDX-License-Identifier: MIT
#include <Chain/checks/Check.h>

#include <Chain/NearestNames.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// Where to look a port up.
QString portsOf(const PassInfo &info)
{
    return QStringLiteral("see kvz passes %1").arg(info.className);
}

} // namespace

void Check::report(Severity severity, Code code, const QString &pass, const QString &port, const Words &expected,
    const Words &actual, const Words &remedy)
{
    m_findings->append({severity, code, pass, port, expected, actual, remedy});
}

bool Check::hasFinding(int index, const QString &port) const
{
    return std::any_of(m_findings->begin(), m_findings->end(), [&](const ChainFinding &finding) {
        return finding.pass == passName(index)
            && (finding.port == port || finding.port.startsWith(port + QLatin1Char('[')));
    });
}

QString Check::sourceText(const ResolvedInput &input) const
{
    return quoted(ChainOutput{passName(input.pass), outputOf(input).name}.toString());
}

const InputInfo *Check::knownInput(int index, const QString &port)
{
    const PassInfo &info = *m_passes[index].info;
    const int input = info.findInput(port);
    if (input >= 0)
        return &info.inputs[input];
    report(Severity::Error, Code::UnknownPort, passName(index), port,
        QStringLiteral("an input of %1").arg(info.className), info.findOutput(port) >= 0 ? "an output" : "no such port",
        nearestNamesAdvice(port, info.inputNames(), portsOf(info)));
    return nullptr;
}

const OutputInfo *Check::knownOutput(const QString &pass, const QString &port, const ChainOutput &wanted)
{
    const int producer = chain().findPass(wanted.pass);
    if (producer < 0) {
        report(Severity::Error, Code::UnknownPass, pass, port, "a pass of this chain", quoted(wanted.pass),
            nearestNamesAdvice(wanted.pass, chain().passNames()));
        return nullptr;
    }
    const PassInfo *info = m_passes[producer].info.get();
    if (!info)
        return nullptr;
    const int output = info->findOutput(wanted.port);
    if (output < 0) {
        report(Severity::Error, Code::UnknownPort, pass, port, QStringLiteral("an output of %1").arg(info->className),
            quoted(wanted.port), nearestNamesAdvice(wanted.port, info->outputNames(), portsOf(*info)));
        return nullptr;
    }
    return &info->outputs[output];
}

} // namespace Velmora::Kvz
