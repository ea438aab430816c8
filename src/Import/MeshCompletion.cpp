// SPDX-License-Identifier: MIT
#include "MeshCompletion.h"

#include <QtCore/QtMath>

#include <meshoptimizer.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Velmora::Kvz {

namespace {

constexpr float creaseAngle = 80; // degrees; keeps the edges of a box hard
constexpr int largestFan = 256; // more triangles around a point are smooth all together, or time would be quadratic
constexpr unsigned unused = ~0u;

QVector3D unit(const QVector3D &vector)
{
    const double x = double(vector.x());
    const double y = double(vector.y());
    const double z = double(vector.z());
    const double length = std::sqrt(x * x + y * y + z * z);
    return length > 0 && std::isfinite(length) ? QVector3D(float(x / length), float(y / length), float(z / length))
                                               : QVector3D();
}

/// The angle whose sine and cosine are these, to 3e-4 of its size, which is plenty for a weight. Small ones by the series of the arc
/// sine, for a cosine near 1 says nothing of them; others by Abramowitz and Stegun, Handbook of Mathematical Functions,
/// 4.4.45.
float angleOf(float sine, float cosine)
{
    if (cosine > 0.9f) {
        const float square = sine * sine;
        return sine * (1 + square * (1 / 6.0f + square * (3 / 40.0f)));
    }
    const float size = std::min(std::abs(cosine), 1.0f);
    const float angle =
        std::sqrt(1 - size) * (1.5707288f + size * (-0.2121144f + size * (0.0742610f - 0.0187293f * size)));
    return cosine < 0 ? float(M_PI) - angle : angle;
}

/// The side of a box that a triangle faces most: 0 and 1 for x, 2 and 3 for y, 4 and 5 for z, odd ones for the negative end.
int boxSide(const QVector3D &normal)
{
    const QVector3D size(std::abs(normal.x()), std::abs(normal.y()), std::abs(normal.z()));
    const int axis = size.y() >= size.x() && size.y() >= size.z() ? 1 : size.x() >= size.z() ? 0 : 2;
    return 2 * axis + !(normal[axis] > 0);
}

/// Texture coordinates for meshes without: a projection along the axis that a triangle faces most, unmirrored.
class BoxProjection
{
public:
    explicit BoxProjection(const QVector<QVector3D> &positions)
    {
        QVector3D low = positions.value(0);
        QVector3D high = low;
        for (const QVector3D &position : positions) {
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], position[axis]);
                high[axis] = std::max(high[axis], position[axis]);
            }
        }
        m_centre = low / 2 + high / 2;
        const QVector3D extent = high - low;
        m_extent = std::max({extent.x(), extent.y(), extent.z()});
    }

    QVector2D project(const QVector3D &position, int side) const
    {
        const QVector3D p = m_extent > 0 ? (position - m_centre) / m_extent : QVector3D();
        const QVector2D offset(0.5f, 0.5f);
        const bool positive = side % 2 == 0;
        switch (side / 2) {
        case 0:
            return offset + QVector2D(positive ? -p.z() : p.z(), p.y());
        case 1:
            return offset + QVector2D(p.x(), positive ? -p.z() : p.z());
        default:
            return offset + QVector2D(positive ? p.x() : -p.x(), p.y());
        }
    }

    QVector3D centre() const { return m_centre; }

private:
    QVector3D m_centre;
    float m_extent;
};

template <typename T> void moveArray(QVector<T> *array, const std::vector<unsigned> &remap, int count)
{
    if (array->isEmpty())
        return;
    QVector<T> moved(count);
    for (size_t v = 0; v < remap.size(); ++v) {
        if (remap[v] != unused)
            moved[int(remap[v])] = array->at(int(v));
    }
    *array = moved;
}

template <typename T> void repeatVertex(QVector<T> *array, int vertex)
{
    if (!array->isEmpty())
        array->append(T(array->at(vertex)));
}

