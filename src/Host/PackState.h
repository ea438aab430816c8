// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

namespace Velmora::Kvz {

/// For its scope, pixels are read without padding: into memory, or into a buffer.
class PackState
{
public:
    /// Where pixels are read into: the name of a pixel pack buffer, or 0 for memory.
    explicit PackState(unsigned int buffer = 0);
    ~PackState();

private:
    Q_DISABLE_COPY(PackState)

    int m_alignment = 0;
    int m_rowLength = 0;
    int m_buffer = 0;
};

} // namespace Velmora::Kvz
