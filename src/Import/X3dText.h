// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

struct XmlElement;

/// What assimp reads wrongly of an X3D file.
/// - Lists of strings, in quotes as the format has them: of an image it joins the first two places to a name, and files with an odd
///   number of strings in a list it refuses.
/// - Nodes that are used again: of groups it takes the first use alone. They are copied to each place.
/// - Shapes without a material have that of the shape before. By the format they are white, or as their vertices are, and not lit.
/// - Colours of vertices are multiplied with the diffuse colour, which they are to replace.
/// - Geometry, as rewriteGeometry() says.
class X3dText
{
public:
    /// Looks through the text of a file once.
    X3dText(const QByteArray &text, const QString &file);

    /// Why no loader should see the text; empty where one may.
    QString problem() const { return m_problem; }
    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const { return m_plain; }
    /// The places of each image, best first, by the name that stands for them in the plain text.
    QHash<QString, QStringList> imagePlaces() const { return m_places; }
    /// A line for each other file that it names as a part of itself and that is not there, for which assimp would refuse all, and for
    /// each kind of geometry that is not drawn.
    QStringList warnings() const;
    /// Of these the kinds of geometry, without the file's name.
    QStringList undrawn() const;

private:
    struct Walk;

    void define(const XmlElement &element);
    void copy(const XmlElement &from, Walk *walk, XmlElement *to);
    void mend(Walk *walk, XmlElement *element);
    void mendShape(XmlElement *shape);
    QString plainImage(const QString &places);
    QString plainInline(const QString &places);

    QString m_file;
    QString m_problem;
    QByteArray m_plain;
    QHash<QString, const XmlElement *> m_defined; // while the text is read
    QSet<QString> m_used; // names that nodes use again
    QHash<QString, QStringList> m_places;
    QHash<QString, QString> m_standIns; // by the lists of places
    QStringList m_warnings;
    QMap<QString, int> m_undrawn; // shapes by the name of their geometry
};

} // namespace Velmora::Kvz