/// The places of a mesh: vertices of one position share one.
std::vector<unsigned> placesOf(const ImportedMesh &mesh, size_t *count)
{
    std::vector<unsigned> places(size_t(mesh.positions.size()));
    *count = meshopt_generateVertexRemap(places.data(), mesh.indices.constData(), size_t(mesh.indices.size()),
        mesh.positions.constData(), places.size(), sizeof(QVector3D));
    return places;
}

/// Gives corners of a mesh a normal and a side of the box, and splits vertices whose corners differ.
class VertexSplitter
{
public:
    VertexSplitter(ImportedMesh *mesh, bool setsNormals)
        : m_mesh(mesh),
          m_setsNormals(setsNormals),
          m_sides(size_t(mesh->positions.size()), -1),
          m_next(size_t(mesh->positions.size()), -1)
    {
        m_mesh->normals.resize(m_mesh->positions.size());
    }

    void setCorner(int corner, const QVector3D &normal, int side)
    {
        int vertex = int(m_mesh->indices.at(corner));
        if (m_sides[size_t(vertex)] < 0) {
            set(vertex, normal, side);
            return;
        }
        while (m_sides[size_t(vertex)] != side || (m_setsNormals && m_mesh->normals.at(vertex) != normal)) {
            if (m_next[size_t(vertex)] < 0) {
                const int created = split(vertex);
                m_next[size_t(vertex)] = created;
                vertex = created;
                set(vertex, normal, side);
                break;
            }
            vertex = m_next[size_t(vertex)];
        }
        m_mesh->indices[corner] = quint32(vertex);
    }

    /// The side of each vertex; -1: no corner has it.
    const std::vector<qint8> &sides() const { return m_sides; }

private:
    void set(int vertex, const QVector3D &normal, int side)
    {
        if (m_setsNormals)
            m_mesh->normals[vertex] = normal;
        m_sides[size_t(vertex)] = qint8(side);
    }

    int split(int vertex)
    {
        repeatVertex(&m_mesh->positions, vertex);
        repeatVertex(&m_mesh->normals, vertex);
        repeatVertex(&m_mesh->texCoords, vertex);
        repeatVertex(&m_mesh->texCoords1, vertex);
        repeatVertex(&m_mesh->colours, vertex);
        repeatVertex(&m_mesh->tangents, vertex);
        m_sides.push_back(-1);
        m_next.push_back(-1);
        return m_mesh->positions.size() - 1;
    }

    ImportedMesh *m_mesh;
    bool m_setsNormals;
    std::vector<qint8> m_sides; // by vertex; -1: no corner was set
    std::vector<int> m_next; // by vertex: the next one that was split off; -1: none
};

/// The angles of a triangle at its corners.
void anglesOf(const QVector3D *positions, const quint32 *corners, float angles[3])
{
    struct Edge
    {
        double x, y, z, square;
    } edges[3];
    for (int c = 0; c < 3; ++c) {
        const QVector3D &from = positions[corners[c]];
        const QVector3D &to = positions[corners[(c + 1) % 3]];
        Edge &edge = edges[c];
        edge.x = double(to.x()) - double(from.x());
        edge.y = double(to.y()) - double(from.y());
        edge.z = double(to.z()) - double(from.z());
        edge.square = edge.x * edge.x + edge.y * edge.y + edge.z * edge.z;
    }
    const double x = edges[0].y * edges[1].z - edges[0].z * edges[1].y;
    const double y = edges[0].z * edges[1].x - edges[0].x * edges[1].z;
    const double z = edges[0].x * edges[1].y - edges[0].y * edges[1].x;
    const double twiceArea = std::sqrt(x * x + y * y + z * z);
    for (int c = 0; c < 3; ++c) {
        const Edge &out = edges[c];
        const Edge &in = edges[(c + 2) % 3];
        const double scale = 1 / std::sqrt(out.square * in.square);
        const double dot = -(out.x * in.x + out.y * in.y + out.z * in.z);
        angles[c] = angleOf(float(twiceArea * scale), float(dot * scale));
    }
}

