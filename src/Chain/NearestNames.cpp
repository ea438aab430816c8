// SPDX-License-Identifier: MIT
#include <Chain/NearestNames.h>

#include <Host/Quoted.h>

#include <QtCore/QPair>
#include <QtCore/QVector>

#include <algorithm>
#include <numeric>

namespace Velmora::Kvz {

namespace {

/// The memorable part of a name: letters and digits, without the words that all names share.
QString essence(const QString &name)
{
    QString text = name.toLower();
    for (const char *common : {"kvz_", "renderpass", "pass"})
        text.remove(QLatin1String(common));
    text.remove(QLatin1Char('_'));
    text.remove(QLatin1Char('*'));
    return text.isEmpty() ? name.toLower() : text;
}

int editDistance(const QString &a, const QString &b)
{
    QVector<int> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            const int substituted = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({substituted, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

} // namespace

QStringList nearestNames(const QString &name, const QStringList &known)
{
    const QString wanted = essence(name);
    const int furthest = std::max(2, wanted.size() / 3);
    QVector<QPair<int, QString>> near;
    for (const QString &candidate : known) {
        const QString text = essence(candidate);
        const bool contained = wanted.size() >= 3 && text.contains(wanted);
        const int distance = std::min(editDistance(wanted, text), editDistance(name.toLower(), candidate.toLower()));
        if (contained || distance <= furthest)
            near.append({contained ? std::min(distance, furthest) : distance, candidate});
    }
    std::sort(near.begin(), near.end());
    QStringList names;
    for (int i = 0; i < near.size() && i < 3; ++i)
        names.append(near[i].second);
    return names;
}

QString nearestNamesAdvice(const QString &name, const QStringList &known, const QString &otherwise)
{
    QStringList names = nearestNames(name, known);
    const bool isGuess = !names.isEmpty();
    if (!isGuess && known.size() <= 8)
        names = known;
    if (names.isEmpty())
        return otherwise;
    for (QString &candidate : names)
        candidate = quoted(candidate);
    return isGuess ? QStringLiteral("did you mean %1?").arg(names.join(QStringLiteral(" or ")))
                   : QStringLiteral("known: %1").arg(names.join(QStringLiteral(", ")));
}

QString nearestNamesHint(const QString &name, const QStringList &known, const QString &otherwise)
{
    const QString advice = nearestNamesAdvice(name, known, otherwise);
    return advice.isEmpty() ? QString() : QStringLiteral("; ") + advice;
}

} // namespace Velmora::Kvz
