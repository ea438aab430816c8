// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QPair>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// Notices changes of files by looking at them several times a second, so that a file that an editor replaces is noticed too.
/// While it exists, SIGINT and SIGTERM end the watch instead of the program.
class FileWatch
{
public:
    explicit FileWatch(const QStringList &files);
    ~FileWatch();

    /// Watches these files from now on. Those that were already watched keep the state they are compared with.
    void setFiles(const QStringList &files);
    /// Waits until a file has changed and then stayed the same for a moment. False when a signal ended the watch.
    bool waitForChange();

private:
    FileWatch(const FileWatch &) = delete;
    FileWatch &operator=(const FileWatch &) = delete;

    using State = QPair<QDateTime, qint64>; ///< Time of the last change and size; -1 for a file that is not there.
    using States = QMap<QString, State>;

    static State stateOf(const QString &file);
    States presentStates() const;

    States m_states;
};

} // namespace Velmora::Kvz
