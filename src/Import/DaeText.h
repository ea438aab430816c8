// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

struct XmlElement;

/// What assimp refuses of a COLLADA file though it is legal: blanks and line breaks around numbers, and polygons with holes. Holes are
/// joined to the outline by a seam, there and back. And counts of polygons that are wrong, at which it ends the process.
class DaeText
{
public:
    /// Looks through the text of a file once.
    explicit DaeText(const QByteArray &text);

    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const { return m_plain; }
    /// A line for what is not drawn as the file has it, without the file's name.
    QStringList warnings() const;

private:
    void joinHoles(XmlElement *element);
    void joinHoles(const XmlElement &mesh, XmlElement *polygons);

    QByteArray m_plain;
    int m_filledHoles = 0; // of polygons whose corners cannot be found
};

} // namespace Velmora::Kvz
