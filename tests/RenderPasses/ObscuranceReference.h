// SPDX-License-Identifier: MIT
#pragma once

#include "support/DoubleMatrix.h"
#include "support/Image.h"

#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// Ambient obscurance computed on the CPU, in doubles, from the formulas.
///
/// The spiral of a pixel is turned by angles of thousands of radians, of which single precision keeps three decimals,
/// and a tap at the border of two texels may read either. So a pixel has a range of right answers, one for each angle
/// and texel that single precision may arrive at; it is mostly narrower than a step of 8 bits.
struct ObscuranceReference
{
    enum class Positions {
        FromDepth,
        Sampled, ///< By texture(), with the filter below, clamped.
        Fetched ///< Of a multisampled image.
    };
    enum class Normals {
        FromPositions,
        World, ///< By texture(), nearest.
        WorldFetched, ///< Of a multisampled image.
        Camera
    };
    struct Answer
    {
        bool isDefined = true; ///< Not beside a fragment that is discarded, where derivatives have no meaning.
        double low = 1;
        double high = 1; ///< 1 for a discarded fragment, as the image is cleared.
    };

    QSize size; ///< Of the result.
    QSize viewport;
    QMatrix4x4 projection;
    QMatrix4x4 camera;
    float nearPlane = 1;
    float farPlane = 20;
    float radius = 0.6f;
    float bias = 0.01f;
    float intensity = 2;
    int taps = 7;
    int turns = 3;
    int logMaxOffset = 3;
    Positions positionsFrom = Positions::FromDepth;
    Normals normalsFrom = Normals::FromPositions;
    bool isLinear = false; ///< Filter of the positions.
    Image depth; ///< May be larger than the result, of which a pixel reads the texel of its own number.
    QVector<Image> coarserDepths; ///< Levels 1 and up; without them taps read level 0.
    Image positions;
    Image normals;

    Answer at(int x, int y) const;

private:
    struct Point
    {
        Vector3d place;
        bool isDiscarded;
    };
    Vector3d reconstruct(double x, double y, double z) const;
    double depthAt(int x, int y, int level = 0) const;
    Vector3d fetch(const Image &image, double x, double y) const;
    Vector3d sample(const Image &image, double u, double v, bool linear) const;
    Point pointAt(int x, int y) const;
    bool normalAt(int x, int y, Vector3d *normal) const;
};

/// A floor, a back wall, a wall at the left and a ball, with nothing at the upper right, in camera space.
struct ObscuranceScene
{
    Image depth;
    Image positions;
    Image normals; ///< In camera space; towards the camera where there is nothing.

    ObscuranceScene(const QSize &size, const QMatrix4x4 &projection);
    /// The normals of the scene, in world space.
    Image worldNormals(const QMatrix4x4 &camera) const;
};

/// What compareWithFormula() found in an image.
struct ObscuranceCoverage
{
    int compared = 0;
    int undefined = 0;
    int vague = 0; ///< Pixels with more than four steps of 8 bits of right answers.
    int white = 0;
    int black = 0;
};

/// Checks every pixel of an image against the formulas, to half a step of 8 bits, plus another half for positions and
/// normals in single precision, whose differences lose digits.
ObscuranceCoverage compareWithFormula(const Image &image, const ObscuranceReference &reference);
/// Checks that the image has enough white and grey, and few pixels of undecided value.
void expectTelling(const ObscuranceCoverage &coverage);

} // namespace Velmora::Kvz
