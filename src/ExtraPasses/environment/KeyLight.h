// SPDX-License-Identifier: MIT
#pragma once

#include "RadianceImage.h"

#include <QtGui/QVector3D>

namespace Velmora::Kvz {

/// The unit direction that the middle of a texel shows.
QVector3D texelDirection(const RadianceImage &image, int x, int y);
/// The part of the sphere that a texel of a row covers, in steradians.
float rowSolidAngle(const RadianceImage &image, int y);

/// A light that stands for a bright spot of an image.
struct KeyLight
{
    QVector3D direction; ///< Towards it, of length 1; zeros where there is none.
    QVector3D illuminance; ///< On a surface that faces it.
};

/// Takes the strongest bright spot out of an image: a connected part brighter than six times the mean that sends a tenth of all light
/// or more from less than half a steradian. What is above six times the mean goes, so that image and light together send as much as
/// the image did.
KeyLight takeKeyLight(RadianceImage *image);

} // namespace Velmora::Kvz
