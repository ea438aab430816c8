// SPDX-License-Identifier: MIT
#include "ProgressBar.h"

#include "Console.h"

namespace Velmora::Kvz {

static constexpr int width = 40;

ProgressBar::ProgressBar(int pictures, int samples)
    : m_pictures(pictures),
      m_samples(samples),
      m_visible(m_pictures * m_samples > 1 && canShowProgress())
{ }

ProgressBar::~ProgressBar()
{
    if (m_visible)
        showProgress(QString());
}

void ProgressBar::step()
{
    ++m_done;
    if (!m_visible)
        return;
    const int filled = int(width * m_done / (m_pictures * m_samples));
    QString place = m_pictures > 1
        ? QStringLiteral("picture %1 of %2").arg((m_done + m_samples - 1) / m_samples).arg(m_pictures)
        : QStringLiteral("frame %1 of %2").arg(m_done).arg(m_samples);
    showProgress(QStringLiteral("[%1%2] %3")
                     .arg(QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char('.')), place));
}

void ProgressBar::skip(int frames)
{
    m_done += frames;
}

ActivityLine::ActivityLine(const QString &activity)
    : m_activity(activity)
{
    if (!canShowProgress())
        return;
    show();
    m_thread = std::thread([this] {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_isOver; })) {
            ++m_seconds;
            show();
        }
    });
}

void ActivityLine::setStep(int step, const QString &progress)
{
    if (!m_thread.joinable())
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto now = std::chrono::steady_clock::now();
    const bool isDue = step != m_step || now - m_shown >= std::chrono::milliseconds(50);
    m_step = step;
    m_progress = progress;
    if (!isDue)
        return;
    m_shown = now;
    show();
}

void ActivityLine::show() const
{
    QString line = m_activity;
    if (!m_progress.isEmpty())
        line += QStringLiteral(": ") + m_progress;
    if (m_seconds > 0)
        line += QStringLiteral(" %1 s").arg(m_seconds);
    showProgress(line);
}

ActivityLine::~ActivityLine()
{
    if (!m_thread.joinable())
        return;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOver = true;
    }
    m_wake.notify_all();
    m_thread.join();
    showProgress(QString());
}

} // namespace Velmora::Kvz
