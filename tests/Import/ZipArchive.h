// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QPair>
#include <QtCore/QVector>

namespace Velmora::Kvz {

inline void put(QByteArray *bytes, quint32 value, int size)
{
    for (int i = 0; i < size; ++i)
        bytes->append(char(value >> 8 * i & 255));
}

inline quint32 crcOf(const QByteArray &content)
{
    quint32 crc = ~0u;
    for (const char c : content) {
        crc ^= quint8(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 1 ? crc >> 1 ^ 0xedb88320u : crc >> 1;
    }
    return ~crc;
}

/// An archive of members as they are: names and contents.
inline QByteArray zipArchive(const QVector<QPair<QByteArray, QByteArray>> &members)
{
    QByteArray archive;
    QByteArray directory;
    for (const auto &member : members) {
        QByteArray common;
        for (const quint32 value : {20u, 0u, 0u, 0u, 0u}) // version, flags, method, time, date
            put(&common, value, 2);
        put(&common, crcOf(member.second), 4);
        put(&common, quint32(member.second.size()), 4);
        put(&common, quint32(member.second.size()), 4);
        put(&common, quint32(member.first.size()), 2);
        put(&common, 0, 2);
        directory += "PK\1\2";
        put(&directory, 20, 2);
        directory += common + QByteArray(10, '\0');
        put(&directory, quint32(archive.size()), 4);
        directory += member.first;
        archive += "PK\3\4" + common + member.first + member.second;
    }
    QByteArray end = "PK\5\6";
    put(&end, 0, 4);
    put(&end, quint32(members.size()), 2);
    put(&end, quint32(members.size()), 2);
    put(&end, quint32(directory.size()), 4);
    put(&end, quint32(archive.size()), 4);
    put(&end, 0, 2);
    return archive + directory + end;
}

} // namespace Velmora::Kvz