/// The corners at places with a hard edge, place by place.
struct HardCorners
{
    std::vector<unsigned> starts; // by place, one more than there are
    std::vector<unsigned> corners;
};

HardCorners hardCorners(const ImportedMesh &mesh, const std::vector<unsigned> &places, const std::vector<bool> &isHard)
{
    HardCorners result;
    result.starts.resize(isHard.size() + 1);
    for (const quint32 vertex : mesh.indices) {
        const unsigned place = places[vertex];
        result.starts[place + 1] += isHard[place];
    }
    for (size_t place = 0; place < isHard.size(); ++place)
        result.starts[place + 1] += result.starts[place];
    result.corners.resize(result.starts.back());
    std::vector<unsigned> next(result.starts.begin(), result.starts.end() - 1);
    for (int corner = 0; corner < mesh.indices.size(); ++corner) {
        const unsigned place = places[mesh.indices.at(corner)];
        if (isHard[place])
            result.corners[next[place]++] = unsigned(corner);
    }
    return result;
}

/// Smooth normals: the mean of the triangles that meet at a place, each by its angle there, without those across a hard edge.
/// Most places have no hard edge: one normal serves all their corners, and none of them is looked for.
void makeNormals(const ImportedMesh &mesh, const QVector<QVector3D> &faces, bool needsSides, VertexSplitter *splitter)
{
    size_t count = 0;
    const std::vector<unsigned> places = placesOf(mesh, &count);
    const int corners = mesh.indices.size();
    const float limit = std::cos(qDegreesToRadians(creaseAngle));
    const float halfLimit = std::cos(qDegreesToRadians(creaseAngle / 2));

    std::vector<QVector3D> normals(count);
    std::vector<unsigned> sizes(count);
    const QVector3D *const positions = mesh.positions.constData();
    for (int t = 0; t < faces.size(); ++t) {
        const quint32 *const triangle = mesh.indices.constData() + 3 * t;
        float angles[3];
        anglesOf(positions, triangle, angles);
        for (int c = 0; c < 3; ++c) {
            normals[places[triangle[c]]] += faces.at(t) * angles[c];
            ++sizes[places[triangle[c]]];
        }
    }
    for (QVector3D &normal : normals)
        normal = unit(normal);
    // Within half the angle of the mean, each is within the angle of each other.
    std::vector<bool> isHard(count);
    for (int corner = 0; corner < corners; ++corner) {
        const unsigned place = places[mesh.indices.at(corner)];
        if (QVector3D::dotProduct(faces.at(corner / 3), normals[place]) < halfLimit)
            isHard[place] = sizes[place] <= largestFan;
    }

    const HardCorners hard = hardCorners(mesh, places, isHard);
    std::vector<QVector3D> weighted;
    std::vector<std::pair<unsigned, QVector3D>> hardNormals; // by corner
    hardNormals.reserve(hard.corners.size());
    for (size_t place = 0; place < count; ++place) {
        const unsigned *const begin = hard.corners.data() + hard.starts[place];
        const unsigned *const end = hard.corners.data() + hard.starts[place + 1];
        weighted.clear();
        for (const unsigned *corner = begin; corner != end; ++corner) {
            float angles[3];
            anglesOf(positions, mesh.indices.constData() + *corner / 3 * 3, angles);
            weighted.push_back(faces.at(int(*corner / 3)) * angles[*corner % 3]);
        }
        for (const unsigned *corner = begin; corner != end; ++corner) {
            QVector3D part;
            for (const unsigned *other = begin; other != end; ++other) {
                const float cosine = QVector3D::dotProduct(faces.at(int(*corner / 3)), faces.at(int(*other / 3)));
                if (cosine >= limit)
                    part += weighted[size_t(other - begin)];
            }
            hardNormals.emplace_back(*corner, unit(part));
        }
    }
    // Each corner is looked up before it is set; setting it may send its index to a vertex that was split off.
    for (int corner = 0; corner < corners; ++corner) {
        const unsigned place = places[mesh.indices.at(corner)];
        if (!isHard[place]) {
            const QVector3D face = faces.at(corner / 3);
            splitter->setCorner(
                corner, normals[place].isNull() ? face : normals[place], needsSides ? boxSide(face) : 0);
        }
    }
    for (const auto &[corner, normal] : hardNormals) {
        const QVector3D face = faces.at(int(corner / 3));
        splitter->setCorner(int(corner), normal.isNull() ? face : normal, needsSides ? boxSide(face) : 0);
    }
}

