// SPDX-License-Identifier: MIT
#include "X3dText.h"

#include "X3dGeometry.h"
#include "XmlTree.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString use = QStringLiteral("USE");
const QString def = QStringLiteral("DEF");
const QString white = QStringLiteral("1 1 1");

/// The strings of a list. One without quotes is a single string.
QStringList stringsOf(const QString &text)
{
    if (!text.contains(QLatin1Char('"')))
        return {text.trimmed()};
    QStringList strings;
    const QStringList parts = text.split(QLatin1Char('"')); // every second one is in quotes
    for (int i = 1; i < parts.size(); i += 2) {
        if (!parts[i].trimmed().isEmpty())
            strings.append(parts[i].trimmed());
    }
    return strings;
}

/// Whether a node that is used again is to be copied: it holds others, or a copy of it may be changed. The use of all else
/// assimp knows.
bool isCopied(const QString &name)
{
    static const QStringList names{QStringLiteral("Group"), QStringLiteral("StaticGroup"), QStringLiteral("Transform"),
        QStringLiteral("Switch"), QStringLiteral("LOD"), QStringLiteral("Anchor"), QStringLiteral("Billboard"),
        QStringLiteral("Collision"), QStringLiteral("Shape"), QStringLiteral("Appearance"), QStringLiteral("Material"),
        QStringLiteral("PhysicalMaterial"), QStringLiteral("UnlitMaterial"), QStringLiteral("TwoSidedMaterial")};
    return names.contains(name);
}

/// What assimp takes as the surface, points or lines of a shape.
bool isDrawn(const QString &geometry)
{
    static const QStringList names{QStringLiteral("Arc2D"), QStringLiteral("ArcClose2D"), QStringLiteral("Circle2D"),
        QStringLiteral("Disk2D"), QStringLiteral("Polyline2D"), QStringLiteral("Polypoint2D"),
        QStringLiteral("Rectangle2D"), QStringLiteral("TriangleSet2D"), QStringLiteral("Box"), QStringLiteral("Cone"),
        QStringLiteral("Cylinder"), QStringLiteral("ElevationGrid"), QStringLiteral("Extrusion"),
        QStringLiteral("IndexedFaceSet"), QStringLiteral("Sphere"), QStringLiteral("IndexedLineSet"),
        QStringLiteral("LineSet"), QStringLiteral("PointSet"), QStringLiteral("IndexedTriangleFanSet"),
        QStringLiteral("IndexedTriangleSet"), QStringLiteral("IndexedTriangleStripSet"),
        QStringLiteral("TriangleFanSet"), QStringLiteral("TriangleSet"), QStringLiteral("TriangleStripSet")};
    return names.contains(geometry);
}

/// The material of a shape in the words of the kind that assimp knows; null where it has none.
XmlElement *plainMaterial(XmlElement *appearance)
{
    for (XmlElement &node : appearance->children) {
        if (node.name == QLatin1String("PhysicalMaterial")) {
            node.set(QStringLiteral("diffuseColor"),
                node.has(QStringLiteral("baseColor")) ? node.value(QStringLiteral("baseColor")) : white);
        } else if (node.name == QLatin1String("UnlitMaterial")) {
            node.set(QStringLiteral("diffuseColor"), QStringLiteral("0 0 0"));
            if (!node.has(QStringLiteral("emissiveColor")))
                node.set(QStringLiteral("emissiveColor"), white);
        } else if (node.name != QLatin1String("Material") && node.name != QLatin1String("TwoSidedMaterial")) {
            continue;
        }
        node.name = QStringLiteral("Material");
        return &node;
    }
    return nullptr;
}

XmlElement unlitMaterial()
{
    XmlElement material;
    material.name = QStringLiteral("Material");
    material.set(QStringLiteral("diffuseColor"), QStringLiteral("0 0 0"));
    material.set(QStringLiteral("emissiveColor"), white);
    return material;
}

} // namespace

/// What a walk through a document has done.
struct X3dText::Walk
{
    bool isChanged = false;
    int depth = 0; // of uses within uses
    qint64 copied = 0; // characters
};

X3dText::X3dText(const QByteArray &text, const QString &file)
    : m_file(file)
{
    XmlElement root;
    if (!readXml(text, &root))
        return; // assimp says so
    define(root);
    Walk walk;
    XmlElement plain;
    copy(root, &walk, &plain);
    m_defined.clear();
    if (m_problem.isEmpty() && walk.isChanged)
        m_plain = writeXml(plain);
}

void X3dText::define(const XmlElement &element)
{
    if (element.has(def) && !m_defined.contains(element.value(def)))
        m_defined.insert(element.value(def), &element);
    if (element.has(use))
        m_used.insert(element.value(use));
    for (const XmlElement &child : element.children)
        define(child);
}

