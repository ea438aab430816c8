// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/qglobal.h>

namespace Velmora::Kvz {

/// While it exists, glTexImage2D and its siblings read pixels from client memory, whole images in rows of four-byte
/// alignment, whatever the caller had set. (With an unpack buffer bound, even a null pointer would read from it.)
/// Restores the state at the end of the scope. Needs a current context.
class KVZ_GL_EXPORT UnpackState
{
public:
    UnpackState();
    ~UnpackState();

private:
    Q_DISABLE_COPY(UnpackState)

    int m_found[7] = {};
    int m_buffer = 0;
};

} // namespace Velmora::Kvz
