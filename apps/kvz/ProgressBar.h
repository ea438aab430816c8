// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// A progress bar on standard error. It shows only on a terminal, and only for several steps.
class ProgressBar
{
public:
    explicit ProgressBar(int steps);
    /// Wipes the bar.
    ~ProgressBar();

    /// Shows that `done` steps are done.
    void show(int done);

private:
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    int m_steps;
    bool m_visible;
    int m_shown = -1; // percent
};

} // namespace Velmora::Kvz
