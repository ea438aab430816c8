// SPDX-License-Identifier: MIT
#pragma once

#include <QtGui/QImage>

#include <functional>

namespace Velmora::Kvz {

/// Takes rows of an image as bytes of red, green, blue and alpha, from row `first` up, counted from the bottom.
using TakeRows = std::function<void(int first, int count, const uchar *bytes)>;

/// Hands out an image at a size, some rows at a time from the bottom up, so that no second copy of a large one is made. Each
/// channel is resampled by itself, alpha not being a weight: the mean of the pixels where it shrinks, linear where it grows, or
/// for `isNearest` the pixel that is nearest.
void readRows(const QImage &image, const QSize &size, bool isNearest, const TakeRows &take);

} // namespace Velmora::Kvz
