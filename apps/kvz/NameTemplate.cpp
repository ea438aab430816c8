// SPDX-License-Identifier: MIT
#include "NameTemplate.h"

#include <Chain/NearestNames.h>

#include <QtCore/QRegularExpression>

#include <algorithm>

namespace Velmora::Kvz {

bool NameTemplate::fromString(const QString &text, NameTemplate *result, QString *error)
{
    static const QRegularExpression brace(QStringLiteral("\\{\\{|\\}\\}|\\{([^{}]*)\\}|[{}]"));
    static const QRegularExpression place(QStringLiteral("^(model|view|frame)(?::0([1-9]))?$"));
    const QStringList known{QStringLiteral("{model}"), QStringLiteral("{view}"), QStringLiteral("{frame}")};
    NameTemplate read;
    int end = 0;
    auto braces = brace.globalMatch(text);
    while (braces.hasNext()) {
        const QRegularExpressionMatch match = braces.next();
        const QString found = match.captured();
        read.m_parts.append({text.mid(end, match.capturedStart() - end)});
        end = match.capturedEnd();
        if (found == QLatin1String("{{") || found == QLatin1String("}}")) {
            read.m_parts.append({found.left(1)});
            continue;
        }
        const QRegularExpressionMatch inner = place.match(match.captured(1));
        const bool hasDigits = !inner.captured(2).isEmpty();
        if (inner.hasMatch() && (!hasDigits || inner.captured(1) == QLatin1String("frame"))) {
            read.m_parts.append({inner.captured(1), true, inner.captured(2).toInt()});
            continue;
        }
        const QStringList near = nearestNames(found, known);
        *error = QStringLiteral("\"%1\": %2; {{ and }} are plain braces")
                     .arg(found,
                         near.isEmpty() ? QStringLiteral("expected {model}, {view}, {frame} or {frame:04}")
                                        : nearestNamesAdvice(found, known));
        return false;
    }
    read.m_parts.append({text.mid(end)});
    *result = read;
    return true;
}

bool NameTemplate::has(const QString &name) const
{
    return std::any_of(
        m_parts.begin(), m_parts.end(), [&](const Part &part) { return part.isPlace && part.text == name; });
}

QString NameTemplate::fileName(const Picture &picture) const
{
    QString name;
    for (const Part &part : m_parts) {
        if (!part.isPlace)
            name += part.text;
        else if (part.text == QLatin1String("model"))
            name += picture.model;
        else if (part.text == QLatin1String("view"))
            name += picture.view;
        else
            name += QString::number(picture.frame).rightJustified(part.digits, QLatin1Char('0'));
    }
    return name;
}

QString NameTemplate::plain(const QString &text)
{
    static const QRegularExpression special(
        QStringLiteral("[^\\w.,=+-]+"), QRegularExpression::UseUnicodePropertiesOption);
    return QString(text).replace(special, QStringLiteral("_"));
}

} // namespace Velmora::Kvz
