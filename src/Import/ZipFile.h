// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// The members of a ZIP archive in memory, which is to live as long. Archives of more than 4 GiB, or encrypted, have none.
class ZipFile
{
public:
    explicit ZipFile(const QByteArray &archive);

    QStringList names() const { return m_members.keys(); }
    /// Of a member once it is unpacked, as the archive has it; 0 where there is no such member.
    qint64 size(const QString &name) const { return m_members.value(name).size; }
    /// The first bytes of a member, `most` of them; null where there is none of this name or it is damaged.
    QByteArray read(const QString &name, qint64 most) const;

private:
    struct Member
    {
        int method = 0;
        qint64 packed = 0;
        qint64 size = 0;
        qint64 header = 0; ///< Where its local header begins.
    };

    QByteArray m_archive;
    QHash<QString, Member> m_members;
};

} // namespace Velmora::Kvz
