// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// What assimp reads wrongly of an X3D file: lists of strings, in quotes as the format has them. Of an image it joins the first two
/// places to a name, and files with an odd number of strings in a list it refuses.
class X3dText
{
public:
    /// Looks through the text of a file once.
    X3dText(const QByteArray &text, const QString &file);

    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const { return m_plain; }
    /// The places of each image, best first, by the name that stands for them in the plain text.
    QHash<QString, QStringList> imagePlaces() const { return m_places; }
    /// A line for each other file that it names as a part of itself and that is not there: assimp would refuse all.
    QStringList warnings() const { return m_warnings; }

private:
    QByteArray plainImage(const QByteArray &places);
    QByteArray plainInline(const QByteArray &places);

    QString m_file;
    QByteArray m_plain;
    QHash<QString, QStringList> m_places;
    QStringList m_warnings;
};

} // namespace Velmora::Kvz
