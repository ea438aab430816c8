// SPDX-License-Identifier: MIT
#include "MeshReader.h"

#include "AssimpTypes.h"

#include <assimp/material.h>
#include <assimp/mesh.h>

#include <QtCore/QHash>
#include <QtCore/QtMath>

#include <cstring>
#include <numeric>
#include <tuple>

namespace Velmora::Kvz {

namespace {

constexpr float creaseAngle = 80; // degrees; keeps the edges of a box hard
constexpr int largestFan = 256; // more triangles around a point are smooth all together, or time would be quadratic

/// In double precision, since models may be some millionths across; zero for what has no direction.
QVector3D unit(const QVector3D &vector)
{
    const double x = double(vector.x());
    const double y = double(vector.y());
    const double z = double(vector.z());
    const double length = std::sqrt(x * x + y * y + z * z);
    return length > 0 && std::isfinite(length) ? QVector3D(float(x / length), float(y / length), float(z / length))
                                               : QVector3D();
}

struct Vertex
{
    QVector3D position;
    QVector3D normal;
    QVector2D texCoord;

    bool operator==(const Vertex &other) const { return std::memcmp(this, &other, sizeof(Vertex)) == 0; }
};
static_assert(sizeof(Vertex) == 8 * sizeof(float), "vertices are compared as bytes");

uint qHash(const Vertex &vertex, uint seed)
{
    return qHashBits(&vertex, sizeof(Vertex), seed);
}

/// Texture coordinates for meshes without: a projection along the axis that a triangle faces most, unmirrored.
class BoxProjection
{
public:
    explicit BoxProjection(const aiMesh &mesh)
    {
        QVector3D low = toQVector(mesh.mVertices[0]);
        QVector3D high = low;
        for (unsigned v = 1; v < mesh.mNumVertices; ++v) {
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], mesh.mVertices[v][unsigned(axis)]);
                high[axis] = std::max(high[axis], mesh.mVertices[v][unsigned(axis)]);
            }
        }
        m_centre = low / 2 + high / 2;
        const QVector3D extent = high - low;
        m_extent = std::max({extent.x(), extent.y(), extent.z()});
    }

    QVector2D project(const QVector3D &position, const QVector3D &normal) const
    {
        const QVector3D p = m_extent > 0 ? (position - m_centre) / m_extent : QVector3D();
        const QVector3D size(std::abs(normal.x()), std::abs(normal.y()), std::abs(normal.z()));
        const QVector2D offset(0.5f, 0.5f);
        if (size.y() >= size.x() && size.y() >= size.z())
            return offset + QVector2D(p.x(), normal.y() > 0 ? -p.z() : p.z());
        if (size.x() >= size.z())
            return offset + QVector2D(normal.x() > 0 ? -p.z() : p.z(), p.y());
        return offset + QVector2D(normal.z() > 0 ? p.x() : -p.x(), p.y());
    }

private:
    QVector3D m_centre;
    float m_extent;
};

/// The texture coordinate set that a mesh's diffuse map uses, where the mesh has it.
const aiVector3D *textureCoordinates(const aiMesh &mesh, const aiMaterial &material)
{
    int set = 0;
    material.Get(AI_MATKEY_UVWSRC(aiTextureType_DIFFUSE, 0), set);
    return mesh.mTextureCoords[set > 0 && mesh.HasTextureCoords(unsigned(set)) ? set : 0];
}

/// A triangle of a mesh: its corners as vertex numbers and the side it faces.
struct Triangle
{
    unsigned corners[3];
    QVector3D normal;
};

/// The triangles with an area; `cut` counts faces with fewer corners.
QVector<Triangle> trianglesOf(const aiMesh &mesh, int *cut)
{
    QVector<Triangle> triangles;
    triangles.reserve(int(mesh.mNumFaces));
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace &face = mesh.mFaces[f];
        if (face.mNumIndices != 3) {
            ++*cut;
            continue;
        }
        Triangle triangle{{face.mIndices[0], face.mIndices[1], face.mIndices[2]}, QVector3D()};
        const QVector3D a = toQVector(mesh.mVertices[triangle.corners[0]]);
        const QVector3D b = toQVector(mesh.mVertices[triangle.corners[1]]);
        const QVector3D c = toQVector(mesh.mVertices[triangle.corners[2]]);
        triangle.normal = unit(QVector3D::crossProduct(unit(b - a), unit(c - a)));
        if (!triangle.normal.isNull())
            triangles.append(triangle);
    }
    return triangles;
}