/// Takes out triangles without area; returns the normals of the others.
QVector<QVector3D> dropFlatTriangles(ImportedMesh *mesh)
{
    QVector<QVector3D> faces;
    faces.reserve(mesh->indices.size() / 3);
    int kept = 0;
    quint32 *const indices = mesh->indices.data();
    const QVector3D *const positions = mesh->positions.constData();
    for (int i = 0; i + 2 < mesh->indices.size(); i += 3) {
        const QVector3D normal =
            faceNormal(positions[indices[i]], positions[indices[i + 1]], positions[indices[i + 2]]);
        if (normal.isNull())
            continue;
        faces.append(normal);
        std::copy(indices + i, indices + i + 3, indices + kept);
        kept += 3;
    }
    mesh->indices.resize(kept);
    return faces;
}

/// Makes the normals unit vectors. Returns whether one has no direction.
bool normalize(QVector<QVector3D> *normals)
{
    bool hasNull = false;
    for (QVector3D &normal : *normals) {
        const float square = normal.lengthSquared();
        if (!(std::abs(square - 1) < 1e-6f))
            normal = unit(normal);
        hasNull |= normal.isNull();
    }
    return hasNull;
}

/// Whether most triangles face away from the normals of their corners.
bool isAgainstNormals(const ImportedMesh &mesh, const QVector<QVector3D> &faces)
{
    int against = 0;
    for (int t = 0; t < faces.size(); ++t) {
        QVector3D sum;
        for (int corner = 0; corner < 3; ++corner)
            sum += mesh.normals.at(int(mesh.indices.at(3 * t + corner)));
        against += QVector3D::dotProduct(sum, faces.at(t)) < 0;
    }
    return against > faces.size() / 2;
}

/// Whether the triangles of a mesh face inwards: the volume that they enclose, seen from the middle of its vertices, is negative.
bool facesInwards(const ImportedMesh &mesh)
{
    const BoxProjection box(mesh.positions);
    double volume = 0;
    for (int i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const QVector3D a = mesh.positions.at(int(mesh.indices.at(i))) - box.centre();
        const QVector3D b = mesh.positions.at(int(mesh.indices.at(i + 1))) - box.centre();
        const QVector3D c = mesh.positions.at(int(mesh.indices.at(i + 2))) - box.centre();
        volume += double(QVector3D::dotProduct(a, QVector3D::crossProduct(b, c)));
    }
    return volume < 0;
}

/// Where normals and triangles disagree, turns whichever of the two points inwards; the normals of what has no inside.
QString makeSidesAgree(ImportedMesh *mesh, QVector<QVector3D> *faces)
{
    if (!isAgainstNormals(*mesh, *faces))
        return {};
    if (facesInwards(*mesh)) {
        for (int i = 0; i + 2 < mesh->indices.size(); i += 3)
            std::swap(mesh->indices[i + 1], mesh->indices[i + 2]);
        for (QVector3D &face : *faces)
            face = -face;
        return QStringLiteral("its faces wind against its normals and are turned");
    }
    for (QVector3D &normal : mesh->normals)
        normal = -normal;
    for (QVector4D &tangent : mesh->tangents)
        tangent.setW(-tangent.w()); // the bitangent stays
    return QStringLiteral("its normals point against its faces and are turned");
}

