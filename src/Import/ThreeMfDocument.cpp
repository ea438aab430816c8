// SPDX-License-Identifier: MIT
#include "ThreeMfDocument.h"

#include "ImportBudget.h"

#include <QtCore/QXmlStreamReader>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

/// "#RRGGBB" or "#RRGGBBAA".
QVector4D colourOf(const QString &text)
{
    bool fits = false;
    const quint32 digits = text.mid(1).toUInt(&fits, 16);
    if (!fits || !text.startsWith(QLatin1Char('#')) || (text.size() != 7 && text.size() != 9))
        return {1, 1, 1, 1};
    const quint32 all = text.size() == 7 ? digits << 8 | 255 : digits;
    return QVector4D(float(all >> 24), float(all >> 16 & 255), float(all >> 8 & 255), float(all & 255)) / 255;
}

/// Twelve numbers, column by column of a matrix without its last row. The identity where there is none.
QMatrix4x4 matrixOf(const QString &text, bool *fits)
{
    QMatrix4x4 matrix;
    const QStringList words = text.simplified().split(QLatin1Char(' '));
    *fits = text.isEmpty() || words.size() == 12;
    for (int i = 0; i < words.size() && *fits && !text.isEmpty(); ++i) {
        matrix(i % 3, i / 3) = words[i].toFloat(fits);
        *fits = *fits && std::isfinite(matrix(i % 3, i / 3));
    }
    return matrix;
}

} // namespace

void ThreeMfDocument::refuse(const QString &reason)
{
    if (problem.isEmpty())
        problem = QStringLiteral("%1, line %2: %3").arg(m_part, QString::number(m_reader->lineNumber()), reason);
}

void ThreeMfDocument::refuseNumber(const QString &name, const QString &value)
{
    refuse(QStringLiteral("%1=\"%2\" stands where a number is needed").arg(name, value.left(40)));
}

/// To the next child of the element that is open; false behind its last one.
bool ThreeMfDocument::next()
{
    return problem.isEmpty() && m_reader->readNextStartElement();
}

/// By its name without a prefix, which files choose as they like.
QString ThreeMfDocument::attribute(const char *name) const
{
    for (const QXmlStreamAttribute &candidate : m_reader->attributes()) {
        if (candidate.name() == QLatin1String(name))
            return candidate.value().toString();
    }
    return {};
}

float ThreeMfDocument::number(const char *name)
{
    bool fits = false;
    const QString text = attribute(name);
    const float value = text.toFloat(&fits);
    if (!fits || !std::isfinite(value))
        refuse(QStringLiteral("%1=\"%2\" stands where a number is needed").arg(QLatin1String(name), text.left(40)));
    return value;
}

int ThreeMfDocument::index(const char *name, int otherwise)
{
    const QString text = attribute(name);
    bool fits = true;
    const int value = text.isEmpty() ? otherwise : text.toInt(&fits);
    if (!fits || value < 0)
        refuse(QStringLiteral("%1=\"%2\" stands where an index is needed").arg(QLatin1String(name), text.left(40)));
    return value;
}

int ThreeMfDocument::groupNumber(const QString &id)
{
    if (id.isEmpty())
        return -1;
    const auto known = m_groupNumbers.constFind(keyOf(id));
    if (known != m_groupNumbers.constEnd())
        return *known;
    groupKeys.append(keyOf(id));
    return *m_groupNumbers.insert(keyOf(id), groupKeys.size() - 1);
}

/// The part that a path names, which is to be read too; without one this part.
QString ThreeMfDocument::partOf(const QString &path) const
{
    return path.isEmpty() ? m_part : path.startsWith(QLatin1Char('/')) ? path.mid(1) : path;
}

QString ThreeMfDocument::rootPart() const
{
    constexpr qint64 mostBytes = 1 << 20;
    QXmlStreamReader reader(m_archive.read(QStringLiteral("_rels/.rels"), mostBytes));
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && reader.name() == QLatin1String("Relationship")
            && reader.attributes().value(QLatin1String("Type")).endsWith(QLatin1String("/3dmodel")))
            return partOf(reader.attributes().value(QLatin1String("Target")).toString());
    }
    QStringList names = m_archive.names();
    names.sort();
    const auto model = std::find_if(names.cbegin(), names.cend(),
        [](const QString &name) { return name.endsWith(QLatin1String(".model"), Qt::CaseInsensitive); });
    return model == names.cend() ? QString() : *model;
}

