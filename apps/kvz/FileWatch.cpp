// SPDX-License-Identifier: MIT
#include "FileWatch.h"

#include <QtCore/QFileInfo>
#include <QtCore/QThread>

#include <csignal>

namespace Velmora::Kvz {

namespace {

constexpr unsigned long interval = 50; // milliseconds

volatile std::sig_atomic_t isEnding = 0;

void requestEnd(int)
{
    isEnding = 1;
}

} // namespace

FileWatch::FileWatch(const QStringList &files)
{
    std::signal(SIGINT, requestEnd);
    std::signal(SIGTERM, requestEnd);
    setFiles(files);
}

FileWatch::~FileWatch()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void FileWatch::setFiles(const QStringList &files)
{
    States states;
    for (const QString &file : files)
        states.insert(file, m_states.contains(file) ? m_states[file] : stateOf(file));
    m_states = states;
}

bool FileWatch::waitForChange()
{
    bool hasChanged = false;
    while (!isEnding) {
        const States present = presentStates();
        // Editors write in several steps, so a change counts only when two looks in a row agree.
        if (present == m_states && hasChanged)
            return true;
        hasChanged = hasChanged || present != m_states;
        m_states = present;
        QThread::msleep(interval);
    }
    return false;
}

FileWatch::State FileWatch::stateOf(const QString &file)
{
    const QFileInfo info(file);
    return info.exists() ? State(info.lastModified(), info.size()) : State(QDateTime(), -1);
}

FileWatch::States FileWatch::presentStates() const
{
    States states;
    for (auto it = m_states.begin(); it != m_states.end(); ++it)
        states.insert(it.key(), stateOf(it.key()));
    return states;
}

} // namespace Velmora::Kvz
