// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// The numbers of a comma-separated list, such as "30,20,1.5"; empty when an element is not a finite number.
QVector<float> numbers(const QString &text);

} // namespace Velmora::Kvz