void ThreeMfDocument::readColours(const char *element, const char *colour, const char *name)
{
    Group group;
    const Key key = keyOf(attribute("id"));
    while (next()) {
        if (m_reader->name() == QLatin1String(element)) {
            group.colours.push_back(colourOf(attribute(colour)));
            group.names.append(attribute(name));
        }
        m_reader->skipCurrentElement();
    }
    groups.insert(key, group);
}

void ThreeMfDocument::readTexCoords()
{
    Group group;
    const Key key = keyOf(attribute("id"));
    group.texture = keyOf(attribute("texid"));
    while (next()) {
        if (m_reader->name() == QLatin1String("tex2coord"))
            group.texCoords.emplace_back(number("u"), number("v"));
        m_reader->skipCurrentElement();
    }
    groups.insert(key, group);
}

void ThreeMfDocument::readVertices(Object *object)
{
    while (next()) {
        // There are many of these: their attributes are looked at once.
        QVector3D position;
        int seen = 0;
        for (const QXmlStreamAttribute &coordinate : m_reader->attributes()) {
            const auto name = coordinate.name();
            const int axis = name.size() == 1 ? int(name.at(0).unicode()) - 'x' : -1;
            if (axis < 0 || axis > 2)
                continue;
            bool fits = false;
            position[axis] = coordinate.value().toFloat(&fits) + 0.0f; // zero has two signs
            if (!fits || !std::isfinite(position[axis]))
                refuseNumber(name.toString(), coordinate.value().toString());
            seen |= 1 << axis;
        }
        if (m_reader->name() == QLatin1String("vertex")) {
            if (seen != 7)
                refuse(QStringLiteral("a vertex lacks a coordinate"));
            object->positions.append(position);
        }
        m_reader->skipCurrentElement();
        if (!m_budget->isTimeLeft() || !m_budget->takeVertices(1))
            problem = m_budget->problem();
    }
}

void ThreeMfDocument::readTriangle(Object *object)
{
    int corners[3] = {-1, -1, -1};
    int numbers[3] = {-1, -1, -1};
    QString id;
    for (const QXmlStreamAttribute &each : m_reader->attributes()) {
        const auto name = each.name();
        const int digit = name.size() == 2 ? int(name.at(1).unicode()) - '1' : -1;
        const bool isCorner = name.startsWith(QLatin1Char('v'));
        if (digit >= 0 && digit < 3 && (isCorner || name.startsWith(QLatin1Char('p')))) {
            bool fits = false;
            int &number = (isCorner ? corners : numbers)[digit];
            number = each.value().toInt(&fits);
            if (!fits || number < 0)
                refuseNumber(name.toString(), each.value().toString());
        } else if (name == QLatin1String("pid")) {
            id = each.value().toString();
        } else {
            hasPaint |= (name == QLatin1String("paint_color") || name == QLatin1String("mmu_segmentation"))
                && !each.value().isEmpty();
        }
    }
    for (const int vertex : corners) {
        if (vertex < 0)
            refuse(QStringLiteral("a triangle lacks a corner"));
        else if (vertex >= object->positions.size())
            refuse(QStringLiteral("a triangle has index %1, past the end of %2 vertices")
                       .arg(vertex)
                       .arg(object->positions.size()));
        object->indices.append(quint32(vertex));
    }
    if (id.isEmpty() && numbers[0] < 0)
        return;
    Property property = object->property;
    if (!id.isEmpty())
        property.group = groupNumber(id);
    for (int corner = 0; corner < 3 && numbers[0] >= 0; ++corner)
        property.numbers[corner] = numbers[corner] < 0 ? numbers[0] : numbers[corner];
    object->properties.resize(size_t(object->indices.size() / 3) - 1, object->property);
    object->properties.push_back(property);
}

void ThreeMfDocument::readTriangles(Object *object)
{
    while (next()) {
        if (m_reader->name() == QLatin1String("triangle"))
            readTriangle(object);
        m_reader->skipCurrentElement();
        if (!m_budget->isTimeLeft())
            problem = m_budget->problem();
    }
    if (!object->properties.empty())
        object->properties.resize(size_t(object->indices.size() / 3), object->property);
}

