// SPDX-License-Identifier: MIT
#include "ZipFile.h"

#include <QtCore/QtEndian>

#include <zlib.h>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

quint16 word(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint16>(bytes.constData() + at);
}

quint32 longWord(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint32>(bytes.constData() + at);
}

QByteArray inflated(const QByteArray &packed, int most)
{
    constexpr int rawDeflate = -15;
    QByteArray result(most, Qt::Uninitialized);
    z_stream stream = {};
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData()));
    stream.avail_in = uInt(packed.size());
    stream.next_out = reinterpret_cast<Bytef *>(result.data());
    stream.avail_out = uInt(most);
    if (inflateInit2(&stream, rawDeflate) != Z_OK)
        return {};
    const int state = inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    const bool isFull = stream.avail_out == 0 && (state == Z_OK || state == Z_BUF_ERROR);
    if (state != Z_STREAM_END && !isFull)
        return {};
    result.resize(most - int(stream.avail_out));
    return result;
}

} // namespace

ZipFile::ZipFile(const QByteArray &archive)
    : m_archive(archive)
{
    constexpr int endSize = 22;
    constexpr int entrySize = 46;
    constexpr quint16 encrypted = 1;
    const int end = archive.lastIndexOf("PK\5\6");
    if (!archive.startsWith("PK") || end < 0 || end + endSize > archive.size())
        return;
    qint64 at = longWord(archive, end + 16);
    for (int entry = word(archive, end + 10); entry > 0; --entry) {
        if (at + entrySize > end || longWord(archive, int(at)) != 0x02014b50)
            return;
        const int nameSize = word(archive, int(at) + 28);
        const Member member{word(archive, int(at) + 10), longWord(archive, int(at) + 20),
            longWord(archive, int(at) + 24), longWord(archive, int(at) + 42)};
        if ((word(archive, int(at) + 8) & encrypted) == 0)
            m_members.insert(QString::fromUtf8(archive.mid(int(at) + entrySize, nameSize)), member);
        at += entrySize + nameSize + word(archive, int(at) + 30) + word(archive, int(at) + 32);
    }
}

QByteArray ZipFile::read(const QString &name, qint64 most) const
{
    constexpr int headerSize = 30;
    constexpr int stored = 0;
    constexpr int deflated = 8;
    const auto found = m_members.constFind(name);
    if (found == m_members.constEnd() || found->header + headerSize > m_archive.size())
        return {};
    const int header = int(found->header);
    const qint64 begin = header + headerSize + word(m_archive, header + 26) + word(m_archive, header + 28);
    if (begin + found->packed > m_archive.size())
        return {};
    const int size = int(std::min({most, found->size, qint64(std::numeric_limits<int>::max())}));
    const QByteArray packed = QByteArray::fromRawData(m_archive.constData() + begin, int(found->packed));
    return found->method == stored  ? QByteArray(packed.constData(), std::min(size, packed.size()))
        : found->method == deflated ? inflated(packed, size)
                                    : QByteArray();
}

} // namespace Velmora::Kvz
