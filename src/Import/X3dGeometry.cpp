// SPDX-License-Identifier: MIT
#include "X3dGeometry.h"

#include "XmlTree.h"

#include <QtCore/QByteArray>
#include <QtCore/QVector>
#include <QtCore/QtMath>
#include <QtGui/QVector3D>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <vector>

namespace Velmora::Kvz {

namespace {

const QString faceSet = QStringLiteral("IndexedFaceSet");
const QString point = QStringLiteral("point");
const QString coordIndex = QStringLiteral("coordIndex");

QVector<float> numbersOf(const QString &text)
{
    QVector<float> numbers;
    const QByteArray words = text.toLatin1().replace(',', ' ').simplified();
    for (int begin = 0; begin < words.size();) {
        const int space = words.indexOf(' ', begin);
        const int end = space < 0 ? words.size() : space;
        numbers.append(words.mid(begin, end - begin).toFloat());
        begin = end + 1;
    }
    return numbers;
}

QVector<int> indicesOf(const QString &text)
{
    QVector<int> indices;
    for (const float number : numbersOf(text))
        indices.append(int(number));
    return indices;
}

float numberOf(const XmlElement &element, const char *attribute, float otherwise)
{
    bool fits = false;
    const float value = element.value(QLatin1String(attribute)).toFloat(&fits);
    return fits && std::isfinite(value) ? value : otherwise;
}

bool isFalse(const XmlElement &element, const char *attribute)
{
    return element.value(QLatin1String(attribute)).trimmed().toLower() == QLatin1String("false");
}

QString textOf(const QVector<float> &numbers)
{
    QByteArray text;
    for (const float number : numbers)
        text += QByteArray::number(double(number), 'g', 9) + ' ';
    return QString::fromLatin1(text);
}

/// The faces of a set, corner by corner.
struct Faces
{
    std::vector<int> starts{0}; // of corners, one more than there are faces
    std::vector<int> vertices; // by corner
    std::vector<int> places; // by corner: in the list of indices, which has ends of faces too

    explicit Faces(const QVector<int> &indices)
    {
        for (int i = 0; i < indices.size(); ++i) {
            if (indices[i] >= 0) {
                vertices.push_back(indices[i]);
                places.push_back(i);
            }
            const bool isEnd = indices[i] < 0 || i + 1 == indices.size();
            if (isEnd && int(vertices.size()) > starts.back())
                starts.push_back(int(vertices.size()));
        }
    }

    int count() const { return int(starts.size()) - 1; }
};

QVector3D vertexOf(const QVector<float> &points, int vertex)
{
    return {points[3 * vertex], points[3 * vertex + 1], points[3 * vertex + 2]};
}

/// Twice the area of a face along its normal.
QVector3D areaOf(const QVector<float> &points, const Faces &faces, int face)
{
    QVector3D sum;
    const QVector3D origin = vertexOf(points, faces.vertices[size_t(faces.starts[size_t(face)])]);
    for (int corner = faces.starts[size_t(face)] + 1; corner + 1 < faces.starts[size_t(face) + 1]; ++corner)
        sum += QVector3D::crossProduct(vertexOf(points, faces.vertices[size_t(corner)]) - origin,
            vertexOf(points, faces.vertices[size_t(corner) + 1]) - origin);
    return sum;
}

/// The normals of corners: the mean of the faces around a vertex by their areas, without those beyond the crease angle.
QVector<float> creasedNormals(const QVector<float> &points, const Faces &faces, float creaseAngle)
{
    constexpr size_t largestFan = 256; // beyond, time would be quadratic
    std::vector<QVector3D> areas;
    std::vector<QVector3D> normals;
    std::vector<std::vector<int>> fans(size_t(points.size() / 3));
    for (int face = 0; face < faces.count(); ++face) {
        areas.push_back(areaOf(points, faces, face));
        normals.push_back(areas.back().normalized());
        for (int corner = faces.starts[size_t(face)]; corner < faces.starts[size_t(face) + 1]; ++corner)
            fans[size_t(faces.vertices[size_t(corner)])].push_back(face);
    }
    const float limit = std::cos(std::min(creaseAngle, float(M_PI))) - 1e-6f;
    QVector<float> result;
    for (int face = 0; face < faces.count(); ++face) {
        for (int corner = faces.starts[size_t(face)]; corner < faces.starts[size_t(face) + 1]; ++corner) {
            const std::vector<int> &fan = fans[size_t(faces.vertices[size_t(corner)])];
            QVector3D sum = areas[size_t(face)];
            for (size_t i = 0; i < fan.size() && fan.size() <= largestFan && creaseAngle > 0; ++i) {
                if (fan[i] != face && QVector3D::dotProduct(normals[size_t(fan[i])], normals[size_t(face)]) >= limit)
                    sum += areas[size_t(fan[i])];
            }
            sum.normalize();
            result << sum.x() << sum.y() << sum.z();
        }
    }
    return result;
}

/// One property of corners: colours, normals or texture coordinates with `width` numbers each.
class Property
{
public:
    Property(const XmlElement &set, const XmlElement &node, const QString &list, int width, const char *indices,
        const char *perVertex)
        : m_values(numbersOf(node.value(list))),
          m_indices(indicesOf(set.value(QLatin1String(indices)))),
          m_width(width),
          m_isOfFaces(perVertex && isFalse(set, perVertex))
    { }

