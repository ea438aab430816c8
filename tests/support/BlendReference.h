// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QVector4D>

#include <array>

namespace Velmora::Kvz {

/// One colour channel of a blend operator by its formula, in doubles, from S and D with their alphas.
double blendReferenceChannel(int mode, double S, double Sa, double D, double Da);
/// All four channels of a blend operator.
std::array<double, 4> blendReference(int mode, const QVector4D &source, const QVector4D &destination);

} // namespace Velmora::Kvz
