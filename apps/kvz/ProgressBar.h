// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Velmora::Kvz {

/// Progress over the frames of all pictures on standard error, on a terminal alone and for more than one frame.
class ProgressBar
{
public:
    /// `samples` frames go into each picture.
    ProgressBar(int pictures, int samples);
    /// Wipes the bar.
    ~ProgressBar();

    /// Shows that one more frame is done.
    void step();
    /// Leaves frames out that are not going to be drawn.
    void skip(int frames);

private:
    qint64 m_pictures;
    qint64 m_samples;
    qint64 m_done = 0;
    bool m_visible;
};

/// Says on a terminal what the program is doing, how far it is, and the seconds that it takes, for as long as the object lives.
class ActivityLine
{
public:
    explicit ActivityLine(const QString &activity);
    ~ActivityLine();
    ActivityLine(const ActivityLine &) = delete;
    ActivityLine &operator=(const ActivityLine &) = delete;

    /// How far the step is that the activity is at: "mesh 3 of 7" or "40 %", say. Not each of a quick row is shown, but the first of a step is.
    void setStep(int step, const QString &progress);

private:
    void show() const;

    QString m_activity;
    std::mutex m_mutex; ///< For all that follows.
    QString m_progress;
    int m_step = -1;
    int m_seconds = 0;
    std::chrono::steady_clock::time_point m_shown;
    std::condition_variable m_wake;
    bool m_isOver = false;
    std::thread m_thread;
};

} // namespace Velmora::Kvz