/// Normals for each corner of each triangle: the mean of the triangles that meet there, each by its angle there, without
/// those across a hard edge.
QVector<QVector3D> smoothNormals(const aiMesh &mesh, const QVector<Triangle> &triangles)
{
    struct Corner
    {
        QVector3D position;
        QVector3D weighted; // normal of its triangle times the angle
        int number;
    };
    QVector<Corner> corners;
    corners.reserve(3 * triangles.size());
    for (int t = 0; t < triangles.size(); ++t) {
        for (int c = 0; c < 3; ++c) {
            const QVector3D position = toQVector(mesh.mVertices[triangles[t].corners[c]]);
            const QVector3D next = unit(toQVector(mesh.mVertices[triangles[t].corners[(c + 1) % 3]]) - position);
            const QVector3D last = unit(toQVector(mesh.mVertices[triangles[t].corners[(c + 2) % 3]]) - position);
            const float angle = std::acos(qBound(-1.0f, QVector3D::dotProduct(next, last), 1.0f));
            corners.append({position, triangles[t].normal * angle, 3 * t + c});
        }
    }
    const auto place = [](const Corner &corner) {
        return std::make_tuple(corner.position.x(), corner.position.y(), corner.position.z());
    };
    std::sort(corners.begin(), corners.end(), [&](const Corner &a, const Corner &b) { return place(a) < place(b); });

    QVector<QVector3D> normals(corners.size());
    const float limit = std::cos(qDegreesToRadians(creaseAngle));
    for (auto first = corners.cbegin(); first != corners.cend();) {
        const auto last =
            std::find_if(first, corners.cend(), [&](const Corner &c) { return place(c) != place(*first); });
        QVector3D whole;
        for (auto corner = first; corner != last; ++corner)
            whole += corner->weighted;
        for (auto corner = first; corner != last; ++corner) {
            QVector3D sum = whole;
            if (last - first <= largestFan) {
                const QVector3D own = triangles[corner->number / 3].normal;
                sum = std::accumulate(first, last, QVector3D(), [&](const QVector3D &part, const Corner &other) {
                    const bool smooth = QVector3D::dotProduct(own, triangles[other.number / 3].normal) >= limit;
                    return smooth ? part + other.weighted : part;
                });
            }
            normals[corner->number] = unit(sum);
        }
        first = last;
    }
    return normals;
}

} // namespace

MeshData readMesh(const aiMesh &source, const aiMaterial &material, int *cut)
{
    MeshData mesh;
    *cut = 0;
    const QVector<Triangle> triangles = trianglesOf(source, cut);
    if (triangles.isEmpty())
        return mesh;

    const aiVector3D *texCoords = textureCoordinates(source, material);
    const BoxProjection projection(source);
    const QVector<QVector3D> made = source.mNormals ? QVector<QVector3D>() : smoothNormals(source, triangles);
    QHash<Vertex, quint32> numbers;
    numbers.reserve(int(source.mNumVertices));
    mesh.indices.reserve(3 * triangles.size());
    for (int corner = 0; corner < 3 * triangles.size(); ++corner) {
        const Triangle &triangle = triangles[corner / 3];
        const unsigned i = triangle.corners[corner % 3];
        const QVector3D normal = source.mNormals ? unit(toQVector(source.mNormals[i])) : made[corner];
        Vertex vertex;
        vertex.position = toQVector(source.mVertices[i]);
        vertex.normal = normal.isNull() ? triangle.normal : normal;
        vertex.texCoord = texCoords ? QVector2D(texCoords[i].x, texCoords[i].y)
                                    : projection.project(vertex.position, triangle.normal);
        if (!std::isfinite(vertex.texCoord.x()) || !std::isfinite(vertex.texCoord.y()))
            vertex.texCoord = QVector2D();

        const auto known = numbers.constFind(vertex);
        if (known != numbers.constEnd()) {
            mesh.indices.append(known.value());
            continue;
        }
        const auto next = quint32(mesh.positions.size());
        numbers.insert(vertex, next);
        mesh.indices.append(next);
        mesh.positions.append(vertex.position);
        mesh.normals.append(vertex.normal);
        mesh.texCoords.append(vertex.texCoord);
    }
    return mesh;
}

} // namespace Velmora::Kvz
