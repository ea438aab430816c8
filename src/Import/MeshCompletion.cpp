// SPDX-License-Identifier: MIT
#include "MeshCompletion.h"

#include "PositionTable.h"
#include "ZeroRounding.h"

#include <QtCore/QLocale>
#include <QtCore/QStringList>
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

/// As QVector3D::dotProduct(), in place: loops over triangles call it.
float dot(const QVector3D &a, const QVector3D &b)
{
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}

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
class Places
{
public:
    Places(const ImportedMesh &mesh, Positions positions)
        : m_count(size_t(mesh.positions.size()))
    {
        if (positions == Positions::Distinct)
            return;
        PositionTable table(m_count);
        m_places.reserve(m_count);
        const ZeroRounding rounded(reinterpret_cast<const float *>(mesh.positions.constData()), m_count);
        for (int v = 0; v < mesh.positions.size(); ++v) {
            table.prefetch(rounded(mesh.positions.at(std::min(v + 16, mesh.positions.size() - 1))));
            m_places.push_back(table.numberOf(rounded(mesh.positions.at(v))));
        }
        m_count = table.positions().size();
    }

    size_t count() const { return m_count; }
    unsigned operator[](unsigned vertex) const { return m_places.empty() ? vertex : m_places[vertex]; }

private:
    size_t m_count;
    std::vector<unsigned> m_places; // by vertex; empty: each has its own
};

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

    /// Gives vertices of one normal the sides of their corners.
    void setSide(int corner, int side)
    {
        qint8 &known = m_sides[m_mesh->indices.constData()[corner]];
        if (known < 0)
            known = qint8(side);
        else if (known != side)
            setCorner(corner, m_mesh->normals.at(int(m_mesh->indices.at(corner))), side);
    }

    // By value: the normal may be one of the mesh's, whose array grows.
    void setCorner(int corner, QVector3D normal, int side)
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

/// The direction that a triangle faces and the angles at its corners. In double precision, since models may be some millionths
/// across. False for one without area.
bool measure(const QVector3D *positions, const quint32 *corners, QVector3D *normal, float angles[3])
{
    const QVector3D &a = positions[corners[0]];
    const QVector3D &b = positions[corners[1]];
    const QVector3D &c = positions[corners[2]];
    const double ux = double(b.x()) - double(a.x()), vx = double(c.x()) - double(a.x()), wx = vx - ux;
    const double uy = double(b.y()) - double(a.y()), vy = double(c.y()) - double(a.y()), wy = vy - uy;
    const double uz = double(b.z()) - double(a.z()), vz = double(c.z()) - double(a.z()), wz = vz - uz;
    const double x = uy * vz - uz * vy;
    const double y = uz * vx - ux * vz;
    const double z = ux * vy - uy * vx;
    const double twiceArea = std::sqrt(x * x + y * y + z * z);
    if (!(twiceArea > 0) || !std::isfinite(twiceArea))
        return false;
    const double u = 1 / std::sqrt(ux * ux + uy * uy + uz * uz);
    const double v = 1 / std::sqrt(vx * vx + vy * vy + vz * vz);
    const double w = 1 / std::sqrt(wx * wx + wy * wy + wz * wz);
    *normal = QVector3D(float(x / twiceArea), float(y / twiceArea), float(z / twiceArea));
    angles[0] = angleOf(float(twiceArea * u * v), float((ux * vx + uy * vy + uz * vz) * u * v));
    angles[1] = angleOf(float(twiceArea * u * w), float(-(ux * wx + uy * wy + uz * wz) * u * w));
    angles[2] = angleOf(float(twiceArea * v * w), float((vx * wx + vy * wy + vz * wz) * v * w));
    return true;
}

enum class Edge : quint8 {
    Soft, ///< One normal serves all corners of a place.
    Hard, ///< Each corner has the normal of the triangles on its side of an edge.
    Crowded ///< Hard, but for too many triangles: one normal serves all.
};

/// The corners at places with a hard edge, place by place. Notes those that are crowded.
struct HardCorners
{
    std::vector<unsigned> starts; // by place, one more than there are
    std::vector<unsigned> corners;
};

