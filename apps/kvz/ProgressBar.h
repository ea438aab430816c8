// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// A bar on standard error that fills while work goes on, when that is a terminal and there are several steps to show.
class ProgressBar
{
public:
    explicit ProgressBar(int steps);
    /// Wipes the bar.
    ~ProgressBar();

    /// Shows that so many steps are done.
    void show(int done);

private:
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    int m_steps;
    bool m_visible;
    int m_shown = -1; // percent
};

} // namespace Velmora::Kvz
