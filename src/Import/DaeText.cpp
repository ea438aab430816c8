// SPDX-License-Identifier: MIT
#include "DaeText.h"

#include "PolygonCutter.h"
#include "XmlTree.h"

#include <QtCore/QVector>
#include <QtGui/QVector3D>

#include <algorithm>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// The text without blanks between a tag and the numbers behind or before it, and without line breaks among these. Null where there
/// are none. Long lists, where assimp takes them, stay.
QByteArray trimmedNumbers(const QByteArray &text)
{
    constexpr int longest = 1000;
    QByteArray plain;
    int copied = 0;
    for (int open = text.indexOf('>'); open >= 0; open = text.indexOf('>', open + 1)) {
        const int begin = open + 1;
        const int end = text.indexOf('<', begin);
        if (end < 0)
            break;
        if (end - begin > longest)
            continue;
        QByteArray piece = text.mid(begin, end - begin).trimmed();
        std::replace_if(
            piece.begin(), piece.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        const bool isSame = piece.size() == end - begin && std::equal(piece.begin(), piece.end(), text.begin() + begin);
        if (piece.isEmpty() || isSame)
            continue;
        plain.append(text.constData() + copied, begin - copied).append(piece);
        copied = end;
    }
    return copied > 0 ? plain + text.mid(copied) : QByteArray();
}

/// The element of a mesh that a reference such as "#positions" means; null where there is none.
const XmlElement *referred(const XmlElement &mesh, const QString &reference)
{
    const auto found = std::find_if(mesh.children.begin(), mesh.children.end(), [&](const XmlElement &child) {
        return !reference.isEmpty() && child.value(QStringLiteral("id")) == reference.mid(1);
    });
    return found == mesh.children.end() ? nullptr : &*found;
}

const XmlElement *inputOf(const XmlElement &element, const char *semantic)
{
    for (const XmlElement &child : element.children) {
        if (child.name == QLatin1String("input") && child.value(QStringLiteral("semantic")) == QLatin1String(semantic))
            return &child;
    }
    return nullptr;
}

/// The positions that polygons of a mesh count. Empty where they cannot be found.
QVector<QVector3D> positionsOf(const XmlElement &mesh, const XmlElement &polygons)
{
    static const QString source = QStringLiteral("source");
    const XmlElement *const vertexInput = inputOf(polygons, "VERTEX");
    const XmlElement *const vertices = vertexInput ? referred(mesh, vertexInput->value(source)) : nullptr;
    const XmlElement *const positionInput = vertices ? inputOf(*vertices, "POSITION") : nullptr;
    const XmlElement *const data = positionInput ? referred(mesh, positionInput->value(source)) : nullptr;
    const XmlElement *const array = data ? data->child(QStringLiteral("float_array")) : nullptr;
    if (!array)
        return {};
    const XmlElement *const technique = data->child(QStringLiteral("technique_common"));
    const XmlElement *const accessor = technique ? technique->child(QStringLiteral("accessor")) : nullptr;
    const int stride = accessor ? std::max(accessor->value(QStringLiteral("stride")).toInt(), 3) : 3;
    const QString words = array->text.simplified();
    QVector<QVector3D> positions;
    int component = 0;
    for (const QStringRef &word : words.splitRef(QLatin1Char(' '))) {
        if (component % stride == 0)
            positions.append(QVector3D());
        if (component % stride < 3)
            positions.last()[component % stride] = word.toFloat();
        ++component;
    }
    return positions;
}

} // namespace

DaeText::DaeText(const QByteArray &text)
{
    XmlElement root;
    if (!text.contains("<polygons") || !readXml(text, &root)) {
        m_plain = trimmedNumbers(text);
        return;
    }
    joinHoles(&root);
    const QByteArray joined = writeXml(root);
    m_plain = trimmedNumbers(joined);
    if (m_plain.isNull())
        m_plain = joined;
}

void DaeText::joinHoles(XmlElement *element)
{
    for (XmlElement &child : element->children) {
        if (child.name == QLatin1String("polygons"))
            joinHoles(*element, &child);
        else
            joinHoles(&child);
    }
}

/// Puts a polygon without holes in the place of each that has some, and says how many there are: assimp ends the process where a
/// file is wrong in that.
void DaeText::joinHoles(const XmlElement &mesh, XmlElement *polygons)
{
    static const QString offset = QStringLiteral("offset");
    int stride = 1;
    for (const XmlElement &child : polygons->children)
        stride = std::max(stride, child.value(offset).toInt() + 1);
    const XmlElement *const vertexInput = inputOf(*polygons, "VERTEX");
    const int vertexOffset = vertexInput ? vertexInput->value(offset).toInt() : 0;
    QVector<QVector3D> positions;
    for (XmlElement &polygon : polygons->children) {
        if (polygon.name != QLatin1String("ph"))
            continue;
        if (positions.isEmpty())
            positions = positionsOf(mesh, *polygons);
        // Corners are groups of `stride` indices; those of the outline come first.
        QStringList corners;
        std::vector<std::vector<unsigned>> loops;
        std::vector<QVector3D> places;
        bool areFound = true;
        const auto addLoop = [&](const QString &text) {
            const QString plain = text.simplified();
            const QStringList words = plain.split(QLatin1Char(' '));
            loops.emplace_back();
            for (int word = 0; word + stride <= words.size(); word += stride) {
                const int vertex = words[word + vertexOffset].toInt();
                areFound &= vertex >= 0 && vertex < positions.size();
                loops.back().push_back(unsigned(corners.size()));
                corners.append(QStringList(words.mid(word, stride)).join(QLatin1Char(' ')));
                places.push_back(areFound ? positions[vertex] : QVector3D());
            }
        };
        const XmlElement *const outline = polygon.child(QStringLiteral("p"));
        addLoop(outline ? outline->text : QString());
        for (const XmlElement &child : polygon.children) {
            if (child.name == QLatin1String("h"))
                addLoop(child.text);
        }
        std::vector<unsigned> order = areFound ? joinedLoops(places, loops) : std::vector<unsigned>();
        if (order.empty()) {
            m_filledHoles += int(loops.size()) - 1;
            order = loops.front();
        }
        XmlElement joined;
        joined.name = QStringLiteral("p");
        QStringList words;
        for (const unsigned corner : order)
            words.append(corners[int(corner)]);
        joined.text = words.join(QLatin1Char(' '));
        polygon = joined;
    }
    const auto count = std::count_if(polygons->children.begin(), polygons->children.end(),
        [](const XmlElement &child) { return child.name == QLatin1String("p"); });
    polygons->set(QStringLiteral("count"), QString::number(count));
}

QStringList DaeText::warnings() const
{
    if (m_filledHoles == 0)
        return {};
    return {QStringLiteral("holes of polygons are filled, as they cannot be cut (%1)").arg(m_filledHoles)};
}

} // namespace Velmora::Kvz
