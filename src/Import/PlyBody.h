// SPDX-License-Identifier: MIT
#pragma once

#include "PlyHeader.h"

#include <QtCore/QString>

namespace Velmora::Kvz {

/// What follows the header of a PLY file, looked through before a loader reads it. Loaders make room for the length that a list
/// declares, and of triangle strips assimp 5.2 makes one triangle each.
class PlyBody
{
public:
    /// The body goes from behind the header to the end of the file.
    PlyBody(const PlyHeader &header, const char *begin, const char *end);

    /// Why no loader should read the file, in one line; empty when nothing is wrong.
    QString problem() const { return m_problem; }
    /// The whole file, given the text of its header, as assimp reads it rightly: with faces in the place of triangle strips, and
    /// without empty lines and comments. Null where it is already so.
    QByteArray plainText(const QByteArray &headerText) const;

private:
    bool readAscii(const PlyHeader::Element &element);
    bool readBinary(const PlyHeader::Element &element);
    bool readLine(const PlyHeader::Element &element, qint64 record, const char *end);
    bool readRecord(const PlyHeader::Element &element, qint64 record);
    bool holds(const PlyHeader::Element &element, qint64 record, qint64 items, qint64 most, const char *where);
    qint64 integerAt(const char *at, const PlyHeader::Number &number) const;
    void addStrip(const QVector<qint64> &strip);
    void appendBody(const char *begin, const char *end, QByteArray *text) const;
    void addTriangle(qint64 a, qint64 b, qint64 c);

    bool m_isAscii = false;
    bool m_isBig = false;
    bool m_hasOtherLines = false;
    const char *m_begin;
    const char *m_at;
    const char *m_end;
    const char *m_stripsBegin = nullptr;
    const char *m_stripsEnd = nullptr;
    QByteArray m_faces;
    qint64 m_faceCount = 0;
    QString m_problem;
};

} // namespace Velmora::Kvz
