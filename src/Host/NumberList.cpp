// SPDX-License-Identifier: MIT
#include "NumberList.h"

#include <QtCore/QStringList>

#include <cmath>

namespace Velmora::Kvz {

QVector<float> numbers(const QString &text)
{
    QVector<float> result;
    for (const QString &part : text.split(QLatin1Char(','))) {
        bool ok = false;
        const float number = part.toFloat(&ok);
        if (!ok || !std::isfinite(number))
            return {};
        result.append(number);
    }
    return result;
}

} // namespace Velmora::Kvz