void dropUnusedVertices(ImportedMesh *mesh)
{
    std::vector<unsigned> remap(size_t(mesh->positions.size()), unused);
    for (const quint32 index : qAsConst(mesh->indices))
        remap[index] = 0;
    unsigned count = 0;
    for (unsigned &number : remap) {
        if (number != unused)
            number = count++;
    }
    if (count == remap.size())
        return;
    moveVertices(mesh, remap, int(count));
    for (quint32 &index : mesh->indices)
        index = remap[index];
}

} // namespace

QVector3D faceNormal(const QVector3D &a, const QVector3D &b, const QVector3D &c)
{
    const double x1 = double(b.x()) - double(a.x()), x2 = double(c.x()) - double(a.x());
    const double y1 = double(b.y()) - double(a.y()), y2 = double(c.y()) - double(a.y());
    const double z1 = double(b.z()) - double(a.z()), z2 = double(c.z()) - double(a.z());
    const double x = y1 * z2 - z1 * y2;
    const double y = z1 * x2 - x1 * z2;
    const double z = x1 * y2 - y1 * x2;
    const double length = std::sqrt(x * x + y * y + z * z);
    return length > 0 && std::isfinite(length) ? QVector3D(float(x / length), float(y / length), float(z / length))
                                               : QVector3D();
}

QString completeMesh(ImportedMesh *mesh)
{
    QVector<QVector3D> faces = dropFlatTriangles(mesh);
    if (faces.isEmpty())
        return {};
    const bool hadNormals = !mesh->normals.isEmpty();
    const bool hasNull = normalize(&mesh->normals);
    const QString remark = hadNormals ? makeSidesAgree(mesh, &faces) : QString();
    const bool needsSides = mesh->texCoords.isEmpty();

    if (!hadNormals || hasNull || needsSides) {
        const QVector<QVector3D> given = mesh->normals;
        VertexSplitter splitter(mesh, !hadNormals || hasNull);
        if (!hadNormals) {
            makeNormals(*mesh, faces, needsSides, &splitter);
        } else {
            for (int corner = 0; corner < mesh->indices.size(); ++corner) {
                const QVector3D face = faces.at(corner / 3);
                const QVector3D normal = given.at(int(mesh->indices.at(corner)));
                splitter.setCorner(corner, normal.isNull() ? face : normal, needsSides ? boxSide(face) : 0);
            }
        }
        if (needsSides) {
            const BoxProjection projection(mesh->positions);
            mesh->texCoords.resize(mesh->positions.size());
            for (int v = 0; v < mesh->positions.size(); ++v)
                mesh->texCoords[v] = projection.project(mesh->positions.at(v), splitter.sides()[size_t(v)]);
        }
    }
    for (QVector<QVector2D> *set : {&mesh->texCoords, &mesh->texCoords1}) {
        for (QVector2D &texCoord : *set) {
            if (!std::isfinite(texCoord.x()) || !std::isfinite(texCoord.y()))
                texCoord = QVector2D();
        }
    }
    dropUnusedVertices(mesh);
    return remark;
}

void orderForCache(ImportedMesh *mesh)
{
    const auto indexCount = size_t(mesh->indices.size());
    const auto vertexCount = size_t(mesh->positions.size());
    meshopt_optimizeVertexCache(mesh->indices.data(), mesh->indices.constData(), indexCount, vertexCount);
    std::vector<unsigned> remap(vertexCount);
    const size_t count =
        meshopt_optimizeVertexFetchRemap(remap.data(), mesh->indices.constData(), indexCount, vertexCount);
    moveVertices(mesh, remap, int(count));
    meshopt_remapIndexBuffer(mesh->indices.data(), mesh->indices.constData(), indexCount, remap.data());
}

void moveVertices(ImportedMesh *mesh, const std::vector<unsigned> &remap, int count)
{
    moveArray(&mesh->positions, remap, count);
    moveArray(&mesh->normals, remap, count);
    moveArray(&mesh->texCoords, remap, count);
    moveArray(&mesh->texCoords1, remap, count);
    moveArray(&mesh->colours, remap, count);
    moveArray(&mesh->tangents, remap, count);
}

} // namespace Velmora::Kvz
