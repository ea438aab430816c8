// SPDX-License-Identifier: MIT
#include "ProgressBar.h"

#include <cstdio>
#include <string>

#include <unistd.h>

namespace Velmora::Kvz {

static constexpr int width = 40;

ProgressBar::ProgressBar(int steps)
    : m_steps(steps),
      m_visible(steps > 1 && isatty(STDERR_FILENO))
{ }

ProgressBar::~ProgressBar()
{
    if (m_visible)
        std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(int done)
{
    const int percent = int(100.0 * done / m_steps);
    if (!m_visible || percent == m_shown)
        return;
    m_shown = percent;
    const auto filled = size_t(width * percent / 100);
    const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
    std::fprintf(stderr, "\r[%s] frame %d of %d", bar.c_str(), done, m_steps);
}

} // namespace Velmora::Kvz
