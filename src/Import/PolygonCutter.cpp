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

/// The corners of a polygon in the plane that shows most of it, counter-clockwise.
std::vector<Point> flattened(const aiMesh &mesh, const aiFace &face)
{
    // Newell's method: the sums of the areas of the three projections.
    double normal[3] = {0, 0, 0};
    for (unsigned i = 0; i < face.mNumIndices; ++i) {
        const aiVector3D &a = mesh.mVertices[face.mIndices[i]];
        const aiVector3D &b = mesh.mVertices[face.mIndices[(i + 1) % face.mNumIndices]];
        for (unsigned axis = 0; axis < 3; ++axis) {
            const unsigned u = (axis + 1) % 3;
            const unsigned v = (axis + 2) % 3;
            normal[axis] += (double(a[u]) - double(b[u])) * (double(a[v]) + double(b[v]));
        }
    }
    unsigned widest = 0;
    for (unsigned axis = 1; axis < 3; ++axis) {
        if (std::abs(normal[axis]) > std::abs(normal[widest]))
            widest = axis;
    }
    const double side = normal[widest] < 0 ? -1 : 1;
    std::vector<Point> points;
    for (unsigned i = 0; i < face.mNumIndices; ++i) {
        const aiVector3D &corner = mesh.mVertices[face.mIndices[i]];
        points.push_back({double(corner[(widest + 1) % 3]), side * double(corner[(widest + 2) % 3])});
    }
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

} // namespace

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
