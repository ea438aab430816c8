// SPDX-License-Identifier: MIT
#pragma once

#include "GLCallRecorder.h"

namespace Velmora::Kvz {

/// Tells of every call that draws items with indices, whichever of GL's functions it is, before it is made.
class ItemDrawRecorder
{
public:
    explicit ItemDrawRecorder(const std::function<void()> &onDraw)
    {
        m_one.onCall = [onDraw](auto...) { onDraw(); };
        m_numbered.onCall = [onDraw](auto...) { onDraw(); };
        m_many.onCall = [onDraw](auto...) { onDraw(); };
    }

private:
    GLCallRecorder<&epoxy_glDrawElements> m_one;
    GLCallRecorder<&epoxy_glDrawElementsInstancedBaseInstance> m_numbered;
    GLCallRecorder<&epoxy_glMultiDrawElementsIndirect> m_many;
};

} // namespace Velmora::Kvz
