// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSize>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// An image that is to lie in a layer of an array texture.
struct PlannedImage
{
    QSize size; ///< Not empty.
    bool isNearest = false; ///< Its pixels are to stay squares: it is enlarged by whole factors.
};

struct ImageArrayLimits
{
    int arrays; ///< Array textures that there may be.
    int side; ///< Of a texture.
    int layers; ///< Of an array.
    qint64 bytes; ///< Of all arrays with their mip levels, four bytes a texel.
};

/// Which array textures hold a set of images.
struct ImageArrayPlan
{
    struct Array
    {
        QSize size;
        int layers = 0;
    };
    struct Place
    {
        int array = -1; ///< -1: there is no room.
        int layer = 0;
        QSize size; ///< What is kept of its resolution: its own size, or a smaller one where a limit asks for it.
    };

    QVector<Array> arrays;
    QVector<Place> places; ///< By image.
};

/// Gives each image a layer of an array of its size, arrays in the order of the images. Where there are more sizes than arrays,
/// sizes share an array that is large enough for both, those whose union costs least memory first: no image loses by that. Where
/// all of it takes more than the limit of bytes, the largest images are halved until it does not. Images that are nearest lie in
/// arrays whose sides are multiples of theirs, if that can be had. An array has so many layers only: images that find no place are as few as can be.
ImageArrayPlan planImageArrays(const QVector<PlannedImage> &images, const ImageArrayLimits &limits);

} // namespace Velmora::Kvz
