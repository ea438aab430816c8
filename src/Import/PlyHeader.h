// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// What the header of a PLY file declares.
struct PlyHeader
{
    enum Kind { Unknown, Integer, Unsigned, Real };

    struct Number
    {
        Kind kind = Unknown;
        int bytes = 0; ///< 0 for a word that is no type.
    };

    struct Property
    {
        QByteArray name;
        Number number; ///< Of a list: of its items.
        Number length; ///< Of a list: of the number of its items; no bytes: it is no list.

        bool isList() const { return length.bytes > 0; }
    };

    struct Element
    {
        QByteArray name;
        qint64 count = 0; ///< A number that does not fit counts as the largest, a word that is none as 0.
        QVector<Property> properties;
    };

    QByteArray format; ///< "ascii", "binary_little_endian" or "binary_big_endian".
    QVector<Element> elements;
    QVector<QByteArray> comments; ///< Without the keyword.
    int size = 0; ///< In bytes; 0: the text does not reach the header's end.
};

/// Reads the header that a text starts with, as far as the text goes.
PlyHeader readPlyHeader(const QByteArray &start);

/// The text of a header with the colours of vertices under their usual names where it calls them diffuse_red and so on, which
/// loaders pass over; null where there is nothing to rename.
QByteArray withUsualColourNames(const QByteArray &text);

/// The number that a word says: the largest there is for one that does not fit, 0 for a word that is none.
qint64 countOf(const QByteArray &word);

} // namespace Velmora::Kvz