void ThreeMfDocument::readMesh(Object *object)
{
    while (next()) {
        if (m_reader->name() == QLatin1String("vertices")) {
            readVertices(object);
        } else if (m_reader->name() == QLatin1String("triangles")) {
            readTriangles(object);
        } else {
            if (m_reader->name() == QLatin1String("beamlattice"))
                leftOut.append(QStringLiteral("beamlattice"));
            m_reader->skipCurrentElement();
        }
    }
}

void ThreeMfDocument::readPlacements(std::vector<Placement> *placements, const char *element)
{
    while (next()) {
        if (m_reader->name() == QLatin1String(element)) {
            Placement placement;
            const QString path = attribute("path");
            placement.object = {partOf(path), attribute("objectid")};
            bool fits = true;
            placement.matrix = matrixOf(attribute("transform"), &fits);
            if (!fits)
                refuse(QStringLiteral("a transform is not twelve numbers"));
            placements->push_back(placement);
            if (!path.isEmpty())
                m_waiting.append(partOf(path));
        }
        m_reader->skipCurrentElement();
    }
}

void ThreeMfDocument::readObject()
{
    Object object;
    const Key key = keyOf(attribute("id"));
    object.name = attribute("name");
    object.property.group = groupNumber(attribute("pid"));
    const int property = index("pindex", 0);
    std::fill(std::begin(object.property.numbers), std::end(object.property.numbers), property);
    while (next()) {
        if (m_reader->name() == QLatin1String("mesh"))
            readMesh(&object);
        else if (m_reader->name() == QLatin1String("components"))
            readPlacements(&object.components, "component");
        else
            m_reader->skipCurrentElement();
    }
    objects.insert(key, object);
    order.append(key);
}

void ThreeMfDocument::readResources()
{
    while (next()) {
        const QString kind = m_reader->name().toString();
        if (kind == QLatin1String("object")) {
            readObject();
        } else if (kind == QLatin1String("basematerials")) {
            readColours("base", "displaycolor", "name");
        } else if (kind == QLatin1String("colorgroup")) {
            readColours("color", "color", "");
        } else if (kind == QLatin1String("texture2dgroup")) {
            readTexCoords();
        } else if (kind == QLatin1String("texture2d")) {
            textures.insert(keyOf(attribute("id")),
                {partOf(attribute("path")), attribute("tilestyleu"), attribute("tilestylev"),
                    attribute("filter") == QLatin1String("nearest")});
            m_reader->skipCurrentElement();
        } else {
            groups.insert(keyOf(attribute("id")), Group()); // so that it counts as known
            leftOut.append(kind);
            m_reader->skipCurrentElement();
        }
    }
}

bool ThreeMfDocument::readPart(const QString &part)
{
    const bool isRoot = m_part.isEmpty();
    m_part = part;
    const qint64 size = m_archive.size(part);
    if (size == 0) {
        problem = QStringLiteral("damaged: its part \"%1\" is not in the archive").arg(part);
        return false;
    }
    if (!m_budget->takeBytes(size)) {
        problem = m_budget->problem();
        return false;
    }
    QXmlStreamReader reader(m_archive.read(part, size));
    m_reader = &reader;
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("model")) {
        problem = QStringLiteral("damaged or truncated: \"%1\" is no model").arg(part);
        return false;
    }
    if (isRoot)
        unit = attribute("unit");
    std::vector<Placement> placed;
    while (next()) {
        if (reader.name() == QLatin1String("resources"))
            readResources();
        else if (reader.name() == QLatin1String("build"))
            readPlacements(isRoot ? &items : &placed, "item");
        else
            reader.skipCurrentElement();
    }
    if (problem.isEmpty() && reader.hasError())
        refuse(QStringLiteral("its XML is damaged or truncated"));
    return problem.isEmpty();
}

bool ThreeMfDocument::read()
{
    QStringList known;
    m_waiting.append(rootPart());
    if (m_waiting.first().isEmpty()) {
        problem = QStringLiteral("damaged or truncated: its archive holds no model");
        return false;
    }
    while (!m_waiting.isEmpty()) {
        const QString part = m_waiting.takeFirst();
        if (known.contains(part))
            continue;
        known.append(part);
        if (!readPart(part))
            return false;
    }
    leftOut.removeDuplicates();
    return true;
}

} // namespace Velmora::Kvz
