// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QPointF>
#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>

namespace Velmora::Kvz {

/// Where a sample of SMAA's table lies in its pixel, from (0, 0) at the lower left to (1, 1): in texture coordinates, both
/// growing, as the slices of the area table count them. Of T2x and S2x: two samples, for `frame` -1. Of 4x: two in each of the
/// frames 0 and 1. Other numbers count by their lowest bit.
inline QPointF subsamplePosition(int frame, int sample)
{
    const QPointF ofTwo[] = {{0.75, 0.75}, {0.25, 0.25}};
    const QPointF ofFour[] = {{0.875, 0.625}, {0.375, 0.125}, {0.625, 0.875}, {0.125, 0.375}};
    return frame < 0 ? ofTwo[sample & 1] : ofFour[(frame & 1) * 2 + (sample & 1)];
}

/// How far a picture must move for what lies at `wanted` of each pixel to meet `actual`, in normalised device units.
inline QVector2D shiftTo(const QPointF &actual, const QPointF &wanted, const QSize &size)
{
    return {float(2 * (actual.x() - wanted.x()) / size.width()), float(2 * (actual.y() - wanted.y()) / size.height())};
}

/// The projection with the image moved by so many normalised device units.
inline QMatrix4x4 shifted(const QMatrix4x4 &projection, const QVector2D &shift)
{
    QMatrix4x4 matrix;
    matrix.translate(shift.x(), shift.y(), 0);
    return matrix * projection;
}

} // namespace Velmora::Kvz
