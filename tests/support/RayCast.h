// SPDX-License-Identifier: MIT
#pragma once

#include "DoubleMatrix.h"

#include <Scene/GPUModelBuilder.h>

#include <QtCore/QSize>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>

#include <functional>
#include <limits>

namespace Velmora::Kvz {

/// A mesh at its place: what one draw call rasterises.
struct RayCastItem
{
    MeshData mesh;
    QMatrix4x4 modelMatrix;
};

/// What the ray through a point of the image meets first.
struct RayHit
{
    int item = -1; ///< -1: nothing.
    int triangle = -1; ///< The number of the triangle within its item, from 0.
    double depth = 1; ///< Window depth, from 0 to 1.
    Vector3d normal = {}; ///< As the mesh has it, in model space, interpolated; not normalised.
    std::array<double, 2> texCoord = {}; ///< Interpolated.

    bool isGeometry() const { return item >= 0; }
    bool isOnSameTriangle(const RayHit &other) const { return item == other.item && triangle == other.triangle; }
};

/// How much of an image was compared.
struct RayCastCoverage
{
    int pixels = 0;
    int compared = 0; ///< Pixels clear of edges.
    int geometry = 0; ///< Those of them that show geometry.
};

/// The picture that a rasteriser must produce, computed the other way round: for each pixel a ray in world space, met with
/// every triangle, all in doubles.
class RayCaster
{
public:
    RayCaster(
        const QVector<RayCastItem> &items, const QMatrix4x4 &projection, const QMatrix4x4 &camera, const QSize &size);

    /// Through a point of the image in pixels, the centre of the lower left one at (0.5, 0.5). Among equally deep triangles
    /// the first drawn is met.
    RayHit cast(double x, double y) const;
    /// All that the ray meets, in the order of drawing: items one after the other, the triangles of each by number.
    QVector<RayHit> castAll(double x, double y) const;

    /// The point in world space that a hit of that point of the image lies at.
    Vector3d pointOf(double x, double y, const RayHit &hit) const;
    /// Whether a triangle stands between two points in world space. One that a point lies on, within a
    /// millionth of the way, does not count.
    bool isBlocked(const Vector3d &from, const Vector3d &to) const;

    /// Calls `compare` for the centre of each pixel that is clear of edges: the rays through the four points 0.05 pixels
    /// to the left or right and above or below meet the same triangle, or nothing as well. Rasterisers move vertices to a
    /// grid of 1/16 pixel or finer (this one: 1/256), so right at an edge either side is a right answer.
    ///
    /// Prints how many pixels that were, and fails the test when they are less than `leastShare` of all, or when fewer than
    /// `leastGeometry` of them show geometry.
    RayCastCoverage compareClearPixels(double leastShare, int leastGeometry,
        const std::function<void(int x, int y, const RayHit &hit)> &compare) const;

    /// The same with all that the rays meet: a pixel is clear where all five meet the same triangles.
    RayCastCoverage compareClearLists(double leastShare, int leastGeometry,
        const std::function<void(int x, int y, const QVector<RayHit> &hits)> &compare) const;

    /// How many texels of an image of this size the texture coordinates cross from pixel to pixel at a point, in the
    /// direction in which it is more; 0 where nothing is met. Above 1 the image is minified.
    double texelsPerPixel(double x, double y, const QSize &imageSize) const;

private:
    struct Triangle
    {
        int item;
        int number;
        std::array<Vector3d, 3> corners; ///< World space.
        std::array<Vector3d, 3> normals;
        std::array<std::array<double, 2>, 3> texCoords;
        // Where on the image it can be, in pixels; everywhere for one that reaches behind the eye.
        double left = -std::numeric_limits<double>::infinity();
        double right = std::numeric_limits<double>::infinity();
        double bottom = -std::numeric_limits<double>::infinity();
        double top = std::numeric_limits<double>::infinity();
    };

    struct Ray
    {
        double x; ///< On the image, in pixels.
        double y;
        Vector3d origin; ///< On the near plane.
        Vector3d direction; ///< To the far plane.
    };

    template <typename Met, typename Cast, typename AreSame>
    RayCastCoverage compareClear(double leastShare, int leastGeometry, const Cast &castAt, const AreSame &areSame,
        const std::function<void(int x, int y, const Met &met)> &compare) const;
    Ray rayThrough(double x, double y) const;
    /// Whether the ray meets the triangle nearer than `hit`, which then is what it meets.
    bool meets(const Ray &ray, const Triangle &triangle, RayHit *hit) const;
    void addTriangle(const RayCastItem &item, int itemNumber, int number);
    void boundOnImage(Triangle &triangle) const;

    QVector<Triangle> m_triangles;
    DoubleMatrix m_viewProjection;
    DoubleMatrix m_inverse;
    QSize m_size;
};

} // namespace Velmora::Kvz
