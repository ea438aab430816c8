// SPDX-License-Identifier: MIT
#include <Chain/DecisiveLine.h>

#include <QtCore/QStringList>

#include <algorithm>

namespace Velmora::Kvz {

QString decisiveLine(const QString &log)
{
    const QStringList lines = log.split(QLatin1Char('\n'));
    const auto error = std::find_if(lines.begin(), lines.end(),
        [](const QString &line) { return line.contains(QLatin1String("error"), Qt::CaseInsensitive); });
    const auto any =
        std::find_if(lines.begin(), lines.end(), [](const QString &line) { return !line.trimmed().isEmpty(); });
    const auto decisive = error != lines.end() ? error : any;
    return decisive == lines.end() ? QStringLiteral("without a word") : decisive->trimmed();
}

} // namespace Velmora::Kvz
