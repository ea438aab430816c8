// SPDX-License-Identifier: MIT
#include "PolygonCutter.h"

#include <assimp/mesh.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Velmora::Kvz {

namespace {

struct Point
{
    double x;
    double y;
};

/// Twice the area of a triangle, above 0 if it is counter-clockwise.
double area(const Point &a, const Point &b, const Point &c)
{
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

bool areEqual(const Point &a, const Point &b)
{
    return a.x == b.x && a.y == b.y;
}

/// The coordinate plane that shows most of a polygon.
struct Plane
{
    unsigned widest = 0; // the axis that it is seen along
    double side = 1; // 1 or -1, so that polygons are counter-clockwise

    template <typename Vector> Point operator()(const Vector &corner) const
    {
        return {double(corner[(widest + 1) % 3]), side * double(corner[(widest + 2) % 3])};
    }
};

/// Of a polygon of `count` corners; `at` gives them.
template <typename At> Plane planeOf(unsigned count, At at)
{
    // Newell's method: the sums of the areas of the three projections.
    double normal[3] = {0, 0, 0};
    for (unsigned i = 0; i < count; ++i) {
        const auto a = at(i);
        const auto b = at((i + 1) % count);
        for (unsigned axis = 0; axis < 3; ++axis) {
            const unsigned u = (axis + 1) % 3;
            const unsigned v = (axis + 2) % 3;
            normal[axis] += (double(a[u]) - double(b[u])) * (double(a[v]) + double(b[v]));
        }
    }
    Plane plane;
    for (unsigned axis = 1; axis < 3; ++axis) {
        if (std::abs(normal[axis]) > std::abs(normal[plane.widest]))
            plane.widest = axis;
    }
    plane.side = normal[plane.widest] < 0 ? -1 : 1;
    return plane;
}

/// The corners of a polygon in the plane that shows most of it, counter-clockwise.
std::vector<Point> flattened(const aiMesh &mesh, const aiFace &face)
{
    const auto at = [&](unsigned i) { return mesh.mVertices[face.mIndices[i]]; };
    const Plane plane = planeOf(face.mNumIndices, at);
    std::vector<Point> points;
    for (unsigned i = 0; i < face.mNumIndices; ++i)
        points.push_back(plane(at(i)));
    return points;
}

bool isConvex(const std::vector<Point> &points)
{
    const size_t count = points.size();
    for (size_t i = 0; i < count; ++i) {
        if (area(points[i], points[(i + 1) % count], points[(i + 2) % count]) < 0)
            return false;
    }
    return true;
}

/// Cuts ears off until a triangle is left. Empty if there is none to cut.
std::vector<std::array<unsigned, 3>> earsOf(const std::vector<Point> &points)
{
    std::vector<unsigned> left(points.size());
    for (unsigned i = 0; i < left.size(); ++i)
        left[i] = i;
    std::vector<std::array<unsigned, 3>> triangles;
    const auto isEar = [&](size_t at) {
        const size_t count = left.size();
        const std::array<unsigned, 3> ear = {left[(at + count - 1) % count], left[at], left[(at + 1) % count]};
        const Point &a = points[ear[0]];
        const Point &b = points[ear[1]];
        const Point &c = points[ear[2]];
        if (area(a, b, c) <= 0)
            return false;
        return std::none_of(left.begin(), left.end(), [&](unsigned other) {
            const Point &p = points[other];
            if (areEqual(p, a) || areEqual(p, b) || areEqual(p, c))
                return false;
            return area(a, b, p) >= 0 && area(b, c, p) >= 0 && area(c, a, p) >= 0;
        });
    };
    while (left.size() > 3) {
        size_t at = 0;
        while (at < left.size() && !isEar(at))
            ++at;
        const size_t count = left.size();
        if (at == count) {
            // Corners on a straight line are no ears, and may be all that is left.
            at = 0;
            while (at < count
                && area(points[left[(at + count - 1) % count]], points[left[at]], points[left[(at + 1) % count]]) != 0)
                ++at;
            if (at == count)
                return {};
        }
        const std::array<unsigned, 3> ear = {left[(at + count - 1) % count], left[at], left[(at + 1) % count]};
        if (area(points[ear[0]], points[ear[1]], points[ear[2]]) != 0)
            triangles.push_back(ear);
        left.erase(left.begin() + std::ptrdiff_t(at));
    }
    triangles.push_back({left[0], left[1], left[2]});
    return triangles;
}

using Loop = std::vector<unsigned>;

double signedArea(const std::vector<Point> &points, const Loop &loop)
{
    double sum = 0;
    for (size_t i = 0; i < loop.size(); ++i) {
        const Point &a = points[loop[i]];
        const Point &b = points[loop[(i + 1) % loop.size()]];
        sum += a.x * b.y - a.y * b.x;
    }
    return sum / 2;
}

/// Whether an edge of a loop is in the way of a line from a to b, at whose ends it may begin.
bool isInTheWay(const std::vector<Point> &points, const Loop &loop, const Point &a, const Point &b)
{
    for (size_t i = 0; i < loop.size(); ++i) {
        const Point &c = points[loop[i]];
        const Point &d = points[loop[(i + 1) % loop.size()]];
        if (!areEqual(c, a) && !areEqual(c, b) && area(a, b, c) == 0
            && (c.x - a.x) * (c.x - b.x) + (c.y - a.y) * (c.y - b.y) < 0)
            return true; // a corner lies on the line
        if (area(a, b, c) * area(a, b, d) < 0 && area(c, d, a) * area(c, d, b) < 0)
            return true;
    }
    return false;
}

/// Whether a point lies inwards of a corner of a counter-clockwise ring.
bool isInwards(const std::vector<Point> &points, const Loop &ring, size_t at, const Point &point)
{
    const Point &before = points[ring[(at + ring.size() - 1) % ring.size()]];
    const Point &corner = points[ring[at]];
    const Point &behind = points[ring[(at + 1) % ring.size()]];
    const bool isLeftOfFirst = area(before, corner, point) >= 0;
    const bool isLeftOfSecond = area(corner, behind, point) >= 0;
    return area(before, corner, behind) >= 0 ? isLeftOfFirst && isLeftOfSecond : isLeftOfFirst || isLeftOfSecond;
}

struct Seam
{
    size_t ringCorner;
    size_t hole;
    size_t holeCorner;
    double length; // its square
};

/// All seams between a ring and holes, the shortest first.
std::vector<Seam> seamsBetween(const std::vector<Point> &points, const Loop &ring, const std::vector<Loop> &holes)
{
    std::vector<Seam> seams;
    for (size_t r = 0; r < ring.size(); ++r) {
        for (size_t h = 0; h < holes.size(); ++h) {
            for (size_t c = 0; c < holes[h].size(); ++c) {
                const Point &a = points[ring[r]];
                const Point &b = points[holes[h][c]];
                seams.push_back({r, h, c, (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y)});
            }
        }
    }
    std::stable_sort(seams.begin(), seams.end(), [](const Seam &a, const Seam &b) { return a.length < b.length; });
    return seams;
}

} // namespace

std::vector<unsigned> joinedLoops(
    const std::vector<QVector3D> &corners, const std::vector<std::vector<unsigned>> &loops)
{
    constexpr size_t mostCorners = 1024; // beyond, seams take too long to find
    if (loops.empty() || loops.front().size() < 3 || corners.size() > mostCorners)
        return {};
    Loop ring = loops.front();
    const Plane plane = planeOf(unsigned(ring.size()), [&](unsigned i) { // QVector3D counts its coordinates by int
        const QVector3D &corner = corners[ring[i]];
        return std::array<float, 3>{corner.x(), corner.y(), corner.z()};
    });
    std::vector<Point> points;
    for (const QVector3D &corner : corners)
        points.push_back(plane(std::array<float, 3>{corner.x(), corner.y(), corner.z()}));
    std::vector<Loop> holes;
    for (size_t loop = 1; loop < loops.size(); ++loop) {
        if (loops[loop].size() < 3)
            continue;
        holes.push_back(loops[loop]);
        if (signedArea(points, holes.back()) > 0)
            std::reverse(holes.back().begin(), holes.back().end());
    }
    while (!holes.empty()) {
        const std::vector<Seam> seams = seamsBetween(points, ring, holes);
        const auto seam = std::find_if(seams.begin(), seams.end(), [&](const Seam &candidate) {
            const Point &a = points[ring[candidate.ringCorner]];
            const Point &b = points[holes[candidate.hole][candidate.holeCorner]];
            return isInwards(points, ring, candidate.ringCorner, b) && !isInTheWay(points, ring, a, b)
                && std::none_of(
                    holes.begin(), holes.end(), [&](const Loop &hole) { return isInTheWay(points, hole, a, b); });
        });
        if (seam == seams.end())
            return {};
        // To the hole, around it, and back.
        Loop way = holes[seam->hole];
        std::rotate(way.begin(), way.begin() + std::ptrdiff_t(seam->holeCorner), way.end());
        way.push_back(way.front());
        way.push_back(ring[seam->ringCorner]);
        ring.insert(ring.begin() + std::ptrdiff_t(seam->ringCorner) + 1, way.begin(), way.end());
        holes.erase(holes.begin() + std::ptrdiff_t(seam->hole));
    }
    return ring;
}

void cutConcavePolygons(aiMesh *mesh)
{
    constexpr unsigned leastCorners = 5; // assimp knows how to cut four
    constexpr unsigned mostCorners = 1024; // beyond, ears take too long to find
    std::vector<aiFace> faces;
    bool isCut = false;
    const auto keep = [&faces](const aiFace &face) { faces.push_back(face); };
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        const aiFace &face = mesh->mFaces[f];
        std::vector<std::array<unsigned, 3>> triangles;
        if (face.mNumIndices >= leastCorners && face.mNumIndices <= mostCorners) {
            const std::vector<Point> points = flattened(*mesh, face);
            if (!isConvex(points))
                triangles = earsOf(points);
        }
        if (!triangles.empty() && !isCut) {
            isCut = true;
            faces.reserve(mesh->mNumFaces + triangles.size());
            std::for_each(mesh->mFaces, mesh->mFaces + f, keep);
        }
        for (const std::array<unsigned, 3> &triangle : triangles) {
            aiFace cut;
            cut.mNumIndices = 3;
            cut.mIndices = new unsigned[3];
            for (size_t corner = 0; corner < 3; ++corner)
                cut.mIndices[corner] = face.mIndices[triangle[corner]];
            faces.push_back(cut);
        }
        if (isCut && triangles.empty())
            keep(face);
    }
    if (!isCut)
        return;
    delete[] mesh->mFaces;
    mesh->mFaces = new aiFace[faces.size()];
    std::copy(faces.begin(), faces.end(), mesh->mFaces);
    mesh->mNumFaces = unsigned(faces.size());
    mesh->mPrimitiveTypes |= aiPrimitiveType_TRIANGLE;
    // Assimp takes the word of this for polygons to be there.
    if (std::none_of(faces.begin(), faces.end(), [](const aiFace &face) { return face.mNumIndices > 3; }))
        mesh->mPrimitiveTypes &= ~unsigned(aiPrimitiveType_POLYGON);
}

} // namespace Velmora::Kvz
