// SPDX-License-Identifier: MIT
#include "XmlTree.h"

#include <QtCore/QXmlStreamReader>
#include <QtCore/QXmlStreamWriter>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

void write(const XmlElement &element, QXmlStreamWriter *writer)
{
    writer->writeStartElement(element.name);
    for (const QPair<QString, QString> &attribute : element.attributes)
        writer->writeAttribute(attribute.first, attribute.second);
    if (!element.text.isEmpty())
        writer->writeCharacters(element.text);
    for (const XmlElement &child : element.children)
        write(child, writer);
    writer->writeEndElement();
}

} // namespace

bool XmlElement::has(const QString &attribute) const
{
    return std::any_of(attributes.begin(), attributes.end(),
        [&](const QPair<QString, QString> &known) { return known.first == attribute; });
}

QString XmlElement::value(const QString &attribute) const
{
    for (const QPair<QString, QString> &known : attributes) {
        if (known.first == attribute)
            return known.second;
    }
    return {};
}

void XmlElement::set(const QString &attribute, const QString &value)
{
    remove(attribute);
    attributes.append({attribute, value});
}

void XmlElement::remove(const QString &attribute)
{
    attributes.erase(std::remove_if(attributes.begin(), attributes.end(),
                         [&](const QPair<QString, QString> &known) { return known.first == attribute; }),
        attributes.end());
}

const XmlElement *XmlElement::child(const QString &childName) const
{
    const auto found = std::find_if(
        children.begin(), children.end(), [&](const XmlElement &element) { return element.name == childName; });
    return found == children.end() ? nullptr : &*found;
}

XmlElement *XmlElement::child(const QString &childName)
{
    return const_cast<XmlElement *>(qAsConst(*this).child(childName));
}

bool readXml(const QByteArray &document, XmlElement *root)
{
    constexpr size_t deepest = 500; // an element, and whoever walks the tree, is a step on the thread's stack
    QXmlStreamReader reader(document);
    reader.setNamespaceProcessing(false);
    XmlElement top;
    std::vector<XmlElement *> open{&top};
    while (!reader.atEnd() && open.size() <= deepest) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement: {
            open.back()->children.emplace_back();
            open.push_back(&open.back()->children.back());
            XmlElement *const element = open.back();
            element->name = reader.qualifiedName().toString();
            for (const QXmlStreamAttribute &attribute : reader.attributes())
                element->attributes.append({attribute.qualifiedName().toString(), attribute.value().toString()});
            break;
        }
        case QXmlStreamReader::Characters:
            if (!reader.isWhitespace())
                open.back()->text += reader.text();
            break;
        case QXmlStreamReader::EndElement:
            open.pop_back();
            break;
        default:
            break;
        }
    }
    if (reader.hasError() || !reader.atEnd() || top.children.empty())
        return false;
    *root = std::move(top.children.front());
    return true;
}

QByteArray writeXml(const XmlElement &root)
{
    QByteArray document;
    QXmlStreamWriter writer(&document);
    writer.writeStartDocument();
    write(root, &writer);
    writer.writeEndDocument();
    return document;
}

} // namespace Velmora::Kvz
