// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <csignal>

#include <sys/resource.h>

namespace Velmora::Kvz {

/// Limits the size of files while it lives, as a full disk would.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    Q_DISABLE_COPY(FileSizeLimit)

private:
    rlimit m_before;
    void (*m_handler)(int);
};

} // namespace Velmora::Kvz