/// A copy of an element with all that it uses in place. Nodes have their name where they stand first.
void X3dText::copy(const XmlElement &from, Walk *walk, XmlElement *to)
{
    constexpr int deepest = 64;
    constexpr qint64 mostCopied = 1 << 27;
    if (!m_problem.isEmpty())
        return;
    const XmlElement *const used = isCopied(from.name) && from.has(use) ? m_defined.value(from.value(use)) : nullptr;
    if (used) {
        walk->isChanged = true;
        if (++walk->depth > deepest)
            m_problem = QStringLiteral("node \"%1\" is used within itself").arg(from.value(use));
        copy(*used, walk, to);
        --walk->depth;
        return;
    }
    to->name = from.name;
    if (walk->depth > 0 && from.has(def) && !isCopied(from.name)) { // it stands elsewhere
        to->set(use, from.value(def));
        return;
    }
    to->attributes = from.attributes;
    to->text = from.text;
    if (walk->depth > 0) {
        to->remove(def);
        walk->copied += 32;
        for (const QPair<QString, QString> &attribute : qAsConst(to->attributes))
            walk->copied += attribute.first.size() + attribute.second.size();
        if (walk->copied > mostCopied)
            m_problem = QStringLiteral("its nodes that are used again (USE) make more than %1 million characters")
                            .arg(mostCopied / 1000000);
    }
    to->children.reserve(from.children.size());
    for (const XmlElement &child : from.children) {
        to->children.emplace_back();
        copy(child, walk, &to->children.back());
    }
    mend(walk, to);
}

void X3dText::mend(Walk *walk, XmlElement *element)
{
    static const QString url = QStringLiteral("url");
    static const QString value = QStringLiteral("value");
    const bool isImage = element->name == QLatin1String("ImageTexture");
    if ((isImage || element->name == QLatin1String("Inline")) && !element->value(url).isEmpty()) {
        element->set(url, isImage ? plainImage(element->value(url)) : plainInline(element->value(url)));
        walk->isChanged = true;
    } else if (element->name == QLatin1String("MetadataString") && element->has(value)) {
        element->set(value, QString());
        walk->isChanged = true;
    } else if (element->name == QLatin1String("Shape") && !element->has(use)) {
        mendShape(element);
        walk->isChanged = true;
    }
}

void X3dText::mendShape(XmlElement *shape)
{
    static const QString appearanceName = QStringLiteral("Appearance");
    const auto isGeometry = [](const XmlElement &child) {
        return child.name != appearanceName && !child.name.startsWith(QLatin1String("Metadata"));
    };
    const auto geometry = std::find_if(shape->children.begin(), shape->children.end(), isGeometry);
    if (geometry == shape->children.end())
        return;
    if (!isDrawn(geometry->name)) {
        ++m_undrawn[geometry->name];
        shape->children.clear();
        return;
    }
    const XmlElement &meant = geometry->has(use) ? *m_defined.value(geometry->value(use), &*geometry) : *geometry;
    const bool hasColours = std::any_of(meant.children.begin(), meant.children.end(),
        [](const XmlElement &child) { return child.name.startsWith(QLatin1String("Color")); });
    rewriteGeometry(&*geometry, m_used);
    if (!shape->child(appearanceName)) {
        XmlElement appearance;
        appearance.name = appearanceName;
        shape->children.insert(shape->children.begin(), appearance);
    }
    XmlElement *const appearance = shape->child(appearanceName);
    XmlElement *const material = plainMaterial(appearance);
    if (!material)
        appearance->children.insert(appearance->children.begin(), unlitMaterial());
    else if (hasColours)
        material->set(QStringLiteral("diffuseColor"), white);
}

QString X3dText::plainImage(const QString &places)
{
    QString &standIn = m_standIns[places];
    if (!standIn.isEmpty())
        return standIn;
    standIn = QStringLiteral("image-%1").arg(m_places.size());
    QStringList files = stringsOf(places);
    files.erase(std::remove_if(files.begin(), files.end(),
                    [](const QString &name) { return name.contains(QLatin1String("://")); }),
        files.end()); // nothing is fetched
    m_places.insert(standIn, files.isEmpty() ? stringsOf(places) : files);
    return standIn;
}

/// The first of some places where a file is; null, with a warning, where there is none.
QString X3dText::plainInline(const QString &places)
{
    const QStringList names = stringsOf(places);
    for (const QString &name : names) {
        const bool isWhole = !name.contains(QLatin1Char(' ')); // assimp takes the first word
        if (isWhole && QFileInfo(QFileInfo(m_file).absoluteDir().filePath(name)).isFile())
            return name;
    }
    m_warnings.append(QStringLiteral("%1: its part \"%2\" is not there and is left out")
                          .arg(m_file, names.join(QStringLiteral("\", \""))));
    return {};
}

QStringList X3dText::undrawn() const
{
    QStringList lines;
    for (auto kind = m_undrawn.begin(); kind != m_undrawn.end(); ++kind)
        lines.append(QStringLiteral("shapes of the kind %1 are not drawn (%2)").arg(kind.key()).arg(kind.value()));
    return lines;
}

QStringList X3dText::warnings() const
{
    QStringList lines = m_warnings;
    for (const QString &line : undrawn())
        lines.append(QStringLiteral("%1: %2").arg(m_file, line));
    return lines;
}

} // namespace Velmora::Kvz
