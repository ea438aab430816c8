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

/// A mesh with its matrix: what one draw call rasterises.
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

/// The picture that a rasteriser must produce, computed in the opposite way: a ray in world space for each pixel,
/// intersected with every triangle, in doubles.
class RayCaster
{
public:
    RayCaster(
        const QVector<RayCastItem> &items, const QMatrix4x4 &projection, const QMatrix4x4 &camera, const QSize &size);

    /// Casts a ray through a point of the image, in pixels; the centre of the lower left one is at (0.5, 0.5). Of
    /// equally deep triangles it meets the one drawn first.
    RayHit cast(double x, double y) const;
    /// All hits of the ray in draw order: items one after the other, the triangles of each by number.
    QVector<RayHit> castAll(double x, double y) const;

    /// The point in world space of a hit of the ray through (x, y).
    Vector3d pointOf(double x, double y, const RayHit &hit) const;
    /// Whether a triangle lies between two points in world space. A triangle that contains one of the points, to within
    /// a millionth of the distance, does not count.
    bool isBlocked(const Vector3d &from, const Vector3d &to) const;

    /// Calls `compare` for the centre of each pixel that is clear of edges: the rays through the four points 0.05
    /// pixels away along both axes meet the same triangle, or nothing as well. Rasterisers move vertices to a grid of
    /// 1/16 pixel or finer (this one: 1/256), so at an edge both sides are right.
    /// Prints the number of these pixels, and fails the test if they are less than `leastShare` of all or if fewer than
    /// `leastGeometry` of them show geometry.
    RayCastCoverage compareClearPixels(double leastShare, int leastGeometry,
        const std::function<void(int x, int y, const RayHit &hit)> &compare) const;

    /// The same with all hits of the rays: a pixel is clear where all five rays meet the same triangles.
    RayCastCoverage compareClearLists(double leastShare, int leastGeometry,
        const std::function<void(int x, int y, const QVector<RayHit> &hits)> &compare) const;

    /// How many texels of an image of this size a step of one pixel crosses at a point, in the direction where it is
    /// more; 0 where nothing is met. Above 1 the image is minified.
    double texelsPerPixel(double x, double y, const QSize &imageSize) const;

private:
    struct Triangle
    {
        int item;
        int number;
        std::array<Vector3d, 3> corners; ///< World space.
        std::array<Vector3d, 3> normals;
        std::array<std::array<double, 2>, 3> texCoords;
        // The region of the image where it can be, in pixels; unbounded for a triangle that reaches behind the camera.
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
    /// Whether the ray meets the triangle at a lesser depth than `hit`, which is then replaced.
    bool meets(const Ray &ray, const Triangle &triangle, RayHit *hit) const;
    void addTriangle(const RayCastItem &item, int itemNumber, int number);
    void boundOnImage(Triangle &triangle) const;

    QVector<Triangle> m_triangles;
    DoubleMatrix m_viewProjection;
    DoubleMatrix m_inverse;
    QSize m_size;
};

} // namespace Velmora::Kvz