HardCorners hardCorners(const ImportedMesh &mesh, const Places &places, std::vector<Edge> *edges)
{
    HardCorners result;
    result.starts.resize(edges->size() + 1);
    for (const quint32 vertex : mesh.indices) {
        const unsigned place = places[vertex];
        result.starts[place + 1] += (*edges)[place] == Edge::Hard;
    }
    for (size_t place = 0; place < edges->size(); ++place) {
        unsigned &size = result.starts[place + 1];
        if (size > largestFan) {
            (*edges)[place] = Edge::Crowded;
            size = 0;
        }
        size += result.starts[place];
    }
    result.corners.resize(result.starts.back());
    std::vector<unsigned> next(result.starts.begin(), result.starts.end() - 1);
    for (int corner = 0; corner < mesh.indices.size(); ++corner) {
        const unsigned place = places[mesh.indices.at(corner)];
        if ((*edges)[place] == Edge::Hard)
            result.corners[next[place]++] = unsigned(corner);
    }
    return result;
}

/// The normals of corners at hard edges: the mean of the triangles at their place, without those across an edge.
std::vector<std::pair<unsigned, QVector3D>> hardNormals(
    const ImportedMesh &mesh, const QVector<QVector3D> &faces, const HardCorners &hard)
{
    const float limit = std::cos(qDegreesToRadians(creaseAngle));
    std::vector<std::pair<unsigned, QVector3D>> normals; // by corner
    normals.reserve(hard.corners.size());
    std::vector<QVector3D> weighted;
    for (size_t place = 0; place + 1 < hard.starts.size(); ++place) {
        const unsigned *const begin = hard.corners.data() + hard.starts[place];
        const unsigned *const end = hard.corners.data() + hard.starts[place + 1];
        weighted.clear();
        for (const unsigned *corner = begin; corner != end; ++corner) {
            QVector3D face;
            float angles[3];
            measure(mesh.positions.constData(), mesh.indices.constData() + *corner / 3 * 3, &face, angles);
            weighted.push_back(face * angles[*corner % 3]);
        }
        for (const unsigned *corner = begin; corner != end; ++corner) {
            QVector3D part;
            for (const unsigned *other = begin; other != end; ++other) {
                const float cosine = dot(faces.at(int(*corner / 3)), faces.at(int(*other / 3)));
                if (cosine >= limit)
                    part += weighted[size_t(other - begin)];
            }
            normals.emplace_back(*corner, unit(part));
        }
    }
    return normals;
}

/// Takes out triangles without area, and makes smooth normals: the mean of the triangles that meet at a place, each by its angle
/// there, without those across a hard edge. Most places have no hard edge: one normal serves all their corners, and none
/// of them is looked for. Where texture coordinates are to be made, vertices are split by the side of the box too.
class NormalMaker
{
public:
    NormalMaker(ImportedMesh *mesh, Positions positions, QVector<QVector3D> *faces)
        : m_mesh(mesh),
          m_faces(faces),
          m_places(*mesh, positions)
    { }

    /// False where no triangle has an area.
    bool measureTriangles();
    void setNormals(bool needsSides, VertexSplitter *splitter);

private:
    void findEdges();

    ImportedMesh *m_mesh;
    QVector<QVector3D> *m_faces;
    Places m_places;
    std::vector<QVector3D> m_normals; // by place
    std::vector<Edge> m_edges; // by place
};

bool NormalMaker::measureTriangles()
{
    m_normals.resize(m_places.count());
    quint32 *const indices = m_mesh->indices.data();
    const QVector3D *const positions = m_mesh->positions.constData();
    m_faces->resize(m_mesh->indices.size() / 3);
    QVector3D *face = m_faces->data();
    quint32 *kept = indices;
    for (int i = 0; i + 2 < m_mesh->indices.size(); i += 3) {
        float angles[3];
        if (!measure(positions, indices + i, face, angles))
            continue;
        for (int corner = 0; corner < 3; ++corner) {
            m_normals[m_places[indices[i + corner]]] += *face * angles[corner];
            *kept++ = indices[i + corner];
        }
        ++face;
    }
    m_faces->resize(int(face - m_faces->constData()));
    m_mesh->indices.resize(3 * m_faces->size());
    for (QVector3D &normal : m_normals)
        normal = unit(normal);
    return !m_faces->isEmpty();
}

void NormalMaker::findEdges()
{
    const float halfLimit = std::cos(qDegreesToRadians(creaseAngle / 2));
    m_edges.assign(m_places.count(), Edge::Soft);
    // Within half the angle of the mean, each is within the angle of each other.
    const quint32 *index = m_mesh->indices.constData();
    for (const QVector3D &face : qAsConst(*m_faces)) {
        for (const quint32 *const end = index + 3; index != end; ++index) {
            const unsigned place = m_places[*index];
            if (dot(face, m_normals[place]) < halfLimit)
                m_edges[place] = Edge::Hard;
        }
    }
}

