// SPDX-License-Identifier: MIT
#include <Chain/ChainFinding.h>

#include <algorithm>

namespace Velmora::Kvz {

QString ChainFinding::toString() const
{
    return (severity == Severity::Error ? QStringLiteral("error: ") : QStringLiteral("warning: ")) + description();
}

QString ChainFinding::description() const
{
    QString text;
    if (!pass.isEmpty())
        text += QStringLiteral("pass \"%1\"").arg(pass);
    if (!port.isEmpty())
        text += (pass.isEmpty() ? QString() : QStringLiteral(", ")) + port;
    if (pass.isEmpty() && port.isEmpty())
        text += QStringLiteral("the chain");
    text += QStringLiteral(": expected %1, found %2").arg(expected, actual);
    if (!remedy.isEmpty())
        text += QStringLiteral("; ") + remedy;
    return text;
}

bool hasErrors(const QVector<ChainFinding> &findings)
{
    return std::any_of(findings.begin(), findings.end(),
        [](const ChainFinding &finding) { return finding.severity == ChainFinding::Severity::Error; });
}

} // namespace Velmora::Kvz