    bool isOfFaces() const { return m_isOfFaces; }

    /// By corner; empty where an index is not there.
    QVector<float> ofCorners(const Faces &faces) const
    {
        QVector<float> result;
        for (int face = 0; face < faces.count(); ++face) {
            for (int corner = faces.starts[size_t(face)]; corner < faces.starts[size_t(face) + 1]; ++corner) {
                const int place = m_isOfFaces ? face : faces.places[size_t(corner)];
                const int own = m_isOfFaces ? face : faces.vertices[size_t(corner)];
                const int index = m_indices.isEmpty() ? own : m_indices.value(place, -1);
                if (index < 0 || (index + 1) * m_width > m_values.size())
                    return {};
                for (int i = 0; i < m_width; ++i)
                    result.append(m_values[index * m_width + i]);
            }
        }
        return result;
    }

private:
    QVector<float> m_values;
    QVector<int> m_indices;
    int m_width;
    bool m_isOfFaces;
};

XmlElement *partOf(XmlElement *set, const QString &start)
{
    const auto found = std::find_if(set->children.begin(), set->children.end(),
        [&start](const XmlElement &child) { return child.name.startsWith(start); });
    return found == set->children.end() ? nullptr : &*found;
}

/// Whether the parts of a set are its own.
bool ownsItsParts(const XmlElement &set, const QSet<QString> &used)
{
    return std::none_of(set.children.begin(), set.children.end(), [&used](const XmlElement &child) {
        return child.has(QStringLiteral("USE")) || used.contains(child.value(QStringLiteral("DEF")));
    });
}

void expandFaces(XmlElement *set, const QSet<QString> &used)
{
    XmlElement *const coordinate = partOf(set, QStringLiteral("Coordinate"));
    if (!coordinate || !ownsItsParts(*set, used))
        return;
    const QVector<float> points = numbersOf(coordinate->value(point));
    const Faces faces(indicesOf(set->value(coordIndex)));
    const bool isDamaged = std::any_of(faces.vertices.begin(), faces.vertices.end(),
        [&points](int vertex) { return 3 * vertex + 2 >= points.size(); });
    if (isDamaged || faces.count() == 0)
        return; // assimp says so
    XmlElement *const colour = partOf(set, QStringLiteral("Color"));
    XmlElement *const normal = partOf(set, QStringLiteral("Normal"));
    XmlElement *const texture = partOf(set, QStringLiteral("TextureCoordinate"));
    const QString colourList = QStringLiteral("color"), normalList = QStringLiteral("vector");
    const int channels = colour && colour->name == QLatin1String("ColorRGBA") ? 4 : 3;
    QVector<float> colours, normals, texCoords;
    bool isNeeded = !normal;
    if (colour) {
        const Property property(*set, *colour, colourList, channels, "colorIndex", "colorPerVertex");
        isNeeded |= property.isOfFaces();
        colours = property.ofCorners(faces);
    }
    if (normal) {
        const Property property(*set, *normal, normalList, 3, "normalIndex", "normalPerVertex");
        isNeeded |= property.isOfFaces();
        normals = property.ofCorners(faces);
    } else {
        normals = creasedNormals(points, faces, numberOf(*set, "creaseAngle", 0));
    }
    if (texture)
        texCoords = Property(*set, *texture, point, 2, "texCoordIndex", nullptr).ofCorners(faces);
    if (!isNeeded || normals.isEmpty() || (colour && colours.isEmpty()) || (texture && texCoords.isEmpty()))
        return;
    QVector<float> corners;
    QByteArray indices;
    for (int face = 0; face < faces.count(); ++face) {
        for (int corner = faces.starts[size_t(face)]; corner < faces.starts[size_t(face) + 1]; ++corner) {
            const QVector3D at = vertexOf(points, faces.vertices[size_t(corner)]);
            corners << at.x() << at.y() << at.z();
            indices += QByteArray::number(corner) + ' ';
        }
        indices += "-1 ";
    }
    coordinate->set(point, textOf(corners));
    if (colour)
        colour->set(colourList, textOf(colours));
    if (texture)
        texture->set(point, textOf(texCoords));
    if (normal) {
        normal->set(normalList, textOf(normals));
    } else {
        XmlElement made;
        made.name = QStringLiteral("Normal");
        made.set(normalList, textOf(normals));
        set->children.push_back(made); // the pointers to children end here
    }
    set->set(coordIndex, QString::fromLatin1(indices));
    for (const char *attribute : {"colorIndex", "normalIndex", "texCoordIndex", "colorPerVertex", "normalPerVertex"})
        set->remove(QLatin1String(attribute));
}

/// A cone with its tip up, or a cylinder: sides and lids as faces, smooth around.
void makeRound(XmlElement *shape)
{
    constexpr int segments = 32;
    const bool isCone = shape->name == QLatin1String("Cone");
    const float radius = numberOf(*shape, isCone ? "bottomRadius" : "radius", 1);
    const float half = numberOf(*shape, "height", 2) / 2;
    QVector<float> points;
    for (const float y : {-half, half}) {
        for (int i = 0; i < segments; ++i) {
            // The first is at the back, where images begin.
            const double angle = 2 * M_PI * i / segments;
            const float r = isCone && y == half ? 0 : radius;
            points << -r * float(std::sin(angle)) << y << -r * float(std::cos(angle));
        }
    }
    QByteArray indices;
    const auto add = [&indices](std::initializer_list<int> corners) {
        for (const int corner : corners)
            indices += QByteArray::number(corner) + ' ';
        indices += "-1 ";
    };
    for (int i = 0; i < segments && !isFalse(*shape, "side"); ++i) {
        const int next = (i + 1) % segments;
        if (isCone)
            add({i, next, segments + i});
        else
            add({i, next, segments + next, segments + i});
    }
    QByteArray bottom, top;
    for (int i = 0; i < segments; ++i) {
        bottom += QByteArray::number(segments - 1 - i) + ' ';
        top += QByteArray::number(segments + i) + ' ';
    }
    if (!isFalse(*shape, "bottom"))
        indices += bottom + "-1 ";
    if (!isCone && !isFalse(*shape, "top"))
        indices += top + "-1 ";
    XmlElement coordinate;
    coordinate.name = QStringLiteral("Coordinate");
    coordinate.set(point, textOf(points));
    for (const char *attribute : {"bottomRadius", "radius", "height", "side", "bottom", "top"})
        shape->remove(QLatin1String(attribute));
    shape->name = faceSet;
    shape->set(coordIndex, QString::fromLatin1(indices));
    shape->set(QStringLiteral("creaseAngle"), QStringLiteral("1"));
    shape->children.push_back(coordinate);
}

} // namespace

void rewriteGeometry(XmlElement *geometry, const QSet<QString> &used)
{
    const bool isRound = geometry->name == QLatin1String("Cone") || geometry->name == QLatin1String("Cylinder");
    if (geometry->has(QStringLiteral("USE"))) {
        if (isRound)
            geometry->name = faceSet;
        return;
    }
    if (isRound)
        makeRound(geometry);
    if (geometry->name == faceSet)
        expandFaces(geometry, used);
}

} // namespace Velmora::Kvz