void NormalMaker::setNormals(bool needsSides, VertexSplitter *splitter)
{
    findEdges();
    HardCorners hard;
    if (std::find(m_edges.begin(), m_edges.end(), Edge::Hard) != m_edges.end())
        hard = hardCorners(*m_mesh, m_places, &m_edges);
    QVector3D *const normals = m_mesh->normals.data();
    for (int v = 0; v < m_mesh->positions.size(); ++v)
        normals[v] = m_normals[m_places[unsigned(v)]];
    // Each corner is looked up before it is set; setting it may send its index to a vertex that was split off.
    for (int t = 0; t < m_faces->size(); ++t) {
        const QVector3D &face = m_faces->at(t);
        const int side = needsSides ? boxSide(face) : 0;
        for (int corner = 3 * t; corner < 3 * t + 3; ++corner) {
            const unsigned place = m_places[m_mesh->indices.at(corner)];
            if (m_edges[place] == Edge::Soft)
                splitter->setSide(corner, side);
            else if (m_edges[place] == Edge::Crowded)
                splitter->setCorner(corner, m_normals[place].isNull() ? face : m_normals[place], side);
        }
    }
    for (const auto &[corner, normal] : hardNormals(*m_mesh, *m_faces, hard)) {
        const QVector3D face = m_faces->at(int(corner / 3));
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
    const QVector3D *const normals = mesh.normals.constData();
    const quint32 *index = mesh.indices.constData();
    for (const QVector3D &face : faces) {
        against += dot(normals[index[0]] + normals[index[1]] + normals[index[2]], face) < 0;
        index += 3;
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

/// Turns the triangles that face clearly away from the normals of all their corners; returns how many.
int turnTrianglesAgainstNormals(ImportedMesh *mesh, QVector<QVector3D> *faces)
{
    constexpr float clearly = -0.25f; // normals of coarse surfaces lean away from their triangles
    const QVector3D *const normals = mesh->normals.constData();
    const auto isAgainst = [&](const quint32 *corners, const QVector3D &face) {
        return std::all_of(corners, corners + 3, [&](quint32 corner) { return dot(normals[corner], face) < clearly; });
    };
    int turned = 0;
    quint32 *index = mesh->indices.data();
    for (QVector3D &face : *faces) {
        if (isAgainst(index, face)) {
            std::swap(index[1], index[2]);
            face = -face;
            ++turned;
        }
        index += 3;
    }
    return turned;
}

/// Where most triangles disagree with the normals, turns whichever of the two points inwards; the normals of what has no inside.
QString turnMost(ImportedMesh *mesh, QVector<QVector3D> *faces)
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

/// Makes normals and triangles agree; returns what was done.
QString makeSidesAgree(ImportedMesh *mesh, QVector<QVector3D> *faces)
{
    const QString most = turnMost(mesh, faces);
    const int turned = turnTrianglesAgainstNormals(mesh, faces);
    if (turned * 100 < faces->size()) // strays, as at the tips of coarse surfaces: nothing to see
        return most;
    const QLocale english(QLocale::English);
    const QString single = QStringLiteral("%1 of its %2 triangles %3")
                               .arg(english.toString(turned), english.toString(faces->size()),
                                   turned == 1 ? QStringLiteral("winds against its normals and is turned")
                                               : QStringLiteral("wind against their normals and are turned"));
    return most.isEmpty() ? single : QStringLiteral("%1; %2").arg(most, single);
}

/// Gives corners the sides of the box, where they are needed, and the normals of their triangles where they have none.
void setSides(
    const ImportedMesh &mesh, const QVector<QVector3D> &faces, bool hasNull, bool needsSides, VertexSplitter *splitter)
{
    const QVector<QVector3D> given = hasNull ? mesh.normals : QVector<QVector3D>();
    for (int corner = 0; corner < mesh.indices.size(); ++corner) {
        const QVector3D &face = faces.at(corner / 3);
        const int side = needsSides ? boxSide(face) : 0;
        if (!hasNull) {
            splitter->setSide(corner, side);
            continue;
        }
        const QVector3D normal = given.at(int(mesh.indices.at(corner)));
        splitter->setCorner(corner, normal.isNull() ? face : normal, side);
    }
}

/// Gives vertices texture coordinates by the sides of the box that their triangles face.
void projectOntoBox(ImportedMesh *mesh, const std::vector<qint8> &sides)
{
    const BoxProjection projection(mesh->positions);
    mesh->texCoords.resize(mesh->positions.size());
    QVector2D *const texCoords = mesh->texCoords.data();
    for (int v = 0; v < mesh->positions.size(); ++v)
        texCoords[v] = projection.project(mesh->positions.at(v), sides[size_t(v)]);
}

/// Makes colours that are not finite white and leaves out tangents that are not all finite. Returns what it did, in words.
QString mendColoursAndTangents(ImportedMesh *mesh)
{
    const auto isUnfit = [](const QVector4D &vector) {
        return !std::isfinite(vector.x()) || !std::isfinite(vector.y()) || !std::isfinite(vector.z())
            || !std::isfinite(vector.w());
    };
    QStringList remarks;
    const auto unfitColours = std::count_if(mesh->colours.cbegin(), mesh->colours.cend(), isUnfit);
    if (unfitColours > 0) {
        std::replace_if(mesh->colours.begin(), mesh->colours.end(), isUnfit, QVector4D(1, 1, 1, 1));
        remarks.append(
            QStringLiteral("colours that are not finite numbers are white (%1)").arg(QString::number(unfitColours)));
    }
    if (std::any_of(mesh->tangents.cbegin(), mesh->tangents.cend(), isUnfit)) {
        mesh->tangents.clear();
        remarks.append(QStringLiteral("its tangents are not all finite numbers and are left out"));
    }
    return remarks.join(QStringLiteral("; "));
}

void dropUnusedVertices(ImportedMesh *mesh)
{
    std::vector<quint8> used(size_t(mesh->positions.size()));
    for (const quint32 index : qAsConst(mesh->indices))
        used[index] = 1;
    if (std::find(used.begin(), used.end(), 0) == used.end())
        return;
    std::vector<unsigned> remap(used.size(), unused);
    unsigned count = 0;
    for (size_t v = 0; v < used.size(); ++v) {
        if (used[v] != 0)
            remap[v] = count++;
    }
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

QString completeMesh(ImportedMesh *mesh, Positions positions)
{
    const bool hadNormals = !mesh->normals.isEmpty();
    const bool needsSides = mesh->texCoords.isEmpty();
    const QString mends = mendColoursAndTangents(mesh);
    QString remark;
    if (!hadNormals) {
        QVector<QVector3D> faces;
        NormalMaker maker(mesh, positions, &faces);
        if (!maker.measureTriangles())
            return {};
        VertexSplitter splitter(mesh, true);
        maker.setNormals(needsSides, &splitter);
        if (needsSides)
            projectOntoBox(mesh, splitter.sides());
    } else {
        QVector<QVector3D> faces = dropFlatTriangles(mesh);
        if (faces.isEmpty())
            return {};
        const bool hasNull = normalize(&mesh->normals);
        remark = makeSidesAgree(mesh, &faces);
        if (hasNull || needsSides) {
            VertexSplitter splitter(mesh, hasNull);
            setSides(*mesh, faces, hasNull, needsSides, &splitter);
            if (needsSides)
                projectOntoBox(mesh, splitter.sides());
        }
    }
    for (QVector<QVector2D> *set : {&mesh->texCoords, &mesh->texCoords1}) {
        for (QVector2D &texCoord : *set) {
            if (!std::isfinite(texCoord.x()) || !std::isfinite(texCoord.y()))
                texCoord = QVector2D();
        }
    }
    dropUnusedVertices(mesh);
    return mends.isEmpty() || remark.isEmpty() ? mends + remark : mends + QStringLiteral("; ") + remark;
}

void weld(ImportedMesh *mesh)
{
    const auto count = size_t(mesh->positions.size());
    std::vector<meshopt_Stream> streams{{mesh->positions.constData(), sizeof(QVector3D), sizeof(QVector3D)}};
    if (!mesh->normals.isEmpty())
        streams.push_back({mesh->normals.constData(), sizeof(QVector3D), sizeof(QVector3D)});
    for (const QVector<QVector2D> *set : {&mesh->texCoords, &mesh->texCoords1}) {
        if (!set->isEmpty())
            streams.push_back({set->constData(), sizeof(QVector2D), sizeof(QVector2D)});
    }
    for (const QVector<QVector4D> *set : {&mesh->colours, &mesh->tangents}) {
        if (!set->isEmpty())
            streams.push_back({set->constData(), sizeof(QVector4D), sizeof(QVector4D)});
    }
    std::vector<unsigned> remap(count);
    const size_t welded = meshopt_generateVertexRemapMulti(
        remap.data(), mesh->indices.constData(), size_t(mesh->indices.size()), count, streams.data(), streams.size());
    moveVertices(mesh, remap, int(welded));
    meshopt_remapIndexBuffer(
        mesh->indices.data(), mesh->indices.constData(), size_t(mesh->indices.size()), remap.data());
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
