// SPDX-License-Identifier: MIT
#include "PlyHeader.h"

#include <QtCore/QList>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

PlyHeader::Number numberOf(const QByteArray &type)
{
    static const QList<QByteArray> types[] = {
        {"char", "int8", "short", "int16", "int", "int32"}, {"uchar", "uint8", "ushort", "uint16", "uint", "uint32"}};
    for (const PlyHeader::Kind kind : {PlyHeader::Integer, PlyHeader::Unsigned}) {
        const int place = types[kind == PlyHeader::Unsigned].indexOf(type);
        if (place >= 0)
            return {kind, 1 << place / 2};
    }
    if (type == "float" || type == "float32")
        return {PlyHeader::Real, 4};
    return type == "double" || type == "float64" ? PlyHeader::Number{PlyHeader::Real, 8} : PlyHeader::Number();
}

} // namespace

PlyHeader readPlyHeader(const QByteArray &start)
{
    PlyHeader header;
    for (int begin = 0, end = 0; begin < start.size(); begin = end + 1) {
        end = start.indexOf('\n', begin);
        end = end < 0 ? start.size() : end;
        const QByteArray line = start.mid(begin, end - begin).simplified();
        const QList<QByteArray> words = line.split(' ');
        const QByteArray keyword = words.value(0);
        if (keyword == "end_header") {
            header.size = std::min(end + 1, start.size());
            break;
        }
        if (keyword == "format")
            header.format = words.value(1);
        else if (keyword == "comment" || keyword == "obj_info")
            header.comments.append(line.mid(keyword.size() + 1));
        else if (keyword == "element")
            header.elements.append({words.value(1), countOf(words.value(2)), {}});
        else if (keyword == "property" && !header.elements.isEmpty() && words.value(1) == "list")
            header.elements.last().properties.append(
                {words.value(4), numberOf(words.value(3)), numberOf(words.value(2))});
        else if (keyword == "property" && !header.elements.isEmpty())
            header.elements.last().properties.append({words.value(2), numberOf(words.value(1)), {}});
    }
    return header;
}

QByteArray withUsualColourNames(const QByteArray &text)
{
    static const QByteArray prefix = "diffuse_";
    const PlyHeader header = readPlyHeader(text);
    const auto vertices = std::find_if(header.elements.begin(), header.elements.end(),
        [](const PlyHeader::Element &element) { return element.name == "vertex"; });
    if (vertices == header.elements.end())
        return {};
    QList<QByteArray> names;
    for (const PlyHeader::Property &property : vertices->properties)
        names.append(property.name);
    if (!names.contains("diffuse_red") || names.contains("red"))
        return {};
    QByteArray result;
    bool isInVertices = false;
    for (const QByteArray &line : text.left(header.size).split('\n')) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words[0] == "element")
            isInVertices = words.value(1) == "vertex";
        const QByteArray name = words.last();
        const bool isRenamed = isInVertices && words[0] == "property" && name.startsWith(prefix)
            && !names.contains(name.mid(prefix.size()));
        const QByteArray renamed = QByteArray(line).replace(name, name.mid(prefix.size()));
        result += (isRenamed ? renamed : line) + '\n';
    }
    result.chop(1); // behind the last line
    return result;
}

qint64 countOf(const QByteArray &word)
{
    bool fits = false;
    const qint64 count = word.toLongLong(&fits);
    const bool isNumber = !word.isEmpty()
        && std::all_of(word.begin(), word.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
    return fits ? count : isNumber ? std::numeric_limits<qint64>::max() : 0;
}

} // namespace Velmora::Kvz
